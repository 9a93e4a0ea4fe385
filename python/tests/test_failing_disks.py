"""Disks that are full or broken, under the commands and the ends that edit and write files."""

from __future__ import annotations

import os
import re
import subprocess
import sys
import textwrap
from collections.abc import Iterator
from pathlib import Path

import numpy as np
import pytest
import tagbridge
from command_line import run
from faults import broken_disk, compiled_shim, room
from images import image, recorded

LINE = re.compile(r"tagbridge: [^\n]+ \([\w:]+\)\n")
TEXT = "somebody with a name of some length"
LAYOUTS = [{}, {"compression": "lzw", "rows_per_strip": 7}, {"tile": (64, 64)}]


@pytest.fixture(params=LAYOUTS, ids=str)
def picture(request, tmp_path: Path) -> Path:
    """A file of two images, in a folder that holds nothing else."""
    path = tmp_path / "disk" / "a.tif"
    path.parent.mkdir()
    with tagbridge.open(path, "w") as tif:
        tif.write(image((100, 150)), **request.param)
        tif.write(image((20, 30)))
    return path


@pytest.fixture
def disk(tmp_path: Path) -> Path:
    """A folder with a file of two images."""
    folder = tmp_path / "disk"
    folder.mkdir()
    with tagbridge.open(folder / "a.tif", "w") as tif:
        tif.write(image((30, 40)), compression="lzw", rows_per_strip=7)
        tif.write(image((20, 30)))
    return folder


def images(path: Path) -> list[np.ndarray]:
    with tagbridge.open(path) as tif:
        return [page.read(strict=True) for page in tif]


def check_unchanged(path: Path, data: bytes) -> None:
    assert path.read_bytes() == data
    assert os.listdir(path.parent) == [path.name]


# --- Full disks

@pytest.mark.parametrize("directory", ["0", "1"])
def test_set_on_a_full_disk_leaves_the_file_as_it_was(picture: Path, directory: str):
    data, wanted, failures = picture.read_bytes(), images(picture), 0
    for size in [0, 100, *range(len(data) - 60, len(data) + 700, 20)]:
        with room(size):
            done = run("set", picture, "Artist", TEXT, "-d", directory)
        if done.returncode == 0:
            break
        failures += 1
        assert done.returncode == 1 and LINE.fullmatch(done.stderr), done.stderr
        assert "(KORVAL:pictoria:Tiff:unableToWriteDir)" in done.stderr
        check_unchanged(picture, data)
    assert failures > 5
    assert tagbridge.open(picture)[int(directory)].tags["Artist"] == TEXT
    assert all(np.array_equal(one, other)
               for one, other in zip(images(picture), wanted, strict=True))


@pytest.mark.parametrize("words", [("export", "out.npy"), ("export", "out.png"),
                                   ("preview", "-o", "out.png")], ids=" ".join)
def test_outputs_on_a_full_disk_are_whole_or_absent(tmp_path: Path, words):
    tagbridge.imwrite(tmp_path / "a.tif", image((30, 40)))
    output = tmp_path / words[-1]
    arguments = [words[0], tmp_path / "a.tif", *words[1:-1], output]
    assert run(*arguments).returncode == 0
    whole = output.read_bytes()
    output.write_bytes(b"what was there")
    for size in sorted({*range(0, len(whole), 97), len(whole) - 1}):
        with room(size):
            done = run(*arguments)
        assert done.returncode == 1 and LINE.fullmatch(done.stderr), (size, done)
        assert output.read_bytes() == b"what was there"
    assert sorted(os.listdir(tmp_path)) == sorted(["a.tif", output.name])
    with room(len(whole)):
        assert run(*arguments).returncode == 0
    assert output.read_bytes() == whole


def test_closing_an_edited_file_on_a_full_disk_is_an_error_and_keeps_the_file(picture: Path):
    data = picture.read_bytes()
    tif = tagbridge.open(picture, "r+")
    tif.tags["Artist"] = TEXT
    with room(len(data)), recorded(), pytest.raises(tagbridge.Error) as caught:
        tif.close()
    assert caught.value.identifier == "KORVAL:pictoria:Tiff:unableToWriteDir"
    assert tif.closed
    tif.close()
    check_unchanged(picture, data)


def test_a_block_without_room_leaves_the_others(picture: Path):
    wanted = images(picture)
    with tagbridge.open(picture, "r+") as tif:
        size = picture.stat().st_size
        block = tif[0].blocks[0]
        noise = image(block.read().shape)
        try:
            with room(size), recorded():
                block.write(noise)
        except tagbridge.Error as error:
            assert error.identifier.endswith(("stripWriteFailure", "tileWritefailure"))
        else:
            wanted[0][tuple(slice(length) for length in noise.shape)] = noise
    got = images(picture)
    rows, columns = noise.shape
    for one, other in zip(got, wanted, strict=True):
        assert np.array_equal(one[rows:], other[rows:])
        assert np.array_equal(one[:, columns:], other[:, columns:])


