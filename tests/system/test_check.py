"""ravelin-disk-check, as a person or a script asks it why there is no shortcut."""

import contextlib
import datetime
import fcntl
import json
import os
import plistlib
import pty
import random
import re
import select
import shutil
import signal
import socket
import subprocess
import termios
import time

import pytest

from agent import BIN, PATIENCE, STARTED, Agent, wait_until
from namespaces import GROUP, PORT, Network

COMMAND = BIN / "ravelin-disk-check"
KEYS = {"MulticastAddresses": [[GROUP, PORT]], "JoinIGMP": True, "IGMPMembershipRefreshRate": 60}


def environment(home):
    """As the agent's of this home."""
    return {name: value for name, value in os.environ.items() if not name.startswith("XDG_")} | {
        "HOME": str(home.path), "LC_ALL": "C.UTF-8",
        "XDG_DATA_HOME": str(home.path / ".local/share"),
        "XDG_CONFIG_HOME": str(home.path / ".config"),
        "XDG_DATA_DIRS": f"{home.base / 'machine'}:/usr/share"}


def check(home, *arguments, **how):
    """The exit status, the output and the error output."""
    result = subprocess.run([COMMAND, *map(str, arguments)], env=environment(home), cwd=home.base,
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE,
                            check=False, **how)
    return result.returncode, result.stdout.decode(), result.stderr.decode()


def findings(home, *arguments, **how):
    """What is found, as a program reads it."""
    status, output, errors = check(home, "--json", *arguments, **how)
    read = json.loads(output)
    wrong = [finding for finding in read["findings"] if finding["level"] == "wrong"]
    assert read["wrong"] == len(wrong)
    assert status == (1 if wrong else 0), errors
    told = r"ravelin-disk-check: (one thing is|\d+ things are) wrong\n"
    assert re.fullmatch(told if wrong else "", errors), errors
    return read["findings"]


def codes(found, level="wrong"):
    return [finding["code"] for finding in found if finding["level"] == level]


# One file alone

BROKEN = {
    "port 0": ({"MulticastAddresses": [[GROUP, 0]]}, "port-out-of-range", "the port is 0,"),
    "port 70000": ({"MulticastAddresses": [[GROUP, 70000]]}, "port-out-of-range",
                   "the port is 70000,"),
    "port -1": ({"MulticastAddresses": [[GROUP, -1]]}, "port-out-of-range", "the port is -1,"),
    "port abc": ({"MulticastAddresses": [[GROUP, "abc"]]}, "port-out-of-range",
                 "the port is 'abc', which is read as 0"),
    "misspelt key": ({"JoinIGPM": True}, "key-misspelt", "it is spelt 'JoinIGMP'"),
    "key in small letters": ({"multicastaddresses": []}, "key-misspelt",
                             "it is spelt 'MulticastAddresses'"),
    "pair not nested": ({"MulticastAddresses": [GROUP, PORT]}, "pair-not-nested",
                        "must be an array of pairs"),
    "three items": ({"MulticastAddresses": [[GROUP, PORT, 1]]}, "entry-not-a-pair",
                    "an array of 3 items"),
    "a text for a pair": ({"MulticastAddresses": [f"{GROUP}:{PORT}"]}, "entry-not-a-pair",
                          f"'{GROUP}:{PORT}'"),
    "no array": ({"MulticastAddresses": GROUP}, "addresses-not-an-array", f"'{GROUP}'"),
    "no groups": ({"MulticastAddresses": []}, "addresses-empty", "the agent listens nowhere"),
    "no multicast address": ({"MulticastAddresses": [["192.168.1.5", PORT]]},
                             "group-not-multicast", "'192.168.1.5'"),
    "short address": ({"MulticastAddresses": [["239.255.77", PORT]]}, "group-read-as",
                      "which is read as 239.255.0.77"),
    "joining on": ({"JoinIGMP": "on"}, "join-read-as-false", "'on', which is read as false"),
    "rate 0": ({"IGMPMembershipRefreshRate": 0}, "rate-too-low", "ten times a second"),
}


