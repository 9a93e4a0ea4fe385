"""Copies the images of a file into a new one of Deflate tiles, and compares what comes back."""

from __future__ import annotations

import dataclasses
import hashlib
import os
import subprocess
import tempfile
from collections.abc import Iterator

import numpy as np

import tagbridge
from tagbridge import call
from tagbridge.demo import images
from tagbridge.demo.images import Layout

TILE = 64
DEFLATE = 8
PALETTE = 3
SUBFILE_TYPE, COLOR_MAP, EXTRA_SAMPLES, SUBSAMPLING = 254, 320, 338, 530


@dataclasses.dataclass
class Result:
    """What came of a copy."""

    directories: int = 0
    size: int = 0
    equal: bool = True
    complaint: str = ""  # of tiffinfo's
    skipped: list[tuple[str, tagbridge.Error]] = dataclasses.field(default_factory=list)


def _up(number: int, divisor: int) -> int:
    return -(-number // divisor)


@dataclasses.dataclass(frozen=True)
class Part:
    """A block's place in the image: its plane and its first row and column."""

    plane: int
    row: int
    column: int


def parts(layout: Layout, width: int, length: int) -> Iterator[Part]:
    """Yields the places of the blocks of that size in the order of their numbers."""
    for plane in range(layout.samples if layout.separate else 1):
        for row in range(0, layout.length, length):
            for column in range(0, layout.width, width):
                yield Part(plane, row, column)


def _shrink(layout: Layout, position: int) -> tuple[int, int]:
    """Returns how many rows and columns of the image share one of an array of a block."""
    if not layout.chroma_apart or position == 0:
        return 1, 1
    horizontal, vertical = layout.subsampling
    return vertical, horizontal


def read_whole(file: np.ndarray, layout: Layout) -> list[np.ndarray]:
    """Returns the image: its planes when they are apart, Y, Cb and Cr, or one array."""
    whole: list[np.ndarray] = []
    places = parts(layout, layout.block_width, layout.block_length)
    for block, part in enumerate(places):
        for position, array in enumerate(images.read_block(file, layout, block)):
            down, across = _shrink(layout, position)
            index = part.plane + position
            if index == len(whole):
                shape = (_up(layout.length, down), _up(layout.width, across), *array.shape[2:])
                whole.append(np.zeros(shape, array.dtype, order="F"))
            row, column = part.row // down, part.column // across
            whole[index][row:row + array.shape[0], column:column + array.shape[1]] = array
    return whole


def _pieces(layout: Layout, whole: list[np.ndarray], part: Part) -> list[np.ndarray]:
    """Cuts a tile out of the arrays of the image."""
    arrays = whole if layout.chroma_apart else whole[part.plane:part.plane + 1]
    pieces = []
    for position, array in enumerate(arrays):
        down, across = _shrink(layout, position)
        row, column = part.row // down, part.column // across
        pieces.append(array[row:row + TILE // down, column:column + TILE // across])
    return pieces


def _tags(source: np.ndarray, layout: Layout) -> Iterator[tuple[int, object]]:
    """Yields the tags of the copy in the order in which the setters can check them."""
    yield 262, layout.photometric
    yield 258, layout.bits
    yield 277, layout.samples
    yield 339, layout.sample_format
    yield 284, layout.planar if layout.samples > 1 else 1
    yield 256, layout.width
    yield 257, layout.length
    yield 322, TILE
    yield 323, TILE
    yield 259, DEFLATE
    yield SUBFILE_TYPE, call("getField", source, SUBFILE_TYPE)
    if layout.chroma_apart:
        yield SUBSAMPLING, np.array([layout.subsampling], dtype=np.float64)
    if layout.extra_samples:
        yield EXTRA_SAMPLES, call("getField", source, EXTRA_SAMPLES)
    if layout.photometric == PALETTE:
        yield COLOR_MAP, call("getField", source, COLOR_MAP)


def write_whole(source: np.ndarray, target: np.ndarray, layout: Layout,
                whole: list[np.ndarray]) -> None:
    """Writes a directory with the image `whole` of the current directory of `source`."""
    for tag, value in _tags(source, layout):
        call("setField", target, tag, value, outputs=0)
    for tile, part in enumerate(parts(layout, TILE, TILE)):
        call("writeEncodedTile", target, tile, *_pieces(layout, whole, part), outputs=0)
    call("writeDirectory", target, outputs=0)


def fingerprint(whole: list[np.ndarray]) -> list[tuple[str, tuple[int, ...], bytes]]:
    """Returns what tells images apart, bit for bit, without holding on to their samples."""
    return [(array.dtype.name, array.shape, hashlib.sha256(array.tobytes("F")).digest())
            for array in whole]


def _write_copy(path: str, copy: str, result: Result) -> list[object]:
    """Writes the images of a file into another; returns their fingerprints."""
    written = []
    with images.opened(path, "r") as source, images.opened(copy, "w") as target:
        for visit in images.walk(source):
            try:
                if visit.error is not None:
                    raise visit.error
                layout = images.layout_of(source)
                whole = read_whole(source, layout)
                # A refused tag would leave the directory half set, so a trial goes first.
                with images.opened(copy + ".trial", "w") as trial:
                    write_whole(source, trial, layout, whole)
            except tagbridge.Error as error:
                result.skipped.append((visit.name, error))
                continue
            write_whole(source, target, layout, whole)
            written.append(fingerprint(whole))
    return written


def _read_copy(copy: str) -> list[object]:
    with images.opened(copy, "r") as target:
        return [fingerprint(read_whole(target, images.layout_of(target)))
                for _ in images.walk(target)]


def complaint(path: str) -> str:
    """Returns the first error that tiffinfo reports of a file, empty if it accepts it."""
    tiffinfo = subprocess.run(["tiffinfo", path], capture_output=True, text=True, check=False)
    errors = [line for line in tiffinfo.stderr.splitlines() if ": Warning, " not in line]
    if not errors and tiffinfo.returncode != 0:
        return f"nothing, but ends with status {tiffinfo.returncode}"
    return errors[0] if errors else ""


def copy_and_compare(path: str) -> Result:
    """Copies every image of the file whose kind can be written as Deflate tiles."""
    result = Result()
    with tempfile.TemporaryDirectory() as folder:
        copy = os.path.join(folder, "copy.tif")
        written = _write_copy(path, copy, result)
        if written:
            result.directories = len(written)
            result.size = os.path.getsize(copy)
            result.equal = written == _read_copy(copy)
            result.complaint = complaint(copy)
    return result
