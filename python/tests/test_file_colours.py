"""Images as RGB and RGBA: YCbCr, palettes, orientation."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pytest
import tagbridge
from images import EXAMPLES, image, write
from PIL import Image


@pytest.mark.parametrize("layout", [{"tile": (32, 48)}, {"rows_per_strip": 16}], ids=str)
@pytest.mark.parametrize("subsampling", [(1, 1), (2, 2)])
def test_ycbcr_comes_as_rgb(tmp_path: Path, layout, subsampling):
    array = np.zeros((64, 96, 3), np.uint8)
    array[:32], array[32:] = (200, 30, 60), (10, 180, 250)  # apart at an edge of blocks
    path = tmp_path / "a.tif"
    tagbridge.imwrite(path, array, photometric="ycbcr", compression="jpeg", level=95,
                      tags={"YCbCrSubsampling": subsampling}, **layout)
    with Image.open(path) as other:
        assert np.abs(np.asarray(other.convert("RGB")).astype(int) - array).max() < 6
    with tagbridge.open(path) as tif:
        assert tif.photometric is tagbridge.Photometric.YCBCR
        assert (tif.shape, tif.dtype) == ((64, 96, 3), np.dtype(np.uint8))
        assert np.abs(tif.read().astype(int) - array).max() < 6
        np.testing.assert_array_equal(tif[0][10:40, 30:80, ::-1], tif.read()[10:40, 30:80, ::-1])
        block = tif.blocks[3]
        np.testing.assert_array_equal(block.read(), tif.read()[block.rows, block.columns])
        np.testing.assert_array_equal(tif.rgba()[..., :3], tif.read())


def test_raw_ycbcr_has_each_value_over_its_unit():
    path = EXAMPLES / "ycbcr-jpeg-tiles.tif"
    with tagbridge.open(path) as tif:
        raw = tif.read(raw=True)
        rows, columns = tif.metadata["ImageLength"], tif.metadata["ImageWidth"]
    assert (raw.shape, raw.dtype) == ((rows, columns, 3), np.dtype(np.uint8))
    file = tagbridge.call("open", str(path), "r")
    luma, blue, red = tagbridge.call("readEncodedTile", file, 1, outputs=3)
    tagbridge.call("close", file, outputs=0)
    part = raw[:64, 64:128]
    np.testing.assert_array_equal(part[..., 0], luma)
    for sample, plane in ((1, blue), (2, red)):
        for row in range(2):
            for column in range(2):
                np.testing.assert_array_equal(part[row::2, column::2, sample], plane)


def test_raw_changes_nothing_else(tiles):
    page, array = tiles
    np.testing.assert_array_equal(page.read(raw=True), array)


@pytest.mark.parametrize("orientation", range(1, 9))
@pytest.mark.parametrize("layout", [{"rowsperstrip": 7}, {"tile": (16, 32)}], ids=str)
def test_row_0_of_rgba_is_at_the_top(tmp_path: Path, orientation: int, layout):
    array = image((40, 50, 3))
    write(tmp_path / "a.tif", array, "contig", **layout,
          extratags=[(274, "H", 1, orientation, True)])
    with tagbridge.open(tmp_path / "a.tif") as tif:
        rgba = tif.rgba()
    assert (rgba.shape, rgba.dtype) == ((40, 50, 4), np.dtype(np.uint8))
    assert rgba.flags.f_contiguous
    np.testing.assert_array_equal(rgba[..., :3], array)
    assert (rgba[..., 3] == 255).all()


@pytest.mark.parametrize("shape", [(1, 9, 3), (9, 1, 3), (1, 1, 3)])
def test_small_images_have_rgba_too(tmp_path: Path, shape):
    array = image(shape)
    write(tmp_path / "a.tif", array, "contig", rowsperstrip=4)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        np.testing.assert_array_equal(tif.rgba()[..., :3], array)


def test_what_libtiff_cannot_convert_is_an_error(tmp_path: Path):
    write(tmp_path / "a.tif", image((4, 4), np.float32))
    with tagbridge.open(tmp_path / "a.tif") as tif, pytest.raises(tagbridge.Error):
        tif.rgba()
