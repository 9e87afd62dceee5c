"""The computer that the agent runs on: its cables, its log service, its desktop and its user, and the
agent itself. Everything is apart from this machine: the network, /run and /dev are namespaces'."""

import contextlib
import os
import pathlib
import plistlib
import re
import signal
import socket
import stat

from agent import BIN, HELPER, Agent, Home, icon, wait_until
from clock import Clock
from model import FOLDER, Shortcut, Thing
from namespaces import GROUP, PORT, Network, OwnMounts

JOURNAL = pathlib.Path("/run/systemd/journal/socket")
SYSLOG = pathlib.Path("/dev/log")
MAGIC = "# Ravelin Disk shortcut\n"
REFRESH = 300
LIBRARY = BIN.parent / "soak/ravelin-disk-stepped-clock.so"
HELPER_SCRIPT = """
read mode < {mode}
case $mode in
  works) exec {helper} "$@" ;;
  fails) exit 1 ;;
  crashes) kill -SEGV $$ ;;
  hangs) exec sleep 1000 ;;
esac"""
LOG_LIMIT = 1024 * 1024


class LogService(contextlib.AbstractContextManager):
    """A stand-in for the journal or for syslog's service."""

    def __init__(self, path):
        self._path = path
        self._socket = None
        self.reads = True
        path.parent.mkdir(parents=True, exist_ok=True)
        self.start()

    def __exit__(self, *_):
        self.stop()

    def start(self):
        self.stop()
        self.reads = True
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.setblocking(False)
        self._socket.bind(str(self._path))

    def stop(self):
        if self._socket is not None:
            self._socket.close()
            self._socket = None
            self._path.unlink()

    def read(self):
        """Takes what has come, unless it does not read just now."""
        if self._socket is None or not self.reads:
            return
        with contextlib.suppress(BlockingIOError):
            while True:
                self._socket.recv(65536)


