"""tagbridge diff: do two files hold the same?"""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import numpy as np

from .._messages import Error
from ..directory import Directory
from ..file import File
from .failures import Failure, about
from .info import below, code_name, shown
from .terminal import progress_bar

_LAYOUT = ("shape", "dtype", "compression", "photometric", "planar", "tiled", "block_shape")
# Where something lies in the file, and how large it is there, is no difference of the images.
_PLACES = {"StripOffsets", "StripByteCounts", "TileOffsets", "TileByteCounts", "SubIFD"}
_BAND_BYTES = 64 << 20


def run(options: Any) -> int:
    """Print the differences and return 1 if there are any."""
    with about(options.first), File(options.first) as a:
        with about(options.second), File(options.second) as b:
            differences = 0
            for line in _compare_files(options, a, b):
                print(line)
                differences += 1
    return int(differences > 0)


def _compare_files(options: Any, a: File, b: File) -> Iterator[str]:
    if len(a) != len(b):
        yield f"directories: {len(a)} and {len(b)}"
    for page, other in zip(a, b, strict=False):
        yield from _compare_trees(options, str(page.index), page, other, (set(), set()))


def _compare_trees(options: Any, label: str, a: Directory, b: Directory,
                   seen: tuple[set[int], set[int]], depth: int = 0) -> Iterator[str]:
    yield from _compare(options, f"directory {label}", a, b)
    levels, others = list(below(a, seen[0], depth)), list(below(b, seen[1], depth))
    if len(levels) != len(others):
        yield f"directory {label}: {len(levels)} and {len(others)} sub-directories"
    for number, (level, other) in enumerate(zip(levels, others, strict=False)):
        yield from _compare_trees(options, f"{label}.{number}", level, other, seen, depth + 1)


def _compare(options: Any, where: str, a: Directory, b: Directory) -> Iterator[str]:
    for name in _LAYOUT:
        mine, its = _value(a, name), _value(b, name)
        if mine != its:
            yield f"{where}: {name} {_words(mine)} and {_words(its)}"
    yield from _compare_tags(where, a, b)
    if _value(a, "shape") == _value(b, "shape") and _value(a, "dtype") == _value(b, "dtype"):
        yield from _compare_pixels(options, where, a, b)


def _value(page: Directory, name: str) -> Any:
    try:
        return getattr(page, name)
    except Error as error:
        return f"({error.identifier})"


def _words(value: Any) -> str:
    return " x ".join(map(str, value)) if isinstance(value, tuple) else str(code_name(value))


def _compare_tags(where: str, a: Directory, b: Directory) -> Iterator[str]:
    mine, its = list(a.tags), list(b.tags)
    for name in [*mine, *(name for name in its if name not in mine)]:
        if name in _PLACES:
            continue
        values = [_tag(page, name) for page in (a, b)]
        if not _same(*values):
            words = ["absent" if value is None else shown(value) for value in values]
            yield f"{where}: tag {name} {words[0]} and {words[1]}"


def _tag(page: Directory, name: str) -> Any:
    try:
        return page.tags.get(name)
    except Error as error:
        return f"({error.identifier})"


def _same(a: Any, b: Any) -> bool:
    if isinstance(a, np.ndarray) and isinstance(b, np.ndarray):
        return a.shape == b.shape and bool(np.array_equal(a, b, equal_nan=True))
    if isinstance(a, float) and isinstance(b, float):
        return a == b or (np.isnan(a) and np.isnan(b))
    return type(a) is type(b) and bool(a == b)


def _compare_pixels(options: Any, where: str, a: Directory, b: Directory) -> Iterator[str]:
    try:
        shape, nbytes = a.shape, a.nbytes
    except Error:
        return  # neither can be read, for the same reason
    rows = max(1, _BAND_BYTES // max(1, nbytes // max(1, shape[0])))
    unit = max(1, a.block_shape[0], b.block_shape[0])
    rows = max(unit, rows // unit * unit)
    first: tuple[int, ...] | None = None
    count = 0
    starts = range(0, shape[0], rows)
    for start in progress_bar(starts, len(starts), where):
        mine = _band(options.first, a, start, rows)
        its = _band(options.second, b, start, rows)
        unequal = mine != its
        if mine.dtype.kind == "f":
            unequal &= ~(np.isnan(mine) & np.isnan(its))
        if first is None and unequal.any():
            place = np.argwhere(unequal)[0]
            values = mine[tuple(place)], its[tuple(place)]
            first = (start + int(place[0]), *map(int, place[1:]))
        count += int(np.count_nonzero(unequal))
    if first is not None:
        names = ("row", "column", "sample")
        place_words = ", ".join(f"{name} {at}" for name, at in zip(names, first, strict=False))
        yield (f"{where}: pixels differ first at {place_words}: {values[0]} and {values[1]}; "
               f"{count} of {a.size} samples differ")


def _band(file: str, page: Directory, start: int, rows: int) -> np.ndarray[Any, Any]:
    try:
        return np.asarray(page[start:start + rows])
    except Error as error:
        raise Failure.of(file, error) from error
