"""Whole images, put together from strips or tiles, equal what other programs wrote and read."""

from __future__ import annotations

import subprocess
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
import tifffile
from PIL import Image

WIDTH, SAMPLES, PLANAR, PREDICTOR, TILE_WIDTH = 256, 277, 284, 317, 322
SEPARATE = 2


def field(file: np.ndarray, tag: int) -> int:
    return int(tagbridge.call("getField", file, tag).item())


def plane_of_strips(file: np.ndarray, plane: int, planes: int) -> np.ndarray:
    count = int(tagbridge.call("numberOfStrips", file).item()) // planes
    numbers = range(plane * count, (plane + 1) * count)
    return np.concatenate([tagbridge.call("readEncodedStrip", file, n) for n in numbers])


def plane_of_tiles(file: np.ndarray, plane: int, planes: int) -> np.ndarray:
    across = -(-field(file, WIDTH) // field(file, TILE_WIDTH))
    count = int(tagbridge.call("numberOfTiles", file).item()) // planes
    tiles = [tagbridge.call("readEncodedTile", file, plane * count + n) for n in range(count)]
    rows = [np.concatenate(tiles[n : n + across], axis=1) for n in range(0, count, across)]
    return np.concatenate(rows)


def read_directory(file: np.ndarray) -> np.ndarray:
    """The image of the current directory: rows, columns and, if there are several, samples."""
    planes = field(file, SAMPLES) if field(file, PLANAR) == SEPARATE else 1
    read_plane = plane_of_tiles if tagbridge.call("isTiled", file) else plane_of_strips
    images = [read_plane(file, plane, planes) for plane in range(planes)]
    return images[0] if planes == 1 else np.stack(images, axis=2)


def pixels(dtype: Any, shape: tuple[int, ...]) -> np.ndarray:
    """Every element differs from its neighbours, so that no exchange goes unnoticed."""
    values = np.arange(np.prod(shape), dtype=np.uint64) * np.uint64(0x9E3779B97F4A7C15)
    if np.dtype(dtype).kind == "f":
        return ((values >> np.uint64(40)).astype(dtype) / 7 - 1000).reshape(shape).astype(dtype)
    if np.dtype(dtype).kind == "b":
        return ((values >> np.uint64(60)) % 3 == 0).reshape(shape)
    return (values >> np.uint64(64 - 8 * np.dtype(dtype).itemsize)).astype(dtype).reshape(shape)


def write_compressed(path: Path, image: np.ndarray, compression: str, **options: Any) -> None:
    """Writes a file with tifffile and has tiffcp compress it: "lzw:2" is LZW with predictor 2."""
    plain = path.with_suffix(".plain.tif")
    tifffile.imwrite(plain, image, **options)
    subprocess.run(["tiffcp", "-c", compression, plain, path], check=True, capture_output=True)


@pytest.mark.parametrize("byteorder", ["<", ">"])
@pytest.mark.parametrize("compression", ["none", "lzw", "zip", "packbits"])
@pytest.mark.parametrize("layout", [{"rowsperstrip": 7}, {"tile": (32, 48)}], ids=["strips", "tiles"])
@pytest.mark.parametrize("dtype", ["u1", "i1", "u2", "i2", "u4", "i4", "f4", "f8"])
def test_gray_images_equal_what_tifffile_wrote(
    tmp_path, open_file, dtype, layout, compression, byteorder
):
    path = tmp_path / "image.tif"
    image = pixels(dtype, (61, 101))
    write_compressed(
        path, image, compression, byteorder=byteorder, photometric="minisblack", **layout
    )
    read = read_directory(open_file(path))
    assert read.dtype == image.dtype
    np.testing.assert_array_equal(read, image)


@pytest.mark.parametrize(
    ("dtype", "compression"),
    [("u1", "lzw:2"), ("u2", "lzw:2"), ("u4", "zip:2"), ("f4", "zip:3"), ("f8", "lzw:3")],
)
def test_predictors_are_undone(tmp_path, open_file, dtype, compression):
    path = tmp_path / "image.tif"
    image = pixels(dtype, (61, 101))
    write_compressed(path, image, compression, photometric="minisblack", rowsperstrip=8)
    file = open_file(path)
    assert field(file, PREDICTOR) == int(compression[-1])
    np.testing.assert_array_equal(read_directory(file), image)


@pytest.mark.parametrize("planar", ["contig", "separate"])
@pytest.mark.parametrize("layout", [{"rowsperstrip": 9}, {"tile": (16, 32)}], ids=["strips", "tiles"])
@pytest.mark.parametrize("samples", [2, 3, 4, 5])
@pytest.mark.parametrize("dtype", ["u1", "u2", "f4", "f8"])
def test_images_of_several_samples_equal_what_tifffile_wrote(
    tmp_path, open_file, dtype, samples, layout, planar
):
    path = tmp_path / "image.tif"
    image = pixels(dtype, (50, 70, samples))
    stored = image if planar == "contig" else np.moveaxis(image, 2, 0)
    photometric = "rgb" if samples >= 3 else "minisblack"
    tifffile.imwrite(
        path, stored, planarconfig=planar, photometric=photometric, compression="zlib",
        predictor=dtype.startswith("u"), **layout,
    )
    np.testing.assert_array_equal(read_directory(open_file(path)), image)


@pytest.mark.parametrize("size", [(1, 1), (1, 300), (300, 1), (33, 47), (64, 64)])
@pytest.mark.parametrize("bigtiff", [False, True])
def test_odd_sizes_equal_what_tifffile_wrote(tmp_path, open_file, size, bigtiff):
    path = tmp_path / "image.tif"
    image = pixels("u2", (*size, 3))
    tifffile.imwrite(path, image, tile=(32, 32), photometric="rgb", bigtiff=bigtiff)
    np.testing.assert_array_equal(read_directory(open_file(path)), image)


@pytest.mark.parametrize("compression", [None, "group3", "group4", "tiff_lzw", "packbits"])
@pytest.mark.parametrize("size", [(40, 64), (41, 65), (7, 1)])
def test_bilevel_images_equal_what_pillow_wrote(tmp_path, open_file, size, compression):
    path = tmp_path / "image.tif"
    image = pixels("?", size)
    Image.fromarray(image).save(path, compression=compression)
    read = read_directory(open_file(path))
    assert read.dtype == np.bool_
    with Image.open(path) as other:
        inverted = other.tag_v2[262] == 0  # 0 is white: a set bit is black
    np.testing.assert_array_equal(read, ~image if inverted else image)


@pytest.mark.parametrize("mode", ["L", "RGB", "RGBA", "CMYK", "I;16", "F", "P"])
@pytest.mark.parametrize("compression", [None, "tiff_lzw", "tiff_adobe_deflate"])
def test_images_equal_what_pillow_wrote(tmp_path, open_file, mode, compression):
    path = tmp_path / "image.tif"
    shape = (45, 83, {"RGB": 3, "RGBA": 4, "CMYK": 4}.get(mode, 1))
    data = pixels({"I;16": "u2", "F": "f4"}.get(mode, "u1"), shape)
    data = data[:, :, 0] if shape[2] == 1 else data
    image = Image.frombytes(mode, (83, 45), data.tobytes())
    if mode == "P":
        image.putpalette(list(range(256)) * 3)
    image.save(path, compression=compression)
    np.testing.assert_array_equal(read_directory(open_file(path)), data)


def test_jpeg_images_equal_what_pillow_reads(tmp_path, open_file):
    """Gray, so that no conversion of colours lies between."""
    path = tmp_path / "image.tif"
    ramp = np.add.outer(np.arange(64), np.arange(96)).astype(np.uint8)
    Image.fromarray(ramp).save(path, compression="jpeg", quality=90)
    with Image.open(path) as other:
        expected = np.asarray(other)
    np.testing.assert_array_equal(read_directory(open_file(path)), expected)


def test_every_page_equals_what_tifffile_wrote(tmp_path, open_file):
    path = tmp_path / "pages.tif"
    pages = [pixels("u1", (10, 20)), *[pixels("u2", (30, 5 + n)) for n in range(4)]]
    with tifffile.TiffWriter(path) as writer:
        for page in pages:
            writer.write(page, photometric="minisblack", metadata=None)
    file = open_file(path)
    for number, page in enumerate(pages):
        if number:
            tagbridge.call("readDirectory", file)
        np.testing.assert_array_equal(read_directory(file), page)
    for number in (3, 0, 4):
        tagbridge.call("setDirectory", file, number)
        np.testing.assert_array_equal(read_directory(file), pages[number])


@pytest.mark.parametrize("name", ["ä Ω 😀.tif", "with space.tif", "x" * 200 + ".tif"])
def test_file_names_are_the_systems(tmp_path: Path, open_file, name: str):
    path = tmp_path / name
    image = pixels("u1", (5, 5))
    tifffile.imwrite(path, image, photometric="minisblack")
    np.testing.assert_array_equal(read_directory(open_file(path)), image)
