"""Calls from several threads."""

from __future__ import annotations

import threading
import time
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


def test_a_thread_that_waits_for_its_call_does_not_hold_up_others(tmp_path):
    """Two calls wait one after the other, and Python goes on meanwhile."""
    start = time.monotonic()
    with ThreadPoolExecutor(2) as pool:
        calls = [
            pool.submit(tagbridge.call, "open", str(tmp_path / "missing.tif"), "r")
            for _ in range(2)
        ]
        assert isinstance(tagbridge.memory_limit(), int)
        errors = [call.exception() for call in calls]
    assert [type(error) for error in errors] == [tagbridge.Error] * 2
    assert time.monotonic() - start > 1.9


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