@pytest.mark.parametrize("name", BROKEN)
@pytest.mark.parametrize("fmt", [plistlib.FMT_XML, plistlib.FMT_BINARY], ids=["xml", "binary"])
def test_a_broken_value_is_named(home, name, fmt):
    values, code, words = BROKEN[name]
    file = home.base / "file"
    file.write_bytes(plistlib.dumps(KEYS | values, fmt=fmt))
    found = findings(home, "--config", file)
    assert codes(found) == [code]
    finding = next(finding for finding in found if finding["code"] == code)
    assert words in finding["sentence"]
    assert finding["details"]["file"] == str(file)
    assert finding["details"]["key"] in (KEYS | values)
    status, output, errors = check(home, "--config", file)
    assert (status, errors) == (1, "ravelin-disk-check: one thing is wrong\n")
    assert f"  wrong  {finding['sentence']}\n" in output


@pytest.mark.parametrize(("content", "words"), [
    (b"", "it is empty"),
    (b"{MulticastAddresses = ();}", "it is no property list at all"),
    (plistlib.dumps([GROUP, PORT]), "there is no dictionary at its top"),
    (plistlib.dumps(KEYS).replace(b"</array>", b"", 1), "it is no property list from line"),
    (plistlib.dumps(KEYS, fmt=plistlib.FMT_BINARY)[:-9], "damaged"),
    (plistlib.dumps({}), "is empty"),
    (plistlib.dumps({"JoinIGMP": True, "IGMPMembershipRefreshRate": 60}), "is missing"),
], ids=["empty", "old style", "array", "not closed", "damaged", "empty dictionary", "no addresses"])
def test_a_broken_file_is_named(home, content, words):
    file = home.base / "file"
    file.write_bytes(content)
    found = findings(home, "--config", file)
    assert len(codes(found)) == 1
    assert words in found[0]["sentence"]


def test_a_file_that_cannot_be_read(home):
    file = home.base / "file"
    assert codes(findings(home, "--config", file)) == ["file-missing"]
    file.mkdir()
    assert "Is a directory" in findings(home, "--config", file)[0]["sentence"]
    file.rmdir()
    file.write_bytes(plistlib.dumps(KEYS))
    if os.geteuid() == 0:  # who may read everything
        os.chmod(home.base, 0o755)
        file.chmod(0o600)
        user = {"user": 65534, "group": 65534, "extra_groups": []}
        assert "Permission denied" in findings(home, "--config", file, **user)[0]["sentence"]
    else:
        file.chmod(0)
        assert "Permission denied" in findings(home, "--config", file)[0]["sentence"]


def test_a_file_that_is_right(home):
    file = home.base / "file"
    file.write_bytes(plistlib.dumps(KEYS))
    assert check(home, "--config", "file") == (
        0, f"configuration\n  ok     a server for group {GROUP}, port {PORT}\n", "")


def test_a_file_alone_is_checked_without_looking_at_anything_else(home):
    """Nothing is made of what the agent would make, and the user's own file plays no part."""
    home.configure(0)
    file = home.base / "file"
    file.write_bytes(plistlib.dumps(KEYS))
    with home.nothing_changes_elsewhere():
        assert codes(findings(home, "--config", file)) == []


def test_whatever_the_bytes_no_escape_gets_out(home):
    odd = "\x1b[31m\n\x07\u009b\u202e"
    file = home.base / "file"
    # XML may not hold control characters; the binary form may.
    file.write_bytes(plistlib.dumps(KEYS | {"MulticastAddresses": [[odd, odd]], odd: odd},
                                    fmt=plistlib.FMT_BINARY))
    found = findings(home, "--config", file)
    assert sorted(codes(found)) == ["group-not-multicast", "port-out-of-range"]
    assert codes(found, "note") == ["key-unknown"]
    _, output, _ = check(home, "--config", file)
    assert all(character == "\n" or character.isprintable() or character == "\u202e"
               for character in output)
    assert "\\x1b[31m\\n\\x07" in output


# What is around the configuration


