"""The blocks of a directory in their order, decoded by threads some blocks ahead."""

from __future__ import annotations

import collections
import contextlib
import os
import queue
from collections.abc import Generator, Iterator
from concurrent.futures import Future, ThreadPoolExecutor
from typing import Any

import numpy as np

from .._messages import Warning
from ..blocks import Block
from ..decoding import decoder_for
from ..directory import Directory
from ..enumerations import Compression
from ..errors import failure_of, issue
from ..handle import Handle

Array = np.ndarray[Any, Any]
Decoded = tuple[Array, list[Warning]]

# From here on starting threads and opening the file for each takes less time than it saves.
_WORTH_THREADS = 4 << 20


def blocks_of(page: Directory) -> Generator[tuple[Block, Array], None, None]:
    """Yield each block with its array, as its `read` returns it, and issue its warnings then.

    Of a large image each thread holds two blocks at most.
    """
    threads = _threads_for(page)
    if threads < 2:
        for block in page.blocks:
            yield block, block.read()
        return
    with contextlib.ExitStack() as stack:
        handles: queue.SimpleQueue[Handle] = queue.SimpleQueue()
        for _ in range(threads):
            handle = page.file._another_handle()
            stack.callback(handle.close)
            handles.put(handle)
        pool = ThreadPoolExecutor(threads, "tagbridge-demo")
        stack.callback(pool.shutdown, cancel_futures=True)
        yield from _in_order(page, pool, handles, 2 * threads)


def _threads_for(page: Directory) -> int:
    if page.compression == Compression.OLD_JPEG or not page.file._shareable:
        return 1
    if page.nbytes < _WORTH_THREADS:
        return 1
    return min(len(os.sched_getaffinity(0)), len(page.blocks))


def _in_order(page: Directory, pool: ThreadPoolExecutor, handles: queue.SimpleQueue[Handle],
              ahead: int) -> Iterator[tuple[Block, Array]]:
    decode = decoder_for(page, raw=False)

    def work(block: Block) -> Decoded:
        handle = handles.get()
        try:
            with handle.at(page._place):
                page._prepare(handle)
                return decode(handle, block.index, block._extent)
        finally:
            handles.put(handle)

    pending: collections.deque[tuple[Block, Future[Decoded]]] = collections.deque()
    for block in page.blocks:
        pending.append((block, pool.submit(work, block)))
        if len(pending) >= ahead:
            yield _finished(page, *pending.popleft())
    while pending:
        yield _finished(page, *pending.popleft())


def _finished(page: Directory, block: Block, future: Future[Decoded]) -> tuple[Block, Array]:
    array, said = future.result()
    failure = failure_of(said)
    if failure is not None:
        with page._current() as handle:
            handle.require_decodable(page._place)
    issue(said if failure is None else [failure])
    return block, np.asfortranarray(array)
