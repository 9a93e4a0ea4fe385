"""Images: whole, in parts, block by block, and by several threads."""

from __future__ import annotations

import threading
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from images import EXAMPLES, image, write
from PIL import Image

LAYOUTS: list[dict[str, Any]] = [
    {"rowsperstrip": 16}, {"tile": (32, 48)}, {"rowsperstrip": 7, "compression": "zlib"},
    {"tile": (16, 16), "compression": "zlib"}]
SHAPES = [(75, 101), (75, 101, 3), (75, 101, 2), (1, 40), (40, 1), (3, 5, 4)]


@pytest.mark.parametrize("layout", LAYOUTS, ids=str)
@pytest.mark.parametrize("shape", SHAPES, ids=str)
def test_read_gives_the_image_in_fortran_order(tmp_path: Path, shape, layout):
    array = image(shape, np.uint16)
    write(tmp_path / "a.tif", array, "contig" if len(shape) == 3 else None, **layout)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        got = tif.read()
        assert (tif.shape, tif.dtype) == (got.shape, got.dtype) == (shape, np.dtype(np.uint16))
    assert got.flags.f_contiguous and got.flags.writeable
    np.testing.assert_array_equal(got, array)


@pytest.mark.parametrize("layout", LAYOUTS, ids=str)
def test_planes_apart_read_like_samples_together(tmp_path: Path, layout):
    array = image((75, 101, 3))
    write(tmp_path / "a.tif", array, "separate", **layout)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        np.testing.assert_array_equal(tif.read(), array)
        np.testing.assert_array_equal(tif[0][10:60:3, -30:, 1], array[10:60:3, -30:, 1])
        np.testing.assert_array_equal(tif[0][::-2, 4, ::2], array[::-2, 4, ::2])


@pytest.mark.parametrize("dtype", ["uint8", "int8", "uint16", "int16", "uint32", "int32", "float32",
                                   "float64", ">u2", ">f4"])
def test_dtypes_are_those_of_the_samples(tmp_path: Path, dtype: str):
    array = image((33, 20), dtype)
    tifffile.imwrite(tmp_path / "a.tif", array, photometric="minisblack", metadata=None,
                     byteorder=">" if dtype[0] == ">" else "<")
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert tif.read().dtype == tif.dtype == np.dtype(dtype).newbyteorder("=")
        np.testing.assert_array_equal(tif.read(), array)


def test_bits_come_as_bool():
    with tagbridge.open(EXAMPLES / "bilevel-group4.tif") as tif, \
            Image.open(EXAMPLES / "bilevel-group4.tif") as other:
        assert tif.dtype == np.bool_
        stored = np.asarray(other)
        if tif.photometric == tagbridge.Photometric.MIN_IS_WHITE:
            stored = ~stored
        np.testing.assert_array_equal(tif.read(), stored)


# --- out, threads, progress

@pytest.mark.parametrize("order", ["C", "F"])
def test_out_is_filled_and_returned(tiles, order: str):
    page, array = tiles
    out = np.ones(array.shape, np.uint16, order=order)
    assert page.read(out) is out
    np.testing.assert_array_equal(out, array)


def test_out_may_have_any_layout(tiles):
    page, array = tiles
    room = np.ones([2 * length for length in array.shape], np.uint16)
    out = room[tuple(slice(None, None, -2) for _ in array.shape)]
    np.testing.assert_array_equal(page.read(out=out), array)
    assert (room == 1).sum() >= room.size - array.size


def test_out_of_another_shape_is_a_value_error(tiles):
    page, array = tiles
    with pytest.raises(ValueError, match="shape"):
        page.read(np.empty((5, 5), np.uint16))


@pytest.mark.parametrize("out", [np.float64, ">u2", list])
def test_out_of_another_dtype_is_a_type_error(tiles, out):
    page, array = tiles
    with pytest.raises(TypeError):
        page.read([] if out is list else np.empty(array.shape, out))


def test_out_that_cannot_be_written_is_a_value_error(tiles):
    page, array = tiles
    out = np.zeros(array.shape, np.uint16)
    out.flags.writeable = False
    with pytest.raises(ValueError, match="written"):
        page.read(out)


@pytest.mark.parametrize("threads", [1, 2, 5, None])
def test_threads_read_the_same(tiles, threads):
    page, array = tiles
    np.testing.assert_array_equal(page.read(threads=threads), array)


