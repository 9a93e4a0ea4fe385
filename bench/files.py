"""The file layer: its cost over plain calls, and the same work by other readers and writers of TIFF.

One thread each, processor time. Peers that are not installed or cannot do the work are left out; the
others must come to the same pixels, or to a file of the same pixels.
"""

from __future__ import annotations

import importlib
import itertools
import os
import sys
from collections.abc import Callable, Iterator

import numpy as np

import tagbridge
from measuring import (
    EFFORTS, Image, compare, image_file, measure_images, parsed_options, repeated, report,
    report_factors, sized)
from peers import FULL, installed, read_blocks
from tagbridge.plan import STRIP_BYTES

REGION = 256
LARGE = [Image("u8", compression, "tiles", 256, 16384, 16384)
         for compression in ("none", "deflate")]
WRITTEN = [("u8", compression) for compression in ("none", "lzw", "deflate", "jpeg")]
WRITTEN += [("rgb", compression) for compression in ("none", "deflate")]


# --- Whole images, over a loop of calls

def measure_read(image: Image, path: str, effort: str) -> None:
    def read() -> np.ndarray:
        with tagbridge.open(path) as tif:
            return tif.read(threads=1, raw=True)

    if not np.array_equal(read(), read_blocks(path)):
        raise SystemExit(f"File.read reads other pixels from {path}")
    layer, loop = compare(EFFORTS[effort], repeated(read), repeated(read_blocks, path))
    report("file read", **image._asdict(), value=layer / loop)


# --- Regions of a large image

def wandering(image: Image) -> Iterator[tuple[int, int]]:
    """First rows and columns of regions all over the image, which mostly touch four tiles."""
    rows, columns = (max(1, size - REGION) for size in (image.length, image.width))
    return ((step * 7919 % rows, step * 10007 % columns) for step in itertools.count(1))


def our_region(path: str, row: int, column: int) -> np.ndarray:
    with tagbridge.open(path) as tif:
        return tif[0][row:row + REGION, column:column + REGION]


def tifffile_region() -> Callable[..., np.ndarray]:
    tifffile, zarr = map(importlib.import_module, ("tifffile", "zarr"))

    def read(path: str, row: int, column: int) -> np.ndarray:
        with tifffile.imread(path, aszarr=True) as view:
            return zarr.open(view, mode="r")[row:row + REGION, column:column + REGION]

    return read


def gdal_region() -> Callable[..., np.ndarray]:
    gdal = importlib.import_module("osgeo.gdal")
    gdal.UseExceptions()

    def read(path: str, row: int, column: int) -> np.ndarray:
        data = gdal.Open(path)
        rows, columns = (min(REGION, size) for size in (data.RasterYSize, data.RasterXSize))
        return data.ReadAsArray(column, row, columns, rows)

    return read


def pillow_region() -> Callable[..., np.ndarray]:
    pillow = importlib.import_module("PIL.Image")
    pillow.MAX_IMAGE_PIXELS = None

    def read(path: str, row: int, column: int) -> np.ndarray:
        with pillow.open(path) as image:
            right, lower = (min(at + REGION, size)
                            for at, size in zip((column, row), image.size))
            return np.asarray(image.crop((column, row, right, lower)))

    return read


def measure_regions(image: Image, path: str, effort: str) -> None:
    readers = installed({"tifffile": tifffile_region, "GDAL": gdal_region,
                         "Pillow": pillow_region})
    row, column = next(wandering(image))
    for name, read in readers.items():
        if not np.array_equal(read(path, row, column)[:44, :44],
                              our_region(path, row, column)[:44, :44]):
            raise SystemExit(f"{name} reads other pixels from {path}")

    def contender(read: Callable[..., np.ndarray]) -> Callable[[int], None]:
        places = wandering(image)

        def run(calls: int) -> None:
            for place in itertools.islice(places, calls):
                read(path, *place)

        return run

    ours, *others = compare(EFFORTS[effort], contender(our_region),
                            *map(contender, readers.values()))
    report_factors("region", ours, dict(zip(readers, others)), **image._asdict())


# --- Many directories

def make_directories(path: str, count: int) -> None:
    with tagbridge.open(path, "w") as tif:
        for index in range(count):
            tif.write(np.full((16, 16), index % 256, np.uint8), description=f"page {index}",
                      resolution=300, tags={"Software": "bench", "DateTime": "2020:01:01 00:00:00"})


def all_tags(path: str) -> int:
    with tagbridge.open(path) as tif:
        return sum(len(dict(page.tags)) for page in tif)


def tifffile_tags() -> Callable[[str], int]:
    tifffile = importlib.import_module("tifffile")

    def read(path: str) -> int:
        with tifffile.TiffFile(path) as tif:
            return sum(len({tag.name: tag.value for tag in page.tags}) for page in tif.pages)

    return read


