"""The system log: the journal, which is a real one in a mount namespace, or else /dev/log."""

import contextlib
import json
import os
import pathlib
import signal
import socket
import subprocess

import pytest

import namespaces
from agent import ENDED, EXECUTABLE, PATIENCE, SANITIZER, STARTED, Agent, message, wait_until

JOURNALD = next((path for path in map(pathlib.Path, ("/usr/lib/systemd/systemd-journald",
                                                     "/lib/systemd/systemd-journald"))
                 if path.exists()), None)

# /run and /dev are the namespace's own, and so is the journal.
SETTING_UP = """
set -e
mount -t tmpfs tmpfs /run
mkdir -p /run/systemd/journald.conf.d /run/log/journal
cat > /run/systemd/journald.conf.d/test.conf <<END
[Journal]
Storage=volatile
ReadKMsg=no
Audit=
ForwardToSyslog=no
ForwardToWall=no
END
mount -t tmpfs tmpfs /dev
mknod -m 666 /dev/null c 1 3
mknod -m 666 /dev/urandom c 1 9
echo ready
exec sleep infinity
"""

# What the service manager tells a service of its standard error.
AS_A_SERVICE = 'JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) exec "$0"'


class Machine(contextlib.AbstractContextManager):
    """A mount namespace that has a /run and a /dev of its own, and may have a journal."""

    def __init__(self):
        self._keeper = subprocess.Popen(["unshare", "--mount", "--propagation", "private",
                                         "sh", "-c", SETTING_UP], stdout=subprocess.PIPE)
        self._journald = None
        assert self._keeper.stdout.readline() == b"ready\n"

    def __exit__(self, *_):
        self.stop_journald()
        self._keeper.kill()
        self._keeper.communicate()

    def inside(self, *command):
        return ["nsenter", "--mount", "--target", str(self._keeper.pid), *map(str, command)]

    def path(self, path):
        """Where a path of the namespace is from outside."""
        return pathlib.Path(f"/proc/{self._keeper.pid}/root{path}")

    def start_journald(self):
        self._journald = subprocess.Popen(self.inside(JOURNALD), stdin=subprocess.DEVNULL,
                                          stderr=subprocess.DEVNULL)
        listening = self.path("/run/systemd/journal/socket")
        wait_until(lambda: self._accepts(listening), "journal")

    @staticmethod
    def _accepts(path):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as probe:
            return probe.connect_ex(str(path)) == 0

    def stop_journald(self):
        if self._journald is not None:
            self._journald.send_signal(signal.SIGTERM)
            self._journald.wait(PATIENCE)
            self._journald = None

    def entries(self, *wanted):
        """The entries of the journal, oldest first, as journalctl finds them."""
        output = subprocess.run(
            self.inside("journalctl", "--quiet", "--no-pager", "--all", "--output=json",
                        "--directory=/run/log/journal", *wanted),
            stdout=subprocess.PIPE, check=True, timeout=PATIENCE).stdout
        return [json.loads(line) for line in output.splitlines()]

    def messages(self):
        """The messages of the agent's, as bytes."""
        return [message_of(entry) for entry in self.entries("--identifier=Ravelin Disk")]

    def wait_for_message(self, text):
        wait_until(lambda: text.encode("latin-1") in self.messages(), f"message {text!r}",
                   period=0.2)

    def start(self, home, *around):
        """The agent, running in here, by way of the command around it."""
        port = home.free_port()
        home.configure(port)
        return Agent(home, [port], command=self.inside(*around, EXECUTABLE))


def message_of(entry):
    """journalctl gives what is not printable as the numbers of the bytes."""
    text = entry["MESSAGE"]
    return text.encode() if isinstance(text, str) else bytes(text)


def said(line):
    """A line of standard error, without what stands around the message there."""
    return line.removeprefix("Ravelin Disk: ").removesuffix("\n")


@pytest.fixture(name="machine")
def fixture_machine(needs_root):
    needs_root("the tests on the journal (tests/system/test_journal.py)")
    with Machine() as machine:
        yield machine


