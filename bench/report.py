#!/usr/bin/env python3
"""Runs the benches and measures the real agent, and prints one table of all of it.

Usage: report.py BIN [--quick] [--document FILE]

BIN is the folder of the executables. A missed target is told in the table; the exit status tells
only whether everything could be measured. With --quick fewer and smaller measurements are made,
which shows that they work, not what they are worth. With --document the table is put into the file,
too, in Markdown, between the two comments that mark its place.
"""

import argparse
import contextlib
import json
import os
import plistlib
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

import documents
import neighbour
import network
import volumes

RESIDENT_LIMIT = 4608  # kB
KNOWN_DISKS = 4096  # as many as there may be
SENDERS = 4  # that it takes at least
KNOWN_LIMIT = 2048  # kB
SCALE_LIMIT = 2.0
SILENCE = 2.6  # seconds
SETTLING = 2.0  # seconds that the agent is left alone before it is looked at
PATIENCE = 60.0  # seconds


class Table:
    """Lines of text, in sections, printed as they come in."""

    def __init__(self):
        self.sections = []  # of a title, notes, and lines as they are given to `line`

    def section(self, title, *notes):
        print(f"\n{title}")
        for note in notes:
            print(f"  ({note})")
        sys.stdout.flush()
        self.sections.append((title, notes, []))

    def line(self, name, figure, ratio=None, target="", met=None):
        ratio_text = "" if ratio is None else f"{ratio:.2f}"
        met_text = "" if met is None else "met" if met else "MISSED"
        print(f"  {name:<44}{figure:>16}{ratio_text:>9}  {target:<8} {met_text}".rstrip())
        sys.stdout.flush()
        self.sections[-1][2].append((name, figure, ratio_text, target, met_text))


def memory_folder():
    """Where temporary files cost no disk, if there is such a place."""
    return "/dev/shm" if os.access("/dev/shm", os.W_OK) else tempfile.gettempdir()


class Benches:
    """The results of ravelin-disk-bench, by name: the median of the repetitions."""

    def __init__(self, executable):
        self._executable = executable

    def run(self, pattern, repetitions, *flags):
        command = [
            self._executable,
            f"--benchmark_filter=^({pattern})",
            f"--benchmark_repetitions={repetitions}",
            "--benchmark_enable_random_interleaving=true",
            "--benchmark_format=json",
            *flags,
        ]
        done = subprocess.run(
            command, env=dict(os.environ, TMPDIR=memory_folder()), capture_output=True, text=True
        )
        if done.returncode != 0:
            sys.exit(f"{' '.join(command)}\n{done.stderr}")
        measured = {}
        for entry in json.loads(done.stdout)["benchmarks"]:
            if entry.get("run_type") == "aggregate":
                continue
            if entry.get("error_occurred"):
                sys.exit(f"{entry['name']}: {entry['error_message']}")
            measured.setdefault(entry["run_name"], []).append(entry)
        return measured


def median(measured, name, field):
    """Of the bench whose name is this, or begins with it and a slash."""
    for run_name, entries in measured.items():
        if run_name == name or run_name.startswith(name + "/"):
            return statistics.median(entry[field] for entry in entries)
    sys.exit(f"{name} has not been measured")


def show_reception(table, benches, quick):
    table.section(
        "Datagrams of 83 bytes, received on one core",
        "ratio: to a tight loop of recvfrom",
    )
    measured = benches.run("reception/", 3 if quick else 40)
    base = median(measured, "reception/bare", "items_per_second")
    for name, title, target in (
        ("bare", "recvfrom in a tight loop", None),
        ("server", "server, taken by nobody", 0.9),
        ("intake", "server, parsed, judged and queued", 0.7),
        ("repeated", "the same, most of them repeated", 0.75),
    ):
        rate = median(measured, "reception/" + name, "items_per_second")
        ratio = rate / base
        if target is None:
            table.line(title, f"{rate:,.0f} /s", ratio)
        else:
            table.line(title, f"{rate:,.0f} /s", ratio, f">= {target}", ratio >= target)


