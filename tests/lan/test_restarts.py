"""DNS-SD engines that restart while the phone cannot answer, that hang, and that packets crash."""

import os
import signal
import struct
import threading
import time

import pytest
from rig import raw_mdns
from rig.computer import LOOKING, visible
from rig.ends import read_exactly, session
from rig.network import TYPE_SMB
from rig.process import limit, wait_until
from rig.raw_mdns import Speaker
from test_automatic import appear
from test_engines import engine_child

pytestmark = pytest.mark.any_user


@pytest.fixture
def phone(service):
    """A phone whose file server is a listening socket of the test."""
    return service("phone")


class Repetition:
    """Calls `work` at an interval in seconds, in a thread of its own, until it is stopped or the work
    fails."""

    def __init__(self, work, interval):
        self._work = work
        self._interval = interval
        self._stopping = threading.Event()
        self._failure = None
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def _run(self):
        try:
            while not self._stopping.wait(self._interval):
                self._work()
        except Exception as failure:
            self._failure = failure

    def stop(self):
        """Raises what the work has raised."""
        self._stopping.set()
        self._thread.join(limit(30))
        assert not self._thread.is_alive()
        if self._failure:
            raise self._failure


class Traffic:
    """A session through the relay that carries data both ways until it is stopped."""

    def __init__(self, computer, port, phone):
        self._pair = session(computer, port, phone)
        self._block = os.urandom(64 << 10)
        self._rounds = 0
        self._repetition = Repetition(self._carry, 0.01)

    def _carry(self):
        browser, other = self._pair
        for one, far in ((browser, other), (other, browser)):
            one.sendall(self._block)
            received = read_exactly(far, len(self._block))
            assert received == self._block, "the session was cut"
        self._rounds += 1

    def stop(self):
        """Fails if the session was cut or carried nothing."""
        self._repetition.stop()
        assert self._rounds > 10


def silence(host):
    """Drops the multicast DNS messages that the host sends."""
    rules = """
        add table inet silence
        add chain inet silence output { type filter hook output priority 0; }
        add rule inet silence output udp dport 5353 drop
    """
    host.run("nft", "-f", "-", input=rules.encode())


def speak(host):
    host.run("nft", "delete", "table", "inet", "silence")


def restart(computer, helper, engine):
    """Kills the engine; returns when the next one runs."""
    if engine == "daemon":
        computer.kill_avahi()
        computer.start_avahi()
        return
    child = engine_child(helper)
    os.kill(child, signal.SIGKILL)

    def is_replaced():
        try:
            return engine_child(helper) != child
        except AssertionError:
            return False

    wait_until(is_replaced, limit(10), "the next engine process")


def test_a_restart_in_which_the_phones_answers_are_lost_cuts_no_session(
    computer, onlooker, phone, engine
):
    """The initial answer period of a query is over after a second: the answers of the phone are lost
    for longer than that."""
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    traffic = Traffic(computer, found["port"], phone)
    since, seen = helper.mark(), onlooker.mark()

    for _ in range(2):
        silence(phone)
        heard = onlooker.mark()
        restart(computer, helper, engine)
        onlooker.wait("heard", phone.service_name, limit(10), since=heard)
        time.sleep(1.5)  # nothing must happen, so there is no event to wait for
        speak(phone)

    traffic.stop()
    session(computer, found["port"], phone)
    assert set(helper.statuses(since)) <= {visible(1)}
    assert onlooker.events("removed", seen) == []


@pytest.mark.long
def test_a_phone_that_vanished_while_the_engine_restarted_is_gone_after_its_silence(
    computer, onlooker, phone, engine
):
    helper = computer.helper()
    appear(phone, helper, onlooker)
    since = helper.mark()

    silence(phone)
    restart(computer, helper, engine)
    start = time.monotonic()

    helper.wait_status(LOOKING, timeout=60, since=since)
    assert 30 < time.monotonic() - start < limit(60)
    onlooker.wait("removed", phone.service_name, limit(5))


