#!/usr/bin/env python3
"""What a device does about one disk: it says that the disk is there, says so again and again, and says
at the end, when it gets SIGTERM or SIGINT, that it is gone. Everything else is in ../protocol.md.

    python3 announce.py 02:00:00:00:00:01 192.0.2.10 1234-ABCD "USB Disk"
"""

import signal
import socket
import sys
import time

GROUP = ("239.255.77.1", 5077)

seconds = int(sys.argv[5]) if len(sys.argv) > 5 else 30
if len(sys.argv) not in (5, 6) or seconds < 1:
    sys.exit("usage: announce.py MAC ADDRESS UUID LABEL [SECONDS]")
mac, address, uuid, label = sys.argv[1:5]
sender = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
# A device often has no route to groups, so the interface is chosen: the one with the address that is
# announced. With several interfaces, have a socket for each and announce its own address there.
sender.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton(address))


def announce(event):
    text = f"event:{event};mac:{mac};ip:{address};uuid:{uuid};label:{label}"
    try:
        # Another encoding would not help: with one byte beyond ASCII nobody heeds the announcement.
        sender.sendto(text.encode("ascii"), GROUP)
    except OSError as error:
        # Not the end: the cable may be out, and back the next time.
        print(f"announce.py: {error}", file=sys.stderr, flush=True)


# The end is waited for together with the time of the next announcement.
endings = {signal.SIGINT, signal.SIGTERM}
signal.pthread_sigmask(signal.SIG_BLOCK, endings)
for _ in range(2):  # as datagrams get lost
    announce("disk_unmounted")  # whoever knows the disk by another address forgets it
    time.sleep(1)
announce("disk_mounted")  # once, as desktops log it
while signal.sigtimedwait(endings, seconds) is None:
    announce("disk_status")
announce("disk_unmounted")