class BareListener:
    """A loop of blocking reads on a port of the loopback interface, in the place of an agent."""

    def __init__(self, folder):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self._process = subprocess.Popen(
            [os.path.join(folder, "ravelin-disk-paced-bench"), "receive", str(self.port)],
            stdout=subprocess.PIPE,
        )
        self._process.stdout.readline()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.communicate()

    def worked(self):
        return worked(self._process.pid)


def lost(port):
    """Datagrams that the system dropped before the listener on the port could read them."""
    with open("/proc/net/udp", encoding="ascii") as file:
        return sum(
            int(line.split()[-1])
            for line in list(file)[1:]
            if int(line.split()[1].split(":")[1], 16) == port
        )


def worked(process):
    """The processor time of all threads so far, in seconds."""
    total = 0
    for thread in os.listdir(f"/proc/{process}/task"):
        with open(f"/proc/{process}/task/{thread}/schedstat", encoding="ascii") as file:
            total += int(file.read().split()[0])
    return total * 1e-9


def show_paced(table, folder, quick):
    """The announcements come one by one, so that each wakes its listener."""
    rate = 40_000
    count = rate // 10
    text = (
        "event:disk_status;mac:02:00:00:00:00:01;ip:192.0.2.10;uuid:0000-0000;label:Paced 0001"
    )
    sender = os.path.join(folder, "ravelin-disk-paced-bench")
    costs = {"bare": [], "agent": []}
    with Agent(folder) as agent, BareListener(folder) as bare:
        agent.announce_many(1)
        for _ in range(6 if quick else 40):
            for name, listener in ("bare", bare), ("agent", agent):
                before = lost(listener.port), listener.worked()
                subprocess.run(
                    [sender, "send", str(listener.port), str(rate), str(count), text], check=True
                )
                time.sleep(0.02)
                if lost(listener.port) == before[0]:
                    costs[name].append((listener.worked() - before[1]) / count * 1e9)
                elif listener is agent:
                    time.sleep(SILENCE)  # for which the agent may not listen to this sender
    table.section(
        f"A known disk's announcement, {rate:,} times a second, by processor time",
        "ratio: to a loop of blocking recvfrom",
    )
    if not costs["bare"] or not costs["agent"]:
        table.line("LEFT OUT", "datagrams lost")
        return
    # Other processes can only add to it.
    bare, cost = min(costs["bare"]), min(costs["agent"])
    table.line("recvfrom in a loop", f"{bare:,.0f} ns")
    table.line("the agent", f"{cost:,.0f} ns", cost / bare, "<= 1.3", cost / bare <= 1.3)


def show_parser(table, benches, quick):
    table.section("Parsing one announcement")
    flags = ["--benchmark_min_time=0.02"] if quick else ["--benchmark_min_time=0.1"]
    measured = benches.run("parse/", 1 if quick else 9, *flags)
    for name, title in (
        ("status", "disk_status, 83 bytes"),
        ("mounted", "disk_mounted, logged"),
        ("large_label", "1,400 bytes, most of it the label"),
        ("many_items", "1,400 bytes, 200 items"),
        ("unknown_key", "unknown key in front"),
        ("not_ascii", "not ASCII"),
    ):
        table.line(title, f"{median(measured, 'parse/' + name, 'cpu_time'):,.0f} ns")


