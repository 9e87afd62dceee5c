"""An agent's life on its computer beside the model of it: what happens, happens to both, and after
each thing that happened the desktop is compared."""

import collections
import signal
import time

from cables import Cable
from clock import MILLISECOND, SECOND
from computer import Computer
from model import CHECK, TICK, Model, Thing
from namespaces import PORT

# The agent's timers may be this late, by their own account. The time never stands where that matters.
AFTER = 5 * MILLISECOND
# No more are under way at once than the receive buffer has room for.
BATCH = 64
REMEMBERED_STEPS = 40
REPEATED = "repeated datagrams"


class Difference(Exception):
    """The agent is not what it must be."""


class Trial(Computer):
    """Counts what happens."""

    def _set_up(self):
        super()._set_up()
        self.cables = [self._closing.enter_context(Cable(self.network, number))
                       for number in range(self.CABLES)]
        self.model = Model()
        self.steps = collections.deque(maxlen=REMEMBERED_STEPS)
        self.count = collections.Counter()
        self._began = self.clock.monotonic
        self._under_way = 0
        self._before = None
        self._last_cable = None
        self.port = PORT

    def note(self, text):
        self.count["steps"] += 1
        self.steps.append(f"{self.count['steps']}: day {self.days:.4f}: {text}")

    @property
    def days(self):
        return (self.clock.monotonic - self._began) / (86400 * SECOND)

    # The agent's life

    def begin_life(self):
        self.start_agent()
        self.model.starts(self.clock.monotonic)
        self.pass_time(AFTER)

    def end_life(self, number):
        self.settle()
        self.end_agent(number)
        if number == signal.SIGTERM:
            self.model.ends()
        self.count["restarts"] += 1
        self.compare()

    # Time

    def pass_time(self, duration):
        before = self.clock.monotonic
        self.clock.step(duration)
        self.clock.settle()
        self.model.passes(before, self.clock)
        self.compare()

    def to_next(self, period, late=0):
        """Passes the time until the agent's timer with this period is due, and some more."""
        since = (self.clock.monotonic - self.model.started) % period
        self.pass_time(period - since + AFTER + late)

    def be_ready(self, port=PORT):
        """What is announced from now on, to this port, is not handled at the time of a check."""
        self.port = port
        since = (self.clock.monotonic - self.model.started) % CHECK
        if CHECK - since <= TICK:
            self.to_next(TICK)

    def be_far_from_check(self):
        since = (self.clock.monotonic - self.model.started) % CHECK
        if CHECK - since <= 10 * SECOND:
            self.to_next(CHECK)

    # Announcements

    def say(self, cable, host, payload, to_group=True):
        """A device sends this. It has effect once the time goes on."""
        if isinstance(payload, str):
            payload = payload.encode("latin-1")
        # What comes by different cables may come in another order.
        if cable is not self._last_cable:
            self.hear()
            self._last_cable = cable
        if self._under_way == 0:
            self._before = self.datagrams()
        self.count[REPEATED] += cable.send(host, payload, to_group, self.port)
        self.count["events"] += 1
        if cable.is_heard:
            self._under_way += 1
            self.model.arrives(payload, cable.address(host))
        if self._under_way == BATCH:
            self.hear()

    def overflow(self, cable, host, payload, count):
        """As many as can be, as fast as can be, none of which has an effect."""
        cable.send_at_once(host, payload, count)
        self.count["events"] += count
        before = None
        while before != (before := self.datagrams()):
            time.sleep(0.05)
            self.clock.settle()

    def hear(self):
        """Everything sent has come to the agent."""
        if self._under_way:
            self.wait_for_datagrams(self._before, self._under_way)
            self._under_way = 0

    def settle(self):
        self.hear()
        self.clock.settle()

    def handle(self):
        """What was sent is handled."""
        self.settle()
        self.to_next(TICK)

    def handle_while_helper_hangs(self):
        """The same for one announcement, for which the agent may wait for the helper."""
        self.settle()
        before = self.clock.monotonic
        since = (before - self.model.started) % TICK
        self.clock.step(TICK - since + AFTER)
        until = self.clock.limit_of_wait()
        if until:
            self.count["hung helpers"] += 1
            self.clock.step(-(-(until - self.clock.monotonic) // (10 * MILLISECOND))
                            * 10 * MILLISECOND)
            self.clock.settle()
        self.model.passes(before, self.clock)
        self.compare()

    # Looking

    def compare(self):
        for service in self.logs:
            service.read()
        shown = {path: self._comparable(item) for path, item in self.shown().items()}
        expected = {path: self._comparable(item) for path, item in self.model.desktop.items()}
        self.count["comparisons"] += 1
        if shown != expected:
            lines = [f"  {path!r}: expected {expected.get(path)}, found {shown.get(path)}"
                     for path in sorted(shown.keys() | expected.keys())
                     if shown.get(path) != expected.get(path)]
            raise Difference("on the desktop:\n" + "\n".join(lines[:20]))

    @staticmethod
    def _comparable(item):
        if isinstance(item, Thing):
            return "file", item.content
        return item.name, item.url, item.icon

    def compare_trash(self):
        found = self.trash()
        if found != sorted(self.model.trash):
            raise Difference(f"in the trash: expected {sorted(self.model.trash)}, found {found}")
