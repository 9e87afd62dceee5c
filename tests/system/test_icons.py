"""The agent's helper for pictures: what it may use, and what its troubles may do to the agent."""

import os
import plistlib
import struct
import zlib

import pytest

from agent import BIN, EXECUTABLE, HELPER, icon
from desktop import Session, wait_until

MEBIBYTE = 1024 * 1024
# What the helper may use for a picture, and what it needs anyway, a sanitizer included.
MOST_MEMORY = (512 + 256) * MEBIBYTE


def black_square(side):
    """A picture file in which a pixel takes a bit, and three bytes in memory."""
    def chunk(kind, content):
        return (struct.pack(">I", len(content)) + kind + content
                + struct.pack(">I", zlib.crc32(kind + content)))

    rows = zlib.compress(bytes((1 + (side + 7) // 8) * side), 1)
    header = struct.pack(">IIBBBBB", side, side, 1, 0, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", rows)
            + chunk(b"IEND", b""))


def check(path):
    """The helper's verdict of a picture, and the bytes of memory that it took."""
    null = os.open(os.devnull, os.O_RDWR)
    pid = os.posix_spawn(BIN / HELPER, [HELPER, "check", str(path)], os.environ,
                         file_actions=[(os.POSIX_SPAWN_DUP2, null, number) for number in range(3)])
    os.close(null)
    _, status, usage = os.wait4(pid, 0)
    return os.waitstatus_to_exitcode(status) == 0, usage.ru_maxrss * 1024


def test_a_picture_that_would_fill_the_memory_is_none(home):
    path = home.base / "picture"
    path.write_bytes(black_square(20000))
    assert path.stat().st_size < MEBIBYTE
    is_picture, memory = check(path)
    assert not is_picture
    assert memory < MOST_MEMORY


def test_a_large_picture_is_one(home):
    path = home.base / "picture"
    path.write_bytes(black_square(4096))
    is_picture, memory = check(path)
    assert is_picture
    assert memory < MOST_MEMORY


def start_with_icon(home, command, content=None):
    """An agent for which there is an icon file."""
    port = home.free_port()
    home.configure(port)
    path = home.user_config.parent / "icon.ico"
    path.write_bytes(icon() if content is None else content)
    return home.start_as_configured(port, command=command), path


def test_a_helper_that_hangs_is_not_asked_for_every_shortcut(home):
    calls = home.base / "calls"
    helper = f'echo "$1" >> {calls}\n[ "$1" = check ] || exec sleep 1000'
    agent, path = start_with_icon(home, [home.install(helper)])
    for number in range(5):
        shortcut = agent.mount(f"Disk {number}", uuid=str(number))
    agent.check_works()
    assert calls.read_text().splitlines() == ["check", "set"]
    assert f"\nIcon={path}\n" in shortcut.read_text()


def test_a_verdict_is_heard_also_where_the_parent_ignored_the_end_of_its_children(home):
    ignoring = ["env", "--ignore-signal=CHLD", EXECUTABLE]
    agent, path = start_with_icon(home, ignoring, content=b"no picture")
    shortcut = agent.mount()
    agent.check_works()
    assert f"Icon={path}" not in shortcut.read_text()


class IconSession:
    """A user's session in which file managers keep what they know of files, and an agent."""

    PORT = 5078

    def __init__(self, session):
        self._session = session
        self._support = session.home / ".local/share/RavelinDisk"
        self._support.mkdir(parents=True)
        (self._support / "Ravelin Disk Config.plist").write_bytes(
            plistlib.dumps({"MulticastAddresses": [["239.255.0.1", self.PORT]]}))
        self.picture = self._support / "icon.ico"
        self.shortcut = session.desktop / "USB Disk.app"
        session.start(EXECUTABLE)

    def make(self):
        """The shortcut, anew."""
        self._announce("unmounted", False)
        self._announce("mounted", True)

    def _announce(self, event, is_there):
        def is_done():
            command = (BIN / "ravelin-disk-announce", event, "127.0.0.1", self.PORT,
                       "--label", "USB Disk")
            assert self._session.run(*command)[0] == 0
            return self.shortcut.exists() == is_there

        wait_until(is_done, f"the shortcut after {event}")
        if is_there:
            # Another disk is mounted after this one has its icon.
            other = self._session.desktop / "Other.app"
            for wanted, what in ((True, "mounted"), (False, "unmounted")):
                wait_until(lambda: self._session.run(
                    BIN / "ravelin-disk-announce", what, "127.0.0.1", self.PORT, "--label", "Other",
                    "--uuid", "other")[0] == 0 and other.exists() == wanted, "the other shortcut")

    def icon(self):
        """The icon that is kept for the shortcut."""
        status, output, errors = self._session.run(
            "gio", "info", "--attributes=metadata::custom-icon", self.shortcut)
        assert status == 0, errors
        _, found, value = output.partition("metadata::custom-icon: ")
        return value.strip() if found else None

    def choose(self, uri):
        """The icon that the user gives the shortcut in a file manager."""
        command = ("gio", "set", self.shortcut, "metadata::custom-icon", uri)
        assert self._session.run(*command)[0] == 0


@pytest.fixture(name="icons")
def _icons(needs_root):
    needs_root("tests of what file managers keep of shortcuts")
    with Session() as session:
        yield IconSession(session)


def test_an_icon_goes_when_its_picture_has_gone(icons):
    icons.make()
    assert icons.icon() is None
    icons.picture.write_bytes(icon())
    icons.make()
    assert icons.icon() == icons.picture.as_uri()
    icons.picture.unlink()
    icons.make()
    assert icons.icon() is None
    assert "Icon=ravelin-disk\n" in icons.shortcut.read_text()


def test_an_icon_that_the_user_has_chosen_stays(icons):
    icons.picture.write_bytes(icon())
    icons.make()
    icons.picture.unlink()
    for uri in ("file:///home/user/icon.ico", "file:///home/user/RavelinDisk/icon.png"):
        icons.choose(uri)
        icons.make()
        assert icons.icon() == uri
