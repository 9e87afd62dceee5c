"""Whatever is announced, and whenever, the user loses no file of his: what is not a shortcut of the
agent's is moved to the trash or stays."""

import contextlib
import os
import stat

import pytest

from agent import REMOVAL_FAILED, message, received, snapshot, wait_until
from namespaces import OwnMounts

NOT_OURS = REMOVAL_FAILED + "It is not a shortcut of Ravelin Disk\n"
NOT_MOVED = REMOVAL_FAILED + "Not moved to the trash: "
MAGIC = b"# Ravelin Disk shortcut\n"


def make_file(path, _):
    path.write_text("the user's")


def make_file_that_looks_similar(path, _):
    path.write_bytes(b"\n" + MAGIC)


def make_link(path, target):
    path.symlink_to(target)


def make_dead_link(path, target):
    path.symlink_to(target / "nowhere")


def make_pipe(path, _):
    os.mkfifo(path)


def make_folder(path, _):
    (path / "Contents").mkdir(parents=True)
    (path / "Contents/file").write_text("the user's")


KINDS = [make_file, make_file_that_looks_similar, make_link, make_dead_link, make_pipe, make_folder]
every_kind = pytest.mark.parametrize("make", KINDS, ids=lambda kind: kind.__name__)


@pytest.fixture
def target(home):
    """A shortcut to which a link may lead; a link to a shortcut is not one."""
    path = home.outside / "target"
    path.write_bytes(MAGIC)
    return path


def is_shortcut(path):
    """Whether there is one of the agent's own, made by now."""
    with contextlib.suppress(FileNotFoundError):
        return stat.S_ISREG(path.lstat().st_mode) and path.read_bytes().startswith(
            MAGIC + b"[Desktop Entry]\n")
    return False


def below(folder):
    """Everything beneath the folder, by its path in it."""
    return {os.path.relpath(path, folder): what for path, what in snapshot(folder).items()}


@every_kind
@pytest.mark.parametrize("label", ["USB Disk", "Folder/Below/USB Disk"])
def test_mounting_moves_what_is_in_the_way_to_the_trash(home, target, make, label):
    path = home.desktop / f"{label}.app"
    path.parent.mkdir(parents=True, exist_ok=True)
    make(path, target)
    before = below(path.parent)
    agent = home.start()
    agent.announce("disk_mounted", label=label)
    wait_until(lambda: is_shortcut(path), "shortcut")
    assert below(home.trash) == before
    assert f"Path={path}\n".replace(" ", "%20") in (
        home.trash.parent / "info/USB Disk.app.trashinfo").read_text()
    assert target.read_bytes() == MAGIC
    agent.announce("disk_unmounted")
    wait_until(lambda: os.listdir(path.parent) == [], "removal")
    assert REMOVAL_FAILED not in agent.log()
    assert agent.terminate() == 0
    assert below(home.trash) == before


@every_kind
@pytest.mark.parametrize("end", ["unmounted", "no disk", "termination"])
def test_what_has_come_in_a_shortcuts_place_stays(home, target, make, end):
    agent = home.start()
    # Once: what is announced again must not be mounted again, at the end of the agent, say.
    agent.announce("disk_mounted")
    home.wait_for_shortcuts("USB Disk.app")
    path = home.desktop / "USB Disk.app"
    path.unlink()
    make(path, target)
    before = snapshot(home.desktop, home.outside)
    if end == "unmounted":
        agent.announce("disk_unmounted")
    elif end == "no disk":
        agent.announce("no_disk")
    if end != "termination":
        agent.wait_for_log(REMOVAL_FAILED)
        # The disk is forgotten a moment after that line.
        agent.mount("Other", uuid="other")
    assert agent.terminate() == 0
    assert agent.log().count(REMOVAL_FAILED) == 1
    assert snapshot(home.desktop, home.outside) == before
    assert not home.trash.exists()


def test_old_shortcuts_are_removed_for_good(home):
    home.start().mount()
    home.agents[0].kill()
    assert home.shortcuts() == ["USB Disk.app"]
    agent = home.start()
    path = home.desktop / "USB Disk.app"
    path.write_bytes(MAGIC)
    agent.announce("disk_mounted")
    wait_until(lambda: is_shortcut(path), "new shortcut")
    assert agent.terminate() == 0
    assert home.shortcuts() == []
    assert not home.trash.exists()


