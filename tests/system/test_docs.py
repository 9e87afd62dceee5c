"""The examples in the documents do what is said there."""

import contextlib
import pathlib
import re

import pytest

import namespaces
from agent import STARTED, Agent

DOCS = pathlib.Path(__file__).parents[2] / "docs"
CONFIGURATION = (DOCS / "configuration.md").read_text(encoding="utf-8")
PROTOCOL = (DOCS / "protocol.md").read_text(encoding="utf-8")

CONFIGURATIONS = re.findall(r"^```xml\n(.*?)^```$", CONFIGURATION, re.MULTILINE | re.DOTALL)
ANNOUNCEMENTS = re.findall(r"^\| `(\S*:[^`]*)` \| .* \| ([^|]*) \|$", PROTOCOL, re.MULTILINE)
FIRST = re.search(r"announced by\n\n    (.*)\n", PROTOCOL)[1]


def test_the_examples_are_found():
    assert [text.count("<string>") for text in CONFIGURATIONS] == [1, 2, 1, 0]
    assert len(ANNOUNCEMENTS) == 24


def test_the_first_configuration_is_the_sample():
    sample = DOCS.parent / "packaging" / "Ravelin Disk Config.plist"
    assert sample.read_text(encoding="utf-8") == CONFIGURATIONS[0]


@pytest.mark.parametrize("number", range(len(CONFIGURATIONS)))
def test_configuration(home, number):
    text = CONFIGURATIONS[number]
    ports = [home.free_port() for _ in re.findall("<integer>507[0-9]<", text)]
    remaining = iter(ports)
    home.user_config.parent.mkdir(parents=True)
    home.user_config.write_text(
        re.sub("(?<=<integer>)507[0-9](?=<)", lambda _: str(next(remaining)), text),
        encoding="utf-8")
    # If the user's own configuration gave way, this one would be used.
    other = home.free_port()
    home.configure(other, file=home.machine_config)
    with contextlib.ExitStack() as stack:
        if namespaces.may_be_made():  # so that the real network is left alone
            stack.enter_context(stack.enter_context(namespaces.Namespace()).entered())
        agent = Agent(home, ports)
    agent.wait_for_log("Success initializing Cocoa.\n")
    agent.wait_for_log(STARTED, count=len(ports))
    for position, port in enumerate(ports):
        agent.announce("disk_mounted", port=port, uuid=str(position), label=f"Disk {position}")
    home.wait_for_shortcuts(*(f"Disk {position}.app" for position in range(len(ports))))
    assert agent.log().count(STARTED) == len(ports)
    assert agent.terminate() == 0


@pytest.mark.parametrize(("announcement", "shortcuts"), ANNOUNCEMENTS)
def test_announcement(home, announcement, shortcuts):
    agent = home.start()
    agent.send(FIRST)
    home.wait_for_shortcuts("Old.app")
    agent.send(announcement.encode())
    # Whatever has been decided by the time this one is there has been decided for good.
    agent.mount("Later", uuid="later", mac="later")
    names = [] if shortcuts == "none" else shortcuts.split(", ")
    home.wait_for_shortcuts("Later.app", *(f"{name}.app" for name in names))
