"""Lets one process endure: millions of calls of every kind, files opened and closed, threads.

usage: run.py [SCALE]      a SCALEth of the work (default 1: all of it)

Prints what was done, how long it took, by how much the memory in use grows (the slope of the straight
line through the samples after a warm-up), and the descriptors that were left.
Ends with status 1 when memory grows, a descriptor is left or a result is wrong.
"""

from __future__ import annotations

import argparse
import tempfile
import warnings
from pathlib import Path

import tagbridge
from material import Files
from parts import all_parts


def positive(text: str) -> int:
    """Return a positive whole number. For argparse."""
    number = int(text)
    if number < 1:
        raise argparse.ArgumentTypeError(f"{text} is not positive")
    return number


def main() -> int:
    """Go through all parts and print their figures."""
    parser = argparse.ArgumentParser(prog="./dev soak", description=(__doc__ or "").split("\n")[0])
    parser.add_argument("scale", nargs="?", type=positive, default=1, metavar="SCALE",
                        help="do a SCALEth of the work (default: 1)")
    scale = parser.parse_args().scale
    warnings.simplefilter("ignore", tagbridge.Warning)
    faults = []
    print(f"{'':34} {'calls':>12} {'seconds':>9} {'bytes a million':>16} {'descriptors':>12}")
    with tempfile.TemporaryDirectory(prefix="tagbridge-soak-") as folder:
        for figures in all_parts(Files(Path(folder)), scale):
            slope = "" if figures.slope is None else f"{figures.slope:,.0f}"
            print(f"{figures.what:34} {figures.calls:12,} {figures.seconds:9.1f} {slope:>16} "
                  f"{figures.descriptors:12}", flush=True)
            faults += figures.faults
            if figures.descriptors:
                faults.append(f"{figures.what}: {figures.descriptors} descriptors are left")
    for fault in faults:
        print(f"FAILED: {fault}")
    return 1 if faults else 0


if __name__ == "__main__":
    raise SystemExit(main())
