"""File objects: in memory, open files, zip members, and over HTTP."""

from __future__ import annotations

import gc
import http.server
import io
import re
import subprocess
import sys
import threading
import zipfile
from collections.abc import Iterator
from pathlib import Path

import numpy as np
import pytest
import tagbridge
import tifffile
from conftest import check_data
from images import image


def test_a_file_in_memory(data: bytes, array: np.ndarray):
    check_data(io.BytesIO(data), array)


def test_an_open_file(tmp_path: Path, data: bytes, array: np.ndarray):
    (tmp_path / "a.tif").write_bytes(data)
    for buffering in (-1, 0):
        with open(tmp_path / "a.tif", "rb", buffering=buffering) as file:
            check_data(file, array)
            with tagbridge.open(file) as tif:
                assert tif.name == str(tmp_path / "a.tif")


def test_a_member_of_a_zip_file(tmp_path: Path, data: bytes, array: np.ndarray):
    with zipfile.ZipFile(tmp_path / "a.zip", "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("inner.tif", data)
    with zipfile.ZipFile(tmp_path / "a.zip") as archive, archive.open("inner.tif") as file:
        check_data(file, array)
        with tagbridge.open(file) as tif:
            assert tif.name == "inner.tif"


class Ranges(http.server.BaseHTTPRequestHandler):
    """Serves ranges of one file and notes their sizes."""

    data = b""
    asked: list[int] = []

    def do_HEAD(self) -> None:  # noqa: N802 - the base class calls it so
        self.send_response(200)
        self.send_header("Accept-Ranges", "bytes")
        self.send_header("Content-Length", str(len(self.data)))
        self.end_headers()

    def do_GET(self) -> None:  # noqa: N802
        first, last = map(int, re.findall(r"\d+", self.headers["Range"]))
        part = self.data[first:last + 1]
        self.asked.append(len(part))
        self.send_response(206)
        self.send_header("Content-Length", str(len(part)))
        self.send_header("Content-Range", f"bytes {first}-{first + len(part) - 1}/{len(self.data)}")
        self.end_headers()
        self.wfile.write(part)

    def log_message(self, *_: object) -> None:
        """Say nothing."""


@pytest.fixture
def server() -> Iterator[type[Ranges]]:
    Ranges.asked = []
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Ranges) as running:
        Ranges.url = f"http://127.0.0.1:{running.server_port}/a.tif"  # type: ignore[attr-defined]
        threading.Thread(target=running.serve_forever, daemon=True).start()
        yield Ranges
        running.shutdown()


def test_a_file_over_http_by_ranges(server):
    fsspec = pytest.importorskip("fsspec")
    pytest.importorskip("aiohttp")
    array = image((1000, 900))
    stream = io.BytesIO()
    tagbridge.imwrite(stream, array, tile=(64, 64))
    server.data = stream.getvalue()
    with fsspec.filesystem("http").open(server.url, block_size=16384) as file:
        with tagbridge.open(file) as tif:
            np.testing.assert_array_equal(tif[0][500:520, 300:310], array[500:520, 300:310])
    assert 0 < sum(server.asked) < len(server.data) / 4


# --- Writing

def test_a_file_in_memory_is_written(array: np.ndarray):
    stream = io.BytesIO(b"something that was there before" * 1000)
    tagbridge.imwrite(stream, array, tile=(32, 32), compression="lzw")
    tagbridge.imwrite(stream, array[:9], append=True)
    assert not stream.closed
    stream.seek(0)
    with tifffile.TiffFile(stream) as other:
        assert len(other.pages) == 2
        np.testing.assert_array_equal(other.pages[1].asarray(), array[:9])
    with tagbridge.open(stream) as tif:
        np.testing.assert_array_equal(tif.read(), array)


def test_tags_and_blocks_of_a_file_object_are_edited(data: bytes, array: np.ndarray):
    stream = io.BytesIO(data)
    with tagbridge.open(stream, "r+") as tif:
        tif[1].tags["Artist"] = "somebody else"
        tif[0].blocks[0].write(np.zeros((32, 48, 3), np.uint16))
    with tagbridge.open(stream) as tif:
        assert tif[1].tags["Artist"] == "somebody else"
        assert not tif[0][:32, :48].any()
        np.testing.assert_array_equal(tif[0][32:], array[32:])


def test_sub_directories_survive_an_edit(array: np.ndarray):
    stream = io.BytesIO()
    with tagbridge.open(stream, "w") as tif:
        tif.write(array, subdirectories=1)
        tif.write(array[::2])
    with tagbridge.open(stream, "r+") as tif:
        tif.tags["Artist"] = "me"
        np.testing.assert_array_equal(tif.subdirectories[0].read(), array[::2])
    with tagbridge.open(stream) as tif:
        assert tif.tags["Artist"] == "me" and len(tif.subdirectories) == 1


