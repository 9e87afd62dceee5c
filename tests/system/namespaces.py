"""Networks of their own for tests and benches: a computer and the devices around it, each in a
network namespace, with cables between them. They are gone when the process is, however it ends."""

import contextlib
import ctypes
import os
import pathlib
import socket
import struct
import subprocess
import time

GROUP = "239.255.77.1"
PORT = 5077
PATIENCE = 60

_CLONE_NEWNET = 0x40000000
_CLONE_NEWNS = 0x00020000
_LIBC = ctypes.CDLL(None, use_errno=True)


def _checked(result):
    if result != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error))


def _own_namespace(kind="net"):
    return os.open(f"/proc/thread-self/ns/{kind}", os.O_RDONLY | os.O_CLOEXEC)


class OwnMounts(contextlib.AbstractContextManager):
    """Mounts of its own for this thread and what it starts meanwhile; nobody else sees them."""

    def __init__(self):
        self._closing = contextlib.ExitStack()
        before = _own_namespace("mnt")
        folder = os.getcwd()
        _checked(_LIBC.unshare(_CLONE_NEWNS))
        self._closing.callback(os.close, before)
        self._closing.callback(os.chdir, folder)
        self._closing.callback(lambda: _checked(_LIBC.setns(before, _CLONE_NEWNS)))
        subprocess.run(["mount", "--make-rprivate", "/"], check=True)

    def __exit__(self, *_):
        self._closing.close()

    def mount_memory(self, folder):
        """Mounts an empty file system in memory at the folder."""
        subprocess.run(["mount", "-t", "tmpfs", "none", folder], check=True)

    def mount_hung(self, folder):
        """Mounts at the folder a file system whose server, this process, never answers: whoever
        asks it anything hangs."""
        server = os.open("/dev/fuse", os.O_RDWR | os.O_CLOEXEC)
        self._closing.callback(os.close, server)
        options = f"fd={server},rootmode=40000,user_id=0,group_id=0"
        _checked(_LIBC.mount(b"hung", os.fsencode(folder), b"fuse", 0, options.encode()))


class Namespace(contextlib.AbstractContextManager):
    """A network namespace, which lasts as long as this or anything in it."""

    def __init__(self):
        before = _own_namespace()
        try:
            _checked(_LIBC.unshare(_CLONE_NEWNET))
            try:
                self._descriptor = _own_namespace()
            finally:
                _checked(_LIBC.setns(before, _CLONE_NEWNET))
        finally:
            os.close(before)
        self.ip("link set lo up")

    def __exit__(self, *_):
        os.close(self._descriptor)

    @property
    def path(self):
        return f"/proc/{os.getpid()}/fd/{self._descriptor}"

    @contextlib.contextmanager
    def entered(self):
        """Whatever this thread starts or opens meanwhile, it does in the namespace."""
        before = _own_namespace()
        try:
            _checked(_LIBC.setns(self._descriptor, _CLONE_NEWNET))
            try:
                yield
            finally:
                _checked(_LIBC.setns(before, _CLONE_NEWNET))
        finally:
            os.close(before)

    def run(self, *command, **how):
        with self.entered():
            return subprocess.run([*map(str, command)], check=True, timeout=PATIENCE, **how)

    def ip(self, *commands):
        """What `ip` does with these commands, one after the other, without a pause."""
        self.run("ip", "-batch", "-", input="".join(f"{line}\n" for line in commands).encode())

    def set(self, setting, value):
        """A setting of the namespace beneath /proc/sys/net/ipv4."""
        with self.entered():
            pathlib.Path("/proc/sys/net/ipv4", setting).write_text(str(value))

    def memberships(self):
        """For each interface the groups joined on it, and how many sockets have joined each."""
        with self.entered():
            lines = pathlib.Path("/proc/thread-self/net/igmp").read_text().splitlines()
        joined = {}
        for line in lines[1:]:
            fields = line.split()
            if not line.startswith("\t"):
                groups = joined.setdefault(fields[1], {})
            else:
                address = socket.inet_ntoa(struct.pack("=I", int(fields[0], 16)))
                groups[address] = int(fields[1])
        return joined


def may_be_made():
    """Whether this process may make namespaces, which takes root."""
    try:
        Namespace().__exit__()
    except PermissionError:
        return False
    return True


class Network(contextlib.AbstractContextManager):
    """A computer with any number of cables, each with a device at its other end. Cable 3 is plugged
    into eth3 at the computer and has the addresses 10.77.3.2 there, 10.77.3.1 at the device."""

    def __init__(self, cables=0):
        self.computer = Namespace()
        self.device = Namespace()
        # Every membership report is sent once, where it would be repeated in case it gets lost.
        self.computer.set("igmp_qrv", 1)
        for number in range(cables):
            self.plug(number)
            self.computer.ip(self.assignment(number))

    def __exit__(self, *_):
        self.computer.__exit__()
        self.device.__exit__()

    @staticmethod
    def making(number):
        """The command that plugs in a cable."""
        return f"link add eth{number} type veth peer name device{number}"

    @staticmethod
    def assignment(number, host=2):
        """The command that gives the computer an address on a cable."""
        return f"address add 10.77.{number}.{host}/24 dev eth{number}"

    def plug(self, number):
        """Plugs in a cable; the computer has no address on it yet."""
        self.computer.ip(f"{self.making(number)} netns {self.device.path}",
                         f"link set eth{number} up")
        self.device.ip(f"address add 10.77.{number}.1/24 dev device{number}",
                       f"link set device{number} up")

    def capture(self, number):
        return Capture(self.device, f"device{number}")


class Capture(contextlib.AbstractContextManager):
    """The IGMP membership reports that arrive at an interface."""

    KINDS = {1: "is member", 2: "is member", 3: "leave", 4: "join", 5: "join", 6: "leave"}

    def __init__(self, namespace, interface):
        protocol = 0x0800  # IPv4
        with namespace.entered():
            self._socket = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(protocol))
        self._socket.bind((interface, protocol))
        self._socket.setblocking(False)
        self._reports = []

    def __exit__(self, *_):
        self._socket.close()

    def reports(self, group=GROUP):
        """What has been reported about the group by now, with the time when it was read here."""
        with contextlib.suppress(BlockingIOError):
            while True:
                self._take(self._socket.recv(65536))
        return [(when, kind) for when, address, kind in self._reports if address == group]

    def _take(self, packet):
        if packet[9] != socket.IPPROTO_IGMP:
            return
        report = packet[(packet[0] & 15) * 4:]
        if report[0] == 0x22:  # version 3
            records = struct.unpack("!H", report[6:8])[0]
            rest = report[8:]
            for _ in range(records):
                kind, auxiliary, sources = struct.unpack("!BBH", rest[:4])
                self._note(rest[4:8], self.KINDS[kind])
                rest = rest[8 + 4 * (sources + auxiliary):]
        elif report[0] in (0x12, 0x16):
            self._note(report[4:8], "join")
        elif report[0] == 0x17:
            self._note(report[4:8], "leave")

    def _note(self, address, kind):
        self._reports.append((time.monotonic(), socket.inet_ntoa(address), kind))
