#!/usr/bin/env python3
"""Takes each remedy against hostile files and failing systems out once, and shows who notices.

usage: remedies.py [--list] [NAME…]

The tables in tools/remedies/ name the remedies, the text of the sources that each consists of, what
stands there without it, and the tests that must fail then. In a copy of the sources, build/remedies/,
every remedy (or those with one of the NAMEs in theirs) is taken out by itself, what its tests need is
compiled, and they run. A table is printed; the status is 0 when all of them failed as they should:
by an assertion, a crash or a sanitizer's report. Having no end is a failure only for the tests of a
remedy whose row says `hangs = true`.
"""

from __future__ import annotations

import argparse
import dataclasses
import functools
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import tomllib

ROOT = pathlib.Path(__file__).resolve().parents[1]
TABLES = ROOT / "tools" / "remedies"
TREE = ROOT / "build" / "remedies"

# Where a test runs, from the cheapest on: as built ever, with AddressSanitizer and
# UndefinedBehaviorSanitizer, and so with a libtiff that has them too. The last two share a build.
PRESETS = {"gcc": "gcc", "sanitize": "sanitize", "sanitize-libtiff": "sanitize"}
LIBTIFF = ROOT / "build" / "libtiff-gcc" / "lib"

SECONDS = 60  # a test that takes longer hangs
ADDRESS_SPACE = 12 << 30
FAILED = "failed as it should"
FROM_OUTSIDE = (signal.SIGKILL, signal.SIGTERM, signal.SIGINT)  # signals that are no crash


@dataclasses.dataclass(frozen=True)
class Change:
    file: str
    text: str
    instead: str

    def problem(self, folder: pathlib.Path = ROOT) -> str:
        """Says why it cannot be made in the sources of a folder; nothing when it can."""
        path = folder / self.file
        found = path.read_text().count(self.text) if path.exists() else 0
        return "" if found == 1 else f"its text is {found} times in {self.file}: {self.text!r}"


@dataclasses.dataclass(frozen=True)
class Remedy:
    name: str
    build: str
    tests: tuple[str, ...]
    changes: tuple[Change, ...]
    hangs: bool = False

    def problems(self) -> list[str]:
        found = [change.problem() for change in self.changes]
        found += [f"there is no test {test}" for test in self.tests if not is_test(test)]
        if self.build not in PRESETS:
            found.append(f"there is no build {self.build}")
        return [f"{self.name}: {problem}" for problem in found if problem]


def remedy_of(row: dict) -> Remedy:
    changes = [Change(part["file"], part["text"], part["instead"])
               for part in [row, *row.get("also", [])]]
    return Remedy(row["name"], row["build"], tuple(row["tests"]), tuple(changes),
                  row.get("hangs", False))


def all_remedies() -> list[Remedy]:
    return [remedy_of(row) for table in sorted(TABLES.glob("*.toml"))
            for row in tomllib.loads(table.read_text())["remedy"]]


# --- Tests are named Suite.Name, Suite.Name/Row or file.py::function, or are programs with arguments.

CASE = re.compile(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", re.MULTILINE)
FUNCTION = re.compile(r"^def (test_\w+)\(", re.MULTILINE)


@functools.cache
def tests() -> dict[str, pathlib.Path]:
    """The names of all tests, without rows, and the files that have them."""
    found = {}
    for path in sorted(ROOT.glob("tests/*/*_test.cc")):
        found |= {f"{suite}.{name}": path for suite, name in CASE.findall(path.read_text())}
    for path in sorted(ROOT.glob("python/tests/test_*.py")):
        found |= {f"{path.name}::{name}": path for name in FUNCTION.findall(path.read_text())}
    return found


def is_test(name: str) -> bool:
    if is_command(name):
        source, *arguments = name.split()
        paths = [ROOT / argument for argument in arguments if "/" in argument]
        return (ROOT / f"{source}.cc").exists() and all(path.exists() for path in paths)
    return name.partition("/")[0] in tests()


def is_command(test: str) -> bool:
    return " " in test


def is_python(test: str) -> bool:
    return "::" in test


def program(test: str) -> str:
    """The program that has a test of C++'s, as Ninja knows it."""
    if is_command(test):
        return test.split()[0]
    path = tests()[test.partition("/")[0]]
    prefix = "runtime_" if path.parent.name == "runtime" else ""
    return f"tests/{prefix}{path.stem}"


def pattern(test: str) -> str:
    case, _, row = test.partition("/")
    return f"*/{case}/{row}" if row else f"{case}:{case}/*:*/{case}/*"


# --- The copy of the sources

def copy_sources() -> None:
    listed = subprocess.run(["git", "-C", ROOT, "-c", "safe.directory=*", "ls-files", "-coz",
                             "--exclude-standard"], check=True, capture_output=True, text=True)
    for name in filter(None, listed.stdout.split("\0")):
        source, copy = ROOT / name, TREE / name
        if not source.is_file():
            continue
        if not copy.exists() or source.read_bytes() != copy.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)  # it is new there, whatever its time here


