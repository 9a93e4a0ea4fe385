"""What the tests of the package share."""

from __future__ import annotations

import gc
import io
import os
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from images import image, pages, write


@pytest.fixture
def gray(tmp_path: Path) -> Path:
    """A file of 40 rows and 30 columns in strips of 16 rows, uint8, uncompressed."""
    path = tmp_path / "gray.tif"
    pixels = np.arange(1200, dtype=np.uint16).reshape(40, 30).astype(np.uint8)
    tifffile.imwrite(path, pixels, rowsperstrip=16, photometric="minisblack")
    return path


@pytest.fixture
def file(tmp_path: Path) -> Path:
    """A file of three gray images, each a row higher."""
    path = tmp_path / "a.tif"
    pages(path)
    return path


@pytest.fixture
def array() -> np.ndarray:
    """The first image of `data`."""
    return image((100, 130, 3), np.uint16)


@pytest.fixture
def data(array: np.ndarray) -> bytes:
    """The bytes of a file of two images, the second a part of the first."""
    stream = io.BytesIO()
    with tagbridge.open(stream, "w") as tif:
        tif.write(array, tile=(32, 48), compression="deflate", tags={"Artist": "me"})
        tif.write(array[:50, :, 0])
    return stream.getvalue()


def check_data(file: Any, array: np.ndarray) -> None:
    """Read a file object that holds `data`, and see that it stays open."""
    with tagbridge.open(file) as tif:
        assert len(tif) == 2
        assert tif.tags["Artist"] == "me"
        np.testing.assert_array_equal(tif.read(), array)
        np.testing.assert_array_equal(tif[1][10:20, ::-3], array[10:20, ::-3, 0])
    assert not file.closed


@pytest.fixture(params=[(75, 101), (75, 101, 3)], ids=["grey", "rgb"])
def tiles(request: Any, tmp_path: Path) -> Iterator[tuple[tagbridge.Directory, np.ndarray]]:
    """A directory of tiles, and its image."""
    array = image(request.param, np.uint16)
    write(tmp_path / "tiles.tif", array, tile=(32, 16))
    with tagbridge.open(tmp_path / "tiles.tif") as tif:
        yield tif[0], array


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
