"""File objects that fail, and what is no TIFF file."""

from __future__ import annotations

import io
import mmap
import subprocess
import sys
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
from conftest import check_data
from images import image, recorded


class Failing(io.BytesIO):
    """Raises in its n-th call from when it is told."""

    def __init__(self, data: bytes, method: str = "read") -> None:
        super().__init__(data)
        self.left = -1
        self.method = method
        self.exception: BaseException = OSError(5, "the disk is gone")

    def _count(self, method: str) -> None:
        if method == self.method:
            self.left -= 1
            if self.left == 0:
                raise self.exception

    def read(self, size: int | None = -1) -> bytes:
        self._count("read")
        return super().read(size)

    def seek(self, offset: int, whence: int = 0) -> int:
        self._count("seek")
        return super().seek(offset, whence)

    def write(self, data: bytes) -> int:
        self._count("write")
        return super().write(data)


@pytest.mark.parametrize("method", ["read", "seek"])
@pytest.mark.parametrize("call", range(1, 26, 3))
def test_an_exception_arrives_as_it_was(data: bytes, array: np.ndarray, method: str, call: int):
    file = Failing(data, method)
    file.left = call
    with pytest.raises(OSError) as caught:
        with tagbridge.open(file) as tif:
            for page in tif:
                dict(page.tags)
                page.read()
    assert caught.value is file.exception
    assert caught.value.__context__ is None and caught.value.__cause__ is None
    assert any(entry.name == method for entry in caught.traceback)
    check_data(file, array)  # and nothing of it is left


def test_failures_leave_no_file_open(tmp_path: Path, data: bytes):
    (tmp_path / "a.tif").write_bytes(data)
    program = f"""
import sys
sys.path.insert(0, {str(Path(__file__).parent)!r})
from test_file_object_failures import Failing
import tagbridge
for call in range(1, 26):
    file = Failing(open({str(tmp_path / "a.tif")!r}, "rb").read())
    file.left = call
    try:
        with tagbridge.open(file) as tif:
            tif.read()
    except OSError:
        pass
"""
    run = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True,
                         check=False)
    assert (run.returncode, run.stderr) == (0, "")


@pytest.mark.parametrize("kind", [KeyboardInterrupt, SystemExit, StopIteration, MemoryError])
def test_exceptions_of_any_kind_arrive(data: bytes, kind):
    file = Failing(data)
    with tagbridge.open(file) as tif:
        file.exception, file.left = kind(), 1
        with pytest.raises(kind) as caught:
            tif.read()
        assert caught.value is file.exception


@pytest.mark.parametrize("call", range(1, 9))
def test_an_exception_of_write_arrives_as_it_was(call: int):
    file = Failing(b"", "write")
    file.left = call
    with pytest.raises(OSError) as caught, recorded():
        with tagbridge.open(file, "w") as tif:
            for _ in range(3):
                tif.write(image((20, 20)))
    assert caught.value is file.exception


@pytest.mark.parametrize("method", ["read", "seek", "write"])
def test_an_edit_that_a_file_object_fails_in_is_not_made_after_all(data: bytes, method: str):
    for call in range(1, 300):
        file = Failing(data, method)
        with recorded():
            tif = tagbridge.open(file, "r+")
            tif.tags["Artist"] = "somebody else"
            file.left = call
            try:
                tif.flush()
            except OSError as error:
                assert error is file.exception
                tif.close()
                assert file.getvalue()[:len(data)] == data  # with something of no use behind it
                continue
            file.left = -1
            tif.close()
        assert call > 1
        return


def test_other_things_than_bytes_are_a_type_error(data: bytes):
    class Text(io.StringIO):
        pass

    with pytest.raises(TypeError):
        tagbridge.open(Text("II*\0"))


def test_more_bytes_than_asked_for_are_a_value_error(data: bytes):
    class Generous(io.BytesIO):
        def read(self, size: int | None = -1) -> bytes:
            return super().read(None if size is None else size + 1)

    with pytest.raises(ValueError, match="more bytes"):
        tagbridge.open(Generous(data))


@pytest.mark.parametrize("portion", [1, 3, 7])
def test_short_reads_are_put_together(data: bytes, array: np.ndarray, portion: int):
    class Slow(io.BytesIO):
        def read(self, size: int | None = -1) -> bytes:
            return super().read(min(size or 0, portion))

    check_data(Slow(data), array)


def test_the_format_of_a_file_is_read_in_short_reads_too(array: np.ndarray):
    class Slow(io.BytesIO):
        def read(self, size: int | None = -1) -> bytes:
            return super().read(min(size or 0, 1))

    file = Slow()
    tagbridge.imwrite(file, array, bigtiff=True)
    with tagbridge.open(file) as tif:
        assert tif.bigtiff


def test_what_is_no_tiff_file_is_an_error_that_names_the_object():
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.open(io.BytesIO(b"hello, world"))
    assert caught.value.identifier.endswith("unableToOpenFile")
    assert caught.value.arguments == ("<BytesIO>",)
    assert "<BytesIO>" in str(caught.value)


def mapped(path: Path, data: bytes) -> Any:
    path.write_bytes(data)
    with open(path, "rb") as file:
        return mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)


@pytest.mark.parametrize("place", [2**20, 2**50, 2**63 - 1, 2**63, 2**64 - 8])
@pytest.mark.parametrize("make", [
    lambda path, data: io.BytesIO(data), mapped,
    lambda path, data: path.write_bytes(data) and open(path, "rb"),
    lambda path, data: path.write_bytes(data) and open(path, "rb", buffering=0)],
    ids=["BytesIO", "mmap", "buffered file", "raw file"])
def test_places_that_no_file_has_are_the_fault_of_the_tiff_file(tmp_path: Path, make, place: int):
    stream = io.BytesIO()
    with tagbridge.open(stream, "w8") as tif:
        tif.write(image((20, 30)), subdirectories=1)
        tif.write(image((10, 15)))
    data = bytearray(stream.getvalue())
    with tagbridge.open(stream) as tif:
        below = int(tif.tags["SubIFD"][0]).to_bytes(8, "little")
    assert data.count(below) == 1
    at = data.index(below)
    data[at:at + 8] = place.to_bytes(8, "little")
    with make(tmp_path / "a.tif", bytes(data)) as file, recorded(), tagbridge.open(file) as tif:
        assert tif.read().shape == (20, 30)
        with pytest.raises(tagbridge.Error):
            tif.subdirectories[0].read()
