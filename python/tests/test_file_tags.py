"""Tags of a directory: which are there, their values in Python, and changing them."""

from __future__ import annotations

import io
import subprocess
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from images import EXAMPLES, image, pages, pyramid
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


@pytest.fixture
def path(tmp_path: Path) -> Path:
    file = tmp_path / "a.tif"
    pages(file)
    return file


def stored(path: Path, tags: dict[Any, Any], **options: Any) -> tagbridge.File:
    """Write a small file with those tags and open it for reading."""
    options.setdefault("data", image((8, 9)))
    with tagbridge.open(path, "w") as tif:
        tif.write(options.pop("data"), tags=tags, **options)
    return tagbridge.open(path)


# --- The mapping

def test_tags_are_those_of_the_file_in_order_of_number(path: Path):
    with tagbridge.open(path) as tif, tifffile.TiffFile(path) as other:
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


def test_name_and_number_lead_to_the_same(path: Path):
    with tagbridge.open(path) as tif:
        assert tif.tags["ImageWidth"] == tif.tags[256] == tif.tags[np.uint16(256)] == 30
        assert "ImageWidth" in tif.tags and 256 in tif.tags


@pytest.mark.parametrize("key", ["NoSuchTag", "imagewidth", 1, 65000, -1, 2**70, 1.5, None, (1,),
                                 "CellWidth", 264, "Artist", 315, "Orientation", 274,
                                 "JPEGQuality", 65537, "JPEGColorMode", "TileWidth", "TileOffsets"])
def test_an_unknown_or_absent_tag_is_a_key_error(path: Path, key):
    with tagbridge.open(path) as tif:
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


def test_a_single_strip_has_an_array_of_one_offset(path: Path):
    with tagbridge.open(path) as tif:
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


# --- Changing

VALUES: dict[Any, Any] = {
    "Artist": "somebody", 270: "a picture", "Orientation": Orientation.TOP_RIGHT,
    "XResolution": 72.5, "YResolution": 72, "PageNumber": (1, 3), "Copyright": "ë",
    "ICC Profile": bytes(40), "XMLPacket": "<packet/>", "ModelPixelScaleTag": [1, 2, 3],
    "GeoKeyDirectoryTag": [[1, 1, 0, 1], [1024, 0, 1, 1]], "SubfileType": "page",
    "MaxSampleValue": 200, "DateTime": "2024:01:31 12:00:00"}


def test_what_is_assigned_is_there_at_once_and_in_the_file(path: Path):
    with tagbridge.open(path, "r+") as tif:
        for key, value in VALUES.items():
            tif[1].tags[key] = value
            assert key in tif[1].tags
        now = {name: tif[1].tags[name] for name in tif[1].tags}
    with tagbridge.open(path) as tif:
        for key, value in VALUES.items():
            wanted = SubfileType.PAGE if key == "SubfileType" else value
            np.testing.assert_array_equal(tif[1].tags[key], wanted)
        assert list(tif[1].tags) == list(now)
        assert "Artist" not in tif[0].tags and "Artist" not in tif[2].tags


def test_editing_keeps_the_chain_and_the_pixels(tmp_path: Path):
    images = pages(tmp_path / "a.tif", 4)
    with tagbridge.open(tmp_path / "a.tif", "r+") as tif:
        for number in (2, 0, 3, 0):
            tif[number].tags["Artist"] = f"number {number}"
    with tifffile.TiffFile(tmp_path / "a.tif") as other:
        assert len(other.pages) == 4
        for page, array in zip(other.pages, images, strict=True):
            np.testing.assert_array_equal(page.asarray(), array)
        assert other.pages[3].tags[315].value == "number 3"
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert [page.tags.get("Artist") for page in tif] == ["number 0", None, "number 2",
                                                             "number 3"]


def test_editing_a_directory_keeps_its_sub_directories(tmp_path: Path):
    path = tmp_path / "a.tif"
    whole = pyramid(path, count=2)
    with tagbridge.open(path, "r+") as tif:
        tif[0].tags["Artist"] = "one"
        tif[1].tags["Artist"] = "two"
        np.testing.assert_array_equal(tif[0].subdirectories[1].read(), whole[0][::4, ::4])
        tif[0].tags["Copyright"] = "three"
    with tagbridge.open(path) as tif:
        assert [page.tags["Artist"] for page in tif] == ["one", "two"]
        assert tif[0].tags["Copyright"] == "three"
        for page, array in zip(tif, whole, strict=True):
            np.testing.assert_array_equal(page.read(), array)
            assert [level.shape for level in page.subdirectories] == [(32, 24), (16, 12)]