@pytest.mark.parametrize("opening", [
    'file = tagbridge.call("open", sys.argv[1], "r+")\n'
    'tagbridge.call("setField", file, 315, "x" * 40, outputs=0)',
    'file = tagbridge.open(sys.argv[1], "r+")\nfile.tags["Artist"] = "x" * 40',
    'def edit():\n    tagbridge.open(sys.argv[1], "r+").tags["Artist"] = "x" * 40\nedit()'],
    ids=["call", "file", "lost file"])
@pytest.mark.parametrize("more", [None, 0, 10])
def test_an_edited_file_at_the_end_of_a_process_without_room_is_as_it_was(
        disk: Path, opening: str, more: int | None):
    path = disk / "a.tif"
    data = path.read_bytes()
    program = f"import resource, sys, tagbridge\n{opening}\n" + textwrap.dedent("""
        limit = int(sys.argv[2])
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
    """)
    limit = 0 if more is None else len(data) + more
    ended = subprocess.run([sys.executable, "-c", program, str(path), str(limit)],
                           capture_output=True, text=True, check=False, timeout=60)
    assert ended.returncode == 0
    assert ended.stderr.count("[KORVAL:pictoria:Tiff:directoryNotWritten]") == 1, ended.stderr
    assert "Traceback" not in ended.stderr
    check_unchanged(path, data)


# --- Broken disks

@pytest.fixture(scope="module")
def shim(tmp_path_factory: pytest.TempPathFactory) -> str:
    library = compiled_shim(tmp_path_factory.mktemp("shim"))
    if library is None:
        pytest.skip("there is no C compiler")
    return library


FOR_GOOD = 1_000_000


def each_failure(shim: str, folder: Path, count: int, *words: str) -> Iterator[bool]:
    """Run the command with each of its writes failing in turn; say whether it succeeded.

    It can where it tries again.
    """
    arguments = [str(folder / word) if "." in word else word for word in words]
    sign = folder.parent / "failed"
    for number in range(100):
        sign.unlink(missing_ok=True)
        done = subprocess.run([sys.executable, "-m", "tagbridge", *arguments], check=False,
                              env=broken_disk(shim, folder, number, count, sign),
                              capture_output=True, text=True, timeout=60)
        if not sign.exists():
            assert (done.returncode, number > 1) == (0, True), done
            return
        if done.returncode:
            assert done.returncode == 1 and LINE.fullmatch(done.stderr), (number, done)
        yield done.returncode == 0
    raise AssertionError("there is no end of failures")


@pytest.mark.parametrize("count", [1, FOR_GOOD])
@pytest.mark.parametrize("words", [
    ("convert", "a.tif", "out.tif"), ("export", "a.tif", "out.npy"),
    ("export", "a.tif", "out.png"), ("preview", "a.tif", "-o", "out.png")], ids=" ".join)
def test_outputs_on_a_broken_disk_are_whole_or_absent(shim: str, disk: Path, words, count: int):
    data, output = (disk / "a.tif").read_bytes(), disk / words[-1]
    assert run(*(str(disk / word) if "." in word else word for word in words)).returncode == 0
    whole = output.read_bytes()
    output.write_bytes(b"what was there")
    for succeeds in each_failure(shim, disk, count, *words):
        assert (disk / "a.tif").read_bytes() == data
        assert output.read_bytes() == (whole if succeeds else b"what was there")
        assert sorted(os.listdir(disk)) == sorted(["a.tif", output.name])
        output.write_bytes(b"what was there")
    assert output.read_bytes() == whole


@pytest.mark.parametrize("directory", ["0", "1"])
def test_set_with_a_write_that_fails_leaves_the_file_as_it_was(shim: str, disk: Path,
                                                               directory: str):
    data = (disk / "a.tif").read_bytes()
    for succeeds in each_failure(shim, disk, 1, "set", "a.tif", "Artist", TEXT, "-d", directory):
        assert not succeeds
        check_unchanged(disk / "a.tif", data)


@pytest.mark.parametrize("directory", ["0", "1"])
def test_set_on_a_disk_that_breaks_for_good_leaves_a_file_of_the_same_images(
        shim: str, disk: Path, directory: str):
    wanted = images(disk / "a.tif")
    for succeeds in each_failure(shim, disk, FOR_GOOD, "set", "a.tif", "Artist", TEXT, "-d",
                                 directory):
        assert not succeeds
        got = images(disk / "a.tif")
        assert all(np.array_equal(one, other) for one, other in zip(got, wanted, strict=True))
