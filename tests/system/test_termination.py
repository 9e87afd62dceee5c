"""SIGTERM, whenever it comes: nothing is left on the desktop, and the status is 0."""

import concurrent.futures
import fcntl
import functools
import os
import random
import signal
import struct
import termios
import time

import pytest

from agent import (ENDED, PATIENCE, SANITIZER, Agent, Home, check_for_reports, icon,
                   message, wait_until)

INSTANTS = 300 if SANITIZER is None else 60
SESSION_ENDS = 60 if SANITIZER is None else 20
EARLY_INSTANTS = 100 if SANITIZER is None else 40
AT_ONCE = 6
TICK = 0.5


def test_idle_agent_ends(home):
    agent = home.start()
    assert agent.terminate() == 0
    agent.check_clean_end()
    assert agent.log().endswith(ENDED)


def test_mounted_disks_are_removed(home):
    (home.desktop / "mine.txt").write_text("the user's")
    (home.desktop / "Other.app").write_text("somebody else's")
    agent = home.start()
    for number in range(20):
        agent.announce("disk_mounted", uuid=str(number), label=f"Disk {number}")
    home.wait_for_shortcuts("mine.txt", "Other.app", *(f"Disk {n}.app" for n in range(20)))
    assert agent.terminate() == 0
    assert home.shortcuts() == ["Other.app", "mine.txt"]
    assert agent.log().endswith(ENDED)


def test_ends_although_a_shortcut_was_thrown_away(home):
    agent = home.start()
    agent.mount("One", uuid="1").unlink()
    agent.mount("Two", uuid="2")
    assert agent.terminate() == 0
    agent.check_clean_end()
    assert "Error when deleting alias file. Reason: No such file or directory\n" in agent.log()


def test_second_signal_changes_nothing(home):
    agent = home.start()
    for number in range(200):
        agent.announce("disk_mounted", uuid=str(number), label=f"Disk {number}")
    wait_until(lambda: len(home.shortcuts()) == 200, "200 shortcuts")
    agent.signal(signal.SIGTERM)
    agent.signal(signal.SIGTERM)
    time.sleep(0.001)
    agent.signal(signal.SIGTERM)
    agent.check_clean_end()


def end_session(seed):
    """One agent with disks, ended as at the end of a session: SIGTERM and at once, or almost, the
    other signals that a session and its terminal send."""
    rng = random.Random(seed)
    others = [signal.SIGHUP, signal.SIGINT, signal.SIGQUIT]
    rng.shuffle(others)
    with Home() as home:
        agent = home.start()
        for number in range(50):
            agent.announce("disk_mounted", uuid=str(number), label=f"Disk {number}")
        wait_until(lambda: len(home.shortcuts()) == 50, "50 shortcuts")
        time.sleep(rng.uniform(0, 0.02))
        agent.signal(signal.SIGTERM)
        for other in others[:rng.randrange(1, 4)]:
            instant = time.monotonic() + rng.choice([0, 0, rng.uniform(0, 0.0005),
                                                     rng.uniform(0, 0.02)])
            while time.monotonic() < instant:
                pass
            agent.signal(other)
        try:
            agent.check_clean_end()
        except AssertionError as error:
            raise AssertionError(f"seed {seed}") from error


def test_signals_right_behind_it_change_nothing():
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as threads:
        list(threads.map(end_session, range(SESSION_ENDS)))


def test_signals_behind_it_change_nothing_while_a_helper_holds_up_the_agent(home):
    program = home.install(helper=f"touch {home.base}/helping; exec sleep 1000")
    home.user_config.parent.mkdir(parents=True)
    (home.user_config.parent / "icon.ico").write_bytes(icon())
    agent = home.start(command=[program])
    agent.announce("disk_mounted")
    wait_until((home.base / "helping").exists, "a helper that hangs")
    for number in signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGQUIT:
        agent.signal(number)
    agent.check_clean_end()


@pytest.mark.parametrize("number", [signal.SIGHUP, signal.SIGINT, signal.SIGQUIT])
def test_without_it_these_signals_end_the_agent_as_they_end_every_program(home, number):
    agent = home.start()
    path = agent.mount()
    before = agent.log()
    agent.signal(number)
    assert agent.exit_status() == -number
    assert path.exists()
    assert ENDED not in agent.log()
    assert agent.log().startswith(before)


