"""The agent's helper for pictures: what it may use, and what its troubles may do to the agent."""

import os
import struct
import zlib

from agent import BIN, EXECUTABLE, HELPER, icon

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
