"""ravelin-disk-tidy, on what agents leave that were killed."""

import os
import shutil
import signal
import subprocess
import time

import pytest

import namespaces
from agent import BIN, PATIENCE, Agent, snapshot, wait_until

MARK = "# Ravelin Disk shortcut\n"


@pytest.fixture(autouse=True)
def _root(needs_root):
    needs_root("process numbers of their own")


def tidy(home, *options, sees_agents=False, user=0):
    """Its status, what it printed, and what it said on standard error, run by the user. It does not see
    the agents of other tests, unless it sees all."""
    alone = () if sees_agents else ("unshare", "--pid", "--fork", "--mount-proc", "--kill-child")
    environment = {"PATH": os.environ["PATH"], "HOME": str(home.path), "LC_ALL": "C.UTF-8"}
    program = shutil.copy(BIN / "ravelin-disk-tidy", home.base)
    result = subprocess.run(
        [*alone, "setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", program, *options],
        env=environment, capture_output=True, text=True, timeout=PATIENCE, check=False)
    return result.returncode, result.stdout, result.stderr.removeprefix("ravelin-disk-tidy: ")


def killed_agent(home, *labels):
    """An agent with these disks that is killed."""
    agent = home.start()
    for number, label in enumerate(labels):
        agent.mount(label, uuid=str(number))
    agent.signal(signal.SIGKILL)
    assert agent.exit_status() == -signal.SIGKILL


def test_what_a_killed_agent_has_left_is_removed(home):
    (home.desktop / "folder/below").mkdir(parents=True)
    killed_agent(home, "USB Disk", "Photos", "folder/Disk", "folder/below/Disk")
    before = snapshot(home.desktop)
    expected = ["Photos.app", "USB Disk.app", "folder/Disk.app", "folder/below/Disk.app"]
    assert tidy(home, "--dry-run") == (0, "".join(f"would remove: {name}\n" for name in expected), "")
    assert snapshot(home.desktop) == before
    with home.nothing_changes_elsewhere():
        assert tidy(home) == (0, "".join(f"removed: {name}\n" for name in expected), "")
    assert home.shortcuts() == ["folder"]
    assert os.listdir(home.desktop / "folder") == ["below"]
    assert os.listdir(home.desktop / "folder/below") == []
    assert tidy(home) == (0, "", "")


def test_nothing_is_removed_while_an_agent_runs(home):
    agent = home.start()
    agent.mount()
    for option in (), ("--dry-run",):
        status, printed, said = tidy(home, *option, sees_agents=True)
        assert (status, printed) == (3, "")
        assert said.startswith("an agent is running (process ")
    assert home.shortcuts() == ["USB Disk.app"]
    assert tidy(home, "--force", sees_agents=True) == (0, "removed: USB Disk.app\n", "")
    assert home.shortcuts() == []
    assert agent.terminate() == 0


def test_an_agent_of_another_user_and_a_dead_one_do_not_count(home):
    """All others are out of sight: the processes here have numbers of their own."""
    (home.desktop / "Left.app").write_text(MARK)
    script = f"""
        cp /bin/sleep {home.base}/ravelin-disk-agent
        {home.base}/ravelin-disk-agent 60 & own=$!
        setpriv --reuid=65534 {home.base}/ravelin-disk-agent 60 & other=$!
        for process in $own $other; do
          until grep -q ravelin /proc/$process/comm; do sleep 0.01; done
        done
        {BIN}/ravelin-disk-tidy; echo $?
        kill -KILL $own
        while grep -qs '^State:.[RSD]' /proc/$own/status; do sleep 0.01; done
        {BIN}/ravelin-disk-tidy; echo $?
        kill $other
        exit 0
    """
    home.base.chmod(0o755)
    result = subprocess.run(
        ["unshare", "--pid", "--fork", "--mount-proc", "--kill-child", "sh", "-c", script], check=True,
        env={"PATH": os.environ["PATH"], "HOME": str(home.path)}, stdout=subprocess.PIPE, text=True)
    assert result.stdout.splitlines() == ["3", "removed: Left.app", "0"]


def test_what_is_not_the_agents_stays(home):
    desktop = home.desktop
    outside = home.outside / "Outside.app"
    outside.write_text(MARK)
    (desktop / "Link.app").symlink_to(outside)
    (desktop / "folder link").symlink_to(home.outside)
    (desktop / "Second link.app").symlink_to("nowhere")
    (desktop / "Folder.app").mkdir()
    (desktop / "Folder.app/content").write_text(MARK)
    (desktop / "User's.app").write_text("[Desktop Entry]\n" + MARK)
    (desktop / "Empty.app").write_text("")
    (desktop / "Longer.app").write_text(MARK.rstrip() + "s\n")
    (desktop / "Blank.app").write_text(" " + MARK)
    (desktop / "renamed.desktop").write_text(MARK)
    (desktop / ".ravelin-disk-1-").write_text("")
    (desktop / ".ravelin-disk-1-2").write_text("the user's")
    (desktop / ".ravelin-disk-removal-1-2").write_text("")
    (desktop / ".ravelin-disk-1-3").symlink_to(outside)
    (desktop / ".ravelin-disk-1-4").mkdir()
    os.mkfifo(desktop / "Pipe.app")
    before = snapshot(desktop, home.outside)
    assert tidy(home) == (0, "", "")
    assert snapshot(desktop, home.outside) == before


