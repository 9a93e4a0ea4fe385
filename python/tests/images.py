"""Images and files that the tests of the file layer share."""

from __future__ import annotations

import warnings
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import numpy as np
import tagbridge
import tifffile

RANDOM = np.random.default_rng(7)
EXAMPLES = Path(__file__).resolve().parents[2] / "examples"


def image(shape: tuple[int, ...], dtype: Any = np.uint8) -> np.ndarray:
    """Noise of that shape and dtype."""
    kind = np.dtype(dtype)
    if kind.kind == "b":
        return RANDOM.random(shape) < 0.5
    if kind.kind == "f":
        return RANDOM.normal(size=shape).astype(kind)
    limits = np.iinfo(kind)
    return RANDOM.integers(limits.min, limits.max, shape, kind.newbyteorder("="), endpoint=True)


def write(path: Path, array: np.ndarray, planar: str | None = None, **options: Any) -> None:
    """Write an image of samples together with tifffile, in planes when told to."""
    samples = array.shape[2] if array.ndim == 3 else 1
    if planar == "separate":
        array = np.moveaxis(array, 2, 0)
    tifffile.imwrite(path, array, photometric="rgb" if samples in (3, 4) else "minisblack",
                     planarconfig=planar, metadata=None, **options)


def pages(path: Path, count: int = 3, **options: Any) -> list[np.ndarray]:
    """Write a file of that many images with tifffile, each a row higher; return the images."""
    images = [image((20 + number, 30)) for number in range(count)]
    with tifffile.TiffWriter(path) as writer:
        for page in images:
            writer.write(page, photometric="minisblack", metadata=None, **options)
    return images


def pyramid(path: Path, levels: int = 2, count: int = 1) -> list[np.ndarray]:
    """Write images with sub-directories of half the size each; return the images."""
    images = [image((64, 48)) for _ in range(count)]
    with tifffile.TiffWriter(path) as writer:
        for page in images:
            writer.write(page, subifds=levels, photometric="minisblack", metadata=None)
            for level in range(1, levels + 1):
                writer.write(page[:: 2**level, :: 2**level], subfiletype=1,
                             photometric="minisblack", metadata=None)
    return images


def damage(path: Path, block: int, page: int = 0) -> None:
    """Overwrite the beginning of a block's data."""
    with tifffile.TiffFile(path) as tiff:
        offset, size = (tiff.pages[page].dataoffsets[block],
                        tiff.pages[page].databytecounts[block])
    data = bytearray(path.read_bytes())
    data[offset:offset + size] = b"\xff" * size
    path.write_bytes(data)


@contextmanager
def recorded() -> Iterator[list[tagbridge.Warning]]:
    """Collect the package's warnings."""
    found: list[Any] = []
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        yield found
    found += [each.message for each in caught if isinstance(each.message, tagbridge.Warning)]
