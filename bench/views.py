"""A file as a Zarr array: the package's store beside the view that tifffile gives.

Both are read through Zarr, whole. Files that tifffile cannot read without further packages are left
out; of the others both must give the same pixels.
"""

from __future__ import annotations

import sys

import numpy as np
import tifffile
import zarr

import tagbridge.zarr

from measuring import EFFORTS, Image, compare, for_each_image, repeated, report

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
            EFFORTS[effort], repeated(ours.__getitem__, ...), repeated(theirs.__getitem__, ...),
            repeated(lambda: np.asfortranarray(theirs[...])))
    report("zarr column-major", **image._asdict(), value=theirs_by_column / ours_as_is)
    report("zarr", **image._asdict(), value=theirs_as_is / ours_as_is)


def main() -> None:
    for_each_image(__doc__, IMAGES, measure)


if __name__ == "__main__":
    main()
