"""PNG files."""

from __future__ import annotations

from typing import Any

import numpy as np

from ..atomic import written_beside


def save_png(path: str, picture: np.ndarray[Any, Any]) -> None:
    """Write grey (``bool``, ``uint8``, ``uint16``), RGB or RGBA pixels as a PNG file."""
    from PIL import Image

    Image.MAX_IMAGE_PIXELS = None
    with written_beside(path) as beside:
        Image.fromarray(np.ascontiguousarray(picture)).save(beside, "PNG")
