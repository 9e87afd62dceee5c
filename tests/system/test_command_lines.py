"""What the command lines of all programs for people have in common."""

import os
import re
import subprocess

import pytest

from desktop import BIN, PATIENCE

# Each with arguments that are right, but for what they name, and all of its options.
PROGRAMS = {
    "ravelin-disk-announce": (
        ["mounted", "255.255.255.255", "9"],
        "mac ip uuid label disks omit raw every pace interface ttl quiet"),
    "ravelin-disk-open": (["/nonexistent"], ""),
    "ravelin-disk-tidy": ([], "dry-run force"),
    "ravelin-disk-volume": (["where", "192.0.2.10", "Disk"], ""),
}


@pytest.fixture(name="program", params=PROGRAMS)
def _program(request):
    return request.param


@pytest.fixture(autouse=True)
def _home(tmp_path, monkeypatch):
    """A home whose desktop leads nowhere."""
    (tmp_path / "Desktop").symlink_to("Desktop")
    monkeypatch.setenv("HOME", str(tmp_path))


def run(program, *arguments, stdout=subprocess.PIPE):
    # Without a session bus nothing is mounted and nobody is shown a notification.
    environment = {key: value for key, value in os.environ.items()
                   if not key.startswith(("DBUS_", "XDG_"))}
    result = subprocess.run(
        [BIN / program, *arguments], env=environment | {"LC_ALL": "C.UTF-8"}, stdout=stdout,
        stderr=subprocess.PIPE, timeout=PATIENCE, check=False)
    return result.returncode, (result.stdout or b"").decode(), result.stderr.decode()


def misuse(program, *arguments):
    """What is wrong with the arguments."""
    status, output, errors = run(program, *arguments)
    assert (status, output) == (2, "")
    match = re.fullmatch(f"{program}: (.*); see --help\n", errors)
    assert match, errors
    return match[1]


@pytest.mark.parametrize("option", ["--help", "-h"])
def test_help_names_every_option(program, option):
    status, output, errors = run(program, option)
    assert (status, errors) == (0, "")
    lines = output.splitlines()
    assert lines[0].startswith(f"Usage: {program} ")
    assert max(map(len, lines)) <= 100
    for name in (*PROGRAMS[program][1].split(), "version"):
        assert sum(line.startswith(f"  --{name} ") for line in lines) == 1, name
    assert sum(line.startswith("  -h,--help ") for line in lines) == 1
    # No option is there that nobody knows of.
    assert len([line for line in lines if line.startswith("  -")]) == len(
        PROGRAMS[program][1].split()) + 2


def test_version_is_one_line(program):
    status, output, errors = run(program, "--version")
    assert (status, errors) == (0, "")
    assert re.fullmatch(program + r" \d+\.\d+\.\d+\n", output)


@pytest.mark.parametrize("arguments", [
    ["--help", "--help"], ["-h", "-h"], ["--help", "one", "two", "3", "4"],
    ["one", "--help"]], ids=str)
def test_whoever_asks_for_help_gets_it(program, arguments):
    assert run(program, *arguments) == run(program, "--help")


def test_help_wins_over_wrong_values():
    for arguments in (["--pace", "x", "--help"], ["--help", "--pace", "x"]):
        assert run("ravelin-disk-announce", *arguments) == run("ravelin-disk-announce", "--help")


@pytest.mark.parametrize("argument", [
    "--nope", "--nope=1", "--hel", "--HELP", "--=", "--=x", "---", "---help", "--help ", "-z",
    "-hh", "-help", "-1", "-!", "- ", "-[", "--\u00fc", "-\u00fc", "--{}", "--a.b"])
def test_an_option_that_there_is_not(program, argument):
    for arguments in ([argument], [*PROGRAMS[program][0], argument], [argument, "--help"]):
        assert misuse(program, *arguments) == f"'{argument}': no option"


def test_the_argument_that_is_wrong_is_shown_in_one_line(program):
    assert misuse(program, b"--\x1b[31m\n\xff\xc3\xbc\\n") == "'--\\x1b[31m\\n\\xff\u00fc\\n': no option"


@pytest.mark.parametrize("argument", ["--help=", "--help=1", "--help=false", "--version=true", "-h=1"])
def test_an_option_without_a_value(program, argument):
    assert misuse(program, argument) == f"{argument.split('=')[0]}: takes no value"


def test_too_few_and_too_many_arguments(program):
    arguments = PROGRAMS[program][0]
    for count in range(len(arguments)):
        assert re.fullmatch("[A-Z]+: missing", misuse(program, *arguments[:count]))
    # Behind the end of the options nothing is one.
    for further in (["more"], ["-"], ["--", "more"], ["--", "--"], ["--", "--help"]):
        assert misuse(program, *arguments, *further) == f"'{further[-1]}': one argument too many"
        assert misuse(program, *further[:-1], *arguments, further[-1]) == (
            f"'{further[-1]}': one argument too many")


def test_a_failure_is_told_in_one_line_with_another_status(program):
    # An agent of another test is no reason to do nothing.
    right = PROGRAMS[program][0] or ["--force"]
    for arguments in (right, ["--", *right] if PROGRAMS[program][0] else [*right, "--"]):
        status, output, errors = run(program, *arguments)
        assert (status, output) == (1, "")
        assert re.fullmatch(f"{program}: .*[^;]\n", errors)
        assert "--help" not in errors


def test_an_output_that_takes_nothing_is_a_failure(program):
    for option in ("--help", "--version"):
        with open("/dev/full", "wb") as full:
            assert run(program, option, stdout=full) == (
                1, "", f"{program}: cannot write to standard output\n")
