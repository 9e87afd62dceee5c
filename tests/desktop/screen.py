"""A screen of its own for a session, with windows that can be looked at and clicked."""

import contextlib
import pathlib
import re
import sys

import gi

gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf  # noqa: E402

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "system"))
from agent import wait_until  # noqa: E402

PATIENCE = 30


class Picture:
    """Points of colours, from a file; a drawing is made as large as it is wanted."""

    def __init__(self, path, side=None):
        if side is None:
            loaded = GdkPixbuf.Pixbuf.new_from_file(str(path))
        else:
            loaded = GdkPixbuf.Pixbuf.new_from_file_at_size(str(path), side, side)
        self.has_opacity = loaded.get_has_alpha()
        self.width, self.height = loaded.get_width(), loaded.get_height()
        self._size = loaded.get_n_channels()
        self._stride = loaded.get_rowstride()
        self._bytes = loaded.get_pixels()

    def row(self, y):
        """The bytes of a row of points."""
        begin = y * self._stride
        return self._bytes[begin:begin + self.width * self._size]

    def colour(self, x, y):
        begin = y * self._stride + x * self._size
        return self._bytes[begin:begin + 3]

    def opacity(self, x, y):
        return self._bytes[y * self._stride + x * self._size + 3] if self.has_opacity else 255

    def count(self, colour):
        """How many points have just this colour."""
        found = 0
        for y in range(self.height):
            row = self.row(y)
            at = row.find(colour)
            while at >= 0:
                found += at % self._size == 0
                at = row.find(colour, at + 1)
        return found

    def find(self, part):
        """Where the opaque points of the other picture are, in this one: the place of its middle.
        They may differ in a few values, as drawing at another place rounds otherwise."""
        points = [(x, y) for y in range(part.height) for x in range(part.width)
                  if part.opacity(x, y) == 255]
        # One that is rare on a screen.
        rare = max(points, key=lambda point: _saturation(part.colour(*point)))
        colour = part.colour(*rare)
        for y in range(self.height - part.height + 1):
            row = self.row(y + rare[1])
            at = row.find(colour)
            while at >= 0:
                x, rest = divmod(at, self._size)
                x -= rare[0]
                if rest == 0 and 0 <= x <= self.width - part.width and self._shows(
                        part, points, x, y):
                    return x + part.width // 2, y + part.height // 2
                at = row.find(colour, at + 1)
        return None

    def _shows(self, part, points, left, top):
        different = 0
        for x, y in points:
            pair = zip(part.colour(x, y), self.colour(left + x, top + y))
            different += any(abs(one - other) > 12 for one, other in pair)
        return different <= len(points) // 50


def _saturation(colour):
    return max(colour) - min(colour)


def write_square(path, colour):
    """An icon file of one colour."""
    square = GdkPixbuf.Pixbuf.new(GdkPixbuf.Colorspace.RGB, False, 8, 64, 64)
    square.fill(int.from_bytes(colour + b"\xff", "big"))
    square.savev(str(path), "ico", [], [])


class Screen(contextlib.AbstractContextManager):
    """The screen, with a window manager."""

    def __init__(self, session):
        self._session = session
        self._server = session.open("Xvfb", "-displayfd", "1", "-screen", "0", "1024x700x24",
                                    "-nolisten", "tcp", "-noreset")
        session.environment["DISPLAY"] = f":{int(self._server.stdout.readline())}"
        session.start("openbox")
        wait_until(lambda: "window id" in self._property("-root", "_NET_SUPPORTING_WM_CHECK"),
                   "the window manager", PATIENCE)

    def __exit__(self, *_):
        # So that it takes its lock and its socket away.
        self._session.run("pkill", "-x", "Xvfb")
        self._server.communicate(timeout=PATIENCE)

    def _property(self, window, *names):
        return self._session.run("xprop", *window.split(), *names)[1]

    def windows(self):
        """Every window with its title and its kind."""
        found = {}
        for window in re.findall("0x[0-9a-f]+", self._property("-root", "_NET_CLIENT_LIST")):
            text = self._property(f"-id {window}", "_NET_WM_NAME", "_NET_WM_WINDOW_TYPE")
            title = re.search('_NET_WM_NAME.* = "(.*)"', text)
            kind = re.search("_NET_WM_WINDOW_TYPE_([A-Z]+)", text)
            found[window] = (title[1] if title else "", kind[1] if kind else "NORMAL")
        return found

    def picture(self, path):
        """What is on the screen now, which is stored in the file too."""
        status, _, errors = self._session.run("import", "-silent", "-window", "root", path)
        assert status == 0, errors
        return Picture(path)

    def wait_for(self, seen, path, what):
        """Looks at the screen until there is what is to be seen. The file has the last look."""
        return wait_until(lambda: seen(self.picture(path)), f"{what}; see {path}", PATIENCE, 0.2)

    def double_click(self, place):
        x, y = place
        self._session.run("xdotool", "mousemove", x, y, "sleep", "0.2",
                          "click", "--repeat", "2", "--delay", "80", "1")

    def press(self, key):
        """In the window that was opened last."""
        self._session.run("xdotool", "key", key)

    def move_away(self):
        """What is under the pointer looks otherwise."""
        self._session.run("xdotool", "mousemove", 1023, 699)
