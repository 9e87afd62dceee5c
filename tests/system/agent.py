"""Runs the real agent in a home of its own, and plays the devices and the user around it."""

import contextlib
import os
import pathlib
import plistlib
import random
import re
import resource
import shutil
import signal
import socket
import stat
import struct
import subprocess
import tempfile
import time

BIN = pathlib.Path(os.environ["RAVELIN_DISK_BIN"])
EXECUTABLE = BIN / "ravelin-disk-agent"
HELPER = "ravelin-disk-shortcut-helper"
_CODE = EXECUTABLE.read_bytes()
SANITIZER = "asan" if b"__asan_init" in _CODE else "tsan" if b"__tsan_init" in _CODE else None
del _CODE

STARTED = "Ravelin Disk: Server has been started!\n"
ENDED = "Ravelin Disk: System will terminate signal has been catched and handled.\n"
REMOVAL_FAILED = "Ravelin Disk: Error when deleting alias file. Reason: "
SUPPRESSED = "Ravelin Disk: Lines suppressed because datagrams caused too many: "

# How the name of a file on the desktop begins while the agent makes or removes a shortcut.
BESIDE = ".ravelin-disk-"

PATIENCE = 60 if SANITIZER is None else 180

# Agents that end by SIGABRT as they should need not leave their memory behind.
resource.setrlimit(resource.RLIMIT_CORE, (0, resource.getrlimit(resource.RLIMIT_CORE)[1]))


def wait_until(condition, what, patience=PATIENCE, period=0.01):
    """Answers the first true value of the condition, and fails when there is none in time."""
    end = time.monotonic() + patience
    while True:
        value = condition()
        if value:
            return value
        assert time.monotonic() < end, f"not within {patience} s: {what}"
        time.sleep(period)


def text_of(path):
    """What the file holds; of one that is not there, or that goes just now, nothing."""
    try:
        return path.read_text()
    except FileNotFoundError:
        return ""


def message(event, mac="02:00:00:00:00:01", ip="192.0.2.10", uuid="1234-ABCD", label="USB Disk"):
    """An announcement; a key that is None is left out."""
    pairs = {"event": event, "mac": mac, "ip": ip, "uuid": uuid, "label": label}
    return ";".join(f"{key}:{value}" for key, value in pairs.items() if value is not None)


def received(text, event, mac="02:00:00:00:00:01", ip="192.0.2.10", uuid="1234-ABCD",
             label="USB Disk"):
    """The log lines about an announcement that has come in, where it holds printable text only."""
    return (f"Ravelin Disk: Received event message\n\t{text}\n\tDisk is\n"
            f"\tevent:{event};mac:{mac};ip:{ip};uuid:{uuid};label:{label};\n")


def icon():
    """An icon file of 16 by 16 pixels."""
    pixels = b"\x20\x60\xc0\xff" * 256 + bytes(64)
    bitmap = struct.pack("<IiiHHIIiiII", 40, 16, 32, 1, 32, 0, len(pixels), 0, 0, 0, 0) + pixels
    return (struct.pack("<HHH", 0, 1, 1)
            + struct.pack("<BBBBHHII", 16, 16, 0, 0, 1, 32, len(bitmap), 22) + bitmap)


def snapshot(*folders):
    """Everything beneath the folders: kind, mode, link target or content."""
    found = {}
    for top in folders:
        for folder, folders_below, files in os.walk(top):
            for name in folders_below + files:
                path = os.path.join(folder, name)
                status = os.lstat(path)
                if stat.S_ISLNK(status.st_mode):
                    content = os.readlink(path)
                elif stat.S_ISREG(status.st_mode):
                    content = pathlib.Path(path).read_bytes()
                else:
                    content = None
                found[path] = (status.st_mode, content)
    return found


