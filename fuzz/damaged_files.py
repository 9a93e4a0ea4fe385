"""Files for the fuzz target of the file layer, and what is done to them."""

from __future__ import annotations

import contextlib
import io
import itertools
import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import numpy as np
import tagbridge
from hypothesis import strategies as st

ROOT = Path(__file__).resolve().parents[1]
LARGEST_FILE = 100_000

# What an option may bring about.
OF_OPTIONS = (tagbridge.Error, MemoryError, ValueError, TypeError, KeyError)


def small_files() -> Iterator[bytes]:
    """Files of a few pixels, of every kind that the package writes."""
    gray = np.arange(20 * 30, dtype=np.uint16).reshape(20, 30)
    colours = np.stack([gray, gray * 2, gray * 3], axis=2).astype(np.uint8)
    for mode, options in itertools.product(("w", "wb", "w8"), (
            {}, {"compression": "lzw", "predictor": True}, {"tile": (16, 16)},
            {"compression": "deflate", "rows_per_strip": 7}, {"compression": "packbits"})):
        stream = io.BytesIO()
        with tagbridge.open(stream, mode) as tif:
            tif.write(gray, description="numbers", **options)
            tif.write(colours, planar="separate", subdirectories=1, **options)
            tif.write(gray[::2, ::2])
            tif.write(gray > 100, compression="group4")
        yield stream.getvalue()
    for options in ({"compression": "jpeg"}, {"compression": "jpeg", "photometric": "ycbcr"}):
        stream = io.BytesIO()
        with contextlib.suppress(*OF_OPTIONS):
            tagbridge.imwrite(stream, colours, **options)
            yield stream.getvalue()


def found_files() -> Iterator[bytes]:
    """The examples, and the files of the folder that TAGBRIDGE_CORPUS names."""
    folders = [ROOT / "examples", Path(os.environ.get("TAGBRIDGE_CORPUS") or ROOT / "examples")]
    for path in sorted({path for folder in folders for path in folder.rglob("*.tif*")}):
        if path.stat().st_size <= LARGEST_FILE:
            yield path.read_bytes()


FILES = [*small_files(), *found_files()]


def entries_of(data: bytes) -> list[tuple[int, int]]:
    """Where the entries of the first directories lie, and their size."""
    order: Any = "big" if data[:2] == b"MM" else "little"
    big = data[2:4] in (b"\x2b\x00", b"\x00\x2b")
    word, counted, size = (8, 8, 20) if big else (4, 2, 12)
    entries: list[tuple[int, int]] = []
    link = word
    for _ in range(4):
        start = int.from_bytes(data[link:link + word], order)
        count = int.from_bytes(data[start:start + counted], order)
        if start == 0 or count > 100:
            break
        entries += [(start + counted + number * size, size) for number in range(count)]
        link = start + counted + count * size
    return entries


# What is done to a file: how, where, and with what number.
EDITS = st.lists(st.tuples(st.sampled_from(["bit", "cut", "field", "field", "field", "swap"]),
                           st.integers(0, 2**31), st.integers(0, 2**32 - 1)), max_size=4)
DAMAGE = st.tuples(st.integers(0, len(FILES) - 1), EDITS)

ODD = [0, 1, 2, 3, 5, 7, 8, 16, 255, 32773, 34676, 34712, 65535, 2**31 - 1, 2**31, 2**32 - 1]


def damaged(damage: tuple[int, list[tuple[str, int, int]]]) -> bytes:
    """The file of that number with the changes."""
    number, edits = damage
    data = bytearray(FILES[number])
    entries = entries_of(data) or [(0, 12)]
    for how, where, what in edits:
        at, size = entries[where % len(entries)]
        part = where // len(entries) % (size // 2) * 2
        if how == "bit":
            data[where % len(data)] ^= 1 << what % 8
        elif how == "cut":
            del data[8 + where % max(len(data) - 8, 1):]
        elif how == "swap":
            other = entries[what % len(entries)][0]
            data[at:at + size], data[other:other + size] = (data[other:other + size],
                                                            data[at:at + size])
        else:
            value = ODD[what % len(ODD)] if what % 2 else what
            data[at + part:at + part + 4] = value.to_bytes(4, "little")
        if len(data) < 16:
            break
    return bytes(data)
