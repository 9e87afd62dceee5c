"""The agent on networks that change, as devices, switches and the user see it."""

import contextlib
import plistlib
import pwd
import random
import signal
import socket
import subprocess
import time

import pytest

from agent import BIN, STARTED, Agent, Home, wait_until
from namespaces import GROUP, PORT, Network

OTHER_GROUP = "239.255.77.2"
CANNOT_JOIN = f"Ravelin Disk: Server cannot join multicast group {GROUP} at port {PORT}\n"
CANNOT_DROP = (f"Ravelin Disk: Server cannot drop multicast group {GROUP} (source addr 10.77.0.2) "
               f"at port {PORT}\n")
RECEIVED = "Ravelin Disk: Received event message\n"


class Scene(Network):
    """A network, and the agent on its computer."""

    def __init__(self, home, cables):
        super().__init__(cables)
        self.home = home
        self.agent = None
        self.servers = 0
        # Whether the system minds where a datagram comes from is not what is tested here.
        for interface in "all", "default":
            self.computer.set(f"conf/{interface}/rp_filter", 0)

    def configure(self, *entries, joining=True, rate=3600):
        """Writes the configuration; an entry is a group and a port."""
        entries = entries or [(GROUP, PORT)]
        self.servers = len(entries)
        self.home.user_config.parent.mkdir(parents=True, exist_ok=True)
        self.home.user_config.write_bytes(plistlib.dumps({
            "MulticastAddresses": [list(entry) for entry in entries],
            "JoinIGMP": joining,
            "IGMPMembershipRefreshRate": rate,
        }))
        return [port for _, port in entries]

    def start(self, *entries, **how):
        ports = self.configure(*entries, **how)
        with self.computer.entered():
            self.agent = self.home.start_as_configured(*ports)

    def started(self):
        """How often a server has been started."""
        return self.agent.log().count(STARTED)

    def members(self, cable, group=GROUP):
        """How many of the agent's servers are members of the group on that cable."""
        return self.computer.memberships().get(f"eth{cable}", {}).get(group, 0)

    def announce(self, label, cable=0, group=GROUP, port=PORT):
        """Announces a disk once, by the device at the end of the cable."""
        self.send("--interface", f"device{cable}", "--label", label, "--uuid", label, "mounted",
                  group, port)

    def send(self, *arguments):
        self.device.run(BIN / "ravelin-disk-announce", *arguments, stdout=subprocess.DEVNULL)

    def hears(self, *cables, group=GROUP, port=PORT):
        """Disks announced to the group, on each of the cables, get their shortcuts. A device
        repeats its announcement, so that one sent before a link is ready does not matter."""
        for cable in cables:
            label = f"Disk {time.monotonic_ns()}"

            def is_there(cable=cable, label=label):
                assert self.agent.is_running(), self.agent.log()[-2000:]
                self.announce(label, cable, group, port)
                return f"{label}.app" in self.home.shortcuts()

            wait_until(is_there, f"a disk announced on cable {cable}", period=0.2)

    def settle(self):
        """Returns when the agent has done all that there was to do: after that it makes a shortcut,
        for which it takes half a second and many turns."""
        label = f"Settled {time.monotonic_ns()}"
        self.agent.mount(label, uuid=label)

    @contextlib.contextmanager
    def rebuilding(self, times):
        """What happens meanwhile has all servers started anew so many times, and no more. An agent
        that is still starting would take what happens for how things have always been."""
        self.settle()
        expected = self.started() + times * self.servers
        yield
        wait_until(lambda: self.started() >= expected, f"{times} rebuilds")
        self.settle()
        assert self.started() == expected

    @contextlib.contextmanager
    def rebuilding_at_once(self, times):
        """The same, where the agent sleeps meanwhile: all that happens comes to it at once."""
        with self.rebuilding(times):
            self.agent.signal(signal.SIGSTOP)
            wait_until(self.is_suspended, "the agent asleep")
            try:
                yield
            finally:
                self.agent.signal(signal.SIGCONT)

    def is_suspended(self):
        with open(f"/proc/{self.agent.pid}/stat", encoding="latin-1") as status:
            return status.read().rpartition(")")[2].split()[0] == "T"