class Home(contextlib.AbstractContextManager):
    """A user's home, the machine-wide folders beside it, and the agents that run there."""

    def __init__(self):
        self._folder = tempfile.TemporaryDirectory(prefix="ravelin-disk-")
        self.base = pathlib.Path(self._folder.name)
        self.path = self.base / "home"
        self.desktop = self.path / "Desktop"
        self.trash = self.path / ".local/share/Trash/files"
        self.outside = self.base / "outside"
        self.user_config = self.path / ".local/share/RavelinDisk/Ravelin Disk Config.plist"
        self.machine_config = self.base / "machine/RavelinDisk/Ravelin Disk Config.plist"
        for folder in (self.desktop, self.outside, self.machine_config.parent, self.base / "logs"):
            folder.mkdir(parents=True)
        self.agents = []
        self._claims = []

    def __exit__(self, *_):
        try:
            for agent in self.agents:
                agent.kill()
            for agent in self.agents:
                agent.check_for_reports()
        finally:
            for claim in self._claims:
                claim.close()
            self._folder.cleanup()

    def free_port(self):
        """A UDP port that nobody uses, claimed from the other tests by the TCP port of that number.
        It lies below those that the system gives to senders."""
        while True:
            port = random.randrange(10000, 32000)
            claim = socket.socket()
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
                try:
                    claim.bind(("127.0.0.1", port))
                    probe.bind(("0.0.0.0", port))
                except OSError:
                    claim.close()
                    continue
            self._claims.append(claim)
            return port

    def configure(self, *ports, file=None, fmt=plistlib.FMT_XML):
        """Writes a configuration that listens on the ports."""
        file = file or self.user_config
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(plistlib.dumps({
            "MulticastAddresses": [["239.255.0.1", port] for port in ports],
            "JoinIGMP": False,
            "IGMPMembershipRefreshRate": 3600,
        }, fmt=fmt))

    def start(self, **how):
        """An agent on a free port, listening."""
        port = self.free_port()
        self.configure(port)
        return self.start_as_configured(port, **how)

    def start_as_configured(self, *ports, **how):
        """An agent with the configuration that is there, listening on so many ports."""
        agent = Agent(self, ports, **how)
        agent.wait_for_log(STARTED, count=len(ports))
        return agent

    def install(self, helper=None):
        """Copies the agent into this home, where a test can put another helper beside it: a shell
        script. Returns the agent's path."""
        folder = self.base / "bin"
        folder.mkdir()
        shutil.copy(EXECUTABLE, folder)
        if helper is not None:
            (folder / HELPER).write_text(f"#!/bin/sh\n{helper}\n")
            (folder / HELPER).chmod(0o755)
        return folder / EXECUTABLE.name

    def give_to(self, user):
        """Has the user, a number, own everything here."""
        for folder, _, files in os.walk(self.base):
            for path in folder, *(os.path.join(folder, name) for name in files):
                os.chown(path, user, user)

    def shortcuts(self):
        """What lies on the desktop, hidden files included."""
        return sorted(os.listdir(self.desktop))

    def wait_for_shortcuts(self, *names):
        wait_until(lambda: self.shortcuts() == sorted(names), f"desktop holding just {names}")

    def wait_until_gone(self, path):
        """Waits until the shortcut is gone. It gets another name first."""
        wait_until(lambda: not os.path.lexists(path) and not list(path.parent.glob(f"{BESIDE}*")),
                   f"removal of {path.name}")

    def elsewhere(self):
        """Everything but the desktop."""
        found = snapshot(self.path, self.outside, self.base / "machine")
        return {path: what for path, what in found.items()
                if not path.startswith(f"{self.desktop}/")}

    @contextlib.contextmanager
    def nothing_changes_elsewhere(self):
        before = self.elsewhere()
        yield
        after = self.elsewhere()
        changed = {path for path in before.keys() | after.keys()
                   if before.get(path) != after.get(path)}
        assert not changed


