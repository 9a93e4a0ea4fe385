"""Images described so that any process can read them, wherever they were first looked at."""

from __future__ import annotations

import dataclasses
import functools
import math
import os
from typing import Any

import numpy as np

from ._checks import up
from .directory import Directory
from .errors import decode_error
from .handle import Place
from .indexing import Selection
from .open_files import OPEN_FILES, Description, OpenImage
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
    description: Description

    @classmethod
    def of(cls, directory: Directory) -> ImageSource:
        """Describe a directory of a file that is open at a path.

        Raises Error when the module cannot read the image.
        """
        return cls(os.path.abspath(directory.file.name), directory._place,
                   Description.of(directory))

    @property
    def shape(self) -> tuple[int, ...]:
        """Of the image as `Directory.read` returns it."""
        return self.description.shape

    @property
    def dtype(self) -> np.dtype[Any]:
        """Of the image as `Directory.read` returns it."""
        return self.description.dtype

    @property
    def block(self) -> tuple[int, ...]:
        """Rows, columns and, for an image of several samples, samples that are decoded together."""
        return self.description.block

    @functools.cached_property
    def chunk(self) -> tuple[int, ...]:
        """The shape in which it is best read: a tile, or a band of strips."""
        shape, dtype, block, tiled = self.description
        if tiled:
            return tuple(min(pair) for pair in zip(block, shape, strict=True))
        strip_bytes = max(1, dtype.itemsize * math.prod(block))
        strips = max(1, BAND_BYTES // strip_bytes)
        return (min(strips * block[0], shape[0]), *block[1:])

    @functools.cached_property
    def grid(self) -> tuple[int, ...]:
        """The number of chunks along each axis."""
        return tuple(map(up, self.shape, self.chunk))

    @functools.cached_property
    def chunks_are_blocks(self) -> bool:
        """Whether a chunk is a tile or a single strip."""
        return all(chunk == min(block, length) for chunk, block, length in zip(
            self.chunk, self.block, self.shape, strict=True))

    def read(self, selection: Selection, out: Array | None = None, strict: bool = False) -> Array:
        """Return what is selected, in ascending order.

        A block that cannot be decoded is a warning and holds zeros, or raises DecodeError when
        `strict`. Raises ValueError for a file that is not what was described.
        """
        with OPEN_FILES.borrowed(self.path, self.place) as image:
            self._require_same(image)
            return read_image(image.directory, selection, out=out, strict=strict, threads=1,
                              tell=tell)

    def read_block(self, row: int, column: int, plane: int, strict: bool = False) -> Array:
        """Return the part of a block that belongs to the image; failures as in `read`.

        :param row: of blocks, as `column` and `plane`
        """
        with OPEN_FILES.borrowed(self.path, self.place) as image:
            self._require_same(image)
            number, decoded = image.block(row, column, plane)
            if strict and decoded.failed:
                raise decode_error([(number, decoded.said[0])])
        if decoded.said:
            tell(decoded.said)
        return decoded.array

    def _require_same(self, image: OpenImage) -> None:
        found, known = image.description, self.description
        if found != known:
            raise ValueError(
                f"{self.path} is not what it was: an image of {found.shape} {found.dtype} in "
                f"blocks of {found.block}, instead of {known.shape} {known.dtype} in blocks of "
                f"{known.block}")
