"""The command line: convert."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import numpy as np
import pytest
import tagbridge
import tifffile
from command_line import failed, good
from images import EXAMPLES, damage, image, pages
from tagbridge.cli.convert import COMPRESSIONS


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
                above = (above[::2, ::2] + above[1::2, ::2] + above[::2, 1::2]
                         + above[1::2, 1::2]) / 4
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
