"""The command line as its user runs it: tagbridge COMMAND …"""

from __future__ import annotations

import base64
import json
from pathlib import Path

import numpy as np
import pytest
import tagbridge
from command_line import failed, good, run, started
from images import EXAMPLES, image, pyramid
from PIL import Image

COMMANDS = ["info", "get", "set", "convert", "export", "preview", "verify", "diff"]


# --- For all commands

@pytest.mark.parametrize("command", COMMANDS)
def test_help_has_an_example(command: str):
    assert f"example: tagbridge {command} " in good(command, "--help").replace("\n", " ")


def test_help_lists_the_commands_and_has_an_example():
    text = good("--help")
    assert all(command in text for command in COMMANDS) and "example: tagbridge" in text


def test_version():
    assert good("--version") == f"tagbridge {tagbridge.__version__}\n"


def test_the_package_can_be_run(file: Path):
    assert started("--version").stdout == good("--version")
    done = started("get", file, "Nope")
    assert (done.returncode, done.stderr) == (1, failed("get", file, "Nope") + "\n")
    assert started("get").returncode == 2


@pytest.mark.parametrize("arguments", [
    [], ["bogus"], ["info"], ["get", "a.tif"], ["convert", "a.tif"], ["diff", "a.tif"],
    ["info", "a.tif", "--bogus"], ["get", "a.tif", "256", "-d", "x"],
    ["convert", "a.tif", "b.tif", "--tile", "16"], ["convert", "a.tif", "b.tif", "--tile", "10x16"],
    ["convert", "a.tif", "b.tif", "--tile", "16x16", "--rows-per-strip", "4"],
    ["convert", "a.tif", "b.tif", "--compression", "zip"],
    ["convert", "a.tif", "b.tif", "--planar", "both"],
    ["convert", "a.tif", "b.tif", "--region", "1:2"], ["export", "a.tif", "a.gif"],
    ["preview", "a.tif", "-o", "a.jpg"], ["preview", "a.tif", "--size", "0"]], ids=" ".join)
def test_wrong_usage_is_a_line_and_status_2(arguments):
    assert failed(*arguments, status=2).startswith("tagbridge")


@pytest.mark.parametrize("arguments", [
    ["info", "FILE"], ["get", "FILE", "256"], ["set", "FILE", "Artist", "me"],
    ["convert", "FILE", "out.tif"], ["export", "FILE", "out.png"], ["preview", "FILE"],
    ["verify", "FILE"], ["diff", "FILE", "FILE"]], ids=lambda arguments: arguments[0])
@pytest.mark.parametrize(("kind", "words"), [
    ("absent", "No such file or directory (FileNotFoundError)"),
    ("folder", "Is a directory (IsADirectoryError)"),
    ("bad", "(KORVAL:pictoria:Tiff:unableToOpenFile)")])
def test_a_file_that_cannot_be_opened_is_a_line_and_status_1(
        tmp_path: Path, monkeypatch, arguments, kind, words):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "folder").mkdir()
    (tmp_path / "bad").write_bytes(b"no TIFF file")
    line = failed(*(kind if each == "FILE" else each for each in arguments))
    assert line.startswith(f"tagbridge: {kind}: ") and line.endswith(words)
    assert not (tmp_path / "out.tif").exists() and not (tmp_path / "out.png").exists()


# --- info

def test_info_shows_the_directories_as_a_tree(tmp_path: Path):
    pyramid(tmp_path / "a.tif", count=2)
    lines = good("info", tmp_path / "a.tif").splitlines()
    assert lines[0] == f"{tmp_path}/a.tif: TIFF, little-endian"
    assert [line.split(": ")[0] for line in lines[1:]] == [
        "├── 0", "│   ├── 0.0", "│   └── 0.1", "└── 1", "    ├── 1.0", "    └── 1.1"]
    assert lines[2].endswith("0.0: 32 x 24 uint8, min is black, strips of 32 x 24, none")


def test_info_shows_the_ratio_of_compression(tmp_path: Path):
    tagbridge.imwrite(tmp_path / "a.tif", np.zeros((500, 400, 3), np.uint8), tile=(64, 64),
                      compression="deflate")
    text = good("info", tmp_path / "a.tif")
    size = sum(tagbridge.open(tmp_path / "a.tif").tags["TileByteCounts"])
    assert "500 x 400 x 3 uint8, rgb, tiles of 64 x 64, samples together, adobe deflate" in text
    assert f" {600000 / size:.1f}:1" in text


