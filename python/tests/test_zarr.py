"""Files as Zarr stores, read with Zarr, Dask and xarray."""

from __future__ import annotations

import json
import pickle
from pathlib import Path

import dask.array as da
import numpy as np
import pytest
import tagbridge
import tagbridge.zarr
import tifffile
import xarray
import zarr
from conftest import open_descriptors
from images import EXAMPLES, damage, image, pages, pyramid, recorded
from zarr.errors import ReadOnlyError


@pytest.fixture
def tiles(tmp_path: Path) -> tuple[Path, np.ndarray]:
    """An RGB image of 4 x 3 tiles, cut by two edges."""
    path, pixels = tmp_path / "tiles.tif", image((100, 80, 3), np.uint16)
    tagbridge.imwrite(path, pixels, tile=(32, 32), compression="lzw")
    return path, pixels


def opened(path: Path, **options):
    return zarr.open(tagbridge.zarr.store(path, **options), mode="r")


# --- One image

@pytest.mark.parametrize("example", sorted(path.name for path in EXAMPLES.glob("*.tif")))
def test_every_kind_of_image_is_an_array(example):
    node = opened(EXAMPLES / example)
    array = node if isinstance(node, zarr.Array) else node["0"]
    with tagbridge.open(EXAMPLES / example) as tif:
        assert (array.shape, array.dtype, array.order) == (tif.shape, tif.dtype, "F")
        assert np.array_equal(array[...], tif.read())


def test_a_chunk_is_a_tile(tiles):
    path, pixels = tiles
    array = opened(path)
    assert array.chunks == (32, 32, 3)
    assert np.array_equal(array[:], pixels)
    assert np.array_equal(array[5:99:7, 30:34, 1], pixels[5:99:7, 30:34, 1])
    assert np.array_equal(array.oindex[[3, 70], :, 0], pixels[[3, 70], :, 0])


@pytest.mark.parametrize(("shape", "options", "chunks"), [
    ((100, 50), {"rows_per_strip": 7}, (100, 50)),
    ((3000, 3001), {"rows_per_strip": 1000}, (1000, 3001)),
    ((3000, 3001), {"rows_per_strip": 7}, (1393, 3001)),
    ((40, 50, 3), {"tile": (32, 32), "planar": "separate"}, (32, 32, 1)),
    ((3000, 3001, 2), {"rows_per_strip": 9, "planar": "separate"}, (1395, 3001, 1)),
    ((5, 6), {"tile": (16, 16)}, (5, 6)),
])
def test_other_layouts_have_chunks_that_fit(tmp_path, shape, options, chunks):
    pixels = image(shape)
    tagbridge.imwrite(tmp_path / "a.tif", pixels, **options)
    array = opened(tmp_path / "a.tif")
    assert array.chunks == chunks
    assert np.array_equal(array[...], pixels)


@pytest.mark.parametrize("dtype", [np.bool_, np.int8, np.int32, np.float32, np.float64])
def test_samples_of_every_kind_are_read(tmp_path, dtype):
    pixels = image((40, 50), dtype)
    tagbridge.imwrite(tmp_path / "a.tif", pixels, tile=(16, 32))
    found = opened(tmp_path / "a.tif")[...]
    assert found.dtype == dtype and np.array_equal(found, pixels)


def test_tifffile_sees_the_same_pixels(tmp_path):
    path, pixels = tmp_path / "a.tif", image((100, 80, 3))
    tifffile.imwrite(path, pixels, tile=(32, 48), compression="zlib", photometric="rgb")
    with tifffile.imread(path, aszarr=True) as theirs:
        assert np.array_equal(opened(path)[...], zarr.open(theirs, mode="r")[...])


# --- Several images

def test_each_directory_is_an_array_of_a_group(tmp_path):
    images = pages(tmp_path / "pages.tif")
    group = opened(tmp_path / "pages.tif")
    assert sorted(group.array_keys()) == ["0", "1", "2"]
    assert all(np.array_equal(group[str(number)], pixels) for number, pixels in enumerate(images))
    assert "multiscales" not in group.attrs


def test_a_pyramid_is_a_group_with_multiscales(tmp_path):
    (full,) = pyramid(tmp_path / "pyramid.tif", levels=2)
    group = opened(tmp_path / "pyramid.tif")
    (scales,) = group.attrs["multiscales"]
    levels = [group[each["path"]] for each in scales["datasets"]]
    assert [level.shape for level in levels] == [(64, 48), (32, 24), (16, 12)]
    assert np.array_equal(levels[2], full[::4, ::4])


def test_pyramids_of_several_pages_are_groups_of_a_group(tmp_path):
    images = pyramid(tmp_path / "pyramids.tif", levels=1, count=2)
    group = opened(tmp_path / "pyramids.tif")
    assert sorted(group.group_keys()) == ["0", "1"]
    assert group["1"].attrs["multiscales"][0]["datasets"] == [{"path": "0"}, {"path": "1"}]
    assert np.array_equal(group["1/1"], images[1][::2, ::2])


def test_reduced_directories_behind_an_image_are_its_levels(tmp_path):
    """As files are laid out that are read over a network."""
    full, other = image((65, 48)), image((64, 48))
    with tagbridge.open(tmp_path / "a.tif", "w") as tif:
        for pixels in (full, full[::2, ::2], full[::4, ::4]):
            reduced = pixels is not full
            tif.write(pixels, tags={"SubfileType": "reduced_image"} if reduced else None)
        tif.write(other)
        tif.write(other[:10], tags={"SubfileType": "reduced_image"})  # of other proportions
    group = opened(tmp_path / "a.tif")
    assert sorted(group) == ["0", "3", "4"]
    assert [group["0"][str(level)].shape for level in range(3)] == [(65, 48), (33, 24), (17, 12)]
    assert np.array_equal(group["4"], other[:10])