@pytest.fixture(name="scene")
def fixture_scene(home, needs_root):
    """Makes a scene with so many cables."""
    needs_root("the tests on networks that change (tests/system/test_network.py)")
    with contextlib.ExitStack() as stack:
        yield lambda cables: stack.enter_context(Scene(home, cables))


# Hearing a group


def test_the_group_is_heard_on_every_interface(scene):
    at = scene(2)
    with at.capture(0) as first, at.capture(1) as second:
        at.start()
        wait_until(lambda: at.members(0) == at.members(1) == 1, "the memberships")
        at.hears(0, 1)
        for capture in first, second:
            wait_until(capture.reports, "a membership report")
            assert {kind for _, kind in capture.reports()} == {"join"}
    assert CANNOT_JOIN not in at.agent.log()
    assert at.agent.terminate() == 0
    at.agent.check_clean_end()
    assert at.members(0) == at.members(1) == 0


def test_the_membership_is_reported_again_at_every_refresh(scene):
    at = scene(2)
    with at.capture(0) as first, at.capture(1) as second:
        begin = time.monotonic()
        at.start(rate=1)
        wait_until(lambda: min(len(first.reports()), len(second.reports())) >= 5, "four refreshes")
        assert time.monotonic() - begin >= 4
        # Were it left and joined, a switch could stop forwarding in between.
        assert {kind for _, kind in first.reports() + second.reports()} == {"join"}
        assert at.members(0) == at.members(1) == 1
        at.hears(0, 1)
    assert at.started() == 1
    assert "Server cannot" not in at.agent.log()


def test_without_a_refresh_nothing_is_reported_again(scene):
    at = scene(1)
    with at.capture(0) as capture:
        at.start()
        wait_until(capture.reports, "a membership report")
        time.sleep(2.5)
        assert len(capture.reports()) == 1


def test_a_switch_that_has_forgotten_the_membership_learns_it_at_the_next_refresh(scene):
    at = scene(1)
    at.start(rate=1)
    at.hears(0)
    with at.capture(0) as later:
        wait_until(lambda: "join" in [kind for _, kind in later.reports()], "another report")


def test_two_groups_on_one_port_are_told_apart(scene):
    at = scene(1)
    at.start((GROUP, PORT), (OTHER_GROUP, PORT))
    wait_until(lambda: at.members(0, GROUP) == at.members(0, OTHER_GROUP) == 1, "the memberships")
    for number, group in enumerate([GROUP, OTHER_GROUP, GROUP], start=1):
        at.announce(f"Disk {number}", group=group)
        wait_until(lambda number=number: f"Disk {number}.app" in at.home.shortcuts(), "a shortcut")
        # Were both servers to hear it, it would have come in twice.
        assert at.agent.log().count(RECEIVED) == number


def test_a_group_that_somebody_else_has_joined_is_not_heard(scene):
    at = scene(1)
    at.start()
    with at.computer.entered(), socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other:
        other.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                         socket.inet_aton(OTHER_GROUP) + socket.inet_aton("10.77.0.2"))
        assert at.members(0, OTHER_GROUP) == 1
        at.announce("Not for me", group=OTHER_GROUP)
        at.hears(0)
        assert "Not for me" not in at.agent.log()


# Addresses that change


def test_an_address_comes(scene):
    at = scene(2)
    at.plug(2)
    at.start()
    with at.rebuilding(1):
        at.computer.ip(at.assignment(2))
    at.hears(0, 1, 2)


def test_a_second_address_comes_to_an_interface(scene):
    at = scene(1)
    at.start()
    with at.rebuilding(1):
        at.computer.ip(at.assignment(0, host=3))
    assert at.members(0) == 1
    # The system joins an interface once, whichever of its addresses is named.
    assert at.agent.log().count(CANNOT_JOIN) == 1
    at.hears(0)


