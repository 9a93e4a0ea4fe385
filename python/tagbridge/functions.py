"""Whole images in one call."""

from __future__ import annotations

import math
import os
from typing import Any

import numpy as np

from .atomic import written_beside
from .file import File

# Offsets of classic TIFF end at 4 GiB; what is left is for tags and tables.
CLASSIC_BYTES = 3_900_000_000


def imread(file: Any, directory: int = 0, **options: Any) -> np.ndarray[Any, Any]:
    """Return the image of a directory of a file.

    :param file: a path or a binary file object
    :param directory: its number in the chain, counted from 0; negative from the end
    :param options: those of Directory.read
    :raises IndexError: there is no such directory
    :raises OSError: the file cannot be opened
    :raises Error: not a TIFF file, or the module refuses the image
    """
    with File(file) as tif:
        return tif[directory].read(**options)


def imwrite(
    file: Any, array: Any, *, append: bool = False, bigtiff: bool | None = None, **options: Any
) -> None:
    """Write an image as a file of one directory, or append it to a file.

    A new file appears under its name when it is complete: a failure leaves an existing one as it
    was.

    :param file: a path or a binary file object
    :param array: rows x columns or rows x columns x samples, or an iterable of blocks
    :param append: write behind the directories of an existing file
    :param bigtiff: offsets of 64 bits; None for a new file with more than 3.9 GB of samples
    :param options: those of File.write
    :raises OSError: the file cannot be opened
    :raises TypeError: a dtype that cannot be written
    :raises ValueError: a shape or an option that cannot be
    :raises Error: the module refuses what the options come to
    """
    large = _size(array, options) > CLASSIC_BYTES if bigtiff is None else bigtiff
    mode = ("a" if append else "w") + ("8" if large else "")
    if append or not isinstance(file, (str, bytes, os.PathLike)):
        _write(file, mode, array, options)
        return
    with written_beside(os.fsdecode(file)) as beside:
        _write(beside, mode, array, options)


def _write(file: Any, mode: str, array: Any, options: dict[str, Any]) -> None:
    with File(file, mode) as tif:
        tif.write(array, **options)


def _size(array: Any, options: dict[str, Any]) -> int:
    if hasattr(array, "nbytes"):
        return int(array.nbytes)
    if options.get("shape") is None or options.get("dtype") is None:
        return 0
    return int(math.prod(options["shape"]) * np.dtype(options["dtype"]).itemsize)
