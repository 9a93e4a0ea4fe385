"""tagbridge export: an image as an array or a picture."""

from __future__ import annotations

import argparse
from typing import Any, BinaryIO

import numpy as np

from ..atomic import written_beside
from ..directory import Directory
from ..enumerations import Photometric
from ..file import File
from ..indexing import parse_key
from ..preview import as_picture
from ..reading import read_image
from .failures import about
from .pictures import save_png

_EVERYTHING = (slice(None), slice(None))


class _Stream:
    """What NumPy does not take for a file.

    To files it writes through the C library, and does not ask whether the last bytes have arrived.
    """

    def __init__(self, file: BinaryIO) -> None:
        self.write = file.write


def output_name(text: str) -> str:
    """Return the name of an array or a picture. For argparse."""
    if not text.lower().endswith((".npy", ".png")):
        raise argparse.ArgumentTypeError(f"{text!r} ends neither in .npy nor in .png")
    return text


def run(options: Any) -> None:
    """Read the image, or a region of it, and write the file."""
    with about(options.file), File(options.file) as tif:
        page = tif[options.directory]
        selection = parse_key(options.region or _EVERYTHING, page.shape)
        array = read_image(page, selection, strict=True)
        is_array = options.output.lower().endswith(".npy")
        picture = None if is_array else exact_picture(page, array)
    with about(options.output):
        if picture is not None:
            save_png(options.output, picture)
            return
        with written_beside(options.output) as beside, open(beside, "wb") as file:
            np.save(_Stream(file), array)


def exact_picture(page: Directory, array: np.ndarray[Any, Any]) -> np.ndarray[Any, Any]:
    """Return pixels for a PNG file, unchanged where PNG has their kind."""
    if page.photometric == Photometric.MIN_IS_BLACK and array.ndim == 2 and array.dtype in (
            np.bool_, np.uint8, np.uint16):
        return array
    if page.photometric == Photometric.RGB and array.dtype == np.uint8 and array.shape[2] == 4:
        return array
    return as_picture(page, array)
