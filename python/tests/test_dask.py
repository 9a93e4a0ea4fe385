"""Files as lazy Dask arrays, with the schedulers of one machine."""

from __future__ import annotations

import multiprocessing
import os
import pickle
import subprocess
import sys
import warnings
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import dask.array as da
import numpy as np
import pytest
import tagbridge
import tagbridge.dask
from dask.array.core import PerformanceWarning
from hypothesis import given, settings
from hypothesis import strategies as st
from images import EXAMPLES, damage, image, pages, recorded
from tagbridge.dask.span import Span
from tagbridge.handle import FIRST
from tagbridge.image_source import BAND_BYTES, ImageSource
from tagbridge.open_files import OPEN_FILES, OpenFiles


@pytest.fixture
def tiles(tmp_path: Path) -> tuple[Path, np.ndarray]:
    """An RGB image of 7 x 5 tiles."""
    path, pixels = tmp_path / "tiles.tif", image((200, 150, 3))
    tagbridge.imwrite(path, pixels, tile=(32, 32), compression="deflate")
    return path, pixels


def files(folder: Path, count: int, shape: tuple[int, ...] = (50, 40)
          ) -> tuple[list[Path], np.ndarray]:
    stack = image((count, *shape))
    paths = [folder / f"{number}.tif" for number in range(count)]
    for path, pixels in zip(paths, stack):
        tagbridge.imwrite(path, pixels, tile=(16, 16))
    return paths, stack


def same(array: da.Array, expected: np.ndarray) -> bool:
    return np.array_equal(array.compute(), expected)


def test_a_chunk_is_a_tile(tiles):
    array = tagbridge.dask.from_tiff(tiles[0])
    assert (array.shape, array.dtype) == ((200, 150, 3), np.uint8)
    assert array.chunks == ((32,) * 6 + (8,), (32,) * 4 + (22,), (3,))
    assert same(array, tiles[1])


def test_planes_are_chunks_of_their_own(tmp_path):
    path, pixels = tmp_path / "planes.tif", image((40, 50, 3), np.uint16)
    tagbridge.imwrite(path, pixels, tile=(32, 32), planar="separate")
    array = tagbridge.dask.from_tiff(path)
    assert array.chunks[2] == (1, 1, 1)
    assert same(array, pixels)


def test_a_chunk_is_a_band_of_strips(tmp_path):
    path, pixels = tmp_path / "strips.tif", image((3000, 3001))
    tagbridge.imwrite(path, pixels, rows_per_strip=7)
    array = tagbridge.dask.from_tiff(path)
    band = array.chunks[0][0]
    assert band % 7 == 0 and BAND_BYTES - 7 * 3001 < band * 3001 <= BAND_BYTES
    assert array.chunks[1] == (3001,)
    assert same(array, pixels)


@pytest.mark.parametrize("example", sorted(path.name for path in EXAMPLES.glob("*.tif")))
def test_every_kind_of_image_is_read(example):
    array = tagbridge.dask.from_tiff(EXAMPLES / example)
    with tagbridge.open(EXAMPLES / example) as tif:
        assert (array.shape, array.dtype) == (tif.shape, tif.dtype)
        assert same(array, tif.read())


@pytest.mark.parametrize("key", [np.s_[33], np.s_[-1, :, 2], np.s_[10:190:7, ::-1], np.s_[..., 0],
                                 np.s_[5:5], np.s_[[3, 100, 7], 4:90]])
def test_parts_are_those_of_numpy(tiles, key):
    assert same(tagbridge.dask.from_tiff(tiles[0])[key], tiles[1][key])


@pytest.mark.parametrize("scheduler", ["synchronous", "threads", "processes"])
def test_schedulers_give_what_numpy_gives(tiles, scheduler):
    array = tagbridge.dask.from_tiff(tiles[0], chunks=(96, 64, 3))
    found = (array.astype(int) ** 2).sum(axis=0).compute(scheduler=scheduler, num_workers=2)
    assert np.array_equal(found, (tiles[1].astype(int) ** 2).sum(axis=0))


def test_the_directory_is_chosen(tmp_path):
    images = pages(tmp_path / "pages.tif")
    for number in (1, -1):
        array = tagbridge.dask.from_tiff(tmp_path / "pages.tif", directory=number)
        assert same(array, images[number])
    with pytest.raises(IndexError):
        tagbridge.dask.from_tiff(tmp_path / "pages.tif", directory=3)


# --- Chunks

@pytest.mark.parametrize("chunks", [(64, 32, 3), (-1, 96, -1), {0: 32, 1: -1, 2: -1}, "auto",
                                    ((160, 40), (150,), (3,))])
def test_multiples_of_blocks_are_decoded_once(tiles, chunks):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert same(tagbridge.dask.from_tiff(tiles[0], chunks=chunks), tiles[1])


@pytest.mark.parametrize(("chunks", "times"), [((100, 150, 3), "1.14"), ((32, 32, 1), "3"),
                                               ((20, 32, 3), "2.14")])
