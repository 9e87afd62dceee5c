"""script/run, which has the desktop of its user open shortcuts for as long as it runs."""

import contextlib
import os
import pathlib
import plistlib
import pwd
import re
import shutil
import signal

import pytest

from agent import snapshot
from desktop import BIN, PATIENCE, Session, wait_until

ROOT = pathlib.Path(__file__).resolve().parents[2]
KIND = "application/x-ravelin-disk-shortcut"
HANDLER = "applications/ravelin-disk-open.desktop"


class User(contextlib.AbstractContextManager):
    """A user with a configuration, in a session that sees no processes but its own."""

    def __init__(self, programs=BIN):
        self._closing = contextlib.ExitStack()
        self.session = self._closing.enter_context(Session())
        self.environment = self.session.environment
        self.environment["RAVELIN_DISK_BIN"] = str(programs)
        self.data = pathlib.Path(self.environment["XDG_DATA_HOME"])
        configuration = self.data / "RavelinDisk/Ravelin Disk Config.plist"
        configuration.parent.mkdir(parents=True)
        configuration.write_bytes(plistlib.dumps({"MulticastAddresses": [["239.255.0.1", 5078]]}))
        self.shortcut = self.session.desktop / "USB Disk.app"

    def __exit__(self, *_):
        self._closing.close()

    def start(self):
        return Running(self)

    def refusal(self):
        """Why script/run does not start an agent."""
        status, output, errors = self.session.run(ROOT / "script/run")
        assert (status, output) == (1, "")
        return errors

    def files(self):
        return snapshot(self.session.home)

    def handler(self):
        """What opens shortcuts: the command of the default handler."""
        output = self.session.run("gio", "mime", KIND)[1]
        match = re.match(".*: (.*[.]desktop)$", output.splitlines()[0]) if output else None
        return match and match[1]


class Running:
    """script/run at work. As at a terminal, everything that it starts is in one group."""

    def __init__(self, user):
        self._user = user
        self._process = user.session.open(
            "setsid", "sh", "-c", 'echo $$ && exec "$0"', ROOT / "script/run")
        self.number = int(self._process.stdout.readline())
        self.said = self._read_until("Ctrl-C stops", self._process.stdout)
        self._read_until("Server has been started", self._process.stderr)

    @staticmethod
    def _read_until(text, stream):
        read = ""
        while text not in read:
            line = stream.readline()
            assert line, read
            read += line
        return read

    def announce(self):
        """Does what script/run says until the shortcut is there."""
        command = next(line.strip() for line in self.said.splitlines() if "-announce mounted" in line)

        def is_there():
            assert self._user.session.run("sh", "-c", command)[0] == 0
            return self._user.shortcut.exists()

        wait_until(is_there, "the shortcut")

    def agent(self):
        status, output, errors = self._user.session.run(
            "pgrep", "--parent", self.number, "--full", "ravelin-disk-agent")
        assert status == 0, errors
        return int(output)

    def signal(self, name, number):
        assert self._user.session.run("kill", f"-{name}", "--", number)[0] == 0

    def end(self):
        """Waits for the end: its exit status, and what it has said since."""
        output, errors = self._process.communicate(timeout=PATIENCE)
        return self._process.returncode, output + errors


@pytest.fixture(autouse=True)
def _root(needs_root):
    needs_root("tests of script/run")


@pytest.fixture(name="user")
def _user():
    with User() as user:
        yield user


def nothing(_):
    """A user who has added nothing to the desktop."""


def kinds_and_programs(user):
    """A user who has, and has an empty folder besides."""
    for folder in ("mime/packages", "applications", "icons/hicolor/scalable/apps"):
        (user.data / folder).mkdir(parents=True)
    kind = (ROOT / "packaging/linux/ravelin-disk-shortcut.xml").read_text()
    (user.data / "mime/packages/other.xml").write_text(
        kind.replace(KIND, "application/x-other").replace("# Ravelin", "# Other"))
    (user.data / "applications/other.desktop").write_text(
        "[Desktop Entry]\nType=Application\nName=Other\nExec=true\nMimeType=application/x-other;\n")
    for command, folder in (("update-mime-database", "mime"), ("update-desktop-database", "applications")):
        assert user.session.run(command, user.data / folder)[0] == 0


def empty_folders(user):
    for folder in ("mime/packages", "applications", "icons"):
        (user.data / folder).mkdir(parents=True)


ENDS = {
    "Ctrl-C": lambda running: running.signal("INT", -running.number),
    "the end of the terminal": lambda running: running.signal("HUP", -running.number),
    "TERM": lambda running: running.signal("TERM", running.number),
    "QUIT": lambda running: running.signal("QUIT", -running.number),
    "the end of the agent": lambda running: running.signal("TERM", running.agent()),
}


