"""Rows of an image that come in pieces of any height, cut into the blocks of a file."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Sequence
from typing import Any

import numpy as np

from ..layout import Layout
from ..plan import Options, make_plan

Array = np.ndarray[Any, Any]

#: Options of `File.write` that say what is known here, or what makes no sense of a stream.
_REFUSED = ("shape", "dtype", "subdirectories", "optional_tags")


def layout_of(shape: tuple[int, ...], dtype: np.dtype[Any], options: dict[str, Any]) -> Layout:
    """Return the layout that a file with these options has.

    Raises what `File.write` would raise of the options.
    """
    for name in _REFUSED:
        if name in options:
            raise TypeError(f"{name} cannot be given here")
    return make_plan(Options(**options), shape, dtype).layout


def blocks_of_plane(bands: Iterable[Array], layout: Layout) -> Iterator[Array]:
    """Yield the blocks of a plane in file order, those at the edge clipped.

    Of the bands, which are whole rows from top to bottom, one is held at a time, and what is left
    of others for the next row of blocks.
    """
    left: Array | None = None
    for band in bands:
        at = 0
        if left is not None:
            at = layout.block_rows - len(left)
            row: Array = np.concatenate([left, band[:at]])
            if len(row) < layout.block_rows:
                left = row
                continue
            yield from _cut(row, layout)
        end = len(band) - (len(band) - at) % layout.block_rows
        yield from _cut(band[at:end], layout)
        left = band[end:].copy() if end < len(band) else None
    if left is not None:
        yield from _cut(left, layout)


def _cut(rows: Array, layout: Layout) -> Iterator[Array]:
    for top in range(0, len(rows), layout.block_rows):
        for first in range(0, layout.columns, layout.block_columns):
            yield rows[top:top + layout.block_rows, first:first + layout.block_columns]


def joined(pieces: Sequence[Any]) -> Array:
    """Return a band of pieces beside each other, each an array or a list of arrays of samples."""
    columns = [_concatenated(piece, 2) if isinstance(piece, list) else piece for piece in pieces]
    return _concatenated(columns, 1)


def _concatenated(arrays: list[Array], axis: int) -> Array:
    array: Array = arrays[0] if len(arrays) == 1 else np.concatenate(arrays, axis=axis)
    return array
