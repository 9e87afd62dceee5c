"""From the announcement of a disk to its end, as the user and the devices see it."""

import os
import plistlib
import re
import signal
import stat
import time

import pytest

from agent import (BIN, ENDED, REMOVAL_FAILED, STARTED, Agent, Home, icon, message, received,
                   text_of, wait_until)

NOT_THERE = REMOVAL_FAILED + "No such file or directory\n"
MOUNTED_BY_STATUS = ("Ravelin Disk: Disk {} is being mounted because it was already mounted on the "
                     "device as stated in disk_status message\n")
UNMOUNTED_BY_NO_DISK = ("Ravelin Disk: Disk {} is being unmounted because it was already unmounted "
                        "on the device as stated in no_disk message\n")
CONSOLE = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \S+\[\d+:\d+\] "


def wait_for_ticks(agent):
    """Waits until everything sent so far has been decided: a disk that comes behind it is there."""
    name = f"Tick {time.monotonic_ns()}"
    disk = {"label": name, "uuid": name, "mac": "02:00:00:00:FF:FF"}
    path = agent.mount(**disk)
    agent.announce("disk_unmounted", **disk)
    agent.home.wait_until_gone(path)


def entry(path):
    lines = path.read_text().splitlines()
    return dict(line.split("=", 1) for line in lines if "=" in line)


def test_announced_disk_appears_on_the_desktop(home):
    agent = home.start()
    text = agent.announce("disk_mounted")
    home.wait_for_shortcuts("USB Disk.app")
    path = home.desktop / "USB Disk.app"
    assert entry(path)["Type"] == "Link"
    assert entry(path)["Name"] == "USB Disk"
    assert entry(path)["URL"] == "smb://guest:@192.0.2.10/USB%20Disk"
    assert stat.S_IMODE(path.stat().st_mode) == 0o644
    assert stat.S_ISREG(path.lstat().st_mode)
    assert agent.log().endswith(STARTED + received(text, "disk_mounted"))


def test_shortcut_wears_the_icon_that_the_user_has_put_there(home):
    file = home.user_config.parent / "icon.ico"
    file.parent.mkdir(parents=True)
    file.write_bytes(icon())
    agent = home.start()
    path = agent.mount("Iconic", uuid="iconic")
    wait_until(lambda: entry(path)["Icon"] == str(file), "icon")
    assert stat.S_IMODE(path.stat().st_mode) == 0o644
    # The one without the icon goes a moment after they have changed places.
    home.wait_for_shortcuts("Iconic.app")
    file.write_bytes(b"no picture")
    path = agent.mount("Plain", uuid="plain")
    agent.mount("Last", uuid="last")
    assert entry(path)["Icon"] == "ravelin-disk"
    assert agent.terminate() == 0
    agent.check_clean_end()


def test_shortcut_has_its_mode_whatever_the_umask(home):
    before = os.umask(0o077)
    try:
        agent = home.start()
    finally:
        os.umask(before)
    assert stat.S_IMODE(agent.mount().stat().st_mode) == 0o644


def test_desktop_folder_is_the_one_the_user_has_chosen(home):
    agent = home.start()
    (home.path / ".config").mkdir()
    (home.path / "Schreibtisch").mkdir()
    (home.path / ".config/user-dirs.dirs").write_text('XDG_DESKTOP_DIR="$HOME/Schreibtisch"\n')
    agent.announce("disk_mounted")
    wait_until(lambda: os.listdir(home.path / "Schreibtisch") == ["USB Disk.app"], "shortcut")
    assert agent.terminate() == 0
    assert os.listdir(home.path / "Schreibtisch") == []
    assert home.shortcuts() == []


def test_status_of_an_unknown_disk_mounts_it_and_says_why(home):
    agent = home.start()
    agent.announce("disk_status")
    home.wait_for_shortcuts("USB Disk.app")
    assert agent.log().endswith(STARTED + MOUNTED_BY_STATUS.format("USB Disk"))
    agent.announce("disk_status")
    wait_for_ticks(agent)
    assert agent.log().count(MOUNTED_BY_STATUS.format("USB Disk")) == 1
    assert home.shortcuts() == ["USB Disk.app"]


def test_unmounted_disk_leaves_the_desktop(home):
    agent = home.start()
    agent.mount()
    text = agent.announce("disk_unmounted", ip=None, label=None)
    home.wait_for_shortcuts()
    assert agent.log().endswith(received(text, "disk_unmounted", ip="(null)", label="(null)"))
    agent.mount()


