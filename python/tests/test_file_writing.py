"""Writing directories: data of every kind, options, sub-directories, and failures."""

from __future__ import annotations

import inspect
import io
import subprocess
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from images import image, pages, recorded
from osgeo import gdal
from PIL import Image
from tagbridge import Compression, ExtraSample, Photometric, Predictor

gdal.UseExceptions()
DTYPES = ["uint8", "uint16", "uint32", "int8", "int16", "int32", "float32", "float64"]


def written(path: Path, data: Any, **options: Any) -> tagbridge.File:
    """Write a file of one directory and open it for reading."""
    with tagbridge.open(path, "w") as tif:
        tif.write(data, **options)
    return tagbridge.open(path)


def accepted(path: Path, array: np.ndarray) -> None:
    """Let other programs open a file and compare the pixels where they can read them."""
    subprocess.run(["tiffinfo", "-D", str(path)], capture_output=True, check=True)
    tiffinfo = subprocess.run(["tiffinfo", str(path)], capture_output=True, text=True, check=True)
    assert tiffinfo.stderr == ""
    subprocess.run(["exiftool", "-validate", str(path)], capture_output=True, check=True)
    bands = gdal.Open(str(path)).ReadAsArray()
    got = np.moveaxis(bands, 0, 2) if bands.ndim == 3 else bands
    np.testing.assert_array_equal(got, array)
    with tifffile.TiffFile(path) as other:
        assert other.pages[0].shape[-2:] or other.pages[0].shape


# --- Data

@pytest.mark.parametrize("dtype", DTYPES)
@pytest.mark.parametrize("order", ["C", "F", "reversed", "swapped"])
def test_arrays_of_any_dtype_layout_and_byte_order(tmp_path: Path, dtype: str, order: str):
    array = image((33, 21), dtype)
    given = {"C": np.ascontiguousarray, "F": np.asfortranarray, "reversed": lambda a: a[::-1, ::-1],
             "swapped": lambda a: a.astype(a.dtype.newbyteorder())}[order](array)
    with written(tmp_path / "a.tif", given) as tif:
        assert tif.dtype == np.dtype(dtype)
        np.testing.assert_array_equal(tif.read(), given)
    accepted(tmp_path / "a.tif", given)


@pytest.mark.parametrize("samples", [1, 2, 3, 4, 5])
@pytest.mark.parametrize("layout", [{}, {"tile": (16, 32)}, {"rows_per_strip": 9}], ids=str)
@pytest.mark.parametrize("planar", ["contig", "separate"])
def test_samples_in_strips_and_tiles_together_and_apart(tmp_path: Path, samples, layout, planar):
    array = image((40, 50, samples), np.uint16)
    with written(tmp_path / "a.tif", array, planar=planar, **layout) as tif:
        wanted = array[:, :, 0] if samples == 1 else array
        np.testing.assert_array_equal(tif.read(), wanted)
        apart = planar == "separate" and samples > 1
        assert tif.planar == (2 if apart else 1)
        assert tif.tiled == ("tile" in layout)
        if layout:
            assert tif.block_shape == ((16, 32) if tif.tiled else (9, 50))
    accepted(tmp_path / "a.tif", wanted)


def test_bool_is_written_as_bits(tmp_path: Path):
    array = image((33, 21), bool)
    for options in ({}, {"tile": (16, 16)}, {"compression": "group4"}):
        with written(tmp_path / "a.tif", array, **options) as tif:
            assert (tif.metadata["BitsPerSample"], tif.dtype) == (1, np.bool_)
            np.testing.assert_array_equal(tif.read(), array)
        with Image.open(tmp_path / "a.tif") as other:
            np.testing.assert_array_equal(np.asarray(other), array)


@pytest.mark.parametrize(("dtype", "instead"), [
    ("int64", "int32"), ("uint64", "uint32"), ("float16", "float32"), ("complex64", "float32"),
    ("longdouble", "float64"), ("S3", "uint8"), ("M8[s]", "uint8"), ("O", "uint8")])
def test_other_dtypes_are_a_type_error_that_says_what_to_convert_to(tmp_path, dtype, instead):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        with pytest.raises(TypeError, match=f"convert them to .*{instead}"):
            tif.write(np.zeros((4, 4), dtype))


@pytest.mark.parametrize("shape", [(5,), (), (0, 5), (5, 0), (2, 3, 4, 5), (3, 3, 0)])
def test_what_is_no_image_is_a_value_error(tmp_path: Path, shape):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif, pytest.raises(ValueError):
        tif.write(np.zeros(shape, np.uint8))


