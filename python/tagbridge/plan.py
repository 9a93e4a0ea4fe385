"""What a directory to be written is like: options of `write` and what follows from them."""

from __future__ import annotations

import dataclasses
from collections.abc import Mapping, Sequence
from typing import Any

import numpy as np

from ._checks import up
from .enumerations import (
    Compression,
    ExtraSample,
    Photometric,
    PlanarConfiguration,
    Predictor,
    SampleFormat,
    coded,
)
from .layout import Layout

STRIP_BYTES = 256 << 10
_DEFLATE = (Compression.ADOBE_DEFLATE, Compression.DEFLATE)
_FORMATS = {"b": SampleFormat.UINT, "u": SampleFormat.UINT, "i": SampleFormat.INT,
            "f": SampleFormat.IEEE_FP}
_DTYPES = ("bool", "uint8", "uint16", "uint32", "int8", "int16", "int32", "float32", "float64")
_INSTEAD = {"int64": "int32 or float64", "uint64": "uint32 or float64", "float16": "float32",
            "longdouble": "float64", "float128": "float64", "complex64": "two float32 samples",
            "complex128": "two float64 samples"}
# Samples that a photometric interpretation has; what is beyond them are extra samples.
_COLOURS = {Photometric.MIN_IS_WHITE: 1, Photometric.MIN_IS_BLACK: 1, Photometric.RGB: 3,
            Photometric.PALETTE: 1, Photometric.MASK: 1, Photometric.SEPARATED: 4,
            Photometric.YCBCR: 3, Photometric.CIELAB: 3, Photometric.ICCLAB: 3,
            Photometric.ITULAB: 3, Photometric.LOGL: 1, Photometric.LOGLUV: 3}
_JPEG_UNIT = 8
_TILE_UNIT = 16


@dataclasses.dataclass(frozen=True)
class Options:
    """The keywords of `File.write`, where they are described."""

    photometric: Any = None
    compression: Any = None
    predictor: Any = None
    tile: Sequence[int] | None = None
    rows_per_strip: int | None = None
    planar: Any = "contig"
    extra_samples: Any = None
    colormap: Any = None
    resolution: Any = None
    resolution_unit: Any = None
    description: str | None = None
    level: int | None = None
    subdirectories: int = 0
    tags: Mapping[Any, Any] | None = None
    shape: Sequence[int] | None = None
    dtype: Any = None
    progress: Any = None
    #: Further tags, of which those that the module refuses are left out.
    optional_tags: Mapping[Any, Any] | None = None


@dataclasses.dataclass(frozen=True)
class Plan:
    """A directory as it is going to be."""

    layout: Layout
    dtype: np.dtype[Any]
    extra_samples: list[int]
    predictor: int | None
    #: The tag of the codec's quality and its value.
    level: tuple[int, int] | None


def writable_dtype(dtype: Any) -> np.dtype[Any]:
    """Return a dtype in native byte order. Raises TypeError for one that cannot be written."""
    native = np.dtype(dtype).newbyteorder("=")
    if native.name not in _DTYPES:
        instead = _INSTEAD.get(native.name, "one of " + ", ".join(_DTYPES))
        raise TypeError(f"samples of {native} cannot be written: convert them to {instead}")
    return native


def make_plan(options: Options, shape: tuple[int, ...], dtype: Any) -> Plan:
    """Return what a directory with an image of that shape and dtype is going to be.

    Raises TypeError for a dtype and ValueError for a shape or an option that cannot be; the
    module has its own checks of what the options come to.
    """
    native = writable_dtype(dtype)
    if len(shape) not in (2, 3) or min(shape) < 1:
        raise ValueError(f"an image is rows x columns or rows x columns x samples, not {shape}")
    samples = shape[2] if len(shape) == 3 else 1
    photometric = _photometric(options, samples)
    compression = Compression.NONE if options.compression is None else coded(
        Compression, options.compression)
    planar = coded(PlanarConfiguration, options.planar)
    layout = Layout(
        rows=shape[0], columns=shape[1], samples=samples,
        bits=1 if native.kind == "b" else native.itemsize * 8,
        sample_format=_FORMATS[native.kind], photometric=photometric, compression=compression,
        planar=planar if samples > 1 else PlanarConfiguration.CONTIG,
        tiled=False, block_rows=0, block_columns=shape[1], blocks=0,
        subsampling=_subsampling(options, photometric, compression))
    layout = _with_blocks(layout, options)
    return Plan(layout, native, _extra_samples(options, photometric, samples),
                _predictor(options.predictor, native), _level(options.level, compression))


