"""Runs the C++ tests of a build under valgrind's memcheck, one program after the other.

usage: memcheck.py BUILD [REGEX]     those whose names the expression matches (default: all)

A program passes when its tests pass, memcheck reports nothing, and all memory that was ever
allocated is released or still known at the end.
"""

from __future__ import annotations

import re
import subprocess
import sys
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
VALGRIND = ["valgrind", "--quiet", "--error-exitcode=99", "--leak-check=full",
            "--show-leak-kinds=definite", "--errors-for-leak-kinds=definite", "--num-callers=30",
            "--fair-sched=yes", f"--suppressions={HERE / 'valgrind.supp'}"]
# Whole programs, and tests of others, that are left out.
PROGRAMS_LEFT_OUT = {
    "block_copy_simd_test": "it goes through every length on every target, which takes hours",
}
_WRITES = "valgrind writes to memory that the system gives zeroed"
TESTS_LEFT_OUT = {
    "claimed_sizes_test": {"ClaimedSizes.StripThatDoesNotDecodeCostsNoMemory": _WRITES},
    "rgba_damaged_test": {"HugeRgba.OfNonsense*": _WRITES},
    "runtime_memory_test": {"Memory.ZeroedLargeBlockIsNotTouched": _WRITES},
    "threads_test": {
        "DuringACall.AForkWaitsAndTheChildCanCallTheModule":
            "what only the parent's threads knew is lost to the child"},
}


def check(program: Path) -> bool:
    """Run a program; say how it went."""
    left_out = TESTS_LEFT_OUT.get(program.name, {})
    arguments = ["--gtest_brief=1", "--gtest_filter=-" + ":".join(left_out)]
    start = time.monotonic()
    done = subprocess.run([*VALGRIND, str(program), *arguments], capture_output=True, text=True,
                          check=False)
    passed = done.returncode == 0
    print(f"{program.name:34} {time.monotonic() - start:7.1f} s  {'clean' if passed else 'FAILED'}",
          flush=True)
    for name, reason in left_out.items():
        print(f"    without {name}: {reason}")
    if not passed:
        print(done.stdout + done.stderr)
    return passed


def main(build: str, pattern: str = "") -> int:
    """Check the programs; return the exit status."""
    programs = [path for path in sorted(Path(build, "tests").glob("*_test"))
                if re.search(pattern, path.name)]
    if not programs:
        print(f"no test program matches {pattern!r}", file=sys.stderr)
        return 2
    failed = []
    for program in programs:
        if reason := PROGRAMS_LEFT_OUT.get(program.name):
            print(f"{program.name:34} left out: {reason}")
        elif not check(program):
            failed.append(program.name)
    print(f"{len(programs)} programs, {len(failed)} failed" + "".join(f" {name}" for name in failed))
    return 1 if failed else 0


if __name__ == "__main__":
    raise SystemExit(main(*sys.argv[1:]))