def check_that_it_stays(agent, path):
    """That the file stays when a disk of its name comes and goes, and the agent with it."""
    before = snapshot(path.parent)
    agent.announce("disk_mounted")
    agent.wait_for_log(NOT_MOVED)
    agent.mount("Other", uuid="other").unlink()
    assert snapshot(path.parent) == before
    agent.announce("disk_unmounted")
    agent.wait_for_log(NOT_OURS)
    agent.announce("disk_mounted")
    agent.wait_for_log(NOT_MOVED, count=2)
    # The disk is known a moment after that line.
    agent.mount("Other", uuid="another")
    assert agent.terminate() == 0
    assert agent.log().count(NOT_OURS) == 2
    assert snapshot(path.parent) == before


@every_kind
def test_where_there_is_no_trash_it_stays(home, target, make):
    with OwnMounts() as mounts:
        mounts.mount_memory(home.desktop)
        path = home.desktop / "USB Disk.app"
        make(path, target)
        agent = home.start()
        before = snapshot(home.desktop)
        agent.announce("disk_mounted")
        agent.wait_for_log(NOT_MOVED)
        agent.mount("Other", uuid="other")
        agent.announce("disk_unmounted", uuid="other")
        home.wait_for_shortcuts("USB Disk.app")
        agent.announce("disk_unmounted")
        agent.wait_for_log(REMOVAL_FAILED, count=2)
        assert agent.terminate() == 0
        assert snapshot(home.desktop) == before
    assert not home.trash.exists()


def test_a_trash_in_which_nothing_can_be_made(home):
    home.trash.parent.parent.mkdir(parents=True)
    home.trash.parent.write_text("not a folder")
    path = home.desktop / "USB Disk.app"
    path.write_text("the user's")
    check_that_it_stays(home.start(), path)


def test_without_the_helper_it_stays(home):
    program = home.install()
    path = home.desktop / "USB Disk.app"
    path.write_text("the user's")
    check_that_it_stays(home.start(command=[program]), path)
    assert os.listdir(program.parent) == [program.name]


def test_a_helper_that_hangs_holds_nobody_up_for_long(home):
    program = home.install(helper="exec sleep 1000")
    path = home.desktop / "USB Disk.app"
    path.write_text("the user's")
    agent = home.start(command=[program])
    agent.announce("disk_mounted")
    agent.wait_for_log(received(message("disk_mounted"), "disk_mounted"))
    # The network is listened to meanwhile.
    agent.announce("disk_mounted", uuid="other", label="Other")
    agent.wait_for_log(received(message("disk_mounted", uuid="other", label="Other"),
                                "disk_mounted", uuid="other", label="Other"))
    assert REMOVAL_FAILED not in agent.log()
    wait_until((home.desktop / "Other.app").exists, "shortcut")
    assert agent.log().count(NOT_MOVED) == 1
    assert path.read_text() == "the user's"
    assert agent.terminate() == 0
    assert path.read_text() == "the user's"


@pytest.mark.parametrize("place, label", [("nas", "nas/x"), ("nas", "nas/below/x"),
                                          ("x.app", "x"), ("Folder/nas", "Folder/nas/x")])
def test_a_hung_file_system_beneath_the_desktop_holds_nobody_up(home, place, label):
    (home.desktop / place).mkdir(parents=True)
    with OwnMounts() as mounts:
        mounts.mount_hung(home.desktop / place)
        agent = home.start()
        for _ in range(2):
            agent.announce("disk_mounted", uuid="hung", label=label)
            agent.announce("disk_mounted", uuid="other", label="Other")
            wait_until((home.desktop / "Other.app").exists, "shortcut")
            agent.announce("disk_unmounted", uuid="hung")
            agent.announce("disk_unmounted", uuid="other")
            home.wait_until_gone(home.desktop / "Other.app")
        agent.announce("disk_mounted", uuid="hung", label=label)
        agent.mount("Other", uuid="other")
        assert agent.terminate() == 0
        assert not (home.desktop / "Other.app").exists()


def test_nothing_is_made_or_removed_in_another_mount(home):
    folder = home.desktop / "stick"
    folder.mkdir()
    with OwnMounts() as mounts:
        mounts.mount_memory(folder)
        (folder / "x.app").write_bytes(MAGIC)
        agent = home.start()
        agent.announce("disk_mounted", uuid="1", label="stick/x")
        agent.announce("disk_mounted", uuid="2", label="stick/y")
        agent.mount("Other", uuid="other")
        agent.announce("disk_unmounted", uuid="1")
        agent.wait_for_log(REMOVAL_FAILED)
        assert agent.terminate() == 0
        assert below(folder) == {"x.app": (stat.S_IFREG | 0o644, MAGIC)}


def test_the_desktop_may_be_a_mount_itself(home):
    with OwnMounts() as mounts:
        mounts.mount_memory(home.desktop)
        agent = home.start()
        agent.mount()
        assert home.shortcuts() == ["USB Disk.app"]
        assert agent.terminate() == 0
        assert home.shortcuts() == []
