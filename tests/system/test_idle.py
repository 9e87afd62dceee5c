"""What the agent costs while nothing happens."""

import pathlib
import re
import time

from agent import EXECUTABLE, SANITIZER, wait_until


def wake_ups(agent):
    """For each thread, how often it has gone to sleep."""
    counts = {}
    for task in pathlib.Path(f"/proc/{agent.pid}/task").iterdir():
        status = (task / "status").read_text()
        counts[int(task.name)] = int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status,
                                               re.MULTILINE)[1])
    return counts


def slept(agent, seconds):
    """How often the threads have woken meanwhile: the main one, and the others together."""
    before = wake_ups(agent)
    time.sleep(seconds)
    after = wake_ups(agent)
    assert before.keys() == after.keys()
    counts = {thread: after[thread] - before[thread] for thread in after}
    main = counts.pop(agent.pid)
    if SANITIZER == "tsan":
        del counts[min(counts)]  # the sanitizer's own
    assert len(counts) == 1
    return main, sum(counts.values())


def wait_until_asleep(agent):
    """Waits until the agent has done all that there was to do, which takes two of its half seconds."""
    wait_until(lambda: slept(agent, 1.2) == (0, 0), "the agent asleep")


def test_agent_without_disks_sleeps(home):
    agent = home.start()
    wait_until_asleep(agent)
    assert slept(agent, 5) == (0, 0)
    # Nor does it keep awake because there once was a disk.
    agent.mount()
    agent.unmount()
    wait_until_asleep(agent)
    main, handler = slept(agent, 5)
    assert main == 0
    assert handler <= 1  # the last look at which disks have fallen silent may lie between


def test_agent_with_disks_sleeps_until_the_next_announcement(home):
    agent = home.start()
    agent.mount()
    wait_until_asleep(agent)
    main, handler = slept(agent, 5)
    assert main == 0
    assert handler <= 1  # the look at which disks have fallen silent may lie between


def test_agent_that_sleeps_gives_back_what_it_ran_on(home):
    agent = home.start()
    wait_until_asleep(agent)
    asleep = agent.held_of_files()
    # Of no interest to anybody but the log, so that it goes on sleeping.
    agent.announce("disk_mounted", ip=None)
    agent.wait_for_log("event:disk_mounted;")
    used = agent.held_of_files()
    assert used > asleep
    agent.mount()
    wait_until(lambda: agent.held_of_files() < used, "it is given back")
    assert agent.terminate() == 0


def test_agent_keeps_all_where_the_system_does_not_tell_what_has_changed(home, needs_root):
    needs_root("mounts over the system's files")
    mount = 'mount --bind /dev/zero /proc/$$/pagemap && exec "$0"'
    agent = home.start(command=["unshare", "--mount", "sh", "-c", mount, EXECUTABLE])
    agent.mount()
    used = agent.held_of_files()
    time.sleep(1.2)
    assert agent.held_of_files() > used * 3 / 4
    agent.unmount()
    assert agent.terminate() == 0
