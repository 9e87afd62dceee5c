"""What the agent has open: nothing that its helpers inherit, and nothing of its own in the place of
standard input, output or error."""

import itertools
import re

import pytest

from agent import Agent, icon, wait_until

STANDARD = (0, 1, 2)
CLOSED = [numbers for count in (1, 2, 3) for numbers in itertools.combinations(STANDARD, count)]


def without(numbers, program):
    """The command that starts the program with these descriptors closed."""
    closing = " ".join(f"{number}>&-" for number in numbers)
    return ["/bin/sh", "-c", f'exec "$0" "$@" {closing}', str(program)]


def test_helpers_inherit_nothing(home):
    port = home.free_port()
    home.configure(port, port)
    home.user_config.parent.joinpath("icon.ico").write_bytes(icon())
    agent = home.start_as_configured(port, port)
    for number in range(10):
        agent.mount(f"Disk {number}", uuid=str(number))
    descriptors = agent.descriptors()
    assert sum("socket:" in what for what, _ in descriptors.values()) >= 2
    assert not {number: what for number, (what, is_inherited) in descriptors.items()
                if is_inherited and number not in STANDARD}


def test_a_helper_sees_no_socket(home):
    seen = home.base / "seen"
    program = home.install(helper=f"ls -l /proc/$$/fd > {seen}.new; mv {seen}.new {seen}")
    port = home.free_port()
    home.configure(port)
    home.user_config.parent.joinpath("icon.ico").write_bytes(icon())
    agent = home.start_as_configured(port, command=[program])
    agent.mount()
    wait_until(seen.exists, "the helper's list")
    assert agent.terminate() == 0
    inherited = dict(re.findall(r" (\d+) -> (.*)", seen.read_text()))
    assert inherited["0"] == "/dev/null"
    assert not [what for what in inherited.values() if what.startswith(("socket:", "anon_inode:"))]


@pytest.mark.parametrize("numbers", CLOSED, ids=str)
def test_standard_descriptors_that_are_closed_become_the_null_device(home, numbers):
    port = home.free_port()
    home.configure(port)
    home.user_config.parent.joinpath("icon.ico").write_bytes(icon())
    program = home.install()
    agent = Agent(home, [port], command=without(numbers, program))
    for number in range(3):
        agent.mount(f"Disk {number}", uuid=str(number))
    descriptors = agent.descriptors()
    for number in numbers:
        assert descriptors[number] == ("/dev/null", True)
    if 2 not in numbers:
        assert "Success initializing Cocoa." in agent.log()
    assert agent.terminate() == 0
    assert home.shortcuts() == []
