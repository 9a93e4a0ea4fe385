"""A Dask array into one file, while it is computed."""

from __future__ import annotations

import contextlib
import contextvars
import itertools
import math
import os
from collections import deque
from collections.abc import Generator, Iterator
from concurrent.futures import Future, ThreadPoolExecutor
from typing import Any

import dask.array as da
import numpy as np
from dask.base import get_scheduler

from ..functions import imwrite
from .bands import blocks_of_plane, layout_of

Array = np.ndarray[Any, Any]


def to_tiff(array: Any, path: str | bytes | os.PathLike[str] | os.PathLike[bytes], *,
            ahead: int = 4, bigtiff: bool | None = None, **options: Any) -> None:
    """Write an array into a file, row of chunks by row of chunks, while further ones are computed.

    No more than `ahead` rows of chunks and the one that is written are held at a time: an array
    that is larger than memory should have chunks of few rows. What several rows need is computed
    for each of them. With ``planar="separate"`` the array is gone through once for each sample. The
    file appears under its name when it is complete.

    :param array: rows x columns or rows x columns x samples: a Dask array or what becomes one
    :param path: the file
    :param ahead: how many rows of chunks are computed beyond the one that is written
    :param bigtiff: offsets of 64 bits; None for a file with more than 3.9 GB of samples
    :param options: those of `File.write`
    :raises OSError: the file cannot be opened
    :raises TypeError: a dtype that cannot be written, an unknown option
    :raises ValueError: a shape or an option that cannot be
    :raises Error: the module refuses what the options come to
    """
    if ahead < 0:
        raise ValueError(f"ahead cannot be negative: {ahead}")
    image = with_known_shape(array)
    layout = layout_of(image.shape, image.dtype, options)
    planes = [image[:, :, sample] for sample in range(layout.samples)] if (
        layout.planes > 1) else [image]
    rows = [plane[row] for plane in planes for row in _rows(plane)]
    with contextlib.closing(_computed_in_order(rows, ahead)) as bands:
        per_plane = len(rows) // len(planes)
        blocks = (block for _ in planes
                  for block in blocks_of_plane(_some(bands, per_plane), layout))
        imwrite(path, blocks, bigtiff=bigtiff, shape=image.shape, dtype=image.dtype, **options)


def with_known_shape(array: Any) -> da.Array:
    """Return a Dask array. Raises ValueError when its shape is not known."""
    image = da.asarray(array)
    if any(math.isnan(length) for length in image.shape):
        raise ValueError("the shape of the array is not known: compute_chunk_sizes() finds it out")
    return image


def _rows(array: da.Array) -> Iterator[slice]:
    top = 0
    for length in array.chunks[0]:
        yield slice(top, top + length)
        top += length


def _some(bands: Iterator[Array], count: int) -> Iterator[Array]:
    for _ in range(count):
        yield next(bands)


def _computed_in_order(rows: list[da.Array], ahead: int) -> Generator[Array, None, None]:
    """Yield the values of arrays in order, of which some are computed before they are asked for."""
    scheduler = get_scheduler(collections=rows[:1])
    waiting = iter(rows)
    computed: deque[Future[Any]] = deque()
    with ThreadPoolExecutor(max(1, ahead), "tagbridge-rows") as pool:

        def start(count: int) -> None:
            for row in itertools.islice(waiting, count - len(computed)):
                computed.append(pool.submit(_computed, row, scheduler, contextvars.copy_context()))

        try:
            for _ in rows:
                start(max(1, ahead))
                band = computed.popleft().result()
                start(ahead)
                yield band
                del band
        finally:
            pool.shutdown(wait=True, cancel_futures=True)


def _computed(array: da.Array, scheduler: Any, context: contextvars.Context) -> Any:
    # A client may be the current one for the thread that wants the value.
    return context.run(array.compute, scheduler=scheduler)
