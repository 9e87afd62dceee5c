"""ravelin-disk-volume and what is beneath it, against real SMB servers and a real GVfs."""

import contextlib
import os
import pathlib
import re
import shutil
import stat

import pytest

from desktop import (BIN, PATIENCE, Session, SmbServer, junk_server, silent_server, slow_server,
                     wait_until)

SERVER = "127.0.0.5"
SHARE = "USB Disk"
NO_VOLUME = f"Ravelin Disk: FSUnmountVolumeSync ({SHARE}) result:-17=no mounted volume has this reference\n"
UNMOUNTED = f"Ravelin Disk: FSUnmountVolumeSync ({SHARE}) result:0=no error\n"
MOUNTED = f"Ravelin Disk: FSMountServerVolumeSync ({SHARE}) result:0=no error\n"
NOT_MOUNTED = (1, "", "ravelin-disk-volume: the share is not mounted\n")


@pytest.fixture(name="session", scope="module")
def _session():
    with Session() as session:
        yield session


@pytest.fixture(name="server", scope="module")
def _server(session):
    with SmbServer(session, SERVER, guests=[SHARE, "USB", "Photos", "Disk (1), 50% a=b"],
                   members=["Private"]) as server:
        yield server


@pytest.fixture(autouse=True)
def _nothing_left(request):
    """Every test leaves the session as it found it."""
    yield
    if "session" in request.fixturenames:
        session = request.getfixturevalue("session")
        assert session.list(session.runtime / "gvfs") in ([], "No such file or directory")


def point(session, share, server=SERVER):
    return f"{session.runtime}/gvfs/smb-share:server={server},share={share},user=guest"


@contextlib.contextmanager
def mounted(session, share=SHARE, server=SERVER):
    """A share that is mounted meanwhile: its path."""
    status, output, errors = session.volume("mount", server, share)
    assert (status, output.count("\n")) == (0, 1), errors
    try:
        yield output[:-1]
    finally:
        assert session.volume("unmount", server, share)[0] == 0


def failure(share, status, comment):
    """What is said about a share that cannot be mounted."""
    return (1, "", f"Ravelin Disk: FSMountServerVolumeSync ({share}) result:{status}={comment}\n"
                   "ravelin-disk-volume: the share cannot be mounted\n")


# Mounting, finding, unmounting


def test_a_share_is_mounted_found_read_and_unmounted(session, server):
    path = point(session, "usb%20disk")
    assert session.volume("where", SERVER, SHARE) == NOT_MOUNTED
    assert session.volume("mount", SERVER, SHARE) == (0, f"{path}\n", MOUNTED)
    assert session.list(path) == ["file.txt"]
    assert session.read(f"{path}/file.txt") == f"This is {SHARE}.\n"
    assert session.volume("where", SERVER, SHARE) == (0, f"{path}\n", "")
    assert session.volume("unmount", SERVER, SHARE) == (0, "", UNMOUNTED)
    assert session.volume("where", SERVER, SHARE) == NOT_MOUNTED
    assert session.list(path) == "No such file or directory"


def test_a_file_can_be_written(session, server):
    with mounted(session) as path:
        assert session.run("cp", "/proc/version", f"{path}/new")[0] == 0
        written = server.share(SHARE) / "new"
        assert written.read_text() == pathlib.Path("/proc/version").read_text()
        written.unlink()


@pytest.mark.parametrize("case", [str.lower, str.upper])
def test_a_share_is_found_in_every_case(session, server, case):
    with mounted(session) as path:
        assert session.volume("where", SERVER, case(SHARE)) == (0, f"{path}\n", "")
        assert session.volume("mount", SERVER, case(SHARE)) == (0, f"{path}\n", "")


def test_a_mounted_share_is_not_mounted_again(session, server):
    with mounted(session) as path:
        assert session.volume("mount", SERVER, SHARE) == (0, f"{path}\n", "")
        assert session.volume("try", SERVER, SHARE) == (0, "", "")
        assert session.read(f"{path}/file.txt") == f"This is {SHARE}.\n"
        assert not (session.home / ".local/share/RavelinDisk" / SHARE).exists()


