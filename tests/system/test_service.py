"""The agent's service, run by a real systemd of a user, in namespaces of its own."""

import os
import pathlib
import re
import shutil
import subprocess
import time

import pytest

from agent import BIN, HELPER, PATIENCE, Agent, icon, text_of, wait_until

LINUX = pathlib.Path(__file__).resolve().parents[2] / "packaging/linux"
USER = 12345
MARK = "# Ravelin Disk shortcut\n"
LEFT = "Left.app"
# The session, as a display manager's would be.
SESSION = """
[Unit]
BindsTo=graphical-session.target
Before=graphical-session.target
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/bin/true
"""
# What root does first; then the manager is a process of the user's without any rights.
MACHINE = """
set -e
mount -t tmpfs -o mode=755 tmpfs /run
mkdir -p /run/user/$OWNER /run/systemd/system
chown $OWNER:$OWNER /run/user/$OWNER
chmod 700 /run/user/$OWNER
mount -t cgroup2 cgroup2 /sys/fs/cgroup
mkdir -p /sys/fs/cgroup/$PLACE
echo $$ >/sys/fs/cgroup/$PLACE/cgroup.procs
chown -R $OWNER:$OWNER /sys/fs/cgroup/$PLACE
ip link set lo up
/usr/lib/systemd/systemd-journald &
setpriv --reuid=$OWNER --regid=$OWNER --clear-groups --inh-caps=-all --bounding-set=-all \\
  /usr/lib/systemd/systemd --user --log-target=null --unit=basic.target &
wait
"""


PROGRAMS = ("ravelin-disk-agent", "ravelin-disk-announce", "ravelin-disk-tidy", HELPER)


def unit(folder):
    """The service, whose programs are in the folder."""
    return (LINUX / "ravelin-disk.service.in").read_text().replace("@BINDIR@", str(folder))


class Manager:
    """A user's systemd."""

    def __init__(self, home):
        self._home = home
        self._place = f"ravelin-disk-{os.getpid()}-{id(self)}"
        self._environment = {"PATH": os.environ["PATH"], "HOME": str(home.path), "OWNER": str(USER),
                             "PLACE": self._place, "XDG_RUNTIME_DIR": f"/run/user/{USER}"}
        # Where every user may go.
        self._programs = home.base / "bin"
        self._programs.mkdir()
        for name in PROGRAMS:
            shutil.copy(BIN / name, self._programs)
        units = home.path / ".config/systemd/user"
        units.mkdir(parents=True)
        (units / "ravelin-disk.service").write_text(unit(self._programs))
        (units / "session.service").write_text(SESSION)
        home.give_to(USER)
        home.base.chmod(0o755)
        self._process = subprocess.Popen(
            ["unshare", "--mount", "--pid", "--cgroup", "--net", "--fork", "--mount-proc", "--kill-child",
             "--propagation=private", "sh", "-c", MACHINE], env=self._environment, cwd="/")
        wait_until(lambda: self.run("systemctl", "--user", "is-system-running", check=False) == "running\n",
                   "the user's systemd")

    def run(self, *command, user=USER, check=True):
        """What the command prints, run by the user beside the manager."""
        of_process = f"/proc/{self._process.pid}/ns"
        result = subprocess.run(
            ["nsenter", f"--mount={of_process}/mnt", f"--net={of_process}/net",
             f"--pid={of_process}/pid_for_children",
             "setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", *command],
            env=self._environment, cwd="/", check=check, capture_output=True, text=True, timeout=PATIENCE)
        return result.stdout

    def program(self, name):
        return self._programs / name

    def control(self, *arguments):
        return self.run("systemctl", "--user", *arguments)

    def agent(self):
        """The agent's number, in the manager's namespace; 0 where none is running."""
        shown = self.control("show", "--property=MainPID,SubState", "ravelin-disk.service")
        values = dict(line.split("=") for line in shown.splitlines())
        return int(values["MainPID"]) if values["SubState"] == "running" else 0

    def announce(self, port, **options):
        given = [word for name, value in options.items() for word in (f"--{name}", value)]
        self.run(self._programs / "ravelin-disk-announce", "mounted", "127.0.0.1", str(port), "--quiet", *given)

    def mount(self, port, label):
        def is_there():
            self.announce(port, label=label, uuid=label)
            return (self._home.desktop / f"{label}.app").exists()
        wait_until(is_there, f"shortcut of {label}", period=0.25)

    def journal(self):
        return self.run("journalctl", "--no-pager", "-o", "cat", user=0)

    def end(self):
        self._process.kill()
        self._process.wait()
        for hierarchy in "/sys/fs/cgroup", "/sys/fs/cgroup/unified":
            place = pathlib.Path(hierarchy) / self._place
            for folder, _, _ in os.walk(place, topdown=False):
                wait_until(lambda folder=folder: not removal_refused(folder), f"removal of {folder}")


