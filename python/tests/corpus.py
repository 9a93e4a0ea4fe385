"""Compares calls with the manifest of the folder of real-world files.

The folder is named by the environment variable TAGBRIDGE_CORPUS and describes its manifest itself.
"""

from __future__ import annotations

import hashlib
import json
import os
import warnings
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge

Entry = dict[str, Any]

FOLDER = os.environ.get("TAGBRIDGE_CORPUS")
needs_corpus = pytest.mark.skipif(FOLDER is None, reason="TAGBRIDGE_CORPUS is not set")

KINDS = {"bool": "logical", "float32": "single", "float64": "double"}
SPECIAL = {"NaN": np.nan, "Infinity": np.inf, "-Infinity": -np.inf}


def entries(having: str = "file") -> list[Any]:
    """The manifest's files that have the key `having`, as parameters of a test."""
    if FOLDER is None:
        return [pytest.param({}, id="none")]
    with open(Path(FOLDER) / "manifest.jsonl", encoding="utf-8") as lines:
        files = [json.loads(line) for line in lines]
    return [pytest.param(file, id=file["file"]) for file in files if having in file]


def path_of(file: Entry) -> str:
    return str(Path(FOLDER or ".") / file["file"])


def quiet(*inputs: Any, outputs: int = 1) -> Any:
    """A call whose warnings nobody wants to see."""
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", tagbridge.Warning)
        return tagbridge.call(*inputs, outputs=outputs)


@contextmanager
def opened(file: Entry) -> Iterator[np.ndarray]:
    identifier = quiet("open", path_of(file), "r")
    try:
        yield identifier
    finally:
        quiet("close", identifier)


def sha256(data: bytes) -> str:
    return hashlib.sha256(data).hexdigest()


def host_dimensions(dimensions: list[int]) -> list[int]:
    """The host has no dimensions of 1 at the end beyond the second."""
    while len(dimensions) > 2 and dimensions[-1] == 1:
        dimensions = dimensions[:-1]
    return dimensions


def check_array(array: np.ndarray, entry: Entry) -> None:
    assert KINDS.get(array.dtype.name, array.dtype.name) == entry["class"]
    assert list(array.shape) == host_dimensions(entry["dims"])
    if "values" in entry:
        wanted = np.array([SPECIAL.get(value, value) for value in entry["values"]], array.dtype)
        np.testing.assert_array_equal(array.ravel(order="F"), wanted)
    elif "sha256" in entry:
        data = np.atleast_3d(array)[:, :, : entry["rows"]] if "rows" in entry else array
        assert sha256(data.tobytes(order="F")) == entry["sha256"]


def check_value(value: Any, entry: Entry) -> None:
    if entry["class"] == "char":
        assert isinstance(value, str)
        assert len(value) == entry["length"]
        if "text" in entry:
            assert value == entry["text"]
        elif "sha256" in entry:
            assert sha256(value.encode("latin-1")) == entry["sha256"]
    elif entry["class"] == "cell":
        assert list(value.shape) == entry["dims"]
        for part, cell in zip(value.ravel(order="F"), entry["cells"], strict=True):
            check_value(part, cell)
    else:
        check_array(value, entry)


def check_raises(entry: Entry, call: Callable[[], Any]) -> None:
    with pytest.raises(tagbridge.Error) as caught:
        call()
    assert caught.value.identifier == entry["error"]
    if "args" in entry:
        assert list(caught.value.arguments) == entry["args"]


def check_call(entry: Entry, *inputs: Any) -> None:
    """Makes the call, unless the manifest leaves it out, and compares it with its entry."""
    if "skipped" in entry:
        return
    if "error" in entry:
        check_raises(entry, lambda: quiet(*inputs))
    elif "unspecified" in entry or "unstable" in entry or "class" not in entry:
        try:
            quiet(*inputs)
        except tagbridge.Error:
            pass
    else:
        check_value(quiet(*inputs), entry)


def check_block(entry: Entry, operation: str, file: np.ndarray, compare_pixels: bool) -> None:
    if "arrays" not in entry:
        check_call(entry, operation, file, entry["n"])
        return
    arrays = [array for array in quiet(operation, file, entry["n"], outputs=3) if array is not None]
    for array, wanted in zip(arrays, entry["arrays"], strict=True):
        shown = wanted if compare_pixels else {key: wanted[key] for key in ("class", "dims")}
        check_array(array, shown)


def check_image(file: np.ndarray, entry: Entry) -> None:
    """The stage "image" of a directory entry, for the file's current directory."""
    assert quiet("currentDirectory", file) == entry["directory"]
    assert quiet("lastDirectory", file) == entry["last"]
    assert quiet("isTiled", file) == entry["isTiled"]
    assert quiet("numberOfStrips", file) == entry["numberOfStrips"]
    assert quiet("numberOfTiles", file) == entry["numberOfTiles"]
    compare_pixels = not entry.get("host_codec", False)
    for block in entry["blocks"]:
        check_block(block, entry["operation"], file, compare_pixels)
    for probe in entry["probes"]:
        check_raises(probe, lambda: quiet(probe["operation"], file, probe["n"]))


def follow(file: np.ndarray, path: list[int]) -> None:
    """Moves to the directory with the number path[0] and on through the offsets that follow."""
    for _ in range(path[0] - 1):
        quiet("readDirectory", file)
    for offset in path[1:]:
        quiet("setSubDirectory", file, offset)


Stage = Callable[[np.ndarray, Entry], None]


def check_directories(file: Entry, stage: Stage) -> None:
    """Runs a stage on every directory of the file, and on its sub-directories."""
    with opened(file) as identifier:
        for number, entry in enumerate(file["directories"]):
            if number:
                quiet("readDirectory", identifier)
            stage(identifier, entry)
    for entry in file.get("subdirectories", []):
        if "error" not in entry:
            with opened(file) as identifier:
                follow(identifier, entry["path"])
                stage(identifier, entry)
