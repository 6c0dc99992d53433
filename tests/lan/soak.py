"""./dev soak: mixed traffic through the program for a long time, with a report every minute."""

import argparse
import sys

from rig.computer import Computer
from rig.ends import raise_descriptor_limit
from rig.network import Lan
from rig.onlooker import Onlooker
from rig.phone import Phone
from rig.soak import Soak


def seconds_of(text):
    """Seconds of a duration such as 2h, 45m or 20s; a bare number is minutes."""
    number, unit = (text[:-1], text[-1]) if text[-1:] in "hms" else (text, "m")
    return float(number) * {"h": 3600, "m": 60, "s": 1}[unit]


def parse():
    parser = argparse.ArgumentParser(prog="./dev soak", description=__doc__)
    parser.add_argument(
        "time", nargs="?", default="30", type=seconds_of, help="minutes, or 2h, 45m, 20s (30)"
    )
    parser.add_argument("--rate", type=float, default=20, help="at most this many MB/s (20)")
    parser.add_argument("--dns-sd", choices=("daemon", "embedded"), default="embedded")
    parser.add_argument("--seed", type=int, default=1, help="seed of the random traffic (1)")
    return parser.parse_args()


def tell(line):
    print(line, flush=True)


def main():
    options = parse()
    raise_descriptor_limit()
    lan = Lan()
    try:
        computer = lan.host("computer", of=Computer)
        computer.prepare(options.dns_sd)
        onlooker = lan.host("onlooker", of=Onlooker)
        onlooker.watch()
        phones = [lan.host(x, of=Phone) for x in ("phone", "restless")]
        soak = Soak(computer, onlooker, phones, options.rate, options.seed)
        faults = soak.run(options.time, tell)
        computer.check_helpers()
    finally:
        lan.close()
    for fault in faults:
        tell(f"fault: {fault}")
    tell(f"soak: {'failed' if faults else 'passed'}")
    return 1 if faults else 0


sys.exit(main())
