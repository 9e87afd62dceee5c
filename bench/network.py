"""What changing networks cost the agent: the rows of the table that come from network namespaces."""

import contextlib
import json
import os
import pathlib
import plistlib
import selectors
import socket
import statistics
import subprocess
import sys
import time

PATIENCE = 60
STARTED = b"Server has been started!"
RECEIVED = b"Received event message"
RTMGRP_IPV4_IFADDR = 0x10


class Log:
    """What the agent writes to standard error, as it comes."""

    def __init__(self):
        self._reader, self.writer = os.pipe()
        os.set_blocking(self._reader, False)
        self._tail = b""
        self.counts = {STARTED: 0, RECEIVED: 0}

    def fileno(self):
        return self._reader

    def read(self):
        with contextlib.suppress(BlockingIOError):
            while piece := os.read(self._reader, 65536):
                *lines, self._tail = (self._tail + piece).split(b"\n")
                for line in lines:
                    for text in self.counts:
                        self.counts[text] += text in line

    def comes(self, text, count, patience):
        """Whether the text comes so often in time."""
        end = time.monotonic() + patience
        with selectors.DefaultSelector() as selector:
            selector.register(self, selectors.EVENT_READ)
            self.read()
            while self.counts[text] < count:
                if not selector.select(max(0, end - time.monotonic())):
                    return False
                self.read()
        return True

    def wait_for(self, text, count):
        if not self.comes(text, count, PATIENCE):
            raise TimeoutError(f"{text} has not come {count} times")

    def close(self):
        os.close(self._reader)
        os.close(self.writer)


class Changes:
    """Changes the addresses of the computer, without the start of a program for each of them."""

    def __init__(self, computer):
        with computer.entered():
            self._process = subprocess.Popen(["ip", "-batch", "-"], stdin=subprocess.PIPE)

    def make(self, command):
        self._process.stdin.write(f"{command}\n".encode())
        self._process.stdin.flush()

    def close(self):
        self._process.stdin.close()
        if self._process.wait(PATIENCE) != 0:
            raise RuntimeError("ip has failed")


@contextlib.contextmanager
def running(network, home):
    """The agent on the network's computer, with one group joined."""
    import agent as agents
    from namespaces import GROUP, PORT

    home.user_config.parent.mkdir(parents=True, exist_ok=True)
    home.user_config.write_bytes(plistlib.dumps({
        "MulticastAddresses": [[GROUP, PORT]],
        "JoinIGMP": True,
        "IGMPMembershipRefreshRate": 3600,
    }))
    log = Log()
    changes = Changes(network.computer)
    try:
        with network.computer.entered():
            agent = agents.Agent(home, [PORT], stderr=log.writer)
        log.wait_for(STARTED, 1)
        # The notices are watched from right after that on.
        time.sleep(0.5)
        yield agent, log, changes
    finally:
        changes.close()
        log.close()


def until_accepted(network, home, times):
    """For each time, the seconds from the notice of a new address to the first announcement, sent
    to the group on that interface, that the agent has accepted. The announcements follow each other
    closely, and none of them can be heard before the group has been joined there."""
    from namespaces import GROUP, PORT

    with network.computer.entered():
        notices = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW | socket.SOCK_NONBLOCK,
                                socket.NETLINK_ROUTE)
        notices.bind((0, RTMGRP_IPV4_IFADDR))
    with network.device.entered():
        device = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    device.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("10.77.0.1"))
    taken = []
    with notices, device, running(network, home) as (_, log, changes):
        for time_number in range(times):
            started = log.counts[STARTED]
            received = log.counts[RECEIVED]
            changes.make(network.assignment(0))
            noticed, looked, number = None, None, 0
            end = time.monotonic() + PATIENCE
            while log.counts[RECEIVED] == received:
                if noticed is None:
                    looked = time.perf_counter()
                    with contextlib.suppress(BlockingIOError):
                        notices.recv(65536)
                        noticed = time.perf_counter()
                number += 1
                device.sendto(b"event:disk_unmounted;mac:m;uuid:%d-%d" % (time_number, number),
                              (GROUP, PORT))
                log.read()
                if time.monotonic() > end:
                    raise TimeoutError("no announcement has been accepted")
            # Where both came between two looks, the notice did not come before the last of them.
            taken.append(time.perf_counter() - (noticed or looked))
            log.wait_for(STARTED, started + 1)
            changes.make("address del 10.77.0.2/24 dev eth0")
            log.wait_for(STARTED, started + 2)
            # The agent says so before it looks at the addresses.
            time.sleep(0.02)
            with contextlib.suppress(BlockingIOError):
                while notices.recv(65536):
                    pass
    return taken


def after_changes(network, home, times):
    """Descriptors and resident KB after the first tenth of the changes and after all of them, and
    how often the servers were rebuilt. Each change waits for the rebuild that it makes, but not for
    long: the agent makes none where it has seen the new addresses before the notice of them."""

    def state(agent):
        return len(os.listdir(f"/proc/{agent.pid}/fd")), agent.status("VmRSS")

    with running(network, home) as (agent, log, changes):
        for number in range(1, times + 1):
            changes.make(network.assignment(0) if number % 2 == 1
                         else "address del 10.77.0.2/24 dev eth0")
            log.comes(STARTED, log.counts[STARTED] + 1, 0.02)
            time.sleep(0.001)  # what is logged comes before the look at the addresses
            if number == times // 10:
                before = state(agent)
        return before, state(agent), log.counts[STARTED] - 1


def rows(bin_folder, quick=False):
    """The rows of the table: what was measured, the figure, and where the bare system calls stand
    beside it, how many times their time it is."""
    bin_folder = pathlib.Path(bin_folder).resolve()
    os.environ["RAVELIN_DISK_BIN"] = str(bin_folder)
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "system"))
    import agent as agents
    import namespaces

    if not namespaces.may_be_made():
        return [("networks that change", "LEFT OUT: needs root")]
    found = []
    with agents.Home() as home, namespaces.Network() as network:
        network.plug(0)
        times = 10 if quick else 50
        taken = [seconds * 1e3 for seconds in until_accepted(network, home, times)]
        found.append((f"new address to announcement, median of {times}",
                      f"{statistics.median(taken):.2f} ms"))
        found.append((f"new address to announcement, worst of {times}", f"{max(taken):.2f} ms"))
    result = subprocess.run([bin_folder / "ravelin-disk-network-bench", "1" if quick else "10"],
                            check=True, stdout=subprocess.PIPE, timeout=600)
    figures = {name: figure["median"] / 1e3 for name, figure in json.loads(result.stdout).items()}
    for what, name in (("rebuild", "rebuild, 100 servers on 64 addresses"),
                       ("refresh", "refresh of these 6,400 memberships")):
        bare = figures[f"bare {what}"]
        found.append((name, f"{figures[what]:.1f} ms", figures[what] / bare))
        found.append(("  the bare system calls of it", f"{bare:.1f} ms"))
    with agents.Home() as home, namespaces.Network() as network:
        network.plug(0)
        times = 1000 if quick else 10000
        before, after, rebuilds = after_changes(network, home, times)
        found.append((f"rebuilds in {times:,} address changes", f"{rebuilds:,}"))
        found.append((f"descriptors after {times // 10:,} / all of them",
                      f"{before[0]} / {after[0]}"))
        found.append((f"resident after {times // 10:,} / all of them",
                      f"{before[1]} / {after[1]} kB"))
    return found


if __name__ == "__main__":
    for label, value, *ratio in rows(sys.argv[1], "--quick" in sys.argv):
        print(f"{label:<44}{value:>18}", *(f"{one:.2f}" for one in ratio))
