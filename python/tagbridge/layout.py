"""How a directory stores its image, and where its blocks lie."""

from __future__ import annotations

import dataclasses
import functools
from collections.abc import Mapping
from typing import Any

import numpy as np

from ._checks import up
from .enumerations import Photometric, PlanarConfiguration, SampleFormat

_LOG = (Photometric.LOGL, Photometric.LOGLUV)
_KINDS = {SampleFormat.UINT: "u", SampleFormat.INT: "i", SampleFormat.IEEE_FP: "f",
          SampleFormat.VOID: "u"}
_DTYPES = {"u1", "u2", "u4", "i1", "i2", "i4", "f4", "f8"}
_COMPLEX = (SampleFormat.COMPLEX_INT, SampleFormat.COMPLEX_IEEE_FP)


def plain_metadata(fields: Mapping[str, Any]) -> dict[str, Any]:
    """Return the fields of "retrieveMetadata" as int, bool and a tuple of int (YCbCrSubsampling)."""
    plain: dict[str, Any] = {}
    for name, value in fields.items():
        if value.dtype == np.bool_:
            plain[name] = bool(value.item())
        elif name == "YCbCrSubsampling":
            plain[name] = tuple(int(factor) for factor in value.flat)
        else:
            plain[name] = int(value.item())
    return plain


def sample_dtype(bits: int, sample_format: int) -> np.dtype[Any] | None:
    """Return the dtype in which such samples are read, None when there is none."""
    if sample_format in _COMPLEX:
        return None
    if bits == 1:
        return np.dtype(np.bool_)
    code = f"{_KINDS.get(SampleFormat(sample_format))}{bits // 8}" if sample_format in _KINDS else ""
    return np.dtype(code) if bits % 8 == 0 and code in _DTYPES else None


@dataclasses.dataclass(frozen=True)
class Extent:
    """The part of the image that a block covers."""

    #: First row and the row after the last, clipped at the edge; the same of columns.
    top: int
    bottom: int
    left: int
    right: int
    #: The plane, None when the samples of a pixel lie together.
    plane: int | None

    @property
    def shape(self) -> tuple[int, int]:
        """Rows and columns."""
        return self.bottom - self.top, self.right - self.left


@dataclasses.dataclass(frozen=True)
class Layout:
    """How a directory stores its image: numbers of "retrieveMetadata" and what follows from them."""

    rows: int
    columns: int
    samples: int
    bits: int
    sample_format: int
    photometric: int
    compression: int
    planar: int
    tiled: bool
    #: Rows and columns of a strip or tile as stored.
    block_rows: int
    block_columns: int
    #: Number of strips or tiles, those of all planes.
    blocks: int
    subsampling: tuple[int, ...]

    @classmethod
    def of(cls, metadata: Mapping[str, Any], blocks: int) -> Layout:
        """Return the layout that `plain_metadata` describes."""
        tiled = metadata["isTiled"]
        return cls(
            rows=metadata["ImageLength"],
            columns=metadata["ImageWidth"],
            samples=metadata["SamplesPerPixel"],
            bits=metadata["BitsPerSample"],
            sample_format=metadata["SampleFormat"],
            photometric=metadata["PhotometricInterpretation"],
            compression=metadata["Compression"],
            planar=metadata["PlanarConfiguration"],
            tiled=tiled,
            block_rows=metadata["TileLength" if tiled else "RowsPerStrip"],
            block_columns=metadata["TileWidth" if tiled else "ImageWidth"],
            blocks=blocks,
            subsampling=metadata["YCbCrSubsampling"],
        )

    @property
    def unit(self) -> str:
        """What a block is: ``"Strip"`` or ``"Tile"``, as in the names of the operations."""
        return "Tile" if self.tiled else "Strip"

    @property
    def separate(self) -> bool:
        """Whether each sample of a pixel has a plane of its own."""
        return self.planar == PlanarConfiguration.SEPARATE

    @property
    def is_ycbcr(self) -> bool:
        """Whether the image is read as RGB through libtiff's RGBA conversion."""
        return self.photometric == Photometric.YCBCR

    @property
    def is_log(self) -> bool:
        """Whether the codec must be told which data to give."""
        return self.photometric in _LOG

    @functools.cached_property
    def dtype(self) -> np.dtype[Any] | None:
        """The dtype of a sample as stored, None when the module has none for it."""
        return sample_dtype(self.bits, self.sample_format)

    @property
    def planes(self) -> int:
        """In how many planes the blocks lie."""
        return max(1, self.samples) if self.separate else 1

    @functools.cached_property
    def across(self) -> int:
        """Blocks beside each other."""
        return up(self.columns, self.block_columns)

    @functools.cached_property
    def down(self) -> int:
        """Blocks below each other."""
        return up(self.rows, self.block_rows)

    @functools.cached_property
    def blocks_per_plane(self) -> int:
        """Blocks of a plane; more than across x down in a volume of tiles."""
        return self.blocks // self.planes

    @property
    def trailing(self) -> tuple[int, ...]:
        """What follows rows and columns in the shape of the image as stored."""
        return (self.samples,) if self.samples > 1 else ()

    def block_shape(self, extent: Extent, samples: int | None = None) -> tuple[int, ...]:
        """Return the shape of a block's array; ``samples`` instead of those stored."""
        count = self.samples if samples is None else samples
        apart = extent.plane is not None or count <= 1
        return extent.shape if apart else (*extent.shape, count)

    def extent(self, block: int) -> Extent:
        """Return what a block covers."""
        plane, place = divmod(block, max(1, self.blocks_per_plane))
        row, column = divmod(place % max(1, self.across * self.down), max(1, self.across))
        return self.extent_at(row, column, plane)

    def extent_at(self, row: int, column: int, plane: int) -> Extent:
        """Return what the block in that row and column of blocks covers."""
        top, left = row * self.block_rows, column * self.block_columns
        return Extent(top, min(top + self.block_rows, self.rows), left,
                      min(left + self.block_columns, self.columns),
                      plane if self.separate else None)

    def number(self, row: int, column: int, plane: int) -> int:
        """Return the number of the block in that row and column of blocks."""
        return plane * self.blocks_per_plane + row * self.across + column