def show_scaling(table, benches, quick):
    table.section(
        "One step among few and among many known disks or waiting events",
        "ratio: to the cost at 10; known disks are met in the order of mounting, or at random;",
        "at random it takes about 0.1 us to get one from memory into the processor's cache",
    )
    measured = benches.run("scaling/.*/(10|1000)/" if quick else "scaling/", 1 if quick else 7)
    for name, title, largest, orders in (
        ("intake", "duplicate test and enqueue", 16384, 1),
        ("repeated", "parsing and duplicate test, a repeated event", 16384, 2),
        ("dequeue", "dequeue", 16384, 1),
        ("find", "look-up by uuid", 4096, 2),
        ("append", "addition to the mounted disks", 4096, 1),
        ("remove", "removal from the mounted disks", 4096, 2),
        ("handled", "whole handled event, a known disk's status", 4096, 2),
    ):
        base = median(measured, f"scaling/{name}/10/0", "step_ns")
        table.line(title, f"{base:,.0f} ns")
        sizes = [(1000, 0)]
        if not quick:
            sizes += [(largest, order) for order in range(orders)]
        for size, order in sizes:
            cost = median(measured, f"scaling/{name}/{size}/{order}", "step_ns")
            ratio = cost / base
            table.line(
                f"    at {size:,}{', at random' if order else ''}",
                f"{cost:,.0f} ns",
                ratio,
                f"<= {SCALE_LIMIT:.0f}",
                ratio <= SCALE_LIMIT,
            )


def show_shortcuts(table, benches, quick):
    table.section(
        "10,000 shortcuts, each",
        f"ratio: to the bare system calls; in {memory_folder()}",
    )
    measured = benches.run("shortcuts/", 1 if quick else 5)
    for field, did, calls, target in (
        ("make_us", "made", "open, write, close", 4),
        ("remove_us", "removed", "unlink", 2),
    ):
        base = median(measured, "shortcuts/bare", field)
        for name, way in (
            ("bare", calls),
            ("one_thread", "all on one thread"),
            ("agent", "as in the agent, on two threads"),
        ):
            cost = median(measured, "shortcuts/" + name, field)
            ratio = cost / base
            judged = () if name == "bare" else (f"<= {target}", ratio <= target)
            table.line(f"{did}: {way}", f"{cost:.1f} us", ratio, *judged)


