"""script/install and script/uninstall for one user of Linux, in a temporary home."""

import os
import pathlib
import pwd
import subprocess

import pytest

from agent import BIN, PATIENCE, snapshot, wait_until

ROOT = pathlib.Path(__file__).resolve().parents[2]
CONFIG = ".local/share/RavelinDisk/Ravelin Disk Config.plist"
KIND = "application/x-ravelin-disk-shortcut"


class Computer:
    """Where the user is alone: with processes and a network of its own."""

    def __init__(self, home):
        self.home = home
        self.environment = {"PATH": f"{home.path}/.local/bin:{os.environ['PATH']}", "HOME": str(home.path),
                            "LC_ALL": "C.UTF-8", "RAVELIN_DISK_BIN": str(BIN),
                            "XDG_CACHE_HOME": str(home.base / "cache")}
        self._process = subprocess.Popen(
            ["unshare", "--mount", "--pid", "--net", "--fork", "--mount-proc", "--kill-child", "sh", "-c",
             "ip link set lo up; echo ready; while :; do sleep 1; done"], stdout=subprocess.PIPE)
        # Before that, what is run would be run with the computer's own processes and network.
        assert self._process.stdout.readline() == b"ready\n"
        self._process.stdout.close()

    def run(self, *command, check=True):
        spaces = f"/proc/{self._process.pid}/ns"
        result = subprocess.run(
            ["nsenter", f"--mount={spaces}/mnt", f"--net={spaces}/net", f"--pid={spaces}/pid_for_children",
             f"--wd={ROOT}", *command], env=self.environment, check=False, text=True, timeout=PATIENCE,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        assert result.returncode == 0 or not check, result.stdout
        return result

    def agents(self):
        return self.run("pgrep", "-x", "ravelin-disk-ag", check=False).stdout.split()

    def shortcut(self):
        self.run("ravelin-disk-announce", "mounted", "127.0.0.1", "5077", "--quiet", "--label", "USB Disk")
        return self.home.shortcuts() == ["USB Disk.app"]

    def files(self):
        return snapshot(self.home.path)

    def end(self):
        self._process.kill()
        self._process.wait()


@pytest.fixture(name="computer")
def _computer(home, needs_root):
    needs_root("processes of their own")
    computer = Computer(home)
    try:
        yield computer
    finally:
        computer.end()


def manager(home, refuses=""):
    """A user's systemd that only takes down what it is told; the service that it starts is no agent."""
    tools = home.base / "tools"
    tools.mkdir()
    (tools / "systemctl").write_text(
        f'#!/bin/sh\necho "$*" >>{home.base}/calls\ncase "$*" in *"{refuses or "nothing"}"*) exit 1 ;; esac\n')
    (tools / "systemctl").chmod(0o755)
    return str(tools)


def test_everything_works_and_goes_again(home, computer):
    user = home.path / ".local/share/applications/user.desktop"
    user.parent.mkdir(parents=True)
    user.write_text("[Desktop Entry]\nType=Application\nName=x\nExec=true\nMimeType=text/x-mine;\n")
    before = computer.files()
    printed = computer.run("script/install").stdout
    assert "There was no configuration; this sample is now installed" in printed
    assert "The agent runs" in printed
    wait_until(computer.agents, "the agent")
    wait_until(computer.shortcut, "the shortcut", period=0.25)

    # The desktop opens it by the program that is installed.
    kind = computer.run("gio", "info", "--attributes=standard::content-type", home.desktop / "USB Disk.app")
    assert KIND in kind.stdout
    assert "ravelin-disk-open.desktop" in computer.run("gio", "mime", KIND).stdout
    entry = (home.path / ".local/share/applications/ravelin-disk-open.desktop").read_text()
    assert f'Exec="{home.path}/.local/bin/ravelin-disk-open" %f\n' in entry
    for name in ("agent", "announce", "open", "tidy", "volume"):
        assert (home.path / f".local/share/man/man1/ravelin-disk-{name}.1").exists()
        assert os.access(home.path / f".local/bin/ravelin-disk-{name}", os.X_OK)
    for command in (["desktop-file-validate", home.path / ".config/autostart/ravelin-disk-autostart.desktop"],
                    ["systemd-analyze", "--user", "verify", "--man=no",
                     home.path / ".local/share/systemd/user/ravelin-disk.service"]):
        subprocess.run(command, check=True, env=os.environ | {"XDG_RUNTIME_DIR": str(home.base)})
    link = home.path / ".config/systemd/user/graphical-session.target.wants/ravelin-disk.service"
    assert "ExecStart=" in link.read_text()

    # Once more, while the agent runs; that one takes its shortcuts away, and the new one listens.
    (before_agent,) = computer.agents()
    installed = computer.files()
    configuration = home.path / CONFIG
    configuration.write_text(configuration.read_text() + "\n")
    computer.run("script/install")
    wait_until(lambda: computer.agents() not in ([], [before_agent]), "another agent")
    wait_until(computer.shortcut, "the shortcut", period=0.25)
    assert computer.files().keys() == installed.keys()

    printed = computer.run("script/uninstall").stdout
    assert f"The configuration stays: {configuration.parent}" in printed
    assert computer.agents() == []
    assert home.shortcuts() == []
    after = computer.files()
    assert configuration.read_text().endswith("\n\n")
    known = user.parent / "mimeinfo.cache"
    assert known.read_text() == "[MIME Cache]\ntext/x-mine=user.desktop;\n"
    assert after.keys() - before.keys() == {str(configuration), str(configuration.parent), str(known)}
    assert before.keys() <= after.keys()
    assert "Nothing is installed" in computer.run("script/uninstall").stdout


def test_an_installation_outlives_a_run_of_script_run(home, computer):
    """Which has registered the same files for as long as it runs."""
    handler = home.path / ".local/share/applications/ravelin-disk-open.desktop"
    before = computer.files()
    running = subprocess.Popen(
        ["nsenter", f"--mount=/proc/{computer._process.pid}/ns/mnt", f"--net=/proc/{computer._process.pid}/ns/net",
         f"--pid=/proc/{computer._process.pid}/ns/pid_for_children", f"--wd={ROOT}", "script/run"],
        env=computer.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    wait_until(lambda: handler.exists() and computer.agents(), "script/run")
    assert "so none is started now" in computer.run("script/install").stdout
    installed = computer.files()
    computer.run("kill", "-TERM", *computer.agents())
    assert running.wait(PATIENCE) == 0
    assert f'Exec="{home.path}/.local/bin/ravelin-disk-open" %f\n' in handler.read_text()
    assert computer.files() == installed
    computer.run("script/uninstall")
    left = computer.files().keys() - before.keys()
    assert {name for name in left if not os.path.isdir(name)} == {str(home.path / CONFIG)}


def test_without_a_home_it_is_the_users(computer):
    home = pathlib.Path(pwd.getpwuid(os.getuid()).pw_dir)
    # For these processes only.
    computer.run("mount", "-t", "tmpfs", "none", home)
    del computer.environment["HOME"]
    assert f"Installed: the programs in {home}/.local/bin" in computer.run("script/install").stdout
    assert "Removed: the programs" in computer.run("script/uninstall").stdout
    # The configuration.
    assert computer.run("find", home, "-type", "f").stdout == f"{home}/{CONFIG}\n"


def test_the_users_folders_are_elsewhere(home, computer):
    """A folder that is not absolute counts for nothing, as it does for the agent."""
    settings = home.base / "settings"
    settings.mkdir()
    computer.environment |= {"XDG_CONFIG_HOME": str(settings), "XDG_DATA_HOME": "share"}
    printed = computer.run("script/install").stdout
    assert f"this sample is now installed: {home.path / CONFIG}" in printed
    wait_until(computer.shortcut, "the shortcut", period=0.25)
    assert (settings / "autostart/ravelin-disk-autostart.desktop").exists()
    computer.run("script/uninstall")
    assert os.listdir(settings) == []


def test_the_users_systemd_starts_it_where_there_is_one(home, computer):
    computer.environment["PATH"] = f"{manager(home)}:{computer.environment['PATH']}"
    computer.run("script/install")
    calls = [call for call in (home.base / "calls").read_text().splitlines() if "show" not in call]
    assert calls[-2:] == ["--user daemon-reload", "--user start ravelin-disk.service"]
    assert computer.agents() == []
    computer.run("script/uninstall")
    calls = (home.base / "calls").read_text().splitlines()
    assert calls.count("--user --quiet stop ravelin-disk.service") == 2
    assert calls[-1] == "--user daemon-reload"


def test_a_systemd_that_cannot_start_it_is_a_failure(home, computer):
    computer.environment["PATH"] = f"{manager(home, '--user start')}:{computer.environment['PATH']}"
    result = computer.run("script/install", check=False)
    assert result.returncode == 1
    assert "script/install: everything is installed, but the agent could not be started" in result.stdout


def test_no_second_agent_is_started(home, computer):
    other = subprocess.Popen(
        ["nsenter", f"--pid=/proc/{computer._process.pid}/ns/pid_for_children", BIN / "ravelin-disk-agent"],
        env=computer.environment, stderr=subprocess.DEVNULL)
    try:
        wait_until(computer.agents, "the agent")
        assert "so none is started now" in computer.run("script/install").stdout
        assert len(computer.agents()) == 1
        computer.run("script/uninstall")
        assert len(computer.agents()) == 1
    finally:
        other.kill()
        other.wait()


@pytest.mark.parametrize("script", ["install", "uninstall"])
def test_nothing_is_done_by_sudo_or_with_arguments(home, computer, script):
    before = computer.files()
    result = computer.run("env", "SUDO_USER=somebody", f"script/{script}", check=False)
    assert (result.returncode, result.stdout) == (
        1, f"script/{script}: without sudo, please: as the user whose desktop it is\n")
    result = computer.run(f"script/{script}", "--nope", check=False)
    assert (result.returncode, result.stdout) == (2, f"usage: script/{script}\n")
    assert computer.files() == before


def test_folders_of_other_names(home, computer):
    """With blanks and what means something to a desktop entry or a unit, which can hold no quotes."""
    odd = home.path / "100% mine & yours | $x"
    odd.mkdir()
    computer.environment["HOME"] = str(odd)
    computer.run("script/install")
    wait_until(computer.agents, "the agent")
    unit = odd / ".local/share/systemd/user/ravelin-disk.service"
    entry = odd / ".local/share/applications/ravelin-disk-open.desktop"
    subprocess.run(["desktop-file-validate", entry], check=True)
    shown = subprocess.run(["systemd-analyze", "--user", "verify", "--man=no", unit], check=False, text=True,
                           capture_output=True, env=os.environ | {"XDG_RUNTIME_DIR": str(home.base)})
    assert (shown.returncode, shown.stderr) == (0, "")
    computer.run("script/uninstall")
    assert computer.agents() == []
