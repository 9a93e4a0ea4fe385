"""The command line as its user runs it: tagbridge COMMAND …"""

from __future__ import annotations

import base64
import contextlib
import io
import json
import os
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Any, NamedTuple

import numpy as np
import pytest
import tagbridge
import tifffile
from corpus import entries, needs_corpus, path_of
from images import EXAMPLES, damage, image, pages, pyramid
from PIL import Image
from tagbridge.cli import main
from tagbridge.cli.convert import COMPRESSIONS

COMMANDS = ["info", "get", "set", "convert", "export", "preview", "verify", "diff"]


class Done(NamedTuple):
    """How a command ended."""

    returncode: int
    output: bytes
    stderr: str

    @property
    def stdout(self) -> str:
        return self.output.decode()


def run(*arguments: object) -> Done:
    """Run a command in this process; there is never a traceback."""
    streams = [io.TextIOWrapper(io.BytesIO(), "utf-8") for _ in range(2)]
    with contextlib.redirect_stdout(streams[0]), contextlib.redirect_stderr(streams[1]):
        status = main([str(argument) for argument in arguments])
    for stream in streams:
        stream.flush()
    output, error = (stream.buffer.getvalue() for stream in streams)  # type: ignore[attr-defined]
    assert b"Traceback" not in error, error
    return Done(status, output, error.decode())


def started(*arguments: object) -> subprocess.CompletedProcess[str]:
    """Run a command in a process of its own."""
    return subprocess.run([sys.executable, "-m", "tagbridge", *map(str, arguments)],
                          capture_output=True, text=True, check=False)


def good(*arguments: object) -> str:
    """Run a command that succeeds; return what it prints."""
    done = run(*arguments)
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    return done.stdout


def failed(*arguments: object, status: int = 1) -> str:
    """Run a command that fails with one line; return the line."""
    done = run(*arguments)
    assert done.returncode == status
    assert done.stderr.count("\n") == 1, done.stderr
    return done.stderr.rstrip("\n")


@pytest.fixture
def file(tmp_path: Path) -> Path:
    path = tmp_path / "a.tif"
    pages(path)
    return path


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
    ("Artist", ["Zoë"], "Zoë"), ("Artist", ["two", "words"], "two words"), ("XResolution", ["72.5"], 72.5),
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
    ("Orientation", "99", "KORVAL:pictoria:Tiff:unableToWriteTag"), ("Orientation", "down", "ValueError"),
    ("XResolution", "wide", "ValueError"), ("Nope", "1", "KeyError"),
    ("ICC Profile", "text", "ValueError"), ("GeoKeyDirectoryTag", "1 2 3", "ValueError"),
    ("StripOffsets", "8", "KORVAL:pictoria:Tiff:unrecognizedTagNumber")])
def test_set_that_is_refused_changes_nothing(file: Path, tag, word, identifier):
    before = file.read_bytes()
    assert failed("set", file, tag, word).endswith(f"({identifier})")
    assert file.read_bytes() == before


# --- convert

def test_convert_copies_pixels_and_tags(tmp_path: Path):
    path, out = tmp_path / "a.tif", tmp_path / "out.tif"
    array = image((100, 130, 3), np.uint16)
    tags = {"Artist": "Zoë", "XResolution": 300.0, "Orientation": 3, "ICC Profile": bytes(40),
            "ModelPixelScaleTag": [1, 2, 3], "GeoKeyDirectoryTag": [[1, 1, 0, 0]]}
    with tagbridge.open(path, "w") as tif:
        tif.write(array, tags=tags, rows_per_strip=7)
    good("convert", path, out, "--compression", "deflate", "--tile", "32x48", "--predictor",
         "--level", "9", "--planar", "separate", "--bigtiff")
    with tagbridge.open(out) as tif:
        np.testing.assert_array_equal(tif.read(), array)
        assert (tif.compression, tif.block_shape, tif.planar, tif.bigtiff) == (8, (32, 48), 2, True)
        assert tif.tags["Predictor"] == 2
        for name, value in tags.items():
            np.testing.assert_array_equal(tif.tags[name], value)


