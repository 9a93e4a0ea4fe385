"""Mutated files, and what becomes of them on the command line.

A mutation is known by its number: from the same files it makes the same one again.
"""

from __future__ import annotations

import json
import multiprocessing
import os
import random
import re
import struct
import tempfile
import time
from collections.abc import Callable, Sequence
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path

import tagbridge
from command_line import Done, run

EXAMPLES = Path(__file__).resolve().parents[2] / "examples"
LARGEST = 1 << 20
KEPT = b"what was there before"
LINE = re.compile(r"tagbridge: .* \([\w:]+\)|tagbridge: interrupted")
WAYS: tuple[tuple[str, ...], ...] = (
    (), ("--compression", "lzw"), ("--compression", "jpeg"), ("--tile", "16x16"), ("--pyramid",),
    ("--region", "0:20,3:50"), ("--planar", "separate"), ("--rows-per-strip", "3", "--predictor"))


def sources() -> list[bytes]:
    """The examples and, where TAGBRIDGE_CORPUS names them, files of the world."""
    paths = sorted(EXAMPLES.glob("*.tif"))
    if corpus := os.environ.get("TAGBRIDGE_CORPUS"):
        with open(Path(corpus) / "manifest.jsonl", encoding="utf-8") as lines:
            paths += [Path(corpus) / json.loads(line)["file"] for line in lines]
    return [path.read_bytes() for path in paths if path.stat().st_size <= LARGEST]


# --- Mutations

def _flip(data: bytearray, dice: random.Random) -> None:
    for _ in range(dice.choice((1, 3, 20))):
        data[dice.randrange(len(data))] ^= 1 << dice.randrange(8)


def _truncate(data: bytearray, dice: random.Random) -> None:
    del data[dice.randrange(8, len(data)):]


def _directory(data: bytes) -> tuple[str, int, int, int]:
    """The byte order of a file, and where its first directory's entries are, their size and count."""
    order = "<" if data[:1] == b"I" else ">"
    if struct.unpack_from(order + "H", data, 2)[0] == 43:
        place = struct.unpack_from(order + "Q", data, 8)[0]
        return order, place + 8, 20, struct.unpack_from(order + "Q", data, place)[0]
    place = struct.unpack_from(order + "I", data, 4)[0]
    return order, place + 2, 12, struct.unpack_from(order + "H", data, place)[0]


def _swap(data: bytearray, dice: random.Random) -> None:
    """Exchange what two tags have behind their numbers."""
    _, place, size, count = _directory(data)
    one, other = (place + size * dice.randrange(count) for _ in range(2))
    data[one + 2:one + size], data[other + 2:other + size] = (
        data[other + 2:other + size], data[one + 2:one + size])


def _replace(data: bytearray, dice: random.Random) -> None:
    """Give a tag another type, count or value."""
    order, place, size, count = _directory(data)
    entry = place + size * dice.randrange(count)
    word = "Q" if size == 20 else "I"
    value = dice.choice((0, 1, 2, 7, 255, 65535, 2**31 - 1, 2**32 - 1, dice.randrange(2**32)))
    if dice.random() < 0.2:
        struct.pack_into(order + "H", data, entry + 2, dice.randrange(20))
    else:
        struct.pack_into(order + word, data, entry + 4 + (dice.random() < 0.7) * (size - 4) // 2,
                         value)


