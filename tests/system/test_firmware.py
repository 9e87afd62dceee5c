"""What docs/protocol.md tells firmware authors about a device, tried: its examples of a sender, and the
SMB server that it has to offer."""

import configparser
import contextlib
import itertools
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import time

import pytest

from agent import PATIENCE, message, text_of, wait_until
from desktop import BIN, Session, SmbServer
from namespaces import PORT, Network

ROOT = pathlib.Path(__file__).parents[2]
EXAMPLES = ROOT / "docs/examples"
PROTOCOL = (ROOT / "docs/protocol.md").read_text(encoding="utf-8")
SAMPLE = ROOT / "packaging/Ravelin Disk Config.plist"
SMB_EXAMPLE = re.search(r"^```ini\n(.*?)^```$", PROTOCOL, re.MULTILINE | re.DOTALL)[1]

ADDRESSES = (f"127.0.0.{number}" for number in itertools.count(61))
BY_STATUS = "Ravelin Disk: Disk USB Disk is being mounted because it was already mounted on the device"


@pytest.fixture(name="network")
def _network(needs_root):
    needs_root("the tests of what firmware sends (tests/system/test_firmware.py)")
    with Network(1) as network:
        yield network


def start_with_sample(home, network):
    """The agent as the sample configuration has it, on the computer of the network."""
    home.user_config.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(SAMPLE, home.user_config)
    with network.computer.entered():
        return home.start_as_configured(PORT)


@pytest.fixture(name="sender", params=["C", "Python"])
def _sender(request, tmp_path):
    """The command that runs one of the examples."""
    if request.param == "Python":
        return ["/usr/bin/python3", "-B", EXAMPLES / "announce.py"]
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-o",
                    tmp_path / "announce", EXAMPLES / "announce.c"], check=True)
    return [tmp_path / "announce"]


@contextlib.contextmanager
def sending(network, sender, log, *arguments):
    """The example, running on the device."""
    with log.open("wb") as errors, network.device.entered():
        process = subprocess.Popen([*sender, *arguments], stdin=subprocess.DEVNULL, stderr=errors)
    try:
        yield process
    finally:
        process.kill()
        process.wait()


def test_the_examples_do_what_a_device_should(home, network, sender, tmp_path):
    """From the first announcement to the last, over an address that has changed, a cable that is out for
    a while and an agent that starts later."""
    log = tmp_path / "errors"
    agent = start_with_sample(home, network)
    device = ["02:00:00:00:00:01", "10.77.0.1", "1234-ABCD", "USB Disk"]
    shortcut = agent.mount(ip="10.77.0.99")
    with sending(network, sender, log, *device, "1") as process:
        wait_until(lambda: "URL=smb://guest:@10.77.0.1/USB%20Disk\n" in text_of(shortcut),
                   "the shortcut with the address of the device")
        time.sleep(2.5)
        # No desktop logs those that are repeated. Of the other ones it logs what came, and what it
        # understood of it.
        assert "disk_status" not in agent.log()
        assert agent.log().count("event:disk_mounted;mac:02:00:00:00:00:01;ip:10.77.0.1;") == 2
        assert agent.terminate() == 0
        home.wait_for_shortcuts()

        network.device.ip("link set device0 down")
        wait_until(lambda: "announce" in log.read_text(), "a datagram that cannot be sent")
        network.device.ip("link set device0 up")

        agent = start_with_sample(home, network)
        home.wait_for_shortcuts("USB Disk.app")
        assert BY_STATUS in agent.log()
        process.send_signal(signal.SIGTERM)
        assert process.wait(PATIENCE) == 0
        home.wait_for_shortcuts()
    assert agent.log().count("event:disk_unmounted;") == 2
    assert agent.terminate() == 0


@pytest.mark.parametrize("arguments", [
    [], ["02:00:00:00:00:01", "10.77.0.1", "1234-ABCD"],
    ["02:00:00:00:00:01", "device", "1234-ABCD", "USB Disk"],
    ["02:00:00:00:00:01", "10.77.9.9", "1234-ABCD", "USB Disk"],
    # Without a pause it would be a flood.
    *(["02:00:00:00:00:01", "10.77.0.1", "1234-ABCD", "USB Disk", pause]
      for pause in ("0", "-1", "often"))], ids=str)