def test_an_address_is_replaced(scene):
    at = scene(2)
    at.start()
    with at.rebuilding_at_once(1):
        at.computer.ip("address del 10.77.0.2/24 dev eth0", at.assignment(0, host=9))
    at.hears(0, 1)
    with at.rebuilding(2):
        at.computer.ip("address del 10.77.0.9/24 dev eth0")
        wait_until(lambda: at.members(0) == 0, "the first rebuild")
        at.hears(1)
        at.computer.ip(at.assignment(0, host=8))
    at.hears(0, 1)


def test_an_address_goes(scene):
    at = scene(2)
    at.start()
    with at.rebuilding(1):
        at.computer.ip("address del 10.77.1.2/24 dev eth1")
    assert at.members(0) == 1
    assert at.members(1) == 0
    at.hears(0)


def test_the_last_address_goes_and_comes_back(scene):
    at = scene(1)
    at.start()
    with at.rebuilding(1):
        at.computer.ip("address del 10.77.0.2/24 dev eth0")
    assert at.members(0) == 0
    with at.rebuilding(1):
        at.computer.ip(at.assignment(0))
    at.hears(0)


def test_no_interface_has_an_address_at_the_start(scene):
    at = scene(0)
    at.start()
    with at.rebuilding(0):
        at.plug(0)
    with at.rebuilding(1):
        at.computer.ip(at.assignment(0))
    at.hears(0)


def test_an_address_of_the_loopback_interface_counts_unless_it_is_the_usual_one(scene):
    at = scene(1)
    at.start()
    with at.rebuilding(0):
        at.computer.ip("address del 127.0.0.1/8 dev lo", "address add 127.0.0.1/16 dev lo")
    with at.rebuilding(1):
        at.computer.ip("address add 127.0.0.2/8 dev lo")
    assert at.computer.memberships()["lo"][GROUP] == 1
    at.hears(0)


# Links that change


def test_a_link_goes_down_and_up(scene):
    at = scene(2)
    at.start()
    with at.rebuilding(0):
        at.computer.ip("link set eth0 down")
        at.settle()
        at.hears(1)
        at.computer.ip("link set eth0 up")
    at.hears(0, 1)
    with at.rebuilding(0):
        at.device.ip("link set device0 down")
        at.settle()
        at.device.ip("link set device0 up")
    at.hears(0, 1)
    assert "Server cannot" not in at.agent.log()


def test_an_interface_is_deleted_and_made_again(scene):
    at = scene(2)
    at.start()
    with at.rebuilding(1):
        at.computer.ip("link del eth0")
    at.hears(1)
    with at.rebuilding(1):
        at.plug(0)
        at.computer.ip(at.assignment(0))
    at.hears(0, 1)
    assert "Server cannot" not in at.agent.log()


def test_an_interface_is_deleted_and_made_again_before_the_agent_looks(scene):
    at = scene(2)
    at.start()
    for times in 1, 2, 3:
        # The addresses are what they were, so nothing is rebuilt; but the membership went with the
        # interface, which the renewal of the memberships finds out.
        with at.rebuilding_at_once(0):
            at.computer.ip("link del eth0")
            at.plug(0)
            at.computer.ip(at.assignment(0))
            assert at.members(0) == 0
        assert at.members(0) == at.members(1) == 1
        wait_until(lambda times=times: at.agent.log().count(CANNOT_DROP) == times, "the refusal")
        at.hears(0, 1)
    assert CANNOT_JOIN not in at.agent.log()


def test_an_address_moves_to_another_interface_before_the_agent_looks(scene):
    at = scene(1)
    at.plug(1)
    at.start()
    wait_until(lambda: (at.members(0), at.members(1)) == (1, 0), "the membership")
    with at.rebuilding_at_once(0):
        at.computer.ip("address del 10.77.0.2/24 dev eth0", "address add 10.77.0.2/24 dev eth1")
    assert at.members(1) == 1
    at.hears(1)