class Scene(Network):
    """A computer with cables, a user's home there, and devices at the other ends."""

    def __init__(self, home, cables=1):
        super().__init__(cables)
        self.home = home
        for interface in "all", "default":
            self.computer.set(f"conf/{interface}/rp_filter", 0)
        self.configure()

    def configure(self, **values):
        self.home.user_config.parent.mkdir(parents=True, exist_ok=True)
        self.home.user_config.write_bytes(plistlib.dumps(KEYS | values))

    def members(self):
        """How many sockets are members of the group on the first cable."""
        return self.computer.memberships()["eth0"].get(GROUP, 0)

    def start(self, port=PORT):
        """An agent that has joined the group."""
        before = self.members()
        with self.computer.entered():
            agent = self.home.start_as_configured(port)
        wait_until(lambda: self.members() == before + 1, "the membership")
        return agent

    def findings(self, *arguments, **how):
        with self.computer.entered():
            return findings(self.home, *arguments, **how)

    @contextlib.contextmanager
    def socket_of_device(self, number=0):
        """A socket that sends to groups by a cable."""
        with self.device.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as made:
            made.bind((f"10.77.{number}.1", 0))
            made.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF,
                            socket.inet_aton(f"10.77.{number}.1"))
            yield made

    def send(self, payload, address=GROUP, port=PORT):
        with self.socket_of_device() as made:
            made.sendto(payload if isinstance(payload, bytes) else payload.encode(),
                        (address, port))
            return made.getsockname()[1]

    def listen(self, *arguments):
        with self.computer.entered():
            return Listening(self.home, *arguments)


