"""A Dask array into a folder of files, which the workers write."""

from __future__ import annotations

import contextlib
import os
import shutil
import uuid
from collections.abc import Iterator
from typing import Any

import dask.array as da
import numpy as np
from dask.base import compute_as_if_collection
from dask.highlevelgraph import HighLevelGraph

from ..file import File
from ..functions import imwrite
from ..image_source import ImageSource
from ..layout import Layout
from .bands import blocks_of_plane, joined, layout_of
from .index import read_index, write_index
from .writing import with_known_shape

Array = np.ndarray[Any, Any]
TILE = (256, 256)


def to_tiffs(array: Any, folder: str | bytes | os.PathLike[str] | os.PathLike[bytes],
             **options: Any) -> None:
    """Write an array into a folder, each row of chunks as a tiled file.

    The workers write, several at a time, and all of them must reach the folder under this path. A
    worker holds the row that it writes. `from_tiff` of the folder gives the array again.

    The files lie in a folder of their own below, and an index beside it names them. The index is
    written last: until then, and after a failure, an array that was written there before is as it
    was; when the new one is complete the old one is removed.

    :param array: rows x columns or rows x columns x samples: a Dask array or what becomes one
    :param folder: made when it does not exist
    :param options: those of `File.write`; without ``tile`` tiles have 256 x 256 pixels
    :raises OSError: a file cannot be written
    :raises TypeError: a dtype that cannot be written, an unknown option
    :raises ValueError: a shape or an option that cannot be
    :raises Error: the module refuses what the options come to
    """
    image = with_known_shape(array)
    options.setdefault("tile", TILE)
    if "progress" in options:
        raise TypeError("progress cannot be given here: use that of Dask")
    layout_of(image.shape, image.dtype, options)
    path = os.path.abspath(os.fsdecode(folder))
    os.makedirs(path, exist_ok=True)
    before = _files_of(path)
    with _new_folder(path) as below:
        images = _written(image, below, options)
        # Of workers that were lost while they wrote.
        _remove(os.path.join(below, name) for name in os.listdir(below) if name.endswith(".part"))
        write_index(path, images)
    _remove(before)
    for each in {os.path.dirname(name) for name in before} - {path}:
        with contextlib.suppress(OSError):
            os.rmdir(each)


def _files_of(folder: str) -> list[str]:
    try:
        return [image.path for image in read_index(folder)]
    except (OSError, ValueError):
        return []


def _remove(paths: Any) -> None:
    for path in paths:
        with contextlib.suppress(OSError):
            os.unlink(path)


@contextlib.contextmanager
def _new_folder(folder: str) -> Iterator[str]:
    """Make a folder below another one, which is removed again when the body raises.

    A worker that is still at work then has nowhere to put what it writes.
    """
    below = os.path.join(folder, f"rows-{uuid.uuid4().hex[:12]}")
    os.mkdir(below)
    try:
        yield below
    except BaseException:
        shutil.rmtree(below, ignore_errors=True)
        raise


def _written(image: da.Array, folder: str, options: dict[str, Any]) -> list[ImageSource]:
    name = os.path.basename(folder)
    tasks: dict[Any, Any] = {}
    for row in range(image.numblocks[0]):
        path = os.path.join(folder, f"{row:06}.tif")
        tasks[name, row] = (_write_row, path, _keys_of_row(image, row), options)
    graph = HighLevelGraph.from_collections(name, tasks, dependencies=[image])
    written = compute_as_if_collection(da.Array, graph, list(tasks))
    return list(written)


def _keys_of_row(image: da.Array, row: int) -> list[Any]:
    across = range(image.numblocks[1])
    if image.ndim == 2:
        return [(image.name, row, column) for column in across]
    return [[(image.name, row, column, sample) for sample in range(image.numblocks[2])]
            for column in across]


def _write_row(path: str, pieces: list[Any], options: dict[str, Any]) -> ImageSource:
    """Write a row of chunks and return what the file then holds."""
    band = joined(pieces)
    layout = layout_of(band.shape, band.dtype, options)
    imwrite(path, _blocks(band, layout), shape=band.shape, dtype=band.dtype, **options)
    with File(path) as tif:
        return ImageSource.of(tif[0])


def _blocks(band: Array, layout: Layout) -> Iterator[Array]:
    planes = [band[:, :, sample] for sample in range(layout.samples)] if (
        layout.planes > 1) else [band]
    for plane in planes:
        yield from blocks_of_plane([plane], layout)