def test_a_directory_can_be_written_again(tmp_path: Path):
    array = image((30, 20))
    with written(tmp_path / "a.tif", array) as tif, written(tmp_path / "b.tif", tif[0]) as copy:
        np.testing.assert_array_equal(copy.read(), array)


# --- What is derived

@pytest.mark.parametrize(("shape", "photometric", "extra"), [
    ((8, 9), "MIN_IS_BLACK", []), ((8, 9, 2), "MIN_IS_BLACK", [2]), ((8, 9, 3), "RGB", []),
    ((8, 9, 4), "RGB", [2]), ((8, 9, 5), "MIN_IS_BLACK", [0, 0, 0, 0])])
def test_photometric_and_extra_samples_follow_from_the_samples(tmp_path, shape, photometric, extra):
    with recorded() as said, written(tmp_path / "a.tif", image(shape)) as tif:
        assert tif.photometric is Photometric[photometric]
        assert tif.tags.get("ExtraSamples", np.array([])).tolist() == extra
    assert said == []


@pytest.mark.parametrize(("samples", "extra"), [(4, []), (5, [0]), (6, [0, 0])])
def test_extra_samples_are_those_beyond_the_photometric(tmp_path: Path, samples: int, extra):
    with written(tmp_path / "a.tif", image((8, 9, samples)), photometric="separated") as tif:
        assert tif.photometric is Photometric.SEPARATED
        assert tif.tags.get("ExtraSamples", np.array([])).tolist() == extra


def test_extra_samples_may_be_given(tmp_path: Path):
    for given in (["associated_alpha"], ExtraSample.ASSOCIATED_ALPHA, [1]):
        with written(tmp_path / "a.tif", image((8, 9, 4)), extra_samples=given) as tif:
            assert tif.tags["ExtraSamples"].tolist() == [1]


@pytest.mark.parametrize("kind", ["uint16", "float64", "float32"])
def test_a_colormap_makes_a_palette(tmp_path: Path, kind: str):
    table = image((256, 3), np.uint16)
    given = table if kind == "uint16" else (table / 65535).astype(kind)
    array = image((20, 30))
    with written(tmp_path / "a.tif", array, colormap=given) as tif:
        assert tif.photometric is Photometric.PALETTE
        np.testing.assert_array_equal(tif.read(), array)
    with tifffile.TiffFile(tmp_path / "a.tif") as other:
        np.testing.assert_allclose(np.array(other.pages[0].tags[320].value).reshape(3, 256).T, table,
                                   atol=0 if kind != "float32" else 1)
    with Image.open(tmp_path / "a.tif") as other:
        np.testing.assert_array_equal(np.asarray(other), array)


def test_a_16_bit_colormap_keeps_every_value(tmp_path: Path):
    table = np.stack([np.arange(65536)] * 3, axis=1).astype(np.uint16)
    with written(tmp_path / "a.tif", image((4, 4), np.uint16), colormap=table):
        pass
    with tifffile.TiffFile(tmp_path / "a.tif") as other:
        np.testing.assert_array_equal(np.ravel(other.pages[0].tags[320].value), table.T.ravel())


