"""Blocks to be written: cut out of an array, or taken one at a time from whoever makes them."""

from __future__ import annotations

from collections.abc import Iterable, Iterator
from typing import Any, NamedTuple

import numpy as np

from .blocks import padded
from .enumerations import Compression
from .layout import Extent, Layout
from .plan import Plan

Array = np.ndarray[Any, Any]


class Piece(NamedTuple):
    """A block's number and what the module takes for it: one array, or Y, Cb and Cr."""

    block: int
    arrays: tuple[Array, ...]


def pieces_of_array(array: Array, plan: Plan) -> Iterator[Piece]:
    """Cut an image into blocks."""
    layout = plan.layout
    image = array[:, :, 0] if array.ndim == 3 and layout.samples == 1 else array
    for block in range(layout.blocks):
        extent = layout.extent(block)
        part = image[extent.top:extent.bottom, extent.left:extent.right]
        if extent.plane is not None:
            part = part[:, :, extent.plane]
        yield Piece(block, _arrays(part, layout))


def pieces_of_blocks(blocks: Iterable[Any], plan: Plan) -> Iterator[Piece]:
    """Take blocks in file order.

    Raises ValueError for too few or too many of them or a wrong shape, TypeError for a wrong
    dtype. Each is taken when the one before is stored.
    """
    layout, source = plan.layout, iter(blocks)
    for block in range(layout.blocks):
        try:
            given = next(source)
        except StopIteration:
            raise ValueError(f"{block} blocks were given, and the image has {layout.blocks}"
                             ) from None
        yield Piece(block, _arrays(_checked(given, block, plan), layout))
    if next(source, None) is not None:
        raise ValueError(f"more blocks were given than the image has, {layout.blocks}")


def _checked(given: Any, block: int, plan: Plan) -> Array:
    layout = plan.layout
    extent = layout.extent(block)
    array = np.asarray(given)
    if array.dtype.newbyteorder("=") != plan.dtype:
        raise TypeError(f"block {block} holds {array.dtype}, not {plan.dtype}")
    whole = Extent(0, layout.block_rows, 0, layout.block_columns, extent.plane)
    shapes = [layout.block_shape(extent), layout.block_shape(whole)]
    if array.ndim == 3 and len(shapes[0]) == 2 and array.shape[2] == 1:
        array = array[:, :, 0]
    if array.shape not in shapes:
        raise ValueError(f"block {block} has the shape {array.shape}, not {shapes[0]}"
                         + ("" if shapes[1] == shapes[0] else f" or {shapes[1]}"))
    return array if layout.tiled else array[:extent.shape[0]]


def _arrays(part: Array, layout: Layout) -> tuple[Array, ...]:
    if layout.tiled:
        part = padded(part, layout.block_rows, layout.block_columns)
    if layout.is_ycbcr and layout.compression != Compression.JPEG and not layout.separate:
        across, down = layout.subsampling
        luma, *chroma = (part[:, :, sample] for sample in range(part.shape[2]))
        return (luma, *(plane[::down, ::across] for plane in chroma))
    return (part,)
