"""The command line: verify and diff."""

from __future__ import annotations

import shutil
import subprocess
import sys
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from command_line import failed, good, run
from corpus import entries, needs_corpus, path_of
from images import damage, image
from tagbridge.cli import main


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