def test_a_colormap_of_another_dtype_is_a_type_error(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif, pytest.raises(TypeError, match="colormap"):
        tif.write(image((4, 4)), colormap=np.zeros((256, 3), np.uint8))


@pytest.mark.parametrize(("shape", "dtype", "rows"), [
    ((5000, 1000), "uint8", 262), ((5000, 100), "float64", 327), ((100, 1000, 3), "uint8", 87),
    ((10, 10), "uint8", 10), ((4, 300000), "uint8", 1), ((100, 20000), bool, 100)])
def test_strips_have_about_256_kib(tmp_path: Path, shape, dtype, rows):
    with written(tmp_path / "a.tif", np.zeros(shape, dtype)) as tif:
        assert (tif.tiled, tif.block_shape[0]) == (False, rows)


@pytest.mark.parametrize(("rows", "strip"), [(2000, 256), (100, 96), (8, 8), (20, 16)])
def test_strips_of_jpeg_have_a_multiple_of_8_rows(tmp_path: Path, rows: int, strip: int):
    with written(tmp_path / "a.tif", np.zeros((rows, 1000), np.uint8), compression="jpeg") as tif:
        assert tif.block_shape == (strip, 1000)


def test_an_image_too_low_for_strips_of_jpeg_is_written_all_the_same(tmp_path: Path):
    array = np.full((5, 40), 130, np.uint8)
    with written(tmp_path / "a.tif", array, compression="jpeg") as tif:
        np.testing.assert_array_equal(tif.read(), array)


# --- Options

COMPRESSIONS = {"none": 1, "packbits": 32773, "lzw": 5, "deflate": 8, "NONE": 1, "Deflate": 8,
                Compression.LZW: 5, Compression.DEFLATE: 32946, 8: 8, None: 1}


@pytest.mark.parametrize("compression", COMPRESSIONS, ids=str)
@pytest.mark.parametrize("layout", [{}, {"tile": (32, 32)}], ids=str)
def test_compressions_by_name_and_member(tmp_path: Path, compression, layout):
    array = image((70, 50), np.uint16) // 4096
    with written(tmp_path / "a.tif", array, compression=compression, **layout) as tif:
        assert tif.compression == COMPRESSIONS[compression]
        np.testing.assert_array_equal(tif.read(), array)
    accepted(tmp_path / "a.tif", array)


@pytest.mark.parametrize("compression", ["group3", "group4"])
def test_fax_compressions(tmp_path: Path, compression: str):
    array = image((70, 50), bool)
    with written(tmp_path / "a.tif", array, compression=compression) as tif:
        assert tif.compression is Compression[f"CCITT_{compression.upper()}"]
        np.testing.assert_array_equal(tif.read(), array)


@pytest.mark.parametrize("option", [
    {"compression": "zip"}, {"photometric": "blue"}, {"planar": "both"}, {"predictor": "clever"},
    {"resolution_unit": "mile"}, {"extra_samples": ["beta"]}, {"level": 5},
    {"tile": (16, 16), "rows_per_strip": 4}, {"rows_per_strip": 0}, {"tile": (16,)},
    {"shape": (3, 3)}], ids=str)
def test_an_unknown_value_of_an_option_is_a_value_error(tmp_path: Path, option):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif, pytest.raises(ValueError):
        tif.write(image((8, 9)), **option)


def test_an_unknown_option_is_a_type_error(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif, pytest.raises(TypeError):
        tif.write(image((8, 9)), color=3)


def test_a_tile_of_no_multiple_of_16_is_refused(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif, pytest.raises(tagbridge.Error) as caught:
        tif.write(image((80, 90)), tile=(24, 32))
    assert caught.value.identifier.endswith("badTileDimension")


@pytest.mark.parametrize(("dtype", "predictor", "stored"), [
    ("uint16", True, 2), ("int16", True, 2), ("float32", True, 3), ("uint8", "horizontal", 2),
    ("uint8", Predictor.NONE, 1), ("float64", Predictor.FLOATING_POINT, 3)])
@pytest.mark.parametrize("compression", ["lzw", "deflate"])
def test_predictors(tmp_path: Path, dtype, predictor, stored, compression):
    array = image((60, 40), dtype)
    with written(tmp_path / "a.tif", array, compression=compression, predictor=predictor) as tif:
        assert tif.tags["Predictor"] == stored
        np.testing.assert_array_equal(tif.read(), array)
    accepted(tmp_path / "a.tif", array)


@pytest.mark.parametrize("compression", ["jpeg", "deflate"])
def test_level_is_the_quality_of_the_codec(tmp_path: Path, compression: str):
    x, y = np.meshgrid(np.arange(256), np.arange(256))
    array = ((x * y) // 97 % 256).astype(np.uint8)
    sizes = []
    for level in (1, 9) if compression == "deflate" else (95, 5):
        written(tmp_path / "a.tif", array, compression=compression, level=level).close()
        sizes.append((tmp_path / "a.tif").stat().st_size)
    assert sizes[0] > sizes[1]


@pytest.mark.parametrize(("resolution", "unit", "wanted"), [
    (300, None, (300, 300, 2)), ((200, 100.5), "centimeter", (200, 100.5, 3)),
    (2, "none", (2, 2, 1)), (None, "inch", (None, None, 2))])
def test_resolution(tmp_path: Path, resolution, unit, wanted):
    with written(tmp_path / "a.tif", image((4, 4)), resolution=resolution,
                 resolution_unit=unit) as tif:
        assert tuple(map(tif.tags.get, (282, 283, 296))) == wanted


def test_description_and_tags_are_stored(tmp_path: Path):
    tags = {"Artist": "Zoë", 306: "2024:01:31 12:00:00", "Orientation": "top_right"}
    with written(tmp_path / "a.tif", image((4, 4)), description="a picture ë", tags=tags) as tif:
        assert tif.tags["ImageDescription"] == "a picture ë"
        assert tif.tags["Artist"] == "Zoë" and tif.tags["Orientation"] == 2
        assert tif.tags["DateTime"] == tags[306]


def test_progress_is_told_of_each_block(tmp_path: Path):
    told = []
    written(tmp_path / "a.tif", image((100, 10)), rows_per_strip=40,
            progress=lambda *numbers: told.append(numbers)).close()
    assert told == [(1, 3), (2, 3), (3, 3)]


def test_the_signature_names_every_option():
    names = list(inspect.signature(tagbridge.File.write).parameters)
    assert names == ["self", "data", "photometric", "compression", "predictor", "tile",
                     "rows_per_strip", "planar", "extra_samples", "colormap", "resolution",
                     "resolution_unit", "description", "level", "subdirectories", "tags", "shape",
                     "dtype", "progress"]


# --- JPEG and YCbCr

@pytest.mark.parametrize("shape", [(64, 80), (64, 80, 3), (61, 75, 3)])
@pytest.mark.parametrize("layout", [{}, {"tile": (32, 48)}], ids=str)
def test_jpeg(tmp_path: Path, shape, layout):
    array = np.broadcast_to(np.arange(shape[0])[:, None, None] * 2 + 60, (*shape, 3)[:3])
    array = array[..., 0] if len(shape) == 2 else array
    array = array.astype(np.uint8)
    with written(tmp_path / "a.tif", array, compression="jpeg", level=95, **layout) as tif:
        assert np.abs(tif.read().astype(int) - array).max() < 6
    with Image.open(tmp_path / "a.tif") as other:
        assert np.abs(np.asarray(other).astype(int) - array).max() < 6


@pytest.mark.parametrize("factors", [(1, 1), (2, 1), (2, 2)])
@pytest.mark.parametrize("layout", [{}, {"tile": (16, 16)}, {"rows_per_strip": 8}], ids=str)
def test_ycbcr_without_jpeg_takes_what_raw_gives(tmp_path: Path, factors, layout):
    planes = image((20, 26, 3))
    across, down = factors
    chroma = planes[::down, ::across, 1:].repeat(down, 0).repeat(across, 1)[:20, :26]
    stored = np.concatenate([planes[:, :, :1], chroma], axis=2)
    with written(tmp_path / "a.tif", stored, photometric="ycbcr",
                 tags={"YCbCrSubsampling": factors}, **layout) as tif:
        np.testing.assert_array_equal(tif.read(raw=True), stored)


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


GOOD = [np.zeros((10, 20), np.uint8)] * 3
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


# --- Sub-directories

def test_the_next_writes_become_sub_directories(tmp_path: Path):
    array = image((64, 48))
    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        for _ in range(2):
            tif.write(array, subdirectories=2)
            tif.write(array[::2, ::2], tags={"SubfileType": "reduced_image"})
            tif.write(array[::4, ::4], tags={"SubfileType": "reduced_image"})
        tif.write(array[:5])
        assert len(tif) == 3
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert [len(page.subdirectories) for page in tif] == [2, 2, 0]
        for page in list(tif)[:2]:
            for step, level in zip((2, 4), page.subdirectories, strict=True):
                np.testing.assert_array_equal(level.read(), array[::step, ::step])
    with tifffile.TiffFile(tmp_path / "a.tif") as other:
        assert len(other.pages) == 3
        assert [page.shape for page in other.pages[1].pages] == [(32, 24), (16, 12)]


def test_sub_directories_have_none_below(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        tif.write(image((8, 8)), subdirectories=1)
        with pytest.raises(ValueError, match="sub-director"):
            tif.write(image((4, 4)), subdirectories=1)
        tif.write(image((4, 4)))


# --- Modes

def test_a_file_that_is_written_only_writes(tmp_path: Path):
    for mode in ("w", "x8", "a"):
        with tagbridge.open(tmp_path / f"{mode}.tif", mode) as tif:
            tif.write(image((4, 4)))
            assert len(tif) == 1
            for use in (lambda: tif[0], lambda: iter(tif), tif.read, lambda: tif.tags,
                        lambda: tif.shape, lambda: tif.blocks, tif.rgba, lambda: tif[0:1]):
                with pytest.raises(io.UnsupportedOperation):
                    use()
            assert "1 directory" in repr(tif)


@pytest.mark.parametrize("mode", ["r", "r+"])
def test_writing_needs_a_writing_mode(gray: Path, mode: str):
    with tagbridge.open(gray, mode) as tif, pytest.raises(io.UnsupportedOperation):
        tif.write(image((4, 4)))


def test_append_counts_what_it_wrote(tmp_path: Path):
    images = pages(tmp_path / "a.tif")
    with tagbridge.open(tmp_path / "a.tif", "a") as tif:
        assert len(tif) == 0
        tif.write(images[0])
        assert len(tif) == 1
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 4
        for page, array in zip(tif, [*images, images[0]], strict=True):
            np.testing.assert_array_equal(page.read(), array)


def test_append_makes_a_file_that_does_not_exist(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "a8") as tif:
        tif.write(image((4, 4)))
        assert tif.bigtiff
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 1 and tif.bigtiff


@pytest.mark.parametrize("mode", ["w", "x", "a", "w8b"])
def test_a_new_file_without_a_directory_is_removed(tmp_path: Path, mode: str):
    with tagbridge.open(tmp_path / "a.tif", mode):
        assert (tmp_path / "a.tif").exists()
    assert list(tmp_path.iterdir()) == []
    with tagbridge.open(tmp_path / "a.tif", mode) as tif, pytest.raises(ValueError):
        tif.write(iter(GOOD[:2]), shape=(30, 20), dtype="uint8", rows_per_strip=10)
    assert list(tmp_path.iterdir()) == []


def test_appending_nothing_leaves_the_file(tmp_path: Path):
    pages(tmp_path / "a.tif")
    before = (tmp_path / "a.tif").read_bytes()
    with tagbridge.open(tmp_path / "a.tif", "a"):
        pass
    assert (tmp_path / "a.tif").read_bytes() == before


def test_a_file_that_cannot_be_written_anew_is_left(gray: Path):
    before = gray.read_bytes()
    with tagbridge.open(gray):
        with pytest.raises(tagbridge.Error):
            tagbridge.open(gray, "w")
    assert gray.read_bytes() == before


# --- imwrite

def test_imwrite_writes_a_file(tmp_path: Path):
    array = image((30, 40, 3))
    tagbridge.imwrite(tmp_path / "a.tif", array, compression="lzw", tile=(16, 16))
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 1 and tif.compression is Compression.LZW and not tif.bigtiff
        np.testing.assert_array_equal(tif.read(), array)
    accepted(tmp_path / "a.tif", array)


def test_imwrite_appends(tmp_path: Path):
    for append in (False, True, True):
        tagbridge.imwrite(tmp_path / "a.tif", image((5, 5)), append=append)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 3


@pytest.mark.parametrize(("rows", "big"), [(38_999, False), (39_001, True)])
def test_imwrite_takes_bigtiff_for_more_than_3_9_gb(tmp_path: Path, monkeypatch, rows, big):
    from tagbridge import functions

    modes = []
    monkeypatch.setattr(functions, "_write", lambda _, mode, *__: modes.append(mode))
    huge = np.broadcast_to(np.uint8(0), (rows, 100_000))
    tagbridge.imwrite(tmp_path / "a.tif", huge)
    tagbridge.imwrite(tmp_path / "a.tif", iter([]), shape=huge.shape, dtype="uint8")
    tagbridge.imwrite(tmp_path / "a.tif", huge, bigtiff=not big)
    assert modes == ["w8" if big else "w"] * 2 + ["w" if big else "w8"]


def test_imwrite_may_be_told_to_take_bigtiff(tmp_path: Path):
    tagbridge.imwrite(tmp_path / "a.tif", image((5, 5)), bigtiff=True)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert tif.bigtiff


@pytest.mark.parametrize("there", [False, True])
def test_imwrite_that_fails_leaves_what_was_there(tmp_path: Path, there: bool):
    path = tmp_path / "a.tif"
    if there:
        path.write_bytes(b"something else")
    with pytest.raises(ValueError):
        tagbridge.imwrite(path, iter(GOOD[:2]), shape=(30, 20), dtype="uint8", rows_per_strip=10)
    assert [file.read_bytes() for file in tmp_path.iterdir()] == [b"something else"] * there


def test_imwrite_keeps_permissions_and_links(tmp_path: Path):
    path, link = tmp_path / "a.tif", tmp_path / "link.tif"
    path.write_bytes(b"old")
    path.chmod(0o640)
    link.symlink_to(path)
    tagbridge.imwrite(link, image((5, 5)))
    assert link.is_symlink() and path.stat().st_mode & 0o777 == 0o640
    assert tagbridge.imread(path).shape == (5, 5)


def test_imwrite_reports_a_bad_place_with_its_name(tmp_path: Path):
    for path, kind in ((tmp_path, IsADirectoryError), (tmp_path / "no" / "a.tif", FileNotFoundError)):
        with pytest.raises(kind) as caught:
            tagbridge.imwrite(path, image((5, 5)))
        assert caught.value.filename == str(path)


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
