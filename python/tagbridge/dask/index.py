"""The index of a folder of files: which rows of the image each of them holds.

It is a file of JSON: ``format``, ``version``; ``dtype`` and ``block`` of each image; and ``files``,
from the top, each with its name below the folder and its shape.
"""

from __future__ import annotations

import json
import os
from collections.abc import Sequence
from typing import Any

import numpy as np

from ..atomic import written_beside
from ..handle import FIRST
from ..image_source import ImageSource
from ..open_files import Description
from ..plan import writable_dtype

NAME = "index.json"
_FORMAT = "tagbridge rows"
_VERSION = 1


def write_index(folder: str, images: Sequence[ImageSource]) -> None:
    """Write the index of files that lie below the folder; it appears when it is complete."""
    first = images[0]
    content = {
        "format": _FORMAT, "version": _VERSION,
        "dtype": first.dtype.name, "block": first.block, "tiled": first.description.tiled,
        "files": [{"name": os.path.relpath(image.path, folder), "shape": image.shape}
                  for image in images],
    }
    with written_beside(os.path.join(folder, NAME)) as beside:
        with open(beside, "w", encoding="utf-8") as file:
            json.dump(content, file, indent=1)


def read_index(folder: str) -> list[ImageSource]:
    """Return the images of a folder from the top; no file but the index is opened.

    Raises FileNotFoundError when the folder has no index, ValueError when it is damaged.
    """
    path = os.path.join(os.path.abspath(folder), NAME)
    with open(path, encoding="utf-8") as file:
        try:
            return _images(os.path.dirname(path), json.load(file))
        except (ValueError, KeyError, TypeError, AttributeError) as error:
            raise ValueError(f"{path} is no index of a folder of images: {error!r}") from None


def _images(folder: str, content: dict[str, Any]) -> list[ImageSource]:
    if content["format"] != _FORMAT or content["version"] != _VERSION:
        raise ValueError(f"format {content['format']!r}, version {content['version']!r}")
    dtype: np.dtype[Any] = writable_dtype(content["dtype"])
    block, tiled = _lengths(content["block"]), bool(content["tiled"])
    images = [ImageSource(_below(folder, each["name"]), FIRST,
                          Description(_lengths(each["shape"]), dtype, block, tiled))
              for each in content["files"]]
    if not images or {len(image.shape) for image in images} != {len(block)}:
        raise ValueError("no images, or with another number of axes than their blocks")
    return images


def _lengths(given: Any) -> tuple[int, ...]:
    if not all(type(length) is int and length > 0 for length in given) or not given:
        raise ValueError(f"{given!r} are no lengths")
    return tuple(given)


def _below(folder: str, name: str) -> str:
    """Return the path of a file of the folder, and of no other place."""
    steps = name.split("/")
    if os.path.isabs(name) or not all(steps) or ".." in steps:
        raise ValueError(f"{name!r} is no name of a file below the folder")
    return os.path.join(folder, *steps)
