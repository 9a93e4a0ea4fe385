"""Files as lazy arrays."""

from __future__ import annotations

import itertools
import math
import os
import warnings
from collections.abc import Iterable, Sequence
from typing import Any

import dask.array as da
import numpy as np
from dask.array.core import PerformanceWarning, getter_nofancy, normalize_chunks
from dask.base import tokenize
from dask.highlevelgraph import HighLevelGraph

from ..errors import levels_inside
from ..file import File
from ..image_source import ImageSource
from .index import NAME, read_index
from .span import Span

Chunks = tuple[tuple[int, ...], ...]
Path = str | bytes | os.PathLike[str] | os.PathLike[bytes]


def from_tiff(paths: Path | Iterable[Path], directory: int = 0, chunks: Any = None, *,
              strict: bool = False) -> da.Array:
    """Return images as one lazy array.

    Nothing is decoded until the array is computed, and of a slice only the blocks that it touches.
    Each file is opened once here to learn its layout; processes that compute open it again when
    they come to it, and keep a small number of files open.

    :param paths: a file; a folder that `to_tiffs` has written; or several files, whose images are
        stacked along a new first axis
    :param directory: its number in the chain of each file, counted from 0; negative from the end
    :param chunks: None for a tile each, or a band of strips of about 4 MiB; else anything that
        ``dask.array.from_array`` takes. Multiples of blocks are good, others are a
        ``dask.array.PerformanceWarning``, since the blocks that they cut are decoded more than once
    :param strict: raise DecodeError for a block that cannot be decoded; it is a warning and holds
        zeros otherwise
    :raises OSError: a file cannot be opened
    :raises ValueError: no paths, images that differ in layout, chunks that cannot be
    :raises IndexError: there is no such directory
    :raises Error: not a TIFF file, or the module refuses the image
    """
    span, times = _described(paths, directory, strict)
    best = span.chunks()
    wanted: Chunks = best if chunks is None else normalize_chunks(
        chunks, span.shape, dtype=span.dtype, previous_chunks=best)
    _warn_of_repeated_decoding(span, wanted)
    name = f"from-tiff-{tokenize(span, times, wanted)}"
    graph = HighLevelGraph.from_collections(name, _tasks(name, span, wanted))
    return da.Array(graph, name, chunks=wanted, meta=np.empty((0,) * span.ndim, span.dtype))


def _described(paths: Path | Iterable[Path], directory: int,
               strict: bool) -> tuple[Span, list[int]]:
    """Return the images, and when the files that describe them were changed last."""
    given: Any = paths
    stacked = False
    if isinstance(given, (str, bytes, os.PathLike)):
        path = os.fsdecode(given)
        if os.path.isdir(path):
            if directory not in (0, -1):
                raise IndexError(f"the files of {path} have no directory {directory}")
            images, files = read_index(path), [os.path.join(path, NAME)]
        else:
            images, files = [_describe(path, directory)], [path]
    elif isinstance(given, Iterable):
        stacked, files = True, list(map(os.fsdecode, given))
        images = [_describe(path, directory) for path in files]
    else:
        raise TypeError(f"a path or several are needed, not {type(given).__name__}")
    _require_equal(images, stacked)
    return Span(images, stacked, strict), [os.stat(file).st_mtime_ns for file in files]


def _describe(path: str, directory: int) -> ImageSource:
    with File(path) as tif:
        return ImageSource.of(tif[directory])


def _require_equal(images: Sequence[ImageSource], stacked: bool) -> None:
    if not images:
        raise ValueError("there are no paths")
    first = images[0]
    same = slice(0 if stacked else 1, None)
    for image in images:
        if (image.shape[same], image.dtype, image.block) != (
                first.shape[same], first.dtype, first.block):
            raise ValueError(
                f"images must have one layout: {first.path} has {first.shape} {first.dtype} in "
                f"blocks of {first.block}, {image.path} has {image.shape} {image.dtype} in "
                f"blocks of {image.block}")


def _tasks(name: str, span: Span, chunks: Chunks) -> dict[Any, Any]:
    # Tasks of this form are what Dask's optimisation fuses with a slice of the array.
    tasks: dict[Any, Any] = {}
    parts = [list(enumerate(_slices(lengths))) for lengths in chunks]
    for number, place in parts[0]:
        piece, start = span.between(place.start, place.stop)
        rows = slice(place.start - start, place.stop - start)
        for rest in itertools.product(*parts[1:]):
            key = (name, number, *(index for index, _ in rest))
            tasks[key] = (getter_nofancy, piece, (rows, *(part for _, part in rest)), False, False)
    return tasks


def _slices(lengths: Sequence[int]) -> list[slice]:
    ends = list(itertools.accumulate(lengths, initial=0))
    return [slice(*pair) for pair in zip(ends, ends[1:])]


def _warn_of_repeated_decoding(span: Span, chunks: Chunks) -> None:
    times = math.prod(_times_decoded(span.edges(axis), lengths)
                      for axis, lengths in enumerate(chunks))
    if times > 1:
        warnings.warn(PerformanceWarning(
            f"chunks cut the blocks of the file, which are decoded {times:.3g} times on average; "
            f"multiples of {span.images[0].block} are decoded once"), stacklevel=levels_inside())


def _times_decoded(edges: Sequence[int], lengths: Sequence[int]) -> float:
    """Return how often a block is touched by one of these lengths, on average."""
    ends = np.cumsum((0, *lengths))
    touched = (np.searchsorted(edges, ends[1:], "left")
               - np.searchsorted(edges, ends[:-1], "right") + 1)
    return float(touched.sum()) / len(edges)
