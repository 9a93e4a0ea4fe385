"""Reads on several threads: wall time beside one thread's, and beside other readers' threads.

Wall time says nothing on a machine with other work. So the threads' own account is given with it: the
share of their time in which they waited for each other, neither computing nor waiting for a processor.
"""

from __future__ import annotations

import contextlib
import functools
import importlib
import threading
import time
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import tagbridge
from tagbridge.file import File

import peers
from measuring import (
    EFFORTS, Image, compare, for_each_image, repeated, report, report_factors)

IMAGES = [
    Image("u8", "none", "tiles", 256),
    Image("rgb", "none", "strips", 16),
    Image("u8", "lzw", "tiles", 256),
    Image("u8", "deflate", "tiles", 256),
    Image("u8", "jpeg", "tiles", 256),
    Image("rgb", "deflate", "strips", 16),
]


# --- How long threads waited for each other

def account() -> tuple[float, float]:
    """The seconds for which this thread has lived, and those in which it ran or could have run."""
    with open("/proc/thread-self/schedstat") as file:
        ran, could, _ = map(int, file.read().split())
    return time.perf_counter(), (ran + could) / 1e9


class Waiting:
    """The time of threads, and the part of it in which they waited for something."""

    def __init__(self) -> None:
        self._lock = threading.Lock()
        self._lived = self._busy = 0.0

    @contextlib.contextmanager
    def counted(self) -> Iterator[None]:
        """Counts this thread in for the body of a with statement."""
        begin = account()
        yield
        end = account()
        with self._lock:
            self._lived += end[0] - begin[0]
            self._busy += end[1] - begin[1]

    def share(self) -> float:
        """Of the threads' time."""
        return max(0.0, 1 - self._busy / self._lived) if self._lived else 0.0


# --- Two threads with a handle each

def read_half(path: str, half: int, halves: int) -> None:
    file = tagbridge.call("open", path, "r")
    tiled = bool(tagbridge.call("isTiled", file).item())
    unit = "Tile" if tiled else "Strip"
    count = int(tagbridge.call(f"numberOf{unit}s", file).item())
    for block in range(half, count, halves):
        tagbridge.call(f"readEncoded{unit}", file, block)
    tagbridge.call("close", file, outputs=0)


def read_by_handles(pool: ThreadPoolExecutor, path: str, threads: int, waiting: Waiting) -> None:
    def work(half: int) -> None:
        with waiting.counted():
            read_half(path, half, threads)

    list(pool.map(work, range(threads)))


def measure_handles(image: Image, path: str, effort: str) -> None:
    waiting = Waiting()
    with ThreadPoolExecutor(2) as pool:
        def run(threads: int, calls: int) -> None:
            for _ in range(calls):
                read_by_handles(pool, path, threads, waiting if threads > 1 else Waiting())

        two, one = compare(EFFORTS[effort], functools.partial(run, 2), functools.partial(run, 1),
                           clock=time.perf_counter)
    report("two handles", **image._asdict(), value=two / one, waiting=waiting.share())


# --- A whole image

def measure_read(image: Image, path: str, effort: str) -> None:
    waiting = Waiting()
    another = File._another_handle

    def counted(self: File):
        handle, scope = another(self), waiting.counted()
        close = handle.close
        scope.__enter__()

        def end():
            scope.__exit__(None, None, None)
            return close()

        handle.close = end
        return handle

    File._another_handle = counted
    try:
        with tagbridge.open(path) as tif:
            def run(threads: int, calls: int) -> None:
                for _ in range(calls):
                    tif.read(threads=threads, raw=True)

            two, one = compare(EFFORTS[effort], functools.partial(run, 2),
                               functools.partial(run, 1), clock=time.perf_counter)
    finally:
        File._another_handle = another
    report("threads=2", **image._asdict(), value=two / one, waiting=waiting.share())


def gdal_on_all_processors() -> peers.Reader:
    gdal = importlib.import_module("osgeo.gdal")
    gdal.UseExceptions()

    def read(path: str) -> np.ndarray:
        image = gdal.OpenEx(path, open_options=["NUM_THREADS=ALL_CPUS"]).ReadAsArray()
        return np.asfortranarray(image.transpose(1, 2, 0) if image.ndim == 3 else image)

    return read


def measure_peers(image: Image, path: str, readers: dict[str, peers.Reader], effort: str) -> None:
    able = peers.able_readers(readers, path, tagbridge.imread(path, raw=True))
    if not able:
        return
    ours, *others = compare(
        EFFORTS[effort], repeated(lambda name: tagbridge.imread(name, raw=True), path),
        *(repeated(read, path) for read in able.values()), clock=time.perf_counter)
    report_factors("all processors", ours, dict(zip(able, others)), **image._asdict())


def main() -> None:
    readers = peers.installed_readers()
    if "GDAL" in readers:
        readers["GDAL, one thread"] = readers["GDAL"]
        readers["GDAL"] = gdal_on_all_processors()

    def measure(image: Image, path: str, effort: str) -> None:
        measure_handles(image, path, effort)
        measure_read(image, path, effort)
        measure_peers(image, path, readers, effort)

    for_each_image(__doc__, IMAGES, measure)


if __name__ == "__main__":
    main()
