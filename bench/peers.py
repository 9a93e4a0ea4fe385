"""A whole image as one column-major array: the package beside other readers of TIFF files.

Readers that are not installed, or that cannot read a file, are left out; those that can must return
the same pixels.
"""

from __future__ import annotations

import importlib
import sys
from collections.abc import Callable
from typing import TypeVar

import numpy as np

from tagbridge import call

from measuring import EFFORTS, Image, compare, for_each_image, repeated, report_factors

Reader = Callable[[str], np.ndarray]
Work = TypeVar("Work")  # a reader, a writer, whatever a peer does

FULL = [
    Image("u8", "none", "tiles", 256),
    Image("u8", "none", "strips", 16),
    Image("rgb", "none", "tiles", 256),
    Image("rgb", "none", "strips", 16),
    Image("u16", "none", "strips", 16),
    Image("f32", "none", "tiles", 256),
    Image("u8", "lzw", "tiles", 256),
    Image("rgb", "lzw", "strips", 16),
    Image("u8", "deflate", "tiles", 256),
    Image("rgb", "deflate", "strips", 16),
    Image("u8", "jpeg", "tiles", 256),
    Image("rgb", "jpeg", "strips", 16),
]


def read_blocks(path: str) -> np.ndarray:
    """Reads block by block into one array; interleaved samples or a single one."""
    file = call("open", path, "r")
    layout = {name: int(call("getField", file, tag).item())
              for name, tag in {"width": 256, "length": 257, "samples": 277}.items()}
    shape = [layout["length"], layout["width"]]
    if layout["samples"] > 1:
        shape.append(layout["samples"])
    image = None
    if call("isTiled", file).item():
        operation, count = "readEncodedTile", int(call("numberOfTiles", file).item())
        columns, rows = (int(call("getField", file, tag).item()) for tag in (322, 323))
    else:
        operation, count = "readEncodedStrip", int(call("numberOfStrips", file).item())
        columns, rows = layout["width"], int(call("getField", file, 278).item())
    across = -(-layout["width"] // columns)
    for number in range(count):
        block = call(operation, file, number)
        if image is None:
            image = np.empty(shape, block.dtype, order="F")
        row, column = number // across * rows, number % across * columns
        image[row:row + block.shape[0], column:column + block.shape[1]] = block
    call("close", file, outputs=0)
    return image


def tifffile_reader() -> Reader:
    tifffile = importlib.import_module("tifffile")
    return lambda path: np.asfortranarray(tifffile.imread(path))


def pillow_reader() -> Reader:
    pillow = importlib.import_module("PIL.Image")

    def read(path: str) -> np.ndarray:
        with pillow.open(path) as image:
            return np.asfortranarray(image)

    return read


def opencv_reader() -> Reader:
    opencv = importlib.import_module("cv2")

    def read(path: str) -> np.ndarray:
        image = opencv.imread(path, opencv.IMREAD_UNCHANGED)
        if image is None:
            raise ValueError("not read")
        return np.asfortranarray(image[..., ::-1] if image.ndim == 3 else image)

    return read


def gdal_reader() -> Reader:
    gdal = importlib.import_module("osgeo.gdal")
    gdal.UseExceptions()

    def read(path: str) -> np.ndarray:
        image = gdal.Open(path).ReadAsArray()
        return np.asfortranarray(image.transpose(1, 2, 0) if image.ndim == 3 else image)

    return read


PEERS = {"tifffile": tifffile_reader, "Pillow": pillow_reader, "OpenCV": opencv_reader,
         "GDAL": gdal_reader}


def installed(makers: dict[str, Callable[[], Work]]) -> dict[str, Work]:
    """What the makers give, without those whose modules are missing."""
    found: dict[str, Work] = {}
    for name, make in makers.items():
        try:
            found[name] = make()
        except ImportError:
            print(f"{name} is not installed", file=sys.stderr)
    return found


def installed_readers() -> dict[str, Reader]:
    return installed(PEERS)


def able_readers(readers: dict[str, Reader], path: str, expected: np.ndarray) -> dict[str, Reader]:
    """Returns the readers that read the file; all of them must return the expected pixels."""
    able = {}
    for name, read in readers.items():
        try:
            image = read(path)
        except Exception as error:  # whatever a reader raises for what it does not support
            print(f"{name} does not read {path}: {error}", file=sys.stderr)
            continue
        if image.dtype != expected.dtype or not np.array_equal(image, expected):
            raise SystemExit(f"{name} reads other pixels from {path}")
        able[name] = read
    return able


def measure(image: Image, path: str, readers: dict[str, Reader], effort: str) -> None:
    peers = able_readers(readers, path, read_blocks(path))
    if not peers:
        return
    ours, *others = compare(EFFORTS[effort], repeated(read_blocks, path),
                            *(repeated(read, path) for read in peers.values()))
    report_factors("whole image", ours, dict(zip(peers, others)), **image._asdict())


def main() -> None:
    readers = installed_readers()
    for_each_image(__doc__, FULL,
                   lambda image, path, effort: measure(image, path, readers, effort))


if __name__ == "__main__":
    main()
