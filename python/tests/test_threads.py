"""Calls from several threads."""

from __future__ import annotations

import threading
import time
import warnings
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import tagbridge
import tifffile


def test_other_threads_run_during_a_call(tmp_path):
    """Opening a missing file takes a second, nearly all of it waiting."""
    turns = 0
    done = threading.Event()

    def count() -> None:
        nonlocal turns
        while not done.wait(0.01):
            turns += 1

    counter = threading.Thread(target=count)
    counter.start()
    try:
        with pytest.raises(tagbridge.Error):
            tagbridge.call("open", str(tmp_path / "missing.tif"), "r")
    finally:
        during_call = turns
        done.set()
        counter.join()
    assert during_call > 10


def test_calls_run_while_others_wait_to_try_again(gray, tmp_path):
    """Four threads open missing files at once, and files that exist are read meanwhile."""
    start = time.monotonic()
    reads = 0
    with ThreadPoolExecutor(4) as pool:
        calls = [
            pool.submit(tagbridge.call, "open", str(tmp_path / "missing.tif"), "r")
            for _ in range(4)
        ]
        while not all(call.done() for call in calls):
            file = tagbridge.call("open", str(gray), "r")
            assert tagbridge.call("readEncodedStrip", file, 0).shape == (16, 30)
            tagbridge.call("close", file)
            reads += 1
        errors = [call.exception() for call in calls]
    assert [type(error) for error in errors] == [tagbridge.Error] * 4
    assert 1.0 < time.monotonic() - start < 1.9
    assert reads > 10


def test_a_call_that_waits_keeps_its_own_messages(unknown_tag, tmp_path):
    missing = str(tmp_path / "missing.tif")
    with ThreadPoolExecutor(1) as pool, warnings.catch_warnings(record=True) as issued:
        warnings.simplefilter("always")
        waiting = pool.submit(tagbridge.call, "open", missing, "r")
        while not waiting.done():
            tagbridge.call("close", tagbridge.call("open", str(unknown_tag), "r"))
            time.sleep(0.01)
        diagnostics = waiting.exception().diagnostics
    assert diagnostics == [f"TIFFOpen: {missing}: No such file or directory"]
    assert len(issued) > 10
    assert all("65000" in str(warning.message) for warning in issued)


def test_threads_read_their_own_files_correctly(tmp_path):
    def read(number: int) -> bool:
        path = tmp_path / f"{number}.tif"
        pixels = np.full((200, 100), number, np.uint16)
        with lock:
            tifffile.imwrite(path, pixels, rowsperstrip=10, photometric="minisblack")
        file = tagbridge.call("open", str(path), "r")
        for _ in range(20):
            strips = [tagbridge.call("readEncodedStrip", file, n) for n in range(20)]
            if not (np.concatenate(strips) == number).all():
                return False
            with pytest.raises(tagbridge.Error):
                tagbridge.call("readEncodedStrip", file, 20 + number)
        tagbridge.call("close", file)
        return True

    lock = threading.Lock()
    with ThreadPoolExecutor(4) as pool:
        assert all(pool.map(read, range(8)))


def test_errors_reach_the_thread_that_made_the_call():
    def fail(number: int) -> bool:
        with pytest.raises(tagbridge.Error) as caught:
            tagbridge.call(f"operation {number}")
        return caught.value.arguments == (f"operation {number}",)

    with ThreadPoolExecutor(4) as pool:
        assert all(pool.map(fail, range(400)))


def test_threads_with_a_small_stack_read_every_layout(tmp_path):
    """A tenth of a megabyte is what some systems give a thread; rows that meet in the cache are
    the ones that take the most of it."""
    layouts = [(8, 8, np.uint8), (64, 4096, np.uint8), (64, 4096, np.uint16), (64, 4096, np.float32),
               (512, 512, np.uint8), (64, 4096, np.bool_)]
    paths = []
    for rows, columns, dtype in layouts:
        for samples in (1, 3):
            shape = (rows, columns) if samples == 1 else (rows, columns, samples)
            if samples == 3 and dtype is np.bool_:
                continue
            paths.append((tmp_path / f"{len(paths)}.tif", np.ones(shape, dtype)))
            photometric = "rgb" if len(shape) == 3 else "minisblack"
            tifffile.imwrite(*paths[-1], rowsperstrip=rows, photometric=photometric)
    equal = []

    def read() -> None:
        for path, expected in paths:
            file = tagbridge.call("open", str(path), "rc")
            strip = tagbridge.call("readEncodedStrip", file, 0)
            equal.append(np.array_equal(strip, expected))
            tagbridge.call("close", file, outputs=0)

    former = threading.stack_size(128 * 1024)
    try:
        reader = threading.Thread(target=read)
        reader.start()
        reader.join()
    finally:
        threading.stack_size(former)
    assert equal == [True] * len(paths)
