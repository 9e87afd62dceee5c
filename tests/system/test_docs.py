"""The examples in the documents do what is said there, and the numbers are those of the sources."""

import contextlib
import math
import os
import pathlib
import plistlib
import re
import subprocess

import pytest

import namespaces
from agent import BIN, STARTED, Agent, wait_until
from namespaces import GROUP, PORT, Network
from test_firmware import start_with_sample

DOCS = pathlib.Path(__file__).parents[2] / "docs"
CONFIGURATION = (DOCS / "configuration.md").read_text(encoding="utf-8")
PROTOCOL = (DOCS / "protocol.md").read_text(encoding="utf-8")
SECURITY = (DOCS / "security.md").read_text(encoding="utf-8")
README = (DOCS.parent / "README.md").read_text(encoding="utf-8")
SAMPLE = DOCS.parent / "packaging" / "Ravelin Disk Config.plist"

CONFIGURATIONS = re.findall(r"^```xml\n(.*?)^```$", CONFIGURATION, re.MULTILINE | re.DOTALL)
ANNOUNCEMENTS = re.findall(r"^\| `(\S*:[^`]*)` \| .* \| ([^|]*) \|$", PROTOCOL, re.MULTILINE)
FIRST = re.search(r"announced by\n\n    (.*)\n", PROTOCOL)[1]


def test_the_examples_are_found():
    assert [text.count("<string>") for text in CONFIGURATIONS] == [1, 2, 1, 0]
    assert len(ANNOUNCEMENTS) == 24


def test_the_first_configuration_is_the_sample():
    assert SAMPLE.read_text(encoding="utf-8") == CONFIGURATIONS[0]


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


# Numbers


def constant(file, name):
    """The value of a constant of the sources, in bytes or seconds: a product of numbers and further
    constants, whatever their types."""
    text = (DOCS.parent / "src" / file).read_text(encoding="utf-8")
    value = re.search(rf"\b{name} = ([^;,\n]*)", text)
    assert value, f"{name} in {file}"
    return math.prod(
        float(factor) if factor[0].isdigit() else constant(file, factor)
        for factor in re.findall(r"\b(?:\d[\d.]*|[A-Z][A-Z_]+)\b", value[1]))


def stated(number):
    """The value of a number as the documents write it."""
    value, _, unit = number.partition(" ")
    return float(value) * {"": 1, "s": 1, "seconds": 1, "KiB": 1024, "MiB": 1024 * 1024, "bytes": 1}[unit]


ADMISSION = "controller/Admission.h"
HELPER = "platform/linux/shortcut/helper/main.cpp"
LIMITS = {
    "known disks that one address has announced": (ADMISSION, "KNOWN_DISKS_OF_SENDER"),
    "known disks in all": (ADMISSION, "KNOWN_DISKS"),
    "announcements of one address that wait": (ADMISSION, "WAITING_EVENTS_OF_SENDER"),
    "announcements that wait in all": (ADMISSION, "WAITING_EVENTS"),
    "texts of both, of one address": (ADMISSION, "TEXT_OF_SENDER"),
    "texts of both, in all": (ADMISSION, "TEXT"),
    "announcements of one address that are acted on before those of others": ("disk/Queue.h", "TURN"),
    "a line of the log": ("base/LogLine.h", "LOG_LINE_LIMIT"),
    "lines that datagrams cause, at once": ("core/LogBudget.h", "AT_ONCE"),
    "lines that datagrams cause, in a second": ("core/LogBudget.h", "A_SECOND"),
    "silence for an address that sends more than can be read": ("intake/LoudSenders.h", "silence"),
    "addresses that are silenced at a time, on each port": ("platform/SenderFilter.h", "FILTERED_SENDERS_LIMIT"),
    "memory for looking into a picture": (HELPER, "MEMORY"),
    "time for looking into a picture": ("platform/linux/shortcut/ShortcutHelper.h", "limit"),
    "a configuration file": ("platform/linux/PropertyListShape.h", "PROPERTY_LIST_SIZE_LIMIT"),
    "a shortcut that is opened": ("../tools/open/Shortcut.cpp", "MAXIMAL_SIZE"),
}


def test_the_limits_are_those_of_the_sources():
    table = dict(re.findall(r"^\| ([^|]+) \| (\d[^|]*) \|$", SECURITY, re.MULTILINE))
    assert table.keys() == LIMITS.keys()
    for what, where in LIMITS.items():
        assert stated(table[what]) == constant(*where), what


def test_the_format_names_the_same_limits():
    table = re.findall(r"^\| ([^|]+) \| (\d[^|]*) \| (\d[^|]*) \|$", PROTOCOL, re.MULTILINE)
    names = ["KNOWN_DISKS", "WAITING_EVENTS", "TEXT"]
    assert [(stated(one), stated(every)) for _, one, every in table] == [
        (constant(ADMISSION, f"{name}_OF_SENDER"), constant(ADMISSION, name)) for name in names]


def test_the_times_of_a_disk_are_those_of_the_sources():
    file = "core/Constants.h"
    silence = re.search(r"not been announced for more than (\d+ seconds).*?every (\d+ seconds)\.",
                        PROTOCOL, re.DOTALL)
    assert stated(silence[1]) == constant(file, "DISK_EXPECTED_UPDATE_TIME_INTERVAL")
    assert stated(silence[2]) == constant(file, "DISK_UPDATE_TIME_CHECKER_INTERVAL")
    # So many announcements may get lost, one after the other, and the next one is in time.
    interval = stated(re.search(r"\| `disk_status`, every (\d+ seconds) \|", PROTOCOL)[1])
    lost = {"two": 2, "three": 3, "four": 4}[re.search(r"\b(\w+) in a row\s+may\s+get\s+lost", PROTOCOL)[1]]
    assert lost == stated(silence[1]) / interval - 1


