"""Low-level access to TIFF files: tags, strips and tiles as NumPy arrays.

:func:`call` runs one operation of the module::

    file = tagbridge.call("open", "image.tif", "r")
    block = tagbridge.call("readEncodedStrip", file, 0)
    tagbridge.call("close", file)

Arrays are column-major, as the module has them: every array that it returns is a
view of the module's own memory, and a Fortran-contiguous array goes in as it is.
"""

from __future__ import annotations

from typing import NamedTuple

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

__all__ = [
    "CatalogEntry",
    "Error",
    "Warning",
    "__version__",
    "cache_limit",
    "cached_bytes",
    "call",
    "catalog",
    "memory_limit",
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
