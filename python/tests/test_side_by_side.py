"""Calls of several threads at the same time: on different files, on one, and into file objects."""

from __future__ import annotations

import io
import os
import subprocess
import sys
import textwrap
import threading
import time
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


class Slow(io.BytesIO):
    """A file whose position somebody else may move between seeking and reading."""

    def seek(self, offset: int, whence: int = 0) -> int:
        position = super().seek(offset, whence)
        time.sleep(0)
        return position


def test_two_files_share_a_file_object(content, pixels):
    stream = Slow(content)
    with tagbridge.open(stream) as a, tagbridge.open(stream) as b, ThreadPoolExecutor(2) as pool:
        def read(tif: tagbridge.File) -> None:
            for _ in range(50):
                np.testing.assert_array_equal(tif.read(), pixels)

        for done in [pool.submit(read, tif) for tif in (a, b)]:
            done.result()


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


# --- Whole images

LAYOUTS = [
    {"tile": (32, 48)}, {"tile": (32, 48), "planar": "separate"}, {"rows_per_strip": 7},
    {"rows_per_strip": 7, "planar": "separate"}, {"tile": (16, 16), "compression": "deflate"},
    {"rows_per_strip": 200, "compression": "lzw"}]


@pytest.fixture(params=range(len(LAYOUTS)), ids=lambda number: str(LAYOUTS[number]))
def stored(request, tmp_path):
    array = np.random.default_rng(request.param).integers(0, 9, (200, 131, 3)).astype(np.uint16)
    tagbridge.imwrite(tmp_path / "a.tif", array, **LAYOUTS[request.param])
    with tagbridge.open(tmp_path / "a.tif") as tif:
        yield tif[0], array


@pytest.mark.parametrize("threads", [1, 2, 8])
@pytest.mark.parametrize("key", [
    ..., (slice(5, 190), slice(40, 100)), (slice(3, 4), slice(None), 1),
    (slice(None), slice(None), slice(1, 3)), (slice(0, 200, 3), slice(130, 2, -1))], ids=str)
def test_threads_read_what_one_reads(stored, key, threads):
    page, array = stored
    if key is ...:
        np.testing.assert_array_equal(page.read(threads=threads), array)
    np.testing.assert_array_equal(page[key], array[key])


def test_threads_fill_a_part_of_a_larger_array(stored):
    page, array = stored
    room = np.full((300, 150, 4), 77, np.uint16, order="F")
    out = room[50:250, 10:141, 1:]
    page.read(out=out, threads=2)
    np.testing.assert_array_equal(out, array)
    assert (room == 77).sum() == room.size - array.size


def test_large_images_are_read_by_as_many_threads_as_there_are_processors(stored, monkeypatch):
    from tagbridge import reading

    page, array = stored
    handles = []
    another = page.file._another_handle
    monkeypatch.setattr(reading, "_WORTH_THREADS", 0)
    monkeypatch.setattr(reading.os, "sched_getaffinity", lambda _: {0, 1, 2})
    monkeypatch.setattr(page.file, "_another_handle", lambda: handles.append(0) or another())
    np.testing.assert_array_equal(page.read(), array)
    blocks = len(page.blocks)
    assert len(handles) == (min(3, blocks) if blocks > 1 else 0)


@pytest.mark.parametrize("threads", [1, 3])
def test_threads_name_the_blocks_that_cannot_be_decoded(tmp_path, threads):
    array = np.random.default_rng(1).integers(0, 9, (64, 64)).astype(np.uint8)
    path = tmp_path / "a.tif"
    tagbridge.imwrite(path, array, tile=(16, 16), compression="deflate")
    with tifffile.TiffFile(path) as tif:
        offsets = tif.pages[0].dataoffsets
    with open(path, "rb+") as file:
        for damaged in (2, 9, 15):
            file.seek(offsets[damaged])
            file.write(b"broken")
    with tagbridge.open(path) as tif:
        with pytest.raises(tagbridge.DecodeError) as caught:
            tif[0].read(threads=threads, strict=True)
        with warnings.catch_warnings(record=True) as issued:
            warnings.simplefilter("always")
            read = tif[0].read(threads=threads)
    assert list(caught.value.blocks) == [2, 9, 15]
    assert len(issued) == 3
    assert not read[0:16, 32:48].any() and (read[0:16, :32] == array[0:16, :32]).all()


@pytest.mark.parametrize(("file", "target", "kind"), [
    (np.uint64(1), np.zeros((16, 30), np.uint8, order="F"), tagbridge.Error),
    (None, 5, TypeError), (None, np.zeros((16, 30), np.uint8), ValueError)])
def test_read_blocks_refuses_what_it_cannot_fill_or_read(gray, file, target, kind):
    from tagbridge._core import read_blocks

    opened = tagbridge.call("open", str(gray), "r")
    with pytest.raises(kind):
        read_blocks("readEncodedStrip", opened if file is None else file, [(0, 0, 16, 0, 30)],
                    target, (0, 0, 0))
    tagbridge.call("close", opened, outputs=0)


ENDS_DURING_CALLBACKS = """
import io, sys, threading, time, tagbridge
from tagbridge import _core

class Slow(io.BytesIO):
    def read(self, size=-1):
        time.sleep(0.001)
        return super().read(size)

def opened():
    return tagbridge.call("open", _core.add_file_object(Slow(content), "slow"), "r")

def repeat():
    global file
    while True:
        try:
            tagbridge.call("readEncodedStrip", file, 0)
        except tagbridge.Error:
            file = opened()  # the cleanup has closed it

with open(sys.argv[1], "rb") as stream:
    content = stream.read()
file = opened()
for _ in range(4):
    threading.Thread(target=repeat, daemon=True).start()
time.sleep(0.1)
"""


def test_the_process_ends_while_threads_wait_for_their_turn_on_a_file_object(gray):
    """The one whose turn it is waits for an interpreter that is gone."""
    for _ in range(5):
        ended = subprocess.run(
            [sys.executable, "-c", textwrap.dedent(ENDS_DURING_CALLBACKS), str(gray)],
            capture_output=True, text=True, timeout=30)
        assert ended.returncode == 0, ended.stderr
