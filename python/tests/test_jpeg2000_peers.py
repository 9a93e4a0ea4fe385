"""JPEG 2000 in TIFF, encoded by other programs, equals what other programs decode of it."""

from __future__ import annotations

import io
from collections.abc import Iterable, Iterator
from pathlib import Path
from typing import Any

import cv2
import numpy as np
import pytest
import tagbridge
import tifffile
from osgeo import gdal
from PIL import Image

from test_reads_peers import read_directory

gdal.UseExceptions()

YCBCR, RGB, ANY = 33003, 33005, 34712
SIZE = 48  # of a tile
MEMORY_FILE = "/vsimem/tile.j2k"


# --- Files


def picture(shape: tuple[int, ...], dtype: Any) -> np.ndarray:
    """Waves with noise on them, so that lossy coding has something to lose."""
    row, column = np.mgrid[: shape[0], : shape[1]]
    waves = [np.sin(row / (5 + 3 * s)) * np.cos(column / (9 + 2 * s)) for s in range(4)]
    values = np.stack(waves[: shape[2]] if len(shape) == 3 else waves[:1], axis=-1)
    values = 0.45 * values + 0.5 + 0.05 * np.random.default_rng(7).random(values.shape)
    return (values * np.iinfo(dtype).max).astype(dtype).reshape(shape)


def tiles_of(image: np.ndarray) -> Iterator[np.ndarray]:
    """Tiles of full size; those at the edge repeat the last row and column."""
    for row in range(0, image.shape[0], SIZE):
        for column in range(0, image.shape[1], SIZE):
            tile = image[row : row + SIZE, column : column + SIZE]
            missing = [(0, SIZE - tile.shape[0]), (0, SIZE - tile.shape[1])]
            yield np.pad(tile, missing + [(0, 0)] * (image.ndim - 2), mode="edge")


def wrap(path: Path, blocks: Iterable[bytes], compression: int, image: np.ndarray, **options: Any):
    """Stores encoded blocks with tifffile, which takes them for deflated ones."""
    photometric = "rgb" if image.ndim == 3 and image.shape[2] >= 3 else "minisblack"
    options = {"tile": (SIZE, SIZE), "photometric": photometric, **options}
    tifffile.imwrite(path, iter(blocks), shape=image.shape, dtype=image.dtype, metadata=None,
                     compression="zlib", **options)
    with tifffile.TiffFile(path, mode="r+b") as file:
        file.pages[0].tags["Compression"].overwrite(compression)


# --- Other programs


def pillow_encode(image: np.ndarray, mode: str | None = None, **options: Any) -> bytes:
    encoded = io.BytesIO()
    converted = Image.fromarray(image) if mode is None else Image.fromarray(image).convert(mode)
    converted.save(encoded, "JPEG2000", **{"no_jp2": True, **options})
    return encoded.getvalue()


def pillow_decode(encoded: bytes) -> np.ndarray:
    return np.array(Image.open(io.BytesIO(encoded)))


def gdal_encode(image: np.ndarray, *options: str) -> bytes:
    bands = image.reshape(*image.shape[:2], -1)
    kind = gdal.GDT_Byte if image.dtype == np.uint8 else gdal.GDT_UInt16
    memory = gdal.GetDriverByName("MEM").Create("", SIZE, SIZE, bands.shape[2], kind)
    colours = [gdal.GCI_RedBand, gdal.GCI_GreenBand, gdal.GCI_BlueBand, gdal.GCI_AlphaBand]
    for number, colour in zip(range(bands.shape[2]), colours):
        memory.GetRasterBand(number + 1).WriteArray(bands[:, :, number])
        memory.GetRasterBand(number + 1).SetColorInterpretation(colour)
    gdal.GetDriverByName("JP2OpenJPEG").CreateCopy(
        MEMORY_FILE, memory, options=["CODEC=J2K", *options])
    file = gdal.VSIFOpenL(MEMORY_FILE, "rb")
    encoded = bytes(gdal.VSIFReadL(1, gdal.VSIStatL(MEMORY_FILE).size, file))
    gdal.VSIFCloseL(file)
    gdal.Unlink(MEMORY_FILE)
    return encoded


def gdal_decode(encoded: bytes) -> np.ndarray:
    gdal.FileFromMemBuffer(MEMORY_FILE, encoded)
    array = gdal.OpenEx(MEMORY_FILE, allowed_drivers=["JP2OpenJPEG"]).ReadAsArray()
    gdal.Unlink(MEMORY_FILE)
    return np.moveaxis(array, 0, -1) if array.ndim == 3 else array


def opencv_encode(image: np.ndarray) -> bytes:
    swapped = image[:, :, ::-1] if image.ndim == 3 else image
    done, encoded = cv2.imencode(".jp2", swapped, [cv2.IMWRITE_JPEG2000_COMPRESSION_X1000, 300])
    assert done
    return encoded.tobytes()


def opencv_decode(encoded: bytes) -> np.ndarray:
    decoded = cv2.imdecode(np.frombuffer(encoded, np.uint8), cv2.IMREAD_UNCHANGED)
    return decoded[:, :, ::-1] if decoded.ndim == 3 else decoded


# --- What is read