def test_other_chunks_are_a_warning(tiles, chunks, times):
    with pytest.warns(PerformanceWarning, match=f"are decoded {times} times") as caught:
        array = tagbridge.dask.from_tiff(tiles[0], chunks=chunks)
    assert caught[0].filename == __file__
    assert array.chunksize == chunks
    assert same(array, tiles[1])


def test_a_slice_decodes_the_tiles_that_it_touches(tiles):
    damage(tiles[0], block=0)
    array = tagbridge.dask.from_tiff(tiles[0], chunks=(-1, -1, -1), strict=True)
    assert same(array[40:50, 40:60], tiles[1][40:50, 40:60])
    with pytest.raises(tagbridge.DecodeError):
        array.compute()


def test_chunks_of_other_axes_are_refused(tiles):
    with pytest.raises(ValueError):
        tagbridge.dask.from_tiff(tiles[0], chunks=(32, 32))


# --- Stacks

def test_many_paths_stack_along_a_new_axis(tmp_path):
    paths, stack = files(tmp_path, 3)
    array = tagbridge.dask.from_tiff(paths)
    assert array.chunks == ((1, 1, 1), (16, 16, 16, 2), (16, 16, 8))
    assert same(array, stack)
    assert same(array[::-2, 3:20, -5], stack[::-2, 3:20, -5])
    assert tagbridge.dask.from_tiff(paths[:1]).shape == (1, 50, 40)


def test_a_chunk_may_hold_several_files(tmp_path):
    paths, stack = files(tmp_path, 5, (50, 40, 3))
    array = tagbridge.dask.from_tiff(iter(paths), chunks=(2, 32, -1, -1))
    assert array.chunks[0] == (2, 2, 1)
    assert same(array, stack)
    assert same(array[1:5:3].mean(axis=0), stack[1:5:3].mean(axis=0))


@pytest.mark.parametrize("options", [{"tile": (16, 32)}, {"shape": (51, 40)}, {"dtype": np.uint16}])
def test_another_layout_is_refused(tmp_path, options):
    paths, _ = files(tmp_path, 2)
    pixels = image(options.pop("shape", (50, 40)), options.pop("dtype", np.uint8))
    tagbridge.imwrite(paths[1], pixels, **{"tile": (16, 16), **options})
    with pytest.raises(ValueError, match="images must have one layout: .*0.tif has .*1.tif has"):
        tagbridge.dask.from_tiff(paths)


@st.composite
def keys(draw, shape: tuple[int, ...]):
    return tuple(draw(st.integers(-length, length - 1) | st.slices(length)) for length in shape)


@pytest.fixture(scope="module")
def spans(tmp_path_factory) -> dict[bool, tuple[Span, np.ndarray]]:
    """Three images, as a stack and below each other."""
    folder = tmp_path_factory.mktemp("spans")
    paths, stack = files(folder, 3, (21, 18, 2))
    images = []
    for path in paths:
        with tagbridge.open(path) as tif:
            images.append(ImageSource.of(tif[0]))
    return {True: (Span(images, True, False), stack),
            False: (Span(images, False, False), np.concatenate(stack))}


@settings(max_examples=150, deadline=None)
@given(data=st.data(), stacked=st.booleans())
def test_any_index_of_several_images_is_that_of_numpy(spans, data, stacked):
    span, pixels = spans[stacked]
    key = data.draw(keys(pixels.shape))
    assert np.array_equal(span[key], pixels[key])


@settings(max_examples=100, deadline=None)
@given(data=st.data(), stacked=st.booleans())
def test_the_images_between_two_places_are_those_of_numpy(spans, data, stacked):
    span, pixels = spans[stacked]
    first, stop = sorted(data.draw(st.sets(st.integers(0, len(pixels)), min_size=2, max_size=2)))
    part, start = span.between(first, stop)
    assert np.array_equal(part[first - start:stop - start], pixels[first:stop])


def test_wrong_paths_are_refused(tmp_path):
    for paths, error in [([], ValueError), (5, TypeError), (tmp_path / "no.tif", FileNotFoundError),
                         ([tmp_path], IsADirectoryError), (tmp_path, FileNotFoundError)]:
        with pytest.raises(error):
            tagbridge.dask.from_tiff(paths)


# --- Damage and change

@pytest.mark.parametrize("scheduler", ["synchronous", "threads"])
def test_a_damaged_block_is_a_warning_and_zeros(tiles, scheduler):
    path, pixels = tiles
    damage(path, block=6)
    array = tagbridge.dask.from_tiff(path, chunks=(64, 64, 3))
    with recorded() as said:
        found = array.compute(scheduler=scheduler)
    expected = pixels.copy()
    expected[32:64, 32:64] = 0
    assert np.array_equal(found, expected)
    assert len(said) == 1 and said[0].identifier.endswith("libtiffError")


