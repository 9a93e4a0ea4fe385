"""One block as an array: as stored, or YCbCr as RGB."""

from __future__ import annotations

import abc
from typing import TYPE_CHECKING, Any

import numpy as np

from ._checks import require_memory
from ._messages import Warning
from .handle import Handle
from .layout import Extent, Layout
from .rgba import ORIENTATION, read_rgba_block

if TYPE_CHECKING:
    from .directory import Directory

Array = np.ndarray[Any, Any]


class Decoder(abc.ABC):
    """Reads blocks of the directory that is current in a handle."""

    #: Of a block's array.
    dtype: np.dtype[Any]
    samples: int
    #: Whether a block holds one plane of several.
    apart: bool

    def __init__(self, layout: Layout) -> None:
        self.layout = layout

    @abc.abstractmethod
    def __call__(self, handle: Handle, block: int, extent: Extent) -> tuple[Array, list[Warning]]:
        """Return the part of a block that belongs to the image, and what libtiff said."""


class StoredBlocks(Decoder):
    """Blocks with the samples as they are stored."""

    def __init__(self, layout: Layout, dtype: np.dtype[Any]) -> None:
        super().__init__(layout)
        self.dtype = dtype
        self.samples = max(1, layout.samples)
        self.apart = layout.separate

    def __call__(self, handle: Handle, block: int, extent: Extent) -> tuple[Array, list[Warning]]:
        """Return rows x columns, or rows x columns x samples when they lie together."""
        array, said = handle.collect(f"readEncoded{self.layout.unit}", block)
        return fitted(array, self.layout.block_shape(extent)), said


class StoredYCbCr(StoredBlocks):
    """Blocks of Y, Cb and Cr, of which each chroma value is repeated over its unit."""

    def __call__(self, handle: Handle, block: int, extent: Extent) -> tuple[Array, list[Warning]]:
        """Return rows x columns x 3."""
        planes, said = handle.collect(f"readEncoded{self.layout.unit}", block, outputs=3)
        across, down = self.layout.subsampling
        array = np.zeros((*extent.shape, len(planes)), self.dtype, order="F")
        for sample, plane in enumerate(planes):
            if plane is None:
                continue
            if sample and (down, across) != (1, 1):
                plane = plane.repeat(down, axis=0).repeat(across, axis=1)
            array[:, :, sample] = fitted(plane, extent.shape)
        return array, said


class RgbBlocks(Decoder):
    """Blocks of YCbCr as RGB, through libtiff's conversion."""

    dtype = np.dtype(np.uint8)
    samples = 3
    apart = False

    def __init__(self, layout: Layout, orientation: int) -> None:
        super().__init__(layout)
        self._orientation = orientation

    def __call__(self, handle: Handle, block: int, extent: Extent) -> tuple[Array, list[Warning]]:
        """Return rows x columns x 3."""
        array, said = read_rgba_block(handle, self.layout, extent, self._orientation)
        return array[:, :, :3], said


def decoder_for(directory: Directory, raw: bool) -> Decoder:
    """Return what reads the blocks of a directory. Raises Error for samples without a dtype."""
    layout = directory._layout
    if not layout.is_ycbcr:
        return StoredBlocks(layout, directory.dtype)
    if raw:
        stored = layout.dtype or np.dtype(np.uint8)
        return (StoredBlocks if layout.separate else StoredYCbCr)(layout, stored)
    with directory._current() as handle:
        orientation = int(handle.call("getField", ORIENTATION).item())
    return RgbBlocks(layout, orientation)


def fitted(array: Array, shape: tuple[int, ...]) -> Array:
    """Return an array of that shape: the same one, or what fits of it between zeros."""
    if array.shape == shape:
        return array
    if array.ndim != len(shape):
        array = array.reshape((*array.shape[:2], *(1,) * (len(shape) - 2))[:len(shape)], order="F")
    require_memory(shape, array.dtype)
    whole = np.zeros(shape, array.dtype, order="F")
    common = tuple(slice(min(pair)) for pair in zip(array.shape, shape, strict=True))
    whole[common] = array[common]
    return whole
