"""A file as a Zarr array: the package's store beside the view that tifffile gives.

Both are read through Zarr, whole. Files that tifffile cannot read without further packages are left
out; of the others both must give the same pixels.
"""

from __future__ import annotations

import argparse
import sys
from collections.abc import Callable

import numpy as np
import tifffile
import zarr

import tagbridge.zarr

from measuring import EFFORTS, Image, compare, image_file, report

IMAGES = [
    Image("u8", "none", "tiles", 256),
    Image("rgb", "none", "tiles", 256),
    Image("u16", "none", "tiles", 256),
    Image("f32", "none", "tiles", 256),
    Image("u8", "none", "tiles", 512),
    Image("u8", "lzw", "tiles", 256),
    Image("u8", "deflate", "tiles", 256),
    Image("rgb", "deflate", "tiles", 256),
    Image("u8", "jpeg", "tiles", 256),
]


def repeated(read: Callable[[], object]) -> Callable[[int], object]:
    def run(calls: int) -> None:
        for _ in range(calls):
            read()

    return run


def measure(image: Image, path: str, effort: str) -> None:
    ours = zarr.open(tagbridge.zarr.store(path), mode="r")
    with tifffile.imread(path, aszarr=True) as view:
        theirs = zarr.open(view, mode="r")
        try:
            pixels = theirs[...]
        except Exception as error:  # whatever it raises for what it does not support
            print(f"tifffile does not read {path}: {error}", file=sys.stderr)
            return
        if pixels.dtype != ours.dtype or not np.array_equal(pixels, ours[...]):
            raise SystemExit(f"tifffile reads other pixels from {path}")
        ours_as_is, theirs_as_is, theirs_by_column = compare(
            EFFORTS[effort], repeated(lambda: ours[...]), repeated(lambda: theirs[...]),
            repeated(lambda: np.asfortranarray(theirs[...])))
    report("zarr column-major", **image._asdict(), value=theirs_by_column / ours_as_is)
    report("zarr", **image._asdict(), value=theirs_as_is / ours_as_is)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--make-image", required=True, help="the program that makes images")
    parser.add_argument("effort", choices=EFFORTS)
    parser.add_argument("folder")
    options = parser.parse_args()
    for image in IMAGES:
        if options.effort == "smoke":
            image = image._replace(width=300, length=300)
        with image_file(options.make_image, options.folder, image) as path:
            measure(image, path, options.effort)


if __name__ == "__main__":
    main()