# The rule


def test_a_notice_that_changes_no_address_does_nothing(scene):
    at = scene(1)
    with at.capture(0) as capture:
        at.start()
        wait_until(capture.reports, "the membership report")
        with at.rebuilding(0):
            for seconds in 1000, 2000, 3000:
                at.computer.ip("address change 10.77.0.2/24 dev eth0 "
                               f"valid_lft {seconds} preferred_lft {seconds}")
        at.hears(0)
        assert len(capture.reports()) == 1


def test_as_many_addresses_that_include_all_old_ones_are_no_change(scene):
    at = scene(0)
    at.plug(0)
    at.plug(1)
    at.computer.ip(at.assignment(0), "address add 10.77.0.2/24 dev eth1")
    at.start()
    wait_until(lambda: at.agent.log().count(CANNOT_JOIN) == 1, "the refusal")
    with at.rebuilding_at_once(0):
        at.computer.ip("address del 10.77.0.2/24 dev eth1", at.assignment(1))
    at.hears(0)
    with at.rebuilding(1):
        at.computer.ip(at.assignment(1, host=3))
    at.hears(0, 1)


def test_many_notices_that_come_together_are_one_rebuild(scene):
    at = scene(1)
    at.start()
    with at.rebuilding_at_once(1):
        at.computer.ip(*(f"address {what} 10.77.0.77/24 dev eth0" for what in ["add", "del"] * 50),
                       at.assignment(0, host=3))
    at.hears(0)
    # So many that the system cannot keep them all for the agent.
    with at.rebuilding_at_once(1):
        at.computer.ip(*(f"address {what} 10.77.0.77/24 dev eth0" for what in ["add", "del"] * 1000),
                       at.assignment(0, host=4))
    at.hears(0)


def test_many_notices_that_come_together_and_change_nothing_are_no_rebuild(scene):
    at = scene(1)
    at.start()
    with at.rebuilding_at_once(0):
        at.computer.ip(*(f"address {what} 10.77.0.77/24 dev eth0" for what in ["add", "del"] * 1000))
    at.hears(0)


def test_with_joining_off_the_ports_are_served_and_every_notice_rebuilds(scene):
    at = scene(1)
    at.start(joining=False)
    assert at.members(0) == 0
    at.send("--label", "Straight", "mounted", "10.77.0.2", PORT)
    wait_until(lambda: "Straight.app" in at.home.shortcuts(), "the shortcut")
    at.announce("To the group")
    with at.rebuilding(1):
        at.computer.ip("address change 10.77.0.2/24 dev eth0 valid_lft 1000 preferred_lft 1000")
    with at.rebuilding(1):
        at.computer.ip(at.assignment(0, host=3))
    # The link may take several addresses with it, each with a notice.
    with at.rebuilding_at_once(1):
        at.computer.ip("link del eth0", "address add 127.0.0.2/8 dev lo")
    with at.rebuilding(0):
        at.computer.ip("address del 127.0.0.2/8 dev lo")
    with at.rebuilding(0):
        at.computer.ip("address change 127.0.0.1/8 dev lo valid_lft 1000 preferred_lft 1000")
    assert "To the group" not in at.agent.log()
    assert "Server cannot" not in at.agent.log()


def test_a_configuration_that_is_edited_takes_effect_at_the_next_rebuild(scene):
    at = scene(2)
    at.start()
    at.configure((GROUP, PORT), (OTHER_GROUP, PORT + 1))
    at.announce("Too early", group=OTHER_GROUP, port=PORT + 1)
    at.settle()
    assert at.started() == 1
    with at.rebuilding(1):
        at.computer.ip("address del 10.77.1.2/24 dev eth1")
    at.hears(0, group=GROUP)
    at.hears(0, group=OTHER_GROUP, port=PORT + 1)
    at.configure((OTHER_GROUP, PORT))
    with at.rebuilding(1):
        at.computer.ip(at.assignment(1))
    at.hears(0, 1, group=OTHER_GROUP)
    assert at.members(0, GROUP) == at.members(1, GROUP) == 0
    assert "Too early" not in at.agent.log()