def removal_refused(folder):
    try:
        os.rmdir(folder)
    except FileNotFoundError:
        pass
    except OSError:
        return True
    return False


@pytest.fixture(name="port")
def _port(home):
    port = home.free_port()
    home.configure(port)
    return port


@pytest.fixture(name="manager")
def _manager(home, port, needs_root):
    needs_root("a user's systemd")
    manager = Manager(home)
    try:
        manager.control("enable", "--quiet", "ravelin-disk.service")
        yield manager
    finally:
        manager.end()


def test_it_comes_and_goes_with_the_session(home, manager, port):
    assert manager.agent() == 0
    (home.desktop / LEFT).write_text(MARK)
    os.chown(home.desktop / LEFT, USER, USER)
    manager.control("start", "session.service")
    wait_until(manager.agent, "the agent")
    assert home.shortcuts() == []
    manager.mount(port, "USB Disk")
    manager.control("stop", "session.service")
    wait_until(lambda: not manager.agent() and home.shortcuts() == [], "the end of the agent")
    assert manager.control("show", "--property=Result", "ravelin-disk.service") == "Result=success\n"
    # Every line came to the journal, and came once.
    wait_until(lambda: "signal has been catched" in manager.journal(), "the last line")
    journal = manager.journal()
    for line in ("Server has been started!", "signal has been catched and handled."):
        assert journal.count(line) == 1, journal
    assert "removed: Left.app" in journal


def test_it_does_not_start_beside_an_agent_that_somebody_runs(home, manager, port):
    manager.run("sh", "-c", "trap '' HUP; $0 >/dev/null 2>&1 &", manager.program("ravelin-disk-agent"))
    manager.mount(port, "USB Disk")
    manager.control("start", "ravelin-disk.service")
    assert manager.agent() == 0
    assert home.shortcuts() == ["USB Disk.app"]
    assert "running" in manager.journal()


def test_one_that_was_killed_leaves_nothing_and_comes_again(home, manager, port):
    manager.control("start", "ravelin-disk.service")
    first = wait_until(manager.agent, "the agent")
    manager.mount(port, "USB Disk")
    manager.run("kill", "-KILL", str(first))
    wait_until(lambda: home.shortcuts() == [], "removal of what was left")
    assert wait_until(manager.agent, "another agent") != first
    manager.mount(port, "USB Disk")


def test_one_that_cannot_run_is_given_up(home, manager):
    text = home.user_config.read_text()
    home.user_config.write_text(re.sub(r"<integer>\d+</integer>(?=\s*</array>)", "<integer>0</integer>", text))
    # Whether the start still counts as a success depends on how soon the agent ends.
    manager.control("start", "--no-block", "ravelin-disk.service")
    shown = ("show", "--property=ActiveState", "ravelin-disk.service")
    wait_until(lambda: manager.control(*shown) == "ActiveState=failed\n", "the end of the attempts")
    time.sleep(3)
    assert manager.agent() == 0