def tiles_read(file: np.ndarray, count: int) -> list[np.ndarray]:
    return [tagbridge.call("readEncodedTile", file, number) for number in range(count)]


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
@pytest.mark.parametrize("shape", [(96, 96), (70, 101), (70, 101, 3), (70, 101, 4)])
@pytest.mark.parametrize("options", [
    {}, {"tile_size": (32, 32)}, {"num_resolutions": 2, "codeblock_size": (16, 16)},
    {"precinct_size": (32, 32), "progression": "RPCL"}, {"no_jp2": False},
], ids=["plain", "tiles", "small blocks", "precincts", "boxes"])
def test_what_pillow_encodes_without_loss_is_read(tmp_path, open_file, shape, dtype, options):
    if dtype == np.uint16 and (len(shape) == 3 or "tile_size" in options):
        pytest.skip("Pillow has no such images, or encodes them with loss")
    image = picture(shape, dtype)
    blocks = [pillow_encode(tile, **options) for tile in tiles_of(image)]
    wrap(tmp_path / "image.tif", blocks, ANY, image)
    np.testing.assert_array_equal(read_directory(open_file(tmp_path / "image.tif")), image)


@pytest.mark.parametrize("byteorder", ["<", ">"])
@pytest.mark.parametrize("shape", [(70, 101), (70, 101, 3), (70, 101, 4)])
@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
def test_what_gdal_encodes_without_loss_is_read(tmp_path, open_file, shape, dtype, byteorder):
    image = picture(shape, dtype)
    blocks = [gdal_encode(tile, "REVERSIBLE=YES", "QUALITY=100") for tile in tiles_of(image)]
    wrap(tmp_path / "image.tif", blocks, RGB, image, byteorder=byteorder)
    np.testing.assert_array_equal(read_directory(open_file(tmp_path / "image.tif")), image)


@pytest.mark.parametrize("shape", [(70, 101), (70, 101, 3)])
def test_lossy_tiles_equal_what_three_decoders_make_of_them(tmp_path, open_file, shape):
    image = picture(shape, np.uint8)
    tiles = list(tiles_of(image))
    encoded = [
        *[pillow_encode(t, irreversible=True, quality_layers=[20, 8]) for t in tiles[:2]],
        *[gdal_encode(t, "QUALITY=20") for t in tiles[2:4]],
        *[opencv_encode(t) for t in tiles[4:]],
    ]
    wrap(tmp_path / "image.tif", encoded, ANY, image)
    read = tiles_read(open_file(tmp_path / "image.tif"), len(encoded))
    for number, (block, codestream) in enumerate(zip(read, encoded)):
        decoders = [pillow_decode, gdal_decode, opencv_decode]
        for decode in decoders:
            expected = decode(codestream)[: block.shape[0], : block.shape[1]]
            np.testing.assert_array_equal(block, expected, f"{decode.__name__}, tile {number}")


def test_ycbcr_of_pillow_becomes_rgb_as_it_does_there(tmp_path, open_file):
    image = picture((96, 96, 3), np.uint8)
    tiles = list(tiles_of(image))
    wrap(tmp_path / "image.tif", [pillow_encode(t, "YCbCr") for t in tiles], YCBCR, image)
    for tile, read in zip(tiles, tiles_read(open_file(tmp_path / "image.tif"), len(tiles))):
        expected = np.array(Image.fromarray(tile).convert("YCbCr").convert("RGB"))
        assert np.abs(read.astype(int) - expected).max() <= 1  # Pillow rounds each product


def subsampled_tiles(image: np.ndarray) -> list[bytes]:
    return [gdal_encode(t, "YCBCR420=YES", "QUALITY=100", "REVERSIBLE=YES") for t in tiles_of(image)]


def test_subsampled_ycbcr_of_gdal_becomes_rgb_as_it_does_there(tmp_path, open_file):
    image = picture((96, 96, 3), np.uint8)
    encoded = subsampled_tiles(image)
    wrap(tmp_path / "image.tif", encoded, YCBCR, image)
    read = tiles_read(open_file(tmp_path / "image.tif"), len(encoded))
    for block, codestream in zip(read, encoded):
        difference = block.astype(int) - gdal_decode(codestream)  # which is RGB by then
        assert np.abs(difference).max() <= 1


@pytest.mark.filterwarnings("ignore:.*YCbCrSubSampling is 1,1")
def test_subsampled_ycbcr_of_gdal_is_delivered_in_planes(tmp_path, open_file):
    image = picture((96, 96, 3), np.uint8)
    encoded = subsampled_tiles(image)
    wrap(tmp_path / "image.tif", encoded, YCBCR, image, photometric="ycbcr")
    file = open_file(tmp_path / "image.tif")
    luma, *chroma = tagbridge.call("readEncodedTile", file, 0, outputs=3)
    planes = [luma, *(plane.repeat(2, axis=0).repeat(2, axis=1) for plane in chroma)]
    rgb = np.array(Image.fromarray(np.stack(planes, axis=-1), mode="YCbCr").convert("RGB"))
    assert np.abs(rgb.astype(int) - gdal_decode(encoded[0])).max() <= 2


def test_rgba_of_a_slide_is_the_tiles(tmp_path, open_file):
    image = picture((70, 101, 3), np.uint8)
    blocks = [pillow_encode(tile) for tile in tiles_of(image)]
    wrap(tmp_path / "image.tif", blocks, RGB, image)
    rgba = tagbridge.call("readRGBAImage", open_file(tmp_path / "image.tif"))
    np.testing.assert_array_equal(rgba.transpose(2, 1, 0)[::-1, :, :3], image)
