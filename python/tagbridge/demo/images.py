"""The directories of a file with their names, and statistics of what is in them."""

from __future__ import annotations

import dataclasses
from collections.abc import Iterator
from typing import Any

import numpy as np

from ..cli.info import below
from ..directory import Directory
from ..file import File


def walk(tif: File) -> Iterator[tuple[str, Directory]]:
    """Yields each directory with its name, every one followed by its sub-directories.

    The names are "1", "2" and so on along the file's chain, "2.1" for the first sub-directory of
    the second directory. A sub-directory that several directories list, or that lists itself, is
    visited once.
    """
    seen: set[int] = set()
    for number, page in enumerate(tif, 1):
        yield from _tree(str(number), page, seen, 0)


def _tree(name: str, page: Directory, seen: set[int], depth: int) -> Iterator[tuple[str, Directory]]:
    yield name, page
    for number, level in enumerate(below(page, seen, depth), 1):
        yield from _tree(f"{name}.{number}", level, seen, depth + 1)


def planes_of(plane: int | None,
              array: np.ndarray[Any, Any]) -> Iterator[tuple[int, np.ndarray[Any, Any]]]:
    """Yields the number and the samples of each plane that a block holds."""
    if array.ndim == 3:
        yield from ((sample, array[:, :, sample]) for sample in range(array.shape[2]))
    else:
        yield plane or 0, array


@dataclasses.dataclass
class PlaneStatistics:
    """Minimum, mean and maximum of the samples of a plane, NaN left out."""

    minimum: float = float("inf")
    maximum: float = float("-inf")
    total: float = 0.0
    count: int = 0

    def add(self, samples: np.ndarray[Any, Any]) -> None:
        """Counts the samples of a block in."""
        if samples.dtype.kind == "f":
            samples = samples[~np.isnan(samples)]
        if samples.size == 0:
            return
        self.minimum = min(self.minimum, samples.min().item())
        self.maximum = max(self.maximum, samples.max().item())
        self.total += float(samples.sum(dtype=np.float64))
        self.count += samples.size

    @property
    def mean(self) -> float:
        """The mean of all samples so far, NaN when there are none."""
        return self.total / self.count if self.count else float("nan")
