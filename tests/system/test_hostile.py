"""Whatever strangers send, nothing outside the desktop folder changes, and the agent goes on."""

import os
import re
import time

import pytest

from agent import ENDED, REMOVAL_FAILED, SUPPRESSED, message, wait_until

# The bytes of the longest line; those that strangers may cause at once, and those in a second.
LINE_LIMIT = 8 * 1024
BUDGET = 1024 * 1024
BUDGET_A_SECOND = 64 * 1024

# What becomes of each label: the name of its shortcut, or none.
LABELS = {
    "../../x": None,
    "../x": None,
    "a/../../../x": None,
    "/etc/x": None,
    "//x/y": None,
    "no folder/x": None,
    "nul\0nul": None,
    'double"quote': None,
    '" & (do shell script "id") & "': None,
    "back\\slash": None,
    "x" * 252: None,
    "x" * 60_000: None,
    "cr\r\nlf": "cr\r\nlf.app",
    "lf\nURL=file:///etc/passwd": None,
    "lf\nName=x": "lf\nName=x.app",
    "single'quote": "single'quote.app",
    "%n%s%99999d%*d%-99999s%1$s": "%n%s%99999d%*d%-99999s%1$s.app",
    "\x1b[31m\x07": "\x1b[31m\x07.app",
    "..": "...app",
    ".": "..app",
    "": ".app",
    "/": ".app",
    "x" * 251: "x" * 251 + ".app",
}


def name_of(label):
    return ascii(label) if len(label) < 40 else f"{len(label)} characters"


def keys(path):
    """The lines of a shortcut, without their values."""
    return [line.split(b"=")[0] for line in path.read_bytes().split(b"\n")]


@pytest.mark.parametrize("label", LABELS, ids=name_of)
def test_label(home, label):
    """A label that names no file in the desktop folder makes none, any other one just that."""
    made = LABELS[label]
    agent = home.start()
    with home.nothing_changes_elsewhere():
        with home.nothing_changes_elsewhere():
            agent.announce("disk_mounted", uuid="hostile", label=label)
            agent.mount("Ordinary", uuid="ordinary")
        assert home.shortcuts() == sorted(["Ordinary.app"] + ([made] if made else []))
        if made:
            assert keys(home.desktop / made) == keys(home.desktop / "Ordinary.app")
        agent.announce("disk_unmounted", uuid="hostile")
        agent.announce("disk_unmounted", uuid="ordinary")
        home.wait_for_shortcuts()
        assert agent.log().count(REMOVAL_FAILED) == (0 if made else 1)
        agent.announce("disk_mounted", uuid="hostile", label=label)
        agent.mount("Ordinary", uuid="ordinary")
        assert agent.terminate() == 0
        agent.check_clean_end()


def records(log):
    """What was logged, record by record, each with its further lines."""
    return re.split(r"\n(?!\t)", log.removesuffix("\n"))


def test_format_directives_write_a_bounded_log_line(home):
    agent = home.start()
    for number in range(20):
        agent.announce("disk_mounted", uuid=str(number), label="%99999d" * 7000 + "%n%s")
    agent.check_works()
    assert max(len(record) + 1 for record in records(agent.log())) == LINE_LIMIT
    assert " [cut]\n" in agent.log()


def storm(agent, payload, count):
    """Sends payload(n) for the numbers below the count, in a way that none is lost."""
    for number in range(count):
        agent.send(payload(number))
        if number % 4 == 0:
            wait_until(lambda: agent.unread_and_lost()[0] < 20_000, "reading", period=0.001)
    wait_until(lambda: agent.unread_and_lost()[0] == 0, "reading")
    assert agent.unread_and_lost()[1] == 0


STORMS = {
    # What each datagram causes, and how many cause far more than may be written.
    "directives": (lambda number: message("disk_unmounted", uuid=str(number), label="%512d" * 255),
                   "Received event message\n", 1000),
    "long texts": (lambda number: message("disk_mounted", uuid=str(number), label="x" * 8000),
                   "Received event message\n", 1000),
    "empty": (lambda number: b"", "Server could not read data\n", 60_000),
}


@pytest.mark.parametrize("name", STORMS)
@pytest.mark.parametrize("is_ended", [False, True], ids=["goes on", "ends at once"])
def test_storm_writes_no_more_than_its_budget(home, name, is_ended):
    """What is left out is counted: in one line that comes by itself, or before the last one."""
    payload, line, count = STORMS[name]
    agent = home.start()
    before = len(agent.log())
    began = time.monotonic()
    storm(agent, payload, count)

    def told():
        return [int(number) for number in re.findall(SUPPRESSED + r"(\d+)\n", agent.log())]

    if is_ended:
        agent.terminate()
        assert agent.log().endswith(ENDED)
        # The shortcuts that the storm made are gone; lines about them may be suppressed, too.
        assert sum(told()) >= count - agent.log().count(line)
    else:
        wait_until(lambda: sum(told()) == count - agent.log().count(line), "every line counted")
    passed = time.monotonic() - began
    written = len(agent.log()) - before
    assert BUDGET - LINE_LIMIT < written < BUDGET + BUDGET_A_SECOND * passed + LINE_LIMIT
    # It is told when a second has passed without another, and before a line that is not bounded by
    # the budget: that announcements are dropped, and the last one.
    assert len(told()) <= 2 + passed
    # On a machine so slow that there was budget for all of it, nothing was left out.
    in_full = written / agent.log().count(line) * count
    assert told() or in_full <= BUDGET + BUDGET_A_SECOND * passed + LINE_LIMIT