def test_two_shares_of_one_server(session, server):
    with mounted(session) as one:
        with mounted(session, "Photos") as other:
            assert session.read(f"{one}/file.txt") == f"This is {SHARE}.\n"
            assert session.read(f"{other}/file.txt") == "This is Photos.\n"
            assert session.volume("where", SERVER, "Photos") == (0, f"{other}\n", "")
        assert session.volume("where", SERVER, "Photos") == NOT_MOUNTED
        assert session.read(f"{one}/file.txt") == f"This is {SHARE}.\n"


def test_one_label_on_two_servers(session, server):
    with SmbServer(session, "127.0.0.6", guests=[SHARE]) as second:
        (second.share(SHARE) / "file.txt").write_text("This is the second.\n")
        with mounted(session) as one, mounted(session, server=second.address) as other:
            assert session.read(f"{one}/file.txt") == f"This is {SHARE}.\n"
            assert session.read(f"{other}/file.txt") == "This is the second.\n"


def test_a_share_that_the_user_has_mounted_is_found(session, server):
    helper = BIN / "ravelin-disk-volumes-helper"
    status, path, _ = session.run(helper, "mount", f"smb://guest:@{SERVER}/Photos")
    assert (status, path) == (0, point(session, "photos"))
    assert session.volume("mount", SERVER, "Photos") == (0, f"{path}\n", "")
    assert session.volume("unmount", SERVER, "Photos")[0] == 0


def test_a_name_with_odd_characters_is_mounted(session, server):
    share = "Disk (1), 50% a=b"
    status, path, _ = session.volume("mount", SERVER, share)
    assert status == 0
    assert session.read(f"{path[:-1]}/file.txt") == f"This is {share}.\n"
    # The look-up in the mount table ends at the first parenthesis, and finds another path.
    cut = path.split("(")[0][:-1]
    for command in ("where", "unmount"):
        assert session.volume(command, SERVER, share) == (
            3, "", f"ravelin-disk-volume: nothing is done: where '{share}' of {SERVER} is looked "
            f"for, {cut} is found, which is the place of no share; it is mounted at {path}")
    assert session.run(BIN / "ravelin-disk-volumes-helper", "unmount", path[:-1])[0] == 0


# Other mounts


def test_a_share_whose_name_begins_alike_is_not_taken_for_it(session, server):
    with mounted(session, "Photos") as path:
        for command in ("mount", "unmount", "where", "try", "alias"):
            assert session.volume(command, SERVER, "Photo") == (
                3, "", f"ravelin-disk-volume: nothing is done: where 'Photo' of {SERVER} is looked "
                f"for, 'photos' of {SERVER} is found at {path}\n")
        assert session.read(f"{path}/file.txt") == "This is Photos.\n"
        assert session.list(session.desktop) == []


def test_a_server_whose_address_ends_alike_is_not_taken_for_it(session, server):
    with mounted(session) as path:
        assert session.volume("where", SERVER[1:], SHARE) == (
            3, "", f"ravelin-disk-volume: nothing is done: where '{SHARE}' of {SERVER[1:]} is "
            f"looked for, '{SHARE.lower()}' of {SERVER} is found at {path}\n")


def test_the_right_share_is_told_where_another_one_is_found_first(session, server):
    with mounted(session, "USB") as path:
        assert session.volume("where", SERVER, "USB") == (0, f"{path}\n", "")
        with mounted(session) as other:
            assert session.volume("unmount", SERVER, "USB") == (
                3, "", f"ravelin-disk-volume: nothing is done: where 'USB' of {SERVER} is looked "
                f"for, '{SHARE.lower()}' of {SERVER} is found at {other}; "
                f"it is mounted at {path}\n")
        assert session.read(f"{path}/file.txt") == "This is USB.\n"


def test_a_mount_point_that_is_no_utf8_does_not_hide_the_others(session, server):
    odd = session.base / os.fsdecode(b"odd \xff\xc3(")
    odd.mkdir()
    assert session.run("mount", "-t", "tmpfs", "none", odd)[0] == 0
    try:
        with mounted(session) as path:
            assert session.volume("where", SERVER, SHARE) == (0, f"{path}\n", "")
            assert session.volume("mount", SERVER, SHARE) == (0, f"{path}\n", "")
    finally:
        assert session.run("umount", odd)[0] == 0


