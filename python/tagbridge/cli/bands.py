"""Rows of an image, read as they are needed."""

from __future__ import annotations

from typing import Any, Protocol

import numpy as np

from ..directory import Directory
from ..indexing import Axis, Selection
from ..reading import read_image

Array = np.ndarray[Any, Any]


class Rows(Protocol):
    """An image of which rows are asked for from top to bottom."""

    shape: tuple[int, ...]
    dtype: np.dtype[Any]

    def read(self, top: int, bottom: int) -> Array:
        """Return these rows with all their columns and samples."""


class Bands:
    """Rows of what is selected of a directory.

    A row of blocks is decoded once and kept until the next is needed, however few of its rows are
    asked for at a time. Raises DecodeError for a block that cannot be decoded.
    """

    def __init__(self, page: Directory, selection: Selection) -> None:
        self._page = page
        self._axes = selection.axes
        self._height = max(1, page.block_shape[0])
        self._kept: tuple[int, Array] | None = None
        self.shape = selection.shape
        self.dtype = page.dtype

    def read(self, top: int, bottom: int) -> Array:
        """Return these rows with all their columns and samples."""
        first = self._axes[0].start
        parts = []
        at = top
        while at < bottom:
            number = (first + at) // self._height
            start = max(0, number * self._height - first)
            band = self._band(number, start)
            end = min(bottom, start + band.shape[0])
            parts.append(band[at - start:end - start])
            at = end
        return parts[0] if len(parts) == 1 else np.concatenate(parts)

    def _band(self, number: int, start: int) -> Array:
        if self._kept is None or self._kept[0] != number:
            self._kept = None  # before the next is read
            rows = self._axes[0]
            end = min(rows.length, (number + 1) * self._height - rows.start)
            part = Selection((Axis(rows.start + start, end - start, 1), *self._axes[1:]))
            self._kept = number, read_image(self._page, part, strict=True, threads=1)
        return self._kept[1]
