"""The images of a file, each with the smaller versions of itself that the file has."""

from __future__ import annotations

from collections.abc import Sequence
from typing import NamedTuple

from .._messages import Error, Warning
from ..directory import Directory
from ..enumerations import SubfileType
from ..errors import issue
from ..file import File
from ..image_source import ImageSource


class Pyramid(NamedTuple):
    """An image and its levels."""

    #: Of the directory of the full size.
    number: int
    #: From the full size down: one, or more.
    levels: list[ImageSource]


def pyramids_of(tif: File) -> list[Pyramid]:
    """Return the images of the main chain.

    Levels are sub-directories, or directories that follow and say that they are reduced. What
    cannot be read is left out with a warning; when nothing is left the first Error is raised.
    """
    found: list[Pyramid] = []
    refused: list[tuple[int, Error]] = []
    for number, directory in enumerate(tif):
        try:
            image = ImageSource.of(directory)
            reduced = SubfileType.REDUCED_IMAGE in SubfileType(
                directory.tags.get("SubfileType", SubfileType(0)))
            below = [] if reduced else _readable(directory.subdirectories)
        except Error as error:
            refused.append((number, error))
            continue
        if reduced and found and _is_level(image, found[-1].levels):
            found[-1].levels.append(image)
        else:
            found.append(Pyramid(number, _with_levels(image, below)))
    if refused and not found:
        raise refused[0][1]
    issue(Warning(error.identifier, error.arguments, f"directory {number} is left out: {error}")
          for number, error in refused)
    return found


def _readable(directories: Sequence[Directory]) -> list[ImageSource]:
    images = []
    for directory in directories:
        try:
            images.append(ImageSource.of(directory))
        except Error:
            continue  # it may be anything, and need not be a level
    return images


def _with_levels(image: ImageSource, below: list[ImageSource]) -> list[ImageSource]:
    levels = [image]
    for each in sorted(below, key=lambda source: source.shape, reverse=True):
        if _is_level(each, levels):
            levels.append(each)
    return levels


def _is_level(image: ImageSource, levels: list[ImageSource]) -> bool:
    """Return whether an image is smaller than the last level, and alike."""
    full, last = levels[0], levels[-1]
    if image.dtype != full.dtype or image.shape[2:] != full.shape[2:]:
        return False
    rows, columns = image.shape[:2]
    if rows >= last.shape[0] or columns >= last.shape[1]:
        return False
    # The same proportions, each side rounded up or down.
    return abs(rows * full.shape[1] - columns * full.shape[0]) <= full.shape[0] + full.shape[1]