def start_up_time():
    """Seconds from the start of the process to its first line."""
    with Home() as home:
        start = time.monotonic()
        agent = Agent(home)
        wait_until(agent.log, "first console line", period=0.0005)
        return time.monotonic() - start


def end_early(delay):
    """Answers whether the agent was there already to handle the signal."""
    with Home() as home:
        port = home.free_port()
        home.configure(port)
        agent = Agent(home, [port])
        time.sleep(delay)
        agent.signal(signal.SIGTERM)
        status = agent.exit_status()
        if status == -signal.SIGTERM:
            # The system's own answer, before the process has got as far as to give its own.
            assert agent.log() == ""
            assert home.shortcuts() == []
            return False
        agent.check_clean_end()
        assert agent.log().endswith(ENDED)
        return True


def test_signal_right_after_the_start():
    longest = max(0.05, 2 * start_up_time())
    delays = [longest * number / EARLY_INSTANTS for number in range(EARLY_INSTANTS + 1)]
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as threads:
        handled = list(threads.map(end_early, delays))
    assert any(handled[len(handled) // 2:])


def stream_and_end(seed, with_icon=False):
    """One agent in a stream of 2,000 announcements a second, ended at a random instant."""
    rng = random.Random(seed)
    events = ["disk_mounted"] * 4 + ["disk_status"] * 2 + ["disk_unmounted"] * 4 + ["no_disk"]
    texts = []
    for number in range(400):
        event = rng.choice(events)
        disk = rng.randrange(60)
        texts.append(message(event, uuid=str(disk), label=f"Disk {disk}", mac=str(disk % 7),
                             ip=f"192.0.2.{disk}"))
    with Home() as home:
        if with_icon:
            home.user_config.parent.mkdir(parents=True)
            (home.user_config.parent / "icon.ico").write_bytes(icon())
        agent = home.start()
        start = time.monotonic()
        # The decisions are made in ticks: most instants lie where there is work.
        if rng.random() < 0.8:
            instant = start + TICK * rng.randrange(1, 4) + rng.uniform(-0.015, 0.035)
        else:
            instant = start + rng.uniform(0, 3 * TICK)
        terminated = False
        while agent.is_running():
            now = time.monotonic()
            assert now - instant < PATIENCE
            for text in rng.sample(texts, 20):
                agent.send(text)
            if not terminated and instant - now < 0.01:
                time.sleep(max(0, instant - time.monotonic()))
                agent.signal(signal.SIGTERM)
                terminated = True
            else:
                time.sleep(0.01)
        try:
            agent.check_clean_end()
        except AssertionError as error:
            raise AssertionError(f"seed {seed}, {instant - start:.4f} s after the start") from error


def test_signal_at_random_instants_under_a_stream_of_announcements():
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as threads:
        list(threads.map(stream_and_end, range(INSTANTS)))


def test_signal_at_random_instants_while_icons_are_set():
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as threads:
        list(threads.map(functools.partial(stream_and_end, with_icon=True),
                         range(INSTANTS // 10)))


def start_with_standard_error(home, stderr):
    port = home.free_port()
    home.configure(port)
    return Agent(home, [port], stderr=stderr)


def test_log_that_nobody_reads_stalls_nothing(home):
    reader, writer = os.pipe()
    capacity = fcntl.fcntl(writer, fcntl.F_GETPIPE_SZ)
    agent = start_with_standard_error(home, writer)
    os.close(writer)

    def unread():
        return struct.unpack("i", fcntl.ioctl(reader, termios.FIONREAD, b"\0" * 4))[0]

    def is_full():
        for number in range(100):
            agent.announce("disk_mounted", uuid=str(number), label="Disk " + "x" * 100)
        return unread() > capacity - 4096

    try:
        wait_until(is_full, "full pipe")
        agent.mount("Late", uuid="late")
        agent.announce("disk_unmounted", uuid="late")
        home.wait_until_gone(home.desktop / "Late.app")
        assert agent.terminate() == 0
        assert home.shortcuts() == []
        with os.fdopen(reader, "rb", closefd=False) as pipe:
            log = pipe.read()
        check_for_reports(log)
        assert b"Success initializing Cocoa.\n" in log
    finally:
        os.close(reader)


def test_log_whose_reader_has_gone_stalls_nothing(home):
    reader, writer = os.pipe()
    os.close(reader)
    agent = start_with_standard_error(home, writer)
    os.close(writer)
    agent.mount()
    assert agent.terminate() == 0
    assert home.shortcuts() == []
