"""Measures the helper against a direct connection and other common relays.

Everything runs in network namespaces: a phone and a computer connected by a veth pair, and a
separate host for loopback. Figures are medians of several rounds; ratios are computed per round.
"""

import argparse
import contextlib
import os
import signal
import sys
import traceback

HERE = os.path.dirname(os.path.abspath(__file__))
# The hosts of the network come from the rig of the network tests.
sys.path.append(os.path.join(HERE, "..", "tests", "lan"))

import files  # noqa: E402
import home  # noqa: E402
import idle  # noqa: E402
import memory  # noqa: E402
import paced  # noqa: E402
import report  # noqa: E402
import scaling  # noqa: E402
import transfers  # noqa: E402
from machine import machine_lines  # noqa: E402
from relays import RELAYS  # noqa: E402
from session import Plan, Run  # noqa: E402

RESULTS = os.path.join(HERE, "RESULTS.md")

PARTS = {
    "throughput": transfers.throughput,
    "paced": paced.streams,
    "paced-smb": paced.smb,
    "round-trips": transfers.round_trips,
    "round-trips-pinned": transfers.pinned_round_trips,
    "sessions": transfers.sessions,
    "beside-transfer": transfers.beside_transfer,
    "smb": files.smb,
    "memory": memory.memory,
    "start": idle.start,
    "discovery": idle.discovery,
    "idle": idle.idle,
    "home": home.home,
    "scale-sessions": scaling.scale_sessions,
    "scale-phones": scaling.scale_phones,
    "scale-names": scaling.scale_names,
    "as-root": transfers.as_root,
}


# The part "home" takes more than an hour.
ONLY_BY_NAME = ("home",)

# The parts of --quick; the others take long.
QUICK = (
    *("throughput", "paced", "paced-smb", "round-trips", "round-trips-pinned", "sessions"),
    "beside-transfer",
    *("memory", "start", "discovery", "idle"),
)


def options_of(arguments):
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__.split("\n", 1)[0])
    parser.add_argument(
        "--quick", action="store_true", help="fewer and shorter measurements; a few minutes"
    )
    parser.add_argument(
        "--only", nargs="+", choices=PARTS, metavar="PART", help="some of: " + ", ".join(PARTS)
    )
    names = [kind.name for kind in RELAYS]
    parser.add_argument(
        "--relays", nargs="+", choices=names, default=names, metavar="RELAY",
        help="the relays to measure, some of: " + ", ".join(names),
    )
    parser.add_argument("--rounds", type=int, help="how often each figure is measured (5)")
    parser.add_argument("--seconds", type=float, help="the length of one measurement (0.5)")
    parser.add_argument(
        "--output", metavar="FILE", help="write the report to FILE, too (whole run: RESULTS.md)"
    )
    options = parser.parse_args(arguments)
    is_whole = not options.quick and options.only is None and options.relays == names
    if options.output is None and is_whole:
        options.output = RESULTS
    if options.only is None:
        whole = tuple(name for name in PARTS if name not in ONLY_BY_NAME)
        options.only = QUICK if options.quick else whole
    return options


def attempt(run, name, part):
    """Runs a part. If it fails, the report says so, and the other parts are still measured."""
    try:
        part(run)
    except Exception as error:
        traceback.print_exc()
        first_line = (str(error) or type(error).__name__).splitlines()[0]
        run.book.failures.append(f"{name}: {first_line}")
        with contextlib.suppress(AssertionError):
            run.end_relays()


def perform(run, options):
    """Runs the parts in the order of PARTS, and writes the report."""
    for name, part in PARTS.items():
        if name in options.only:
            attempt(run, name, part)
    run.progress("done")
    how = [
        f"Medians of {run.plan.rounds} rounds. Each round measures every relay in turn, for "
        f"{run.plan.seconds:g} s. A ratio compares two measurements of one round; parentheses contain "
        "the lowest and the highest value of all rounds."
    ]
    page = report.markdown(run.book, machine_lines(), how)
    print(page)
    if options.output:
        report.write(options.output, page, run.book)


def main():
    options = options_of(sys.argv[1:])
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    kinds = [kind for kind in RELAYS if kind.name in options.relays]
    run = Run(Plan(options.quick, options.rounds, options.seconds), kinds)
    try:
        perform(run, options)
    except KeyboardInterrupt:
        sys.exit(130)
    finally:
        # A second Ctrl-C must not interrupt the clean-up.
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        run.close()
    if run.book.failures:
        sys.exit(1)


if __name__ == "__main__":
    main()
