"""Writing blocks: one after the other into a new directory, and in place."""

from __future__ import annotations

import io
import subprocess
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from images import image, pages
from writing import GOOD, accepted, written


# --- Blocks one at a time

def blocks_of(array: np.ndarray, rows: int, columns: int, whole: bool = False):
    planes = [array] if array.ndim == 2 else np.moveaxis(array, 2, 0)
    for plane in planes:
        for top in range(0, array.shape[0], rows):
            for left in range(0, array.shape[1], columns):
                block = plane[top:top + rows, left:left + columns]
                if whole:
                    block = np.pad(block, [(0, rows - block.shape[0]),
                                           (0, columns - block.shape[1])])
                yield block


@pytest.mark.parametrize("whole", [False, True])
@pytest.mark.parametrize(("layout", "size"), [({"tile": (16, 32)}, (16, 32)),
                                              ({"rows_per_strip": 9}, (9, 50))])
@pytest.mark.parametrize("samples", [1, 3])
def test_blocks_are_taken_in_file_order(tmp_path: Path, whole, layout, size, samples):
    array = image((40, 50) if samples == 1 else (40, 50, 3), np.uint16)
    with written(tmp_path / "a.tif", blocks_of(array, *size, whole=whole), shape=array.shape,
                 dtype=array.dtype, planar="separate", **layout) as tif:
        np.testing.assert_array_equal(tif.read(), array)
    accepted(tmp_path / "a.tif", array)


def test_blocks_are_taken_one_at_a_time(tmp_path: Path):
    told: list[Any] = []

    def blocks():
        for number in range(5):
            told.append(number)
            yield np.full((10, 20), number, np.uint8)

    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        tif.write(blocks(), shape=(50, 20), dtype="uint8", rows_per_strip=10,
                  progress=lambda done, _: told.append(f"{done} stored"))
    assert told == [each for n in range(5) for each in (n, f"{n + 1} stored")]


def test_interleaved_blocks_have_their_samples(tmp_path: Path):
    array = image((20, 10, 3))
    with written(tmp_path / "a.tif", [array[:16], array[16:]], shape=array.shape, dtype="uint8",
                 rows_per_strip=16) as tif:
        np.testing.assert_array_equal(tif.read(), array)


def test_edge_tiles_are_filled_with_the_last_row_and_column(tmp_path: Path):
    array = image((20, 20))
    written(tmp_path / "a.tif", array, tile=(16, 16)).close()
    with tifffile.TiffFile(tmp_path / "a.tif") as other:
        page = other.pages[0]
        other.filehandle.seek(page.dataoffsets[3])
        tile = np.frombuffer(other.filehandle.read(256), np.uint8).reshape(16, 16)
    np.testing.assert_array_equal(tile, np.pad(array[16:, 16:], (0, 12), mode="edge"))


BAD_BLOCKS = {
    "too few": (GOOD[:2], ValueError), "too many": (GOOD * 2, ValueError),
    "none": ([], ValueError), "wrong shape": ([*GOOD[:2], np.zeros((9, 20), np.uint8)], ValueError),
    "too large": ([*GOOD[:2], np.zeros((11, 20), np.uint8)], ValueError),
    "wrong dtype": ([*GOOD[:2], np.zeros((10, 20), np.uint16)], TypeError)}


@pytest.mark.parametrize("case", BAD_BLOCKS)
@pytest.mark.parametrize("mode", ["w", "w8b", "a"])
@pytest.mark.parametrize("before", [0, 2])
def test_wrong_blocks_leave_no_half_directory(tmp_path: Path, case: str, mode: str, before: int):
    path = tmp_path / "a.tif"
    blocks, kind = BAD_BLOCKS[case]
    first, last = image((30, 20)), image((12, 11), np.uint16)
    with tagbridge.open(path, mode) as tif:
        for _ in range(before):
            tif.write(first, description="earlier")
        with pytest.raises(kind):
            tif.write(iter(blocks), shape=(30, 20), dtype="uint8", rows_per_strip=10,
                      tags={"Artist": "half"})
        assert len(tif) == before
        tif.write(last)
        assert len(tif) == before + 1
    with tagbridge.open(path) as tif:
        assert len(tif) == before + 1
        for page in list(tif)[:-1]:
            np.testing.assert_array_equal(page.read(), first)
        np.testing.assert_array_equal(tif[-1].read(), last)
        assert tif.byteorder == ("big" if mode == "w8b" else "little")
        assert tif.bigtiff == (mode == "w8b")
        assert b"half" not in path.read_bytes()
    assert subprocess.run(["tiffinfo", str(path)], capture_output=True, check=True).stderr == b""


def test_a_failure_at_the_end_leaves_the_earlier_directories(tmp_path: Path):
    path = tmp_path / "a.tif"
    array = image((30, 20))
    with tagbridge.open(path, "w") as tif:
        tif.write(array)
        size = path.stat().st_size
        with pytest.raises(tagbridge.Error):
            tif.write(array, tags={"Orientation": 99})
    assert path.stat().st_size == size
    np.testing.assert_array_equal(tagbridge.imread(path), array)


def test_appending_that_fails_leaves_the_file(tmp_path: Path):
    path = tmp_path / "a.tif"
    images = pages(path)
    before = path.read_bytes()
    with tagbridge.open(path, "a") as tif, pytest.raises(ValueError):
        tif.write(iter(GOOD[:1]), shape=(30, 20), dtype="uint8", rows_per_strip=10)
    assert path.read_bytes() == before
    np.testing.assert_array_equal(tagbridge.imread(path, 2), images[2])


