"""Opening and closing files, modes, and what a file says of itself."""

from __future__ import annotations

import gc
import io
import os
import pickle
import time
import warnings
from pathlib import Path

import numpy as np
import pytest
import tagbridge
import tifffile
from conftest import open_descriptors
from images import image, pages, pyramid, recorded


@pytest.fixture
def path(tmp_path: Path) -> Path:
    file = tmp_path / "pages.tif"
    pages(file)
    return file


def test_a_path_may_be_text_bytes_or_path_like(path: Path):
    for name in (path, str(path), os.fsencode(path)):
        with tagbridge.open(name) as tif:
            assert tif.name == str(path)


def test_something_else_than_a_file_is_a_type_error():
    with pytest.raises(TypeError, match="path or a binary file object"):
        tagbridge.open(5)


MODES = ["r", "r+"] + [access + size + order for access in "wxa" for size in ("", "8")
                       for order in ("", "l", "b")]


@pytest.mark.parametrize("mode", MODES)
def test_every_mode_of_the_list_opens(path: Path, tmp_path: Path, mode: str):
    file = tmp_path / "new.tif" if mode[0] in "wx" else path
    with tagbridge.open(file, mode) as tif:
        assert tif.mode == mode


@pytest.mark.parametrize("mode", ["", "R", "rb", "rl", "r8", "r+b", "w4", "wlb", "wl8", "w+", "ww",
                                  None, 3])
def test_another_mode_is_a_value_error_that_lists_the_modes(path: Path, mode: str):
    with pytest.raises(ValueError) as caught:
        tagbridge.open(path, mode)
    assert all(repr(known) in str(caught.value)
               for known in ("r", "r+", "w", "w8", "x", "x8", "a", "a8", "l", "b"))


@pytest.mark.parametrize(("mode", "order", "big"), [
    ("w", "little", False), ("w8", "little", True), ("wb", "big", False), ("w8b", "big", True),
    ("xl", "little", False), ("x8b", "big", True), ("ab", "big", False), ("a8", "little", True)])
def test_byte_order_and_bigtiff_are_those_of_the_mode(tmp_path: Path, mode, order, big):
    file = tmp_path / "new.tif"
    with tagbridge.open(file, mode) as tif:
        assert (tif.byteorder, tif.bigtiff) == (order, big)
        tif.write(image((4, 5)))
    with tagbridge.open(file) as tif:
        assert (tif.byteorder, tif.bigtiff) == (order, big)
    with tifffile.TiffFile(file) as other:
        assert (other.byteorder, other.is_bigtiff) == ({"little": "<", "big": ">"}[order], big)


def test_an_absent_file_is_reported_at_once_with_its_name(tmp_path: Path):
    file = tmp_path / "no such folder" / "file.tif"
    for mode in ("r", "r+", "w", "x", "a"):
        start = time.perf_counter()
        with pytest.raises(FileNotFoundError) as caught:
            tagbridge.open(file, mode)
        assert time.perf_counter() - start < 0.5
        assert caught.value.filename == str(file)


def test_a_folder_is_reported_with_its_name(tmp_path: Path):
    for mode in ("r", "r+", "w", "a"):
        with pytest.raises(IsADirectoryError) as caught:
            tagbridge.open(tmp_path, mode)
        assert caught.value.filename == str(tmp_path)


@pytest.mark.skipif(os.geteuid() == 0, reason="nothing is forbidden to root")
def test_a_forbidden_file_is_reported_with_its_name(path: Path):
    path.chmod(0)
    with pytest.raises(PermissionError) as caught:
        tagbridge.open(path)
    assert caught.value.filename == str(path)


def test_x_refuses_a_file_that_exists_and_leaves_it(path: Path):
    before = path.read_bytes()
    with pytest.raises(FileExistsError) as caught:
        tagbridge.open(path, "x")
    assert caught.value.filename == str(path)
    assert path.read_bytes() == before


def test_w_replaces_a_file(path: Path):
    array = image((5, 6))
    with tagbridge.open(path, "w") as tif:
        tif.write(array)
    with tagbridge.open(path) as tif:
        assert len(tif) == 1
        np.testing.assert_array_equal(tif.read(), array)


