"""A user's session of its own with GVfs, and SMB servers on loopback addresses: processes, network,
mounts and session bus apart from those of this computer, and gone when the test is."""

import contextlib
import os
import pathlib
import pwd
import signal
import subprocess
import tempfile
import time

BIN = pathlib.Path(os.environ["RAVELIN_DISK_BIN"])
PATIENCE = 120
SMB_PORT = 445
_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, f"not within {PATIENCE} s: {what}"
        time.sleep(0.02)


class Session(contextlib.AbstractContextManager):
    """The session; everything runs as this user."""

    def __init__(self, fuse=True):
        self._closing = contextlib.ExitStack()
        try:
            self._start(fuse)
        except BaseException:
            self._closing.close()
            raise

    def __exit__(self, *_):
        self._closing.close()

    def _start(self, fuse):
        self.base = pathlib.Path(
            self._closing.enter_context(tempfile.TemporaryDirectory(prefix="ravelin-disk-"))
        )
        self.home = self.base / "home"
        self.desktop = self.home / "Desktop"
        self.runtime = self.base / "run"
        self.desktop.mkdir(parents=True)
        self.runtime.mkdir(mode=0o700)
        self.environment = {
            "PATH": _PATH,
            "LANG": "C.UTF-8",
            "HOME": str(self.home),
            "XDG_DATA_HOME": str(self.home / ".local/share"),
            "XDG_CONFIG_HOME": str(self.home / ".config"),
            "XDG_DATA_DIRS": "/usr/local/share:/usr/share",
            "XDG_RUNTIME_DIR": str(self.runtime),
            "DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.runtime}/bus",
        }
        self.environment |= {
            name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")
        }
        # With the first process of the process namespace all others end.
        holder = subprocess.Popen(
            ["unshare", "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
             "sh", "-c", "ip link set lo up && echo ready && exec sleep infinity"],
            stdout=subprocess.PIPE,
        )
        self._closing.callback(holder.wait, PATIENCE)
        self._closing.callback(holder.kill)
        assert holder.stdout.readline() == b"ready\n"
        holder.stdout.close()
        children = pathlib.Path(f"/proc/{holder.pid}/task/{holder.pid}/children").read_text()
        self._inside = ["nsenter", "--target", children.strip(), "--net", "--mount", "--pid", "--"]
        self.start("dbus-daemon", "--session", "--nofork", "--nopidfile",
                   f"--address=unix:path={self.runtime}/bus")
        wait_until((self.runtime / "bus").exists, "the session bus")
        if not fuse:
            self.start("/usr/libexec/gvfsd", "--no-fuse")
            wait_until(lambda: self.has_name("org.gtk.vfs.Daemon"), "GVfs")

    def start(self, *command):
        """Starts a program that goes on in the background, without a word."""
        process = subprocess.Popen(
            [*self._inside, *map(str, command)],
            env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        self._closing.callback(process.wait, PATIENCE)
        self._closing.callback(process.kill)
        return process

    def open(self, *command, environment=None, **how):
        """A program of which the test holds both ends."""
        return subprocess.Popen(
            [*self._inside, *map(str, command)], env=self.environment | (environment or {}),
            text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **how,
        )

    def run(self, *command, environment=None):
        """Runs a program to its end: its exit status, its output and its error output."""
        result = subprocess.run(
            [*self._inside, *map(str, command)], env=self.environment | (environment or {}),
            stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE, text=True, check=False,
        )
        return result.returncode, result.stdout, result.stderr

    def read(self, path):
        """The content of a file as the session sees it, or the reason why it cannot be read."""
        status, output, error = self.run("cat", path)
        return output if status == 0 else error.strip().split(": ")[-1]

    def list(self, folder):
        status, output, error = self.run("ls", "-A", folder)
        return output.splitlines() if status == 0 else error.strip().split(": ")[-1]

    def has_name(self, name):
        status, output, _ = self.run(
            "dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus", "/",
            "org.freedesktop.DBus.NameHasOwner", f"string:{name}",
        )
        return status == 0 and "true" in output

    def volume(self, *arguments, **how):
        return self.run(BIN / "ravelin-disk-volume", *arguments, **how)


class SmbServer(contextlib.AbstractContextManager):
    """A private smbd on one loopback address of the session. Its shares are folders, some of them
    for guests and some not; of two settings with one name, these count."""

    def __init__(self, session, address, guests=(), members=(), settings=()):
        self._session = session
        self.address = address
        self.folder = session.base / f"server-{address}"
        lines = [
            "[global]",
            "server role = standalone server",
            f"interfaces = {address}/8",
            "bind interfaces only = yes",
            f"smb ports = {SMB_PORT}",
            "disable netbios = yes",
            "map to guest = Bad User",
            f"guest account = {pwd.getpwuid(os.getuid()).pw_name}",
            "load printers = no",
            "disable spoolss = yes",
            f"log file = {self.folder}/log",
        ]
        for setting in ("pid directory", "lock directory", "state directory", "cache directory",
                        "private dir", "ncalrpc dir"):
            folder = self.folder / setting.split()[0]
            folder.mkdir(parents=True)
            lines.append(f"{setting} = {folder}")
        lines += settings
        for name in [*guests, *members]:
            share = self.share(name)
            share.mkdir(parents=True)
            (share / "file.txt").write_text(f"This is {name}.\n")
            lines += [f"[{name}]", f"path = {share}", "read only = no",
                      f"guest ok = {'yes' if name in guests else 'no'}"]
        self._configuration = self.folder / "smb.conf"
        self._configuration.write_text("".join(f"{line}\n" for line in lines))
        self.start()

    def __exit__(self, *_):
        self.stop()

    def share(self, name):
        return self.folder / "shares" / name

    def start(self):
        self._process = self._session.start(
            "smbd", "--foreground", "--configfile", self._configuration, "--debug-stdout",
        )
        wait_until(self._answers, f"the SMB server {self.address}")

    def stop(self):
        """Ends the server and every process that serves a client."""
        self._signal(signal.SIGKILL)
        self._process.wait(PATIENCE)
        wait_until(lambda: not self._answers(), f"the end of the SMB server {self.address}")

    def pause(self):
        """From now on the server takes connections, as the system does so for it, and is silent."""
        self._signal(signal.SIGSTOP)

    def resume(self):
        self._signal(signal.SIGCONT)
        # What has brought it into the namespaces stops with it.
        self._process.send_signal(signal.SIGCONT)

    def _signal(self, number):
        """To the server and every process that serves a client."""
        parents = {}
        for path in pathlib.Path("/proc").iterdir():
            with contextlib.suppress(OSError, ValueError):
                parents[int(path.name)] = int((path / "stat").read_text().rpartition(")")[2].split()[1])
        for pid in parents:
            ancestor = pid
            while ancestor != self._process.pid and ancestor in parents:
                ancestor = parents[ancestor]
            # Newer ones change the name and the command line of those that serve a client.
            with contextlib.suppress(OSError):
                if ancestor == self._process.pid and os.readlink(f"/proc/{pid}/exe").endswith("/smbd"):
                    os.kill(pid, number)

    def _answers(self):
        status, _, _ = self._session.run(
            "python3", "-c",
            f"import socket; socket.create_connection(({self.address!r}, {SMB_PORT}), 5)",
        )
        return status == 0


def _python_server(session, address, lines):
    """A server of the session that listens and then does this."""
    listening = session.base / f"listening-{address}"
    session.start(
        "python3", "-c",
        "import pathlib, socket, threading, time\n"
        f"server = socket.create_server(({address!r}, {SMB_PORT}))\n"
        f"pathlib.Path({str(listening)!r}).touch()\n" + lines,
    )
    wait_until(listening.exists, f"the server {address}")


def silent_server(session, address):
    """A server that takes connections and never says a word."""
    _python_server(session, address, "time.sleep(1e6)\n")


def junk_server(session, address, times=1000):
    """A server that answers with what is no SMB, so often, and ends."""
    _python_server(session, address, f"""
for left in reversed(range({times})):
    connection, _ = server.accept()
    if left == 0:
        server.close()  # whoever has the last answer finds nobody
    connection.recv(65536)
    connection.sendall(b"\\0\\0\\0\\4junk")
    connection.close()
""")


def slow_server(session, address, server, pause):
    """The server at another address, which waits before each of its answers; mounting takes about
    14. The file asked-ADDRESS tells that it has been asked something."""
    _python_server(session, address, f"""
def carry(origin, target, pause):
    while data := origin.recv(65536):
        time.sleep(pause)
        target.sendall(data)
        pathlib.Path({str(session.base / f"asked-{address}")!r}).touch()
    target.shutdown(socket.SHUT_WR)

while True:
    connection, _ = server.accept()
    behind = socket.create_connection(({server.address!r}, {SMB_PORT}))
    threading.Thread(target=carry, args=(connection, behind, 0), daemon=True).start()
    threading.Thread(target=carry, args=(behind, connection, {pause}), daemon=True).start()
""")
