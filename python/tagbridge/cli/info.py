"""tagbridge info: what is in a file."""

from __future__ import annotations

import base64
import json
from collections.abc import Iterator
from typing import Any

import numpy as np

from .._messages import Error
from ..directory import Directory
from ..file import File
from .failures import Failure, about, report

_LONGEST = 72
# What a file nests deeper than this is not followed.
_DEEPEST = 16


def run(options: Any) -> int:
    """Show each file; go on after one that cannot be opened."""
    status = 0
    for file in options.files:
        try:
            with about(file), File(file) as tif:
                if options.json:
                    print(json.dumps(file_object(file, tif), ensure_ascii=False))
                else:
                    _show(file, tif, options.tags)
        except Failure as failure:
            report(failure)
            status = 1
    return status


def below(page: Directory, seen: set[int], depth: int = 0) -> Iterator[Directory]:
    """Yield the sub-directories of a directory, each once, whatever the file's loops."""
    if depth >= _DEEPEST:
        return
    try:
        found = page.subdirectories
    except Error:
        return
    for directory in found:
        offset = directory._place.offsets[-1]
        if offset not in seen:
            seen.add(offset)
            yield directory


# --- As JSON

def file_object(name: str, tif: File) -> dict[str, Any]:
    """Return what is in a file as an object for JSON."""
    seen: set[int] = set()
    return {"file": name, "byteorder": tif.byteorder, "bigtiff": tif.bigtiff,
            "directories": [_directory_object(page, seen, 0) for page in tif]}


def _directory_object(page: Directory, seen: set[int], depth: int) -> dict[str, Any]:
    return {
        "index": page.index,
        "shape": _or_none(lambda: list(page.shape)),
        "dtype": _or_none(lambda: page.dtype.name),
        "compression": _or_none(lambda: code_name(page.compression)),
        "photometric": _or_none(lambda: code_name(page.photometric)),
        "planar": _or_none(lambda: code_name(page.planar)),
        "tiled": _or_none(lambda: page.tiled),
        "block_shape": _or_none(lambda: list(page.block_shape)),
        "bytes": stored_bytes(page),
        "tags": {name: _json_value(value) for name, value in readable_tags(page)},
        "subdirectories": [_directory_object(level, seen, depth + 1)
                           for level in below(page, seen, depth)],
    }


def _or_none(value: Any) -> Any:
    """Return a value, None where the module cannot tell."""
    try:
        return value()
    except Error:
        return None


def code_name(code: Any) -> Any:
    """Return the name of a member, or the number that has none."""
    return getattr(code, "name", code)


def stored_bytes(page: Directory) -> int:
    """Return the size of the blocks in the file."""
    try:
        name = "TileByteCounts" if page.tiled else "StripByteCounts"
        return int(page.tags[name].sum())
    except (Error, KeyError):
        return 0


def readable_tags(page: Directory) -> Iterator[tuple[str, Any]]:
    """Yield the tags with their values, without those that the module refuses."""
    for name in page.tags:
        try:
            yield name, page.tags[name]
        except (Error, KeyError):
            continue


def _json_value(value: Any) -> Any:
    if isinstance(value, bytes):
        return base64.b64encode(value).decode()
    if isinstance(value, np.ndarray):
        return _json_value(value.tolist())
    if isinstance(value, list):
        return [_json_value(each) for each in value]
    if isinstance(value, float) and not np.isfinite(value):
        return str(value)
    return value


# --- For people

def _show(name: str, tif: File, with_tags: bool) -> None:
    kind = "BigTIFF" if tif.bigtiff else "TIFF"
    print(f"{name}: {kind}, {tif.byteorder}-endian")
    seen: set[int] = set()
    pages = list(tif)
    for page in pages:
        _show_directory(str(page.index), page, with_tags, seen, "", page is pages[-1])


def _show_directory(label: str, page: Directory, with_tags: bool, seen: set[int], indent: str,
                    is_last: bool) -> None:
    print(f"{indent}{'└── ' if is_last else '├── '}{label}: {describe(page)}")
    indent += "    " if is_last else "│   "
    levels = list(below(page, seen, label.count(".")))
    if with_tags:
        for tag, value in readable_tags(page):
            print(f"{indent}{'│' if levels else ' '}   {tag}: {shown(value)}")
    for number, level in enumerate(levels):
        _show_directory(f"{label}.{number}", level, with_tags, seen, indent, level is levels[-1])


def describe(page: Directory) -> str:
    """Return size, type, layout and compression with its ratio in a line."""
    try:
        sizes = " x ".join(map(str, page.shape))
        unit = "tiles" if page.tiled else "strips"
        layout = f"{unit} of {page.block_shape[0]} x {page.block_shape[1]}"
    except Error as error:
        return str(error)
    dtype = _or_none(lambda: page.dtype.name) or f"{page.metadata['BitsPerSample']} bits"
    parts = [f"{sizes} {dtype}", plain_name(page.photometric), layout]
    if len(page.shape) == 3:
        parts.append({1: "samples together", 2: "planes apart"}.get(int(page.planar), "?"))
    return ", ".join([*parts, plain_name(page.compression) + _ratio(page)])


def plain_name(code: Any) -> str:
    """Return the name of a code in lower case."""
    return str(code_name(code)).lower().replace("_", " ")


def _ratio(page: Directory) -> str:
    stored, plain = stored_bytes(page), _or_none(lambda: page.nbytes)
    if page.compression == 1 or not stored or not plain:
        return ""
    if page.metadata["BitsPerSample"] == 1:
        plain //= 8
    return f" {plain / stored:.1f}:1"


def shown(value: Any) -> str:
    """Return a tag's value, shortened to a line."""
    if isinstance(value, bytes):
        return f"{len(value)} bytes"
    if isinstance(value, np.ndarray):
        sizes = " x ".join(map(str, value.shape))
        numbers = " ".join(f"{number:g}" for number in value.flat[:8])
        return numbers if value.size <= 8 else f"{numbers} … ({sizes})"
    text = " ".join(str(code_name(value)).split())
    return text if len(text) <= _LONGEST else text[:_LONGEST] + "…"
