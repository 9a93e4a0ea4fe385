"""TIFF files: images, tags, strips and tiles as NumPy arrays and Python values.

:func:`open` gives a :class:`File`, a sequence of :class:`Directory`::

    with tagbridge.open("scan.tif") as tif:
        page = tif[0]
        print(page.shape, page.dtype, page.compression)
        corner = page[:256, :256]
        print(page.tags["DateTime"])

:func:`imread` and :func:`imwrite` read and write a whole image::

    tagbridge.imwrite("copy.tif", tagbridge.imread("scan.tif"), compression="deflate")

What is where:

- ``help(tagbridge.open)`` has the modes, ``help(tagbridge.File.write)`` the options of writing;
- :class:`Directory` is an image: ``read``, indexing, ``tags``, ``blocks``, ``subdirectories``;
- :class:`Error` and :class:`Warning` have an ``identifier``; :func:`catalog` lists them all;
- :func:`call` runs one of the 25 operations beneath;
- ``set_memory_limit`` bounds what a damaged file can ask for.

Directories, strips, tiles, rows and columns count from 0. Arrays are column-major (Fortran order):
rows x columns, or rows x columns x samples.
"""

from __future__ import annotations

from typing import NamedTuple

import numpy as _numpy  # noqa: F401 - the extension would not say that it is what is missing

from . import _core
from ._core import (
    __version__,
    cache_limit,
    cached_bytes,
    call,
    memory_limit,
    release_cached_memory,
    set_cache_limit,
    set_memory_limit,
)
from ._messages import Error, Warning
from .blocks import Block
from .directory import Directory
from .enumerations import (
    Compression,
    ExtraSample,
    FillOrder,
    InkSet,
    Orientation,
    Photometric,
    PlanarConfiguration,
    Predictor,
    ResolutionUnit,
    SampleFormat,
    SubfileType,
    YCbCrPositioning,
)
from .errors import DecodeError
from .file import File, open
from .functions import imread, imwrite
from .tags import Tags

__all__ = [
    "Block",
    "CatalogEntry",
    "Compression",
    "DecodeError",
    "Directory",
    "Error",
    "ExtraSample",
    "File",
    "FillOrder",
    "InkSet",
    "Orientation",
    "Photometric",
    "PlanarConfiguration",
    "Predictor",
    "ResolutionUnit",
    "SampleFormat",
    "SubfileType",
    "Tags",
    "Warning",
    "YCbCrPositioning",
    "__version__",
    "cache_limit",
    "cached_bytes",
    "call",
    "catalog",
    "imread",
    "imwrite",
    "memory_limit",
    "open",
    "release_cached_memory",
    "set_cache_limit",
    "set_memory_limit",
]


class CatalogEntry(NamedTuple):
    """What an error or a warning means."""

    #: The complete identifier; an error and a warning may share one.
    identifier: str
    #: The message, with ``{0}``, ``{1}``, … where the arguments go.
    text: str
    #: What the arguments are, in order, parted by ``"; "``.
    arguments: str
    #: When it is issued, in a sentence.
    when: str
    #: False for an error.
    warning: bool


def catalog() -> list[CatalogEntry]:
    """Return every error and warning that a call can end with."""
    return [CatalogEntry(*row) for row in _core.catalog_rows()]