class Agent:
    """The real agent in a home of its own, listening on one port of the loopback interface."""

    def __init__(self, folder):
        self._folder = folder
        self.home = tempfile.mkdtemp(prefix="ravelin-disk-", dir=memory_folder())
        self.desktop = os.path.join(self.home, "Desktop")
        self._support = support = os.path.join(self.home, "data", "RavelinDisk")
        os.makedirs(self.desktop)
        os.makedirs(support)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        with open(os.path.join(support, "Ravelin Disk Config.plist"), "wb") as file:
            plistlib.dump(
                {
                    "MulticastAddresses": [["239.255.77.1", self.port]],
                    "JoinIGMP": False,
                    "IGMPMembershipRefreshRate": 3600,
                },
                file,
            )
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)

    def __enter__(self):
        environment = dict(
            os.environ,
            HOME=self.home,
            XDG_DATA_HOME=os.path.join(self.home, "data"),
            XDG_CONFIG_HOME=os.path.join(self.home, "config"),
            XDG_DATA_DIRS=os.path.join(self.home, "share") + ":/usr/share",
        )
        self._log_path = os.path.join(self.home, "agent.log")
        with open(self._log_path, "wb") as log:
            self._process = subprocess.Popen(
                [os.path.join(self._folder, "ravelin-disk-agent")], env=environment, stderr=log
            )
        self.wait_until(lambda: "Server has been started!" in self.log(), "the agent has started")
        return self

    def __exit__(self, *_):
        self._process.send_signal(signal.SIGTERM)
        try:
            status = self._process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self._process.kill()
            status = "none within a minute"
        left = os.listdir(self.desktop)
        self._socket.close()
        shutil.rmtree(self.home, ignore_errors=True)
        if status != 0 or left:
            sys.exit(f"the agent: exit status {status}, {len(left)} shortcuts left behind")

    def log(self):
        with open(self._log_path, encoding="utf-8", errors="replace") as log:
            return log.read()

    def wait_until(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end or self._process.poll() is not None:
                sys.exit(f"not so: {what}\nThe log of the agent:\n{self.log()}")
            time.sleep(0.001)

    def announce_mounted(self, number):
        text = (
            "event:disk_mounted;mac:02:00:00:00:00:01;ip:192.0.2.10;"
            f"uuid:late-{number};label:Late {number}"
        )
        self._socket.sendto(text.encode(), ("127.0.0.1", self.port))
        return os.path.join(self.desktop, f"Late {number}.app")

    def announce_many(self, count):
        subprocess.run(
            [
                os.path.join(self._folder, "ravelin-disk-announce"),
                *("status", "127.0.0.1", str(self.port)),
                *("--disks", str(count), "--pace", "1000", "--quiet"),
            ],
            check=True,
        )
        self.wait_until(lambda: len(os.listdir(self.desktop)) == count, f"{count} shortcuts")

    def announce_from_many(self, count, senders):
        """Each sender, an address of the loopback interface, has as many disks as the others."""
        addresses = [f"127.0.0.{number}" for number in range(2, 2 + senders)]
        with contextlib.ExitStack() as open_sockets:
            sockets = []
            for address in addresses:
                sockets.append(
                    open_sockets.enter_context(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
                )
                sockets[-1].bind((address, 0))
            for number in range(count):
                text = (
                    f"event:disk_status;mac:02:00:00:00:00:{number % senders:02};"
                    f"ip:{addresses[number % senders]};"
                    f"uuid:{number >> 16:04X}-{number & 0xFFFF:04X};label:USB Disk {number:05}"
                )
                sockets[number % senders].sendto(text.encode(), ("127.0.0.1", self.port))
                time.sleep(0.001)
        self.wait_until(lambda: len(os.listdir(self.desktop)) == count, f"{count} shortcuts")

    def _number(self, path, key):
        with open(f"/proc/{self._process.pid}/{path}", encoding="ascii") as file:
            for line in file:
                if line.startswith(key + ":"):
                    return int(line.split()[1])
        sys.exit(f"/proc says nothing about {key}")

    def worked(self):
        return worked(self._process.pid)

    def lost(self):
        return lost(self.port)

    def peak(self):
        """In kB."""
        return self._number("status", "VmHWM")

    def install_icon(self, picture):
        """Every shortcut wears it from now on."""
        with open(os.path.join(self._support, "icon.ico"), "wb") as file:
            file.write(picture)

    def resident(self):
        """In kB."""
        return self._number("status", "VmRSS")

    def proportional(self):
        """In kB; what is shared with other processes counts in part."""
        return self._number("smaps_rollup", "Pss")

    def switches(self):
        """How often each thread has gone to sleep, the main thread's first, then the others'."""
        threads = sorted(int(name) for name in os.listdir(f"/proc/{self._process.pid}/task"))
        threads.remove(self._process.pid)
        return [
            self._number(f"task/{thread}/status", "voluntary_ctxt_switches")
            for thread in [self._process.pid, *threads]
        ]


def show_rest(table, agent, seconds, targets):
    """What the agent takes while nothing happens."""
    time.sleep(SETTLING)
    before = agent.switches()
    time.sleep(seconds)
    main, *others = [late - early for early, late in zip(before, agent.switches())]
    resident = agent.resident()

    def judged(target, met):
        return (None, target, met) if targets else ()

    table.line(
        "resident size",
        f"{resident:,} kB",
        *judged(f"<= {RESIDENT_LIMIT:,}", resident <= RESIDENT_LIMIT),
    )
    table.line("proportional size", f"{agent.proportional():,} kB")
    for thread, wakes in ("main", main), ("handler", sum(others)):
        table.line(f"{thread} thread wakes up", f"{wakes} times", *judged("0", wakes == 0))
    if len(others) != 1:
        table.line("threads beside the main one", f"{len(others)}", None, "1", False)


def show_agent(table, folder, quick):
    seconds = 3.0 if quick else 10.0
    with Agent(folder) as agent:
        table.section(f"The idle agent, over {seconds:.0f} seconds")
        show_rest(table, agent, seconds, True)
        agent.announce_many(1000)
        table.section(f"The same with 1,000 disks mounted, over {seconds / 2:.0f} seconds")
        show_rest(table, agent, seconds / 2, False)


def show_known(table, folder):
    """What as many disks as there may be cost, each with a shortcut on the desktop."""
    with Agent(folder) as agent:
        time.sleep(SETTLING)
        idle = agent.resident()
        agent.announce_from_many(KNOWN_DISKS, SENDERS)
        time.sleep(SETTLING)
        more = agent.resident() - idle
    table.section(f"{KNOWN_DISKS:,} known disks of {SENDERS} senders")
    table.line("resident size without one", f"{idle:,} kB")
    table.line(
        "more with all of them",
        f"{more:,} kB",
        None,
        f"<= {KNOWN_LIMIT:,}",
        more <= KNOWN_LIMIT,
    )


def show_latency(table, folder, quick):
    count = 4 if quick else 20
    latencies = []
    with Agent(folder) as agent:
        for number in range(count):
            # Events are handled at intervals: this spreads the announcements over one of them.
            time.sleep(0.5 * number / count)
            start = time.monotonic()
            path = agent.announce_mounted(number)
            agent.wait_until(lambda: os.path.exists(path), f"there is {path}")
            latencies.append(time.monotonic() - start)
    table.section(f"From the announcement to the shortcut, {count} times")
    table.line("median", f"{statistics.median(latencies) * 1000:.0f} ms")
    table.line("worst", f"{max(latencies) * 1000:.0f} ms")


def show_networks(table, folder, quick):
    table.section("Changing networks", "ratio: to the bare system calls")
    for name, figure, *ratio in network.rows(folder, quick):
        table.line(name, figure, *ratio)


def show_neighbour(table, folder, quick):
    table.section("Beside avahi-daemon, in one run", "ratio: to its figure")
    compared, reason = neighbour.compared(folder, quick)
    if compared is None:
        table.line("avahi-daemon", f"LEFT OUT: {reason}")
        return
    for name, form, own, other in compared:
        # What is mapped and shared with others is no matter of who is lighter.
        judged = () if name.startswith("resident") else ("< 1", own < other or own == 0)
        table.line(name, form.format(own), own / other if other else None, *judged)
        table.line("  avahi-daemon's", form.format(other))


def show_volumes(table, folder, quick):
    table.section(
        "Mounting", "ratio: to bare GIO in one process, and to a bare search for the text"
    )
    for name, figure, *ratio in volumes.rows(folder, quick):
        table.line(name, figure, *ratio)


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("bin", help="the folder of the executables")
    parser.add_argument("--quick", action="store_true", help="fewer and smaller measurements")
    parser.add_argument("--document", metavar="FILE", help="a document to put the table into")
    arguments = parser.parse_args()
    if arguments.document:
        documents.look_for_place(arguments.document)
    table = Table()
    benches = Benches(os.path.join(arguments.bin, "ravelin-disk-bench"))
    machine = documents.machine()
    print(machine)
    show_reception(table, benches, arguments.quick)
    show_parser(table, benches, arguments.quick)
    show_scaling(table, benches, arguments.quick)
    show_shortcuts(table, benches, arguments.quick)
    show_agent(table, arguments.bin, arguments.quick)
    show_known(table, arguments.bin)
    show_paced(table, arguments.bin, arguments.quick)
    show_latency(table, arguments.bin, arguments.quick)
    show_networks(table, arguments.bin, arguments.quick)
    show_neighbour(table, arguments.bin, arguments.quick)
    show_volumes(table, arguments.bin, arguments.quick)
    if arguments.document:
        documents.put(arguments.document, machine, table.sections)


if __name__ == "__main__":
    main()