def seen_by_others(path: Path) -> str | None:
    with tifffile.TiffFile(path) as other:
        tag = other.pages[0].tags.get(315)
        return None if tag is None else tag.value


def test_a_change_is_written_when_another_directory_is_turned_to(path: Path):
    with tagbridge.open(path, "r+") as tif:
        tif[0].tags["Artist"] = "me"
        assert seen_by_others(path) is None
        tif[1].tags["ImageWidth"]
        assert seen_by_others(path) == "me"


def test_a_change_is_written_by_flush(path: Path):
    with tagbridge.open(path, "r+") as tif:
        tif[0].tags["Artist"] = "me"
        tif.flush()
        assert seen_by_others(path) == "me"
        assert tif.tags["Artist"] == "me"
        size = path.stat().st_size
        tif.flush()
    assert path.stat().st_size == size


def test_a_change_is_written_by_close(path: Path):
    with tagbridge.open(path, "r+") as tif:
        tif[0].tags["Artist"] = "me"
    assert seen_by_others(path) == "me"


def test_looking_changes_nothing(path: Path):
    before = path.read_bytes()
    with tagbridge.open(path, "r+") as tif:
        for page in tif:
            dict(page.tags)
            page.read()
    assert path.read_bytes() == before


@pytest.mark.parametrize(("key", "value", "identifier"), [
    ("Orientation", 99, "unableToWriteTag"), ("Artist", 5, "argumentWasNotChar"),
    ("XResolution", "wide", "tagValueNotDoublePrecisionArray"),
    ("PageNumber", [1, 2, 3], "badTagValueCount"),
    ("ImageWidth", 0, "zeroLengthDimension"), ("DateTime", "x" * 20, "dateTimeTooLong"),
    ("StripOffsets", [8], "unrecognizedTagNumber"), ("ImageDepth", 2, "unsupportedTag"),
    ("Photoshop", b"short", "lengthTooShort"),
    ("InkSet", 1, "photometricInterpretationNotSeparated")])
def test_a_refusal_is_the_modules_error_and_changes_nothing(path: Path, key, value, identifier):
    before = path.read_bytes()
    with tagbridge.open(path, "r+") as tif:
        tags = dict(tif.tags)
        with pytest.raises(tagbridge.Error) as caught:
            tif.tags[key] = value
        assert identifier in caught.value.identifier
        assert list(tif.tags) == list(tags)
        tif.read()
    assert path.read_bytes() == before


@pytest.mark.parametrize("value", [None, 1j, object()])
def test_a_value_without_a_counterpart_is_a_type_error(path: Path, value):
    with tagbridge.open(path, "r+") as tif, pytest.raises(TypeError):
        tif.tags["Artist"] = value


def test_text_with_nul_is_a_value_error(path: Path):
    with tagbridge.open(path, "r+") as tif, pytest.raises(ValueError, match="NUL"):
        tif.tags["Artist"] = "a\0b"


def test_an_unknown_tag_cannot_be_assigned(path: Path):
    with tagbridge.open(path, "r+") as tif, pytest.raises(KeyError):
        tif.tags["NoSuchTag"] = 1


@pytest.mark.parametrize("mode", ["r", "r+"])
def test_a_tag_cannot_be_deleted(path: Path, mode: str):
    with tagbridge.open(path, mode) as tif, pytest.raises(TypeError):
        del tif.tags["ImageWidth"]


def test_tags_cannot_be_assigned_in_mode_r(path: Path):
    with tagbridge.open(path) as tif, pytest.raises(io.UnsupportedOperation):
        tif.tags["Artist"] = "me"


def test_sub_directories_cannot_be_edited_in_place(tmp_path: Path):
    pyramid(tmp_path / "a.tif")
    before = (tmp_path / "a.tif").read_bytes()
    with tagbridge.open(tmp_path / "a.tif", "r+") as tif:
        with pytest.raises(io.UnsupportedOperation):
            tif.subdirectories[0].tags["Artist"] = "me"
        with pytest.raises(io.UnsupportedOperation):
            tif.tags["SubIFD"] = 3
    assert (tmp_path / "a.tif").read_bytes() == before


def test_exiftool_and_tiffinfo_read_what_was_edited(path: Path):
    with tagbridge.open(path, "r+") as tif:
        tif.tags["Artist"] = "Zoë"
        tif.tags["Orientation"] = "bottom-left"
    shown = subprocess.run(["exiftool", "-s3", "-Artist", "-Orientation#", str(path)],
                           capture_output=True, text=True, check=True).stdout
    assert shown.split() == ["Zoë", "4"]
    assert "row 0 bottom, col 0 lhs" in subprocess.run(
        ["tiffinfo", str(path)], capture_output=True, text=True, check=True).stdout