def take_out(remedy: Remedy) -> None:
    for change in remedy.changes:
        path = TREE / change.file
        path.write_text(path.read_text().replace(change.text, change.instead))


def put_back(remedy: Remedy) -> None:
    for change in remedy.changes:
        (TREE / change.file).write_bytes((ROOT / change.file).read_bytes())


# --- Building and running there

def environment(build: str) -> dict[str, str]:
    return os.environ | {"TAGBRIDGE_PRESET": PRESETS[build]}


def compiles(wanted: list[tuple[str, str]]) -> bool:
    """Builds what pairs of a build and a test need. What the compiler says is for the terminal."""
    for preset in dict.fromkeys(PRESETS[build] for build, _ in wanted):
        names = [test for build, test in wanted if PRESETS[build] == preset]
        targets = {program(test) for test in names if not is_python(test)}
        if any(is_python(test) for test in names):
            targets |= {"tagbridge", "tagbridge_python", "tagbridge_package", "tagbridge_conversions"}
        command = [TREE / "dev", "build", *sorted(targets)]
        if subprocess.run(command, env=environment(preset), check=False).returncode != 0:
            return False
    return True


def limit_memory(build: str) -> None:
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    if build == "gcc":  # a sanitizer needs terabytes of addresses
        resource.setrlimit(resource.RLIMIT_AS, (ADDRESS_SPACE, ADDRESS_SPACE))


def run(test: str, build: str) -> tuple[int | None, str]:
    """The status of a test, None when it did not end, and its output."""
    variables = environment(build)
    if build == "sanitize-libtiff":
        variables["LD_LIBRARY_PATH"] = str(LIBTIFF)
    if is_python(test):
        variables["PYTHONPATH"] = str(TREE / "build" / PRESETS[build] / "python" / "tests")
        command = [TREE / "dev", "python", "-m", "pytest", "-q", "-p", "no:cacheprovider",
                   f"python/tests/{test}"]
    else:
        arguments = test.split()[1:] if is_command(test) else [f"--gtest_filter={pattern(test)}"]
        command = [TREE / "build" / PRESETS[build] / program(test), *arguments]
    with subprocess.Popen(command, cwd=TREE, env=variables, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace",
                          start_new_session=True,
                          preexec_fn=lambda: limit_memory(build)) as process:
        try:
            output, _ = process.communicate(timeout=SECONDS)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            return None, process.communicate()[0]
    return process.returncode, output


def ran(test: str, output: str) -> bool:
    """Whether any test ran that was not skipped."""
    if is_command(test):
        return True
    started = len(re.findall(r"^\[ RUN ", output, re.MULTILINE))
    skipped = len(re.findall(r"^\[  SKIPPED \] .*\(", output, re.MULTILINE))
    return started > skipped or re.search(r"\d+ (passed|failed)", output) is not None


def report(output: str) -> str:
    """What a sanitizer says; nothing when none does."""
    if found := re.search(r"ERROR: (AddressSanitizer|LeakSanitizer): ([\w-]+)", output):
        return f"{found[1]}: {found[2]}"
    if found := re.search(r"runtime error: ([^\n]*)", output):
        return f"UndefinedBehaviorSanitizer: {found[1]}"
    return ""


