"""Reading an image or a part of it: the blocks that are touched, each copied into its place."""

from __future__ import annotations

import dataclasses
import math
import os
import threading
from collections.abc import Iterator
from concurrent.futures import FIRST_EXCEPTION, ThreadPoolExecutor, wait
from typing import TYPE_CHECKING, Any

import numpy as np

from ._messages import Warning
from .decoding import Decoder, decoder_for
from .enumerations import Compression
from .errors import decode_error, failure_of, issue
from .handle import Handle
from .indexing import Selection
from .layout import Extent, Layout
from .progress import Report, reporting

if TYPE_CHECKING:
    from .directory import Directory, Progress

Array = np.ndarray[Any, Any]

# From here on starting threads and opening the file for each takes less time than it saves.
_WORTH_THREADS = 16 << 20


@dataclasses.dataclass
class _Read:
    """One read: what goes where, and what was said about it."""

    directory: Directory
    layout: Layout
    decode: Decoder
    selection: Selection
    target: Array
    report: Report
    said: list[tuple[int, list[Warning]]] = dataclasses.field(default_factory=list)
    lock: threading.Lock = dataclasses.field(default_factory=threading.Lock)
    stopped: bool = False

    def jobs(self) -> Iterator[tuple[int, Extent]]:
        """Yield the blocks that the selection touches."""
        layout, axes = self.layout, self.selection.axes
        planes = axes[2].blocks(1) if self.decode.apart and len(axes) > 2 else (0,)
        for plane in planes:
            for row in axes[0].blocks(layout.block_rows):
                for column in axes[1].blocks(layout.block_columns):
                    yield layout.number(row, column, plane), layout.extent_at(row, column, plane)

    def count(self) -> int:
        """Return the number of these blocks."""
        layout, axes = self.layout, self.selection.axes
        planes = len(axes[2].blocks(1)) if self.decode.apart and len(axes) > 2 else 1
        return (planes * len(axes[0].blocks(layout.block_rows))
                * len(axes[1].blocks(layout.block_columns)))

    def run(self, handle: Handle, block: int, extent: Extent) -> None:
        """Decode a block and copy what is selected of it into its place."""
        with handle.at(self.directory._place):
            self.directory._prepare(handle)
            array, said = self.decode(handle, block, extent)
        self._place(array, extent)
        with self.lock:
            if said:
                self.said.append((block, said))
            self.report()

    def _place(self, array: Array, extent: Extent) -> None:
        axes = self.selection.axes
        rows = axes[0].within(extent.top, extent.bottom)
        columns = axes[1].within(extent.left, extent.right)
        target = self.target[rows.first:rows.stop, columns.first:columns.stop]
        source = array[rows.source, columns.source]
        if len(axes) == 2:
            target[...] = source
        elif self.decode.apart:
            target[:, :, axes[2].within(extent.plane or 0, (extent.plane or 0) + 1).first] = source
        else:
            target[...] = source[:, :, axes[2].within(0, self.decode.samples).source]


def read_image(
    directory: Directory,
    selection: Selection,
    *,
    out: Array | None = None,
    raw: bool = False,
    strict: bool = False,
    threads: int | None = None,
    progress: Progress = None,
) -> Array:
    """Return what is selected of an image, in ascending order; see Directory.read."""
    if threads is not None and threads < 1:
        raise ValueError(f"threads must be positive, not {threads}")
    layout = directory._layout
    directory._start_reading()
    decode = decoder_for(directory, raw)
    if out is None:
        out = np.zeros(selection.shape, decode.dtype, order="F")
    else:
        check_out(out, selection.shape, decode.dtype)
    with reporting(progress) as report:
        read = _Read(directory, layout, decode, selection, out, report)
        report.total = read.count()
        count = _thread_count(read, threads)
        try:
            _run_threads(read, count) if count > 1 else _run_here(read)
        finally:
            failures = _failures(read)
            if not strict:
                issue(_to_issue(read, failures))
    if failures:
        with directory._current() as handle:
            handle.require_decodable(directory._place)
        if strict:
            raise decode_error(failures)
    return out


def check_out(out: Array, shape: tuple[int, ...], dtype: np.dtype[Any]) -> None:
    """Raise what is wrong with an array that a read is to fill."""
    if not isinstance(out, np.ndarray) or out.dtype != dtype:
        found = out.dtype if isinstance(out, np.ndarray) else type(out).__name__
        raise TypeError(f"out must be an array of {dtype}, not {found}")
    if out.shape != shape:
        raise ValueError(f"out must have the shape {shape}, not {out.shape}")
    if not out.flags.writeable:
        raise ValueError("out cannot be written to")


def _run_here(read: _Read) -> None:
    handle = read.directory.file._handle
    for block, extent in read.jobs():
        read.run(handle, block, extent)


def _thread_count(read: _Read, threads: int | None) -> int:
    if threads == 1 or not read.directory.file._shareable:
        return 1
    blocks = read.report.total
    if threads is not None:
        return min(threads, blocks)
    size = math.prod(read.selection.shape) * read.target.itemsize
    if read.layout.compression == Compression.NONE or size < _WORTH_THREADS:
        return 1
    return min(len(os.sched_getaffinity(0)), blocks)


def _run_threads(read: _Read, count: int) -> None:
    """Decode in threads, each with a handle of its own."""
    jobs = read.jobs()

    def work() -> None:
        handle = read.directory.file._another_handle()
        try:
            while not read.stopped:
                with read.lock:
                    job = next(jobs, None)
                if job is None:
                    return
                read.run(handle, *job)
        except BaseException:
            read.stopped = True
            raise
        finally:
            handle.close()

    with ThreadPoolExecutor(count, "tagbridge") as pool:
        futures = [pool.submit(work) for _ in range(count)]
        try:
            done, _ = wait(futures, return_when=FIRST_EXCEPTION)
        finally:
            read.stopped = True
    for future in done:
        future.result()


def _failures(read: _Read) -> list[tuple[int, Warning]]:
    """Return the blocks that were not decoded, ascending, each with what libtiff said first."""
    read.said.sort(key=lambda each: each[0])
    found = ((block, failure_of(said)) for block, said in read.said)
    return [(block, warning) for block, warning in found if warning is not None]


def _to_issue(read: _Read, failures: list[tuple[int, Warning]]) -> list[Warning]:
    """Return one warning for each block that failed, and all those of the others."""
    failed = dict(failures)
    warnings: list[Warning] = []
    for block, said in read.said:
        warnings += [failed[block]] if block in failed else said
    return warnings