def test_no_label_forges_a_line_or_drives_the_terminal(home):
    agent = home.start()
    labels = [f"lf\n{ENDED}", f"cr\r{ENDED}", "\n\tx", "\x1b[2J\x1b]0;title\x07\x1b[31m", "\x08\x7f\v\f",
              "%c\0%5c", "2026-01-01 00:00:00.000 ravelin-disk-agent[1:1] x"]
    for number, label in enumerate(labels):
        agent.announce("disk_status", uuid=str(number), label=label)
        agent.announce("disk_unmounted", uuid=str(number), label=label)
    agent.check_works()
    log = agent.log()
    assert log.isascii() and all(character.isprintable() for character in re.sub("\n\t?", "", log))
    for record in records(log)[1:]:  # The first line is the console log's.
        assert record.startswith(tuple(
            f"Ravelin Disk: {kind}" for kind in ("Server has been started!", "Received event message",
                                                 "Disk ", "Error when deleting alias file."))), record
    assert "\\x1b[2J\\x1b]0;title\\x07\\x1b[31m" in log
    assert f"cr\\r{ENDED}" in log
    assert agent.terminate() == 0


def test_label_with_a_slash_works_where_the_folder_is_there(home):
    (home.desktop / "Folder/Below").mkdir(parents=True)
    agent = home.start()
    with home.nothing_changes_elsewhere():
        agent.announce("disk_mounted", label="Folder/Below/Disk")
        wait_until((home.desktop / "Folder/Below/Disk.app").exists, "shortcut")
        agent.announce("disk_unmounted")
        wait_until(lambda: not os.listdir(home.desktop / "Folder/Below"), "removal")
        agent.announce("disk_mounted", label="Folder/Disk")
        wait_until((home.desktop / "Folder/Disk.app").exists, "shortcut")
        assert agent.terminate() == 0
    assert os.listdir(home.desktop / "Folder") == ["Below"]


@pytest.mark.parametrize("target", ["outside", "inside"])
def test_link_on_the_way_is_not_followed(home, target):
    (home.outside / "Victim.app").write_text("not yours")
    (home.desktop / "Inside").mkdir()
    to = home.outside if target == "outside" else home.desktop / "Inside"
    (home.desktop / "link").symlink_to(to)
    agent = home.start()
    with home.nothing_changes_elsewhere():
        with home.nothing_changes_elsewhere():
            agent.announce("disk_mounted", uuid="1", label="link/x")
            agent.announce("disk_mounted", uuid="2", label="link/Victim")
            agent.check_works()
        assert os.listdir(home.desktop / "Inside") == []
        agent.announce("disk_unmounted", uuid="1")
        agent.announce("disk_unmounted", uuid="2")
        agent.check_works()
        assert agent.terminate() == 0
    assert home.shortcuts() == ["Inside", "link"]
    assert os.listdir(home.desktop / "Inside") == []


@pytest.mark.parametrize("ip", [
    "192.0.2.10\nExec=/bin/false\n[Desktop Entry]\nType=Application",
    "192.0.2.10\rType=Application",
    "192.0.2.10\r\n[Desktop Action x]\r\nExec=id",
    "]\n[Other]\nURL=file:///etc/passwd\n#",
    "%n%s%99999d",
    "x" * 60_000,
], ids=name_of)
def test_address_adds_nothing_to_the_shortcut(home, ip):
    agent = home.start()
    ordinary = agent.mount("Ordinary", uuid="ordinary")
    hostile = agent.mount("Hostile", uuid="hostile", ip=ip)
    assert keys(hostile) == keys(ordinary)
    content = hostile.read_bytes().decode()
    escaped = ip.replace("\n", "\\n").replace("\r", "\\r")
    assert f"\nURL=smb://guest:@{escaped}/Hostile\n" in content
    assert "\nType=Link\n" in content
    assert "\r" not in content


@pytest.mark.parametrize("ip", ['192.0.2.10"\nactivate\n"', "192.0.2.10\\", "192.0.2.10\0"],
                         ids=ascii)
def test_address_that_would_break_the_script_makes_no_shortcut(home, ip):
    agent = home.start()
    agent.announce("disk_mounted", uuid="hostile", ip=ip, label="Hostile")
    agent.check_works()
    assert home.shortcuts() == []
    assert agent.terminate() == 0
