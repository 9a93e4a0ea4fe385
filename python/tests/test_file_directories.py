"""Directories of a file: the chain, sub-directories and what a directory says of its image."""

from __future__ import annotations

import struct
from pathlib import Path

import numpy as np
import pytest
import tagbridge
import tifffile
from images import EXAMPLES, image, pages, pyramid, recorded
from tagbridge import Compression, Photometric, PlanarConfiguration, SampleFormat, _core


def chain(path: Path, *links: int) -> None:
    """Let the next-directory links of a classic little-endian file lead to those directories."""
    data = bytearray(path.read_bytes())
    with tifffile.TiffFile(path) as tiff:
        offsets = [page.offset for page in tiff.pages]
    for offset, link in zip(offsets, links, strict=True):
        place = offset + 2 + 12 * struct.unpack_from("<H", data, offset)[0]
        target = offsets[link] if link < len(offsets) else len(data) + 1000
        struct.pack_into("<I", data, place, 0 if link < 0 else target)
    path.write_bytes(data)


@pytest.fixture
def file(tmp_path: Path):
    path = tmp_path / "pages.tif"
    pages(path, 4)
    with tagbridge.open(path) as tif:
        yield tif


def test_length_and_indices_are_those_of_the_chain(file: tagbridge.File):
    assert len(file) == 4
    assert [file[n].shape for n in (0, 3, -1, -4)] == [(20, 30), (23, 30), (23, 30), (20, 30)]
    assert [file[n].index for n in (0, -1)] == [0, 3]
    assert file[np.int64(2)].index == 2


@pytest.mark.parametrize("index", [4, -5, 10**6, 2**40])
def test_an_absent_directory_is_an_index_error(file: tagbridge.File, index: int):
    with pytest.raises(IndexError):
        file[index]


def test_an_index_is_a_number(file: tagbridge.File):
    with pytest.raises(TypeError):
        file["0"]


def test_iteration_gives_each_directory(file: tagbridge.File):
    assert [page.index for page in file] == [0, 1, 2, 3]
    assert [page.shape[0] for page in file] == [20, 21, 22, 23]
    assert all(page.file is file for page in file)


def test_a_file_has_what_its_first_directory_has(file: tagbridge.File):
    first = file[0]
    for name in ("shape", "dtype", "ndim", "size", "nbytes", "compression", "photometric", "planar",
                 "sample_format", "tiled", "block_shape", "metadata", "subdirectories"):
        assert getattr(file, name) == getattr(first, name), name
    assert dict(file.tags).keys() == dict(first.tags).keys()
    assert len(file.blocks) == len(first.blocks)
    np.testing.assert_array_equal(file.read(), first.read())
    np.testing.assert_array_equal(file.rgba(), first.rgba())
    np.testing.assert_array_equal(np.asarray(file), first.read())


def test_going_in_order_takes_a_step_each(file: tagbridge.File, monkeypatch):
    operations = []
    collect = _core.collect

    def counting(operation, *inputs, **keywords):
        operations.append(operation)
        return collect(operation, *inputs, **keywords)

    monkeypatch.setattr(_core, "collect", counting)
    for page in file:
        page.read()
        page.tags["ImageWidth"]
    assert operations.count("readDirectory") == 3
    assert operations.count("setDirectory") == 0


def test_making_a_directory_reads_nothing(file: tagbridge.File, monkeypatch):
    len(file)
    monkeypatch.setattr(_core, "collect", lambda *_, **__: pytest.fail("an operation was run"))
    assert [file[n].index for n in (3, 0, -2)] == [3, 0, 2]


def test_views_of_different_directories_do_not_disturb_each_other(tmp_path: Path):
    images = pages(tmp_path / "p.tif", 3)
    with tagbridge.open(tmp_path / "p.tif") as tif:
        first, third = tif[0], tif[2]
        np.testing.assert_array_equal(third.read(), images[2])
        np.testing.assert_array_equal(first.read(), images[0])
        assert third.tags["ImageLength"] == 22
        assert first.tags["ImageLength"] == 20
        assert [page.read().shape for page in (third, first, tif[1])] == [
            (22, 30), (20, 30), (21, 30)]


@pytest.mark.parametrize(("links", "reached"), [
    ((1, 0, -1), 2), ((1, 2, 2), 3), ((0, 2, -1), 1), ((1, 9, -1), 2)])
def test_a_chain_that_loops_or_breaks_ends_with_a_warning(tmp_path: Path, links, reached):
    path = tmp_path / "loop.tif"
    pages(path)
    chain(path, *links)
    with tagbridge.open(path) as tif:
        with recorded() as said:
            assert len(tif) == reached
        assert len(said) == 1
        assert f"ends after {reached}" in str(said[0])
        assert tif[reached - 1].shape == (20 + reached - 1, 30)
        with pytest.raises(IndexError):
            tif[reached]
        assert f"{reached} director" in repr(tif)
    with tagbridge.open(path) as tif, recorded() as said:
        assert [page.index for page in tif] == list(range(reached))
    assert len(said) == 1


