"""Writing directories: data of every kind, what follows from them, and options."""

from __future__ import annotations

import inspect
from pathlib import Path

import numpy as np
import pytest
import tagbridge
import tifffile
from images import image, recorded
from PIL import Image
from tagbridge import Compression, ExtraSample, Photometric, Predictor
from writing import accepted, written

DTYPES = ["uint8", "uint16", "uint32", "int8", "int16", "int32", "float32", "float64"]


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
        stored = np.array(other.pages[0].tags[320].value).reshape(3, 256).T
        np.testing.assert_allclose(stored, table, atol=0 if kind != "float32" else 1)
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