def _photometric(options: Options, samples: int) -> int:
    if options.photometric is not None:
        return coded(Photometric, options.photometric)
    if options.colormap is not None:
        return Photometric.PALETTE
    return Photometric.RGB if samples in (3, 4) else Photometric.MIN_IS_BLACK


def _extra_samples(options: Options, photometric: int, samples: int) -> list[int]:
    given = options.extra_samples
    if given is not None:
        many = isinstance(given, (list, tuple, np.ndarray))
        return [coded(ExtraSample, each) for each in (given if many else [given])]
    count = samples - _COLOURS.get(Photometric(photometric), samples) if (
        photometric in _COLOURS) else 0
    extra = [int(ExtraSample.UNSPECIFIED)] * count
    if extra and samples in (2, 4):
        extra[0] = ExtraSample.UNASSOCIATED_ALPHA
    return extra


def _predictor(given: Any, dtype: np.dtype[Any]) -> int | None:
    if given is None or given is False:
        return None
    if given is not True:
        return coded(Predictor, given)
    if dtype.kind == "b":
        return Predictor.NONE
    return Predictor.FLOATING_POINT if dtype.kind == "f" else Predictor.HORIZONTAL


def _level(given: int | None, compression: int) -> tuple[int, int] | None:
    if given is None:
        return None
    if compression == Compression.JPEG:
        return 65537, given
    if compression in _DEFLATE:
        return 65557, given
    raise ValueError("level is the quality of JPEG or Deflate; other compressions have none")


def _subsampling(options: Options, photometric: int, compression: int) -> tuple[int, ...]:
    if photometric != Photometric.YCBCR:
        return ()
    tags = options.tags or {}
    given = tags.get("YCbCrSubsampling", tags.get(530))
    if given is not None:
        return tuple(int(factor) for factor in given)
    return (2, 2) if compression == Compression.JPEG else (1, 1)


def _with_blocks(layout: Layout, options: Options) -> Layout:
    rows_per_strip, tile = options.rows_per_strip, options.tile
    if tile is not None and rows_per_strip is not None:
        raise ValueError("an image is stored in tiles or in strips: give tile or rows_per_strip")
    if rows_per_strip is not None and rows_per_strip < 1:
        raise ValueError(f"rows_per_strip must be positive, not {rows_per_strip}")
    if tile is None and rows_per_strip is None:
        rows_per_strip = default_rows_per_strip(layout)
        if rows_per_strip == 0:  # too few rows for JPEG strips
            tile = (_TILE_UNIT, up(layout.columns, _TILE_UNIT) * _TILE_UNIT)
    if tile is not None:
        if len(tile) != 2 or min(tile) < 1:
            raise ValueError(f"tile is (rows, columns), not {tile!r}")
        rows, columns = int(tile[0]), int(tile[1])
    else:
        rows, columns = min(int(rows_per_strip or 1), layout.rows), layout.columns
    planes = layout.samples if layout.separate else 1
    blocks = up(layout.rows, rows) * up(layout.columns, columns) * planes
    return dataclasses.replace(layout, tiled=tile is not None, block_rows=rows,
                               block_columns=columns, blocks=blocks)


def default_rows_per_strip(layout: Layout) -> int:
    """Return the rows of strips of about 256 KiB; 0 when the image is too low for JPEG strips."""
    together = 1 if layout.separate else layout.samples
    row_bytes = up(layout.columns * together * layout.bits, 8)
    rows = min(max(1, STRIP_BYTES // row_bytes), layout.rows)
    if layout.compression != Compression.JPEG:
        return rows
    unit = _JPEG_UNIT * (layout.subsampling[1] if layout.is_ycbcr else 1)
    return max(rows // unit * unit, unit if layout.rows >= unit else 0)