def test_info_shows_tags_when_asked(file: Path):
    assert "ImageWidth" not in good("info", file)
    assert "ImageWidth: 30" in good("info", "--tags", file)


def test_info_goes_on_after_a_file_that_fails(tmp_path: Path, file: Path):
    done = run("info", tmp_path / "absent.tif", file)
    assert done.returncode == 1 and "20 x 30 uint8" in done.stdout
    assert done.stderr.count("\n") == 1


def test_info_as_json_is_an_object_a_file(tmp_path: Path, file: Path):
    whole = pyramid(tmp_path / "b.tif")[0]
    with tagbridge.open(tmp_path / "b.tif", "r+") as tif:
        tif.tags["ICC Profile"] = bytes(range(16))
        tif.tags["Artist"] = "Zoë"
    objects = [json.loads(line) for line in good("info", "--json", file,
                                                 tmp_path / "b.tif").splitlines()]
    assert [each["file"] for each in objects] == [str(file), str(tmp_path / "b.tif")]
    assert list(objects[0]) == ["file", "byteorder", "bigtiff", "directories"]
    assert [len(each["directories"]) for each in objects] == [3, 1]
    page = objects[1]["directories"][0]
    assert list(page) == ["index", "shape", "dtype", "compression", "photometric", "planar",
                          "tiled", "block_shape", "bytes", "tags", "subdirectories"]
    assert (page["index"], page["shape"], page["dtype"]) == (0, list(whole.shape), "uint8")
    assert (page["compression"], page["photometric"]) == ("NONE", "MIN_IS_BLACK")
    assert (page["tiled"], page["block_shape"], page["bytes"]) == (False, [64, 48], 64 * 48)
    assert page["tags"]["ImageWidth"] == 48 and page["tags"]["Artist"] == "Zoë"
    assert base64.b64decode(page["tags"]["ICC Profile"]) == bytes(range(16))
    assert [level["shape"] for level in page["subdirectories"]] == [[32, 24], [16, 12]]
    assert page["subdirectories"][0]["index"] is None


# --- get and set

@pytest.mark.parametrize(("tag", "value", "text"), [
    ("Artist", "two  words, Zoë", "two  words, Zoë"), ("ImageWidth", None, "30"),
    ("256", None, "30"), ("Compression", None, "1"), ("XResolution", 72.5, "72.5"),
    ("PageNumber", [1, 3], "1 3"), ("ModelPixelScaleTag", [0.1, 2, 0], "0.1 2 0"),
    ("GeoKeyDirectoryTag", [[1, 1, 0, 1], [3, 4, 5, 6]], "1 1 0 1\n3 4 5 6")])
def test_get_prints_text_as_it_is_and_numbers_parted_by_blanks(file: Path, tag, value, text):
    if value is not None:
        with tagbridge.open(file, "r+") as tif:
            tif.tags[tag] = value
    assert good("get", file, tag) == text + "\n"


def test_get_prints_bytes_as_they_are(file: Path):
    with tagbridge.open(file, "r+") as tif:
        tif.tags["ICC Profile"] = bytes(range(256))
    assert run("get", file, "ICC Profile").output == bytes(range(256))


def test_get_takes_a_directory(file: Path):
    assert good("get", file, "ImageLength", "-d", "1") == "21\n"
    assert good("get", file, "ImageLength", "-d", "-1") == "22\n"
    assert failed("get", file, "ImageLength", "-d", "3").endswith("(IndexError)")


def test_an_absent_tag_is_a_line(file: Path):
    assert failed("get", file, "Artist") == (
        f"tagbridge: {file}: there is no tag 'Artist' (KeyError)")


@pytest.mark.parametrize(("tag", "words", "value"), [
    ("Artist", ["Zoë"], "Zoë"), ("Artist", ["two", "words"], "two words"),
    ("XResolution", ["72.5"], 72.5),
    ("Orientation", ["bottom_left"], 4), ("Orientation", ["4"], 4), ("274", ["3"], 3),
    ("PageNumber", ["1", "3"], [1, 3]), ("PageNumber", ["1 3"], [1, 3]),
    ("ModelPixelScaleTag", ["-1", "2.5", "0"], [-1, 2.5, 0]),
    ("GeoKeyDirectoryTag", ["1 1 0 1", "3 4 5 6"], [[1, 1, 0, 1], [3, 4, 5, 6]]),
    ("XMLPacket", ["<x>ë</x>"], "<x>ë</x>")])