@pytest.mark.parametrize("example", sorted(EXAMPLES.glob("*.tif")), ids=lambda path: path.stem)
@pytest.mark.parametrize("options", [[], ["--tile", "64x48"], ["--rows-per-strip", "10"]],
                         ids=" ".join)
def test_convert_keeps_every_kind_of_image(tmp_path: Path, example: Path, options):
    out = tmp_path / "out.tif"
    good("convert", example, out, *options)
    with tagbridge.open(example) as source, tagbridge.open(out) as copy:
        assert len(copy) == len(source)
        for page, other in zip(source, copy, strict=True):
            levels = [page, *page.subdirectories]
            for mine, its in zip(levels, [other, *other.subdirectories], strict=True):
                np.testing.assert_array_equal(its.read(), mine.read())
                if mine.photometric != tagbridge.Photometric.YCBCR:
                    assert its.photometric == mine.photometric
    for command in ["tiffinfo"], ["gdalinfo"], *([] if options else [["exiftool", "-validate"]]):
        subprocess.run([*command, str(out)], capture_output=True, check=True)
    with tifffile.TiffFile(out) as other:
        assert len(other.pages) == len(tagbridge.open(out))
    assert good("verify", out).endswith("all good\n")


@pytest.mark.parametrize("compression", COMPRESSIONS)
def test_convert_takes_every_compression_that_help_names(tmp_path: Path, compression: str):
    dtype = bool if compression.startswith("group") else np.uint8
    tagbridge.imwrite(tmp_path / "a.tif", image((40, 30), dtype))
    good("convert", tmp_path / "a.tif", tmp_path / "out.tif", "--compression", compression)
    assert compression in good("convert", "--help")


def test_convert_makes_one_file_of_many(tmp_path: Path):
    first, second = pages(tmp_path / "a.tif", 2), pages(tmp_path / "b.tif", 3)
    good("convert", tmp_path / "a.tif", tmp_path / "b.tif", tmp_path / "out.tif")
    with tagbridge.open(tmp_path / "out.tif") as tif:
        for page, array in zip(tif, first + second, strict=True):
            np.testing.assert_array_equal(page.read(), array)


@pytest.mark.parametrize("arguments", [["-d", "2", "0", "IN", "OUT"], ["IN", "OUT", "-d", "2", "0"],
                                       ["-d", "-1", "-d", "0", "IN", "OUT"]], ids=" ".join)
def test_convert_takes_directories(tmp_path: Path, file: Path, arguments):
    out = tmp_path / "out.tif"
    good("convert", *({"IN": file, "OUT": out}.get(each, each) for each in arguments))
    with tagbridge.open(out) as tif:
        assert [page.shape[0] for page in tif] == [22, 20]


@pytest.mark.parametrize(("words", "key"), [
    ("10:70,20:33", (slice(10, 70), slice(20, 33))), (":5,:", (slice(5), slice(None))),
    ("-20:,-30:-10", (slice(-20, None), slice(-30, -10)))])
def test_convert_takes_a_region(tmp_path: Path, words, key):
    array = image((100, 130))
    tagbridge.imwrite(tmp_path / "a.tif", array, tile=(16, 32))
    good("convert", tmp_path / "a.tif", tmp_path / "out.tif", f"--region={words}")
    np.testing.assert_array_equal(tagbridge.imread(tmp_path / "out.tif"), array[key])


