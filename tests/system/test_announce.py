"""ravelin-disk-announce, as its user and as the receiving peer see it."""

import contextlib
import os
import signal
import socket
import subprocess
import time

import pytest

COMMAND = os.path.join(os.environ["RAVELIN_DISK_BIN"], "ravelin-disk-announce")
GROUP = "239.255.77.1"
PATIENCE = 30  # seconds, against hanging only
IP_RECVTTL = 12  # missing in the socket module
EXAMPLE = (
    b"event:disk_mounted;mac:02:00:00:00:00:01;ip:192.0.2.10;uuid:1234-ABCD;label:USBDISK"
)


class Peer:
    """A receiver on the loopback interface, with the receive buffer that a socket usually has."""

    def __init__(self, group=None):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.settimeout(PATIENCE)
        self.host = group or "127.0.0.1"
        self.socket.bind((self.host, 0))
        self.port = self.socket.getsockname()[1]
        if group:
            membership = socket.inet_aton(group) + socket.inet_aton("127.0.0.1")
            self.socket.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, membership)

    def receive(self):
        return self.socket.recv(65536)

    def receive_all(self):
        """What has arrived by now."""
        received = []
        self.socket.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while True:
                received.append(self.socket.recv(65536))
        self.socket.settimeout(PATIENCE)
        return received


@pytest.fixture
def peer():
    one = Peer()
    with one.socket:
        yield one


@pytest.fixture
def member():
    one = Peer(GROUP)
    with one.socket:
        yield one


def run(*arguments):
    return subprocess.run(
        [COMMAND, *map(str, arguments)], capture_output=True, timeout=PATIENCE, check=False
    )


def announce(peer, *arguments):
    """Sends to the peer, which must work, and returns what arrived and what was printed."""
    result = run(*arguments, peer.host, peer.port)
    assert (result.returncode, result.stderr) == (0, b"")
    return peer.receive_all(), result.stdout


def refusal(*arguments, status=2):
    """The one line that says why nothing was sent."""
    result = run(*arguments)
    assert (result.returncode, result.stdout) == (status, b"")
    assert result.stderr.startswith(b"ravelin-disk-announce: ")
    assert result.stderr.endswith(b"\n") and result.stderr.count(b"\n") == 1
    line = result.stderr.decode().removeprefix("ravelin-disk-announce: ").removesuffix("\n")
    assert line.endswith("; see --help") == (status == 2)
    return line.removesuffix("; see --help")


