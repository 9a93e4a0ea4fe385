"""Tags of a directory: changing them."""

from __future__ import annotations

import io
import subprocess
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from images import pages, pyramid
from tagbridge import Orientation, SubfileType


VALUES: dict[Any, Any] = {
    "Artist": "somebody", 270: "a picture", "Orientation": Orientation.TOP_RIGHT,
    "XResolution": 72.5, "YResolution": 72, "PageNumber": (1, 3), "Copyright": "ë",
    "ICC Profile": bytes(40), "XMLPacket": "<packet/>", "ModelPixelScaleTag": [1, 2, 3],
    "GeoKeyDirectoryTag": [[1, 1, 0, 1], [1024, 0, 1, 1]], "SubfileType": "page",
    "MaxSampleValue": 200, "DateTime": "2024:01:31 12:00:00"}


def test_what_is_assigned_is_there_at_once_and_in_the_file(file: Path):
    with tagbridge.open(file, "r+") as tif:
        for key, value in VALUES.items():
            tif[1].tags[key] = value
            assert key in tif[1].tags
        now = {name: tif[1].tags[name] for name in tif[1].tags}
    with tagbridge.open(file) as tif:
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


def test_a_change_is_written_when_another_directory_is_turned_to(file: Path):
    with tagbridge.open(file, "r+") as tif:
        tif[0].tags["Artist"] = "me"
        assert seen_by_others(file) is None
        tif[1].tags["ImageWidth"]
        assert seen_by_others(file) == "me"


def test_a_change_is_written_by_flush(file: Path):
    with tagbridge.open(file, "r+") as tif:
        tif[0].tags["Artist"] = "me"
        tif.flush()
        assert seen_by_others(file) == "me"
        assert tif.tags["Artist"] == "me"
        size = file.stat().st_size
        tif.flush()
    assert file.stat().st_size == size


def test_a_change_is_written_by_close(file: Path):
    with tagbridge.open(file, "r+") as tif:
        tif[0].tags["Artist"] = "me"
    assert seen_by_others(file) == "me"


def test_looking_changes_nothing(file: Path):
    before = file.read_bytes()
    with tagbridge.open(file, "r+") as tif:
        for page in tif:
            dict(page.tags)
            page.read()
    assert file.read_bytes() == before


@pytest.mark.parametrize(("key", "value", "identifier"), [
    ("Orientation", 99, "unableToWriteTag"), ("Artist", 5, "argumentWasNotChar"),
    ("XResolution", "wide", "tagValueNotDoublePrecisionArray"),
    ("PageNumber", [1, 2, 3], "badTagValueCount"),
    ("ImageWidth", 0, "zeroLengthDimension"), ("DateTime", "x" * 20, "dateTimeTooLong"),
    ("StripOffsets", [8], "unrecognizedTagNumber"), ("ImageDepth", 2, "unsupportedTag"),
    ("Photoshop", b"short", "lengthTooShort"),
    ("InkSet", 1, "photometricInterpretationNotSeparated")])
def test_a_refusal_is_the_modules_error_and_changes_nothing(file: Path, key, value, identifier):
    before = file.read_bytes()
    with tagbridge.open(file, "r+") as tif:
        tags = dict(tif.tags)
        with pytest.raises(tagbridge.Error) as caught:
            tif.tags[key] = value
        assert identifier in caught.value.identifier
        assert list(tif.tags) == list(tags)
        tif.read()
    assert file.read_bytes() == before


@pytest.mark.parametrize("value", [None, 1j, object()])
def test_a_value_without_a_counterpart_is_a_type_error(file: Path, value):
    with tagbridge.open(file, "r+") as tif, pytest.raises(TypeError):
        tif.tags["Artist"] = value


def test_text_with_nul_is_a_value_error(file: Path):
    with tagbridge.open(file, "r+") as tif, pytest.raises(ValueError, match="NUL"):
        tif.tags["Artist"] = "a\0b"


def test_an_unknown_tag_cannot_be_assigned(file: Path):
    with tagbridge.open(file, "r+") as tif, pytest.raises(KeyError):
        tif.tags["NoSuchTag"] = 1


@pytest.mark.parametrize("mode", ["r", "r+"])
def test_a_tag_cannot_be_deleted(file: Path, mode: str):
    with tagbridge.open(file, mode) as tif, pytest.raises(TypeError):
        del tif.tags["ImageWidth"]


def test_tags_cannot_be_assigned_in_mode_r(file: Path):
    with tagbridge.open(file) as tif, pytest.raises(io.UnsupportedOperation):
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


def test_exiftool_and_tiffinfo_read_what_was_edited(file: Path):
    with tagbridge.open(file, "r+") as tif:
        tif.tags["Artist"] = "Zoë"
        tif.tags["Orientation"] = "bottom-left"
    shown = subprocess.run(["exiftool", "-s3", "-Artist", "-Orientation#", str(file)],
                           capture_output=True, text=True, check=True).stdout
    assert shown.split() == ["Zoë", "4"]
    assert "row 0 bottom, col 0 lhs" in subprocess.run(
        ["tiffinfo", str(file)], capture_output=True, text=True, check=True).stdout
