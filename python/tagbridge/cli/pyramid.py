"""The levels of a pyramid: each half the size of the one before, made while that is written."""

from __future__ import annotations

import tempfile
from types import TracebackType
from typing import Any

import numpy as np

from .._checks import up

Array = np.ndarray[Any, Any]
# The last level fits into a tile.
_SMALLEST = 256


def level_count(shape: tuple[int, ...]) -> int:
    """Return how many levels there are below an image."""
    longest, count = max(shape[:2]), 0
    while longest > _SMALLEST:
        longest, count = up(longest, 2), count + 1
    return count


class Level:
    """An image of half the size of another, whose rows come from top to bottom.

    Its rows are kept in a temporary file, so that memory holds a few of them only.
    """

    def __init__(self, shape: tuple[int, ...], dtype: np.dtype[Any], averaged: bool) -> None:
        """Begin the level below an image; not averaged means that every second pixel is taken."""
        self.shape = (up(shape[0], 2), up(shape[1], 2), *shape[2:])
        self.dtype = dtype
        self._averaged = averaged and dtype != np.bool_
        self._width = shape[1]
        self._rows_above = shape[0]
        self._taken = 0
        self._rest: Array | None = None  # a row that waits for the one below it
        self._file = tempfile.TemporaryFile()

    def __enter__(self) -> Level:
        return self

    def __exit__(self, kind: type[BaseException] | None, raised: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._file.close()

    def add(self, rows: Array) -> None:
        """Take the next rows of the image above."""
        if self._rest is not None:
            rows = np.concatenate([self._rest, rows])
            self._taken -= 1
        self._taken += rows.shape[0]
        odd = rows.shape[0] % 2 == 1
        last = self._taken == self._rows_above
        self._rest = rows[-1:].copy() if odd and not last else None
        if odd:
            rows = np.concatenate([rows, rows[-1:]]) if last else rows[:-1]
        if rows.shape[0]:
            self._file.write(np.ascontiguousarray(self._halved(rows)).tobytes())

    def _halved(self, rows: Array) -> Array:
        if self._width % 2:
            rows = np.concatenate([rows, rows[:, -1:]], axis=1)
        if not self._averaged:
            return rows[::2, ::2]
        wide = np.float64 if rows.dtype.kind == "f" else np.int64
        total = (rows[::2, ::2].astype(wide) + rows[1::2, ::2] + rows[::2, 1::2]
                 + rows[1::2, 1::2])
        mean = total / 4 if wide is np.float64 else (total + 2) // 4
        return np.asarray(mean.astype(self.dtype))

    def read(self, top: int, bottom: int) -> Array:
        """Return rows of the level."""
        shape = (bottom - top, *self.shape[1:])
        row_bytes = int(np.prod(self.shape[1:], dtype=np.int64)) * self.dtype.itemsize
        self._file.seek(top * row_bytes)
        data = self._file.read(shape[0] * row_bytes)
        return np.frombuffer(data, self.dtype).reshape(shape)
