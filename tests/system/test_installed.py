"""What is installed: the programs that people run, and that they find their private ones from there,
wherever that is."""

import os
import subprocess
import time

import pytest

from agent import BIN, HELPER, PATIENCE, icon, text_of, wait_until

PROGRAMS = ["ravelin-disk-agent", "ravelin-disk-announce", "ravelin-disk-check",
            "ravelin-disk-open", "ravelin-disk-tidy", "ravelin-disk-volume"]
HELPERS = ["ravelin-disk-autostart", HELPER, "ravelin-disk-volumes-helper"]


@pytest.fixture(name="prefix", scope="module")
def _prefix(tmp_path_factory):
    """Where the build has been installed."""
    prefix = tmp_path_factory.mktemp("installed") / "first"
    subprocess.run(["cmake", "--install", BIN.parent, "--prefix", prefix], check=True,
                   stdout=subprocess.DEVNULL)
    return prefix


@pytest.fixture(name="programs", params=["installed", "moved", "linked folder", "linked programs"])
def _programs(request, prefix, tmp_path):
    """The folder by which the programs are reached."""
    if request.param == "moved":
        moved = prefix.with_name("second")
        prefix.rename(moved)
        request.addfinalizer(lambda: moved.rename(prefix))
        return moved / "bin"
    links = tmp_path / "links"
    if request.param == "linked folder":
        links.symlink_to(prefix / "bin")
        return links
    if request.param == "linked programs":
        links.mkdir()
        for name in PROGRAMS:
            (links / name).symlink_to(prefix / "bin" / name)
        return links
    return prefix / "bin"


def test_people_see_only_what_they_run(prefix):
    assert sorted(os.listdir(prefix / "bin")) == PROGRAMS
    assert sorted(os.listdir(prefix / "libexec/ravelin-disk")) == HELPERS


def test_the_agent_has_its_helper(home, programs):
    port = home.free_port()
    home.configure(port)
    picture = home.user_config.parent / "icon.ico"
    picture.write_bytes(icon())
    shortcut = home.desktop / "USB Disk.app"
    shortcut.write_text("the user's")
    agent = home.start_as_configured(port, command=[programs / "ravelin-disk-agent"])

    def has_picture():
        # A machine that is busy for longer than a helper may take gets another chance.
        agent.announce("disk_unmounted")
        agent.announce("disk_mounted")
        time.sleep(2)
        return f"\nIcon={picture}\n" in text_of(shortcut)

    wait_until(has_picture, "shortcut with the icon", patience=3 * PATIENCE)
    assert (home.trash / shortcut.name).read_text() == "the user's"
    assert agent.terminate() == 0


def test_the_command_for_volumes_has_its_helper(home, programs):
    result = subprocess.run(
        [programs / "ravelin-disk-volume", "mount", "127.0.0.77", "x"],
        env=os.environ | {"HOME": str(home.path), "GIO_USE_VFS": "local"},
        stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    assert (result.returncode, result.stdout, result.stderr) == (
        1, "", "Ravelin Disk: FSMountServerVolumeSync (x) result:-14="
        "this session has no GVfs that can mount SMB shares\n"
        "ravelin-disk-volume: the share cannot be mounted\n")


def test_the_helper_beside_the_agent_comes_first(home):
    """Outside an installation, the other place may be one where everybody can put something."""
    beside, elsewhere = home.base / "beside", home.base / "elsewhere"
    program = home.install(helper=f"touch {beside}")
    planted = home.base / "libexec/ravelin-disk" / HELPER
    planted.parent.mkdir(parents=True)
    planted.write_text(f"#!/bin/sh\ntouch {elsewhere}\n")
    planted.chmod(0o755)
    (home.desktop / "USB Disk.app").write_text("the user's")
    agent = home.start(command=[program])
    agent.announce("disk_mounted")
    wait_until(lambda: beside.exists() or elsewhere.exists(), "helper run")
    assert not elsewhere.exists()
    assert agent.terminate() == 0
