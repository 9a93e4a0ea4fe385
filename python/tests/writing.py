"""Writing a file and having other programs look at it, for the tests that write."""

from __future__ import annotations

import subprocess
from pathlib import Path
from typing import Any

import numpy as np
import tagbridge
import tifffile
from osgeo import gdal

gdal.UseExceptions()
GOOD = [np.zeros((10, 20), np.uint8)] * 3  # blocks of an image of 30 x 20


def written(path: Path, data: Any, **options: Any) -> tagbridge.File:
    """Write a file of one directory and open it for reading."""
    with tagbridge.open(path, "w") as tif:
        tif.write(data, **options)
    return tagbridge.open(path)


def accepted(path: Path, array: np.ndarray) -> None:
    """Let other programs open a file and compare the pixels where they can read them."""
    subprocess.run(["tiffinfo", "-D", str(path)], capture_output=True, check=True)
    tiffinfo = subprocess.run(["tiffinfo", str(path)], capture_output=True, text=True, check=True)
    assert tiffinfo.stderr == ""
    subprocess.run(["exiftool", "-validate", str(path)], capture_output=True, check=True)
    bands = gdal.Open(str(path)).ReadAsArray()
    got = np.moveaxis(bands, 0, 2) if bands.ndim == 3 else bands
    np.testing.assert_array_equal(got, array)
    with tifffile.TiffFile(path) as other:
        assert other.pages[0].shape[-2:] or other.pages[0].shape
