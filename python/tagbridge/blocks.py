"""Strips and tiles of an image."""

from __future__ import annotations

import operator
from collections.abc import Sequence
from io import UnsupportedOperation
from typing import TYPE_CHECKING, Any, NamedTuple, overload

import numpy as np

from ._messages import Warning
from .decoding import Decoder, decoder_for
from .enumerations import Compression
from .errors import failure_of, issue
from .layout import Extent, Layout

if TYPE_CHECKING:
    from .directory import Directory

Array = np.ndarray[Any, Any]
JPEG_COLOR_MODE = 65538
JPEG_COLOR_MODE_RGB = 1


class Decoded(NamedTuple):
    """A block's part of the image, zeros when it could not be decoded, and what libtiff said."""

    array: Array
    #: Of a block that could not be decoded, only that.
    said: list[Warning]
    failed: bool


class Block:
    """A strip or tile of a directory."""

    def __init__(self, directory: Directory, index: int, extent: Extent) -> None:
        self._directory = directory
        self._extent = extent
        #: The number, counted from 0, plane after plane.
        self.index = index

    @property
    def rows(self) -> slice:
        """The rows of the image that it covers, clipped at the edge."""
        return slice(self._extent.top, self._extent.bottom)

    @property
    def columns(self) -> slice:
        """The columns of the image that it covers, clipped at the edge."""
        return slice(self._extent.left, self._extent.right)

    @property
    def plane(self) -> int | None:
        """The sample whose plane it belongs to, None when samples are interleaved."""
        return self._extent.plane

    def read(self) -> Array:
        """Return its part of the image: rows x columns, or rows x columns x samples.

        A block that cannot be decoded is a warning and holds zeros.

        :raises Error: the module refuses the image
        """
        decode = decoder_for(self._directory, raw=False)
        decoded = decode_block(self._directory, decode, self.index, self._extent)
        issue(decoded.said)
        return np.asfortranarray(decoded.array)

    def write(self, array: Any) -> None:
        """Store its part of the image; the file must be open in mode ``"r+"``.

        :param array: as `read` returns it; rows and columns that the block has beyond the edge of
            the image are filled with the last ones of the array
        :raises ValueError: another shape
        :raises TypeError: another dtype
        :raises Error: the module refuses it
        """
        directory = self._directory
        directory._require_editable("blocks")
        layout = directory._layout
        if directory._place.offsets and layout.compression != Compression.NONE:
            raise UnsupportedOperation(
                "compressed blocks of a sub-directory cannot be changed in place")
        if layout.is_ycbcr and layout.compression != Compression.JPEG:
            raise UnsupportedOperation("blocks of YCbCr can be changed with JPEG compression only")
        given = self._checked(np.asarray(array), layout)
        with directory._current() as handle:
            directory._prepare(handle)
            if layout.is_ycbcr:
                handle.call("setField", JPEG_COLOR_MODE, JPEG_COLOR_MODE_RGB, outputs=0)
            handle.call(f"writeEncoded{layout.unit}", self.index, given, outputs=0)
            handle.dirty = not directory._place.offsets
            if layout.is_ycbcr:
                handle.flush()  # libtiff cannot convert a block until its directory is loaded anew

    def _checked(self, array: Array, layout: Layout) -> Array:
        shape = layout.block_shape(self._extent, 3 if layout.is_ycbcr else None)
        if array.shape != shape:
            raise ValueError(f"block {self.index} has the shape {shape}, not {array.shape}")
        dtype = self._directory.dtype
        if array.dtype.newbyteorder("=") != dtype:
            raise TypeError(f"block {self.index} holds {dtype}, not {array.dtype}")
        return padded(array, layout.block_rows, layout.block_columns)

    def __repr__(self) -> str:
        extent = self._extent
        plane = "" if extent.plane is None else f", plane {extent.plane}"
        return (f"<tagbridge.Block {self.index}: rows {extent.top}:{extent.bottom}, "
                f"columns {extent.left}:{extent.right}{plane}>")


def decode_block(directory: Directory, decode: Decoder, number: int, extent: Extent) -> Decoded:
    """Return a block's part of the image with what libtiff said, which nobody has been told yet.

    Raises Error when the module refuses the image.
    """
    directory._start_reading()
    with directory._current() as handle:
        directory._prepare(handle)
        array, said = decode(handle, number, extent)
        failure = failure_of(said) if said else None
        if failure is not None:
            handle.require_decodable(directory._place)
    return Decoded(array, said if failure is None else [failure], failure is not None)


def padded(array: Array, rows: int, columns: int) -> Array:
    """Return the array enlarged to a block by repeating its last row and column."""
    below, beside = rows - array.shape[0], columns - array.shape[1]
    if below <= 0 and beside <= 0:
        return array
    widths = [(0, max(0, below)), (0, max(0, beside))] + [(0, 0)] * (array.ndim - 2)
    return np.pad(array, widths, mode="edge")


class Blocks(Sequence[Block]):
    """The strips or tiles of a directory in file order, plane after plane."""

    def __init__(self, directory: Directory, layout: Layout) -> None:
        self._directory = directory
        self._layout = layout

    def __len__(self) -> int:
        return self._layout.blocks

    @overload
    def __getitem__(self, index: int) -> Block: ...
    @overload
    def __getitem__(self, index: slice) -> list[Block]: ...

    def __getitem__(self, index: int | slice) -> Block | list[Block]:
        """Return a block, or a list of blocks for a slice. Raises IndexError when absent."""
        if isinstance(index, slice):
            return [self[number] for number in range(*index.indices(len(self)))]
        number = operator.index(index)
        if not -len(self) <= number < len(self):
            raise IndexError(f"there is no block {number}: there are {len(self)}")
        number %= len(self)
        return Block(self._directory, number, self._layout.extent(number))

    def __repr__(self) -> str:
        return f"<{len(self)} {self._layout.unit.lower()}s of {self._directory!r}>"