def test_what_the_agent_needs_is_not_confined(home, manager, port):
    """The trash and the picture, which are helper programs' work, and the group on every interface."""
    (home.desktop / "USB Disk.app").write_text("the user's")
    (home.user_config.parent / "icon.ico").write_bytes(icon())
    home.user_config.write_text(home.user_config.read_text().replace("<false/>", "<true/>"))
    home.give_to(USER)
    manager.run("ip", "link", "add", "local0", "type", "veth", "peer", "name", "local1", user=0)
    manager.run("ip", "address", "add", "192.0.2.1/24", "dev", "local0", user=0)
    manager.run("ip", "link", "set", "local0", "up", user=0)
    manager.control("start", "ravelin-disk.service")
    process = wait_until(manager.agent, "the agent")
    shortcut = home.desktop / "USB Disk.app"

    def has_picture():
        manager.announce(port, label="USB Disk")
        picture = f"\nIcon={home.user_config.parent}/icon.ico\n"
        return picture in text_of(shortcut)

    wait_until(has_picture, "shortcut with its picture", period=0.25)
    assert (home.trash / "USB Disk.app").read_text() == "the user's"
    assert "0100FFEF" in manager.run("cat", "/proc/net/igmp")
    # News of addresses come in.
    manager.run("ip", "address", "add", "192.0.2.2/24", "dev", "local0", user=0)
    wait_until(lambda: manager.journal().count("Server has been started!") == 2, "servers made anew")
    status = manager.run("cat", f"/proc/{process}/status")
    assert "NoNewPrivs:\t1\n" in status and "Seccomp:\t2\n" in status


def test_it_is_confined_as_far_as_it_was(tmp_path):
    """The figure of systemd-analyze, of which most is for services of the system alone."""
    file = tmp_path / "ravelin-disk.service"
    file.write_text(unit(BIN))
    environment = {"PATH": os.environ["PATH"], "XDG_RUNTIME_DIR": str(tmp_path)}
    verified = subprocess.run(["systemd-analyze", "--user", "verify", "--man=no", file], env=environment,
                              capture_output=True, text=True, check=False)
    assert (verified.returncode, verified.stderr) == (0, "")
    shown = subprocess.run(["systemd-analyze", "--user", "security", "--offline=true", "--threshold=63", file],
                           env=environment, capture_output=True, text=True, check=False)
    assert shown.returncode == 0, shown.stdout[-200:]


def autostart(home, **commands):
    """Runs what sessions without systemd run, from where it is installed, with these commands in the
    PATH; returns the process."""
    folder = home.base / "prefix/libexec/ravelin-disk"
    folder.mkdir(parents=True, exist_ok=True)
    program = folder / "ravelin-disk-autostart"
    program.write_text((LINUX / "ravelin-disk-autostart.in").read_text().replace(
        "@PROGRAMS_FROM_HELPERS@", "../../bin"))
    program.chmod(0o755)
    if not (home.base / "prefix/bin").exists():
        (home.base / "prefix/bin").symlink_to(BIN)
    tools = home.base / "tools"
    tools.mkdir(exist_ok=True)
    for name, text in commands.items():
        (tools / name).write_text(f"#!/bin/sh\n{text}\n")
        (tools / name).chmod(0o755)
    return [str(program)], f"{tools}:{os.environ['PATH']}"


def test_the_session_without_systemd_starts_the_agent_once(home, port, needs_root):
    needs_root("process numbers of their own")
    (home.desktop / LEFT).write_text(MARK)
    command, path = autostart(home, systemctl="exit 1")
    log = home.base / "logs/0"
    alone = ["unshare", "--pid", "--fork", "--mount-proc", "--kill-child", "env", f"PATH={path}", "sh", "-c",
             f"{command[0]} & until grep -q 'Server has been started!' {log}; do sleep 0.1; done; {command[0]}; "
             "while :; do sleep 1; done"]
    agent = Agent(home, [port], command=alone)
    agent.mount()
    assert home.shortcuts() == ["USB Disk.app"]
    wait_until(lambda: "an agent is running" in agent.log(), "the second attempt")
    assert agent.log().count("Server has been started!") == 1


@pytest.mark.parametrize(("enabled", "started"), [(True, True), (False, False)])
def test_the_session_with_systemd_leaves_it_to_the_service(home, enabled, started):
    calls = home.base / "calls"
    command, path = autostart(home, systemctl=f'''
        echo "$*" >>{calls}
        case $* in *is-enabled*) exit {0 if enabled else 1} ;; esac''')
    subprocess.run(command, env={"PATH": path, "HOME": str(home.path)}, check=True, timeout=PATIENCE)
    assert ("--user start ravelin-disk.service" in calls.read_text().splitlines()) == started
