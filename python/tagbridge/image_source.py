"""Images described so that any process can read them, wherever they were first looked at."""

from __future__ import annotations

import dataclasses
import os
from typing import Any

import numpy as np

from .blocks import Block
from .directory import Directory
from .errors import decode_error
from .handle import Place
from .indexing import Selection
from .open_files import OPEN_FILES
from .reading import read_image
from .workers import tell

Array = np.ndarray[Any, Any]

#: Strips are read in bands of about so many bytes: few of them are worth a task each.
BAND_BYTES = 4 << 20


@dataclasses.dataclass(frozen=True)
class ImageSource:
    """An image of a file: where it is and what it was like when it was described."""

    #: Absolute.
    path: str
    place: Place
    #: Of the image as `Directory.read` returns it.
    shape: tuple[int, ...]
    dtype: np.dtype[Any]
    #: Rows, columns and, for an image of several samples, samples that are decoded together.
    block: tuple[int, ...]
    #: Whether a block is a tile.
    tiled: bool

    @classmethod
    def of(cls, directory: Directory) -> ImageSource:
        """Describe a directory of a file that is open at a path.

        Raises Error when the module cannot read the image.
        """
        return cls(os.path.abspath(directory.file.name), directory._place, *_description(directory))

    @property
    def chunk(self) -> tuple[int, ...]:
        """The shape in which it is best read: a tile, or a band of strips."""
        if self.tiled:
            return tuple(map(min, self.block, self.shape))
        row_bytes = max(1, self.dtype.itemsize * self.shape[1] * int(np.prod(self.block[2:])))
        strips = max(1, BAND_BYTES // (row_bytes * self.block[0]))
        return (min(strips * self.block[0], self.shape[0]), *self.block[1:])

    def read(self, selection: Selection, out: Array | None = None, strict: bool = False) -> Array:
        """Return what is selected, in ascending order.

        A block that cannot be decoded is a warning and holds zeros, or raises DecodeError when
        `strict`. Raises ValueError for a file that is not what was described.
        """
        with OPEN_FILES.borrowed(self.path, self.place) as directory:
            self._require_same(directory)
            return read_image(directory, selection, out=out, strict=strict, threads=1, tell=tell)

    def read_block(self, number: int, strict: bool = False) -> Array:
        """Return the part of a block that belongs to the image; as `read`."""
        with OPEN_FILES.borrowed(self.path, self.place) as directory:
            self._require_same(directory)
            decoded = Block(directory, number, directory._layout.extent(number)).decode()
            if strict and decoded.failed:
                raise decode_error([(number, decoded.said[0])])
        tell(decoded.said)
        return decoded.array

    def _require_same(self, directory: Directory) -> None:
        found = _description(directory)
        if found != (self.shape, self.dtype, self.block, self.tiled):
            raise ValueError(
                f"{self.path} is not what it was: an image of {found[0]} {found[1]} in blocks of "
                f"{found[2]}, instead of {self.shape} {self.dtype} in blocks of {self.block}")


def _description(directory: Directory
                 ) -> tuple[tuple[int, ...], np.dtype[Any], tuple[int, ...], bool]:
    layout = directory._layout
    shape = directory.shape
    # A single strip may say that it has more rows than the image.
    rows = layout.block_rows if layout.tiled else min(layout.block_rows, layout.rows)
    apart = layout.separate and not layout.is_ycbcr
    samples = (1,) if apart else shape[2:]
    block = (max(1, rows), max(1, layout.block_columns), *samples[:len(shape) - 2])
    return shape, directory.dtype, block, layout.tiled