def test_a_region_of_a_map_stays_where_it_is(tmp_path: Path):
    tagbridge.imwrite(tmp_path / "a.tif", image((100, 130)), tags={
        "ModelPixelScaleTag": [10, 20, 0], "ModelTiepointTag": [[0, 0, 0, 1000, 5000, 0]],
        "GeoKeyDirectoryTag": [[1, 1, 0, 1], [1024, 0, 1, 1]]})
    good("convert", tmp_path / "a.tif", tmp_path / "out.tif", "--region", "30:60,40:90")
    from osgeo import gdal

    before = gdal.Open(str(tmp_path / "a.tif")).GetGeoTransform()
    after = gdal.Open(str(tmp_path / "out.tif")).GetGeoTransform()
    assert after[0] == before[0] + 40 * before[1] and after[3] == before[3] + 30 * before[5]


@pytest.mark.parametrize(("shape", "dtype", "levels"), [
    ((600, 1100), "uint8", 3), ((513, 257, 3), "uint16", 2), ((300, 300), "float32", 1),
    ((200, 100), "uint8", 0), ((300, 20), bool, 1)])
def test_a_pyramid_has_levels_of_half_the_size(tmp_path: Path, shape, dtype, levels):
    array = image(shape, dtype)
    tagbridge.imwrite(tmp_path / "a.tif", array)
    good("convert", tmp_path / "a.tif", tmp_path / "out.tif", "--pyramid")
    with tagbridge.open(tmp_path / "out.tif") as tif:
        np.testing.assert_array_equal(tif.read(), array)
        assert tif.block_shape == (256, 256)
        assert len(tif) == 1 and len(tif.subdirectories) == levels
        above = array.astype(np.float64)
        for level in tif.subdirectories:
            assert level.tags["SubfileType"] == tagbridge.SubfileType.REDUCED_IMAGE
            odd = [(0, length % 2) for length in above.shape[:2]] + [(0, 0)] * (above.ndim - 2)
            above = np.pad(above, odd, mode="edge")
            if dtype is bool:
                above = above[::2, ::2]
            else:
                above = (above[::2, ::2] + above[1::2, ::2] + above[::2, 1::2] + above[1::2, 1::2]) / 4
            got = level.read().astype(np.float64)
            assert got.shape == above.shape
            assert np.abs(got - above).max() <= (0.5 if np.dtype(dtype).kind == "u" else 1e-6)
            above = got
    with tifffile.TiffFile(tmp_path / "out.tif") as other:
        assert len(other.pages[0].pages or []) == levels


def test_pixels_of_a_palette_are_not_averaged(tmp_path: Path):
    array = image((300, 300))
    tagbridge.imwrite(tmp_path / "a.tif", array, colormap=image((256, 3), np.uint16))
    good("convert", tmp_path / "a.tif", tmp_path / "out.tif", "--pyramid")
    with tagbridge.open(tmp_path / "out.tif") as tif:
        np.testing.assert_array_equal(tif.subdirectories[0].read(), array[::2, ::2])
        assert tif.subdirectories[0].photometric is tagbridge.Photometric.PALETTE


def test_convert_to_jpeg(tmp_path: Path):
    array = np.full((100, 90, 3), (200, 40, 60), np.uint8)
    tagbridge.imwrite(tmp_path / "a.tif", array)
    good("convert", tmp_path / "a.tif", tmp_path / "out.tif", "--compression", "jpeg", "--level",
         "95")
    assert np.abs(tagbridge.imread(tmp_path / "out.tif").astype(int) - array).max() < 4


def test_convert_into_its_own_input(file: Path):
    images = [page.read() for page in tagbridge.open(file)]
    good("convert", file, file, "--compression", "lzw")
    with tagbridge.open(file) as tif:
        assert tif.compression == 5
        for page, array in zip(tif, images, strict=True):
            np.testing.assert_array_equal(page.read(), array)


@pytest.mark.parametrize("there", [False, True])
def test_convert_that_fails_leaves_no_half_file(tmp_path: Path, there: bool):
    path, out = tmp_path / "a.tif", tmp_path / "folder" / "out.tif"
    out.parent.mkdir()
    if there:
        out.write_bytes(b"something else")
    tifffile.imwrite(path, image((60, 40)), rowsperstrip=10, compression="zlib",
                     photometric="minisblack")
    damage(path, 4)
    line = failed("convert", path, out)
    assert line.startswith(f"tagbridge: {path}: block 4 cannot be decoded")
    assert [file.read_bytes() for file in out.parent.iterdir()] == [b"something else"] * there


