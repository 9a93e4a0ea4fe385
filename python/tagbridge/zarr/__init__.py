"""Files as read-only Zarr stores.

Needs Zarr. Chunks are decoded when they are asked for::

    image = zarr.open(tagbridge.zarr.store("scan.tif"), mode="r")
    corner = image[:512, :512]
"""

from __future__ import annotations

import os

from .tiff_store import TiffStore

__all__ = ["TiffStore", "store"]


def store(path: str | bytes | os.PathLike[str] | os.PathLike[bytes], *,
          strict: bool = False) -> TiffStore:
    """Return a read-only mapping in Zarr 2 format over a file.

    A directory is an array, whose chunks are its tiles, or bands of strips of about 4 MiB. One with
    smaller versions of itself, in sub-directories or behind it in the chain, is a group of arrays
    ``"0"``, ``"1"``, …, the full size first, with the attribute ``multiscales``. A file of one such
    image has it at the root; other files have a group of those that can be read, named by the
    numbers of their directories.

    The layout is read once, here; files are opened when chunks are asked for, and a process keeps a
    small number of them open. The mapping can be pickled.

    :param path: the file
    :param strict: raise DecodeError for a block that cannot be decoded; it is a warning and holds
        zeros otherwise
    :raises OSError: the file cannot be opened
    :raises Error: not a TIFF file, or none of its images can be read
    """
    return TiffStore(os.fsdecode(path), strict)
