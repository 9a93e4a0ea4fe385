"""tagbridge convert: images of files as directories of a new one, a row of blocks at a time."""

from __future__ import annotations

import argparse
import contextlib
from collections.abc import Iterator
from typing import Any

import numpy as np

from ..atomic import written_beside
from ..directory import Directory
from ..enumerations import Compression, Photometric, coded
from ..file import File
from ..functions import CLASSIC_BYTES
from ..indexing import Selection, parse_key
from ..plan import Options, make_plan
from .bands import Bands, Rows
from .failures import about
from .fitting_tags import fitting_tags
from .pyramid import Level, level_count
from .terminal import progress_bar

_EVERYTHING = (slice(None), slice(None))
# What loses nothing and can be written.
_KEPT = (Compression.NONE, Compression.LZW, Compression.ADOBE_DEFLATE, Compression.PACKBITS)
_FAX = (Compression.CCITT_GROUP3, Compression.CCITT_GROUP4)
_WRITABLE = (*_KEPT, *_FAX, Compression.JPEG, Compression.DEFLATE)
_PYRAMID_TILE = (256, 256)
#: The names of compressions that ``--compression`` takes.
COMPRESSIONS = ("none", "packbits", "lzw", "deflate", "jpeg", "group3", "group4")


def compression(text: str) -> Compression:
    """Return a compression that can be written. For argparse."""
    try:
        found = Compression(coded(Compression, text))
    except ValueError:
        found = Compression.NEXT
    if found not in _WRITABLE:
        raise argparse.ArgumentTypeError(
            f"{text!r} is none of {', '.join(COMPRESSIONS)}")
    return found


class LargeStrips(File):
    """A file of which a large single strip is read in parts, as libtiff divides it."""

    _as_stored = False


def run(options: Any) -> None:
    """Write all directories that are asked for; the file appears when it is complete."""
    with about(options.output), written_beside(options.output) as beside:
        mode = "w8" if options.bigtiff or _is_large(options) else "w"
        with File(beside, mode) as target:
            for file in options.inputs:
                with about(file), LargeStrips(file) as source:
                    for page in _pages(source, options.directories):
                        _convert(page, target, options)


def _pages(source: File, numbers: list[int] | None) -> Iterator[Directory]:
    if numbers is None:
        yield from source
    else:
        yield from (source[number] for number in numbers)


def _is_large(options: Any) -> bool:
    """Say whether the samples may have more bytes than classic TIFF has room for."""
    size = 0
    for file in options.inputs:
        with about(file), LargeStrips(file) as source:
            for page in _pages(source, options.directories):
                selection = parse_key(options.region or _EVERYTHING, page.shape)
                size += int(np.prod(selection.shape, dtype=np.int64)) * page.dtype.itemsize
                if options.region is None and not options.pyramid:
                    size += sum(level.nbytes for level in page.subdirectories)
    return size * (4 / 3 if options.pyramid else 1) > CLASSIC_BYTES


def _convert(page: Directory, target: File, options: Any) -> None:
    selection = parse_key(options.region or _EVERYTHING, page.shape)
    if options.pyramid:
        _write_pyramid(page, target, options, selection)
        return
    levels = page.subdirectories if options.region is None else ()
    _write(page, target, options, selection, subdirectories=len(levels))
    for level in levels:
        _write(level, target, options, parse_key(_EVERYTHING, level.shape), subdirectories=0)


def _write(page: Directory, target: File, options: Any, selection: Selection,
           subdirectories: int) -> None:
    chosen = _options(page, options, selection, subdirectories)
    _write_rows(target, Bands(page, selection), chosen, f"directory {page.index}")


def _write_pyramid(page: Directory, target: File, options: Any, selection: Selection) -> None:
    count = level_count(selection.shape)
    chosen = _options(page, options, selection, count)
    with contextlib.ExitStack() as stack:
        rows: Rows = Bands(page, selection)
        for number in range(count + 1):
            below = None
            if number < count:
                below = stack.enter_context(
                    Level(rows.shape, rows.dtype, averaged=page.photometric != Photometric.PALETTE))
            _write_rows(target, rows, chosen, f"directory {page.index}, level {number}", below)
            if below is not None:
                rows = below
                chosen = _level_options(page, options, below.shape)


def _write_rows(target: File, rows: Rows, options: Options, words: str,
                below: Level | None = None) -> None:
    """Write a directory from rows; hand them on to the level below."""
    plan = make_plan(options, rows.shape, rows.dtype)
    layout = plan.layout

    def blocks() -> Iterator[np.ndarray[Any, Any]]:
        for plane in range(layout.planes):
            for row in range(layout.down):
                extent = layout.extent_at(row, 0, plane)
                band = rows.read(extent.top, extent.bottom)
                if below is not None and plane == 0:
                    below.add(band)
                part = band if extent.plane is None or band.ndim == 2 else band[:, :, plane]
                for column in range(layout.across):
                    place = layout.extent_at(row, column, plane)
                    yield part[:, place.left:place.right]

    target._write(progress_bar(blocks(), layout.blocks, words), options)


# --- What a directory is going to be like

def _options(page: Directory, options: Any, selection: Selection, subdirectories: int) -> Options:
    tags, optional = fitting_tags(page, selection)
    return _common(page, options, selection.shape, page.dtype, subdirectories=subdirectories,
                   tags=tags, optional_tags=optional)


def _level_options(page: Directory, options: Any, shape: tuple[int, ...]) -> Options:
    tags, _ = fitting_tags(page, None)
    return _common(page, options, shape, page.dtype, subdirectories=0,
                   tags={**tags, "SubfileType": "reduced_image"})


def _common(page: Directory, options: Any, shape: tuple[int, ...], dtype: np.dtype[Any],
            **more: Any) -> Options:
    method = options.compression or _kept_compression(page)
    photometric: Any = page.photometric
    if photometric == Photometric.YCBCR and method != Compression.JPEG:
        photometric = Photometric.RGB  # which is how it is read
    extra = page.tags.get("ExtraSamples")
    return Options(
        photometric=photometric, compression=method,
        predictor=options.predictor or None, level=options.level,
        tile=options.tile or _kept_tile(page, options), rows_per_strip=options.rows_per_strip,
        planar=options.planar or ("separate" if page.planar == 2 else "contig"),
        extra_samples=None if extra is None or photometric == Photometric.YCBCR else extra.tolist(),
        shape=shape, dtype=dtype, **more)


def _kept_compression(page: Directory) -> Compression:
    kept = (*_KEPT, *_FAX) if page.dtype == np.bool_ else _KEPT
    found = page.compression
    if found in kept and isinstance(found, Compression):
        return found
    return Compression.ADOBE_DEFLATE


def _kept_tile(page: Directory, options: Any) -> tuple[int, int] | None:
    if options.rows_per_strip is not None:
        return None
    rows, columns = page.block_shape
    if page.tiled and rows % 16 == 0 and columns % 16 == 0 and rows and columns:
        return rows, columns
    return _PYRAMID_TILE if options.pyramid else None