@pytest.mark.parametrize(("number", "status"), [(signal.SIGINT, 130), (signal.SIGTERM, 143)])
def test_an_interrupt_leaves_no_half_file(tmp_path: Path, number: int, status: int):
    folder = tmp_path / "folder"
    folder.mkdir()
    (folder / "out.tif").write_bytes(b"something else")
    tagbridge.imwrite(tmp_path / "a.tif", image((4000, 4000)), rows_per_strip=1)
    running = subprocess.Popen(
        [sys.executable, "-m", "tagbridge", "convert", tmp_path / "a.tif", folder / "out.tif",
         "--compression", "deflate", "--level", "9", "--rows-per-strip", "1"],
        stderr=subprocess.PIPE, text=True)
    for _ in range(1000):
        if any(file.suffix == ".part" and file.stat().st_size > 1000 for file in folder.iterdir()):
            break
        time.sleep(0.01)
    running.send_signal(number)
    error = running.communicate(timeout=60)[1]
    assert running.returncode == status, error
    assert "Traceback" not in error and error.count("\n") <= 1
    assert [file.read_bytes() for file in folder.iterdir()] == [b"something else"]


MEMORY = 512 << 20


@pytest.mark.skipif(
    "libasan" in os.environ.get("LD_PRELOAD", ""),
    reason="the sanitizer needs the address space",
)
def test_convert_holds_a_row_of_blocks_in_memory(tmp_path: Path):
    """400 MB under a limit of 512 MiB, of which the program itself takes a half."""
    rows, columns = 24576, 16384

    def strips():
        strip = np.zeros((256, columns), np.uint8)
        for number in range(rows // 256):
            strip[:] = number
            yield strip

    source, out = tmp_path / "a.tif", tmp_path / "out.tif"
    tagbridge.imwrite(source, strips(), shape=(rows, columns), dtype="uint8",
                      compression="packbits", rows_per_strip=256)
    done = subprocess.run(
        ["prlimit", f"--as={MEMORY}", sys.executable, "-m", "tagbridge", "convert", source, out,
         "--tile", "256x256", "--compression", "packbits"],
        capture_output=True, text=True, check=False,
        env={**os.environ, "OPENBLAS_NUM_THREADS": "1"})
    assert done.returncode == 0, done.stderr
    with tagbridge.open(out) as tif:
        assert tif.shape == (rows, columns)
        np.testing.assert_array_equal(tif[0][::256, 5], np.arange(rows // 256, dtype=np.uint8))


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


# --- verify

def test_verify_says_that_all_is_good(file: Path):
    assert good("verify", file) == f"{file}: 3 directories, 3 blocks, all good\n"


def test_verify_names_each_block_that_fails_and_goes_on(tmp_path: Path, file: Path):
    path = tmp_path / "damaged.tif"
    with tifffile.TiffWriter(path) as writer:
        for _ in range(2):
            writer.write(image((60, 40)), rowsperstrip=10, compression="zlib",
                         photometric="minisblack", metadata=None)
    damage(path, 1)
    damage(path, 5, page=1)
    done = run("verify", path, tmp_path / "absent.tif", file)
    assert done.returncode == 1
    lines = done.stderr.splitlines()
    assert len(lines) == 3
    assert lines[0].startswith(f"tagbridge: {path}: directory 0, block 1: ")
    assert lines[1].startswith(f"tagbridge: {path}: directory 1, block 5: ")
    assert lines[1].endswith("(KORVAL:pictoria:tiffutils:libtiffError)")
    assert "absent.tif" in lines[2]
    assert done.stdout.splitlines() == [f"{path}: 2 directories, 12 blocks, 2 failed",
                                        f"{file}: 3 directories, 3 blocks, all good"]


def test_verify_looks_at_sub_directories(tmp_path: Path):
    path = tmp_path / "a.tif"
    with tagbridge.open(path, "w") as tif:
        tif.write(image((40, 40)), subdirectories=1)
        tif.write(image((20, 20)), compression="deflate")
    with tagbridge.open(path) as tif:
        place = int(tif.subdirectories[0].tags["StripOffsets"][0])
    data = bytearray(path.read_bytes())
    data[place:place + 20] = b"\xff" * 20
    path.write_bytes(data)
    assert "directory 0.0, block 0: " in failed("verify", path)


@needs_corpus
@pytest.mark.parametrize("entry", entries("directories"))
def test_every_readable_file_of_the_corpus_goes_through(entry, capsys):
    for arguments in (["info", "--tags"], ["info", "--json"], ["verify"], ["preview"]):
        assert main([*arguments, path_of(entry)]) in (0, 1)
        assert "Traceback" not in capsys.readouterr().err


# --- diff

def test_diff_of_equal_files_is_silent(tmp_path: Path, file: Path):
    shutil.copy(file, tmp_path / "b.tif")
    assert good("diff", file, tmp_path / "b.tif") == ""


@pytest.mark.parametrize(("change", "words"), [
    ({"array": "pixel"}, "directory 0: pixels differ first at row 7, column 11, sample 2: "),
    ({"array": "shape"}, "directory 0: shape 40 x 50 x 3 and 39 x 50 x 3"),
    ({"tags": {"Artist": "you"}}, "directory 0: tag Artist me and you"),
    ({"tags": {}}, "directory 0: tag Artist me and absent"),
    ({"compression": "lzw"}, "directory 0: compression NONE and LZW"),
    ({"tile": (16, 16)}, "directory 0: tiled False and True")], ids=str)
def test_diff_says_where_first(tmp_path: Path, change, words):
    array = image((40, 50, 3))
    changed = array.copy()
    options: dict[str, Any] = {"tags": {"Artist": "me"}, **change}
    if options.pop("array", "") == "pixel":
        changed[7, 11, 2] ^= 1
        changed[30, 2, 1] ^= 1
    elif change.get("array") == "shape":
        changed = array[:39]
    tagbridge.imwrite(tmp_path / "a.tif", array, tags={"Artist": "me"})
    tagbridge.imwrite(tmp_path / "b.tif", changed, **options)
    done = run("diff", tmp_path / "a.tif", tmp_path / "b.tif")
    assert (done.returncode, done.stderr) == (1, "")
    assert any(line.startswith(words) for line in done.stdout.splitlines()), done.stdout
    if "pixels" in words:
        assert done.stdout.endswith(f"; 2 of {array.size} samples differ\n")


def test_diff_counts_directories(tmp_path: Path, file: Path):
    tagbridge.imwrite(tmp_path / "b.tif", tagbridge.imread(file))
    done = run("diff", file, tmp_path / "b.tif")
    assert done.returncode == 1 and "directories: 3 and 1" in done.stdout


def test_nan_is_no_difference(tmp_path: Path):
    array = np.full((5, 5), np.nan, np.float32)
    for name in ("a.tif", "b.tif"):
        tagbridge.imwrite(tmp_path / name, array)
    assert good("diff", tmp_path / "a.tif", tmp_path / "b.tif") == ""


def test_a_reader_that_has_enough_ends_the_command_quietly(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        for _ in range(3000):
            tif.write(np.zeros((2, 2), np.uint8))
    done = subprocess.run(
        ["sh", "-c", f'"{sys.executable}" -m tagbridge info --tags "{tmp_path}/a.tif" | head -n 1'],
        capture_output=True, text=True, check=True)
    assert done.stderr == "" and done.stdout.count("\n") == 1
