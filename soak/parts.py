"""What the process endures: calls, threads, open files, mutated files."""

from __future__ import annotations

import resource
import shutil
import sys
import threading
import time
from collections.abc import Iterator
from pathlib import Path
from typing import NamedTuple

import tagbridge
from kinds import EVERY_OPERATION, Kind, Session
from material import Files
from steadiness import Memory, descriptors, resident
from tagbridge import call

ROUNDS = 40


class Figures(NamedTuple):
    """What a part did, and what is wrong."""

    what: str
    calls: int
    seconds: float
    #: Bytes a million calls; None where memory is not what is looked at.
    slope: float | None
    #: More than before.
    descriptors: int
    faults: list[str]


def _rounds(calls: int, kinds: list[Kind], memory: Memory, grown: dict[str, int]) -> int:
    """Do all kinds equally often in many rounds; return the number of calls."""
    done = 0
    each = max(1, calls // ROUNDS // len(kinds))
    for number in range(ROUNDS):
        for kind in kinds:
            before, made = resident(), 0
            while made < each:
                made += kind.run()
            done += made
            if number >= ROUNDS // 4:
                grown[kind.name] = grown.get(kind.name, 0) + resident() - before
        memory.sample(done)
    return done


def every_kind(files: Files, scale: int) -> Figures:
    """Make calls of all kinds one after the other."""
    before, start = descriptors(), time.monotonic()
    session = Session(files, "alone")
    kinds, memory, grown = session.kinds(), Memory(), dict[str, int]()
    missing = EVERY_OPERATION - {name for kind in kinds for name in kind.operations}
    done = _rounds(8_000_000 // scale, kinds, memory, grown)
    session.close()
    faults = [f"no call of {name}" for name in sorted(missing)]
    if memory.grows:
        worst = max(grown, key=grown.__getitem__)
        faults.append(f"memory grows, most of all ({grown[worst]} bytes) with {worst}")
    return Figures(f"{len(kinds)} kinds of calls", done, time.monotonic() - start, memory.slope,
                   descriptors() - before, faults)


def many_threads(files: Files, scale: int, count: int = 16) -> Figures:
    """Make them in threads side by side, each with files of its own."""
    before, start = descriptors(), time.monotonic()
    sessions = [Session(files, str(number)) for number in range(count)]
    totals, faults = [0] * count, list[str]()
    # Each thread's arena of the allocator grows by itself until it has room for all that fits badly.
    memory = Memory(warm_up=0.6)

    def work(number: int, calls: int, is_rare: bool) -> None:
        kinds = sessions[number].kinds()
        try:
            if is_rare:
                totals[number] += sessions[number].refused_open()
            for turn in range(calls):
                # Each thread begins somewhere else.
                totals[number] += kinds[(turn + 7 * number) % len(kinds)].run()
        except Exception as error:  # noqa: BLE001 - said with the figures
            faults.append(f"thread {number}: {type(error).__name__}: {error}")

    each = max(150, 4_000_000 // scale // ROUNDS // count)
    for turn in range(ROUNDS):
        threads = [threading.Thread(target=work, args=(number, each, turn % 20 == 5))
                   for number in range(count)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        memory.sample(sum(totals))
    for session in sessions:
        session.close()
    if memory.grows:
        faults.append("memory grows")
    return Figures(f"calls of {count} threads", sum(totals), time.monotonic() - start,
                   memory.slope, descriptors() - before, faults)


def cycles(files: Files, scale: int) -> Figures:
    """Open and close files over and over, by calls and as objects."""
    before, start, memory = descriptors(), time.monotonic(), Memory()
    done, number = 0, max(ROUNDS, 100_000 // scale)
    paths = [files.strips, files.tiles, files.ycbcr, files.damaged]
    for turn in range(number):
        path = paths[turn % len(paths)]
        if turn % 2:
            call("close", call("open", str(path), "r+" if turn % 5 == 0 else "r"), outputs=0)
        else:
            with tagbridge.open(path) as tif:
                len(tif)
        done += 2
        if turn % (number // ROUNDS) == 0:
            memory.sample(done)
    faults = ["memory grows"] if memory.grows else []
    return Figures(f"{number:,} times opened and closed", done, time.monotonic() - start,
                   memory.slope, descriptors() - before, faults)


def _raise_limit(files: int) -> None:
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    wanted = files + 100
    if soft != resource.RLIM_INFINITY and soft < wanted:
        most = wanted if hard == resource.RLIM_INFINITY else min(wanted, hard)
        resource.setrlimit(resource.RLIMIT_NOFILE, (most, hard))


def many_files(files: Files, scale: int) -> Figures:
    """Have many files open at once and read from each."""
    count = max(10, 1000 // scale)
    _raise_limit(count)
    before, start = descriptors(), time.monotonic()
    wanted = tagbridge.imread(files.strips)[:16]
    opened, faults = [], []
    for number in range(count):
        path = files.folder / f"copy {number}.tif"
        shutil.copy(files.strips, path)
        opened.append(call("open", str(path), "r+" if number % 3 == 0 else "r"))
    for file in reversed(opened):
        if (call("readEncodedStrip", file, 0) != wanted).any():
            faults.append("another image than the file's was read")
    for file in opened:
        call("close", file, outputs=0)
    return Figures(f"{count:,} files open at once", 3 * count, time.monotonic() - start, None,
                   descriptors() - before, faults)


def mutated(files: Files, scale: int) -> Figures:
    """Hand mutated files to the commands."""
    # The tests try some of the same files.
    sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "python" / "tests"))
    from mutations import try_commands

    start, count = time.monotonic(), max(5, 1000 // scale)
    commands, faults = try_commands(range(count), files.folder)
    return Figures(f"{count:,} mutated files", commands, time.monotonic() - start, None, 0, faults)


def all_parts(files: Files, scale: int) -> Iterator[Figures]:
    """Go through all parts; a scale of 10 is a tenth of the work."""
    for part in (every_kind, many_threads, cycles, many_files, mutated):
        yield part(files, scale)