# Failures


def test_each_failure_has_its_own_status_and_comment(session, server):
    assert session.volume("mount", SERVER, "nothing") == failure(
        "nothing", -11, "the server has no such share")
    assert session.volume("mount", SERVER, "Private") == failure(
        "Private", -12, "the server does not permit guests to use this share")
    assert session.volume("mount", "127.0.0.77", "x") == failure(
        "x", -10, "no SMB server answers at this address")
    assert session.volume("mount", "192.0.2.1", "x") == failure(
        "x", -10, "no SMB server answers at this address")


def test_what_gvfs_says_about_other_failures_is_told(session):
    junk_server(session, "127.0.0.13")
    assert session.volume("mount", "127.0.0.13", "x") == failure(
        "x", -19, "GVfs could not do it: Failed to mount Windows share: Invalid argument")


def test_without_gvfs_nothing_is_mounted(session, server):
    without = failure(SHARE, -14, "this session has no GVfs that can mount SMB shares")
    nowhere = f"unix:path={session.base}/nowhere"
    for environment in ({"DBUS_SESSION_BUS_ADDRESS": nowhere}, {"GIO_USE_VFS": "local"}):
        assert session.volume("mount", SERVER, SHARE, environment=environment) == without


def test_a_share_without_a_path_is_not_left_mounted(request):
    with Session(fuse=False) as session, SmbServer(session, SERVER, guests=[SHARE]):
        for _ in range(2):
            assert session.volume("mount", SERVER, SHARE) == failure(
                SHARE, -15,
                "GVfs gives the share no place in the file system; its FUSE side is missing")


def test_a_missing_helper_is_reported(session, server):
    alone = session.base / "alone"
    alone.mkdir()
    shutil.copy(BIN / "ravelin-disk-volume", alone)
    assert session.run(alone / "ravelin-disk-volume", "mount", SERVER, SHARE) == failure(
        SHARE, -20, "the program ravelin-disk-volumes-helper cannot be started")


def test_a_silent_server_is_given_up(session):
    silent_server(session, "127.0.0.8")
    status, output, errors = session.volume("mount", "127.0.0.8", "x")
    assert (status, output) == (1, "")
    assert errors in [
        failure("x", -10, "no SMB server answers at this address")[2],
        failure("x", -16, "it took too long")[2],
    ]


def test_a_share_whose_server_has_stopped_can_be_unmounted(session, server):
    with mounted(session) as path:
        server.stop()
        try:
            assert session.list(path) == "Input/output error"
            assert session.volume("where", SERVER, SHARE) == (0, f"{path}\n", "")
            assert session.volume("alias", SERVER, SHARE)[0] == 0
            (session.desktop / os.path.basename(path)).unlink()
            assert session.volume("mount", SERVER, "Photos") == failure(
                "Photos", -10, "no SMB server answers at this address")
            assert session.volume("unmount", SERVER, SHARE)[0] == 0
            assert session.volume("where", SERVER, SHARE) == NOT_MOUNTED
        finally:
            server.start()
    with mounted(session) as path:
        assert session.read(f"{path}/file.txt") == f"This is {SHARE}.\n"


def test_unmounting_what_is_not_mounted_is_no_failure(session):
    assert session.volume("unmount", SERVER, SHARE) == (0, "", NO_VOLUME)


# One process


