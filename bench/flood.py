#!/usr/bin/env python3
"""Floods a real agent from one address, and prints what becomes of it and of the devices of others.

Usage: flood.py BIN [--seconds N] [--rate N] [--icon] [SCENARIO...]

BIN is the folder of the executables. A scenario is one of: mounted, status, long (60 kB of texts
each) and changing (disks that come and go without end); all of them without one. The flood comes
from 127.0.0.2, at N datagrams a second or, with 0, as fast as this machine sends. Meanwhile a device
at 127.0.0.3 announces a disk once, waits for its shortcut, announces that it is gone and waits for
that, again and again; an announcement that the system loses because the agent's socket is full is
repeated after a second, as devices do. No datagram leaves the machine.
"""

import argparse
import importlib
import multiprocessing
import os
import socket
import statistics
import sys
import time

import report

STRANGER = "127.0.0.2"
DEVICE = "127.0.0.3"
REPEAT = 1.0  # seconds
PATIENCE = 60.0
FILLER = "x" * 60_000


def mounted(number):
    return (f"event:disk_mounted;mac:{number % 50};ip:192.0.2.10;uuid:{number};"
            f"label:Flood {number}").encode()


def status(number):
    return (f"event:disk_status;mac:{number % 50};ip:192.0.2.10;uuid:{number};"
            f"label:Flood {number}").encode()


def long(number):
    return (f"event:disk_status;mac:{FILLER};ip:192.0.2.10;uuid:{number};"
            f"label:Flood {number}").encode()


def changing(number):
    event = "disk_unmounted" if number % 2 else "disk_status"
    disk = number // 2 % 900
    return (f"event:{event};mac:{disk % 50};ip:192.0.2.10;uuid:{disk};"
            f"label:Flood {disk}").encode()


SCENARIOS = {"mounted": mounted, "status": status, "long": long, "changing": changing}


def send(port, payload, rate, seconds, total):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.bind((STRANGER, 0))
        start = time.monotonic()
        number = 0
        while True:
            passed = time.monotonic() - start
            if passed >= seconds:
                break
            for _ in range(64 if not rate else max(0, min(64, int(passed * rate) - number))):
                try:
                    sender.sendto(payload(number), ("127.0.0.1", port))
                except OSError:
                    pass
                number += 1
            total.value = number
            if rate and number >= passed * rate:
                time.sleep(0.0005)


class Device:
    """Announces to the agent, and knows how often and how long it had to wait."""

    def __init__(self, agent):
        self._agent = agent
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind((DEVICE, 0))
        self.latencies = {"disk_mounted": [], "disk_unmounted": []}
        self.repeats = 0

    def announce(self, event, number, end):
        """False when the time is up before anything is seen of it."""
        text = (f"event:{event};mac:02:00:00:00:00:01;ip:192.0.2.20;uuid:device-{number};"
                f"label:Device {number}").encode()
        path = os.path.join(self._agent.desktop, f"Device {number}.app")
        start = sent = time.monotonic()
        self._socket.sendto(text, ("127.0.0.1", self._agent.port))
        while os.path.lexists(path) != (event == "disk_mounted"):
            now = time.monotonic()
            if now > end:
                return False
            if now - sent > REPEAT:
                self._socket.sendto(text, ("127.0.0.1", self._agent.port))
                sent = now
                self.repeats += 1
            time.sleep(0.002)
        self.latencies[event].append(time.monotonic() - start)
        return True


def picture(folder):
    """The one that the system tests use."""
    os.environ["RAVELIN_DISK_BIN"] = folder
    sys.path.append(os.path.join(os.path.dirname(__file__), "..", "tests", "system"))
    return importlib.import_module("agent").icon()


def described(latencies):
    if not latencies:
        return "none"
    return (f"{len(latencies)} times, median {statistics.median(latencies):.2f} s, "
            f"worst {max(latencies):.2f} s")


def run(folder, name, rate, seconds, with_icon):
    with report.Agent(folder) as agent:
        if with_icon:
            agent.install_icon(picture(folder))
        device = Device(agent)
        total = multiprocessing.Value("q", 0, lock=False)
        flood = multiprocessing.get_context("fork").Process(
            target=send, args=(agent.port, SCENARIOS[name], rate, seconds, total), daemon=True)
        flood.start()
        end = time.monotonic() + seconds
        number = 0
        time.sleep(0.5)
        gave_up = ""
        while time.monotonic() < end:
            # An answer may come after the flood, too.
            if not (device.announce("disk_mounted", number, end + PATIENCE)
                    and device.announce("disk_unmounted", number, end + PATIENCE)):
                gave_up = "yes"
                break
            number += 1
            time.sleep(0.05 * (number % 7))
        flood.join()
        lost = agent.lost()
        speed = f"{rate:,}/s wanted" if rate else "full speed"
        print(f"\n{name}{' with icons' if with_icon else ''}, {speed}, {seconds:.0f} s: "
              f"{total.value:,} sent, {lost:,} dropped by the system")
        print(f"  shortcuts        {len(os.listdir(agent.desktop)):,}")
        print(f"  resident size    {agent.resident():,} kB, at its worst {agent.peak():,} kB")
        print(f"  log              {len(agent.log()):,} bytes")
        print(f"  a device's disk  comes: {described(device.latencies['disk_mounted'])}")
        print(f"                   goes: {described(device.latencies['disk_unmounted'])}")
        print(f"                   {device.repeats} announcements had to be repeated"
              f"{'; in the end in vain' if gave_up else ''}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("bin", help="the folder of the executables")
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--rate", type=int, default=0)
    parser.add_argument("--icon", action="store_true", help="install an icon for the shortcuts")
    parser.add_argument("scenario", nargs="*", help=", ".join(SCENARIOS))
    arguments = parser.parse_intermixed_args()
    if unknown := set(arguments.scenario) - set(SCENARIOS):
        parser.error(f"no such scenario: {', '.join(unknown)}")
    for name in arguments.scenario or SCENARIOS:
        run(arguments.bin, name, arguments.rate, min(arguments.seconds, 120), arguments.icon)


if __name__ == "__main__":
    sys.exit(main())
