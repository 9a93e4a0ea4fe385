"""Writing directories: their tags in the order that the module's checks need, then their blocks."""

from __future__ import annotations

import contextlib
import threading
from collections.abc import Iterable, Iterator, Mapping
from io import UnsupportedOperation
from typing import Any

import numpy as np

from ._checks import encoded_text
from ._messages import Error
from .block_source import Piece, pieces_of_array, pieces_of_blocks
from .enumerations import Compression, ResolutionUnit, coded
from .handle import Handle
from .modes import Mode
from .plan import Options, Plan, make_plan
from .progress import reporting
from .tags import SUB_IFD, find_tag, to_module
from .targets import Target

Setting = tuple[int, Any]


class Writer:
    """Writes directories to a new file or behind those of an existing one."""

    def __init__(self, target: Target, mode: Mode, empty: bool) -> None:
        """Open the file. Nothing is left behind when that fails."""
        self._target = target
        self._flags = mode.flags
        self._lock = threading.RLock()
        #: Directories of the main chain that were written.
        self.count = 0
        self._is_new = mode.access in ("w", "x") or empty
        self._has_directories = not self._is_new
        self._below = 0  # sub-directories that are to come
        self._handle: Handle | None = None
        try:
            self._opened()
        except BaseException:
            target.forget()
            raise

    def _opened(self) -> Handle:
        if self._handle is None:
            # A file that is there has its byte order and its size of offsets.
            mode = "a" if self._has_directories else "w" + self._flags
            self._handle = Handle(self._target, mode)
        return self._handle

    def write(self, data: Any, options: Options) -> None:
        """Write one directory; see `File.write`."""
        pieces, plan = _pieces(data, options)
        with self._lock:
            if self._below and options.subdirectories:
                raise ValueError("a sub-directory cannot have sub-directories")
            handle = self._opened()
            before = self._target.size()
            try:
                self._write(handle, plan, options, pieces)
            except BaseException:
                self._drop(before)
                raise
            self._has_directories = True
            if self._below:
                self._below -= 1
            else:
                self.count += 1
                self._below = options.subdirectories

    def _write(self, handle: Handle, plan: Plan, options: Options,
               pieces: Iterator[Piece]) -> None:
        with handle.held():
            for number, value in _settings(plan, options):
                handle.call("setField", number, value, outputs=0)
            for number, value in _tags(options.optional_tags or {}):
                with contextlib.suppress(Error):
                    handle.call("setField", number, value, outputs=0)
            operation = f"writeEncoded{plan.layout.unit}"
            with reporting(options.progress) as report:
                report.total = plan.layout.blocks
                for piece in pieces:
                    handle.call(operation, piece.block, *piece.arrays, outputs=0)
                    report()
            handle.call("writeDirectory", outputs=0)

    def _drop(self, size: int) -> None:
        """Take back a directory that was begun.

        There is no operation for that. But loading another directory leaves the current one
        unwritten, and a file that has none is begun anew.
        """
        self._below = 0
        handle, self._handle = self._handle, None
        if handle is None:
            return
        try:
            if self._has_directories:
                handle.collect("setDirectory", 0, outputs=0)
        except Error:
            return  # the directory that was begun is written by the close
        finally:
            handle.close()
        self._target.cut(size if self._has_directories else 0)

    def close(self) -> None:
        """Close the file; remove it when it is new and has no directory."""
        with self._lock:
            handle, self._handle = self._handle, None
            try:
                if handle is not None:
                    handle.close_and_issue()
            finally:
                if not self._has_directories:
                    self._target.discard()


def _pieces(data: Any, options: Options) -> tuple[Iterator[Piece], Plan]:
    if isinstance(data, np.ndarray) or hasattr(data, "__array__"):
        array = np.asarray(data)
        if options.shape is not None and tuple(options.shape) != array.shape:
            raise ValueError(f"the array has the shape {array.shape}, not {tuple(options.shape)}")
        if options.dtype is not None and np.dtype(options.dtype) != array.dtype:
            raise TypeError(f"the array holds {array.dtype}, not {np.dtype(options.dtype)}")
        plan = make_plan(options, array.shape, array.dtype)
        return pieces_of_array(array, plan), plan
    if not isinstance(data, Iterable):
        raise TypeError(f"an array or an iterable of blocks is needed, not {type(data).__name__}")
    if options.shape is None or options.dtype is None:
        raise TypeError("blocks need shape and dtype of the image")
    shape = tuple(int(length) for length in options.shape)
    plan = make_plan(options, shape, options.dtype)
    return pieces_of_blocks(data, plan), plan


def _settings(plan: Plan, options: Options) -> Iterator[Setting]:
    """Yield the tags of a directory with their values, in the order of the module's checks."""
    layout = plan.layout
    yield 262, layout.photometric
    if not layout.is_log:
        yield 258, layout.bits
        yield 277, layout.samples
        yield 339, int(layout.sample_format)
    yield 284, layout.planar
    yield 256, layout.columns
    yield 257, layout.rows
    if layout.tiled:
        yield 322, layout.block_columns
        yield 323, layout.block_rows
    else:
        yield 278, layout.block_rows
    yield 259, int(layout.compression)
    yield from _codec_settings(plan)
    if plan.extra_samples:
        yield 338, np.array([plan.extra_samples], dtype=np.float64)
    if options.colormap is not None:
        yield 320, _colormap(options.colormap)
    yield from _resolution(options)
    if options.description is not None:
        yield 270, encoded_text(options.description)
    yield from _tags(options.tags or {})
    if options.subdirectories:
        yield 330, options.subdirectories


def _codec_settings(plan: Plan) -> Iterator[Setting]:
    layout = plan.layout
    if layout.is_ycbcr:
        yield 530, np.array([layout.subsampling], dtype=np.float64)
        if layout.compression == Compression.JPEG:
            yield 65538, 1  # the codec takes RGB
    if layout.is_log:
        yield 65560, 0  # the codec takes floats
    if plan.predictor is not None:
        yield 317, int(plan.predictor)
    if plan.level is not None:
        yield plan.level


def _colormap(colormap: Any) -> np.ndarray[Any, Any]:
    table = np.asarray(colormap)
    if table.dtype == np.uint16:
        return np.asfortranarray(table / 65535.0)
    if table.dtype.kind != "f":
        raise TypeError(f"a colormap is uint16 or floats from 0 to 1, not {table.dtype}")
    return np.asfortranarray(table, dtype=np.float64)


def _resolution(options: Options) -> Iterator[Setting]:
    unit = options.resolution_unit
    if options.resolution is not None:
        x, y = np.broadcast_to(np.asarray(options.resolution, dtype=np.float64), (2,))
        yield 282, float(x)
        yield 283, float(y)
        unit = ResolutionUnit.INCH if unit is None else unit
    if unit is not None:
        yield 296, coded(ResolutionUnit, unit)


def _tags(tags: Mapping[Any, Any]) -> Iterator[Setting]:
    for key, value in tags.items():
        tag = find_tag(key)
        if tag.name == SUB_IFD:
            raise UnsupportedOperation("sub-directories are made by write(subdirectories=…)")
        yield tag.number, to_module(tag, value)
