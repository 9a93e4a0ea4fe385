"""Writing in every mode: sub-directories, new files, files that grow, and imwrite."""

from __future__ import annotations

import io
from pathlib import Path

import numpy as np
import pytest
import tagbridge
import tifffile
from images import image, pages
from tagbridge import Compression
from writing import GOOD, accepted


# --- Sub-directories

def test_the_next_writes_become_sub_directories(tmp_path: Path):
    array = image((64, 48))
    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        for _ in range(2):
            tif.write(array, subdirectories=2)
            tif.write(array[::2, ::2], tags={"SubfileType": "reduced_image"})
            tif.write(array[::4, ::4], tags={"SubfileType": "reduced_image"})
        tif.write(array[:5])
        assert len(tif) == 3
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert [len(page.subdirectories) for page in tif] == [2, 2, 0]
        for page in list(tif)[:2]:
            for step, level in zip((2, 4), page.subdirectories, strict=True):
                np.testing.assert_array_equal(level.read(), array[::step, ::step])
    with tifffile.TiffFile(tmp_path / "a.tif") as other:
        assert len(other.pages) == 3
        assert [page.shape for page in other.pages[1].pages] == [(32, 24), (16, 12)]


def test_sub_directories_have_none_below(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        tif.write(image((8, 8)), subdirectories=1)
        with pytest.raises(ValueError, match="sub-director"):
            tif.write(image((4, 4)), subdirectories=1)
        tif.write(image((4, 4)))


# --- Modes

def test_a_file_that_is_written_only_writes(tmp_path: Path):
    for mode in ("w", "x8", "a"):
        with tagbridge.open(tmp_path / f"{mode}.tif", mode) as tif:
            tif.write(image((4, 4)))
            assert len(tif) == 1
            for use in (lambda: tif[0], lambda: iter(tif), tif.read, lambda: tif.tags,
                        lambda: tif.shape, lambda: tif.blocks, tif.rgba, lambda: tif[0:1]):
                with pytest.raises(io.UnsupportedOperation):
                    use()
            assert "1 directory" in repr(tif)


@pytest.mark.parametrize("mode", ["r", "r+"])
def test_writing_needs_a_writing_mode(gray: Path, mode: str):
    with tagbridge.open(gray, mode) as tif, pytest.raises(io.UnsupportedOperation):
        tif.write(image((4, 4)))


def test_append_counts_what_it_wrote(tmp_path: Path):
    images = pages(tmp_path / "a.tif")
    with tagbridge.open(tmp_path / "a.tif", "a") as tif:
        assert len(tif) == 0
        tif.write(images[0])
        assert len(tif) == 1
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 4
        for page, array in zip(tif, [*images, images[0]], strict=True):
            np.testing.assert_array_equal(page.read(), array)


def test_append_makes_a_file_that_does_not_exist(tmp_path: Path):
    with tagbridge.open(tmp_path / "a.tif", "a8") as tif:
        tif.write(image((4, 4)))
        assert tif.bigtiff
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 1 and tif.bigtiff


@pytest.mark.parametrize("mode", ["w", "x", "a", "w8b"])
def test_a_new_file_without_a_directory_is_removed(tmp_path: Path, mode: str):
    with tagbridge.open(tmp_path / "a.tif", mode):
        assert (tmp_path / "a.tif").exists()
    assert list(tmp_path.iterdir()) == []
    with tagbridge.open(tmp_path / "a.tif", mode) as tif, pytest.raises(ValueError):
        tif.write(iter(GOOD[:2]), shape=(30, 20), dtype="uint8", rows_per_strip=10)
    assert list(tmp_path.iterdir()) == []


def test_appending_nothing_leaves_the_file(tmp_path: Path):
    pages(tmp_path / "a.tif")
    before = (tmp_path / "a.tif").read_bytes()
    with tagbridge.open(tmp_path / "a.tif", "a"):
        pass
    assert (tmp_path / "a.tif").read_bytes() == before


def test_a_file_that_cannot_be_written_anew_is_left(gray: Path):
    before = gray.read_bytes()
    with tagbridge.open(gray):
        with pytest.raises(tagbridge.Error):
            tagbridge.open(gray, "w")
    assert gray.read_bytes() == before


# --- imwrite

def test_imwrite_writes_a_file(tmp_path: Path):
    array = image((30, 40, 3))
    tagbridge.imwrite(tmp_path / "a.tif", array, compression="lzw", tile=(16, 16))
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 1 and tif.compression is Compression.LZW and not tif.bigtiff
        np.testing.assert_array_equal(tif.read(), array)
    accepted(tmp_path / "a.tif", array)


def test_imwrite_appends(tmp_path: Path):
    for append in (False, True, True):
        tagbridge.imwrite(tmp_path / "a.tif", image((5, 5)), append=append)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 3


@pytest.mark.parametrize(("rows", "big"), [(38_999, False), (39_001, True)])
def test_imwrite_takes_bigtiff_for_more_than_3_9_gb(tmp_path: Path, monkeypatch, rows, big):
    from tagbridge import functions

    modes = []
    monkeypatch.setattr(functions, "_write", lambda _, mode, *__: modes.append(mode))
    huge = np.broadcast_to(np.uint8(0), (rows, 100_000))
    tagbridge.imwrite(tmp_path / "a.tif", huge)
    tagbridge.imwrite(tmp_path / "a.tif", iter([]), shape=huge.shape, dtype="uint8")
    tagbridge.imwrite(tmp_path / "a.tif", huge, bigtiff=not big)
    assert modes == ["w8" if big else "w"] * 2 + ["w" if big else "w8"]


def test_imwrite_may_be_told_to_take_bigtiff(tmp_path: Path):
    tagbridge.imwrite(tmp_path / "a.tif", image((5, 5)), bigtiff=True)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert tif.bigtiff


@pytest.mark.parametrize("there", [False, True])
def test_imwrite_that_fails_leaves_what_was_there(tmp_path: Path, there: bool):
    path = tmp_path / "a.tif"
    if there:
        path.write_bytes(b"something else")
    with pytest.raises(ValueError):
        tagbridge.imwrite(path, iter(GOOD[:2]), shape=(30, 20), dtype="uint8", rows_per_strip=10)
    assert [file.read_bytes() for file in tmp_path.iterdir()] == [b"something else"] * there


def test_imwrite_keeps_permissions_and_links(tmp_path: Path):
    path, link = tmp_path / "a.tif", tmp_path / "link.tif"
    path.write_bytes(b"old")
    path.chmod(0o640)
    link.symlink_to(path)
    tagbridge.imwrite(link, image((5, 5)))
    assert link.is_symlink() and path.stat().st_mode & 0o777 == 0o640
    assert tagbridge.imread(path).shape == (5, 5)


def test_imwrite_reports_a_bad_place_with_its_name(tmp_path: Path):
    for path, kind in ((tmp_path, IsADirectoryError),
                       (tmp_path / "no" / "a.tif", FileNotFoundError)):
        with pytest.raises(kind) as caught:
            tagbridge.imwrite(path, image((5, 5)))
        assert caught.value.filename == str(path)