def test_the_examples_say_what_they_cannot_do(network, sender, arguments):
    with network.device.entered():
        result = subprocess.run([*sender, *arguments], capture_output=True, timeout=PATIENCE, check=False)
    assert result.returncode in (1, 2) and result.stderr


# How it travels


def test_a_device_without_a_route_chooses_its_interface(home, network):
    """As the document says of the interface, and of the time to live that nobody looks at."""
    agent = start_with_sample(home, network)
    # It is sent once.
    wait_until(lambda: network.computer.memberships().get("eth0", {}).get("239.255.77.1"), "a member")
    group = ("239.255.77.1", PORT)
    with network.device.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        with pytest.raises(OSError, match="Network is unreachable"):
            sender.sendto(message("disk_mounted").encode(), group)
        sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("10.77.0.1"))
        sender.sendto(message("disk_mounted").encode(), group)
        home.wait_for_shortcuts("USB Disk.app")
        for time_to_live in (2, 255):
            sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, time_to_live)
            label = f"Disk {time_to_live}"
            sender.sendto(message("disk_mounted", uuid=label, label=label).encode(), group)
        home.wait_for_shortcuts("USB Disk.app", "Disk 2.app", "Disk 255.app")
    assert agent.terminate() == 0


def test_a_broadcast_is_heard_too(home, network):
    agent = start_with_sample(home, network)
    with network.device.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        sender.sendto(message("disk_mounted").encode(), ("10.77.0.255", PORT))
    home.wait_for_shortcuts("USB Disk.app")
    assert agent.terminate() == 0


# The label


def test_what_becomes_of_every_character_of_a_label(home):
    """A shortcut that opens, one that does not, or none, as the document says."""
    characters = set(map(chr, range(128))) - {";"}
    without_shortcut = set('"\\/\0')
    not_opened = {"?", *map(chr, range(1, 32)), chr(127)}
    agent = home.start()
    for character in characters:
        agent.announce("disk_mounted", uuid=character, label=f"a{character}b")
    agent.mount("Later", uuid="later")
    home.wait_for_shortcuts(
        "Later.app", *(f"a{character}b.app" for character in characters - without_shortcut))
    # Without a session that could mount anything the opener says just this of what it would open.
    environment = {"HOME": str(home.path), "GIO_USE_VFS": "local"}
    refused = set()
    for character in characters - without_shortcut:
        result = subprocess.run([BIN / "ravelin-disk-open", home.desktop / f"a{character}b.app"],
                                env=environment, capture_output=True, check=False, timeout=PATIENCE)
        assert result.returncode == 1
        if b"nothing here can open SMB shares" not in result.stderr:
            refused.add(character)
    assert refused == not_opened
    assert agent.terminate() == 0


# When to send what


def test_what_is_taken_back_and_said_again_at_once_counts_once(home):
    agent = home.start()

    def wait_together(number):
        # Right after the agent has looked at what waits, so that all of these wait together; unless
        # this machine was too busy for that.
        first = home.desktop / f"First {number}.app"
        agent.announce("disk_mounted", uuid=first.stem, label=first.stem)
        wait_until(first.exists, "the first shortcut")
        for event in ("disk_mounted", "disk_unmounted", "disk_mounted"):
            agent.announce(event, uuid=f"disk {number}")
        wait_until(lambda: agent.log().count(f"uuid:disk {number};label:USB Disk;\n") == 3,
                   "the announcements")
        if time.time() - first.stat().st_ctime < 0.4:
            return True
        agent.announce("no_disk")
        home.wait_for_shortcuts()
        return False

    number = next(number for number in itertools.count() if wait_together(number))
    agent.mount("Later", uuid="later")
    home.wait_for_shortcuts(f"First {number}.app", "Later.app")
    # A second between them is enough.
    agent.announce("disk_mounted", uuid=f"disk {number}")
    home.wait_for_shortcuts(f"First {number}.app", "Later.app", "USB Disk.app")