def test_the_longest_label_makes_the_longest_name_of_a_file(home):
    longest = int(re.search(r"^\| more than (\d+) bytes \| none", PROTOCOL, re.MULTILINE)[1])
    assert longest + len(".app") == os.pathconf(home.desktop, "PC_NAME_MAX")
    agent = home.start()
    agent.announce("disk_mounted", uuid="too long", label="x" * (longest + 1))
    agent.mount("x" * longest, uuid="longest")
    assert len(home.shortcuts()) == 1
    agent.terminate()


def test_every_example_uses_the_group_and_the_port_of_the_sample():
    (group, port), = plistlib.loads(SAMPLE.read_bytes())["MulticastAddresses"]
    announce = subprocess.run([BIN / "ravelin-disk-announce", "--help"], capture_output=True, text=True,
                              check=True).stdout
    manual = (DOCS / "man/ravelin-disk-announce.1").read_text(encoding="utf-8")
    texts = [PROTOCOL, announce, manual, README,
             *(path.read_text(encoding="utf-8") for path in (DOCS / "examples").iterdir())]
    assert f"**group {group}, port {port}**" in PROTOCOL
    for text in texts:
        assert set(re.findall(r"\b239(?:\.\d+){3}\b", text)) <= {group}, text
        ports = re.findall(r"\b(?:239|127)(?:\.\d+){3}\"?,? (\d+)\b|\bhtons\((\d+)\)", text)
        assert {one or other for one, other in ports} <= {str(port)}, text
    assert all(str(port) in text for text in texts)


# What is named

GUIDES = [DOCS.parent / "README.md", *DOCS.glob("*.md")]
PRIVATE = {"ravelin-disk-shortcut-helper", "ravelin-disk-volumes-helper"}
PROGRAMS = sorted({name for guide in GUIDES
                   for name in re.findall(r"(?<![\w/.-])ravelin-disk-[a-z]+(?![\w.-])",
                                          guide.read_text(encoding="utf-8"))} - PRIVATE)


@pytest.mark.parametrize("program", PROGRAMS)
def test_a_program_that_is_named_is_there_with_its_options_and_its_manual(program):
    assert os.access(BIN / program, os.X_OK)
    assert (DOCS / f"man/{program}.1").is_file()
    options = {option for guide in GUIDES
               for line in re.findall(rf"\b{program}((?: [^\s`]+)*)", guide.read_text(encoding="utf-8"))
               for option in re.findall(r"--[a-z]+", line)}
    if options:
        known = subprocess.run([BIN / program, "--help"], capture_output=True, text=True, check=True)
        assert not {option for option in options if not re.search(rf"{option}\b", known.stdout)}


def test_programs_are_named():
    assert {"ravelin-disk-check", "ravelin-disk-tidy", "ravelin-disk-announce"} <= set(PROGRAMS)


@pytest.mark.parametrize("guide", GUIDES, ids=lambda path: path.name)
def test_what_a_guide_leads_to_is_there(guide):
    text = guide.read_text(encoding="utf-8")
    for path in re.findall(r"\]\(([^)#:]+)\)", text):
        assert (guide.parent / path).is_file(), path
    for path in re.findall(r"`((?:docs/|examples/|man/|tests/|packaging/)[\w./-]+|[a-z]+\.md)`", text):
        assert (guide.parent / path).exists() or (DOCS.parent / path).exists(), path
    for script in re.findall(r"\bscript/[a-z][a-z-]*", text):
        assert (DOCS.parent / script).is_file(), script


def test_the_settings_that_confine_are_those_of_the_unit():
    unit = (DOCS.parent / "packaging/linux/ravelin-disk.service.in").read_text(encoding="utf-8")
    confining = unit[unit.index("NoNewPrivileges="):unit.index("[Install]")].split("\n")
    named = set(re.findall(r"`([A-Z]\w+=[^`]*)`", SECURITY))
    assert named == set(filter(None, confining)) - {"SystemCallErrorNumber=EPERM"}


def test_the_firewall_lets_in_what_the_readme_opens(home, needs_root):
    needs_root("the test of the firewall's rule (tests/system/test_docs.py)")
    rule = re.search(r"^    sudo (nft insert rule .*)$", README, re.MULTILINE)[1]
    with Network(1) as network:
        network.computer.run("nft", "-f", "-", input=b"""
            table inet filter {
                chain input {
                    type filter hook input priority 0; policy drop;
                    iif lo accept
                    reject
                }
            }""")
        agent = start_with_sample(home, network)

        def announce():
            network.device.run(BIN / "ravelin-disk-announce", "--interface", "device0", "mounted",
                               GROUP, PORT, stdout=subprocess.DEVNULL)
            return "USBDISK.app" in home.shortcuts()

        announce()
        agent.mount("Local", uuid="local")
        assert home.shortcuts() == ["Local.app"]
        network.computer.run(*rule.split())
        wait_until(announce, "a disk that is announced through the firewall", period=0.2)
        assert agent.terminate() == 0
