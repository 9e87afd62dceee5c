"""The soak, as script/soak calls it. --seed repeats a run: the same things happen in the same order,
however fast."""

import argparse
import os
import random
import sys
import time

sys.path[:0] = [os.path.join(os.path.dirname(__file__), "..", "system")]

from clock import NoRest
from events import Events
from namespaces import may_be_made
from trial import REPEATED, Difference, Trial

# Lives of the agent, in steps. The memory is looked at in long ones, which end by themselves or with
# the run.
SHORT_LIFE = (20, 200)
LONG_LIFE = (2_000, 20_000)
STEPS_BETWEEN_LOOKS = 100
# By so much a figure, when no disk is known, may be above what it was at first in the same life, after
# everything had happened once and with as many disks known as one sender may have: of that memory, in
# KiB, the C library gives back now more, now less.
BOUNDS = {"private": 1024, "resident": 1024, "descriptors": 2, "threads": 0, "children": 0}


class Growth:
    """What has become more in a life of the agent's, and most of it in any."""

    def __init__(self):
        self.most = {}
        self.first = {}
        self.last = {}

    def begin(self, figures):
        self.first = figures

    def look(self, figures):
        self.last = figures
        for name, bound in BOUNDS.items():
            more = figures[name] - self.first[name]
            self.most[name] = max(self.most.get(name, more), more)
            if more > bound:
                raise Difference(f"{name}: {figures[name]}, after {self.first[name]} at first")


def live(trial, events, generator, growth, end):
    """A life of the agent."""
    is_long = generator.random() < 0.4
    steps = generator.randrange(*(LONG_LIFE if is_long else SHORT_LIFE))
    trial.note("the agent starts")
    trial.begin_life()
    if is_long:
        events.each()
        growth.begin(trial.figures())
    for step in range(steps):
        if time.monotonic() > end:
            break
        events.next()
        trial.tidy_log()
        if is_long and step % STEPS_BETWEEN_LOOKS == STEPS_BETWEEN_LOOKS - 1:
            trial.note("the figures are looked at")
            events.calm()
            growth.look(trial.figures())
    number = events.end_of_life()
    trial.note(f"the agent is ended: {number.name}")
    trial.end_life(number)


def main():
    arguments = argparse.ArgumentParser(prog="script/soak", description=__doc__)
    arguments.add_argument("minutes", type=float)
    arguments.add_argument("--seed", type=int, default=random.randrange(10**9))
    arguments = arguments.parse_args()
    if not may_be_made():
        print("LEFT OUT: the soak needs root")
        return 1 if os.environ.get("CI") == "true" else 0
    print(f"seed {arguments.seed}", flush=True)
    generator = random.Random(arguments.seed)
    end = time.monotonic() + arguments.minutes * 60
    growth = Growth()
    with Trial() as trial:
        events = Events(trial, generator)
        failure = None
        try:
            while time.monotonic() < end:
                live(trial, events, generator, growth, end)
        except (Difference, NoRest, AssertionError) as error:
            failure = error
            print("The last steps:", *trial.steps, sep="\n  ")
            print(f"The agent's last words:\n{trial.log_tail()}")
            print(f"DIFFERENCE {error}")
            print(f"Repeat it: script/soak {arguments.minutes:g} --seed {arguments.seed}")
        count = trial.count
        print(f"{count['events']} events in {count['steps']} steps, {trial.days:.1f} simulated days, "
              f"{count['restarts']} restarts, {count['comparisons']} comparisons, "
              f"{0 if failure is None else 1} differences; growth at most: "
              + ", ".join(f"{name} {more}" for name, more in growth.most.items())
              + f" (memory in KiB; at first {growth.first}, at last {growth.last}); {count['hung helpers']} hung helpers; "
              f"{count[REPEATED]} datagrams repeated because the machine had dropped them")
    return 0 if failure is None else 1


if __name__ == "__main__":
    sys.exit(main())
