"""What the system tests share: a temporary home for each."""

import pytest

from agent import Home


@pytest.fixture
def home():
    with Home() as temporary:
        yield temporary
