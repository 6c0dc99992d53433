"""Clients that are connected before they start, and stay connected with their result."""

import sys

import pytest
from place import Transfer, speed_of
from rig.process import Process

RESULT = '{"bytes": 3000, "seconds": 1.5, "p50": 1, "p99": 2}'


def client(after_start):
    """A client that is connected, runs this code once it has been told to start, and prints at its
    end what it was told after that."""
    code = f"""import sys
print('{{"connected": 1}}', flush=True)
sys.stdin.readline()
{after_start}
print("told", repr(sys.stdin.read()), flush=True)"""
    return Process([sys.executable, "-c", code], stdin=True)


def tell(result):
    return f"print({result!r}, flush=True)"


def test_a_transfer_starts_when_it_is_told_to_and_ends_after_its_result():
    process = client(tell(RESULT))
    transfer = Transfer(process, 1)
    assert "bytes" not in process.output()
    transfer.start()
    assert speed_of(transfer.result()) == 2000
    assert process.running()
    transfer.end()
    assert process.output().endswith("told ''")


def test_a_transfer_is_not_done_before_there_is_a_result():
    process = client("sys.stdin.readline()\n" + tell(RESULT))
    transfer = Transfer(process, 1)
    transfer.start()
    assert not transfer.is_done(0.1)
    process.write("go on\n")
    assert transfer.is_done(10)
    transfer.end()


def test_a_transfer_of_nothing_is_a_failure():
    transfer = Transfer(client(tell(RESULT.replace("3000", "0"))), 1)
    transfer.start()
    assert transfer.is_done(10)
    with pytest.raises(AssertionError, match="nothing came through"):
        transfer.result()
    transfer.end()


def test_a_client_that_fails_tells_why():
    transfer = Transfer(client("sys.exit('the connection ended early')"), 1)
    transfer.start()
    for wait in (lambda: transfer.is_done(10), transfer.result, transfer.end):
        with pytest.raises(AssertionError, match="the connection ended early"):
            wait()


def test_a_client_that_cannot_connect_tells_why():
    process = Process([sys.executable, "-c", "import sys; sys.exit('refused')"], stdin=True)
    with pytest.raises(AssertionError, match="refused"):
        Transfer(process, 1)
    process.end()