def _splice(data: bytearray, dice: random.Random) -> None:
    """Write one part of the file over another."""
    length = dice.randrange(1, min(200, len(data) // 2))
    source, place = (dice.randrange(len(data) - length) for _ in range(2))
    data[place:place + length] = data[source:source + length]


MUTATIONS = (_flip, _truncate, _swap, _replace, _replace, _splice)


def mutated(files: Sequence[bytes], seed: int) -> bytes:
    """One of the files with one or two mutations."""
    dice = random.Random(seed)
    data = bytearray(dice.choice(files))
    for mutate in dice.sample(MUTATIONS, dice.choice((1, 1, 2))):
        try:
            mutate(data, dice)
        except (struct.error, ValueError, IndexError):
            continue  # an earlier mutation left no directory
    return bytes(data)


# --- The commands

class Trial:
    """Runs the commands over mutated files in a folder of its own."""

    def __init__(self, folder: Path, files: Sequence[bytes],
                 start: Callable[..., Done] = run) -> None:
        self._folder = Path(tempfile.mkdtemp(prefix="mutated-", dir=folder))
        self._files = files
        self._start = start
        self.commands = 0

    def run(self, seed: int) -> list[str]:
        """Go through the commands with a mutation; return what is wrong."""
        path = self._folder / "a.tif"
        path.write_bytes(mutated(self._files, seed))
        done = self._ended("info", path)
        wrong = self._complaints(done, ["info"])
        ways = WAYS[seed % len(WAYS)]
        if "unableToOpenFile" in done.stderr:  # every command would wait and try again
            return wrong + self._convert(path, ways, exists=True)
        for arguments in (("info", "--tags"), ("info", "--json"), ("verify",)):
            wrong += self._complaints(self._ended(*arguments, path), arguments)
        for exists in (True, False):
            wrong += self._convert(path, ways, exists)
        return wrong

    def _ended(self, *arguments: object) -> Done:
        self.commands += 1
        return self._start(*arguments)

    def _complaints(self, done: Done, arguments: Sequence[str]) -> list[str]:
        shown = " ".join(arguments)
        wrong = [f"{shown}: {line}" for line in done.stderr.splitlines() if not LINE.fullmatch(line)]
        if done.returncode not in (0, 1, 2):
            wrong.append(f"{shown}: status {done.returncode}")
        if done.returncode == 1 and not done.stderr:
            wrong.append(f"{shown}: failed without a word")
        return wrong

    def _convert(self, path: Path, options: tuple[str, ...], exists: bool) -> list[str]:
        output = self._folder / "out.tif"
        if exists:
            output.write_bytes(KEPT)
        done = self._ended("convert", path, output, *options)
        wrong = self._complaints(done, ("convert", *options))
        if done.returncode == 0:
            wrong += self._unreadable(output)
        elif exists and output.read_bytes() != KEPT:
            wrong.append("convert: a file was lost")
        elif not exists and output.exists():
            wrong.append("convert: left half a file")
        if done.returncode and done.stderr.count("\n") != 1:
            wrong.append(f"convert: {done.stderr!r} is not one line")
        output.unlink(missing_ok=True)
        left = [each.name for each in self._folder.iterdir() if each != path]
        return wrong + [f"convert: left {name}" for name in left]

    def _unreadable(self, output: Path) -> list[str]:
        try:
            with tagbridge.open(output) as tif:
                for page in tif:
                    page.read(strict=True)
        except tagbridge.Error as error:
            return [f"convert: wrote what cannot be read: {error}"]
        return []


# --- Many of them

#: Most of a file's time goes by in waits before a second try to open it.
PROCESSES = 6
#: Seconds that all commands may take with a file.
PATIENCE = 60
_trial: Trial | None = None


def _prepare(folder: Path) -> None:
    global _trial
    _trial = Trial(folder, sources())


def _try(seed: int) -> tuple[int, list[str]]:
    assert _trial is not None
    before, start = _trial.commands, time.monotonic()
    try:
        wrong = _trial.run(seed)
    except Exception as error:  # noqa: BLE001 - a traceback, or something that nobody thought of
        wrong = [f"{type(error).__name__}: {error}"]
    seconds = time.monotonic() - start
    if seconds > PATIENCE:
        wrong.append(f"took {seconds:.0f} s")
    return _trial.commands - before, [f"mutation {seed}: {what}" for what in wrong]


def try_commands(seeds: Sequence[int], folder: Path) -> tuple[int, list[str]]:
    """Hand mutations to the commands; return how many were run, and what is wrong."""
    context = multiprocessing.get_context("spawn")
    with ProcessPoolExecutor(PROCESSES, context, _prepare, (folder,)) as pool:
        results = list(pool.map(_try, seeds))
    return (sum(commands for commands, _ in results),
            [each for _, wrong in results for each in wrong])
