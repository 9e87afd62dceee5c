"""The cables of the computer and the devices' ends of them."""

import contextlib
import json
import socket
import subprocess
import time

from agent import wait_until
from namespaces import GROUP, PORT

# The last parts of the addresses: the computer's on a cable, and the devices'.
COMPUTER = (2, 3, 4)
DEVICES = range(20, 52)
HOSTILE = 99


class Cable(contextlib.AbstractContextManager):
    """A cable, with an address of the computer's or none, in order or not."""

    def __init__(self, network, number):
        self._network = network
        self._number = number
        self._sockets = {}
        with network.device.entered():
            self._figures = open("/proc/thread-self/net/dev", encoding="ascii")
        self.is_up = True
        self.host = COMPUTER[0]
        self.plug()

    def __exit__(self, *_):
        self._forget_sockets()
        self._figures.close()

    @property
    def is_heard(self):
        """Whether the agent hears what devices send on it."""
        return self.is_up and self.host is not None

    def address(self, host):
        return f"10.77.{self._number}.{host}"

    def plug(self):
        self._forget_sockets()
        self._network.plug(self._number)
        hardware = f"02:77:00:00:00:{self._number:02x}"
        self._network.computer.ip(f"link set eth{self._number} address {hardware}")
        self._network.device.ip(
            *(f"address add {self.address(host)}/24 dev device{self._number}"
              for host in [*DEVICES, HOSTILE]),
            # Nobody need ask where the computer is, and nobody can fail to learn it.
            *(f"neighbour replace {self.address(host)} lladdr {hardware} dev device{self._number} "
              "nud permanent" for host in COMPUTER))
        self._wait_until_up()
        self.is_up = True
        self.assign(self.host)

    def unplug(self):
        self._network.computer.ip(f"link delete eth{self._number}")

    def set_up(self, is_up):
        self._network.computer.ip(f"link set eth{self._number} {'up' if is_up else 'down'}")
        self.is_up = is_up
        if is_up:
            self._wait_until_up()

    def assign(self, host):
        """Gives the computer an address here."""
        self.host = host
        if host is not None:
            self._network.computer.ip(self._network.assignment(self._number, host))

    def withdraw(self):
        self._network.computer.ip(
            f"address delete {self.address(self.host)}/24 dev eth{self._number}")
        self.host = None

    def send(self, host, payload, to_group=True, port=PORT):
        """From the device with this address, to the agent's port. Returns how often it had to be
        repeated: a machine that is busy drops what goes from one namespace to another, too."""
        if not self.is_heard and not to_group:
            return 0
        target = GROUP if to_group else self.address(self.host)
        if not self.is_heard:
            # The system may say that this leads nowhere.
            with contextlib.suppress(OSError):
                self._socket(host).sendto(payload, (target, port))
            return 0
        for repeated in range(1000):
            dropped = self._dropped()
            self._socket(host).sendto(payload, (target, port))
            if self._dropped() == dropped:
                return repeated
            time.sleep(0.001)
        raise AssertionError("the system drops everything that is sent")

    def send_at_once(self, host, payload, count):
        """As many as can be, of which some are lost."""
        with contextlib.suppress(OSError) if not self.is_heard else contextlib.nullcontext():
            for _ in range(count):
                self._socket(host).sendto(payload, (GROUP, PORT))

    def _dropped(self):
        self._figures.seek(0)
        line = next(line for line in self._figures if f"device{self._number}:" in line)
        return int(line.partition(":")[2].split()[11])

    def _socket(self, host):
        if host not in self._sockets:
            with self._network.device.entered():
                sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            address = self.address(host)
            sender.bind((address, 0))
            sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton(address))
            self._sockets[host] = sender
        return self._sockets[host]

    def _forget_sockets(self):
        for sender in self._sockets.values():
            sender.close()
        self._sockets = {}

    def _wait_until_up(self):
        """Until then nothing gets through."""
        wait_until(lambda: all(
            self._state(namespace, name) == "UP" for namespace, name in (
                (self._network.computer, f"eth{self._number}"),
                (self._network.device, f"device{self._number}"))), "the cable in order")

    @staticmethod
    def _state(namespace, name):
        output = namespace.run("ip", "-json", "link", "show", name, stdout=subprocess.PIPE).stdout
        return json.loads(output)[0]["operstate"]
