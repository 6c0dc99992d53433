"""Transfers at a pace: the figures of a relay, their targets, and the pauses of the SMB client."""

import paced
import pytest
import smb_paced
from costs import Spent
from figures import Book
from transfers import Carried, figures_of


class Time:
    """A clock that only sleeping and calls advance."""

    def __init__(self):
        self.now = 100.0
        self.slept = []

    def clock(self):
        return self.now

    def sleep(self, seconds):
        self.slept.append(seconds)
        self.now += seconds


def repeated(lengths, pause, seconds):
    """The results of `repeat` with calls of these lengths, and when each started. Times that are
    multiples of a power of two are exact."""
    time, starts = Time(), []
    began = time.now
    remaining = iter(lengths)

    def call():
        starts.append(time.now - began)
        time.now += next(remaining)

    times, elapsed = smb_paced.repeat(call, pause, seconds, time.clock, time.sleep)
    return times, elapsed, starts


def test_calls_start_at_the_pace_whatever_each_takes():
    lengths = [1 / 64, 1 / 16, 1 / 32, 1 / 64]
    times, elapsed, starts = repeated(lengths, 1 / 8, 1 / 2)
    assert starts == [0, 1 / 8, 2 / 8, 3 / 8]
    assert times == lengths
    assert elapsed == 1 / 2


def test_a_short_delay_is_caught_up():
    late = 1 / 8 + 1 / 64
    _, elapsed, starts = repeated([late, 1 / 64, 1 / 64, 1 / 64], 1 / 8, 1 / 2)
    assert starts == [0, late, 2 / 8, 3 / 8]
    assert elapsed == 1 / 2


def test_a_long_delay_is_not_caught_up_in_one_burst():
    _, _, starts = repeated([3 / 8, 1 / 64, 1 / 64], 1 / 8, 9 / 16)
    assert starts[:2] == [0, 3 / 8]
    assert starts[2] == pytest.approx(3 / 8 + 1 / 8 - smb_paced.LATEST)
    assert len(starts) == 3


def test_a_percentile_is_a_time_that_was_measured():
    times = [float(number) for number in range(100, 0, -1)]
    assert smb_paced.percentile(times, 0.5) == 50
    assert smb_paced.percentile(times, 0.99) == 99
    assert smb_paced.percentile([7.0], 0.99) == 7


def test_the_result_of_the_smb_client_has_bytes_and_microseconds():
    found = smb_paced.result([0.001, 0.003, 0.002], 1000, 2.5)
    assert found["bytes"] == 3000 and found["seconds"] == 2.5 and found["count"] == 3
    assert found["p50"] == 2000 and found["p99"] == 3000


class File:
    """A file of which only the position matters."""

    def __init__(self, size):
        self.size, self.offset, self.read_from, self.written = size, 0, [], []

    def lseek(self, offset, whence):
        self.offset = offset + (self.size if whence == 2 else 0)
        return self.offset

    def read(self, count):
        self.read_from.append(self.offset)
        count = min(count, self.size - self.offset)
        self.offset += count
        return bytes(count)

    def write(self, block):
        self.written.append((self.offset, len(block)))
        self.offset += len(block)


def test_a_file_is_read_from_its_begin_again_before_a_chunk_is_incomplete():
    file = File(25)
    chunks = smb_paced.PacedFile(file, 10)
    for _ in range(5):
        chunks.read()
    assert file.read_from == [0, 10, 0, 10, 0]


def test_a_file_does_not_grow_by_writing():
    file = File(20)
    chunks = smb_paced.PacedFile(file, 10)
    for _ in range(3):
        chunks.write()
    assert file.written == [(0, 10), (10, 10), (0, 10)]


def test_a_short_read_is_an_error():
    file = File(20)
    chunks = smb_paced.PacedFile(file, 10)
    file.size = 5
    with pytest.raises(EOFError):
        chunks.read()


def test_figures_are_those_of_the_bytes_and_of_the_seconds():
    result = {"bytes": 500_000_000, "seconds": 2.0, "p50": 30.0, "p99": 90.0}
    found = figures_of(result, Spent(seconds=0.2, voluntary=300, switched=340))
    assert found == Carried(rate=250e6, cost=0.4, voluntary=150, wake_ups=170, p50=30.0, p99=90.0)


def found(cost, p50=50.0, p99=80.0):
    return Carried(rate=12.5e6, cost=cost, voluntary=10, wake_ups=11, p50=p50, p99=p99)


def judged(ours, nginx, **more):
    """The verdicts of one row by section, figure and relay; the other relays are as nginx."""
    book = Book()
    row = paced.PacedTables(book, "tests").row("100 Mbit/s", **more)
    for name in ("HAProxy", "nginx", "socat"):
        row.add(name, nginx)
    row.add("direct", found(0, p50=20.0))
    row.add("ours", ours)
    return {
        (section.title.split(",")[0], figure.title, bar.than): verdict
        for section, figure, bar, verdict in book.judgements()
    }


@pytest.mark.parametrize("cost, is_met", [(0.79, True), (0.81, False)])
def test_a_gigabyte_may_cost_at_most_four_fifths_of_what_each_other_relay_takes(cost, is_met):
    verdicts = judged(found(cost), found(1.0))
    for name in ("HAProxy", "nginx", "socat"):
        assert verdicts["Processor time of the relay", "100 Mbit/s", name] is is_met


@pytest.mark.parametrize("p50, p99, expected", [(49, 79, [True, True]), (51, 81, [False, False])])
def test_the_latency_may_not_be_above_that_of_nginx(p50, p99, expected):
    verdicts = judged(found(0.5, p50, p99), found(1.0))
    latency = [verdict for key, verdict in verdicts.items() if key[0] == "Latency"]
    assert latency == expected


@pytest.mark.parametrize(
    "bars, expected",
    [((paced.NOT_LATER, ()), ["100 Mbit/s, p50"]), (((), paced.NOT_LATER), ["100 Mbit/s, p99"]), (((), ()), [])],
)
def test_a_latency_may_be_without_a_target(bars, expected):
    verdicts = judged(found(0.5), found(1.0), latency_bars=bars)
    assert [title for section, title, _ in verdicts if section == "Latency"] == expected


def test_a_direct_connection_has_a_speed_and_a_latency_but_no_costs():
    book = Book()
    row = paced.PacedTables(book, "tests").row("100 Mbit/s")
    row.add("direct", found(0))
    measured = {
        section.title.split(",")[0]: [figure.samples for figure in section.figures]
        for section in book.sections
    }
    assert measured["Speed"] == [{"direct": [100.0]}]
    assert measured["Latency"] == [{"direct": [50.0]}, {"direct": [80.0]}]
    assert measured["Processor time of the relay"] == [{}]
    assert measured["Wake-ups of the relay"] == [{}, {}]
