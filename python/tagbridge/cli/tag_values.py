"""tagbridge get and set: the value of a tag on the command line."""

from __future__ import annotations

import sys
from pathlib import Path
from typing import Any

import numpy as np

from ..enumerations import OF_TAG
from ..file import File
from ..tags import Tag, find_tag
from .failures import about

_COLUMNS = {"GeoKeyDirectoryTag": 4, "ModelTiepointTag": 6, "ColorMap": 3}


def run_get(options: Any) -> None:
    """Print a value: text as it is, numbers parted by blanks, bytes as bytes."""
    with about(options.file), File(options.file) as tif:
        value = tif[options.directory].tags[_key(options.tag)]
    if isinstance(value, bytes):
        sys.stdout.buffer.write(value)
        sys.stdout.buffer.flush()
    else:
        print(as_text(value))


def as_text(value: Any) -> str:
    """Return a value as text; a row of a table, or a name of several, is a line."""
    if isinstance(value, str):
        return value
    if isinstance(value, list):
        return "\n".join(value)
    if isinstance(value, np.ndarray) and value.ndim == 2:
        return "\n".join(as_text(row) for row in value)
    if isinstance(value, np.ndarray):
        return " ".join(as_text(number) for number in value.tolist())
    return repr(value).removesuffix(".0") if isinstance(value, float) else str(int(value))


def run_set(options: Any) -> None:
    """Store a value in place."""
    with about(options.file):
        tag = find_tag(_key(options.tag))
        value = from_text(tag, options.values)
        with File(options.file, "r+") as tif:
            tif[options.directory].tags[tag.number] = value


def from_text(tag: Tag, words: list[str]) -> Any:
    """Return the value of a tag for the words that stand for it.

    Raises ValueError when they do not.
    """
    if tag.kind in ("text", "characters"):
        return " ".join(words)
    if tag.kind == "texts":
        return words
    if tag.kind == "bytes":
        return _bytes(words)
    if tag.name in OF_TAG and not tag.kind.endswith(("row", "table")):
        return int(words[0]) if words[0].lstrip("-").isdecimal() else words[0]
    numbers = [_number(word) for text in words for word in text.split()]
    if tag.kind.endswith("table"):
        return _table(tag, numbers)
    return numbers[0] if len(numbers) == 1 and not tag.kind.endswith("row") else numbers


def _key(text: str) -> str | int:
    return int(text) if text.isdecimal() else text


def _number(word: str) -> float:
    try:
        return float(word)
    except ValueError:
        raise ValueError(f"{word!r} is not a number") from None


def _bytes(words: list[str]) -> bytes:
    if len(words) != 1 or not words[0].startswith("@"):
        raise ValueError("bytes are given as @FILE")
    return Path(words[0][1:]).read_bytes()


def _table(tag: Tag, numbers: list[float]) -> np.ndarray[Any, Any]:
    columns = _COLUMNS.get(tag.name, len(numbers))
    if len(numbers) % columns:
        raise ValueError(f"{tag.name} has rows of {columns} numbers, not {len(numbers)} in all")
    return np.array(numbers, dtype=np.float64).reshape(-1, columns)
