"""Runs for twenty seconds what `./dev soak` runs for half an hour."""

import pytest
from rig.phone import Phone
from rig.process import SLOWDOWN
from rig.soak import Soak

pytestmark = pytest.mark.any_user


@pytest.mark.slow
@pytest.mark.skipif(SLOWDOWN > 1, reason="sanitizers keep freed memory in quarantine")
def test_twenty_seconds_of_everything_at_once_leave_nothing_behind(lan, computer, onlooker):
    phones = [lan.host(x, of=Phone) for x in ("phone", "restless")]
    soak = Soak(computer, onlooker, phones, megabytes_a_second=40)

    faults = soak.run(15, print, stay=2)

    assert faults == []
