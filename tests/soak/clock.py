"""The agent's clock, which stands still until it is stepped on (SteppedClock.cpp), and the look from
inside whether the agent has anything left to do."""

import contextlib
import ctypes
import mmap
import pathlib
import socket
import struct
import time

SECOND = 1_000_000_000
MILLISECOND = 1_000_000
PATIENCE = 120
_REPORT = struct.Struct("qq")


class NoRest(Exception):
    """The agent goes on and on, or has ended."""


class Clock(contextlib.AbstractContextManager):
    """Times are in nanoseconds. The monotonic time never goes back; the wall time is the user's."""

    def __init__(self, folder, library):
        self._path = pathlib.Path(folder) / "clock"
        self._library = library
        self._path.write_bytes(bytes(mmap.PAGESIZE))
        with self._path.open("r+b") as file:
            self._page = mmap.mmap(file.fileno(), mmap.PAGESIZE)
        self._monotonic = ctypes.c_int64.from_buffer(self._page, 0)
        self._wall = ctypes.c_int64.from_buffer(self._page, 8)
        self._monotonic.value = 1_000_000 * SECOND
        self._wall.value = 1_767_225_600 * SECOND  # the first day of 2026
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self._listener.bind(f"{self._path}.socket")
        self._listener.listen()
        self._listener.settimeout(PATIENCE)
        self._agent = None

    def __exit__(self, *_):
        self.forget_agent()
        self._listener.close()

    @property
    def monotonic(self):
        return self._monotonic.value

    @property
    def wall(self):
        return self._wall.value

    def command(self, executable):
        """What starts the agent with this clock."""
        return ["env", f"LD_PRELOAD={self._library}", f"STEPPED_CLOCK={self._path}", executable]

    def greet_agent(self):
        """To be called once for each agent that has been started so."""
        self.forget_agent()
        self._agent, _ = self._listener.accept()
        self._agent.settimeout(PATIENCE)

    def forget_agent(self):
        if self._agent is not None:
            self._agent.close()
            self._agent = None

    def step(self, duration):
        """Time passes; the agent learns of it when it is asked next."""
        self._wall.value += duration
        self._monotonic.value += duration

    def set_wall(self, difference):
        """The user or the network sets the wall clock; no time passes."""
        self._wall.value += difference

    def look(self, request=b"?"):
        """Fires the timers that are due. Whether the agent has nothing left to do, and until when it
        waits for something that has a time limit, or 0."""
        try:
            self._agent.send(request)
            reply = self._agent.recv(_REPORT.size)
        except OSError as error:
            raise NoRest(f"the agent does not answer: {error}") from error
        if len(reply) != _REPORT.size:
            raise NoRest("the agent has ended")
        is_at_rest, waits_until = _REPORT.unpack(reply)
        return bool(is_at_rest), waits_until

    def settle(self):
        """Returns when the agent has done all that there is to do at this time."""
        self._wait(lambda look: look[0], "the agent does not come to rest")
        # A timer that is due may wait for the next one for a millisecond, and would otherwise come in
        # between what is done next.
        self.look(b"w")
        self._wait(lambda look: look[0], "the agent does not come to rest")

    def limit_of_wait(self):
        """Returns until when the agent waits for a helper program, or 0 when it does not."""
        rests, until = self._wait(lambda look: look[0] or look[1], "the agent waits for nothing")
        return 0 if rests else until

    def _wait(self, is_enough, what):
        end = time.monotonic() + PATIENCE
        pause = 0.00005
        while True:
            look = self.look()
            if is_enough(look):
                return look
            if time.monotonic() > end:
                raise NoRest(f"not within {PATIENCE} s: {what}")
            time.sleep(pause)
            pause = min(pause * 1.5, 0.005)