def test_journal_has_the_lines_with_ident_level_and_facility(home, machine):
    machine.start_journald()
    agent = machine.start(home)
    machine.wait_for_message(said(STARTED))
    agent.send(b"")
    machine.wait_for_message("Server could not read data")
    assert agent.terminate() == 0
    machine.wait_for_message(said(ENDED))
    entries = machine.entries("--identifier=Ravelin Disk")
    assert [(message_of(entry).decode(), entry["PRIORITY"]) for entry in entries] == [
        (said(STARTED), "6"), ("Server could not read data", "3"), (said(ENDED), "6")]
    for entry in entries:
        assert entry["SYSLOG_FACILITY"] == "3"
        assert entry["SYSLOG_PID"] == entry["_PID"] == str(agent.pid)
        assert entry["_TRANSPORT"] == "journal"
    assert machine.entries("--facility=daemon", "--priority=err") == entries[1:2]


def test_message_is_one_record_of_what_was_received(home, machine):
    machine.start_journald()
    agent = machine.start(home)
    agent.wait_for_log(STARTED)
    text = message("disk_unmounted", uuid="x\nPRIORITY=0\nMESSAGE=forged\n\n", ip="\x1b[31m\x07\t\\",
                   mac="\r\x7f", label="100%% of %d")
    agent.send(text)
    expanded = text.replace("%%", "%").replace("%d", "0")
    machine.wait_for_message(f"Received event message\n{expanded}\nDisk is\n{expanded};")
    assert len(machine.messages()) == 2
    assert machine.entries("--priority=emerg") == []


def test_long_message_is_cut_in_the_journal_too(home, machine):
    machine.start_journald()
    agent = machine.start(home)
    agent.wait_for_log(STARTED)
    agent.announce("disk_unmounted", label="%512d" * 200)
    wait_until(lambda: len(machine.messages()) == 2, "message", period=0.2)
    assert len(machine.messages()[1]) == 8192
    assert machine.messages()[1].endswith(b" [cut]")


def test_journal_that_is_started_anew_is_found(home, machine):
    machine.start_journald()
    agent = machine.start(home)
    machine.wait_for_message(said(STARTED))
    machine.stop_journald()
    agent.send(b"")
    agent.wait_for_log("Server could not read data")
    machine.start_journald()
    assert agent.terminate() == 0
    machine.wait_for_message(said(ENDED))
    assert machine.messages() == [said(STARTED).encode(), said(ENDED).encode()]


def test_standard_error_that_is_the_journal_gets_no_copy(home, machine):
    machine.start_journald()
    agent = machine.start(home, "systemd-cat", "--identifier=stream", "sh", "-c", AS_A_SERVICE)
    machine.wait_for_message(said(STARTED))
    assert agent.terminate() == 0
    machine.wait_for_message(said(ENDED))
    streamed = [message_of(entry) for entry in machine.entries("--identifier=stream")]
    if SANITIZER is None:
        assert len(streamed) == 1
    # The console log has no other way.
    assert b"Success initializing Cocoa." in streamed[0]
    assert not any(b"Ravelin Disk: " in line for line in streamed)


def test_other_standard_error_gets_the_copy_although_a_parent_had_the_journal(home, machine):
    machine.start_journald()
    agent = machine.start(home, "env", "JOURNAL_STREAM=1:1")
    agent.wait_for_log(STARTED)
    machine.wait_for_message(said(STARTED))


def test_without_a_journal_the_lines_go_to_the_system_log_socket(home, machine):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as service:
        service.bind(str(machine.path("/dev/log")))
        service.settimeout(PATIENCE)
        agent = machine.start(home)
        record = service.recv(65536)
        assert record.startswith(b"<30>") and record.endswith(b" " + STARTED[:-1].encode())
        agent.wait_for_log(STARTED)
        agent.send(b"")
        assert service.recv(65536).startswith(b"<27>")
        machine.start_journald()
        assert agent.terminate() == 0
        machine.wait_for_message(said(ENDED))
        service.setblocking(False)
        with pytest.raises(BlockingIOError):
            service.recv(65536)


def test_journal_that_does_not_read_holds_up_nothing(home, machine):
    folder = machine.path("/run/systemd/journal")
    os.makedirs(folder)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as full:
        full.bind(str(folder / "socket"))
        agent = machine.start(home)
        agent.wait_for_log(STARTED)
        for number in range(500):
            agent.announce("disk_unmounted", uuid=str(number), label="x" * 1000)
        agent.check_works()
        assert agent.terminate() == 0
        assert agent.log().endswith(ENDED)
        full.setblocking(False)
        assert full.recv(65536).startswith(b"SYSLOG_IDENTIFIER=Ravelin Disk\n")
