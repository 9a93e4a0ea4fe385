"""Progress and pictures in a terminal."""

from __future__ import annotations

import sys
from collections.abc import Iterable, Iterator
from typing import Any, TypeVar

import numpy as np

_Item = TypeVar("_Item")
_SHADES = " .:-=+*#%@"
_SHOW_AFTER = 1.0  # seconds


def progress_bar(items: Iterable[_Item], total: int, words: str) -> Iterator[_Item]:
    """Yield the items; on a terminal, show a bar when that takes longer than a second."""
    from tqdm import tqdm

    bar = tqdm(items, total=total, desc=words, unit="block", leave=False, delay=_SHOW_AFTER,
               file=sys.stderr, disable=not sys.stderr.isatty())
    yield from bar


def draw(picture: np.ndarray[Any, Any], colours: bool) -> Iterator[str]:
    """Yield lines of text that show a picture, two rows of pixels in each.

    Without colours a character stands for the brightness of its place.
    """
    rows = picture if picture.shape[0] % 2 == 0 else np.concatenate([picture, picture[-1:]])
    rgb = rows if rows.ndim == 3 else np.repeat(rows[:, :, None], 3, axis=2)
    for upper, lower in zip(rgb[::2], rgb[1::2], strict=True):
        yield _coloured(upper, lower) if colours else _shaded(upper, lower)


def _coloured(upper: np.ndarray[Any, Any], lower: np.ndarray[Any, Any]) -> str:
    cells = (f"\x1b[38;2;{a[0]};{a[1]};{a[2]}m\x1b[48;2;{b[0]};{b[1]};{b[2]}m▀"
             for a, b in zip(upper.tolist(), lower.tolist(), strict=True))
    return "".join(cells) + "\x1b[0m"


def _shaded(upper: np.ndarray[Any, Any], lower: np.ndarray[Any, Any]) -> str:
    light = (upper.mean(axis=1) + lower.mean(axis=1)) / 2
    steps = (light / 256 * len(_SHADES)).astype(int)
    return "".join(_SHADES[step] for step in steps)