class Agent:
    """A running agent. Standard error goes to a file unless told otherwise. The command ends up as
    the agent; `how` goes to the system, as does `user`, a number."""

    def __init__(self, home, ports=(), stderr=None, command=None, **how):
        self.home = home
        self.ports = ports
        self._log = home.base / "logs" / str(len(home.agents))
        self._log.touch()
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("XDG_")}
        environment.update(HOME=str(home.path), LC_ALL="C",
                           XDG_DATA_HOME=str(home.path / ".local/share"),
                           XDG_CONFIG_HOME=str(home.path / ".config"),
                           XDG_DATA_DIRS=f"{home.base / 'machine'}:/usr/share")
        with self._log.open("wb") as log:
            self._process = subprocess.Popen(
                [*(command or [EXECUTABLE])], env=environment, cwd=home.base, stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL, stderr=log if stderr is None else stderr, **how)
        home.agents.append(self)

    @property
    def pid(self):
        return self._process.pid

    def is_running(self):
        return self._process.poll() is None

    def send(self, payload, port=None):
        """Sends the datagram to the port, the agent's first by default."""
        if isinstance(payload, str):
            payload = payload.encode("latin-1")
        self._socket.sendto(payload, ("127.0.0.1", port or self.ports[0]))

    def announce(self, event, port=None, **values):
        text = message(event, **values)
        self.send(text, port)
        return text

    def mount(self, label="USB Disk", patience=PATIENCE, **values):
        """Announces a disk until its shortcut is there, as a device would."""
        path = self.home.desktop / f"{label}.app"

        def is_there():
            assert self.is_running(), self.log()[-2000:]
            self.announce("disk_mounted", label=label, **values)
            return os.path.lexists(path)

        wait_until(is_there, f"shortcut of {label}", patience, period=0.25)
        return path

    def unmount(self, label="USB Disk", patience=PATIENCE, **values):
        """Announces that the disk is gone until its shortcut is, too."""
        path = self.home.desktop / f"{label}.app"

        def is_gone():
            self.announce("disk_unmounted", label=label, **values)
            return not os.path.lexists(path)

        wait_until(is_gone, f"removal of the shortcut of {label}", patience, period=0.25)
        self.home.wait_until_gone(path)

    def check_works(self, patience=PATIENCE):
        """An ordinary disk comes and goes. What was sent before has been decided then."""
        self.mount("Ordinary", patience, uuid="ordinary")
        self.unmount("Ordinary", patience, uuid="ordinary")

    def log(self):
        return self._log.read_bytes().decode("latin-1")

    def wait_for_log(self, text, count=1):
        wait_until(lambda: self.log().count(text) >= count or not self.is_running(),
                   f"log line {text!r}")
        assert self.log().count(text) >= count, self.log()[-2000:]

    def signal(self, number):
        self._process.send_signal(number)

    def exit_status(self, patience=PATIENCE):
        """Waits for the end; a negative number is the signal that made it."""
        return self._process.wait(patience)

    def terminate(self, patience=PATIENCE):
        self.signal(signal.SIGTERM)
        return self.exit_status(patience)

    def check_clean_end(self):
        """What a terminated agent leaves: one last line, and nothing on the desktop."""
        assert self.exit_status() == 0, self.log()[-2000:]
        assert self.home.shortcuts() == []
        self.check_last_line()

    def check_last_line(self):
        """The end is logged once, and of the announcements nothing after it. A decision of the
        other thread may be on its way to the log at that moment."""
        log = self.log()
        assert log.count(ENDED) == 1, log[-2000:]
        for line in log[log.index(ENDED) + len(ENDED):].splitlines():
            assert line.startswith(("Ravelin Disk: Disk ", REMOVAL_FAILED, SUPPRESSED)), line

    def unread_and_lost(self):
        """Bytes of datagrams that the agent has not read yet, and datagrams lost for that."""
        unread = lost = 0
        for line in pathlib.Path("/proc/net/udp").read_text().splitlines()[1:]:
            fields = line.split()
            if int(fields[1].split(":")[1], 16) in self.ports:
                unread += int(fields[4].split(":")[1], 16)
                lost += int(fields[-1])
        return unread, lost

    def descriptors(self):
        """What the descriptors are, by their number, and whether children inherit them."""
        found = {}
        for entry in pathlib.Path(f"/proc/{self.pid}/fd").iterdir():
            with contextlib.suppress(FileNotFoundError):
                details = pathlib.Path(f"/proc/{self.pid}/fdinfo/{entry.name}").read_text()
                flags = int(re.search(r"^flags:\s*(\d+)$", details, re.MULTILINE)[1], 8)
                found[int(entry.name)] = (os.readlink(entry), not flags & os.O_CLOEXEC)
        return found

    def status(self, field):
        """A number from the system's status of the process."""
        for line in pathlib.Path(f"/proc/{self.pid}/status").read_text().splitlines():
            if line.startswith(f"{field}:"):
                return int(line.split()[1])
        raise KeyError(field)

    def held_of_files(self):
        """How much of the program and its libraries it holds in memory, in KiB, but of what can be
        written: less of it while it sleeps."""
        held = 0
        counts = False
        for line in pathlib.Path(f"/proc/{self.pid}/smaps").read_text().splitlines():
            first, second, *_ = line.split()
            if not first.endswith(":"):
                counts = second[1] == "-" and "/" in line
            elif counts and first == "Rss:":
                held += int(second)
        return held

    def kill(self):
        if self.is_running():
            self._process.kill()
            self._process.wait()
        self._socket.close()

    def check_for_reports(self):
        """The sanitizers have found nothing."""
        check_for_reports(self._log.read_bytes())


def check_for_reports(log):
    for report in (b"ERROR: AddressSanitizer", b"ERROR: LeakSanitizer", b"runtime error",
                   b"WARNING: ThreadSanitizer"):
        position = log.find(report)
        assert position < 0, log[position:position + 4000].decode("latin-1")