def test_a_damaged_block_is_an_error_when_strict(tiles):
    damage(tiles[0], block=6)
    with pytest.raises(tagbridge.DecodeError) as caught:
        tagbridge.dask.from_tiff(tiles[0], strict=True).compute(scheduler="processes",
                                                                num_workers=1)
    assert caught.value.blocks == [6]


def test_a_file_that_was_replaced_by_another_image_is_refused(tiles):
    array = tagbridge.dask.from_tiff(tiles[0])
    array.compute()
    tagbridge.imwrite(tiles[0], image((200, 151, 3)), tile=(32, 32))
    with pytest.raises(ValueError, match="tiles.tif is not what it was"):
        array.compute()


def test_a_file_that_was_written_anew_has_another_name_in_the_graph(tiles):
    before = tagbridge.dask.from_tiff(tiles[0]).name
    assert tagbridge.dask.from_tiff(tiles[0]).name == before
    tagbridge.imwrite(tiles[0], 255 - tiles[1], tile=(32, 32), compression="deflate")
    os.utime(tiles[0], ns=(0, 12345))
    array = tagbridge.dask.from_tiff(tiles[0])
    assert array.name != before
    assert same(array, 255 - tiles[1])


def test_what_libtiff_says_of_a_file_is_said_once(unknown_tag):
    with recorded() as said:
        array = tagbridge.dask.from_tiff(unknown_tag)
    assert len(said) == 1
    with recorded() as said:
        array.compute()
    assert said == []


# --- Open files

def test_few_files_stay_open(tmp_path):
    paths, stack = files(tmp_path, 30)
    OPEN_FILES.close()
    assert same(tagbridge.dask.from_tiff(paths), stack)
    opened = [os.path.realpath(link) for link in Path("/proc/self/fd").iterdir()]
    assert sum(path.startswith(str(tmp_path)) for path in opened) <= 16
    assert 0 < len(OPEN_FILES) <= 16


def test_those_used_last_stay_open(tmp_path):
    paths, _ = files(tmp_path, 3)
    open_files = OpenFiles(2)

    def borrow(path: Path) -> tagbridge.File:
        with open_files.borrowed(str(path), FIRST) as lent:
            return lent.directory.file

    first, second = borrow(paths[0]), borrow(paths[1])
    assert borrow(paths[0]) is first
    borrow(paths[2])
    assert (first.closed, second.closed) == (False, True)
    open_files.close()
    assert first.closed


def test_two_at_a_time_have_two_handles(tmp_path):
    (path,), _ = files(tmp_path, 1)
    open_files = OpenFiles(2)
    with (open_files.borrowed(str(path), FIRST) as one,
          open_files.borrowed(str(path), FIRST) as two):
        assert one.directory.file is not two.directory.file
    open_files.close()


def test_a_file_whose_reading_failed_is_closed(tmp_path):
    (path,), _ = files(tmp_path, 1)
    open_files = OpenFiles(2)
    with pytest.raises(ZeroDivisionError), open_files.borrowed(str(path), FIRST) as lent:
        _ = 1 / 0
    assert lent.directory.file.closed and len(open_files) == 0


def test_many_threads_share_the_files(tmp_path):
    paths, stack = files(tmp_path, 20)
    array = tagbridge.dask.from_tiff(paths)
    with ThreadPoolExecutor(8) as pool:
        sums = list(pool.map(lambda number: int(array[number % 20].sum().compute()), range(60)))
    assert sums == [int(stack[number % 20].sum()) for number in range(60)]
    assert len(OPEN_FILES) <= 16


@pytest.mark.skipif("libasan" in os.environ.get("LD_PRELOAD", ""),
                    reason="the sanitizer's allocator does not survive such a fork")
def test_a_child_opens_its_own_files(tiles):
    array = tagbridge.dask.from_tiff(tiles[0])
    array.compute(scheduler="synchronous")
    context = multiprocessing.get_context("fork")
    with context.Pool(1) as pool:
        total = pool.apply(int, (0,)) + pool.apply(_sum, (array,))
    assert total == int(tiles[1].sum())
    assert same(array, tiles[1])


def _sum(array: da.Array) -> int:
    return int(array.sum().compute(scheduler="synchronous"))


# --- What it weighs

def test_tasks_are_small(tmp_path):
    paths, _ = files(tmp_path, 50)
    array = tagbridge.dask.from_tiff(paths)
    for task in list(dict(array.__dask_graph__()).values())[::50]:
        assert len(pickle.dumps(task)) < 1000


def test_a_program_ends_in_silence(tiles):
    script = f"import tagbridge.dask; tagbridge.dask.from_tiff({str(tiles[0])!r}).sum().compute()"
    ended = subprocess.run([sys.executable, "-c", script], capture_output=True, check=False)
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, b"", b"")


def test_the_package_does_without():
    script = ("import sys, tagbridge; "
              "sys.exit(any(name in sys.modules for name in ('dask', 'distributed', 'zarr')))")
    assert subprocess.run([sys.executable, "-c", script], check=False).returncode == 0
