"""The demonstration as its user runs it: python -m tagbridge.demo FILE…"""

import pathlib
import re
import struct
import subprocess
import sys

import numpy as np
import pytest
import tifffile

EXAMPLES = sorted((pathlib.Path(__file__).resolve().parents[2] / "examples").glob("*.tif"))
GREY = np.arange(20 * 30, dtype=np.uint16).reshape(20, 30)


def demo(*arguments: object) -> tuple[int, str]:
    """Runs the demonstration; returns its exit status and what it printed."""
    run = subprocess.run([sys.executable, "-m", "tagbridge.demo", *map(str, arguments)],
                         capture_output=True, text=True, check=False)
    assert "Traceback" not in run.stderr, run.stderr
    return run.returncode, run.stdout


def grey_file(path: pathlib.Path, **layout: object) -> pathlib.Path:
    tifffile.imwrite(path, GREY, photometric="minisblack", metadata=None, **layout)
    return path


@pytest.mark.parametrize("path", EXAMPLES, ids=lambda path: path.stem)
def test_reads_each_example(path: pathlib.Path):
    status, text = demo(path)
    assert (status, text.count("error")) == (0, 0), text


def test_shows_size_class_layout_compression_and_statistics(tmp_path: pathlib.Path):
    _, text = demo(grey_file(tmp_path / "grey.tif", compression="zlib", rowsperstrip=8))
    assert "1      30 x 20 uint16, min-is-black, strips of 8, Deflate" in text
    assert "plane 1: min 0, mean 299.5, max 599" in text
    assert "1.2 kB in 3 strips" in text


def test_leaves_nan_out_of_the_statistics(tmp_path: pathlib.Path):
    samples = np.array([[np.nan, -1.5], [2.5, np.nan]], dtype=np.float32)
    tifffile.imwrite(tmp_path / "holes.tif", samples, photometric="minisblack", metadata=None)
    _, text = demo(tmp_path / "holes.tif")
    assert "single" in text and "min -1.5, mean 0.5, max 2.5" in text


def test_visits_every_page_and_sub_directory(tmp_path: pathlib.Path):
    with tifffile.TiffWriter(tmp_path / "tree.tif") as writer:
        for _ in range(2):
            writer.write(GREY, subifds=2, metadata=None)
            writer.write(GREY[::2, ::2], subfiletype=1, metadata=None)
            writer.write(GREY[::4, ::4], subfiletype=1, metadata=None)
    _, text = demo(tmp_path / "tree.tif")
    assert re.findall(r"^  ([\d.]+) +(\d+ x \d+)", text, re.MULTILINE) == [
        ("1", "30 x 20"), ("1.1", "15 x 10"), ("1.2", "8 x 5"),
        ("2", "30 x 20"), ("2.1", "15 x 10"), ("2.2", "8 x 5")]


def test_a_directory_below_itself_is_visited_once(tmp_path: pathlib.Path):
    path = tmp_path / "ring.tif"
    with tifffile.TiffWriter(path, byteorder="<") as writer:
        writer.write(GREY, subifds=1, metadata=None)
        writer.write(GREY, subfiletype=1, metadata=None)
    with tifffile.TiffFile(path) as tiff:
        inner = tiff.pages[0].tags[330].value[0]
        subfile_type = tiff.pages[0].pages[0].tags[254].offset
    data = bytearray(path.read_bytes())
    # The sub-directory's SubfileType becomes a SubIFD tag that lists the sub-directory itself.
    data[subfile_type:subfile_type + 12] = struct.pack("<HHII", 330, 4, 1, inner)
    path.write_bytes(data)
    status, text = demo(path)
    assert re.findall(r"^  ([\d.]+) ", text, re.MULTILINE) == ["1", "1.1"], text
    assert status == 0


def test_a_failing_file_tells_its_error_and_the_others_go_on(tmp_path: pathlib.Path):
    bad = tmp_path / "bad.tif"
    bad.write_bytes(b"II*\0 this is no directory")
    status, text = demo(bad, grey_file(tmp_path / "good.tif"))
    assert status == 1
    assert "error KORVAL:pictoria:Tiff:unableToOpenFile" in text
    assert "libtiff: " in text
    assert "plane 1: min 0, mean 299.5, max 599" in text
    assert "2 files, 1 directory, " in text and "; 1 failed" in text


def test_an_unreadable_directory_does_not_end_the_walk(tmp_path: pathlib.Path):
    path = tmp_path / "mixed.tif"
    with tifffile.TiffWriter(path) as writer:
        writer.write(np.zeros((4, 4), np.uint64), photometric="minisblack", metadata=None)
        writer.write(GREY, photometric="minisblack", metadata=None)
    status, text = demo(path)
    assert status == 1
    assert "error KORVAL:pictoria:Tiff:sampleFormatMustBeIeeeFpFor64Bits" in text
    assert "plane 1: min 0, mean 299.5, max 599" in text


def test_damaged_blocks_are_counted_and_fail_the_file(tmp_path: pathlib.Path):
    path = grey_file(tmp_path / "cut.tif", compression="zlib", rowsperstrip=10)
    with tifffile.TiffFile(path) as tiff:
        second = tiff.pages[0].dataoffsets[1]
    data = bytearray(path.read_bytes())
    data[second:second + 8] = b"\xff" * 8
    path.write_bytes(data)
    status, text = demo(path)
    assert status == 1
    assert "error KORVAL:pictoria:tiffutils:libtiffError" in text
    assert "1 of 2 strips could not be decoded" in text


def test_copies_to_deflate_tiles_and_compares(tmp_path: pathlib.Path):
    path = tmp_path / "pages.tif"
    with tifffile.TiffWriter(path) as writer:
        for page in (GREY, np.full((70, 65), 7, np.uint64), np.tile(GREY, (5, 4))):
            writer.write(page, photometric="minisblack", metadata=None)
    status, text = demo("--copy", path)
    assert "  2      not copied: KORVAL:pictoria:Tiff:sampleFormatMustBeIeeeFpFor64Bits" in text
    assert re.search("copy   2 directories in Deflate tiles of 64 x 64, .*; pixels equal; "
                     "tiffinfo accepts it", text), text
    assert status == 1


LARGE = np.arange(1500 * 1600, dtype=np.uint16).reshape(1500, 1600)


@pytest.mark.parametrize("layout", [{"tile": (256, 256)}, {"rowsperstrip": 100}], ids=str)
def test_reads_large_images_on_threads(tmp_path: pathlib.Path, layout: dict):
    path = tmp_path / "large.tif"
    tifffile.imwrite(path, LARGE, photometric="minisblack", metadata=None, compression="zlib",
                     **layout)
    status, text = demo(path)
    assert status == 0
    assert f"min {LARGE.min()}, mean {LARGE.mean():.6g}, max {LARGE.max()}" in text


def test_counts_damaged_blocks_of_large_images(tmp_path: pathlib.Path):
    path = tmp_path / "large.tif"
    tifffile.imwrite(path, LARGE, photometric="minisblack", metadata=None, compression="zlib",
                     rowsperstrip=100)
    with tifffile.TiffFile(path) as tif:
        offsets = tif.pages[0].dataoffsets
    with open(path, "rb+") as file:
        for damaged in (3, 8):
            file.seek(offsets[damaged])
            file.write(b"broken")
    _, text = demo(path)
    assert "2 of 15 strips could not be decoded" in text