def test_a_failed_write_leaves_the_directories_before(array: np.ndarray):
    stream = io.BytesIO()
    with tagbridge.open(stream, "w") as tif:
        with pytest.raises(ValueError):
            tif.write(iter([]), shape=(4, 4), dtype="uint8")
        tif.write(array)
        before = stream.getvalue()
        with pytest.raises(ValueError):
            tif.write(iter([np.zeros((4, 4), np.uint8)]), shape=(8, 4), dtype="uint8",
                      rows_per_strip=4)
        assert stream.getvalue() == before
        tif.write(array[:5])
    with tagbridge.open(stream) as tif:
        assert [page.shape[0] for page in tif] == [100, 5]


def test_a_new_file_without_a_directory_is_emptied():
    stream = io.BytesIO()
    tagbridge.open(stream, "w").close()
    assert stream.getvalue() == b""


def test_x_wants_an_empty_file_object(data: bytes):
    with pytest.raises(FileExistsError):
        tagbridge.open(io.BytesIO(data), "x")
    with tagbridge.open(io.BytesIO(), "x8b") as tif:
        tif.write(image((3, 3)))
        assert tif.bigtiff and tif.byteorder == "big"


def test_writing_needs_write(data: bytes):
    class Reader:
        def __init__(self) -> None:
            self.read, self.seek = io.BytesIO(data).read, io.BytesIO(data).seek

    with pytest.raises(io.UnsupportedOperation):
        tagbridge.open(Reader(), "w")


def test_an_open_file_is_written(tmp_path: Path, array: np.ndarray):
    with open(tmp_path / "a.tif", "w+b") as file:
        with tagbridge.open(file, "w") as tif:
            for _ in range(3):
                tif.write(array)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        assert len(tif) == 3
        np.testing.assert_array_equal(tif[2].read(), array)


# --- Callbacks and locks

def test_the_module_may_be_used_while_a_file_object_is_read(data: bytes, array: np.ndarray):
    class Nosy(io.BytesIO):
        def read(self, size: int | None = -1) -> bytes:
            with tagbridge.open(io.BytesIO(data)) as inner:
                assert inner.tags["Artist"] == "me"
            return super().read(size)

    check_data(Nosy(data), array)


def test_a_file_that_garbage_collection_closes_meanwhile(data: bytes, array: np.ndarray):
    class Messy(io.BytesIO):
        def read(self, size: int | None = -1) -> bytes:
            lost = tagbridge.open(io.BytesIO(data))
            lost.itself = lost  # type: ignore[attr-defined]
            del lost
            with pytest.warns(ResourceWarning):
                gc.collect()
            return super().read(size)

    check_data(Messy(data), array)


def test_a_file_object_cannot_use_its_own_file(data: bytes):
    class Circular(io.BytesIO):
        tif: tagbridge.File | None = None

        def read(self, size: int | None = -1) -> bytes:
            if self.tif is not None:
                self.tif.read()
            return super().read(size)

    file = Circular(data)
    with tagbridge.open(file) as tif:
        file.tif = tif
        with pytest.raises(RuntimeError, match="file object"):
            tif.read()
        file.tif = None


def test_threads_with_file_objects_do_not_wait_for_each_other_for_good(data: bytes, array):
    failures = []

    def work() -> None:
        for _ in range(10):
            with tagbridge.open(io.BytesIO(data)) as tif:
                if not np.array_equal(tif.read(threads=2), array):
                    failures.append(1)

    workers = [threading.Thread(target=work, daemon=True) for _ in range(4)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join(60)
    assert not any(worker.is_alive() for worker in workers) and failures == []


PROGRAM = """
import io, sys, threading, time
import numpy as np
import tagbridge
stream = io.BytesIO()
tagbridge.imwrite(stream, np.zeros((50, 50), np.uint8))
class Slow(io.BytesIO):
    def read(self, size=-1):
        time.sleep(0.001)
        return super().read(size)
def work():
    while True:
        with tagbridge.open(Slow(stream.getvalue())) as tif:
            tif.read()
for _ in range(3):
    threading.Thread(target=work, daemon=True).start()
time.sleep(0.1)
kept = tagbridge.open(io.BytesIO(stream.getvalue()), "r+")
kept.tags["Artist"] = "me"
"""


@pytest.mark.parametrize("attempt", range(3))
def test_the_interpreter_ends_while_threads_read_file_objects(attempt: int):
    run = subprocess.run([sys.executable, "-c", PROGRAM], capture_output=True, text=True,
                         timeout=60, check=False)
    assert run.returncode == 0, run.stderr
