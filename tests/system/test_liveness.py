"""What becomes of disks that are not heard of any more, in real time."""

import re
import time

from agent import wait_until

EXPECTED_UPDATE = 120
CHECK = 30


def test_silent_disk_vanishes_and_repeated_one_stays(home):
    agent = home.start()
    agent.mount("Alive", uuid="alive")
    agent.announce("disk_mounted", label="Silent", uuid="silent")
    announced = time.monotonic()
    wait_until((home.desktop / "Silent.app").exists, "shortcut")

    next_repetition = announced
    while (home.desktop / "Silent.app").exists():
        assert time.monotonic() - announced < EXPECTED_UPDATE + CHECK + 5
        if time.monotonic() >= next_repetition:
            agent.announce("disk_status", label="Alive", uuid="alive")
            next_repetition += 20
        time.sleep(0.1)

    assert time.monotonic() - announced > EXPECTED_UPDATE
    home.wait_for_shortcuts("Alive.app")
    found = re.findall(r"^Ravelin Disk: Disk (.+) has not been updated in (\d+\.\d{6}) seconds, so "
                       r"it is assumed to be unmounted!$", agent.log(), re.MULTILINE)
    assert [label for label, _ in found] == ["Silent"]
    assert EXPECTED_UPDATE < float(found[0][1]) < EXPECTED_UPDATE + CHECK + 1
    assert agent.terminate() == 0
    agent.check_clean_end()
