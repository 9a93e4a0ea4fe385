"""What an index like ``page[10:20, ::2, 0]`` selects."""

from __future__ import annotations

import operator
from collections.abc import Sequence
from typing import Any, NamedTuple

import numpy as np

Index = Any


class Part(NamedTuple):
    """Elements of the result, first and after the last, and where in a block they come from."""

    first: int
    stop: int
    source: slice


class Axis(NamedTuple):
    """What is selected of one dimension: ascending positions, a step apart."""

    start: int
    length: int
    step: int
    #: Whether the result has them in descending order.
    reversed: bool = False
    #: Whether an integer selected it, so that the result lacks the dimension.
    dropped: bool = False

    def blocks(self, size: int) -> Sequence[int]:
        """Return which of the blocks of that size are touched, ascending."""
        if self.length == 0 or size == 0:
            return ()
        last = self.start + (self.length - 1) * self.step
        if self.step <= size:
            return range(self.start // size, last // size + 1)
        return [position // size for position in range(self.start, last + 1, self.step)]

    def within(self, first: int, stop: int) -> Part:
        """Return what is selected of the positions from `first` up to `stop`."""
        begin = max(0, -(-(first - self.start) // self.step))
        end = max(begin, min(self.length, -(-(stop - self.start) // self.step)))
        offset = self.start + begin * self.step - first
        source = slice(offset, offset + max(0, (end - begin - 1) * self.step) + 1, self.step)
        return Part(begin, end, source if end > begin else slice(0, 0))


class Selection(NamedTuple):
    """What is selected of rows, columns and, where there are several, samples."""

    axes: tuple[Axis, ...]

    @classmethod
    def whole(cls, shape: tuple[int, ...]) -> Selection:
        """Return the selection of everything."""
        return cls(tuple(Axis(0, length, 1) for length in shape))

    @property
    def shape(self) -> tuple[int, ...]:
        """The shape of what is selected, dimensions that an integer drops included."""
        return tuple(axis.length for axis in self.axes)

    def finish(self, array: np.ndarray[Any, Any]) -> Any:
        """Bring elements that were read in ascending order into the order of the index."""
        order: tuple[Any, ...] = tuple(
            0 if axis.dropped else slice(None, None, -1) if axis.reversed else slice(None)
            for axis in self.axes
        )
        result = array[order]
        if any(axis.reversed for axis in self.axes) and isinstance(result, np.ndarray):
            return np.asfortranarray(result)
        return result


def _axis(index: Index, length: int, number: int) -> Axis:
    if isinstance(index, slice):
        chosen = range(*index.indices(length))
        if chosen.step < 0:
            return Axis(chosen[-1] if chosen else 0, len(chosen), -chosen.step, reversed=True)
        return Axis(chosen.start, len(chosen), chosen.step)
    if isinstance(index, (bool, np.bool_)):
        raise IndexError("an index is an integer, a slice or an ellipsis, not a truth value")
    try:
        position = operator.index(index)
    except TypeError:
        raise IndexError(
            f"an index is an integer, a slice or an ellipsis, not {type(index).__name__}"
        ) from None
    if not -length <= position < length:
        raise IndexError(f"index {position} is beyond axis {number}, which has {length} elements")
    return Axis(position % length, 1, 1, dropped=True)


def parse_key(key: Index, shape: tuple[int, ...]) -> Selection:
    """Return what a key selects of an array of that shape.

    Raises IndexError for an integer beyond the edge, too many indices, and anything that is not an
    integer, a slice or one ellipsis.
    """
    keys = list(key) if isinstance(key, tuple) else [key]
    ellipses = [place for place, each in enumerate(keys) if each is Ellipsis]
    if len(ellipses) > 1:
        raise IndexError("an index can have one ellipsis")
    missing = len(shape) - (len(keys) - len(ellipses))
    if missing < 0:
        raise IndexError(f"{len(keys) - len(ellipses)} indices for an image of {len(shape)} axes")
    place = ellipses[0] if ellipses else len(keys)
    keys[place:place + len(ellipses)] = [slice(None)] * missing
    return Selection(tuple(
        _axis(each, length, number)
        for number, (each, length) in enumerate(zip(keys, shape, strict=True))
    ))