def assertion(test: str, status: int, output: str) -> str:
    """Says that a test ran and found something wrong; nothing when it could not run."""
    if is_python(test):
        is_said = (re.search(r"\d+ failed", output) is not None
                   and re.search(r"^E +(ImportError|ModuleNotFoundError)", output, re.M) is None)
    else:
        is_said = is_command(test) or "[  FAILED  ]" in output
    return "an assertion" if status == 1 and is_said else ""


def how_it_failed(test: str, status: int, output: str) -> str:
    """Says how; nothing when the test did not get as far as to fail."""
    if said := report(output):
        return said
    if status < 0:
        return "" if -status in FROM_OUTSIDE else signal.Signals(-status).name
    return assertion(test, status, output)


def outcome_of(test: str, status: int | None, output: str, hangs: bool) -> str:
    if status is None:
        return f"{FAILED}: no end within {SECONDS} s" if hangs else "DID NOT END"
    if status == 0:
        return "STILL PASSED" if ran(test, output) else "DID NOT RUN"
    how = how_it_failed(test, status, output)
    return f"{FAILED}: {how}" if how else f"DID NOT RUN: status {status}"


def outcome(test: str, build: str, hangs: bool = False) -> str:
    return outcome_of(test, *run(test, build), hangs)


# --- The table

def print_row(name: str, test: str, build: str, result: str) -> None:
    print(f"| {name} | `{test}` | {build} | {result} |", flush=True)


def outcomes(remedy: Remedy, spoilt: set[str]) -> list[str]:
    problems = [change.problem(TREE) for change in remedy.changes]
    if any(problems):
        return ["NOT FOUND: " + "; ".join(filter(None, problems))] * len(remedy.tests)
    take_out(remedy)
    try:
        if not compiles([(remedy.build, test) for test in remedy.tests]):
            return ["DID NOT COMPILE"] * len(remedy.tests)
        return ["FAILS WITH IT TOO" if test in spoilt
                else outcome(test, remedy.build, remedy.hangs) for test in remedy.tests]
    finally:
        put_back(remedy)


def failing_with_all(remedies: list[Remedy]) -> set[str]:
    """The tests that do not pass as things are, with the build of these remedies."""
    wanted = list(dict.fromkeys((remedy.build, test) for remedy in remedies
                                for test in remedy.tests if is_test(test)))
    if not compiles(wanted):
        sys.exit("remedies: the sources do not compile as they are")
    return {test for build, test in wanted if outcome(test, build) != "STILL PASSED"}


def chosen(remedies: list[Remedy], names: list[str]) -> list[Remedy]:
    for name in names:
        if not any(name in remedy.name for remedy in remedies):
            sys.exit(f"remedies: there is no remedy '{name}'")
    return [remedy for remedy in remedies
            if not names or any(name in remedy.name for name in names)]


def main() -> int:
    parser = argparse.ArgumentParser(prog="./dev remedies", description=__doc__.split("\n\n")[0])
    parser.add_argument("--list", action="store_true", help="only name them and their tests")
    parser.add_argument("names", nargs="*", metavar="NAME", help="a part of the names")
    arguments = parser.parse_args()
    remedies = chosen(all_remedies(), arguments.names)
    if arguments.list:
        print(*(f"{remedy.name}: {', '.join(remedy.tests)}" for remedy in remedies), sep="\n")
        return 0
    if problems := [problem for remedy in remedies for problem in remedy.problems()]:
        sys.exit("\n".join(problems))
    copy_sources()
    print("| remedy that was taken out | test | build | outcome |\n|---|---|---|---|", flush=True)
    good = total = 0
    for build in PRESETS:
        of_build = [remedy for remedy in remedies if remedy.build == build]
        spoilt = failing_with_all(of_build)
        for remedy in of_build:
            for test, result in zip(remedy.tests, outcomes(remedy, spoilt), strict=True):
                print_row(remedy.name, test, build, result)
                good, total = good + result.startswith(FAILED), total + 1
    print(f"\n{len(remedies)} remedies, {good} of {total} tests failed as they should")
    return 0 if good == total else 1


if __name__ == "__main__":
    sys.exit(main())
