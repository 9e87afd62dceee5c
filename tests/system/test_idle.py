"""What the agent costs while nothing happens."""

import pathlib
import re
import time

from agent import SANITIZER


def wake_ups(agent):
    """For each thread, how often it has gone to sleep."""
    counts = {}
    for task in pathlib.Path(f"/proc/{agent.pid}/task").iterdir():
        status = (task / "status").read_text()
        counts[int(task.name)] = int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status,
                                               re.MULTILINE)[1])
    return counts


def test_idle_agent_wakes_twice_a_second_and_no_more(home):
    agent = home.start()
    agent.mount()
    time.sleep(1.2)
    before, start = wake_ups(agent), time.monotonic()
    time.sleep(5)
    after, seconds = wake_ups(agent), time.monotonic() - start
    assert before.keys() == after.keys()
    rates = {thread: (after[thread] - before[thread]) / seconds for thread in after}
    assert rates.pop(agent.pid) == 0
    if SANITIZER == "tsan":
        del rates[min(rates)]  # the sanitizer's own
    assert len(rates) == 1
    # The look at which disks have fallen silent may lie between.
    assert 1.5 <= rates.popitem()[1] <= 2.6
