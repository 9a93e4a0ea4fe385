"""Tags of a directory: which are there, and their values in Python."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from images import EXAMPLES, image
from tag_table import ROWS
from tagbridge import (
    Compression,
    ExtraSample,
    FillOrder,
    InkSet,
    Orientation,
    Photometric,
    PlanarConfiguration,
    Predictor,
    ResolutionUnit,
    SampleFormat,
    SubfileType,
    YCbCrPositioning,
)


def stored(path: Path, tags: dict[Any, Any], **options: Any) -> tagbridge.File:
    """Write a small file with those tags and open it for reading."""
    options.setdefault("data", image((8, 9)))
    with tagbridge.open(path, "w") as tif:
        tif.write(options.pop("data"), tags=tags, **options)
    return tagbridge.open(path)


# --- The mapping

def test_tags_are_those_of_the_file_in_order_of_number(file: Path):
    with tagbridge.open(file) as tif, tifffile.TiffFile(file) as other:
        numbers = {tag.code for tag in other.pages[0].tags} | {284}  # libtiff sets that itself
        wanted = [ROWS[number].name for number in sorted(numbers)
                  if number in ROWS and ROWS[number].readable]
        assert list(tif.tags) == wanted
        assert len(tif.tags) == len(wanted)


@pytest.mark.parametrize("example", sorted(EXAMPLES.glob("*.tif")), ids=lambda path: path.stem)
def test_tags_of_the_examples_are_those_of_the_files(example: Path):
    with tagbridge.open(example) as tif, tifffile.TiffFile(example) as other:
        for mine, its in zip(tif, other.pages, strict=True):
            present = {tag.code for tag in its.tags}
            names = {ROWS[code].name for code in present if code in ROWS and ROWS[code].readable}
            assert set(mine.tags) - names <= {"PlanarConfiguration"}
            assert names <= set(mine.tags)


def test_name_and_number_lead_to_the_same(file: Path):
    with tagbridge.open(file) as tif:
        assert tif.tags["ImageWidth"] == tif.tags[256] == tif.tags[np.uint16(256)] == 30
        assert "ImageWidth" in tif.tags and 256 in tif.tags


@pytest.mark.parametrize("key", ["NoSuchTag", "imagewidth", 1, 65000, -1, 2**70, 1.5, None, (1,),
                                 "CellWidth", 264, "Artist", 315, "Orientation", 274,
                                 "JPEGQuality", 65537, "JPEGColorMode", "TileWidth", "TileOffsets"])
def test_an_unknown_or_absent_tag_is_a_key_error(file: Path, key):
    with tagbridge.open(file) as tif:
        with pytest.raises(KeyError) as caught:
            tif.tags[key]
        assert caught.value.args == (key,)
        assert key not in tif.tags
        assert tif.tags.get(key, "nothing") == "nothing"


def test_offsets_are_those_of_strips_or_of_tiles(tmp_path: Path):
    tifffile.imwrite(tmp_path / "a.tif", image((40, 40)), tile=(16, 16), photometric="minisblack")
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert "TileOffsets" in tif.tags and "StripOffsets" not in tif.tags
        assert 325 in tif.tags and 279 not in tif.tags
        assert tif.tags["TileByteCounts"].tolist() == [256] * 9


# --- Values

def test_whole_numbers_are_int_and_others_float(tmp_path: Path):
    with stored(tmp_path / "a.tif", {"MinSampleValue": 3, "XPosition": 1.5, "StoNits": 2.25},
                resolution=300) as tif:
        tags = tif.tags
        assert type(tags["ImageWidth"]) is int and type(tags["MinSampleValue"]) is int
        for name, value in {"XResolution": 300.0, "XPosition": 1.5, "StoNits": 2.25}.items():
            assert type(tags[name]) is float and tags[name] == value


ROWS_OF_NUMBERS = {"PageNumber": [2, 7], "HalftoneHints": [10, 20], "WhitePoint": [0.5, 0.25],
                   "GeoDoubleParamsTag": [0.1, 0.2, 0.3], "ModelPixelScaleTag": [1.5, 2.5, 0],
                   "ModelTransformationTag": list(range(16)),
                   "PrimaryChromaticities": [0.5, 0.25, 0.125, 0.5, 0.25, 0.125]}


@pytest.mark.parametrize("name", ROWS_OF_NUMBERS)
def test_several_numbers_are_a_1d_array(tmp_path: Path, name: str):
    values = ROWS_OF_NUMBERS[name]
    with stored(tmp_path / "a.tif", {name: values}, data=image((8, 9, 3))) as tif:
        got = tif.tags[name]
    whole = name in ("PageNumber", "HalftoneHints")
    assert got.dtype == (np.int64 if whole else np.float64)
    np.testing.assert_array_equal(got, values)
    assert got.shape == (len(values),)


def test_a_single_strip_has_an_array_of_one_offset(file: Path):
    with tagbridge.open(file) as tif:
        assert tif.tags["StripOffsets"].shape == (1,)
        assert tif.tags["StripOffsets"].dtype == np.int64


TABLES = {
    "ModelTiepointTag": np.arange(6.0).reshape(1, 6),
    "GeoKeyDirectoryTag": np.array([[1, 1, 0, 0]]),
    "TransferFunction": np.arange(256).reshape(1, 256),
}


@pytest.mark.parametrize("name", TABLES)
def test_tables_are_2d_also_of_one_row(tmp_path: Path, name: str):
    with stored(tmp_path / "a.tif", {name: TABLES[name]}) as tif:
        got = tif.tags[name]
    assert got.dtype == (np.float64 if name == "ModelTiepointTag" else np.int64)
    np.testing.assert_array_equal(got, TABLES[name])
    assert got.shape == TABLES[name].shape


def test_the_colormap_is_a_table_of_floats():
    with tagbridge.open(EXAMPLES / "palette.tif") as tif, tifffile.TiffFile(
            EXAMPLES / "palette.tif") as other:
        table = tif.tags["ColorMap"]
        np.testing.assert_allclose(table.T * 65535, other.pages[0].tags[320].value)
        assert table.shape == (256, 3) and table.dtype == np.float64


@pytest.mark.parametrize("text", ["plain", "Zoë — 雪", ""])
def test_text_is_stored_as_utf8(tmp_path: Path, text: str):
    path = tmp_path / "a.tif"
    with stored(path, {"Artist": text, "XMLPacket": "<x>" + text + "</x>"}) as tif:
        assert tif.tags["Artist"] == text
        assert tif.tags["XMLPacket"] == "<x>" + text + "</x>"
    with tifffile.TiffFile(path) as other:
        assert text.encode() in path.read_bytes()
        assert other.pages[0].tags[700].value == ("<x>" + text + "</x>").encode()


def test_text_that_is_no_utf8_is_latin1(tmp_path: Path):
    path = tmp_path / "a.tif"
    tifffile.imwrite(path, image((4, 4)), photometric="minisblack", metadata=None,
                     extratags=[(315, "s", 0, "Zoë".encode("latin-1"), True)])
    with tagbridge.open(path) as tif:
        assert tif.tags["Artist"] == "Zoë"


@pytest.mark.parametrize("name", ["ICC Profile", "RichTIFFIPTC", "Photoshop"])
def test_bytes_are_bytes(tmp_path: Path, name: str):
    data = bytes(range(64))
    for value in (data, bytearray(data), memoryview(data), np.frombuffer(data, np.uint8)):
        with stored(tmp_path / "a.tif", {name: value}) as tif:
            assert type(tif.tags[name]) is bytes
            assert tif.tags[name] == data


def test_ink_names_are_a_list_of_text(tmp_path: Path):
    names = ["cyan", "magenta", "jaune", "Schwärze"]
    with stored(tmp_path / "a.tif", {"InkNames": names, "InkSet": "cmyk"},
                data=image((8, 9, 4)), photometric="separated") as tif:
        assert tif.tags["InkNames"] == names
        assert tif.tags["InkSet"] is InkSet.CMYK


def test_extra_samples_are_an_array(tmp_path: Path):
    with stored(tmp_path / "a.tif", {}, data=image((8, 9, 4))) as tif:
        assert tif.tags["ExtraSamples"].tolist() == [ExtraSample.UNASSOCIATED_ALPHA]
        assert tif.tags["ExtraSamples"].dtype == np.int64


# --- Enumerations

ENUMERATED = {
    "Orientation": Orientation.BOTTOM_LEFT, "ResolutionUnit": ResolutionUnit.CENTIMETER,
    "FillOrder": FillOrder.LSB_TO_MSB, "SubfileType": SubfileType.PAGE | SubfileType.REDUCED_IMAGE}


@pytest.mark.parametrize("name", ENUMERATED)
def test_a_tag_with_an_enumeration_has_a_member(tmp_path: Path, name: str):
    member = ENUMERATED[name]
    for value in (member, int(member), float(member)):
        with stored(tmp_path / "a.tif", {name: value}) as tif:
            assert tif.tags[name] == member and type(tif.tags[name]) is type(member)


@pytest.mark.parametrize("name", ["bottom_left", "BOTTOM_LEFT", "Bottom-Left", "bottomleft"])
def test_members_may_be_named(tmp_path: Path, name: str):
    with stored(tmp_path / "a.tif", {"Orientation": name}) as tif:
        assert tif.tags["Orientation"] is Orientation.BOTTOM_LEFT


def test_another_name_is_a_value_error(tmp_path: Path):
    with pytest.raises(ValueError, match="none of top_left"):
        stored(tmp_path / "a.tif", {"Orientation": "upside down"})


CODES = {
    Compression: {"NONE": 1, "CCITT_RLE": 2, "CCITT_GROUP3": 3, "CCITT_GROUP4": 4, "LZW": 5,
                  "JPEG": 7, "ADOBE_DEFLATE": 8, "PACKBITS": 32773, "DEFLATE": 32946,
                  "SGI_LOG": 34676, "SGI_LOG24": 34677},
    Photometric: {"MIN_IS_WHITE": 0, "MIN_IS_BLACK": 1, "RGB": 2, "PALETTE": 3, "MASK": 4,
                  "SEPARATED": 5, "YCBCR": 6, "CIELAB": 8, "ICCLAB": 9, "ITULAB": 10,
                  "LOGL": 32844, "LOGLUV": 32845},
    PlanarConfiguration: {"CONTIG": 1, "SEPARATE": 2, "CHUNKY": 1},
    SampleFormat: {"UINT": 1, "INT": 2, "IEEE_FP": 3, "VOID": 4, "COMPLEX_INT": 5,
                   "COMPLEX_IEEE_FP": 6},
    Predictor: {"NONE": 1, "HORIZONTAL": 2, "FLOATING_POINT": 3},
    ExtraSample: {"UNSPECIFIED": 0, "ASSOCIATED_ALPHA": 1, "UNASSOCIATED_ALPHA": 2},
    ResolutionUnit: {"NONE": 1, "INCH": 2, "CENTIMETER": 3},
    Orientation: {"TOP_LEFT": 1, "TOP_RIGHT": 2, "BOTTOM_RIGHT": 3, "BOTTOM_LEFT": 4,
                  "LEFT_TOP": 5, "RIGHT_TOP": 6, "RIGHT_BOTTOM": 7, "LEFT_BOTTOM": 8},
    FillOrder: {"MSB_TO_LSB": 1, "LSB_TO_MSB": 2},
    YCbCrPositioning: {"CENTERED": 1, "COSITED": 2},
    InkSet: {"CMYK": 1, "NOT_CMYK": 2},
    SubfileType: {"REDUCED_IMAGE": 1, "PAGE": 2, "MASK": 4},
}


@pytest.mark.parametrize("kind", CODES, ids=lambda kind: kind.__name__)
def test_members_have_the_codes_of_the_format(kind):
    for name, code in CODES[kind].items():
        assert kind[name] == code
