"""ravelin-disk-check, as a person or a script asks it why there is no shortcut."""

import json
import os
import plistlib
import subprocess

import pytest

from agent import BIN, PATIENCE
from namespaces import GROUP, PORT

COMMAND = BIN / "ravelin-disk-check"
KEYS = {"MulticastAddresses": [[GROUP, PORT]], "JoinIGMP": True, "IGMPMembershipRefreshRate": 60}


def environment(home):
    """As the agent's of this home."""
    return {name: value for name, value in os.environ.items() if not name.startswith("XDG_")} | {
        "HOME": str(home.path), "LC_ALL": "C.UTF-8",
        "XDG_DATA_HOME": str(home.path / ".local/share"),
        "XDG_CONFIG_HOME": str(home.path / ".config"),
        "XDG_DATA_DIRS": f"{home.base / 'machine'}:/usr/share"}


def check(home, *arguments, **how):
    """The exit status, the output and the error output."""
    result = subprocess.run([COMMAND, *map(str, arguments)], env=environment(home), cwd=home.base,
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=PATIENCE,
                            check=False, **how)
    return result.returncode, result.stdout.decode(), result.stderr.decode()


def findings(home, *arguments, **how):
    """What is found, as a program reads it."""
    status, output, errors = check(home, "--json", *arguments, **how)
    read = json.loads(output)
    wrong = [finding for finding in read["findings"] if finding["level"] == "wrong"]
    assert read["wrong"] == len(wrong)
    assert status == (1 if wrong else 0), errors
    assert bool(errors) == bool(wrong)
    return read["findings"]


def codes(found, level="wrong"):
    return [finding["code"] for finding in found if finding["level"] == level]


# One file alone

BROKEN = {
    "port 0": ({"MulticastAddresses": [[GROUP, 0]]}, "port-out-of-range", "the port is 0,"),
    "port 70000": ({"MulticastAddresses": [[GROUP, 70000]]}, "port-out-of-range",
                   "the port is 70000,"),
    "port -1": ({"MulticastAddresses": [[GROUP, -1]]}, "port-out-of-range", "the port is -1,"),
    "port abc": ({"MulticastAddresses": [[GROUP, "abc"]]}, "port-out-of-range",
                 "the port is 'abc', which is read as 0"),
    "misspelt key": ({"JoinIGPM": True}, "key-misspelt", "it is spelt 'JoinIGMP'"),
    "key in small letters": ({"multicastaddresses": []}, "key-misspelt",
                             "it is spelt 'MulticastAddresses'"),
    "pair not nested": ({"MulticastAddresses": [GROUP, PORT]}, "pair-not-nested",
                        "must be an array of pairs"),
    "three items": ({"MulticastAddresses": [[GROUP, PORT, 1]]}, "entry-not-a-pair",
                    "an array of 3 items"),
    "a text for a pair": ({"MulticastAddresses": [f"{GROUP}:{PORT}"]}, "entry-not-a-pair",
                          f"'{GROUP}:{PORT}'"),
    "no array": ({"MulticastAddresses": GROUP}, "addresses-not-an-array", f"'{GROUP}'"),
    "no groups": ({"MulticastAddresses": []}, "addresses-empty", "the agent listens nowhere"),
    "no multicast address": ({"MulticastAddresses": [["192.168.1.5", PORT]]},
                             "group-not-multicast", "'192.168.1.5'"),
    "short address": ({"MulticastAddresses": [["239.255.77", PORT]]}, "group-read-as",
                      "which is read as 239.255.0.77"),
    "joining on": ({"JoinIGMP": "on"}, "join-read-as-false", "'on', which is read as false"),
    "rate 0": ({"IGMPMembershipRefreshRate": 0}, "rate-too-low", "ten times a second"),
}


@pytest.mark.parametrize("name", BROKEN)
@pytest.mark.parametrize("fmt", [plistlib.FMT_XML, plistlib.FMT_BINARY], ids=["xml", "binary"])
def test_a_broken_value_is_named(home, name, fmt):
    values, code, words = BROKEN[name]
    file = home.base / "file"
    file.write_bytes(plistlib.dumps(KEYS | values, fmt=fmt))
    found = findings(home, "--config", file)
    assert codes(found) == [code]
    finding = next(finding for finding in found if finding["code"] == code)
    assert words in finding["sentence"]
    assert finding["details"]["file"] == str(file)
    assert finding["details"]["key"] in (KEYS | values)
    status, output, errors = check(home, "--config", file)
    assert (status, errors) == (1, "ravelin-disk-check: one thing is wrong\n")
    assert f"  wrong  {finding['sentence']}\n" in output


@pytest.mark.parametrize(("content", "words"), [
    (b"", "it is empty"),
    (b"{MulticastAddresses = ();}", "it is no property list at all"),
    (plistlib.dumps([GROUP, PORT]), "there is no dictionary at its top"),
    (plistlib.dumps(KEYS).replace(b"</array>", b"", 1), "it is no property list from line"),
    (plistlib.dumps(KEYS, fmt=plistlib.FMT_BINARY)[:-9], "damaged"),
    (plistlib.dumps({}), "is empty"),
    (plistlib.dumps({"JoinIGMP": True, "IGMPMembershipRefreshRate": 60}), "is missing"),
], ids=["empty", "old style", "array", "not closed", "damaged", "empty dictionary", "no addresses"])
def test_a_broken_file_is_named(home, content, words):
    file = home.base / "file"
    file.write_bytes(content)
    found = findings(home, "--config", file)
    assert len(codes(found)) == 1
    assert words in found[0]["sentence"]


def test_a_file_that_cannot_be_read(home):
    file = home.base / "file"
    assert codes(findings(home, "--config", file)) == ["file-missing"]
    file.mkdir()
    assert "Is a directory" in findings(home, "--config", file)[0]["sentence"]
    file.rmdir()
    file.write_bytes(plistlib.dumps(KEYS))
    if os.geteuid() == 0:  # who may read everything
        os.chmod(home.base, 0o755)
        file.chmod(0o600)
        user = {"user": 65534, "group": 65534, "extra_groups": []}
        assert "Permission denied" in findings(home, "--config", file, **user)[0]["sentence"]
    else:
        file.chmod(0)
        assert "Permission denied" in findings(home, "--config", file)[0]["sentence"]


def test_a_file_that_is_right(home):
    file = home.base / "file"
    file.write_bytes(plistlib.dumps(KEYS))
    assert check(home, "--config", "file") == (
        0, f"configuration\n  ok     a server for group {GROUP}, port {PORT}\n", "")


def test_a_file_alone_is_checked_without_looking_at_anything_else(home):
    """Nothing is made of what the agent would make, and the user's own file plays no part."""
    home.configure(0)
    file = home.base / "file"
    file.write_bytes(plistlib.dumps(KEYS))
    with home.nothing_changes_elsewhere():
        assert codes(findings(home, "--config", file)) == []


def test_whatever_the_bytes_no_escape_gets_out(home):
    odd = "\x1b[31m\n\x07\u009b\u202e"
    file = home.base / "file"
    # XML may not hold control characters; the binary form may.
    file.write_bytes(plistlib.dumps(KEYS | {"MulticastAddresses": [[odd, odd]], odd: odd},
                                    fmt=plistlib.FMT_BINARY))
    found = findings(home, "--config", file)
    assert sorted(codes(found)) == ["group-not-multicast", "port-out-of-range"]
    assert codes(found, "note") == ["key-unknown"]
    _, output, _ = check(home, "--config", file)
    assert all(character == "\n" or character.isprintable() or character == "\u202e"
               for character in output)
    assert "\\x1b[31m\\n\\x07" in output