class Computer(contextlib.AbstractContextManager):
    """There is no agent until it is started."""

    CABLES = 2

    def __init__(self):
        self._closing = contextlib.ExitStack()
        try:
            self._set_up()
        except BaseException:
            self._closing.close()
            raise

    def __exit__(self, *_):
        self._closing.close()

    def _set_up(self):
        enter = self._closing.enter_context
        mounts = enter(OwnMounts())
        mounts.mount_memory("/run")
        mounts.mount_memory("/dev")
        for name, minor in ("null", 3), ("urandom", 9):
            os.mknod(f"/dev/{name}", 0o666 | stat.S_IFCHR, os.makedev(1, minor))
            os.chmod(f"/dev/{name}", 0o666)
        self.logs = [enter(LogService(JOURNAL)), enter(LogService(SYSLOG))]
        self.network = enter(Network())
        for interface in "all", "default":
            self.network.computer.set(f"conf/{interface}/rp_filter", 0)
        self.home = enter(Home())
        (self.home.desktop / FOLDER).mkdir()
        self.clock = enter(Clock(self.home.base, LIBRARY))
        self._mode = self.home.base / "helper-mode"
        self._executable = self.home.install(
            HELPER_SCRIPT.format(mode=self._mode, helper=BIN / HELPER))
        self._helper = self._executable.parent / HELPER
        self.set_helper("works")
        self._log = self.home.base / "logs/soak"
        self.home.user_config.parent.mkdir(parents=True)
        self.home.user_config.write_bytes(plistlib.dumps({
            "MulticastAddresses": [[GROUP, PORT], [GROUP, PORT + 1]],
            "JoinIGMP": True,
            "IGMPMembershipRefreshRate": REFRESH,
        }))
        self.agent = None
        # Datagrams that different processors deliver may overtake each other.
        self._processors = os.sched_getaffinity(0)
        self._closing.callback(os.sched_setaffinity, 0, self._processors)
        self._stay()

    def _stay(self):
        os.sched_setaffinity(0, {min(self._processors)})

    # The agent

    def start_agent(self):
        """Returns once it is at rest. The clock has been standing still."""
        os.sched_setaffinity(0, self._processors)
        with self.network.computer.entered(), self._log.open("ab") as log:
            self.agent = Agent(self.home, [PORT], stderr=log,
                               command=self.clock.command(self._executable))
        self._stay()
        self.clock.greet_agent()
        self.clock.settle()

    def end_agent(self, number):
        """By that signal; it must end as the signal asks."""
        self.agent.signal(number)
        status = self.agent.exit_status()
        assert status == (0 if number == signal.SIGTERM else -number), f"exit status {status}"
        self.agent.kill()
        self.home.agents.remove(self.agent)
        self.agent = None
        self.clock.forget_agent()

    def pause_agent(self):
        self.agent.signal(signal.SIGSTOP)
        wait_until(lambda: self._state() == "T", "the agent asleep")

    def continue_agent(self):
        self.agent.signal(signal.SIGCONT)

    def _state(self):
        status = pathlib.Path(f"/proc/{self.agent.pid}/stat").read_text(encoding="latin-1")
        return status.rpartition(")")[2].split()[0]

    def datagrams(self):
        """How many the agent has read, and how many the system has dropped before it could."""
        lines = pathlib.Path(f"/proc/{self.agent.pid}/net/snmp").read_text().splitlines()
        names, numbers = (line.split() for line in lines if line.startswith("Udp:"))
        figures = dict(zip(names[1:], map(int, numbers[1:])))
        return figures["InDatagrams"], figures["InErrors"]

    def wait_for_datagrams(self, before, count):
        """As many more than before have come to the agent, and none was lost."""
        def have_come():
            read, lost = self.datagrams()
            assert lost == before[1], "the system has lost datagrams that did not come too fast"
            return read >= before[0] + count

        wait_until(have_come, f"the agent hearing {count} datagrams", period=0.0002)

    def figures(self):
        """What must stay level: KiB of its own, KiB resident but for the program and its
        libraries, descriptors, threads, children."""
        memory = pathlib.Path(f"/proc/{self.agent.pid}/smaps_rollup").read_text()
        children = "".join(path.read_text() for path in
                           pathlib.Path(f"/proc/{self.agent.pid}/task").glob("*/children"))
        return {
            "private": int(re.search(r"^Private_Dirty:\s*(\d+)", memory, re.MULTILINE)[1]),
            "resident": (int(re.search(r"^Rss:\s*(\d+)", memory, re.MULTILINE)[1])
                         - self.agent.held_of_files()),
            "descriptors": len(os.listdir(f"/proc/{self.agent.pid}/fd")),
            "threads": self.agent.status("Threads"),
            "children": len(children.split()),
        }

    def tidy_log(self):
        if self._log.stat().st_size > LOG_LIMIT:
            os.truncate(self._log, 0)

    def log_tail(self):
        return self._log.read_bytes()[-3000:].decode("latin-1")

    # The user

    def set_helper(self, mode):
        """What the agent's helper program does from now on."""
        self._mode.write_text(f"{mode}\n")
        self._helper.chmod(0o644 if mode == "cannot be run" else 0o755)

    def put_picture(self):
        """A new one, for the icons. Returns its path."""
        path = self.home.user_config.parent / "icon.ico"
        path.write_bytes(icon())
        return path

    def shown(self):
        """What lies on the desktop, by its path there."""
        found = {}
        top = str(self.home.desktop)
        for folder, _, files in os.walk(top):
            for name in files:
                path = os.path.join(folder, name)
                found[os.path.relpath(path, top)] = self._item(path)
        return found

    @staticmethod
    def _item(path):
        with open(path, encoding="latin-1", newline="") as file:
            text = file.read()
        if not text.startswith(MAGIC):
            return Thing(text)
        values = dict(line.partition("=")[::2] for line in text.splitlines()[1:])
        return Shortcut(values.get("Name"), values.get("URL"), values.get("Icon"))

    def trash(self):
        if not self.home.trash.exists():
            return []
        return sorted(path.read_text() for path in self.home.trash.iterdir())

    def empty_trash(self):
        for folder in self.home.trash, self.home.trash.parent / "info":
            for path in folder.iterdir():
                path.unlink()