@pytest.mark.parametrize("data", [b"", b"no TIFF file at all", b"II*\0\xff\xff\xff\xff"])
def test_what_is_no_tiff_file_is_an_error(tmp_path: Path, data: bytes):
    file = tmp_path / "bad.tif"
    file.write_bytes(data)
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.open(file)
    assert caught.value.identifier == "KORVAL:pictoria:Tiff:unableToOpenFile"
    assert caught.value.arguments == (str(file),)


def test_with_closes_the_file(path: Path):
    with tagbridge.open(path) as tif:
        assert not tif.closed
    assert tif.closed
    assert open_descriptors(path) == 0


def test_closing_twice_is_fine(path: Path):
    tif = tagbridge.open(path)
    tif.close()
    tif.close()
    assert (tif.closed, tif.name, tif.mode) == (True, str(path), "r")


USES = [len, iter, lambda t: t[0], lambda t: t.read(), lambda t: t.tags, lambda t: t.shape,
        lambda t: t.byteorder, lambda t: t.bigtiff, lambda t: t.write(np.zeros((2, 2), np.uint8)),
        lambda t: t.flush(), lambda t: t.__enter__(), pickle.dumps, lambda t: t.rgba(),
        lambda t: t.blocks, lambda t: t.subdirectories, np.asarray]


@pytest.mark.parametrize("use", USES)
@pytest.mark.parametrize("mode", ["r", "r+", "a"])
def test_everything_else_after_close_is_a_value_error(path: Path, mode: str, use):
    tif = tagbridge.open(path, mode)
    tif.close()
    with pytest.raises(ValueError, match="^the file is closed$"):
        use(tif)


def test_views_of_a_closed_file_are_closed_too(path: Path):
    with tagbridge.open(path) as tif:
        page, block = tif[0], tif[0].blocks[0]
        tags = page.tags
    for use in (page.read, block.read, lambda: tags["ImageWidth"], lambda: page.shape):
        with pytest.raises(ValueError, match="^the file is closed$"):
            use()


def test_repr_is_a_line_with_name_mode_and_number(path: Path):
    with tagbridge.open(path) as tif:
        assert repr(tif) == f"<tagbridge.File {str(path)!r}, mode 'r', 3 directories>"
    assert repr(tif) == f"<tagbridge.File {str(path)!r}, mode 'r', closed>"


def test_a_file_that_is_forgotten_is_closed_with_a_resource_warning(path: Path):
    tif = tagbridge.open(path)
    with pytest.warns(ResourceWarning, match="unclosed file"):
        del tif
        gc.collect()
    assert open_descriptors(path) == 0


def test_a_pickled_file_is_opened_anew(path: Path, monkeypatch):
    monkeypatch.chdir(path.parent)
    with tagbridge.open(path.name) as tif:
        data = pickle.dumps(tif)
        first = tif[2].read()
    monkeypatch.chdir("/")
    with pickle.loads(data) as again:
        assert (again.name, again.mode, len(again)) == (str(path), "r", 3)
        np.testing.assert_array_equal(again[2].read(), first)


def test_a_pickled_directory_comes_with_its_file(tmp_path: Path):
    file = tmp_path / "pyramid.tif"
    whole = pyramid(file)[0]
    with tagbridge.open(file) as tif:
        level = pickle.loads(pickle.dumps(tif[0].subdirectories[1]))
    np.testing.assert_array_equal(level.read(), whole[::4, ::4])
    level.file.close()


@pytest.mark.parametrize("mode", ["r+", "a"])
def test_other_modes_cannot_be_pickled(path: Path, mode: str):
    with tagbridge.open(path, mode) as tif, pytest.raises(TypeError, match="pickle"):
        pickle.dumps(tif)


def test_a_file_object_cannot_be_pickled(path: Path):
    with tagbridge.open(io.BytesIO(path.read_bytes())) as tif:
        with pytest.raises(TypeError, match="pickle"):
            pickle.dumps(tif)


def test_warnings_of_opening_are_those_of_call(unknown_tag: Path):
    with recorded() as said, tagbridge.open(unknown_tag):
        pass
    assert [each.identifier for each in said] == ["KORVAL:pictoria:tiffutils:libtiffWarning"]


def test_warnings_name_the_callers_line(unknown_tag: Path):
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        tagbridge.open(unknown_tag).close()
    assert caught[0].filename == __file__


def test_a_warning_that_is_made_an_error_leaves_nothing_open(unknown_tag: Path):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        with pytest.raises(tagbridge.Warning):
            tagbridge.open(unknown_tag)
    assert open_descriptors(unknown_tag) == 0