class Listening(contextlib.AbstractContextManager):
    """The command while it listens, as a program reads it."""

    def __init__(self, home, *arguments):
        self.process = subprocess.Popen(
            [COMMAND, "--listen", "--json", *map(str, arguments)], env=environment(home),
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.begin = self.next()["listening"]

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()

    def next(self):
        """The next value that is printed."""
        line = self.process.stdout.readline()
        assert line, self.process.stderr.read()
        return json.loads(line.decode())

    def end(self, number=signal.SIGINT):
        """The status, and all that is printed until then."""
        self.process.send_signal(number)
        output, errors = self.process.communicate(timeout=PATIENCE)
        values = [json.loads(line) for line in output.decode().splitlines()]
        assert errors in (b"", b"ravelin-disk-check: no complete announcement has come\n"), errors
        return self.process.returncode, values, errors.decode()


@pytest.fixture(name="scene")
def _scene(home, needs_root):
    needs_root("the tests of ravelin-disk-check around the configuration (tests/system/test_check.py)")
    with Scene(home) as scene:
        yield scene


@pytest.mark.parametrize("name", ["nothing wrong", *BROKEN])
def test_the_agent_does_what_is_said(scene, name):
    values, code, _ = BROKEN.get(name, ({}, None, None))
    scene.configure(**values)
    found = scene.findings()
    assert (code is None) or code in codes(found)
    with scene.computer.entered():
        agent = Agent(scene.home)
    if code == "port-out-of-range":
        assert agent.exit_status() == -signal.SIGABRT
        return
    agent.wait_for_log("Success initializing Cocoa.\n")
    assert agent.terminate() == 0
    log = agent.log()
    assert log.count(STARTED) == codes(found, "ok").count("server")
    assert log.count("Server cannot join multicast group") == codes(found).count(
        "group-not-multicast")
    if code == "group-read-as":
        assert "239.255.0.77" in [finding["details"].get("group") for finding in found]


def by_code(found, code):
    return next(finding for finding in found if finding["code"] == code)


def test_all_is_well_where_everything_is_installed_and_an_agent_runs(scene, tmp_path):
    prefix = tmp_path / "installed"
    subprocess.run(["cmake", "--install", BIN.parent, "--prefix", prefix], check=True,
                   stdout=subprocess.DEVNULL)
    share = prefix / "share"
    for command, folder in (("update-mime-database", "mime"),
                            ("update-desktop-database", "applications")):
        subprocess.run([command, share / folder], check=True)
    own = environment(scene.home) | {
        "PATH": f"{prefix / 'bin'}:{os.environ['PATH']}",
        "XDG_DATA_DIRS": f"{scene.home.base / 'machine'}:{share}:/usr/share"}
    agent = scene.start()
    command = [prefix / "bin" / COMMAND.name]
    with scene.computer.entered():
        text = subprocess.run(command, env=own, capture_output=True, check=False, text=True)
        values = subprocess.run([*command, "--json"], env=own, capture_output=True, check=False)
    assert (text.returncode, text.stderr) == (0, ""), text.stdout
    assert "wrong" not in text.stdout
    assert values.returncode == 0
    found = json.loads(values.stdout)["findings"]
    assert by_code(found, "agent-running")["details"]["processes"] == str(agent.pid)
    assert {finding["topic"] for finding in found} == {
        "configuration", "agent", "network", "desktop", "programs"}
    assert by_code(found, "group-joined")["details"] == {
        "interface": "eth0", "addresses": "10.77.0.2", "group": GROUP}
    assert [finding["details"]["program"] for finding in found if finding["code"] == "helper"] == [
        "ravelin-disk-shortcut-helper", "ravelin-disk-volumes-helper"]
    assert agent.terminate() == 0


def test_no_agent_is_running(scene):
    with scene.home.nothing_changes_elsewhere():
        found = scene.findings()
    assert "agent-not-running" in codes(found)
    assert "port-free" in codes(found, "ok")
    assert "group-not-joined-yet" in codes(found, "note")
    assert scene.home.shortcuts() == []


def test_an_agent_of_another_network_does_not_count(scene):
    scene.start()
    assert "agent-not-running" not in codes(scene.findings())
    with scene.device.entered():
        assert "agent-not-running" in codes(findings(scene.home))


def test_two_agents_are_running(scene):
    pids = [scene.start().pid, scene.start().pid]
    finding = by_code(scene.findings(), "agents-several")
    assert finding["level"] == "wrong"
    assert f"as processes {pids[0]} and {pids[1]}," in finding["sentence"]


def test_the_agent_of_another_user(scene):
    program = scene.home.install()
    scene.home.give_to(65534)
    with scene.computer.entered():
        agent = scene.home.start_as_configured(PORT, command=[program], user=65534, group=65534,
                                               extra_groups=[])
    found = scene.findings()
    assert "agent-not-running" in codes(found)
    assert by_code(found, "agent-of-another-user")["details"] == {
        "processes": str(agent.pid), "user": "nobody"}
    # The two may share the port.
    assert "port-free" in codes(found, "ok")
    assert f"(process {agent.pid} of nobody)" in by_code(found, "port-shared")["sentence"]


def test_an_agent_that_does_not_show_what_it_holds(scene):
    program = scene.home.install()
    os.chmod(scene.home.base, 0o755)
    scene.home.give_to(65534)
    # Nobody may look into a process whose program he may run but not read.
    os.chown(program, 0, 0)
    program.chmod(0o711)
    nobody = {"user": 65534, "group": 65534, "extra_groups": []}
    with scene.computer.entered():
        agent = scene.home.start_as_configured(PORT, command=[program], **nobody)
    found = scene.findings(**nobody)
    assert by_code(found, "agent-running")["details"]["processes"] == str(agent.pid)
    assert f"the agent (process {agent.pid}) listens" in by_code(found, "port-of-agent")["sentence"]
    assert "port-shared" not in codes(found, "note")


def test_the_agent_was_started_with_another_configuration(scene):
    scene.start()
    assert "port-of-agent" in codes(scene.findings(), "ok")
    scene.configure(MulticastAddresses=[["239.255.77.2", PORT + 1]])
    found = scene.findings()
    assert {"port-not-of-agent", "group-not-joined"} <= set(codes(found))


def test_a_program_has_the_port_for_itself(scene):
    with scene.computer.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
        other.bind(("0.0.0.0", PORT))
        finding = by_code(scene.findings(), "port-refused")
    assert f"(process {os.getpid()} of " in finding["details"]["holders"]
    assert "Address already in use" in finding["sentence"]


def test_a_program_has_the_port_of_one_address_for_itself(scene):
    with scene.computer.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
        other.bind(("10.77.0.2", PORT))
        assert "port-refused" in codes(scene.findings())


def test_the_machine_has_no_address(home, needs_root):
    needs_root("the tests of ravelin-disk-check around the configuration (tests/system/test_check.py)")
    with Scene(home, cables=0) as scene:
        assert "no-interface" in codes(scene.findings())


FIREWALL = """
table inet filter {{
    chain input {{
        type filter hook input priority 0; policy drop;
        ct state vmap {{ established : accept, related : accept, invalid : drop }}
        iif lo accept
        ip protocol icmp accept
        tcp dport {{ 22, 80 }} accept
        {0}
    }}
}}
"""


@pytest.mark.parametrize(("rule", "code", "level"), [
    ("", "firewall-drops", "wrong"),
    (f"udp dport {PORT} accept", "firewall-accepts", "ok"),
    (f"ip daddr 224.0.0.0/4 udp dport {{ 5000-6000 }} accept", "firewall-accepts", "ok"),
    (f"udp dport {PORT + 1} accept", "firewall-drops", "wrong"),
    (f"ip saddr 10.77.0.0/24 udp dport {PORT} accept", "firewall-unknown", "note"),
])
def test_the_firewall(scene, rule, code, level):
    assert "firewall-none" in codes(scene.findings(), "ok")
    scene.computer.run("nft", "-f", "-", input=FIREWALL.format(rule).encode())
    finding = by_code(scene.findings(), code)
    assert finding["level"] == level
    assert finding["details"] == {"chain": "inet filter input", "group": GROUP, "port": str(PORT)}
    # It is as it says.
    if level != "note":
        agent = scene.start()
        scene.send("event:disk_mounted;mac:m;ip:10.77.0.1;uuid:u;label:From outside")
        if level == "ok":
            agent.wait_for_log("From outside")
        else:
            agent.mount("From inside", uuid="inside")
            assert "From outside" not in agent.log()


def test_a_firewall_that_may_not_be_read_is_not_judged(scene):
    os.chmod(scene.home.base, 0o755)
    scene.home.give_to(65534)
    found = scene.findings(user=65534, group=65534, extra_groups=[])
    assert by_code(found, "firewall-not-read")["sentence"].endswith("only root may read its rules")


def test_the_desktop_folder(scene):
    assert "desktop" in codes(scene.findings(), "ok")
    scene.home.desktop.rmdir()
    assert "desktop-missing" in codes(scene.findings())
    assert not scene.home.desktop.exists()
    os.chmod(scene.home.base, 0o755)
    scene.home.desktop.mkdir(mode=0o755)
    scene.home.give_to(65534)
    os.chown(scene.home.desktop, 0, 0)
    found = scene.findings(user=65534, group=65534, extra_groups=[])
    assert by_code(found, "desktop-not-writable")["sentence"].endswith(": Permission denied")
    assert scene.home.shortcuts() == []


def test_shortcuts_of_an_agent_that_was_killed(scene):
    agent = scene.start()
    agent.mount("Left")
    assert "shortcuts-left" not in codes(scene.findings(), "note")
    agent.kill()
    assert "shortcuts-left" in codes(scene.findings(), "note")
    assert scene.home.shortcuts() == ["Left.app"]


def test_a_helper_that_is_missing(scene, tmp_path):
    alone = tmp_path / "alone"
    alone.mkdir()
    shutil.copy(COMMAND, alone)
    with scene.computer.entered():
        result = subprocess.run([alone / COMMAND.name, "--json"], env=environment(scene.home),
                                capture_output=True, check=False)
    assert codes(json.loads(result.stdout)["findings"]).count("helper-missing") == 2


# Listening

MOUNTED = "event:disk_mounted;mac:02:00:00:00:00:01;ip:192.0.2.10;uuid:1234-ABCD;label:USB Disk"


def test_an_announcement_is_shown_with_its_verdict(scene):
    with scene.listen() as listening:
        assert [finding["code"] for finding in listening.begin] == ["group-heard", "alone-heard"]
        port = scene.send(MOUNTED)
        heard = listening.next()
        assert datetime.datetime.strptime(heard.pop("time"), "%Y-%m-%dT%H:%M:%S.%f%z")
        assert heard == {
            "sender": f"10.77.0.1:{port}", "group": GROUP, "port": PORT, "size": len(MOUNTED),
            "text": MOUNTED,
            "fields": {"event": "disk_mounted", "mac": "02:00:00:00:00:01", "ip": "192.0.2.10",
                       "uuid": "1234-ABCD", "label": "USB Disk"},
            "kind": "complete", "code": "complete",
            "sentence": "complete; makes the shortcut 'USB Disk.app'"}
        assert listening.end()[0] == 0


@pytest.mark.parametrize(("text", "sentence"), [
    (MOUNTED.replace("label", "Label"), "key 'Label' is unknown: the whole announcement is void"),
    (MOUNTED + "\u00e9", "not ASCII at byte 85: the whole announcement is void"),
    (MOUNTED.replace("ip:", "ip"), "'ip' is missing: the announcement is void"),
    (MOUNTED.replace("disk_mounted", "mounted"),
     "there is no event 'mounted': the announcement is void"),
    ("event:no_disk", "'mac' is missing: the announcement is void"),
])
def test_what_is_void_does_nothing_to_the_agent_either(scene, text, sentence):
    agent = scene.start()
    with scene.listen() as listening:
        scene.send(text)
        heard = listening.next()
        assert (heard["kind"], heard["sentence"]) == ("nothing", sentence)
        status, values, errors = listening.end()
        assert (status, errors) == (1, "ravelin-disk-check: no complete announcement has come\n")
        assert values[-1]["summary"]["passedOver"] == 1
    agent.mount("Later")
    assert scene.home.shortcuts() == ["Later.app"]


def test_the_limits_and_repetitions_are_the_agents(scene):
    with scene.listen() as listening, scene.socket_of_device() as device:
        def verdict(text):
            device.sendto(text.encode(), (GROUP, PORT))
            return listening.next()["code"]

        # The second one comes right after the first one, well within half a second.
        for _ in range(20):
            device.sendto(MOUNTED.encode(), (GROUP, PORT))
            device.sendto(MOUNTED.encode(), (GROUP, PORT))
            if [listening.next()["code"], listening.next()["code"]][1] == "waiting-already":
                break
        else:
            pytest.fail("no repetition was waiting")
        time.sleep(1)
        assert verdict(MOUNTED) == "known"
        assert verdict(MOUNTED.replace("1234", "5678").replace("USB Disk", "x" * 252)) == (
            "no-shortcut")
        found = {verdict(MOUNTED.replace("1234", str(number))) for number in range(1100)}
        assert found <= {"complete", "limit", "known"}
        assert "limit" in found


def test_the_agent_hears_what_it_would_hear_without(scene):
    """Neither while it is listened to what is sent to groups, nor when that begins or ends."""
    agent = scene.start()
    with scene.capture(0) as reports:
        with scene.listen() as listening:
            assert [finding["code"] for finding in listening.begin] == [
                "group-heard", "alone-not-seen"]
            with scene.socket_of_device() as device:
                device.sendto(MOUNTED.replace("USB Disk", "Group").encode(), (GROUP, PORT))
            # Each comes from another port, which decides where sockets share in turns.
            for number in range(100):
                scene.send(f"event:disk_mounted;mac:m;ip:10.77.0.1;uuid:{number};label:{number}",
                           "10.77.0.2")
            agent.home.wait_for_shortcuts("Group.app", *(f"{n}.app" for n in range(100)))
            assert listening.next()["fields"]["label"] == "Group"
            status, values, _ = listening.end()
            assert (status, [*values[0]]) == (0, ["summary"])
        assert scene.members() == 1
        assert "leave" not in [kind for _, kind in reports.reports()]
    wait_until(lambda: scene.send(MOUNTED.replace("USB Disk", "After").replace("1234", "after"))
               and "After.app" in agent.home.shortcuts(), "a shortcut", period=0.2)


def test_an_agent_that_starts_meanwhile_gets_what_is_sent_to_the_machine_alone(scene):
    with scene.listen() as listening:
        scene.send(MOUNTED, "10.77.0.2")
        heard = listening.next()
        assert (heard["code"], heard["group"]) == ("complete", None)
        agent = scene.start()
        for number in range(100):
            scene.send(f"event:disk_mounted;mac:m;ip:10.77.0.1;uuid:{number};label:{number}",
                       "10.77.0.2")
        agent.home.wait_for_shortcuts(*(f"{n}.app" for n in range(100)))
        assert [*listening.end()[1][0]] == ["summary"]


def test_the_trial_of_a_port_takes_nothing_from_whoever_has_it(scene):
    with (scene.computer.entered(),
          socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as holder):
        for option in socket.SO_REUSEADDR, socket.SO_REUSEPORT:
            holder.setsockopt(socket.SOL_SOCKET, option, 1)
        holder.bind(("0.0.0.0", PORT))
        holder.settimeout(PATIENCE)
        found = scene.findings()
        assert "port-free" in codes(found, "ok")
        assert f"(process {os.getpid()} of " in by_code(found, "port-shared")["sentence"]
        checking = subprocess.Popen(
            ["sh", "-c", f"for number in $(seq 30); do '{COMMAND}'; done"],
            env=environment(scene.home), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # Each port of a sender may lead to another one of the sockets that share.
        with contextlib.ExitStack() as stack:
            devices = [stack.enter_context(scene.socket_of_device()) for _ in range(8)]
            number = 0
            while checking.poll() is None:
                number += 1
                devices[number % len(devices)].sendto(b"%d" % number, ("10.77.0.2", PORT))
                assert holder.recv(100) == b"%d" % number
        assert number > 100


def test_hostile_datagrams_do_no_harm(scene):
    chance = random.Random(11)
    pieces = [b"event:", b"disk_mounted", b";", b":", b"mac:m", b"ip:1", b"uuid:", b"label:",
              b"\x1b]0;title\x07", b"\x1b[2J", b"\0", b"\n", b"\r", b"%n%s", b"\xff\xfe", b"\xc3\xa9",
              b'"', b"\\", b"\xe2\x80\xae", b"x" * 3000, b"\x9b31m"]
    datagrams = [b"".join(chance.choices(pieces, k=chance.randrange(1, 12))) for _ in range(300)]
    datagrams += [b"\0", b";", b":", b"\x1b" * 60000, b"event:no_disk;mac:" + b"m" * 60000]
    with scene.listen() as listening, scene.socket_of_device() as device:
        for datagram in datagrams:
            device.sendto(datagram, (GROUP, PORT))
            heard = listening.next()
            assert heard["size"] == len(datagram)
            assert heard["text"].isascii() and heard["text"].isprintable()
            assert len(heard["text"]) < 5000
            assert heard["sentence"].isprintable()
            assert all(value.isprintable() for value in heard["fields"].values())
        assert listening.end(signal.SIGTERM)[0] in (0, 1)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_it_ends_also_where_nobody_takes_what_it_prints(scene, number):
    with scene.listen() as listening, scene.socket_of_device() as device:
        process = listening.process

        def is_stuck():
            device.sendto(b"A" * 1000, (GROUP, PORT))
            return "pipe" in open(f"/proc/{process.pid}/wchan").read()

        wait_until(is_stuck, "a full pipe")
        process.send_signal(number)
        assert process.wait(PATIENCE) == 1


def at_a_terminal(scene, *arguments, **variables):
    """What is printed at a terminal until Ctrl-C after one announcement with an escape in it."""
    mine, its = pty.openpty()
    own = environment(scene.home) | {"TERM": "xterm"} | variables
    with scene.computer.entered():
        process = subprocess.Popen([COMMAND, *arguments], env=own, stdin=its, stdout=its, stderr=its,
                                   start_new_session=True,
                                   preexec_fn=lambda: fcntl.ioctl(its, termios.TIOCSCTTY, 0))
    os.close(its)
    output = b""

    def read_until(text):
        nonlocal output
        while text not in output:
            assert select.select([mine], [], [], PATIENCE)[0], output
            output += os.read(mine, 65536)

    try:
        read_until(b"alone")
        scene.send(MOUNTED + "\x1b[31mred")
        scene.send("label:\x1b]0;title\x07;\x1b[5m:blinking")
        read_until(b"is unknown")
        os.write(mine, b"\x03")
        read_until(b"passed over\r\n")
        assert process.wait(PATIENCE) == 0
    finally:
        process.kill()
        process.wait()
        os.close(mine)
    return output.decode()


def test_at_a_terminal_there_is_colour_and_nothing_else_that_is_not_text(scene):
    coloured = at_a_terminal(scene, "--listen")
    assert "\x1b[32mcomplete; makes the shortcut" in coloured
    assert "\x1b[31mkey '\\x1b[5m' is unknown" in coloured
    plain = re.sub("\x1b\\[(0|2|3[123])m", "", coloured)
    assert "\x1b" not in plain and "\x07" not in plain
    assert "label:USB Disk\\x1b[31mred" in plain
    assert "2 announcements in " in plain
    for variables in {"NO_COLOR": "1"}, {"TERM": "dumb"}:
        assert "\x1b" not in at_a_terminal(scene, "--listen", **variables)


def test_listening_ends_by_itself(scene):
    began = time.monotonic()
    with scene.computer.entered():
        status, output, errors = check(scene.home, "--listen", 1)
    passed = time.monotonic() - began
    assert (status, errors) == (1, "ravelin-disk-check: no complete announcement has come\n")
    assert f"  ok     group {GROUP}, port {PORT}, on eth0\n" in output
    end = re.search(r"\n0 announcements in (\d+\.\d) s: 0 complete, 0 passed over\n\Z", output)
    assert end and 1 <= float(end[1]) <= passed + 0.05  # it is rounded


def test_an_interface_that_comes_is_listened_to(scene):
    with scene.listen() as listening:
        for _ in range(2):
            scene.plug(1)
            scene.computer.ip(scene.assignment(1))
            wait_until(lambda: scene.computer.memberships().get("eth1", {}).get(GROUP), "a member")
            with scene.socket_of_device(1) as device:
                device.sendto(MOUNTED.encode(), (GROUP, PORT))
            assert listening.next()["sender"].startswith("10.77.1.1:")
            # The next one is another one under the same name.
            scene.computer.ip("link del eth1")


def test_a_file_can_be_listened_to(scene):
    scene.home.user_config.unlink()
    other = "239.255.77.9"
    file = scene.home.base / "file"
    file.write_bytes(plistlib.dumps(KEYS | {"MulticastAddresses": [[other, PORT]]}))
    with scene.listen("--config", file) as listening:
        scene.send(MOUNTED, other)
        assert listening.next()["group"] == other


def test_nothing_can_be_listened_to(scene):
    with scene.computer.entered():
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
            other.bind(("0.0.0.0", PORT))
            status, output, errors = check(scene.home, "--listen", 1)
        assert (status, errors) == (1, "ravelin-disk-check: nothing can be listened to\n")
        assert "Address already in use" in output
        scene.configure(MulticastAddresses=[])
        assert check(scene.home, "--listen", 1)[0] == 1
        scene.home.user_config.unlink()
        assert check(scene.home, "--listen", 1) == (
            1, "", "ravelin-disk-check: no configuration is in force\n")


@pytest.mark.parametrize("time_given", ["0", "-1", "abc", "1.5", "", "1000000001", "9" * 30])
def test_a_time_that_is_none(home, time_given):
    status, output, errors = check(home, "--listen", "--", time_given)
    assert (status, output) == (2, "")
    assert errors.startswith("ravelin-disk-check: SECONDS: ")
