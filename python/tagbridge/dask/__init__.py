"""Images as Dask arrays: read lazily, computed anywhere, written while they are computed.

Needs Dask. Any of its schedulers will do: threads, processes, or a cluster of ``distributed`` whose
workers see the files under the same paths::

    image = tagbridge.dask.from_tiff("slide.tif", chunks=(4096, 4096, 3))
    tagbridge.dask.to_tiff(255 - image, "negative.tif", tile=(256, 256), compression="deflate")
"""

from __future__ import annotations

from .folder import to_tiffs
from .reading import from_tiff
from .writing import to_tiff

__all__ = ["from_tiff", "to_tiff", "to_tiffs"]