def test_an_exception_of_the_blocks_arrives_as_it_is(tmp_path: Path):
    class Stop(BaseException):
        pass

    def blocks():
        yield GOOD[0]
        raise Stop

    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        with pytest.raises(Stop):
            tif.write(blocks(), shape=(30, 20), dtype="uint8", rows_per_strip=10)
        tif.write(GOOD[0])
    assert len(tagbridge.open(tmp_path / "a.tif")) == 1


def test_blocks_need_shape_and_dtype(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        for options in ({}, {"shape": (30, 20)}, {"dtype": "uint8"}):
            with pytest.raises(TypeError, match="shape and dtype"):
                tif.write(iter(GOOD), **options)
        with pytest.raises(TypeError, match="iterable"):
            tif.write(5)


# --- Blocks in place

@pytest.mark.parametrize("compression", ["none", "deflate"])
@pytest.mark.parametrize("planar", ["contig", "separate"])
@pytest.mark.parametrize("layout", [{"tile": (16, 16)}, {"rows_per_strip": 9}], ids=str)
def test_blocks_can_be_written_in_place(tmp_path: Path, compression, planar, layout):
    path = tmp_path / "a.tif"
    array = image((40, 50, 3), np.uint16)
    written(path, array, compression=compression, planar=planar, **layout).close()
    with tagbridge.open(path, "r+") as tif:
        for number in (0, len(tif.blocks) // 2, len(tif.blocks) - 1):
            block = tif.blocks[number]
            new = image(block.read().shape, np.uint16)
            place = array[block.rows, block.columns]
            place[... if block.plane is None else (..., block.plane)] = new
            block.write(new)
            np.testing.assert_array_equal(block.read(), new)
        np.testing.assert_array_equal(tif.read(), array)
    np.testing.assert_array_equal(tagbridge.imread(path), array)
    accepted(path, array)


def test_a_smaller_edge_block_is_filled_with_its_last_row_and_column(tmp_path: Path):
    path = tmp_path / "a.tif"
    written(path, image((20, 20)), tile=(16, 16)).close()
    new = image((4, 4))
    with tagbridge.open(path, "r+") as tif:
        tif.blocks[3].write(new)
    with tifffile.TiffFile(path) as other:
        other.filehandle.seek(other.pages[0].dataoffsets[3])
        tile = np.frombuffer(other.filehandle.read(256), np.uint8).reshape(16, 16)
    np.testing.assert_array_equal(tile, np.pad(new, (0, 12), mode="edge"))


def test_bits_can_be_written_in_place(tmp_path: Path):
    path = tmp_path / "a.tif"
    array = image((40, 21), bool)
    written(path, array, rows_per_strip=16).close()
    with tagbridge.open(path, "r+") as tif:
        for block in tif.blocks:
            block.write(~array[block.rows, block.columns])
    np.testing.assert_array_equal(tagbridge.imread(path), ~array)


def test_ycbcr_jpeg_blocks_are_written_as_rgb(tmp_path: Path):
    path = tmp_path / "a.tif"
    written(path, np.full((64, 64, 3), 90, np.uint8), photometric="ycbcr", compression="jpeg",
            tile=(32, 32)).close()
    new = np.full((32, 32, 3), (200, 40, 60), np.uint8)
    with tagbridge.open(path, "r+") as tif:
        tif.blocks[1].write(new)
        assert np.abs(tif.read()[:32, 32:].astype(int) - new).max() < 6
    got = tagbridge.imread(path).astype(int)
    assert np.abs(got[:32, 32:] - new).max() < 6
    assert np.abs(got[32:] - 90).max() < 6


@pytest.mark.parametrize(("new", "kind"), [
    (np.zeros((16, 29), np.uint8), ValueError), (np.zeros((16, 30, 1), np.uint8), ValueError),
    (np.zeros((16, 30), np.uint16), TypeError), (np.zeros((16, 30)), TypeError)])
def test_a_block_of_another_shape_or_dtype_is_refused(gray: Path, new, kind):
    before = gray.read_bytes()
    with tagbridge.open(gray, "r+") as tif, pytest.raises(kind):
        tif.blocks[0].write(new)
    assert gray.read_bytes() == before


def test_blocks_cannot_be_written_in_mode_r(gray: Path):
    with tagbridge.open(gray) as tif, pytest.raises(io.UnsupportedOperation):
        tif.blocks[0].write(np.zeros((16, 30), np.uint8))


def test_plain_blocks_of_a_sub_directory_can_be_written(tmp_path: Path):
    path = tmp_path / "a.tif"
    array = image((64, 48))
    with tagbridge.open(path, "w") as tif:
        tif.write(array, subdirectories=2)
        tif.write(array[::2, ::2])
        tif.write(array[::4, ::4], compression="deflate")
    with tagbridge.open(path, "r+") as tif:
        plain, packed = tif.subdirectories
        plain.blocks[0].write(np.zeros((32, 24), np.uint8))
        with pytest.raises(io.UnsupportedOperation):
            packed.blocks[0].write(np.zeros((16, 12), np.uint8))
    with tagbridge.open(path) as tif:
        plain, packed = tif.subdirectories
        assert not plain.read().any()
        np.testing.assert_array_equal(packed.read(), array[::4, ::4])
        np.testing.assert_array_equal(tif.read(), array)