def aliases(phone):
    """A response in which the type, the phone's service and its host are aliases, which expire
    together with the records of their targets. All three are asked for."""
    kind = raw_mdns.dotted(f"{raw_mdns.TYPE_PHONE}.local")
    instance = raw_mdns.labels(phone.service_name, *raw_mdns.TYPE_PHONE.split("."), "local")
    host = raw_mdns.dotted(f"{phone.name}.local")
    other = raw_mdns.dotted("other.local")
    return raw_mdns.response(
        raw_mdns.alias(kind, other, 1),
        raw_mdns.alias(instance, other, 1),
        raw_mdns.alias(host, other, 1),
        raw_mdns.record(other, raw_mdns.PTR, 1, instance),
        raw_mdns.record(other, raw_mdns.SRV, 1, struct.pack("!HHH", 0, 0, 1) + host, True),
        raw_mdns.address("other.local", "10.77.0.250", lifetime=1),
    )


@pytest.fixture
def attack(lan, phone):
    """Starts to send such a packet every two seconds; what it returns is to be stopped."""
    speaker = Speaker(lan.host("stranger"))
    packet = aliases(phone)
    yield lambda: Repetition(lambda: speaker.say(packet), 2)
    speaker.close()


# The interval is no divisor of that of the attack, so that each part of it is looked at.
LOOKS = 65
LOOK_INTERVAL = 0.47


def looks_that_show(onlooker, phone):
    """In how many looks of half a minute the phone's advertisement is visible."""
    seen, due = 0, time.monotonic()
    for _ in range(LOOKS):
        due += LOOK_INTERVAL
        time.sleep(max(0, due - time.monotonic()))
        seen += raw_mdns.is_visible(onlooker, phone.service_name, TYPE_SMB, limit(0.3))
    print(f"visible in {seen} of {LOOKS} looks")
    return seen


@pytest.mark.slow
def test_packets_that_crash_an_engine_hide_no_phone_and_cut_no_session(
    attack, computer, onlooker, phone, engine
):
    """An alias that expires together with its target aborts libavahi 0.8 a second later. avahi-daemon
    stays down after that."""
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    traffic = Traffic(computer, found["port"], phone)
    since = helper.mark()
    packets = attack()

    seen = looks_that_show(onlooker, phone)

    packets.stop()
    traffic.stop()
    assert seen >= 60
    assert LOOKING not in helper.statuses(since)
    if engine == "daemon":
        assert not computer.avahi.running(), "the packets did not crash the daemon"


class Supervisor:
    """Starts avahi-daemon again whenever it has ended, until it is stopped."""

    def __init__(self, computer):
        self.restarts = 0
        self._computer = computer
        self._repetition = Repetition(self._look, 0.05)

    def _look(self):
        if not self._computer.avahi.running():
            self._computer.run("rm", "-f", "/run/avahi-daemon/pid")
            self._computer.start_avahi()
            self.restarts += 1

    def stop(self):
        self._repetition.stop()


@pytest.mark.slow
def test_packets_that_crash_a_daemon_again_and_again_hide_no_phone_and_cut_no_session(
    attack, bare_computer, onlooker, phone
):
    """The daemon is started again at once, and needs a second for that."""
    computer = bare_computer
    computer.prepare("daemon")
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    traffic = Traffic(computer, found["port"], phone)
    supervisor = Supervisor(computer)
    packets = attack()

    seen = looks_that_show(onlooker, phone)

    packets.stop()
    supervisor.stop()
    traffic.stop()
    assert seen >= 60
    assert supervisor.restarts >= 1


def test_an_engine_that_hangs_is_replaced_and_cuts_no_session(bare_computer, onlooker, phone):
    computer = bare_computer
    helper = computer.helper()
    found = appear(phone, helper, onlooker)
    traffic = Traffic(computer, found["port"], phone)
    since, seen = helper.mark(), onlooker.mark()

    hanging = engine_child(helper)
    os.kill(hanging, signal.SIGSTOP)

    # It counts as hanging after 40 s without a sign of life.
    onlooker.wait("heard", phone.service_name, limit(50), since=seen)
    assert engine_child(helper) != hanging
    traffic.stop()
    assert set(helper.statuses(since)) <= {visible(1)}
    assert onlooker.events("removed", seen) == []
