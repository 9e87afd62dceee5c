"""However much strangers send, disks come and go, and the agent stays small and can be ended."""

import contextlib
import multiprocessing
import random
import socket
import time

import pytest

from agent import PATIENCE, SANITIZER, icon, wait_until
from test_hostile import LABELS

FLOOD = 200_000 if SANITIZER is None else 20_000
# As many disks may be waiting to be mounted when an ordinary one comes.
FLOOD_PATIENCE = 3 * PATIENCE
RANDOM_DATAGRAMS = 100_000 if SANITIZER == "tsan" else 1_000_000
POOL = 20_000
BURST = 64
KIB_LIMIT = 64 * 1024
# What one sender may have: known disks, and bytes of all the texts that are kept of it.
KNOWN_LIMIT = 1024
TEXT_LIMIT = 1024 * 1024


STRANGER = "127.0.0.2"  # the devices send from 127.0.0.1


def sent_as_fast_as_possible(port, payload, count, total):
    """Sends payload(n) for the numbers below count, or without end."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.bind((STRANGER, 0))
        number = 0
        while count is None or number < count:
            sender.sendto(payload(number), ("127.0.0.1", port))
            number += 1
            if number % 1000 == 0:
                total.value = number
        total.value = number


@contextlib.contextmanager
def flood(agent, payload, count=None):
    """A process that sends; with the number that it has sent so far."""
    total = multiprocessing.Value("q", 0, lock=False)
    sender = multiprocessing.get_context("fork").Process(
        target=sent_as_fast_as_possible, args=(agent.ports[0], payload, count, total), daemon=True)
    sender.start()
    try:
        wait_until(lambda: total.value > 0, "flood")
        yield sender, total
    finally:
        sender.kill()
        sender.join()


def distinct(event):
    return lambda number: (f"event:{event};mac:{number % 50};ip:192.0.2.10;uuid:{number};"
                           f"label:Flood {number}").encode()


DROPPED = f"Ravelin Disk: Announcements from {STRANGER} are dropped: "


def check_memory(agent):
    """Bounded, where the sanitizers add nothing of their own."""
    if SANITIZER is None:
        assert agent.status("VmHWM") < KIB_LIMIT


@pytest.mark.parametrize("event", ["disk_mounted", "disk_status"])
def test_flood_of_distinct_disks(home, event):
    agent = home.start()
    with home.nothing_changes_elsewhere():
        with flood(agent, distinct(event), FLOOD) as (sender, total):
            agent.check_works(FLOOD_PATIENCE)
            sender.join(FLOOD_PATIENCE)
            assert total.value == FLOOD
        agent.check_works(FLOOD_PATIENCE)
        assert 0 < len(home.shortcuts()) <= KNOWN_LIMIT
        assert agent.log().count(DROPPED) <= 1
        check_memory(agent)
        assert agent.terminate() == 0
        agent.check_clean_end()


@pytest.mark.parametrize("payload", [
    lambda number: b"event:disk_mounted;size:5",
    lambda number: b"\xff" * 1400,
    lambda number: b";" * 60_000,
    lambda number: b"event:disk_status;mac:a;ip:1;uuid:always;label:Always",
    lambda number: b"event:disk_unmounted;mac:a;uuid:%d" % number,
], ids=["unknown key", "not ASCII", "more than can be read", "the same disk", "unknown disks"])
def test_endless_flood_holds_up_neither_disks_nor_the_end(home, payload):
    agent = home.start()
    with flood(agent, payload) as (_, total):
        agent.check_works()
        before = total.value
        agent.check_works()
        assert total.value > before
        check_memory(agent)
        assert agent.terminate() == 0
        assert home.shortcuts() == []


def test_one_sender_may_have_so_many_disks_and_no_more(home):
    agent = home.start()
    payload = distinct("disk_status")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.bind((STRANGER, 0))

        def are_there():
            # Slowly enough that none is lost on the way, or it comes with the next round.
            for number in range(KNOWN_LIMIT + 100):
                sender.sendto(payload(number), ("127.0.0.1", agent.ports[0]))
                if number % 16 == 0:
                    time.sleep(0.005)
            return len(home.shortcuts()) >= KNOWN_LIMIT

        wait_until(are_there, "as many shortcuts as one sender may have", FLOOD_PATIENCE)
        agent.check_works()
        are_there()
        agent.check_works()
    assert len(home.shortcuts()) == KNOWN_LIMIT
    assert agent.log().count(DROPPED) == 1
    assert agent.terminate() == 0
    agent.check_clean_end()


def test_flood_of_long_texts_is_held_to_a_mebibyte(home):
    filler = "x" * 60_000
    agent = home.start()
    with flood(agent, lambda number: (f"event:disk_status;mac:{filler};ip:192.0.2.10;"
                                      f"uuid:{number};label:Flood {number}").encode()):
        wait_until(lambda: DROPPED in agent.log(), "line about the sender")
        agent.check_works(FLOOD_PATIENCE)
        agent.check_works(FLOOD_PATIENCE)
        assert 0 < len(home.shortcuts()) <= TEXT_LIMIT // len(filler)
        check_memory(agent)
        assert agent.terminate() == 0
        agent.check_clean_end()


def coming_and_going(number):
    """More changes than can be made."""
    event = "disk_unmounted" if number % 2 else "disk_status"
    disk = number // 2 % 30_000
    return (f"event:{event};mac:{disk % 50};ip:192.0.2.10;uuid:{disk};"
            f"label:Flood {disk}").encode()


@pytest.mark.parametrize("with_icon", [False, True], ids=["no icon", "icon"])
def test_disks_come_and_go_while_those_of_a_flood_never_rest(home, with_icon):
    if with_icon:
        (home.machine_config.parent / "icon.ico").write_bytes(icon())
    agent = home.start()
    with flood(agent, coming_and_going) as (_, total):
        wait_until(lambda: "is being mounted because" in agent.log(), "flood")
        for _ in range(3):
            before = total.value
            agent.check_works(FLOOD_PATIENCE)
            assert total.value > before
        check_memory(agent)
        assert agent.terminate() == 0
        agent.check_clean_end()


def test_endless_flood_of_distinct_disks_does_not_hold_up_the_end(home):
    agent = home.start()
    with flood(agent, distinct("disk_mounted")) as (_, total):
        wait_until(lambda: total.value > FLOOD and len(home.shortcuts()) > 100, "flood")
        check_memory(agent)
        assert agent.terminate() == 0
        agent.check_clean_end()


def mutated(rng):
    """An announcement with something wrong with it, seldom with nothing wrong."""
    kind = rng.random()
    if kind < 0.2:
        return rng.randbytes(rng.choice([1, 2, 8, 83, 1472]))
    if kind < 0.25:
        return bytes(rng.choices(b"event:macipuudlb;\n\0%", k=rng.randrange(1, 300)))
    hostile = [*LABELS, "192.0.2.10", "02:00:00:00:00:01", "1234", "", "disk_status", "%s%n", "\t"]
    hostile = [value for value in hostile if len(value) < 1000]
    pairs = [["event", rng.choice(["disk_status"] * 12 + ["no_disk", "disk_unmounted",
                                                         "disk_mounted", "x"])],
             ["mac", f"02:00:00:00:00:{rng.randrange(20):02}"],
             ["ip", f"192.0.2.{rng.randrange(256)}"],
             ["uuid", f"{rng.randrange(500)}"],
             ["label", f"Disk {rng.randrange(500)}"]]
    for _ in range(rng.randrange(3)):
        rng.choice(pairs[1:])[1] = rng.choice(hostile)
    change = rng.random()
    if change < 0.1:
        pairs.pop(rng.randrange(len(pairs)))
    elif change < 0.2:
        pairs.append(rng.choice(pairs))
    elif change < 0.3:
        rng.shuffle(pairs)
    elif change < 0.35:
        rng.choice(pairs)[0] = rng.choice(["", "Event", " mac", "uuid ", "size"])
    payload = bytearray(";".join(":".join(pair) for pair in pairs).encode("latin-1"))
    change = rng.random()
    if change < 0.2:
        for _ in range(rng.randrange(1, 4)):
            payload[rng.randrange(len(payload))] = rng.randrange(256)
    elif change < 0.3:
        del payload[rng.randrange(1, len(payload)):]
    elif change < 0.35:
        position = rng.randrange(len(payload))
        payload[position:position] = rng.choice([b";", b":", b"\0", b"\n", b"%", b";;", b"/../"])
    elif change < 0.352:
        payload *= rng.randrange(2, 60_000 // len(payload))
    return bytes(payload)


def test_random_and_mutated_datagrams(home):
    """None is lost on the way, so that the agent has met them all."""
    rng = random.Random(20240117)
    pool = [mutated(rng) for _ in range(POOL)]
    agent = home.start()
    (home.desktop / "link").symlink_to(home.outside)
    (home.outside / "Disk 1.app").write_text("not yours")
    sent = 0
    with home.nothing_changes_elsewhere(), \
            socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        # Some are complete enough to fill what one sender may have.
        sender.bind((STRANGER, 0))
        sender.connect(("127.0.0.1", agent.ports[0]))
        while sent < RANDOM_DATAGRAMS:
            rng.shuffle(pool)
            for first in range(0, POOL, BURST):
                for payload in pool[first:first + BURST]:
                    sender.send(payload)
                end = time.monotonic() + PATIENCE
                while agent.unread_and_lost()[0] > 20_000:
                    assert time.monotonic() < end, "the agent reads no more"
                    time.sleep(0.0005)
            sent += POOL
            if sent % (10 * POOL) == 0:
                agent.check_works()
        agent.check_works()
        assert agent.unread_and_lost()[1] < sent / 100
        check_memory(agent)
        assert agent.terminate() == 0
    assert home.shortcuts() == ["link"]
    agent.check_last_line()
