"""Dask arrays into files: one that is streamed, or a folder of them."""

from __future__ import annotations

import json
import threading
from pathlib import Path

import dask
import dask.array as da
import numpy as np
import pytest
import tagbridge
import tagbridge.dask
from images import image


def names(folder: Path) -> list[str]:
    return sorted(path.relative_to(folder).as_posix() for path in folder.rglob("*"))


def written(array: da.Array, path: Path, **options) -> np.ndarray:
    tagbridge.dask.to_tiff(array, path, **options)
    return tagbridge.imread(path)


# --- One file

@pytest.mark.parametrize("options", [
    {}, {"tile": (32, 48), "compression": "deflate", "predictor": True}, {"rows_per_strip": 7},
    {"planar": "separate", "tile": (16, 16)}, {"ahead": 0}, {"ahead": 1, "bigtiff": True}], ids=str)
@pytest.mark.parametrize("chunks", [(16, 16, 3), (50, 33, 1), (100, 90, 2), (1, 90, 3)], ids=str)
def test_the_file_holds_the_array(tmp_path, options, chunks):
    pixels = image((100, 90, 3))
    found = written(da.from_array(pixels, chunks=chunks), tmp_path / "out.tif", **options)
    assert np.array_equal(found, pixels)


@pytest.mark.parametrize("dtype", [np.bool_, np.int16, np.float32, np.float64])
def test_samples_of_every_kind_are_written(tmp_path, dtype):
    pixels = image((40, 50), dtype)
    found = written(da.from_array(pixels, chunks=(13, 20)), tmp_path / "out.tif")
    assert found.dtype == dtype and np.array_equal(found, pixels)


def test_options_of_write_are_taken(tmp_path):
    tagbridge.dask.to_tiff(da.zeros((40, 50), chunks=20, dtype=np.uint8), tmp_path / "out.tif",
                           compression="lzw", tags={"Artist": "me"}, description="dark")
    with tagbridge.open(tmp_path / "out.tif") as tif:
        assert tif.compression == tagbridge.Compression.LZW
        assert (tif.tags["Artist"], tif.tags["ImageDescription"]) == ("me", "dark")


@pytest.mark.parametrize("scheduler", ["synchronous", "processes"])
def test_any_scheduler_computes(tmp_path, scheduler):
    with dask.config.set(scheduler=scheduler, num_workers=1):
        found = written(da.arange(600, chunks=300).reshape(20, 30).astype(np.int32),
                        tmp_path / "out.tif", ahead=1)
    assert np.array_equal(found, np.arange(600).reshape(20, 30))


@pytest.mark.parametrize("ahead", [0, 1, 3])
def test_no_more_rows_are_computed_than_ahead(tmp_path, ahead):
    """Of 40 rows of chunks those that are computed and not written yet never exceed the bound."""
    lock, counts = threading.Lock(), {"computed": 0, "written": 0, "most": 0}

    def count(block: np.ndarray) -> np.ndarray:
        with lock:
            counts["computed"] += 1
            counts["most"] = max(counts["most"], counts["computed"] - counts["written"])
        return block

    def progress(done: int, total: int) -> None:
        counts["written"] = done

    array = da.zeros((640, 16), chunks=(16, 16), dtype=np.uint8).map_blocks(count, dtype=np.uint8)
    counts["computed"] = 0  # map_blocks may try it out
    written(array, tmp_path / "out.tif", tile=(16, 16), ahead=ahead, progress=progress)
    assert counts["computed"] == counts["written"] == 40
    assert counts["most"] <= ahead + 1


def test_a_failure_leaves_the_file_as_it_was(tmp_path):
    def fail(block: np.ndarray, block_info=None) -> np.ndarray:
        if block_info[0]["chunk-location"][0] == 3:
            raise ZeroDivisionError
        return block

    before = image((30, 30))
    tagbridge.imwrite(tmp_path / "out.tif", before)
    array = da.zeros((100, 16), chunks=(16, 16), dtype=np.uint8)
    with pytest.raises(ZeroDivisionError):
        written(array.map_blocks(fail, dtype=np.uint8, meta=np.empty((0, 0), np.uint8)),
                tmp_path / "out.tif", tile=(16, 16))
    assert names(tmp_path) == ["out.tif"]
    assert np.array_equal(tagbridge.imread(tmp_path / "out.tif"), before)


@pytest.mark.parametrize(("array", "options", "error"), [
    (da.zeros((4, 4), chunks=2, dtype=complex), {}, TypeError),
    (da.zeros((4, 4, 4, 4), chunks=2), {}, ValueError),
    (da.zeros((4, 4), chunks=2), {"shape": (4, 4)}, TypeError),
    (da.zeros((4, 4), chunks=2), {"colour": "red"}, TypeError),
    (da.zeros((4, 4), chunks=2), {"tile": (5, 5), "rows_per_strip": 5}, ValueError),
    (da.zeros((4, 4), chunks=2)[da.arange(4, chunks=2) > 1], {}, ValueError),
])
@pytest.mark.parametrize("function", ["to_tiff", "to_tiffs"])
def test_what_cannot_be_written_is_refused_at_once(tmp_path, function, array, options, error):
    array = array.map_blocks(lambda block: pytest.fail("it was computed"), dtype=array.dtype,
                             meta=np.empty((0,) * array.ndim, array.dtype))
    with pytest.raises(error):
        getattr(tagbridge.dask, function)(array, tmp_path / "out", **options)
    assert names(tmp_path) == []