def test_threads_decode_side_by_side_with_handles_of_their_own(tiles, monkeypatch):
    page, array = tiles
    together = threading.Barrier(3)
    another = page.file._another_handle

    def met():
        together.wait(10)  # breaks unless three threads are here at the same time
        return another()

    monkeypatch.setattr(page.file, "_another_handle", met)
    np.testing.assert_array_equal(page.read(threads=3), array)


def test_threads_read_sub_directories_too(tmp_path: Path):
    array = image((64, 48))
    with tifffile.TiffWriter(tmp_path / "a.tif") as writer:
        for _ in range(2):
            writer.write(array, subifds=1, photometric="minisblack", metadata=None)
            writer.write(array[::2], tile=(16, 16), photometric="minisblack", metadata=None)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        np.testing.assert_array_equal(tif[1].subdirectories[0].read(threads=2), array[::2])


@pytest.mark.parametrize("threads", [0, -1])
def test_no_threads_at_all_is_a_value_error(tiles, threads: int):
    with pytest.raises(ValueError, match="threads"):
        tiles[0].read(threads=threads)


@pytest.mark.parametrize("threads", [1, 2])
def test_progress_is_told_of_each_block(tiles, threads: int):
    page, _ = tiles
    told = []
    page.read(progress=lambda done, total: told.append((done, total)), threads=threads)
    assert told == [(n + 1, len(page.blocks)) for n in range(len(page.blocks))]


def test_an_exception_of_progress_ends_the_read(tiles):
    class Enough(Exception):
        pass

    def stop(done: int, _: int) -> None:
        if done == 2:
            raise Enough

    for threads in (1, 2):
        with pytest.raises(Enough):
            tiles[0].read(progress=stop, threads=threads)


def test_progress_true_is_a_bar_on_standard_error(tiles, capsys):
    tiles[0].read(progress=True)
    out, error = capsys.readouterr()
    assert out == "" and "block" in error and "100%" in error


# --- Indexing

KEYS: list[Any] = [
    ..., 5, -1, (3, 4), (-3, -4), slice(10, 20), (slice(10, 40), slice(30, 90)),
    (slice(None, None, -1), slice(None, None, 7)), (slice(70, 10, -13), 2), (slice(5, 5), 0),
    (slice(-200, 200), slice(-5, None)), (slice(0, 75, 40), slice(0, 101, 50)), (..., 0), (0, ...),
    (), (slice(60, 3), slice(None)), np.int16(7), (slice(None, None, -40), slice(None, None, -1))]


@pytest.mark.parametrize("key", KEYS, ids=str)
def test_indices_are_those_of_numpy(tiles, key):
    page, array = tiles
    got = page[key]
    np.testing.assert_array_equal(got, array[key])
    assert np.shape(got) == np.shape(array[key]) and got.dtype == array.dtype
    if np.ndim(got) > 1:
        assert got.flags.f_contiguous and got.flags.writeable


@pytest.mark.parametrize("key", [(slice(None), slice(None), 1), (slice(3, 50), 4, slice(None)),
                                 (..., slice(None, None, -1)), (1, 2, -3), (slice(2), slice(2), 0)],
                         ids=str)
def test_samples_are_the_third_index(tmp_path: Path, key):
    array = image((75, 101, 3))
    write(tmp_path / "a.tif", array, tile=(32, 32))
    with tagbridge.open(tmp_path / "a.tif") as tif:
        np.testing.assert_array_equal(tif[0][key], array[key])


@pytest.mark.parametrize("key", [75, -76, (0, 101), (0, -102), (0, 0, 3), (0, 0, 0, 0), (..., ...),
                                 None, [1, 2], np.array([True]), "a", 1.5, True], ids=str)
def test_an_index_beyond_the_edge_or_of_another_kind_is_an_index_error(tiles, key):
    with pytest.raises(IndexError):
        tiles[0][key]


