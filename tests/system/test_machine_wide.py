"""Which of the machine-wide folders have the configuration: for the agent, and for the scripts."""

import os
import pathlib
import subprocess

import pytest

import namespaces
from agent import BESIDE, EXECUTABLE, Agent, wait_until

ROOT = pathlib.Path(__file__).resolve().parents[2]
LOCAL, VENDOR = pathlib.Path("/usr/local/share"), pathlib.Path("/usr/share")
CONFIG = "RavelinDisk/Ravelin Disk Config.plist"


@pytest.fixture(autouse=True)
def _empty_folders(needs_root):
    """The system's own folders have nothing in them for these tests."""
    needs_root("mounts of their own")
    with namespaces.OwnMounts() as mounts:
        mounts.mount_memory(LOCAL)
        mounts.mount_memory(VENDOR)
        yield


def configuration_of_the_agent(home, folders, listed):
    """The one of the folders, each of which has a configuration, whose file the agent takes."""
    ports = {}
    for folder in folders:
        ports[folder] = home.free_port()
        home.configure(ports[folder], file=folder / CONFIG)
    agent = Agent(home, command=["env", f"XDG_DATA_DIRS={listed}", EXECUTABLE])

    def shortcuts():
        for number, port in enumerate(ports.values()):
            agent.announce("disk_mounted", port=port, uuid=str(number), label=str(number))
        return [name for name in home.shortcuts() if not name.startswith(BESIDE)]

    (shortcut,) = wait_until(shortcuts, "a shortcut", period=0.25)
    assert agent.terminate() == 0
    return folders[int(shortcut.removesuffix(".app"))]


def configuration_of_the_scripts(home, listed):
    command = '. script/common; find_configuration >&2; echo "$config"'
    result = subprocess.run(
        ["bash", "-euc", command], cwd=ROOT, check=True, capture_output=True, text=True,
        env={"PATH": os.environ["PATH"], "HOME": str(home.path), "XDG_DATA_DIRS": listed})
    return pathlib.Path(result.stdout.removesuffix("\n"))


@pytest.mark.parametrize(("listed", "have", "expected"), [
    ("", [LOCAL, VENDOR], LOCAL),
    ("", [VENDOR], VENDOR),
    ("relative:", [VENDOR], VENDOR),
    ("{one}:{other}", ["one", "other"], "one"),
    ("{one}:{other}/", ["other"], "other"),
    ("{one}/:relative::{other}:/usr/share", ["other", VENDOR], "other"),
    ("{one}:/usr/local/share/:/usr/share", ["one", LOCAL, VENDOR], LOCAL),
    ("{one}:/usr/local/share:/usr/share", ["one", VENDOR], "one"),
    ("{one}:/usr/share:/usr/local/share", [VENDOR], VENDOR),
])
def test_the_first_that_has_the_folder(home, listed, have, expected):
    places = {"one": home.outside / "one", "other": home.outside / "other"}
    listed = listed.format(**places)
    folders = [places.get(folder, folder) for folder in have]
    expected = places.get(expected, expected)
    assert configuration_of_the_agent(home, folders, listed) == expected
    assert configuration_of_the_scripts(home, listed) == expected / CONFIG


def test_a_folder_without_a_file_goes_first_too(home):
    """So that an administrator can switch off what a package brings."""
    home.configure(home.free_port(), file=VENDOR / CONFIG)
    (LOCAL / "RavelinDisk").mkdir()
    agent = Agent(home, command=["env", "-u", "XDG_DATA_DIRS", EXECUTABLE])
    agent.wait_for_log("Success initializing Cocoa.\n")
    assert agent.terminate() == 0
    assert "Server" not in agent.log()