def test_of_two_disks_with_one_label_neither_keeps_the_shortcut(home):
    agent = home.start()
    shortcut = agent.mount("Disk", uuid="one", ip="192.0.2.1")
    agent.announce("disk_mounted", label="Disk", uuid="two", ip="192.0.2.2")
    wait_until(lambda: "192.0.2.2" in text_of(shortcut), "the later disk")
    agent.announce("disk_unmounted", uuid="one")
    home.wait_for_shortcuts()
    # The other one is known, so there is nothing to do when it is announced.
    agent.announce("disk_status", label="Disk", uuid="two", ip="192.0.2.2")
    agent.mount("Later", uuid="later")
    home.wait_for_shortcuts("Later.app")
    agent.announce("disk_unmounted", uuid="two")
    agent.unmount("Later", uuid="later")
    agent.announce("disk_status", label="Disk", uuid="two", ip="192.0.2.2")
    home.wait_for_shortcuts("Disk.app")


def test_a_disk_that_got_no_shortcut_is_known_all_the_same(home):
    agent = home.start()
    agent.announce("disk_mounted", label='"')
    agent.mount("First", uuid="first")
    agent.announce("disk_status", label="Good")
    agent.mount("Second", uuid="second")
    home.wait_for_shortcuts("First.app", "Second.app")
    agent.announce("disk_unmounted")
    agent.unmount("First", uuid="first")
    agent.announce("disk_status", label="Good")
    home.wait_for_shortcuts("Good.app", "Second.app")


def test_a_device_that_has_started_has_its_new_address_heeded(home):
    agent = home.start()
    shortcut = agent.mount(ip="192.0.2.1")
    agent.announce("no_disk")
    home.wait_for_shortcuts()
    agent.mount(ip="192.0.2.2")
    assert "192.0.2.2" in shortcut.read_text()


# What the device serves


@pytest.fixture(name="session", scope="module")
def _session():
    with Session() as session:
        yield session


def is_mounted(session, *settings, label="Disk", wanted=None):
    """Whether the share of a server with these settings is mounted as guest, the way it is when a
    shortcut is opened; by another name if one is wanted."""
    with SmbServer(session, next(ADDRESSES), guests=[label], settings=settings) as server:
        status, output, errors = session.volume("mount", server.address, wanted or label)
        if status == 0:
            file = pathlib.Path(output.rstrip("\n")) / "file.txt"
            assert session.read(file) == f"This is {label}.\n"
        assert status in (0, 1), errors
        return status == 0


def test_the_settings_of_the_example_are_enough(session):
    example = configparser.ConfigParser()
    example.read_string(SMB_EXAMPLE)
    assert example.sections() == ["global", "USBDISK"]
    # The share of the test has just these, and its own folder.
    assert dict(example["USBDISK"]).keys() == {"path", "guest ok", "read only"}
    settings = (f"{name} = {value}" for name, value in example["global"].items())
    assert is_mounted(session, *settings, label="USBDISK")


@pytest.mark.parametrize("dialect", ["SMB2_02", "SMB2_10", "SMB3_00", "SMB3_11"])
def test_dialects_that_are_opened(session, dialect):
    assert is_mounted(session, f"server min protocol = {dialect}", f"server max protocol = {dialect}")


def test_a_server_of_the_oldest_dialect_is_not_opened(session):
    assert not is_mounted(session, "server min protocol = NT1", "server max protocol = NT1")


def test_a_server_that_demands_encryption_is_not_opened(session):
    assert not is_mounted(session, "smb encrypt = required")


def test_a_server_that_does_not_list_its_shares_is_opened(session):
    assert is_mounted(session, "browseable = no")


@pytest.mark.parametrize("label", ["x" * 251, "Disk (1), 50% #a=b&c@d+e!f~g^h{i}`j$k*<l>|m'n"],
                         ids=["longest", "signs"])
def test_a_share_has_the_name_of_the_label(session, label):
    assert is_mounted(session, label=label)
    assert not is_mounted(session, label=label, wanted=label[:-1])