def decoded(page: tagbridge.Directory, monkeypatch, use) -> list[int]:
    """The numbers of the tiles that are read meanwhile."""
    from tagbridge import _core

    numbers = []
    collect, read_blocks = _core.collect, _core.read_blocks

    def noting_all(operation, file, blocks, *others):
        numbers.extend(number for number, *_ in blocks)
        return read_blocks(operation, file, blocks, *others)

    def noting(operation, *inputs, **keywords):
        if operation == "readEncodedTile":
            numbers.append(inputs[1])
        return collect(operation, *inputs, **keywords)

    monkeypatch.setattr(_core, "collect", noting)
    monkeypatch.setattr(_core, "read_blocks", noting_all)
    use(page)
    return numbers


@pytest.mark.parametrize(("key", "numbers"), [
    ((0, 0), [0]), ((slice(30, 34), slice(0, 16)), [0, 7]), ((74, 100), [20]),
    ((slice(0, 75, 64), slice(0, 101, 32)), [0, 2, 4, 6, 14, 16, 18, 20]), (slice(3, 3), [])])
def test_only_blocks_that_are_touched_are_decoded(tiles, monkeypatch, key, numbers):
    assert decoded(tiles[0], monkeypatch, lambda page: page[key]) == numbers


def test_only_planes_that_are_touched_are_decoded(tmp_path: Path, monkeypatch):
    write(tmp_path / "a.tif", image((40, 40, 3)), "separate", tile=(32, 32))
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert decoded(tif[0], monkeypatch, lambda page: page[0, 0, 1]) == [4]


def test_asarray_is_read(tiles):
    page, array = tiles
    np.testing.assert_array_equal(np.asarray(page), array)
    assert np.asarray(page, dtype=np.float32).dtype == np.float32


def test_a_directory_is_not_iterated_by_rows(tiles):
    with pytest.raises(TypeError):
        iter(tiles[0])


# --- Blocks

def test_blocks_are_a_sequence(tiles):
    blocks = tiles[0].blocks
    assert len(blocks) == 21
    assert [block.index for block in blocks] == list(range(21))
    assert blocks[-1].index == 20 and [block.index for block in blocks[3:5]] == [3, 4]
    for index in (21, -22):
        with pytest.raises(IndexError):
            blocks[index]


def test_a_block_covers_its_part_of_the_image(tiles):
    page, array = tiles
    last = page.blocks[20]
    assert (last.rows, last.columns, last.plane) == (slice(64, 75), slice(96, 101), None)
    for block in page.blocks:
        np.testing.assert_array_equal(block.read(), array[block.rows, block.columns])


def test_blocks_of_planes_name_their_plane(tmp_path: Path):
    array = image((40, 40, 3))
    write(tmp_path / "a.tif", array, "separate", rowsperstrip=16)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert [block.plane for block in tif.blocks] == [0, 0, 0, 1, 1, 1, 2, 2, 2]
        block = tif.blocks[5]
        assert (block.rows, block.columns) == (slice(32, 40), slice(0, 40))
        np.testing.assert_array_equal(block.read(), array[32:40, :, 1])


# --- Several threads at one file

def test_threads_of_the_caller_may_share_a_file(tmp_path: Path):
    images = [image((50 + n, 40)) for n in range(4)]
    with tifffile.TiffWriter(tmp_path / "a.tif") as writer:
        for array in images:
            writer.write(array, photometric="minisblack", rowsperstrip=9, metadata=None)
    wrong = []
    with tagbridge.open(tmp_path / "a.tif") as tif:
        def work(number: int) -> None:
            for _ in range(20):
                page = tif[number]
                if not np.array_equal(page.read(), images[number]) or page.tags[
                        "ImageLength"] != 50 + number:
                    wrong.append(number)

        workers = [threading.Thread(target=work, args=(n,)) for n in range(4)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
    assert wrong == []


# --- imread

def test_imread_reads_a_directory(tmp_path: Path):
    first, second = image((8, 9)), image((7, 6))
    with tifffile.TiffWriter(tmp_path / "a.tif") as writer:
        for array in (first, second):
            writer.write(array, photometric="minisblack", metadata=None)
    np.testing.assert_array_equal(tagbridge.imread(tmp_path / "a.tif"), first)
    np.testing.assert_array_equal(tagbridge.imread(tmp_path / "a.tif", -1), second)
    out = np.empty((7, 6), np.uint8)
    assert tagbridge.imread(tmp_path / "a.tif", 1, out=out) is out
    with pytest.raises(IndexError):
        tagbridge.imread(tmp_path / "a.tif", 2)
