"""Images on top of each other as one array, which is read when it is indexed."""

from __future__ import annotations

import bisect
import itertools
from collections.abc import Sequence
from typing import Any

import numpy as np

from .._checks import require_memory
from ..image_source import ImageSource
from ..indexing import Axis, Selection, parse_key

Array = np.ndarray[Any, Any]


class Span:
    """An array of images of equal layout: stacked along a new first axis, or rows below rows."""

    def __init__(self, images: Sequence[ImageSource], stacked: bool, strict: bool) -> None:
        self.images = tuple(images)
        self.stacked = stacked
        self.strict = strict
        #: Where each image begins along the first axis, and where the last one ends.
        self.starts = list(itertools.accumulate(
            (1 if stacked else image.shape[0] for image in self.images), initial=0))
        first = self.images[0]
        self.shape = (self.starts[-1], *(first.shape if stacked else first.shape[1:]))
        self.ndim = len(self.shape)
        self.dtype = first.dtype

    def __dask_tokenize__(self) -> tuple[Any, ...]:
        return self.images, self.stacked, self.strict

    def edges(self, axis: int) -> list[int]:
        """Return where blocks begin along an axis."""
        return self._edges(axis, [image.block for image in self.images])

    def chunks(self) -> tuple[tuple[int, ...], ...]:
        """Return the chunks in which it is best read: tiles, or bands of strips."""
        shapes = [image.chunk for image in self.images]
        ends = [[*self._edges(axis, shapes), self.shape[axis]] for axis in range(self.ndim)]
        return tuple(tuple(np.diff(each).tolist()) for each in ends)

    def _edges(self, axis: int, blocks: list[tuple[int, ...]]) -> list[int]:
        if self.stacked:
            return (list(range(len(self.images))) if axis == 0
                    else list(range(0, self.shape[axis], blocks[0][axis - 1])))
        if axis:
            return list(range(0, self.shape[axis], blocks[0][axis]))
        return [edge for start, stop, block in zip(self.starts, self.starts[1:], blocks)
                for edge in range(start, stop, block[0])]

    def between(self, first: int, stop: int) -> tuple[Span, int]:
        """Return the images that these elements of the first axis touch, and where they begin."""
        begin = bisect.bisect_right(self.starts, first) - 1
        end = bisect.bisect_left(self.starts, stop)
        return Span(self.images[begin:end], self.stacked, self.strict), self.starts[begin]

    def __getitem__(self, key: Any) -> Any:
        """Read what an index of integers and slices selects."""
        selection = parse_key(key, self.shape)
        array = self._stack(selection) if self.stacked else self._rows(selection)
        return selection.finish(array)

    def _stack(self, selection: Selection) -> Array:
        along, *within = selection.axes
        wanted = [self.images[along.start + number * along.step] for number in range(along.length)]
        inner = Selection(tuple(within))
        if len(wanted) == 1:
            return wanted[0].read(inner, strict=self.strict)[np.newaxis]
        require_memory((*inner.shape, len(wanted)), self.dtype)
        # Each image in one piece.
        array = np.moveaxis(
            np.empty((*inner.shape, len(wanted)), self.dtype, order="F"), -1, 0)
        for image, place in zip(wanted, array, strict=True):
            image.read(inner, out=place, strict=self.strict)
        return array

    def _rows(self, selection: Selection) -> Array:
        rows, *across = selection.axes
        if len(self.images) == 1:
            return self.images[0].read(selection, strict=self.strict)
        require_memory(selection.shape, self.dtype)
        array = np.empty(selection.shape, self.dtype, order="F")
        for image, start, stop in zip(self.images, self.starts, self.starts[1:]):
            part = rows.within(start, stop)
            length = part.stop - part.first
            if length:
                inner = Selection((Axis(part.source.start, length, rows.step), *across))
                image.read(inner, out=array[part.first:part.stop], strict=self.strict)
        return array
