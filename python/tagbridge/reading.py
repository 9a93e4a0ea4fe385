"""Reading an image or a part of it: the blocks that are touched, each copied into its place."""

from __future__ import annotations

import dataclasses
import functools
import math
import os
import threading
from collections.abc import Callable, Iterator
from concurrent.futures import FIRST_EXCEPTION, ThreadPoolExecutor, wait
from typing import TYPE_CHECKING, Any

import numpy as np

from . import _core
from ._checks import require_memory, up
from ._messages import Warning
from .decoding import Decoder, StoredBlocks, decoder_for
from .errors import decode_error, failure_of, issue
from .handle import Handle
from .indexing import Selection
from .layout import Extent, Layout
from .progress import Report, reporting

if TYPE_CHECKING:
    from .directory import Directory, Progress

Array = np.ndarray[Any, Any]

# From here on starting threads and opening the file for each takes less time than it saves.
_WORTH_THREADS = 4 << 20

# Of each column so many bytes are copied at the same time, of blocks that together have no more.
_COLUMN_BYTES = 1024
_GROUP_BYTES = 32 << 20

Job = list[tuple[int, Extent]]


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
    threads: int = 1

    def jobs(self) -> Iterator[Job]:
        """Yield the blocks that the selection touches, those below each other together."""
        layout, axes = self.layout, self.selection.axes
        planes = axes[2].blocks(1) if self.decode.apart and len(axes) > 2 else (0,)
        rows = axes[0].blocks(layout.block_rows)
        together = self._blocks_together()
        for plane in planes:
            for first in range(0, len(rows), together):
                for column in axes[1].blocks(layout.block_columns):
                    yield [(layout.number(row, column, plane),
                            layout.extent_at(row, column, plane))
                           for row in rows[first:first + together]]

    def _blocks_together(self) -> int:
        """Return how many blocks to copy into the image at the same time."""
        item, layout = self.target.itemsize, self.layout
        if self.selection.axes[0].step > 1 or self.target.strides[0] != item:
            return 1
        wanted = up(_COLUMN_BYTES, max(1, layout.block_rows * item))
        fitting = _GROUP_BYTES // max(
            1, layout.block_rows * layout.block_columns * item * self.decode.samples)
        # Each thread should find several jobs, or the others wait for the last.
        fair = self.count() // (4 * self.threads) if self.threads > 1 else wanted
        return max(1, min(wanted, fitting, fair))

    def count(self) -> int:
        """Return the number of these blocks."""
        layout, axes = self.layout, self.selection.axes
        planes = len(axes[2].blocks(1)) if self.decode.apart and len(axes) > 2 else 1
        return (planes * len(axes[0].blocks(layout.block_rows))
                * len(axes[1].blocks(layout.block_columns)))

    @functools.cached_property
    def _is_direct(self) -> bool:
        """Whether blocks go into the image as they are stored, without steps between."""
        return (type(self.decode) is StoredBlocks and self.target.ndim in (2, 3)
                and all(axis.step == 1 for axis in self.selection.axes)
                and (len(self.target) < 2 or self.target.strides[0] == self.target.itemsize))

    def run(self, handle: Handle, job: Job) -> None:
        """Decode blocks and copy what is selected of them into its place."""
        if not self._is_direct:
            self._run_decoded(handle, job)
            return
        axes, plane = self.selection.axes, job[0][1].plane
        target, sample = self.target, 0
        if len(axes) > 2 and self.decode.apart:
            target = target[:, :, axes[2].within(plane or 0, (plane or 0) + 1).first]
        elif len(axes) > 2:
            sample = axes[2].start
        blocks = [(number, extent.top, extent.bottom, extent.left, extent.right)
                  for number, extent in job]
        with handle.at(self.directory._place):
            self.directory._prepare(handle)
            said = handle.read_blocks(f"readEncoded{self.layout.unit}", blocks, target,
                                      (axes[0].start, axes[1].start, sample))
        with self.lock:
            self.said += said
            for _ in job:
                self.report()

    def _run_decoded(self, handle: Handle, job: Job) -> None:
        arrays = []
        for block, extent in job:
            with handle.at(self.directory._place):
                self.directory._prepare(handle)
                array, said = self.decode(handle, block, extent)
            arrays.append(array)
            with self.lock:
                if said:
                    self.said.append((block, said))
                self.report()
        self._place([extent for _, extent in job], arrays)

    def _place(self, extents: list[Extent], arrays: list[Array]) -> None:
        axes = self.selection.axes
        rows = [axes[0].within(extent.top, extent.bottom) for extent in extents]
        columns = axes[1].within(extents[0].left, extents[0].right)
        target = self.target[rows[0].first:rows[-1].stop, columns.first:columns.stop]
        sources = [array[part.source, columns.source]
                   for array, part in zip(arrays, rows, strict=True)]
        if len(axes) > 2 and self.decode.apart:
            plane = extents[0].plane or 0
            target = target[:, :, axes[2].within(plane, plane + 1).first]
        elif len(axes) > 2:
            samples = axes[2].within(0, self.decode.samples).source
            sources = [source[:, :, samples] for source in sources]
        if all(array.strides[0] == array.itemsize for array in (target, *sources)):
            _core.place_blocks(target, sources)
            return
        for part, source in zip(rows, sources, strict=True):
            target[part.first - rows[0].first:part.stop - rows[0].first] = source


def read_image(
    directory: Directory,
    selection: Selection,
    *,
    out: Array | None = None,
    raw: bool = False,
    strict: bool = False,
    threads: int | None = None,
    progress: Progress = None,
    tell: Callable[[list[Warning]], None] = issue,
) -> Array:
    """Return what is selected of an image, in ascending order; see Directory.read.

    Warnings about blocks go to `tell`.
    """
    if threads is not None and threads < 1:
        raise ValueError(f"threads must be positive, not {threads}")
    layout = directory._layout
    directory._start_reading()
    decode = decoder_for(directory, raw)
    if out is None:
        require_memory(selection.shape, decode.dtype)
        # Blocks cover all of it, unless they have no size. np.empty takes large pages.
        make = np.empty if layout.block_rows and layout.block_columns else np.zeros
        out = make(selection.shape, decode.dtype, order="F")
    else:
        check_out(out, selection.shape, decode.dtype)
    # Of the base class: a mask, or another idea of what an index means, is the caller's.
    target = out.view(np.ndarray)
    with reporting(progress) as report:
        read = _Read(directory, layout, decode, selection, target, report)
        report.total = read.count()
        read.threads = _thread_count(read, threads)
        try:
            _run_threads(read) if read.threads > 1 else _run_here(read)
        finally:
            failures = _failures(read)
            if not strict:
                tell(_to_issue(read, failures))
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
    for job in read.jobs():
        read.run(handle, job)


def _thread_count(read: _Read, threads: int | None) -> int:
    if threads == 1 or not read.directory.file._shareable:
        return 1
    blocks = read.report.total
    if threads is not None:
        return min(threads, blocks)
    size = math.prod(read.selection.shape) * read.target.itemsize
    if size < _WORTH_THREADS:
        return 1
    return min(len(os.sched_getaffinity(0)), blocks)


def _run_threads(read: _Read) -> None:
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
                read.run(handle, job)
        except BaseException:
            read.stopped = True
            raise
        finally:
            handle.close()

    with ThreadPoolExecutor(read.threads, "tagbridge") as pool:
        futures = [pool.submit(work) for _ in range(read.threads)]
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