def test_ahead_is_a_number_of_rows(tmp_path):
    with pytest.raises(ValueError, match="ahead"):
        tagbridge.dask.to_tiff(da.zeros((4, 4)), tmp_path / "out.tif", ahead=-1)


# --- A folder

@pytest.mark.parametrize(("shape", "chunks", "options"), [
    ((100, 90), (30, 40), {}),
    ((100, 90, 3), (64, 90, 3), {"tile": (32, 32), "compression": "deflate"}),
    ((100, 90, 3), (50, 33, 1), {"planar": "separate", "tile": (16, 16)}),
    ((5, 5), (1, 5), {}),
], ids=str)
def test_a_folder_opens_again_and_equals_the_array(tmp_path, shape, chunks, options):
    pixels = image(shape, np.uint16)
    tagbridge.dask.to_tiffs(da.from_array(pixels, chunks=chunks), tmp_path / "folder", **options)
    array = tagbridge.dask.from_tiff(tmp_path / "folder")
    assert array.dtype == np.uint16
    assert np.array_equal(array.compute(), pixels)
    assert np.array_equal(array[3:-1:7, ::-2].compute(), pixels[3:-1:7, ::-2])


def test_each_row_of_chunks_is_a_tiled_file(tmp_path):
    tagbridge.dask.to_tiffs(da.zeros((100, 90), chunks=(40, 30), dtype=np.uint8), tmp_path)
    index, folder, *files = names(tmp_path)
    assert index == "index.json"
    assert files == [f"{folder}/00000{number}.tif" for number in range(3)]
    with tagbridge.open(tmp_path / files[2]) as tif:
        assert (tif.shape, tif.tiled, tif.block_shape) == ((20, 90), True, (256, 256))


def test_chunks_of_a_folder_begin_with_each_file(tmp_path):
    tagbridge.dask.to_tiffs(da.zeros((100, 90), chunks=(40, 30)), tmp_path, tile=(16, 96))
    assert tagbridge.dask.from_tiff(tmp_path).chunks == ((16, 16, 8, 16, 16, 8, 16, 4), (90,))
    array = tagbridge.dask.from_tiff(tmp_path, chunks=(80, 90))
    assert array.chunks[0] == (80, 20)
    with pytest.raises(IndexError):
        tagbridge.dask.from_tiff(tmp_path, directory=1)


def test_opening_a_folder_opens_no_file(tmp_path):
    tagbridge.dask.to_tiffs(da.zeros((100, 90), chunks=(40, 30)), tmp_path)
    for path in tmp_path.rglob("*.tif"):
        path.unlink()
    array = tagbridge.dask.from_tiff(tmp_path)
    assert array.shape == (100, 90)
    with pytest.raises(FileNotFoundError):
        array.compute()


def test_a_new_array_takes_the_place_of_the_old(tmp_path):
    for value in (1, 2):
        tagbridge.dask.to_tiffs(da.full((50, 40), value, chunks=20, dtype=np.uint8), tmp_path)
    assert np.all(tagbridge.dask.from_tiff(tmp_path).compute() == 2)
    assert len(names(tmp_path)) == 2 + 3


def test_an_array_can_take_its_own_place(tmp_path):
    pixels = image((64, 48))
    tagbridge.dask.to_tiffs(da.from_array(pixels, chunks=16), tmp_path)
    tagbridge.dask.to_tiffs(255 - tagbridge.dask.from_tiff(tmp_path), tmp_path)
    assert np.array_equal(tagbridge.dask.from_tiff(tmp_path).compute(), 255 - pixels)


def test_a_failure_leaves_the_old_array(tmp_path):
    def fail(block: np.ndarray, block_info=None) -> np.ndarray:
        return block // (3 - block_info[0]["chunk-location"][0])

    pixels = image((64, 48))
    tagbridge.dask.to_tiffs(da.from_array(pixels, chunks=16), tmp_path)
    before = names(tmp_path)
    bad = da.ones((64, 48), chunks=16, dtype=np.uint8).map_blocks(
        fail, dtype=np.uint8, meta=np.empty((0, 0), np.uint8))
    with (np.errstate(divide="raise"), dask.config.set(scheduler="synchronous"),
          pytest.raises(FloatingPointError)):
        tagbridge.dask.to_tiffs(bad, tmp_path)
    assert names(tmp_path) == before
    assert np.array_equal(tagbridge.dask.from_tiff(tmp_path).compute(), pixels)


@pytest.mark.parametrize("change", [
    {"version": 2}, {"format": "other"}, {"files": []}, {"dtype": "complex128"}, {"block": [0, 16]},
    {"block": [16, 16, 1]}, {"files": [{"name": "../x.tif", "shape": [4, 4]}]},
    {"files": [{"name": "/etc/x.tif", "shape": [4, 4]}]}, {"files": 3}, {"files": [{}]},
    {"files": [{"name": "x.tif", "shape": [True, 4]}]},
], ids=str)
def test_a_damaged_index_is_refused(tmp_path, change):
    tagbridge.dask.to_tiffs(da.zeros((50, 40), chunks=20), tmp_path)
    index = tmp_path / "index.json"
    index.write_text(json.dumps({**json.loads(index.read_text()), **change}))
    with pytest.raises(ValueError, match="index.json is no index of a folder of images"):
        tagbridge.dask.from_tiff(tmp_path)


def test_progress_of_a_folder_is_that_of_dask(tmp_path):
    with pytest.raises(TypeError, match="progress"):
        tagbridge.dask.to_tiffs(da.zeros((4, 4)), tmp_path, progress=True)