@pytest.mark.parametrize("end", ENDS)
def test_shortcuts_open_while_it_runs_and_no_longer(user, end):
    before = user.files()
    running = user.start()
    running.announce()
    assert user.handler() == "ravelin-disk-open.desktop"
    # By the program of this tree, which finds nothing here that could open an SMB share.
    errors = user.session.run("gio", "open", user.shortcut, environment={"GIO_USE_VFS": "local"})[2]
    assert f"ravelin-disk-open: {user.shortcut}: nothing here can open SMB shares" in errors
    icon = user.data / "icons/hicolor/scalable/mimetypes/ravelin-disk.svg"
    assert icon.read_bytes() == (ROOT / "packaging/linux/ravelin-disk.svg").read_bytes()
    ENDS[end](running)
    status, said = running.end()
    assert status == 0, said
    assert user.files() == before
    assert user.handler() is None


@pytest.mark.parametrize("has", [nothing, kinds_and_programs, empty_folders])
def test_what_was_there_stays_as_it_was(user, has):
    has(user)
    before = user.files()
    running = user.start()
    running.announce()
    assert user.handler() == "ravelin-disk-open.desktop"
    running.signal("INT", -running.number)
    assert running.end()[0] == 0
    assert user.files() == before


def test_an_agent_that_is_killed_leaves_its_shortcut_and_no_handler(user):
    before = user.files()
    running = user.start()
    running.announce()
    running.signal("KILL", running.agent())
    assert running.end()[0] == 128 + signal.SIGKILL
    user.shortcut.unlink()
    assert user.files() == before


@pytest.mark.parametrize("has", [nothing, kinds_and_programs, empty_folders])
def test_what_a_killed_run_has_left_is_taken_away_by_the_next(user, has):
    has(user)
    before = user.files()
    killed = user.start()
    agent = killed.agent()
    killed.signal("KILL", killed.number)
    assert str(agent) in user.refusal()
    killed.signal("TERM", agent)
    killed.end()
    assert user.files() != before
    running = user.start()
    running.announce()
    running.signal("INT", -running.number)
    assert running.end()[0] == 0
    assert user.files() == before


def test_a_second_one_says_how_to_end_the_first(user):
    running = user.start()
    running.announce()
    during = user.files()
    said = user.refusal()
    assert f"an agent of yours is running already (process {running.agent()})" in said
    assert user.files() == during
    command = next(line.strip() for line in said.splitlines() if line.startswith("    "))
    assert user.session.run("sh", "-c", command)[0] == 0
    assert running.end()[0] == 0
    assert not user.shortcut.exists()
    again = user.start()
    again.announce()
    again.signal("TERM", again.number)
    assert again.end()[0] == 0


def test_an_agent_that_was_started_by_hand_is_seen(user):
    before = user.files()
    with user.session.open(BIN / "ravelin-disk-agent") as agent:
        assert "Server has been started" in agent.stderr.readline() + agent.stderr.readline()
        assert "an agent of yours is running already" in user.refusal()
        assert user.files() == before
        user.session.run("pkill", "--full", "ravelin-disk-agent")


@pytest.mark.parametrize("where", ["user", "machine"])
def test_an_installation_is_not_touched(user, where):
    data = user.data
    if where == "machine":
        data = user.session.base / "machine"
        user.environment["XDG_DATA_DIRS"] = f"/nonexistent:{data}:/usr/share"
    (data / "applications").mkdir(parents=True)
    shutil.copy(ROOT / "packaging/linux/ravelin-disk-open.desktop", data / HANDLER)
    before = snapshot(data)
    running = user.start()
    running.announce()
    assert not (user.data / "mime").exists()
    running.signal("INT", -running.number)
    status, said = running.end()
    assert status == 0 and "The programs are installed" in said
    assert snapshot(data) == before


def test_programs_in_a_folder_with_an_odd_name(tmp_path):
    folder = tmp_path / "a 'b' \"c\" $HOME `d` \\e"
    folder.symlink_to(BIN)
    with User(folder) as user:
        # What it says to type is for plain names.
        running = user.start()
        path = user.session.desktop / "Disk.app"
        path.write_text("# Ravelin Disk shortcut\n[Desktop Entry]\n")
        errors = user.session.run("gio", "open", path)[2]
        assert f"ravelin-disk-open: {path}: this is not a shortcut" in errors
        running.signal("INT", -running.number)
        assert running.end()[0] == 0


def test_without_a_home_it_is_the_users(user):
    home = pathlib.Path(pwd.getpwuid(os.getuid()).pw_dir)
    # For the session only.
    assert user.session.run("mount", "-t", "tmpfs", "none", home)[0] == 0
    for name in ("HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME"):
        del user.environment[name]
    running = user.start()
    assert f"Desktop folder: {home}/Desktop\n" in running.said
    configuration = f"{home}/.local/share/RavelinDisk/Ravelin Disk Config.plist"
    assert f"this sample is now installed: {configuration}\n" in running.said
    assert user.session.read(f"{home}/.local/share/{HANDLER}").startswith("[Desktop Entry]\n")
    running.signal("INT", -running.number)
    assert running.end()[0] == 0
    assert user.session.list(f"{home}/.local/share") == ["RavelinDisk"]
