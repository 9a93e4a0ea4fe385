"""tagbridge preview: a small picture."""

from __future__ import annotations

import argparse
import shutil
import sys
from typing import Any

import numpy as np

from ..file import File
from ..preview import small_picture
from .failures import about
from .pictures import save_png
from .terminal import draw

_FILE_SIZE = 512


def output_name(text: str) -> str:
    """Return the name of a picture. For argparse."""
    if not text.lower().endswith(".png"):
        raise argparse.ArgumentTypeError(f"{text!r} does not end in .png")
    return text


def run(options: Any) -> None:
    """Write the picture to a file, or draw it."""
    size = options.size or (_FILE_SIZE if options.output else _terminal_size())
    with about(options.file), File(options.file) as tif:
        picture = small_picture(tif[options.directory], size)
    if options.output:
        with about(options.output):
            save_png(options.output, np.ascontiguousarray(picture))
        return
    for line in draw(picture, colours=sys.stdout.isatty()):
        print(line)


def _terminal_size() -> int:
    columns, lines = shutil.get_terminal_size((80, 24))
    return max(8, min(columns, 2 * (lines - 1)))