def test_half_made_shortcuts_are_removed(home):
    names = [".ravelin-disk-1-2", ".ravelin-disk-20000-0", ".ravelin-disk-removal-3-4"]
    for name in names[1:]:
        (home.desktop / name).write_text(MARK + "[Desk")
    (home.desktop / names[0]).write_text("")
    assert tidy(home) == (0, "".join(f"removed: {name}\n" for name in names), "")
    assert home.shortcuts() == []


def test_names_are_printed_so_that_they_do_no_harm(home):
    name = "a\n\x1b[31mremoved: b\udcff\u00fc\\.app"
    (home.desktop / name).write_text(MARK)
    assert tidy(home) == (0, "removed: a\\n\\x1b[31mremoved: b\\xff\\xc3\\xbc\\\\.app\n", "")
    assert home.shortcuts() == []


def test_other_mounts_are_not_entered(home):
    for name in ("memory", "hung"):
        (home.desktop / name).mkdir()
    with namespaces.OwnMounts() as mounts:
        mounts.mount_memory(home.desktop / "memory")
        mounts.mount_hung(home.desktop / "hung")
        (home.desktop / "memory/Left.app").write_text(MARK)
        (home.desktop / "Left.app").write_text(MARK)
        assert tidy(home) == (0, "removed: Left.app\n", "")
        assert (home.desktop / "memory/Left.app").exists()


def test_what_cannot_be_looked_at_is_told_and_the_rest_is_done(home):
    secret = home.desktop / "secret"
    secret.mkdir()
    for place in secret, home.desktop:
        (place / "Left.app").write_text(MARK)
    home.give_to(65534)
    home.base.chmod(0o755)
    secret.chmod(0)
    assert tidy(home, user=65534) == (
        1, "removed: Left.app\n", f"{secret}/: Permission denied\n")
    home.desktop.chmod(0o500)
    secret.chmod(0o700)
    (home.desktop / "Second.app").write_text(MARK)
    os.chown(home.desktop / "Second.app", 65534, 65534)
    assert tidy(home, user=65534) == (
        1, "removed: secret/Left.app\n", f"{home.desktop}/Second.app: Permission denied\n")


def test_without_a_desktop_there_is_nothing_to_do(home):
    home.desktop.rmdir()
    assert tidy(home) == (0, "", "")
    assert not home.desktop.exists()
    home.desktop.write_text("a file")
    assert tidy(home) == (0, "", "")


def test_the_desktop_may_be_reached_by_a_link(home):
    home.desktop.rmdir()
    home.desktop.symlink_to(home.outside)
    (home.outside / "Left.app").write_text(MARK)
    assert tidy(home) == (0, "removed: Left.app\n", "")


def test_there_is_an_end_to_how_far_it_looks(home):
    folder = home.desktop
    for _ in range(16):
        folder = folder / "d"
        folder.mkdir()
    (folder / "Deep.app").write_text(MARK)
    (folder / "d").mkdir()
    (folder / "d/Deeper.app").write_text(MARK)
    assert tidy(home) == (0, "removed: " + "d/" * 16 + "Deep.app\n", "")
    assert (folder / "d/Deeper.app").exists()
    # Names that nobody has to look at take no time worth mentioning.
    many = home.desktop / "many"
    many.mkdir()
    for number in range(100_000):
        os.mknod(many / str(number))
    (home.desktop / "Left.app").write_text(MARK)
    assert tidy(home) == (1, "removed: Left.app\n", f"{many}/: There are too many files\n")


def test_files_that_come_into_the_place_of_shortcuts_meanwhile_stay(home):
    """A user who replaces shortcuts as fast as can be by files of his own loses none."""
    replacing = f"""
import os
import select
import sys
import time
os.chdir({str(home.desktop)!r})
number = 0
while not select.select([sys.stdin], [], [], 0)[0] or number % 20:
    name = f"{{number % 20}}.app"
    if number >= 20:
        with open(name) as file:
            assert file.read() == f"the user's {{number - 20}}"
    with open(name, "w") as file:
        file.write({MARK!r})
    with open("mine", "w") as file:
        file.write(f"the user's {{number}}")
    time.sleep(0.0005)
    os.rename("mine", name)
    number += 1
print(number)
"""
    with subprocess.Popen(["/usr/bin/python3", "-c", replacing], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, text=True) as user:
        removed = 0
        end = time.monotonic() + PATIENCE
        while removed < 3 and user.poll() is None and time.monotonic() < end:
            removed += tidy(home)[1].count("removed: ")
        count = int(user.communicate("")[0])
    assert (user.returncode, removed >= 3) == (0, True)
    assert {file.read_text() for file in home.desktop.iterdir()} == {
        f"the user's {number}" for number in range(count - 20, count)}


def test_a_further_agent_starts_after_it_as_if_nothing_had_been(home):
    killed_agent(home, "USB Disk")
    tidy(home)
    agent = Agent(home, [home.agents[0].ports[0]])
    agent.mount()
    wait_until(lambda: home.shortcuts() == ["USB Disk.app"], "the shortcut")
    assert agent.terminate() == 0
    agent.check_clean_end()
