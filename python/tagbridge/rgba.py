"""Images as red, green, blue and alpha, converted by libtiff."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np

from ._checks import require_memory
from ._messages import Warning
from .enumerations import Orientation
from .errors import failure_of, issue
from .handle import Handle
from .layout import Extent, Layout

if TYPE_CHECKING:
    from .directory import Directory

ORIENTATION = 274
# libtiff turns rasters round so that the lower left corner of what is shown comes first.
_BOTTOM_FIRST = (Orientation.TOP_LEFT, Orientation.LEFT_TOP, Orientation.TOP_RIGHT,
                 Orientation.RIGHT_TOP)
_RIGHT_FIRST = (Orientation.TOP_RIGHT, Orientation.RIGHT_TOP, Orientation.BOTTOM_RIGHT,
                Orientation.RIGHT_BOTTOM)


def read_rgba_block(handle: Handle, layout: Layout, extent: Extent,
                    orientation: int) -> tuple[np.ndarray[Any, Any], list[Warning]]:
    """Return a block of the current directory as rows x columns x 4 uint8, in stored order."""
    rows, columns = extent.shape
    if layout.tiled:
        raster, said = handle.collect("readRGBATile", extent.left, extent.top)
        first = layout.block_rows - rows  # what lies outside the image comes first
    else:
        raster, said = handle.collect("readRGBAStrip", extent.top)
        first = 0
    raster = np.atleast_3d(raster)  # the module drops the dimension of a single row
    picture = raster[:, :columns, first:first + rows].transpose(2, 1, 0)
    # An Orientation that does not exist is taken for the usual one.
    known = orientation if 1 <= orientation <= 8 else Orientation.TOP_LEFT
    upright = picture[::-1] if known in _BOTTOM_FIRST else picture
    return upright[:, ::-1] if known in _RIGHT_FIRST else upright, said


def read_rgba(directory: Directory) -> np.ndarray[Any, Any]:
    """Return the whole image as rows x columns x 4 uint8; see Directory.rgba."""
    directory._start_reading()
    layout = directory._layout
    require_memory((layout.rows, layout.columns, 4), np.uint8)
    image = np.zeros((layout.rows, layout.columns, 4), np.uint8, order="F")
    warnings: list[Warning] = []
    with directory._current() as handle:
        orientation = int(handle.call("getField", ORIENTATION).item())
        for row in range(layout.down):
            for column in range(layout.across):
                extent = layout.extent_at(row, column, 0)
                block, said = read_rgba_block(handle, layout, extent, orientation)
                image[extent.top:extent.bottom, extent.left:extent.right] = block
                failure = failure_of(said)
                warnings += said if failure is None else [failure]
        if layout.is_log:
            handle.reload()  # the codec goes on giving 8 bits
    issue(warnings)
    return image
