"""A directory as a notebook shows it."""

from __future__ import annotations

import base64
import html
import io
from typing import TYPE_CHECKING, Any

import numpy as np

from ._messages import Error
from .preview import small_picture

if TYPE_CHECKING:
    from .directory import Directory

_LONGEST = 200
_PICTURE_SIZE = 256


def directory_html(directory: Directory) -> str:
    """Return the picture and the tags of a directory as HTML."""
    rows = "".join(
        f"<tr><th>{html.escape(name)}</th><td>{html.escape(_value(directory, name))}</td></tr>"
        for name in directory.tags
    )
    title = html.escape(repr(directory)[1:-1])
    figure = f"<figure><figcaption>{title}</figcaption>{_picture(directory)}</figure>"
    return f"{figure}<table>{rows}</table>"


def directory_png(directory: Directory) -> bytes | None:
    """Return a small picture as PNG, None when it cannot be made."""
    try:
        from PIL import Image

        picture = small_picture(directory, _PICTURE_SIZE)
    except (ImportError, Error):
        return None
    stream = io.BytesIO()
    Image.fromarray(np.ascontiguousarray(picture)).save(stream, "PNG")
    return stream.getvalue()


def _picture(directory: Directory) -> str:
    png = directory_png(directory)
    if png is None:
        return ""
    return f'<img alt="" src="data:image/png;base64,{base64.b64encode(png).decode()}">'


def _value(directory: Directory, name: str) -> str:
    try:
        return _shown(directory.tags[name])
    except (Error, KeyError) as error:
        return str(error)


def _shown(value: Any) -> str:
    if isinstance(value, bytes):
        return f"{len(value)} bytes"
    if isinstance(value, np.ndarray):
        text = np.array2string(value, threshold=8, separator=", ")
    else:
        text = getattr(value, "name", None) or str(value)
    return text if len(text) <= _LONGEST else text[:_LONGEST] + "…"