def test_unmounted_disk_is_found_by_its_uuid(home):
    agent = home.start()
    agent.mount()
    agent.announce("disk_unmounted", uuid="another")
    wait_for_ticks(agent)
    assert home.shortcuts() == ["USB Disk.app"]
    agent.announce("disk_unmounted", mac="another", ip="another", label="another")
    home.wait_for_shortcuts()


def test_no_disk_removes_every_disk_of_the_device_and_no_other(home):
    agent = home.start()
    for label, mac in ("One", "a"), ("Two", "b"), ("Three", "a"):
        agent.mount(label, uuid=label, mac=mac)
    agent.send("event:no_disk;mac:a")
    home.wait_for_shortcuts("Two.app")
    assert agent.log().endswith(UNMOUNTED_BY_NO_DISK.format("One")
                                + UNMOUNTED_BY_NO_DISK.format("Three"))


@pytest.mark.parametrize("event", ["disk_mounted", "disk_status"])
def test_known_disk_keeps_its_shortcut_when_its_device_says_something_else(home, event):
    agent = home.start()
    path = agent.mount()
    before = path.read_bytes(), path.stat().st_ino
    agent.announce(event, ip="192.0.2.77", label="New Name", mac="02:00:00:00:00:02")
    wait_for_ticks(agent)
    assert home.shortcuts() == ["USB Disk.app"]
    assert (path.read_bytes(), path.stat().st_ino) == before
    agent.announce("disk_unmounted")
    home.wait_for_shortcuts()
    assert NOT_THERE not in agent.log()


def test_stale_shortcut_of_the_same_name_is_replaced(home):
    path = home.desktop / "USB Disk.app"
    path.write_text("left behind")
    agent = home.start()
    agent.announce("disk_mounted")
    wait_until(lambda: "smb://" in text_of(path), "new shortcut")
    home.wait_for_shortcuts("USB Disk.app")
    assert REMOVAL_FAILED not in agent.log()


def test_shortcut_that_the_user_has_thrown_away_is_missed_in_the_log_only(home):
    agent = home.start()
    agent.mount().unlink()
    agent.announce("disk_unmounted")
    agent.wait_for_log(NOT_THERE)
    agent.mount()
    assert agent.log().count(REMOVAL_FAILED) == 1


@pytest.mark.parametrize("text", [
    message("disk_mounted", mac=None),
    message("disk_mounted", ip=None),
    message("disk_mounted", uuid=None),
    message("disk_mounted", label=None),
    message("disk_status", label=None),
    message("disk_mounted", label=None) + ";Label:USB Disk",
    message("disk_mounted") + "; ip:192.0.2.10",
    message("disk_mounted") + ";:",
    message("disk_mounted") + ";size:5",
    message("disk_mounted") + "\x80",
    message("Disk_Mounted"),
    message("disk_mounted "),
    message(None),
    ";;;",
], ids=repr)
def test_announcement_that_is_not_one_does_nothing(home, text):
    agent = home.start()
    agent.send(text)
    wait_for_ticks(agent)
    assert home.shortcuts() == []
    assert "Label" not in agent.log() and "size" not in agent.log()


@pytest.mark.parametrize("text", [
    message("disk_unmounted", mac=None),
    message("disk_unmounted", uuid=None),
    message("disk_unmounted") + ";size:5",
    "event:no_disk",
    "event:no_disk;mac:another",
    "event:no_disk;mac:02:00:00:00:00:01;x:y",
], ids=repr)
def test_removal_that_is_not_one_does_nothing(home, text):
    agent = home.start()
    agent.mount()
    agent.send(text)
    wait_for_ticks(agent)
    assert home.shortcuts() == ["USB Disk.app"]


def test_announcement_may_have_empty_items_and_any_order(home):
    agent = home.start()
    agent.send(";label:USB Disk;;noise;uuid:1;ip:192.0.2.10;mac:;event:disk_status;label:Last;")
    home.wait_for_shortcuts("Last.app")


def test_datagram_without_content_is_survived(home):
    agent = home.start()
    agent.send("")
    agent.mount()


def test_listens_on_every_configured_port(home):
    ports = home.free_port(), home.free_port()
    home.configure(*ports)
    agent = home.start_as_configured(*ports)
    for number, port in enumerate(ports):
        agent.announce("disk_mounted", port=port, uuid=str(number), label=f"Port {number}")
    home.wait_for_shortcuts("Port 0.app", "Port 1.app")


