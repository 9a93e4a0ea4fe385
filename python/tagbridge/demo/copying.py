"""Copies the images of a file into a new one of Deflate tiles, and compares what comes back."""

from __future__ import annotations

import dataclasses
import hashlib
import os
import subprocess
import tempfile
from typing import Any

import numpy as np

from .._messages import Error
from ..directory import Directory
from ..file import File
from . import images

TILE = 64
KEPT = ("SubfileType", "ColorMap", "YCbCrSubsampling")


@dataclasses.dataclass
class Result:
    """What came of a copy."""

    directories: int = 0
    size: int = 0
    equal: bool = True
    complaint: str = ""  # of tiffinfo's
    skipped: list[tuple[str, Error]] = dataclasses.field(default_factory=list)


Fingerprint = tuple[str, tuple[int, ...], bytes]


def fingerprint(array: np.ndarray[Any, Any]) -> Fingerprint:
    """Returns what tells images apart, bit for bit, without holding on to their samples."""
    return array.dtype.name, array.shape, hashlib.sha256(array.tobytes("F")).digest()


def _write(page: Directory, target: File, array: np.ndarray[Any, Any]) -> None:
    extra = page.tags.get("ExtraSamples")
    target.write(
        array, photometric=page.photometric, compression="deflate", tile=(TILE, TILE),
        planar=page.planar, extra_samples=None if extra is None else extra.tolist(),
        tags={name: page.tags[name] for name in KEPT if name in page.tags})


def _write_copy(path: str, copy: str, result: Result) -> list[Fingerprint]:
    """Writes the images of a file into another; returns their fingerprints."""
    written = []
    with File(path) as source, File(copy, "w") as target:
        for name, page in images.walk(source):
            try:
                array = page.read(raw=True)
                _write(page, target, array)
            except Error as error:
                result.skipped.append((name, error))
            else:
                written.append(fingerprint(array))
    return written


def complaint(path: str) -> str:
    """Returns the first error that tiffinfo reports of a file, empty if it accepts it."""
    tiffinfo = subprocess.run(["tiffinfo", path], capture_output=True, text=True, check=False)
    errors = [line for line in tiffinfo.stderr.splitlines() if ": Warning, " not in line]
    if not errors and tiffinfo.returncode != 0:
        return f"nothing, but ends with status {tiffinfo.returncode}"
    return errors[0] if errors else ""


def copy_and_compare(path: str) -> Result:
    """Copies every image of the file whose kind can be written as Deflate tiles."""
    result = Result()
    with tempfile.TemporaryDirectory() as folder:
        copy = os.path.join(folder, "copy.tif")
        written = _write_copy(path, copy, result)
        if written:
            result.directories = len(written)
            result.size = os.path.getsize(copy)
            with File(copy) as target:
                result.equal = written == [fingerprint(page.read(raw=True)) for page in target]
            result.complaint = complaint(copy)
    return result
