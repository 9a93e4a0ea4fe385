"""Tags of an image that belong to a copy of it too."""

from __future__ import annotations

from typing import Any

import numpy as np

from ..directory import Directory
from ..enumerations import Photometric
from ..indexing import Selection
from ..tags import find_tag
from .info import readable_tags

# What the copy has from its own layout, and what describes how the original is coded.
_OWN = {
    "ImageWidth", "ImageLength", "BitsPerSample", "Compression", "PhotometricInterpretation",
    "SamplesPerPixel", "RowsPerStrip", "PlanarConfiguration", "TileWidth", "TileLength", "SubIFD",
    "ExtraSamples", "SampleFormat", "Predictor", "Group3Options", "Group4Options", "FillOrder",
    "StripOffsets", "StripByteCounts", "TileOffsets", "TileByteCounts"}
_OF_YCBCR = {"YCbCrSubsampling", "YCbCrCoefficients", "YCbCrPositioning", "ReferenceBlackWhite"}


def fitting_tags(page: Directory,
                 selection: Selection | None) -> tuple[dict[str, Any], dict[str, Any]]:
    """Return the tags that a copy of what is selected needs, and those that it may have.

    None stands for a smaller image, which gets only what it needs.
    """
    tags = {name: value for name, value in readable_tags(page)
            if name not in _OWN and find_tag(name).writable}
    if page.photometric == Photometric.YCBCR:
        tags = {name: value for name, value in tags.items() if name not in _OF_YCBCR}
    needed = {"ColorMap": tags.pop("ColorMap")} if "ColorMap" in tags else {}
    if selection is None:
        return needed, {}
    return needed, _moved(tags, selection.axes[1].start, selection.axes[0].start)


def _moved(tags: dict[str, Any], left: int, top: int) -> dict[str, Any]:
    """Let the tags of a map say the same of an image that begins there."""
    if "ModelTiepointTag" in tags:
        points = tags["ModelTiepointTag"].copy()
        points[:, 0] -= left
        points[:, 1] -= top
        tags["ModelTiepointTag"] = points
    matrix = tags.get("ModelTransformationTag", np.zeros(0))
    if matrix.size == 16:
        moved = matrix.reshape(4, 4).copy()
        moved[:3, 3] += moved[:3, 0] * left + moved[:3, 1] * top
        tags["ModelTransformationTag"] = moved.ravel()
    return tags