def test_subdirectories_are_a_tuple_of_directories(tmp_path: Path):
    path = tmp_path / "pyramid.tif"
    images = pyramid(path, levels=3, count=2)
    with tagbridge.open(path) as tif:
        assert len(tif) == 2
        for page, whole in zip(tif, images, strict=True):
            assert isinstance(page.subdirectories, tuple)
            for level, below in enumerate(page.subdirectories, 1):
                assert below.index is None and below.file is tif
                np.testing.assert_array_equal(below.read(), whole[:: 2**level, :: 2**level])
        assert tif[0].subdirectories[0].subdirectories == ()


def test_subdirectories_may_be_used_in_any_order(tmp_path: Path):
    path = tmp_path / "pyramid.tif"
    images = pyramid(path, count=2)
    with tagbridge.open(path) as tif:
        levels = [level for page in tif for level in page.subdirectories]
        for level, whole, step in reversed(list(zip(levels, np.repeat(images, 2, axis=0),
                                                    [2, 4, 2, 4], strict=True))):
            np.testing.assert_array_equal(level.read(), whole[::step, ::step])
        np.testing.assert_array_equal(tif[1].read(), images[1])


def test_a_directory_describes_its_image(tmp_path: Path):
    tifffile.imwrite(tmp_path / "a.tif", image((3, 70, 50), np.uint16), photometric="rgb",
                     planarconfig="separate", tile=(32, 16), compression="zlib", metadata=None)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        page = tif[0]
        assert (page.shape, page.dtype, page.ndim) == ((70, 50, 3), np.dtype(np.uint16), 3)
        assert (page.size, page.nbytes) == (10500, 21000)
        assert page.compression is Compression.ADOBE_DEFLATE
        assert page.photometric is Photometric.RGB
        assert page.planar is PlanarConfiguration.SEPARATE
        assert page.sample_format is SampleFormat.UINT
        assert (page.tiled, page.block_shape) == (True, (32, 16))


def test_block_shape_of_strips_is_rows_by_columns(gray: Path):
    with tagbridge.open(gray) as tif:
        assert (tif.tiled, tif.block_shape) == (False, (16, 30))


def test_a_column_keeps_its_dimension(tmp_path: Path):
    tifffile.imwrite(tmp_path / "c.tif", image((9, 1)), photometric="minisblack", metadata=None)
    with tagbridge.open(tmp_path / "c.tif") as tif:
        assert tif.shape == tif.read().shape == (9, 1)


def test_a_code_without_a_name_is_a_number(tmp_path: Path):
    path = tmp_path / "a.tif"
    tifffile.imwrite(path, image((4, 4)), photometric="minisblack", metadata=None)
    with tifffile.TiffFile(path) as tiff:
        place = tiff.pages[0].tags[262].valueoffset
    data = bytearray(path.read_bytes())
    struct.pack_into("<H", data, place, 60000)
    path.write_bytes(data)
    with tagbridge.open(path) as tif:
        assert type(tif.photometric) is int and tif.photometric == 60000


def test_metadata_are_the_modules_fields_as_python_values(gray: Path):
    with tagbridge.open(gray) as tif:
        metadata = tif.metadata
    handle = tagbridge.call("open", str(gray), "r")
    fields = tagbridge.call("retrieveMetadata", handle)
    tagbridge.call("close", handle, outputs=0)
    assert list(metadata) == list(fields) and len(metadata) == 16
    assert metadata["isTiled"] is False
    assert metadata["YCbCrSubsampling"] == ()
    assert all(type(value) is int for name, value in metadata.items()
               if name not in ("isTiled", "YCbCrSubsampling"))
    assert metadata["ImageWidth"] == 30 and metadata["RowsPerStrip"] == 16


def test_metadata_of_ycbcr_have_the_subsampling():
    with tagbridge.open(EXAMPLES / "ycbcr-jpeg-tiles.tif") as tif:
        assert tif.metadata["YCbCrSubsampling"] == (2, 2)


def test_samples_that_no_class_fits_are_the_modules_error(tmp_path: Path):
    tifffile.imwrite(tmp_path / "a.tif", np.zeros((4, 4), np.uint64), photometric="minisblack",
                     metadata=None)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert tif.shape == (4, 4)
        for use in (lambda: tif.dtype, tif.read, lambda: tif.nbytes, lambda: tif[0][0, 0]):
            with pytest.raises(tagbridge.Error) as caught:
                use()
            assert caught.value.identifier.endswith("sampleFormatMustBeIeeeFpFor64Bits")


def test_a_directory_shows_itself_in_a_notebook(gray: Path):
    with tagbridge.open(gray) as tif:
        page = tif[0]
        assert "40 x 30 uint8, NONE" in repr(page)
        assert "<th>ImageWidth</th><td>30</td>" in page._repr_html_()
        assert "data:image/png;base64," in page._repr_html_()
        assert page._repr_png_().startswith(b"\x89PNG")


def test_a_single_large_strip_is_told_as_it_is_stored(tmp_path: Path):
    array = image((300, 200))
    tifffile.imwrite(tmp_path / "a.tif", array, rowsperstrip=300, photometric="minisblack",
                     metadata=None)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert tif.block_shape == (300, 200) and len(tif.blocks) == 1
        assert tif.tags["RowsPerStrip"] == 300
        assert tif.tags["StripByteCounts"].tolist() == [60000]
        np.testing.assert_array_equal(tif.read(), array)