def test_what_cannot_be_read_is_left_out(tmp_path):
    path = tmp_path / "a.tif"
    pixels = image((20, 30))
    with tifffile.TiffWriter(path) as writer:
        writer.write(pixels, photometric="minisblack", metadata=None)
        writer.write(pixels.astype(np.complex64), photometric="minisblack", metadata=None)
        writer.write(pixels, photometric="minisblack", metadata=None)
    with recorded() as said:
        group = opened(path)
    assert sorted(group) == ["0", "2"]
    assert len(said) == 1 and "directory 1 is left out" in str(said[0])


def test_nothing_to_read_is_an_error(tmp_path):
    tifffile.imwrite(tmp_path / "a.tif", np.zeros((4, 4), np.complex64), photometric="minisblack")
    with pytest.raises(tagbridge.Error):
        tagbridge.zarr.store(tmp_path / "a.tif")
    with pytest.raises(FileNotFoundError):
        tagbridge.zarr.store(tmp_path / "b.tif")


# --- The mapping

def test_the_metadata_are_those_of_zarr_2(tiles):
    store = tagbridge.zarr.store(tiles[0])
    assert json.loads(store[".zarray"]) == {
        "zarr_format": 2, "shape": [100, 80, 3], "chunks": [32, 32, 3], "dtype": "<u2",
        "compressor": None, "filters": None, "order": "F", "fill_value": None}
    assert json.loads(store[".zattrs"]) == {"_ARRAY_DIMENSIONS": ["y", "x", "sample"]}


def test_a_chunk_is_bytes_in_column_major_order(tiles):
    path, pixels = tiles
    store = tagbridge.zarr.store(path)
    assert bytes(store["1.0.0"]) == pixels[32:64, :32].tobytes(order="F")
    assert len(store["3.2.0"]) == 32 * 32 * 3 * 2  # whole at the edge


def test_it_is_a_mapping(tiles):
    store = tagbridge.zarr.store(tiles[0])
    keys = list(store)
    assert len(store) == len(set(keys)) == 3 + 4 * 3
    assert all(key in store for key in keys) and len(store[keys[-1]]) == 6144
    assert store.listdir() == sorted(keys)
    for absent in ("4.0.0", "0.0", "0.0.0.0", "-1.0.0", "01.0.0", "0/0.0.0", "0.0.0/", ".zgroup"):
        assert absent not in store and store.get(absent) is None


def test_it_can_only_be_read(tiles):
    store = tagbridge.zarr.store(tiles[0])
    with pytest.raises(ReadOnlyError):
        store["0.0.0"] = b""
    with pytest.raises(ReadOnlyError):
        del store["0.0.0"]
    with pytest.raises(ReadOnlyError):
        zarr.open(store)[0] = 1


def test_it_can_be_sent_elsewhere(tiles):
    store = tagbridge.zarr.store(tiles[0])
    other = pickle.loads(pickle.dumps(store))
    assert other == store and hash(other) == hash(store)
    assert other["0.0.0"] == store["0.0.0"]


def test_nothing_is_decoded_until_it_is_asked_for(tiles):
    path, pixels = tiles
    damage(path, block=0)
    array = opened(path, strict=True)
    assert np.array_equal(array[32:, 32:], pixels[32:, 32:])
    with pytest.raises(tagbridge.DecodeError) as caught:
        array[:40]
    assert caught.value.blocks == [0]


def test_a_damaged_block_is_a_warning_and_zeros(tiles):
    path, pixels = tiles
    damage(path, block=3)
    with recorded() as said:
        found = opened(path)[...]
    expected = pixels.copy()
    expected[32:64, :32] = 0
    assert np.array_equal(found, expected)
    assert len(said) == 1


def test_closing_closes_the_file(tiles):
    with tagbridge.zarr.store(tiles[0]) as store:
        assert len(store["0.0.0"]) == 6144
        assert open_descriptors(tiles[0]) == 1
    assert open_descriptors(tiles[0]) == 0
    assert len(store["0.0.0"]) == 6144


# --- What is built on Zarr

@pytest.mark.parametrize("scheduler", ["threads", "processes"])
def test_dask_reads_it(tiles, scheduler):
    array = da.from_zarr(tagbridge.zarr.store(tiles[0]))
    assert array.chunksize == (32, 32, 3)
    assert np.array_equal(array.compute(scheduler=scheduler, num_workers=2), tiles[1])


def test_dask_reads_a_level(tmp_path):
    (full,) = pyramid(tmp_path / "pyramid.tif", levels=2)
    array = da.from_zarr(tagbridge.zarr.store(tmp_path / "pyramid.tif"), component="1")
    assert np.array_equal(array.compute(), full[::2, ::2])


def test_xarray_lies_on_top(tiles):
    path, pixels = tiles
    store = tagbridge.zarr.store(path)
    labelled = xarray.DataArray(da.from_zarr(store), dims=["y", "x", "band"],
                                coords={"band": ["red", "green", "blue"]})
    found = labelled.sel(band="green").isel(y=slice(10, 60)).mean("x")
    assert np.allclose(found, pixels[10:60, :, 1].mean(axis=1))
    assert np.array_equal(xarray.DataArray(zarr.open(store, mode="r")), pixels)


def test_xarray_opens_a_pyramid(tmp_path):
    (full,) = pyramid(tmp_path / "pyramid.tif", levels=1)
    data = xarray.open_zarr(tagbridge.zarr.store(tmp_path / "pyramid.tif"))
    assert dict(data.sizes) == {"y": 64, "x": 48, "y_1": 32, "x_1": 24}
    assert data["0"].dtype == np.uint8 and np.array_equal(data["1"], full[::2, ::2])