def measure_directories(folder: str, effort: str) -> None:
    count = 20 if effort == "smoke" else 1000
    path = os.path.join(folder, "directories.tif")
    make_directories(path, count)
    readers = installed({"tifffile": tifffile_tags})
    ours, *others = compare(EFFORTS[effort], repeated(all_tags, path),
                            *(repeated(read, path) for read in readers.values()))
    if readers:
        report_factors("all tags", ours, dict(zip(readers, others)),
                       what=f"{count} directories, open and all tags")
    os.remove(path)


# --- Writing whole images

def our_writer() -> Callable[[str, np.ndarray, str], None]:
    return lambda path, pixels, compression: tagbridge.imwrite(path, pixels,
                                                               compression=compression)


def tifffile_writer() -> Callable[[str, np.ndarray, str], None]:
    tifffile = importlib.import_module("tifffile")
    names = {"none": None, "lzw": "lzw", "deflate": "zlib", "jpeg": "jpeg"}
    return lambda path, pixels, compression: tifffile.imwrite(path, pixels,
                                                              compression=names[compression])


def pillow_writer() -> Callable[[str, np.ndarray, str], None]:
    pillow = importlib.import_module("PIL.Image")
    names = {"none": None, "lzw": "tiff_lzw", "deflate": "tiff_adobe_deflate", "jpeg": "jpeg"}
    return lambda path, pixels, compression: pillow.fromarray(pixels).save(
        path, compression=names[compression])


def opencv_writer() -> Callable[[str, np.ndarray, str], None]:
    opencv = importlib.import_module("cv2")
    codes = {"none": 1, "lzw": 5, "deflate": 8, "jpeg": 7}

    def write(path: str, pixels: np.ndarray, compression: str) -> None:
        pixels = pixels[..., ::-1] if pixels.ndim == 3 else pixels
        if not opencv.imwrite(path, pixels,
                              [opencv.IMWRITE_TIFF_COMPRESSION, codes[compression]]):
            raise ValueError("not written")

    return write


def gdal_writer() -> Callable[[str, np.ndarray, str], None]:
    gdal, arrays = map(importlib.import_module, ("osgeo.gdal", "osgeo.gdal_array"))
    gdal.UseExceptions()

    def write(path: str, pixels: np.ndarray, compression: str) -> None:
        bands = np.moveaxis(pixels, -1, 0) if pixels.ndim == 3 else pixels
        # Strips as long as ours: Deflate takes the longer, the longer they are.
        rows = max(1, STRIP_BYTES // pixels[0].nbytes)
        gdal.GetDriverByName("GTiff").CreateCopy(
            path, arrays.OpenArray(bands),
            options=[f"COMPRESS={compression.upper()}", "INTERLEAVE=PIXEL", f"BLOCKYSIZE={rows}"])

    return write


def able_writers(writers: dict[str, Callable], path: str, pixels: np.ndarray,
                 compression: str) -> dict[str, Callable]:
    """The writers whose file holds the pixels; JPEG keeps them roughly."""
    able = {}
    for name, write in writers.items():
        try:
            write(path, pixels, compression)
        except Exception as error:  # whatever a writer raises for what it does not support
            print(f"{name} does not write {compression}: {error}", file=sys.stderr)
            continue
        written = tagbridge.imread(path).astype(int)
        if np.abs(written - pixels).mean() > (4 if compression == "jpeg" else 0):
            raise SystemExit(f"{name} writes other pixels with {compression}")
        able[name] = write
    return able


def measure_writes(options) -> None:
    makers = {"tagbridge": our_writer, "tifffile": tifffile_writer, "Pillow": pillow_writer,
              "OpenCV": opencv_writer, "GDAL": gdal_writer}
    target = os.path.join(options.folder, "written.tif")
    for samples, compression in WRITTEN:
        image = sized(Image(samples, "none", "strips", 16), options.effort)
        with image_file(options.make_image, options.folder, image) as path:
            pixels = np.ascontiguousarray(tagbridge.imread(path))
        able = able_writers(installed(makers), target, pixels, compression)
        seconds = compare(EFFORTS[options.effort], *(
            repeated(write, target, pixels, compression) for write in able.values()))
        times = dict(zip(able, seconds))
        ours = times.pop("tagbridge")
        if times:
            report_factors("imwrite", ours, times, what=f"{samples}, {compression}")
        os.remove(target)


def main() -> None:
    options = parsed_options(__doc__)
    measure_images(options, FULL, measure_read)
    measure_images(options, LARGE, measure_regions)
    measure_directories(options.folder, options.effort)
    measure_writes(options)


if __name__ == "__main__":
    main()