def test_entry_that_is_no_pair_is_skipped(home):
    port = home.free_port()
    home.configure()
    config = plistlib.loads(home.user_config.read_bytes())
    config["MulticastAddresses"] = [["a", 0, "b"], "text", [], {}, ["239.255.0.1", str(port)]]
    home.user_config.write_bytes(plistlib.dumps(config))
    home.start_as_configured(port).mount()


def test_binary_configuration_works(home):
    port = home.free_port()
    home.configure(port, fmt=plistlib.FMT_BINARY)
    home.start_as_configured(port).mount()


@pytest.mark.parametrize("content", [plistlib.dumps({}), plistlib.dumps([1]), b"\x00 no list", b""],
                         ids=["empty dictionary", "array", "no list", "empty file"])
def test_useless_configuration_of_the_user_gives_way_to_the_machine_wide_one(home, content):
    port = home.free_port()
    home.configure(port, file=home.machine_config)
    home.user_config.parent.mkdir(parents=True)
    home.user_config.write_bytes(content)
    home.start_as_configured(port).mount()


def test_configuration_of_the_user_hides_the_machine_wide_one(home):
    port, other = home.free_port(), home.free_port()
    home.configure(port)
    home.configure(other, file=home.machine_config)
    agent = home.start_as_configured(port)
    agent.announce("disk_mounted", port=other, uuid="other", label="Other")
    agent.mount()
    assert home.shortcuts() == ["USB Disk.app"]
    assert agent.log().count(STARTED) == 1


def test_without_configuration_the_agent_listens_nowhere_and_can_be_ended(home):
    agent = Agent(home)
    agent.wait_for_log("Success initializing Cocoa.\n")
    time.sleep(1)
    assert agent.is_running()
    assert STARTED not in agent.log()
    assert agent.terminate() == 0
    agent.check_clean_end()


def test_start_is_told_on_the_console(home):
    agent = home.start()
    first = agent.log().splitlines()[0]
    assert re.fullmatch(CONSOLE + r"Success initializing Cocoa\.", first), first


def test_start_goes_on_where_the_application_services_fail_to_load(home):
    agent = home.start(command=[BIN / "ravelin-disk-agent-without-services"])
    first = agent.log().splitlines()[0]
    assert re.fullmatch(CONSOLE + r"Error initializing Cocoa\.", first), first
    assert "Success" not in agent.log()
    agent.mount()
    assert agent.terminate() == 0
    agent.check_clean_end()


@pytest.mark.parametrize("port", [0, 70000, -1, 65536])
def test_port_that_is_none_ends_the_process_with_its_reason(home, port):
    home.configure(port)
    agent = Agent(home)
    assert agent.exit_status() == -signal.SIGABRT
    line = CONSOLE + r"Precondition failed in .*startOnAddress.*1 <= andPort && andPort <= 65535$"
    assert re.search("^" + line, agent.log(), re.MULTILINE), agent.log()
    assert STARTED not in agent.log()


def test_interrupt_ends_the_process_and_unmounts_nothing(home):
    # A process that ignores the interrupt would hand that on.
    before = signal.signal(signal.SIGINT, signal.default_int_handler)
    try:
        agent = home.start()
    finally:
        signal.signal(signal.SIGINT, before)
    agent.mount()
    log = agent.log()
    agent.signal(signal.SIGINT)
    assert agent.exit_status() == -signal.SIGINT
    assert home.shortcuts() == ["USB Disk.app"]
    # An announcement that was repeated until the shortcut was there may still have come in.
    later = agent.log().removeprefix(log)
    assert later.replace(received(message("disk_mounted"), "disk_mounted"), "") == ""
    assert ENDED not in log


def test_two_agents_share_a_port_and_one_is_enough(home):
    port = home.free_port()
    with Home() as second_home:
        agents = []
        for one in home, second_home:
            one.configure(port)
            agents.append(one.start_as_configured(port))
        agents[0].announce("disk_mounted")
        wait_until(lambda: home.shortcuts() + second_home.shortcuts() == ["USB Disk.app"],
                   "one shortcut in one of the homes")
        assert agents[0].terminate() == 0
        agents[0].check_clean_end()
        agents[1].announce("disk_mounted", uuid="2", label="Second")
        wait_until(lambda: "Second.app" in second_home.shortcuts(), "shortcut in the other home")
        assert agents[1].terminate() == 0
        agents[1].check_clean_end()
