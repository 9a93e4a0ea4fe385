#!/usr/bin/env python3
"""A statistic over a mosaic of two gigapixels, on the processors of this machine.

The workers of a cluster first write the mosaic, a folder of compressed files, and then count its
grey values, in a fraction of the memory that it would take. One process does the same for
comparison. Last come the costs of a block, a file and a task, from which larger machines can be
reckoned. Run it as

    ./dev python examples/cluster.py
"""

from __future__ import annotations

import argparse
import importlib
import logging
import os
import tempfile
import time
import warnings
from collections.abc import Callable
from pathlib import Path
from typing import Any

import dask.array as da
import numpy as np
import tagbridge
import tagbridge.dask
from distributed import Client, LocalCluster

COLUMNS = 32768
ROWS_OF_A_FILE = 1024
CHUNK = (ROWS_OF_A_FILE, 8192)
MIB = 1 << 20


def landscape(block_info: Any = None) -> np.ndarray:
    """Make a part of the mosaic: hills from two waves, and some grain."""
    (top, bottom), (left, right) = block_info[None]["array-location"]
    rows, columns = np.arange(top, bottom)[:, np.newaxis], np.arange(left, right)
    hills = (64 * np.sin(rows / 700) * np.cos(columns / 900) + 128).astype(np.uint8)
    return hills + (rows * 7 ^ columns * 5).astype(np.uint8) % 4


def mosaic(rows: int) -> da.Array:
    """Return the picture as a lazy array."""
    lengths = [(step,) * (total // step) for step, total in zip(CHUNK, (rows, COLUMNS))]
    return da.map_blocks(landscape, chunks=tuple(lengths), dtype=np.uint8,
                         meta=np.empty((0, 0), np.uint8))


def counted(block: np.ndarray) -> np.ndarray:
    """Count the grey values of a block."""
    # A column lies in one piece, and what bincount makes of a few of them stays in the cache.
    parts = (np.bincount(block[:, column:column + 8].ravel(order="K"), minlength=256)
             for column in range(0, block.shape[1], 8))
    return sum(parts, np.zeros(256, np.int64))[np.newaxis, np.newaxis]


def histogram(image: da.Array) -> da.Array:
    """Return how often each grey value occurs, as a lazy array."""
    counts = image.map_blocks(counted, new_axis=2, chunks=((1,) * image.numblocks[0],
                                                           (1,) * image.numblocks[1], (256,)),
                              dtype=np.int64, meta=np.empty((0, 0, 0), np.int64))
    return counts.sum(axis=(0, 1))


def timed(work: Callable[[], Any], clock: Callable[[], float] = time.perf_counter
          ) -> tuple[float, Any]:
    """Return the seconds that something takes, and its result."""
    start = clock()
    result = work()
    return clock() - start, result


def peak_memory() -> int:
    """Return the most memory that this process has had, in bytes."""
    for line in Path("/proc/self/status").read_text().splitlines():
        if line.startswith("VmHWM"):
            return int(line.split()[1]) << 10
    raise OSError("the system does not say")


def identity(number: int) -> int:
    """Return what is given."""
    return number


def tell_costs(client: Client, folder: Path, image: da.Array) -> None:
    """Print what a block and a file cost a processor, and a task the cluster."""
    files = sorted(folder.rglob("*.tif"))
    with tagbridge.open(files[0]) as tif:
        seconds, _ = timed(lambda: [block.read() for block in tif.blocks], time.process_time)
        print(f"a block of 256 x 256: {seconds / len(tif.blocks) * 1e6:.0f} microseconds")

    def open_all() -> None:
        for path in files:
            with tagbridge.open(path) as each:
                each.blocks[0].read()

    seconds, _ = timed(open_all, time.process_time)
    print(f"a file, opened for a block: {seconds / len(files) * 1e6:.0f} microseconds")
    tasks = 3000
    seconds, _ = timed(lambda: client.gather(client.map(identity, range(tasks))))
    print(f"a task of the scheduler: {seconds / tasks * 1e6:.0f} microseconds")
    seconds, _ = timed(lambda: tagbridge.dask.from_tiff(folder, chunks=CHUNK))
    print(f"opening the folder: {seconds * 1e3:.0f} milliseconds for {image.npartitions} chunks")


def run(client: Client, folder: Path, rows: int) -> None:
    """Write the mosaic, count it twice, and compare."""
    size = rows * COLUMNS
    seconds, _ = timed(lambda: tagbridge.dask.to_tiffs(
        mosaic(rows), folder, compression="deflate", level=1, predictor=True))
    stored = sum(path.stat().st_size for path in folder.rglob("*.tif"))
    print(f"{rows} x {COLUMNS} pixels, {size / 1e9:.2f} gigapixels, written in {seconds:.0f} s: "
          f"{rows // ROWS_OF_A_FILE} files, {stored / MIB:.0f} MiB")

    image = tagbridge.dask.from_tiff(folder, chunks=CHUNK)
    client.restart()  # the peak of memory is that of reading
    client.run(importlib.import_module, "tagbridge.dask")
    started = sum(client.run(time.process_time).values())
    parallel, counts = timed(lambda: histogram(image).compute())
    of_workers = sum(client.run(time.process_time).values()) - started
    peak = max(client.run(peak_memory).values())
    values = np.arange(256)
    mean = (counts * values).sum() / size
    deviation = np.sqrt((counts * (values - mean) ** 2).sum() / size)
    print(f"mean {mean:.3f}, standard deviation {deviation:.3f}, of {counts.sum()} pixels")
    workers = len(client.scheduler_info()["workers"])
    print(f"{workers} workers: {parallel:.1f} s, {size / parallel / 1e6:.0f} megapixels a second, "
          f"at most {peak / MIB:.0f} MiB each for an image of {size / MIB:.0f} MiB")

    warnings.filterwarnings("ignore", "Running on a single-machine scheduler")
    started = time.process_time()
    single, again = timed(lambda: histogram(image).compute(scheduler="synchronous"))
    of_one = time.process_time() - started
    if not np.array_equal(counts, again):
        raise SystemExit("the cluster and one process count differently")
    print(f"one process: {single:.1f} s; the cluster is {single / parallel:.2f} times as fast")
    print(f"processor time: workers {of_workers:.1f} s, one process {of_one:.1f} s")
    tell_costs(client, folder, image)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rows", type=int, default=65536,
                        help=f"of the mosaic, which has {COLUMNS} columns (default: 65536)")
    parser.add_argument("--workers", type=int, default=len(os.sched_getaffinity(0)))
    parser.add_argument("--memory", default="512MiB", help="limit of a worker (default: 512MiB)")
    parser.add_argument("--folder", help="where to put the mosaic, by default a temporary folder")
    options = parser.parse_args()
    if options.rows < 1 or options.rows % ROWS_OF_A_FILE:
        parser.error(f"--rows must be a multiple of {ROWS_OF_A_FILE}")
    logging.getLogger("distributed").setLevel(logging.ERROR)
    with (tempfile.TemporaryDirectory(prefix="tagbridge-", dir=options.folder) as folder,
          LocalCluster(n_workers=options.workers, threads_per_worker=1, processes=True,
                       memory_limit=options.memory, dashboard_address=None,
                       local_directory=folder) as cluster,
          Client(cluster) as client):
        run(client, Path(folder, "mosaic"), options.rows)


if __name__ == "__main__":
    main()