# Several users

USERS = [pwd.getpwnam("nobody").pw_uid, pwd.getpwnam("daemon").pw_uid]


class Neighbours:
    """The agents of several users on the computer of a scene, with the same configuration."""

    def __init__(self, at, stack, *entries):
        self.homes = []
        self.agents = []
        for user in USERS:
            home = stack.enter_context(Home())
            at.home = home
            ports = at.configure(*entries)
            program = home.install()
            home.give_to(user)
            with at.computer.entered():
                agent = home.start_as_configured(*ports, command=[program], user=user, group=user,
                                                 extra_groups=[])
            self.homes.append(home)
            self.agents.append(agent)

    def who_sees(self, label):
        return [f"{label}.app" in home.shortcuts() for home in self.homes]


@pytest.fixture(name="neighbours")
def fixture_neighbours(scene):
    with contextlib.ExitStack() as stack:
        at = scene(1)
        yield at, lambda *entries: Neighbours(at, stack, *entries)


def test_the_agents_of_two_users_both_hear_a_group(neighbours):
    at, start = neighbours
    both = start((GROUP, PORT), (OTHER_GROUP, PORT))
    assert [agent.status("Uid") for agent in both.agents] == USERS
    for group in GROUP, OTHER_GROUP:
        label = f"To {group}"

        def is_there(group=group, label=label):
            at.announce(label, group=group)
            return all(both.who_sees(label))

        wait_until(is_there, "the shortcut on both desktops", period=0.25)
    for agent in both.agents:
        assert "Server socket cannot be created" not in agent.log()
        assert agent.terminate() == 0
    assert not any(both.who_sees(f"To {GROUP}"))


def test_the_agent_that_started_last_gets_what_is_sent_to_the_machine_alone(neighbours):
    at, start = neighbours
    both = start()
    # Each of them comes from another port.
    labels = [f"Straight {number}" for number in range(20)]
    for label in labels:
        at.send("--label", label, "--uuid", label, "mounted", "10.77.0.2", PORT)
    wait_until(lambda: all(both.who_sees(label)[1] for label in labels), "the shortcuts")
    assert both.homes[0].shortcuts() == []
    assert both.agents[1].terminate() == 0
    at.send("--label", "Alone", "--uuid", "Alone", "mounted", "10.77.0.2", PORT)
    wait_until(lambda: both.who_sees("Alone")[0], "the shortcut on the other desktop")


# Whatever the moment

MANY = [(GROUP, PORT + number) for number in range(100)]


def test_an_address_that_comes_during_the_start_is_missed_by_no_server(scene):
    at = scene(0)
    at.plug(0)
    ports = at.configure(*MANY)
    for _ in range(20):
        with at.computer.entered():
            at.agent = Agent(at.home, ports)
        moment = random.randrange(len(MANY))
        wait_until(lambda moment=moment: at.started() > moment, "some servers", period=0)
        at.computer.ip(at.assignment(0))
        wait_until(lambda: at.members(0) == len(MANY), "all memberships")
        assert at.agent.terminate() == 0
        at.computer.ip("address del 10.77.0.2/24 dev eth0")


def test_an_address_that_comes_during_a_rebuild_is_missed_by_no_server(scene):
    at = scene(0)
    at.plug(0)
    at.plug(1)
    at.start(*MANY)
    for _ in range(20):
        at.computer.ip(at.assignment(0))
        time.sleep(random.uniform(0, 0.02))
        at.computer.ip(at.assignment(1))
        wait_until(lambda: at.members(0) == at.members(1) == len(MANY), "all memberships")
        at.computer.ip("address del 10.77.0.2/24 dev eth0", "address del 10.77.1.2/24 dev eth1")
        wait_until(lambda: at.members(0) == at.members(1) == 0, "no memberships")
