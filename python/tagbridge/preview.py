"""A small 8-bit picture of an image of any kind."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np

from ._checks import up
from .enumerations import Photometric

if TYPE_CHECKING:
    from .directory import Directory

_SPREAD = (1.0, 99.0)  # per cent of the samples that full black and white leave inside


def small_picture(directory: Directory, size: int) -> np.ndarray[Any, Any]:
    """Return a picture of at most `size` rows and columns: rows x columns (x 3) ``uint8``.

    Pixels are picked, not averaged, so that of a large image in small blocks only few are decoded.
    8-bit grey and RGB keep their values, others are spread from black to white.

    :raises Error: the module refuses the image
    """
    level = _fitting_level(directory, size)
    rows, columns = level.shape[:2]
    step = max(1, up(max(rows, columns), size))
    return as_picture(level, level[::step, ::step])


def _fitting_level(directory: Directory, size: int) -> Directory:
    """Return the smallest sub-directory of the same kind that is not smaller than `size`."""
    best = directory
    for level in directory.subdirectories:
        alike = level.shape[2:] == directory.shape[2:] and level.dtype == directory.dtype
        if alike and size <= max(level.shape[:2]) < max(best.shape[:2]):
            best = level
    return best


def as_picture(directory: Directory, array: np.ndarray[Any, Any]) -> np.ndarray[Any, Any]:
    """Return pixels of an image as grey or RGB ``uint8``."""
    photometric = directory.photometric
    if photometric == Photometric.PALETTE and array.ndim == 2 and "ColorMap" in directory.tags:
        table = (directory.tags["ColorMap"] * 255).round().astype(np.uint8)
        return np.asarray(table[array.astype(np.intp)])
    if array.ndim == 3:
        if photometric == Photometric.SEPARATED and array.shape[2] >= 4:
            array = _from_inks(array)
        array = array[:, :, :3] if array.shape[2] >= 3 else array[:, :, 0]
    grey = _spread(array)
    return 255 - grey if photometric == Photometric.MIN_IS_WHITE else grey


def _from_inks(array: np.ndarray[Any, Any]) -> np.ndarray[Any, Any]:
    largest = np.iinfo(array.dtype).max if array.dtype.kind in "ui" else 1
    light = 1.0 - array[:, :, :4] / largest
    return np.asarray((light[:, :, :3] * light[:, :, 3:] * 255).astype(np.uint8))


def _spread(array: np.ndarray[Any, Any]) -> np.ndarray[Any, Any]:
    if array.dtype == np.uint8:
        return array
    if array.dtype == np.bool_:
        return np.asarray(array * np.uint8(255))
    finite = array[np.isfinite(array)] if array.dtype.kind == "f" else array
    if finite.size == 0:
        return np.zeros(array.shape, np.uint8)
    low, high = np.percentile(finite, _SPREAD)
    scaled = (np.nan_to_num(array.astype(np.float64)) - low) / ((high - low) or 1.0)
    return np.asarray((scaled.clip(0, 1) * 255).astype(np.uint8))
