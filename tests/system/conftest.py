"""What the system tests share: a temporary home for each."""

import os

import pytest

import namespaces
from agent import Home


@pytest.fixture
def home():
    with Home() as temporary:
        yield temporary


@pytest.fixture
def needs_root(capsys):
    """Leaves the test out, and says so, where this process may make no namespaces."""
    def check(what):
        if namespaces.may_be_made():
            return
        reason = f"{what} need root"
        if os.environ.get("CI") == "true":
            pytest.fail(reason)
        with capsys.disabled():
            print(f"\nLEFT OUT: {reason}")
        pytest.skip(reason)
    return check
