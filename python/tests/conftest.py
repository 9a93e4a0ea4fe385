"""What the tests of the package share."""

from __future__ import annotations

import gc
import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile


@pytest.fixture
def gray(tmp_path: Path) -> Path:
    """A file of 40 rows and 30 columns in strips of 16 rows, uint8, uncompressed."""
    path = tmp_path / "gray.tif"
    pixels = np.arange(1200, dtype=np.uint16).reshape(40, 30).astype(np.uint8)
    tifffile.imwrite(path, pixels, rowsperstrip=16, photometric="minisblack")
    return path


@pytest.fixture
def unknown_tag(tmp_path: Path) -> Path:
    """A file that libtiff warns about when it is opened: it has the tag 65000."""
    path = tmp_path / "unknown tag.tif"
    tifffile.imwrite(
        path, np.zeros((4, 4), np.uint8), photometric="minisblack",
        extratags=[(65000, "I", 1, 5, True)],
    )
    return path


@pytest.fixture
def open_file() -> Iterator[Any]:
    """A function that opens a file for reading and closes it when the test ends."""
    opened = []

    def open_path(path: Path, mode: str = "r") -> np.ndarray:
        opened.append(tagbridge.call("open", str(path), mode))
        return opened[-1]

    yield open_path
    for file in opened:
        tagbridge.call("close", file)


def open_descriptors(path: Path) -> int:
    """How often this process has the file open or mapped."""
    gc.collect()
    links = [os.path.realpath(link) for link in Path("/proc/self/fd").iterdir()]
    return links.count(os.path.realpath(path))
