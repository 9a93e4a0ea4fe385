"""Calls of every kind: each operation with what it takes and with what it refuses."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any, NamedTuple

import numpy as np
import tagbridge
from material import Files
from tagbridge import call

NO_FILE = np.uint64(0)
CLOSED_FILE = np.uint64(12345)
# How many inputs follow the file's identifier.
MORE_INPUTS = {
    "computeStrip": 1, "computeTile": 1, "currentDirectory": 0, "getField": 1, "isTiled": 0,
    "lastDirectory": 0, "numberOfStrips": 0, "numberOfTiles": 0, "readDirectory": 0,
    "readEncodedStrip": 1, "readEncodedTile": 1, "readRGBAStrip": 1, "readRGBATile": 2,
    "readRGBAImage": 0, "rewriteDirectory": 0, "retrieveMetadata": 0, "setDirectory": 1,
    "setField": 2, "setSubDirectory": 1, "writeDirectory": 0, "writeEncodedStrip": 2,
    "writeEncodedTile": 2}
EVERY_OPERATION = {*MORE_INPUTS, "open", "close", "getVersion"}


class Kind(NamedTuple):
    """Something that is done over and over."""

    name: str
    #: Returns the number of calls that it made.
    run: Callable[[], int]
    operations: frozenset[str]


class Calls:
    """Calls without a result, which are counted."""

    def __init__(self) -> None:
        self.count = 0

    def __call__(self, *inputs: Any, outputs: int = 0) -> Any:
        self.count += 1
        return call(*inputs, outputs=outputs)


class Session:
    """Files that stay open, and what is done with them."""

    def __init__(self, files: Files, name: str) -> None:
        self.files = files
        self.strips, self.tiles, self.ycbcr, self.damaged = (
            call("open", str(path), "r")
            for path in (files.strips, files.tiles, files.ycbcr, files.damaged))
        self.own = str(files.folder / f"written {name}.tif")
        self.steady = str(files.folder / f"rewritten {name}.tif")
        self.pixels = np.zeros((16, 16), np.uint8)
        self.written = call("open", self.steady, "w")
        _lay_out(Calls(), self.written, tiled=False)

    def close(self) -> None:
        """Close the files."""
        for file in (self.strips, self.tiles, self.ycbcr, self.damaged, self.written):
            call("close", file, outputs=0)

    def kinds(self) -> list[Kind]:
        """Return every kind of call that succeeds or fails."""
        return [*self._reads(), *self._writes(), *self._refusals()]

    def _reads(self) -> Iterator[Kind]:
        yield _good("getVersion")
        for file in (self.strips, self.tiles):
            for operation in ("currentDirectory", "lastDirectory", "isTiled", "retrieveMetadata"):
                yield _good(operation, file)
        yield _good("numberOfStrips", self.strips)
        yield _good("numberOfTiles", self.tiles)
        yield _good("computeStrip", self.strips, 20)
        yield _good("computeTile", self.tiles, np.array([[20.0, 20.0]]), 1)
        for tag in (256, 273, 278, 315, 330, 700, 34675):
            yield _good("getField", self.strips, tag)
        yield _good("readEncodedStrip", self.strips, 1)
        yield _good("readEncodedStrip", self.ycbcr, 1, outputs=3)
        yield _good("readEncodedStrip", self.damaged, 0)
        yield _good("readEncodedTile", self.tiles, np.int16(3))
        yield _good("readRGBAStrip", self.strips, 17)
        yield _good("readRGBATile", self.tiles, 17, 17)
        yield _good("readRGBAImage", self.ycbcr)
        yield Kind("open and close", self._reopen, frozenset({"open", "close"}))
        yield Kind("a walk through directories", self._walk, frozenset(
            {"setDirectory", "readDirectory", "setSubDirectory", "getField"}))

    def _reopen(self) -> int:
        call("close", call("open", str(self.files.strips), "r"), outputs=0)
        return 2

    def _walk(self) -> int:
        calls, file = Calls(), self.strips
        calls("setDirectory", file, 0)
        calls("readDirectory", file)
        calls("setDirectory", file, 0)
        calls("setSubDirectory", file, calls("getField", file, 330, outputs=1))
        calls("setDirectory", file, 0)
        return calls.count

    # --- Writing

    def _writes(self) -> Iterator[Kind]:
        yield _good("setField", self.written, 270, "over and over", outputs=0)
        yield _good("writeEncodedStrip", self.written, 1, self.pixels, outputs=0)
        yield Kind("a file of two directories", self._write_file, frozenset(
            {"open", "setField", "writeEncodedStrip", "writeEncodedTile", "writeDirectory",
             "close"}))
        yield Kind("a file that is edited", self._edit, frozenset(
            {"open", "setField", "writeEncodedStrip", "rewriteDirectory", "setDirectory", "close"}))

    def _write_file(self) -> int:
        calls = Calls()
        file = calls("open", self.own, "w", outputs=1)
        for tiled in (False, True):
            _lay_out(calls, file, tiled)
            calls("setField", file, 259, 5 if tiled else 1)
            for block in range(2):
                calls("writeEncodedTile" if tiled else "writeEncodedStrip", file, block,
                      self.pixels)
            calls("writeDirectory", file)
        calls("close", file)
        return calls.count

    def _edit(self) -> int:
        calls = Calls()
        made = self._write_file()
        file = calls("open", self.own, "r+", outputs=1)
        calls("setField", file, 270, "a description that was not there")
        calls("writeEncodedStrip", file, 0, self.pixels)
        calls("rewriteDirectory", file)
        calls("setDirectory", file, 0)
        calls("close", file)
        return made + calls.count

    # --- Refusals

    def refused_open(self) -> int:
        """Try to open what is no TIFF file, which takes a second: the module tries again."""
        return _bad("open", str(self.files.foreign), "r").run()

    def _refusals(self) -> Iterator[Kind]:
        for operation, count in MORE_INPUTS.items():
            inputs = (1,) * count
            yield _bad(operation, NO_FILE, *inputs)
            yield _bad(operation, CLOSED_FILE, *inputs)
            yield _bad(operation, *(1,) * 7)
        yield _bad("close", NO_FILE)
        yield _bad("open", 1, 2)
        yield _bad("getVersion", 1)
        yield _bad("no operation")
        strips, tiles, written = self.strips, self.tiles, self.written
        for operation, *inputs in (
                ("computeStrip", strips, 1, 1), ("computeTile", tiles, 1),
                ("getField", strips, 316), ("getField", strips, 60000),
                ("getField", strips, -5), ("readDirectory", tiles),
                ("readEncodedStrip", strips, 99), ("readEncodedStrip", tiles, 0),
                ("readEncodedTile", tiles, 9999), ("readEncodedTile", strips, 0),
                ("readRGBAStrip", strips, 9999), ("readRGBAStrip", self.damaged, 0),
                ("readRGBATile", tiles, 9999, 0), ("readRGBAImage", self.damaged),
                ("rewriteDirectory", strips), ("setDirectory", strips, 99),
                ("setSubDirectory", tiles, 8), ("setSubDirectory", strips, 8),
                ("setField", strips, 270, "read only"), ("setField", written, 258, 12),
                ("setField", written, 270, 5), ("setField", written, 60000, 5),
                ("writeEncodedStrip", written, 99, self.pixels),
                ("writeEncodedStrip", written, 0, self.pixels.astype(np.uint16)),
                ("writeEncodedTile", written, 0, self.pixels),
                ("writeEncodedStrip", written, 0, self.pixels, self.pixels)):
            yield _bad(operation, *inputs)
        for value in (None, 1j, {1: 2}, np.zeros(2, "M8[s]")):
            yield _bad("getField", strips, value)


def _lay_out(calls: Calls, file: Any, tiled: bool) -> None:
    """Set the tags of an image of two blocks of 16 rows."""
    blocks = [(322, 16), (323, 16)] if tiled else [(278, 16)]
    for tag, value in [(262, 1), (258, 8), (277, 1), (256, 16), (257, 32), (284, 1), *blocks]:
        calls("setField", file, tag, value)


def _shown(inputs: tuple[Any, ...]) -> str:
    return ", ".join(str(value) if np.ndim(value) == 0 else f"array of {np.shape(value)}"
                     for value in inputs if not isinstance(value, str))


def _good(operation: str, *inputs: Any, outputs: int = 1) -> Kind:
    def run() -> int:
        call(operation, *inputs, outputs=outputs)
        return 1

    return Kind(f"{operation}({_shown(inputs[1:])})", run, frozenset({operation}))


def _bad(operation: str, *inputs: Any) -> Kind:
    def run() -> int:
        try:
            call(operation, *inputs)
        except (tagbridge.Error, TypeError):
            return 1
        raise AssertionError(f"{operation} was not refused")

    return Kind(f"refused {operation}({_shown(inputs)})", run, frozenset({operation}))
