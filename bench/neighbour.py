"""The agent beside avahi-daemon, where that is installed: two that listen in the background, each to
announcements of its own kind, on the same computer at the same time."""

import contextlib
import os
import pathlib
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time

import network as networks

MDNS = ("224.0.0.251", 5353)
PACE = 10_000  # announcements a second
CONFIGURATION = "[server]\nuse-ipv4=yes\nuse-ipv6=no\nenable-dbus=no\nallow-interfaces=eth0\n"


class Watched:
    """What a process has taken so far, by /proc."""

    def __init__(self, pid):
        self.pid = pid

    def _fields(self, path, keys):
        found = {}
        for line in pathlib.Path(f"/proc/{self.pid}/{path}").read_text().splitlines():
            key, _, rest = line.partition(":")
            if key in keys:
                found[key] = int(rest.split()[0])
        return found

    def memory(self):
        """Resident and own share, in kB."""
        found = self._fields("smaps_rollup", ("Rss", "Pss"))
        return found["Rss"], found["Pss"]

    def _threads(self):
        return pathlib.Path(f"/proc/{self.pid}/task").iterdir()

    def sleeps(self):
        """How often its threads have gone to sleep."""
        return sum(self._fields(f"task/{thread.name}/status", ("voluntary_ctxt_switches",))
                   ["voluntary_ctxt_switches"] for thread in self._threads())

    def worked(self):
        """Seconds of processor time."""
        return sum(int((thread / "schedstat").read_text().split()[0])
                   for thread in self._threads()) / 1e9


@contextlib.contextmanager
def avahi(computer, program):
    """The daemon on the computer, with its own kind of folder for what runs."""
    from namespaces import OwnMounts

    with tempfile.NamedTemporaryFile("w", suffix=".conf") as configuration, OwnMounts() as mounts:
        configuration.write(CONFIGURATION)
        configuration.flush()
        mounts.mount_memory("/run")
        os.mkdir("/run/avahi-daemon")
        with computer.entered():
            daemon = subprocess.Popen(
                [program, "--no-drop-root", "--no-chroot", "--file", configuration.name],
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            yield Watched(daemon.pid)
        finally:
            daemon.terminate()
            daemon.wait(networks.PATIENCE)


def mdns_announcement():
    """Of a shared disk: a pointer from the kind of service to the disk's name."""
    def name(*labels):
        return b"".join(bytes([len(label)]) + label.encode() for label in labels) + b"\0"

    kind = name("_smb", "_tcp", "local")
    instance = name("USB Disk", "_smb", "_tcp", "local")
    pointer, internet, lifetime = 12, 1, 4500
    return (struct.pack("!6H", 0, 0x8400, 0, 1, 0, 0) + kind
            + struct.pack("!HHIH", pointer, internet, lifetime, len(instance)) + instance)


def cost(device, watched, text, target, seconds):
    """Processor time per announcement, in microseconds, at the pace."""
    with device.entered():
        sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    with sender:
        sender.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("10.77.0.1"))
        if target == MDNS:
            # Answers come from the port that questions go to.
            sender.bind(("", MDNS[1]))
        sender.sendto(text, target)
        time.sleep(1)
        before, start, sent = watched.worked(), time.monotonic(), 0
        while (passed := time.monotonic() - start) < seconds:
            while sent < passed * PACE:
                sender.sendto(text, target)
                sent += 1
            time.sleep(0.0005)
        time.sleep(0.5)
        return (watched.worked() - before) / sent * 1e6


def compared(bin_folder, quick=False):
    """What was measured, how a figure is shown, the agent's figure and the daemon's. Null, and why,
    where there is nothing to compare."""
    program = shutil.which("avahi-daemon") or shutil.which("avahi-daemon", path="/usr/sbin")
    if program is None:
        return None, "not installed"
    bin_folder = pathlib.Path(bin_folder).resolve()
    os.environ["RAVELIN_DISK_BIN"] = str(bin_folder)
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "system"))
    import agent as agents
    import namespaces

    if not namespaces.may_be_made():
        return None, "needs root"
    seconds = 2 if quick else 10
    known = b"event:disk_status;mac:02:00:00:00:00:01;ip:10.77.0.1;uuid:1234-ABCD;label:USB Disk"
    with agents.Home() as home, namespaces.Network() as network:
        network.plug(0)
        network.computer.ip(network.assignment(0))
        with networks.running(network, home) as (process, _, _changes), \
                avahi(network.computer, program) as daemon:
            both = (Watched(process.pid), daemon)
            time.sleep(5)
            before = [each.sleeps() for each in both]
            time.sleep(3 * seconds)
            wakes = [(each.sleeps() - early) / (3 * seconds) for each, early in zip(both, before)]
            memory = [each.memory() for each in both]
            costs = [cost(network.device, each, text, target, seconds) for each, text, target in (
                (both[0], known, (namespaces.GROUP, namespaces.PORT)),
                (both[1], mdns_announcement(), MDNS))]
    return [
        ("resident, idle", "{:,} kB", *(each[0] for each in memory)),
        ("own share, idle", "{:,} kB", *(each[1] for each in memory)),
        ("wakes up, idle", "{:.2f} /s", *wakes),
        (f"an announcement, of {PACE:,} a second", "{:.1f} us", *costs),
    ], None
