"""Calls of several threads at the same time: on different files, on one, and into file objects."""

from __future__ import annotations

import io
import os
import subprocess
import sys
import textwrap
import threading
import warnings
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest
import tagbridge
import tifffile


class Meeting(io.BytesIO):
    """A file whose reads, once they are watched, wait until another one's have come too."""

    def __init__(self, content: bytes, barrier: threading.Barrier) -> None:
        super().__init__(content)
        self.barrier: threading.Barrier | None = None
        self._barrier = barrier

    def watch(self) -> None:
        self.barrier = self._barrier

    def read(self, size: int | None = -1) -> bytes:
        barrier, self.barrier = self.barrier, None
        if barrier is not None:
            barrier.wait(20)
        return super().read(size)


@pytest.fixture
def content():
    stream = io.BytesIO()
    tifffile.imwrite(stream, np.arange(6400, dtype=np.uint8).reshape(80, 80), rowsperstrip=16,
                     photometric="minisblack")
    return stream.getvalue()


@pytest.fixture
def pixels():
    return np.arange(6400, dtype=np.uint8).reshape(80, 80)


def test_calls_on_different_files_run_at_the_same_time(content, pixels):
    """Each of the two reads ends only when both have begun."""
    barrier = threading.Barrier(2)
    streams = [Meeting(content, barrier) for _ in range(2)]
    with ThreadPoolExecutor(2) as pool, tagbridge.open(streams[0]) as a, \
            tagbridge.open(streams[1]) as b:
        blocks = [a[0].blocks[3], b[0].blocks[3]]
        for stream in streams:
            stream.watch()
        for read in pool.map(lambda block: block.read(), blocks):
            np.testing.assert_array_equal(read, pixels[48:64])


def test_threads_read_one_file_object_in_turns(content, pixels):
    with tagbridge.open(io.BytesIO(content)) as tif, ThreadPoolExecutor(4) as pool:
        blocks = tif[0].blocks
        for number, read in pool.map(lambda n: (n % 5, blocks[n % 5].read()), range(200)):
            np.testing.assert_array_equal(read, pixels[16 * number:16 * number + 16])


def test_warnings_as_errors_do_not_stop_other_threads(unknown_tag, gray):
    def reject(_: int) -> bool:
        with pytest.raises(tagbridge.Warning):
            tagbridge.call("open", str(unknown_tag), "r")
        return True

    def read(_: int) -> bool:
        file = tagbridge.call("open", str(gray), "r")
        tagbridge.call("readEncodedStrip", file, 0)
        tagbridge.call("close", file, outputs=0)
        return True

    with warnings.catch_warnings(), ThreadPoolExecutor(4) as pool:
        warnings.simplefilter("error", tagbridge.Warning)
        assert all(pool.map(lambda n: (reject if n % 2 else read)(n), range(100)))


def test_diagnostics_are_those_of_the_threads_own_call(gray, tmp_path):
    def fail(number: int) -> bool:
        name = str(tmp_path / f"{number}.txt")
        with open(name, "w") as text:
            text.write("no image")
        with pytest.raises(tagbridge.Error) as caught:
            tagbridge.call("open", name, "r")
        return any(f"{number}.txt" in line for line in caught.value.diagnostics) and not any(
            f"{other}.txt" in line for line in caught.value.diagnostics
            for other in range(8) if other != number)

    with ThreadPoolExecutor(8) as pool:
        assert all(pool.map(fail, range(8)))


FORK_DURING_A_CALLBACK = """
import io, os, signal, sys, threading, time, tagbridge

class Watched(io.BytesIO):
    def read(self, size=-1):
        reached.set()
        time.sleep(0.001)  # without the interpreter's lock, which others take meanwhile
        return super().read(size)

def repeat():
    while not done.is_set():
        tif[0].blocks[0].read()

reached, done = threading.Event(), threading.Event()
with open(sys.argv[1], "rb") as stream:
    tif = tagbridge.open(Watched(stream.read()))
reader = threading.Thread(target=repeat)
reader.start()
reached.wait()
good = 0
for _ in range(50):
    child = os.fork()
    if child == 0:
        signal.alarm(20)
        other = tagbridge.call("open", sys.argv[1], "r")
        os._exit(0 if tagbridge.call("readEncodedStrip", other, 0).size else 1)
    good += os.waitpid(child, 0)[1] == 0
done.set()
reader.join()
print(good)
"""


@pytest.mark.skipif("libasan" in os.environ.get("LD_PRELOAD", ""),
                    reason="the sanitizer's allocator does not survive such a fork")
def test_a_fork_waits_for_calls_that_wait_for_the_interpreter(gray):
    """The fork holds the interpreter's lock, which the call needs to come to its end."""
    ended = subprocess.run(
        [sys.executable, "-c", textwrap.dedent(FORK_DURING_A_CALLBACK), str(gray)],
        capture_output=True, text=True, timeout=120)
    assert (ended.stdout, ended.returncode) == ("50\n", 0), ended.stderr