class Process:
    """One process that mounts and unmounts one disk."""

    def __init__(self, session, share=SHARE, environment=None):
        self.process = session.open(BIN / "ravelin-disk-volume-session", SERVER, share,
                                    environment=environment)

    def __call__(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        return self.process.stdout.readline()[:-1]

    def end(self):
        _, errors = self.process.communicate(timeout=PATIENCE)
        assert self.process.returncode == 0
        return errors


def test_a_process_unmounts_by_its_own_reference(session, server):
    process = Process(session)
    path = point(session, "usb%20disk")
    assert process("exists") == "false"
    assert process("path") == "(null)"
    assert process("mount") == "true", process.end()
    assert process("reference") == "1"
    assert process("path") == path
    assert process("exists") == "true"
    assert process("unmount") == "true"
    assert process("exists") == "false"
    assert process("lookup") == "(null)"
    assert process("path") == path
    assert process("mount") == "true", process.end()
    assert process("reference") == "2"
    assert process("unmount") == "true"
    assert process.end() == (MOUNTED + UNMOUNTED) * 2


def test_a_volume_that_somebody_else_has_unmounted_counts_as_unmounted(session, server):
    process = Process(session)
    assert process("mount") == "true", process.end()
    assert session.volume("unmount", SERVER, SHARE)[0] == 0
    assert process("exists") == "false"
    assert process("unmount") == "true"
    assert process.end() == MOUNTED + NO_VOLUME


def test_a_share_whose_name_the_look_up_cannot_find_is_found_by_reference(session, server):
    process = Process(session, "Disk (1), 50% a=b")
    assert process("mount") == "true", process.end()
    path = process("path")
    assert session.read(f"{path}/file.txt") == "This is Disk (1), 50% a=b.\n"
    assert process("unmount") == "true"
    assert session.list(path) == "No such file or directory"
    process.end()


def test_what_libraries_say_is_no_part_of_a_mount_point(session, server):
    process = Process(session, environment={"LD_PRELOAD": "/nowhere/complains.so"})
    assert process("mount") == "true", process.end()
    assert process("path") == point(session, "usb%20disk")
    assert process("unmount") == "true"
    said = process.end()
    assert "complains.so" in said
    assert [line for line in said.splitlines(True) if "complains.so" not in line] == [
        MOUNTED, UNMOUNTED]


# In use


@contextlib.contextmanager
def user(session, preparation):
    """A shell that has done this and then writes to its standard output what it is told: itself and
    its number. The output is the file that the preparation opens, if it opens one."""
    process = session.open(
        "sh", "-c", f'echo $$ >&2; {preparation}; echo ready >&2; '
        'while read -r line; do echo "$line"; done')
    number = process.stderr.readline().strip()
    assert process.stderr.readline() == "ready\n"
    try:
        yield process, number
    finally:
        process.communicate(timeout=PATIENCE)


def in_use(path, who):
    reason = f"the volume is in use: {who}"
    # The log takes a message for a template, and "%20d" in it for a number.
    logged = path.replace("%20d", "0".rjust(20))
    return (1, "", f"Ravelin Disk: FSUnmountVolumeSync ({SHARE}) result:-18={reason}\n"
                   f"umount: {path}: {reason}.\n"
                   f"Ravelin Disk: _shellUnMountDiskAtPath ({logged}) failure\n"
                   "ravelin-disk-volume: the share cannot be unmounted\n")


def test_what_is_being_written_is_not_lost(session, server):
    with mounted(session) as path:
        with user(session, f"exec >'{path}/new file'") as (writer, number):
            writer.stdin.write("one\n")
            writer.stdin.flush()
            wait_until(lambda: (server.share(SHARE) / "new file").exists(), "the file")
            for _ in range(2):
                assert session.volume("unmount", SERVER, SHARE) == in_use(
                    path, f"sh (pid {number}) has /new file open")
            assert session.run(BIN / "ravelin-disk-volumes-helper", "unmount", path) == (
                18, f"sh (pid {number}) has /new file open", "")
            writer.stdin.write("two\n")
        assert writer.returncode == 0
        written = server.share(SHARE) / "new file"
        assert written.read_text() == "one\ntwo\n"
        written.unlink()


def test_a_volume_in_which_somebody_works_is_not_unmounted(session, server):
    with mounted(session) as path:
        (server.share(SHARE) / "folder").mkdir()
        for folder in ("", "/folder"):
            with user(session, f"cd '{path}{folder}'") as (_, number):
                assert session.volume("unmount", SERVER, SHARE) == in_use(
                    path, f"sh (pid {number}) works in {folder or '/'}")
        (server.share(SHARE) / "folder").rmdir()


def test_a_server_that_has_stopped_does_not_hold_the_look_for_users_up(session, server):
    with mounted(session) as path:
        with user(session, f"cd '{path}'; exec 3<file.txt") as (_, number):
            server.stop()
            try:
                assert session.volume("unmount", SERVER, SHARE) == in_use(
                    path, f"sh (pid {number}) has /file.txt open")
            finally:
                server.start()


def test_another_share_in_use_is_no_obstacle(session, server):
    with mounted(session, "Photos") as other:
        with mounted(session), user(session, f"cd '{other}'; exec 3<file.txt"):
            assert session.volume("unmount", SERVER, SHARE) == (0, "", UNMOUNTED)
            assert session.volume("mount", SERVER, SHARE)[0] == 0


# Given up


@pytest.fixture(name="mounts")
def _mounts(session):
    """What GVfs says about mounts from now on, as a function: "Mounted" and "Unmounted"."""
    said = session.base / "said"
    monitor = session.start(
        "sh", "-c", "exec dbus-monitor --session 'type=signal,interface=org.gtk.vfs.MountTracker' "
        f">'{said}'")
    # The first thing that it hears is that it has lost its own name.
    wait_until(lambda: said.exists() and "NameLost" in said.read_text(), "the monitor")
    yield lambda: re.findall(" member=((?:Unm|M)ounted)", said.read_text())
    monitor.kill()
    said.unlink()


def test_a_share_that_comes_too_late_is_unmounted_again(session, server, mounts):
    slow_server(session, "127.0.0.9", server, 3)
    assert session.volume("mount", "127.0.0.9", SHARE) == failure(SHARE, -16, "it took too long")
    wait_until(lambda: mounts() == ["Mounted", "Unmounted"], "the end of the mount")
    assert session.volume("where", "127.0.0.9", SHARE) == NOT_MOUNTED


@pytest.mark.parametrize("address, signal, whom", [
    ("127.0.0.10", "INT", "-"),  # as Ctrl-C does: every process of the group
    ("127.0.0.11", "TERM", ""),
    ("127.0.0.12", "KILL", ""),
])
def test_a_mount_that_is_interrupted_is_undone(session, server, mounts, address, signal, whom):
    slow_server(session, address, server, 1)
    program = session.open("setsid", "sh", "-c", 'echo $$; exec "$@"', "sh",
                           BIN / "ravelin-disk-volume", "mount", address, SHARE)
    number = program.stdout.readline().strip()
    wait_until((session.base / f"asked-{address}").exists, "the connection")
    assert session.run("sh", "-c", f"kill -s {signal} -- {whom}{number}")[0] == 0
    assert program.communicate(timeout=PATIENCE)[0] == ""
    assert program.returncode != 0
    wait_until(lambda: mounts() == ["Mounted", "Unmounted"], "the end of the mount")
    assert session.volume("where", address, SHARE) == NOT_MOUNTED


# By command


def support(session, share=SHARE):
    return session.home / ".local/share/RavelinDisk" / share


def test_a_trial_mount_by_the_kernel(session, server):
    """Where the kernel has no SMB file system, the failure is the kernel's own."""
    status, output, errors = session.volume("try", SERVER, SHARE)
    lines = errors.splitlines()
    assert output == ""
    if status == 0:
        assert lines == [
            f"Ravelin Disk: MountTask ({SHARE} Try:1) successful.",
            f"Ravelin Disk: _shellUnMountDiskAtPath ({support(session)}) successful",
        ]
        assert not support(session).exists()
        return
    assert status == 1
    assert lines[-1] == "ravelin-disk-volume: the share cannot be mounted by command"
    tries = [line for line in lines if line.startswith("Ravelin Disk: MountTask")]
    for number, line in enumerate(tries, 1):
        assert line.startswith(
            f"Ravelin Disk: MountTask ({SHARE} Try:{number} termination Status ")
        assert f"result:mount: {support(session)}: " in line
    assert len(tries) == 3
    assert support(session).is_dir()
    support(session).rmdir()


@contextlib.contextmanager
def stand_in_for_mount(session, commands):
    """Has another program in the place of the session's mount program meanwhile."""
    program = session.base / "mount"
    real = session.base / "real-mount"
    notes = session.base / "notes"
    found = "/usr/bin/mount"
    shutil.copy(found, real)
    program.write_text(f"#!/bin/sh\nREAL={real}\nprintf '[%s]' \"$@\" >>{notes}\n{commands}\n")
    program.chmod(0o755)
    assert session.run(real, "--bind", program, found)[0] == 0
    try:
        yield notes
    finally:
        assert session.run("umount", found)[0] == 0
        notes.unlink(missing_ok=True)


def test_a_trial_mount_leaves_nothing_behind(session, server):
    with stand_in_for_mount(session, '"$REAL" -t tmpfs "$5" "$6"') as notes:
        assert session.volume("try", SERVER, SHARE) == (
            0, "",
            f"Ravelin Disk: MountTask ({SHARE} Try:1) successful.\n"
            f"Ravelin Disk: _shellUnMountDiskAtPath ({support(session)}) successful\n",
        )
        assert notes.read_text() == (
            f"[-t][cifs][-o][guest][//{SERVER}/{SHARE}][{support(session)}]")
    assert not support(session).exists()
    assert str(support(session)) not in session.read("/proc/self/mounts")


def test_a_mount_by_command_that_cannot_be_undone_still_counts(session, server):
    with stand_in_for_mount(session, "exit 0"):
        status, _, errors = session.volume("try", SERVER, SHARE)
    assert status == 0
    assert f"_shellUnMountDiskAtPath ({support(session)}) failure\n" in errors
    assert support(session).is_dir()
    support(session).rmdir()


def test_a_program_that_cannot_be_started_is_reported(session, server):
    empty = session.base / "empty"
    empty.touch()
    empty.chmod(0o644)
    assert session.run("mount", "--bind", empty, "/usr/bin/mkdir")[0] == 0
    try:
        status, output, errors = session.volume("try", SERVER, SHARE)
    finally:
        assert session.run("umount", "/usr/bin/mkdir")[0] == 0
    assert (status, output) == (1, "")
    assert errors == "ravelin-disk-volume: cannot start /usr/bin/mkdir: Permission denied\n"


# Aliases


def test_an_alias_leads_to_the_files(session, server):
    with mounted(session) as path:
        alias = session.desktop / os.path.basename(path)
        made = (0, f"{alias}\n", "Ravelin Disk: Alias has been created at desktop.\n")
        assert session.volume("alias", SERVER, SHARE) == made
        assert stat.S_ISLNK(os.lstat(alias).st_mode)
        assert session.read(alias / "file.txt") == f"This is {SHARE}.\n"
        # One that is there stays.
        assert session.volume("alias", SERVER, SHARE) == (0, f"{alias}\n", "")
        alias.unlink()
        assert session.volume("alias", SERVER, SHARE) == made
        alias.unlink()


def test_only_a_mounted_share_gets_an_alias(session, server):
    assert session.volume("alias", SERVER, SHARE) == NOT_MOUNTED
    assert session.list(session.desktop) == []


def test_an_alias_needs_a_desktop(session, server):
    with mounted(session):
        session.desktop.rmdir()
        try:
            assert session.volume("alias", SERVER, SHARE) == (
                1, "", "Ravelin Disk: Could not create the alias file.\n"
                "ravelin-disk-volume: there is no alias on the desktop\n",
            )
        finally:
            session.desktop.mkdir()


# The command line


def test_wrong_arguments_are_named_with_what_is_wanted(session):
    for arguments, reason in [
        ([], "COMMAND: missing"),
        (["mount"], "SERVER: missing"),
        (["mount", SERVER], "SHARE: missing"),
        (["mount", SERVER, "x", "y"], "'y': one argument too many"),
        (["Mount", SERVER, "x"],
         "COMMAND: wanted mount, unmount, where, try or alias, not 'Mount'"),
        (["mount", "device", "x"], "SERVER: wanted an IPv4 address, not 'device'"),
        (["mount", "::1", "x"], "SERVER: wanted an IPv4 address, not '::1'"),
        (["mount", SERVER, ""], "SHARE: wanted the printable ASCII name of a share, not ''"),
        (["mount", SERVER, "a/b"], "SHARE: wanted the printable ASCII name of a share, not 'a/b'"),
        (["mount", SERVER, "\u00fc"],
         "SHARE: wanted the printable ASCII name of a share, not '\u00fc'"),
    ]:
        assert session.volume(*arguments) == (
            2, "", f"ravelin-disk-volume: {reason}; see --help\n")