def test_set_stores_in_place(file: Path, tag, words, value):
    assert good("set", file, tag, *words, "-d", "1") == ""
    with tagbridge.open(file) as tif:
        key = int(tag) if tag.isdecimal() else tag
        np.testing.assert_array_equal(tif[1].tags[key], value)
        assert key not in tif[0].tags or tag == "XResolution"


def test_set_reads_bytes_from_a_file(tmp_path: Path, file: Path):
    (tmp_path / "profile").write_bytes(bytes(64))
    good("set", file, "ICC Profile", f"@{tmp_path}/profile")
    assert tagbridge.open(file).tags["ICC Profile"] == bytes(64)


@pytest.mark.parametrize(("tag", "word", "identifier"), [
    ("Orientation", "99", "KORVAL:pictoria:Tiff:unableToWriteTag"),
    ("Orientation", "down", "ValueError"),
    ("XResolution", "wide", "ValueError"), ("Nope", "1", "KeyError"),
    ("ICC Profile", "text", "ValueError"), ("GeoKeyDirectoryTag", "1 2 3", "ValueError"),
    ("StripOffsets", "8", "KORVAL:pictoria:Tiff:unrecognizedTagNumber")])
def test_set_that_is_refused_changes_nothing(file: Path, tag, word, identifier):
    before = file.read_bytes()
    assert failed("set", file, tag, word).endswith(f"({identifier})")
    assert file.read_bytes() == before


# --- export and preview

@pytest.mark.parametrize("shape", [(20, 30), (20, 30, 3), (20, 30, 4)])
def test_export_writes_arrays(tmp_path: Path, shape):
    array = image(shape, np.float32)
    tagbridge.imwrite(tmp_path / "a.tif", array)
    good("export", tmp_path / "a.tif", tmp_path / "out.npy")
    np.testing.assert_array_equal(np.load(tmp_path / "out.npy"), array)
    good("export", tmp_path / "a.tif", tmp_path / "out.npy", "--region", "3:9,10:")
    np.testing.assert_array_equal(np.load(tmp_path / "out.npy"), array[3:9, 10:])


@pytest.mark.parametrize(("shape", "dtype"), [
    ((20, 30), "uint8"), ((20, 30, 3), "uint8"), ((20, 30, 4), "uint8"), ((20, 30), "uint16"),
    ((20, 30), bool)])
def test_export_writes_pictures(tmp_path: Path, shape, dtype):
    array = image(shape, dtype)
    tagbridge.imwrite(tmp_path / "a.tif", array)
    good("export", tmp_path / "a.tif", tmp_path / "out.png", "-d", "0")
    with Image.open(tmp_path / "out.png") as picture:
        np.testing.assert_array_equal(np.asarray(picture), array)


def test_export_shows_colours_of_a_palette(tmp_path: Path):
    good("export", EXAMPLES / "palette.tif", tmp_path / "out.png")
    with Image.open(tmp_path / "out.png") as picture, Image.open(EXAMPLES / "palette.tif") as other:
        wanted = np.asarray(other.convert("RGB")).astype(int)
        assert np.abs(np.asarray(picture.convert("RGB")).astype(int) - wanted).max() <= 1


@pytest.mark.parametrize("example", sorted(EXAMPLES.glob("*.tif")), ids=lambda path: path.stem)
def test_preview_makes_a_small_picture_of_every_kind(tmp_path: Path, example: Path):
    good("preview", example, "--size", "64", "-o", tmp_path / "out.png")
    with Image.open(tmp_path / "out.png") as picture, tagbridge.open(example) as tif:
        assert max(picture.size) <= 64
        rows, columns = tif.shape[:2]
        assert abs(picture.size[0] / picture.size[1] - columns / rows) < 0.1
        assert np.asarray(picture).std() > 1


def test_preview_draws_in_the_terminal():
    lines = good("preview", EXAMPLES / "rgb-strips.tif", "--size", "40").splitlines()
    assert {len(line) for line in lines} == {40} and len(lines) == 15
    assert len(set("".join(lines))) > 4
