"""TIFF files put together by hand, which may say what no writer would."""

from __future__ import annotations

import struct
from collections.abc import Mapping, Sequence
from typing import NamedTuple

BYTE, SHORT, LONG, UNDEFINED, LONG8 = 1, 3, 4, 7, 16
_CODES = {BYTE: "B", SHORT: "H", LONG: "I", UNDEFINED: "B", LONG8: "Q"}
_MASKS = {BYTE: 0xFF, SHORT: 0xFFFF, LONG: 0xFFFFFFFF, UNDEFINED: 0xFF, LONG8: 2**64 - 1}


class Entry(NamedTuple):
    """A tag: its type and values, or where they are said to lie and how many of them."""

    kind: int
    values: Sequence[int] = ()
    count: int | None = None
    offset: int | None = None


def long(*values: int) -> Entry:
    """A tag of whole numbers of 32 bits."""
    return Entry(LONG, values)


def short(*values: int) -> Entry:
    """A tag of whole numbers of 16 bits."""
    return Entry(SHORT, values)


def elsewhere(kind: int, count: int, offset: int = 8) -> Entry:
    """A tag of so many values, which are said to lie there."""
    return Entry(kind, (), count, offset)


def gray(rows: int, columns: int, size: int, **more: Entry) -> dict[int, Entry]:
    """The tags of an image of 8 bits in one strip, whose `size` bytes begin the file's data.

    `more` are further tags by number, as t259.
    """
    tags = {256: long(columns), 257: long(rows), 258: short(8), 259: short(1), 262: short(1),
            273: long(16), 277: short(1), 278: long(rows), 279: long(size)}
    tags.update((int(name[1:]), entry) for name, entry in more.items())
    return tags


def tiff(tags: Mapping[int, Entry], data: bytes = bytes(16), *, big: bool = False,
         entries: int | None = None) -> bytes:
    """A file of one directory; `data` begins at byte 16. `entries` is what it says to have."""
    word, inline = ("Q", 8) if big else ("I", 4)
    body = bytearray(data + bytes(-len(data) % 8))
    rows = b""
    for number, (kind, values, count, offset) in sorted(tags.items()):
        packed = b"".join(struct.pack("<" + _CODES[kind], value & _MASKS[kind]) for value in values)
        if offset is None and len(packed) > inline:
            offset = 16 + len(body)
            body += packed + bytes(-len(packed) % 8)
        place = packed.ljust(inline, b"\0") if offset is None else struct.pack("<" + word, offset)
        count = len(values) if count is None else count
        rows += struct.pack("<HH" + word, number, kind, count) + place
    start = 16 + len(body)
    header = struct.pack("<2sHHHQ", b"II", 43, 8, 0, start) if big else (
        struct.pack("<2sHI", b"II", 42, start) + bytes(8))
    number_of = struct.pack("<Q" if big else "<H", len(tags) if entries is None else entries)
    return header + bytes(body) + number_of + rows + bytes(inline)
