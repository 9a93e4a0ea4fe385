"""Small conversions that several modules share."""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any

import numpy as np

from . import _core


def scalar(array: Any) -> Any:
    """Return the one element of a 1-by-1 array."""
    return array.item()


def up(number: int, divisor: int) -> int:
    """Return the quotient rounded up; 0 for a divisor of 0."""
    return -(-number // divisor) if divisor else 0


def require_memory(shape: Sequence[int], dtype: Any) -> None:
    """Raise MemoryError for an array beyond the limit of memory, of which nothing is made yet."""
    size, limit = math.prod(shape) * np.dtype(dtype).itemsize, _core.memory_limit()
    if size > limit:
        raise MemoryError(f"an array of {' x '.join(map(str, shape))} {np.dtype(dtype)} takes {size} "
                          f"bytes, and the limit is {limit}")


def decoded_text(value: Any) -> str:
    """Return text of the module, one character a byte, as UTF-8 where it is that, else Latin-1."""
    text = value if isinstance(value, str) else "".join(np.ravel(value, order="F").tolist())
    try:
        return text.encode("latin-1").decode("utf-8")
    except (UnicodeDecodeError, UnicodeEncodeError):
        return text


def encoded_text(value: str) -> str:
    """Return text as the module takes it, one character for each byte of its UTF-8.

    Raises ValueError for a NUL character, which would end the text in the file.
    """
    if "\0" in value:
        raise ValueError("text of a tag cannot hold a NUL character")
    return value.encode("utf-8").decode("latin-1")