@contextlib.contextmanager
def running(peer, *arguments):
    process = subprocess.Popen(
        [COMMAND, *map(str, arguments), peer.host, str(peer.port)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
    )
    try:
        yield process
    finally:
        process.kill()
        process.communicate()


# What is announced


def test_the_example(peer):
    assert len(EXAMPLE) == 83
    options = ["--mac", "02:00:00:00:00:01", "--ip", "192.0.2.10"]
    options += ["--uuid", "1234-ABCD", "--label", "USBDISK"]
    assert announce(peer, *options, "mounted") == ([EXAMPLE], EXAMPLE + b"\n")
    assert announce(peer, "--ip", "192.0.2.10", "mounted")[0] == [EXAMPLE]


@pytest.mark.parametrize(
    ("names", "text"),
    [
        (
            ["mounted", "disk_mounted"],
            b"event:disk_mounted;mac:02:00:00:00:00:01;ip:127.0.0.1;uuid:1234-ABCD;label:USBDISK",
        ),
        (
            ["status", "disk_status"],
            b"event:disk_status;mac:02:00:00:00:00:01;ip:127.0.0.1;uuid:1234-ABCD;label:USBDISK",
        ),
        (
            ["unmounted", "disk_unmounted"],
            b"event:disk_unmounted;mac:02:00:00:00:00:01;uuid:1234-ABCD",
        ),
        (["no-disk", "no_disk"], b"event:no_disk;mac:02:00:00:00:00:01"),
    ],
)
def test_every_event_sends_the_pairs_that_it_needs(peer, names, text):
    for name in names:
        assert announce(peer, name) == ([text], text + b"\n")


def test_the_values_given_are_sent(peer):
    options = ["--mac", "02:00:00:00:00:ff", "--ip", "192.0.2.99"]
    options += ["--uuid", "u u", "--label", "My: \\ Disk"]
    text = b"mac:02:00:00:00:00:ff;ip:192.0.2.99;uuid:u u;label:My: \\ Disk"
    for event, sent in [("status", b"disk_status"), ("unmounted", b"disk_unmounted")]:
        assert announce(peer, *options, event)[0] == [b"event:" + sent + b";" + text]
    assert announce(peer, *options, "no-disk")[0] == [b"event:no_disk;" + text]


def test_a_pair_that_the_event_can_do_without_is_sent_when_given(peer):
    assert announce(peer, "--label", "X", "unmounted")[0] == [
        b"event:disk_unmounted;mac:02:00:00:00:00:01;uuid:1234-ABCD;label:X"
    ]


def test_a_value_may_be_empty_and_may_begin_with_a_hyphen(peer):
    assert announce(peer, "--mac=", "--uuid", "--quiet", "unmounted")[0] == [
        b"event:disk_unmounted;mac:;uuid:--quiet"
    ]


def test_a_value_is_taken_as_it_is(peer):
    for value in ["--", "-", "a=b=", "[x,y]", "{}", "%%", '"q"', "'", "\\", " ", "++", "-1"]:
        sent = b"event:disk_unmounted;mac:02:00:00:00:00:01;uuid:" + value.encode()
        assert announce(peer, "--uuid", value, "unmounted")[0] == [sent]
        assert announce(peer, f"--uuid={value}", "unmounted")[0] == [sent]


def test_of_a_repeated_option_the_last_value_counts(peer):
    options = ["--mac", "a", "--quiet", "--mac=b", "--quiet", "--disks", 5, "--disks", 1]
    assert announce(peer, *options, "unmounted") == (
        [b"event:disk_unmounted;mac:b;uuid:1234-ABCD-1"], b"")


def test_options_may_stand_anywhere(peer):
    result = run("unmounted", "--mac", "m", "127.0.0.1", "--uuid", "u", peer.port, "--quiet")
    assert result.returncode == 0
    assert peer.receive_all() == [b"event:disk_unmounted;mac:m;uuid:u"]
    assert announce(peer, "--mac", "m", "--", "no-disk")[0] == [b"event:no_disk;mac:m"]


def test_a_name_of_a_host(peer):
    assert run("no-disk", "localhost", peer.port).returncode == 0
    assert peer.receive_all() == [b"event:no_disk;mac:02:00:00:00:00:01"]


def test_pairs_can_be_omitted(peer):
    pairs = EXAMPLE.split(b";")
    for pair in pairs:
        key = pair.split(b":")[0].decode()
        expected = b";".join(other for other in pairs if other != pair)
        assert announce(peer, "--ip", "192.0.2.10", "--omit", key, "mounted")[0] == [expected]
    options = ["--omit", "event", "--label", "X", "--omit", "label", "--omit", "ip"]
    assert announce(peer, *options, "mounted")[0] == [b"mac:02:00:00:00:00:01;uuid:1234-ABCD"]


def test_a_raw_text_is_sent_as_it_is(peer):
    for text in [b"size:1;;event: no_disk;\n", b"\xff\x80", b"x", b"EVENT;"]:
        result = subprocess.run(
            [COMMAND, "--raw", text, peer.host, str(peer.port)], timeout=PATIENCE, check=True
        )
        assert result.returncode == 0
        assert peer.receive_all() == [text]
    assert announce(peer, "--raw", "") == ([b""], b"\n")


def test_disks_are_told_apart_by_uuid_and_label(peer):
    received, printed = announce(peer, "--disks", 3, "--ip", "192.0.2.9", "--label", "L", "mounted")
    assert received == [
        b"event:disk_mounted;mac:02:00:00:00:00:01;ip:192.0.2.9;uuid:1234-ABCD-%d;label:L-%d" % (n, n)
        for n in (1, 2, 3)
    ]
    assert printed == b"".join(text + b"\n" for text in received)
    assert announce(peer, "--disks", 2, "--uuid", "u", "unmounted")[0] == [
        b"event:disk_unmounted;mac:02:00:00:00:00:01;uuid:u-%d" % n for n in (1, 2)
    ]
    assert announce(peer, "--disks", 1, "unmounted")[0] == [
        b"event:disk_unmounted;mac:02:00:00:00:00:01;uuid:1234-ABCD-1"
    ]


# What is printed


def test_what_is_printed_shows_every_byte(peer):
    received, printed = announce(peer, "--mac", "a\nb\rc\td\x01\x7f\\n", "no-disk")
    assert received == [b"event:no_disk;mac:a\nb\rc\td\x01\x7f\\n"]
    assert printed == b"event:no_disk;mac:a\\nb\\rc\\td\\x01\\x7f\\\\n\n"


def test_quiet_prints_nothing(peer):
    assert announce(peer, "--quiet", "no-disk") == ([b"event:no_disk;mac:02:00:00:00:00:01"], b"")


def test_an_output_that_takes_nothing_is_a_failure(peer):
    with open("/dev/full", "wb") as full:
        result = subprocess.run(
            [COMMAND, "no-disk", peer.host, str(peer.port)],
            stdout=full,
            stderr=subprocess.PIPE,
            timeout=PATIENCE,
            check=False,
        )
    assert result.returncode == 1
    assert result.stderr == b"ravelin-disk-announce: cannot write to standard output\n"


# How often


def test_rounds_follow_each_other_until_a_signal(peer):
    for ending in (signal.SIGINT, signal.SIGTERM):
        with running(peer, "--every", "0.05", "--disks", 2, "unmounted") as process:
            texts = [peer.receive() for _ in range(6)]
            process.send_signal(ending)
            printed, errors = process.communicate(timeout=PATIENCE)
        assert (process.returncode, errors) == (0, b"")
        pair = [b"event:disk_unmounted;mac:02:00:00:00:00:01;uuid:1234-ABCD-%d" % n for n in (1, 2)]
        assert texts == pair * 3
        texts += peer.receive_all()
        assert printed.splitlines() == texts


def test_a_round_waits_its_time(peer):
    start = time.monotonic()
    with running(peer, "--every", "0.3", "no-disk"):
        for _ in range(4):
            peer.receive()
    assert time.monotonic() - start >= 3 * 0.3


def test_a_signal_ends_a_long_wait_at_once(peer):
    with running(peer, "--every", "1000000", "no-disk") as process:
        peer.receive()
        process.send_signal(signal.SIGTERM)
        assert process.wait(timeout=PATIENCE) == 0


def test_a_signal_ends_a_long_round(peer):
    with running(peer, "--every", "1", "--disks", 1000, "--pace", 1, "mounted") as process:
        peer.receive()
        process.send_signal(signal.SIGINT)
        assert process.wait(timeout=PATIENCE) == 0


def test_without_rounds_a_signal_ends_the_command_as_any_other(peer):
    with running(peer, "--disks", 1000, "--pace", 1, "mounted") as process:
        peer.receive()
        process.send_signal(signal.SIGTERM)
        assert process.wait(timeout=PATIENCE) == -signal.SIGTERM


def test_nobody_listening_does_not_end_the_rounds(peer):
    other = Peer()
    other.socket.close()
    with subprocess.Popen(
        [COMMAND, "--every", "0.01", "mounted", "127.0.0.1", str(other.port)],
        stdout=subprocess.PIPE,
    ) as process:
        for _ in range(20):
            assert process.stdout.readline().startswith(b"event:disk_mounted;")
        process.terminate()
        process.stdout.read()
        assert process.wait(timeout=PATIENCE) == 0


def test_the_pace_is_kept(peer):
    start = time.monotonic()
    received, _ = announce(peer, "--disks", 50, "--pace", 100, "mounted")
    assert len(received) == 50
    assert time.monotonic() - start >= 49 / 100
    received, _ = announce(peer, "--disks", 100, "--pace", 1000000, "mounted")
    assert len(received) == 100


def test_a_usual_receive_buffer_survives_a_thousand_disks(peer):
    with running(peer, "--disks", 1000, "--pace", 1000, "--quiet", "mounted"):
        uuids = [peer.receive().split(b";")[3] for _ in range(1000)]
    assert uuids == [b"uuid:1234-ABCD-%d" % n for n in range(1, 1001)]


# Which way


@pytest.mark.parametrize("interface", ["lo", "127.0.0.1"])
def test_a_member_of_a_group_on_the_interface_receives(member, interface):
    received, _ = announce(member, "--interface", interface, "mounted")
    # The address announced is the one of the interface.
    assert received == [
        b"event:disk_mounted;mac:02:00:00:00:00:01;ip:127.0.0.1;uuid:1234-ABCD;label:USBDISK"
    ]


@pytest.mark.parametrize(
    ("options", "expected"), [([], 1), (["--ttl", 0], 0), (["--ttl", 255], 255)]
)
def test_the_time_to_live(member, options, expected):
    member.socket.setsockopt(socket.IPPROTO_IP, IP_RECVTTL, 1)
    assert run(*options, "--interface=lo", "no-disk", GROUP, member.port).returncode == 0
    text, control, _, source = member.socket.recvmsg(65536, 100)
    assert text == b"event:no_disk;mac:02:00:00:00:00:01"
    assert source[0] == "127.0.0.1"
    assert [int.from_bytes(data, "little") for _, _, data in control] == [expected]


# What is refused


def test_wrong_arguments_are_named_with_what_is_wanted(peer):
    to = ("127.0.0.1", peer.port)
    number = "a whole number from 1 to 1000000"
    ascii_only = "7-bit ASCII without ';', as nothing else can be announced"
    for arguments, reason in [
        ([], "EVENT: missing"),
        (["mounted"], "HOST: missing"),
        (["mounted", "127.0.0.1"], "PORT: missing"),
        (["--raw", "x"], "HOST: missing"),
        (["mounted", *to, "more"], "'more': one argument too many"),
        (["--raw", "x", "mounted", *to], f"'{peer.port}': one argument too many"),
        (["Mounted", *to], "EVENT: wanted mounted, status, unmounted or no-disk, not 'Mounted'"),
        (["mounted", *to, "--mac"], "--mac: needs a value behind it"),
        (["--quiet=1", "mounted", *to], "--quiet: takes no value"),
        (["--quiet=", "mounted", *to], "--quiet: takes no value"),
        (["--lab", "x", "mounted", *to], "'--lab': no option"),
        (["--Label", "x", "mounted", *to], "'--Label': no option"),
        (["-mac", "x", "mounted", *to], "'-mac': no option"),
        (["--label", "a;b", "mounted", *to], f"--label: wanted {ascii_only}, not 'a;b'"),
        (["--mac", "\u00fc", "mounted", *to], f"--mac: wanted {ascii_only}, not '\u00fc'"),
        (["--uuid", "\n\x80", "no-disk", *to], f"--uuid: wanted {ascii_only}, not '\\n\\xc2\\x80'"),
        (["--disks", "0", "mounted", *to], f"--disks: wanted {number}, not '0'"),
        (["--disks", "1000001", "mounted", *to], f"--disks: wanted {number}, not '1000001'"),
        (["--disks", "2x", "mounted", *to], f"--disks: wanted {number}, not '2x'"),
        (["--pace", "-1", "mounted", *to], f"--pace: wanted {number}, not '-1'"),
        (["--pace", "", "mounted", *to], f"--pace: wanted {number}, not ''"),
        (["--pace=", "mounted", *to], f"--pace: wanted {number}, not ''"),
        (["--pace", "x", "mounted", *to, "--pace", "5"], f"--pace: wanted {number}, not 'x'"),
        (["--pace", "--", "mounted", *to], f"--pace: wanted {number}, not '--'"),
        (["--omit", "X", "no-disk", *to], "--omit: wanted event, mac, ip, uuid or label, not 'X'"),
        (["--ttl", "256", "mounted", *to], "--ttl: wanted a whole number from 0 to 255, not '256'"),
        (
            ["--ttl", "1", "mounted", *to],
            "--ttl: is for multicast groups only, and '127.0.0.1' is none",
        ),
        (
            ["--interface", "lo", "mounted", *to],
            "--interface: is for multicast groups only, and '127.0.0.1' is none",
        ),
        (
            ["--interface", "192.0.2.77", "mounted", GROUP, peer.port],
            "--interface: wanted the name or IPv4 address of a network interface that has one, "
            "not '192.0.2.77'",
        ),
        (["--raw", "x", "--disks", "2", *to], "--raw: cannot go together with --disks"),
        (["--label", "x", "--raw", "x", *to], "--raw: cannot go together with --label"),
        (
            ["--disks", "2", "no-disk", *to],
            "--disks: needs a uuid or a label to number, and none is announced",
        ),
    ]:
        assert refusal(*arguments) == reason
    assert peer.receive_all() == []


@pytest.mark.parametrize(
    "seconds", "0,-1,1e3,inf,nan,0x1,,.,1.2.3, 1,0.0001,1000001".split(",")
)
def test_a_period_is_a_plain_number_of_seconds(peer, seconds):
    assert refusal("--every", seconds, "mounted", "127.0.0.1", peer.port) == (
        f"--every: wanted a number of seconds from 0.001 to 1000000, not '{seconds}'"
    )


@pytest.mark.parametrize("server", [
    "", "device", "device.local", "192.0.2", "192.0.2.256", "192.0.2.010", "192.0.2.10:445", " 192.0.2.10",
    "192.0.2.10;", "192.0.2.10\n", "3221225994", "::1", "::ffff:192.0.2.10"])
def test_a_server_is_an_ipv4_address(peer, server):
    to = ("mounted", "127.0.0.1", peer.port)
    shown = server.replace("\n", "\\n")
    assert refusal("--ip", server, *to) == (
        f"--ip: wanted an IPv4 address, as nothing else opens (--raw sends any text), not '{shown}'")
    assert refusal("--ip", "192.0.2.10", f"--ip={server}", *to).startswith("--ip: wanted")
    assert peer.receive_all() == []
    # Whoever wants to see what becomes of it sends it all the same.
    text = f"event:disk_mounted;mac:m;ip:{server};uuid:u;label:l"
    assert announce(peer, "--quiet", "--raw", text)[0] == [text.encode()]


@pytest.mark.parametrize("port", ["0", "65536", "-1", "010x", "+5", "5x", "http", "", "5.0", "99999999999"])
def test_a_port_is_a_number(port):
    # Behind "--", because one of them looks like an option.
    assert refusal("--", "mounted", "127.0.0.1", port) == (
        f"PORT: wanted a whole number from 1 to 65535, not '{port}'"
    )


def test_a_host_has_an_ipv4_address(peer):
    assert refusal("mounted", "::1", peer.port).startswith(
        "HOST: wanted an IPv4 address or a name that has one, not '::1': "
    )


def test_the_largest_datagram(peer):
    overhead = len(b"event:no_disk;mac:")
    peer.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
    received, _ = announce(peer, "--mac", "x" * (65507 - overhead), "no-disk")
    assert [len(text) for text in received] == [65507]
    too_long = "x" * (65508 - overhead)
    assert refusal("--mac", too_long, "no-disk", "127.0.0.1", peer.port) == (
        "the announcement has 65508 bytes, and a datagram holds no more than 65507"
    )
    # The last of many disks has the longest number, and nothing is sent before.
    label = "x" * (65507 - len(b"event:no_disk;mac:02:00:00:00:00:01;label:") - 2)
    options = ["--label", label, "no-disk", "127.0.0.1", peer.port]
    assert refusal("--disks", 10, *options).startswith("the announcement has 65508 bytes")
    assert peer.receive_all() == []
    with running(peer, "--disks", 9, "--pace", 50, "--quiet", *options[:3]):
        assert [len(peer.receive()) for _ in range(9)] == [65507] * 9


def test_a_datagram_that_cannot_be_sent_is_a_failure_with_its_reason():
    # This needs a permission that the command does not ask for, so nothing leaves this host.
    destination = ["255.255.255.255", 9]
    assert refusal("no-disk", *destination, status=1) == (
        "cannot send to 255.255.255.255 port 9: Permission denied"
    )
    assert refusal("mounted", *destination, status=1) == (
        "cannot find the address to announce (--ip gives one) for 255.255.255.255 port 9: "
        "Permission denied"
    )
