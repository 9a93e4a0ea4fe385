"""Files that appear when they are complete, whatever the disk does."""

from __future__ import annotations

import errno
import os
from pathlib import Path

import pytest
from tagbridge.atomic import written_beside

OLD = b"what was there"
NEW = b"what is new"


@pytest.fixture
def path(tmp_path: Path) -> Path:
    path = tmp_path / "a"
    path.write_bytes(OLD)
    return path


def write(path: Path) -> None:
    with written_beside(str(path)) as beside:
        Path(beside).write_bytes(NEW)


def refuse(monkeypatch, code: int) -> None:
    def fsync(descriptor: int) -> None:
        raise OSError(code, os.strerror(code))

    monkeypatch.setattr(os, "fsync", fsync)


def test_the_bytes_are_on_the_disk_before_the_name_is_theirs(path: Path, monkeypatch):
    seen = []

    def fsync(descriptor: int) -> None:
        seen.append((os.fstat(descriptor).st_ino, os.pread(descriptor, 99, 0), path.read_bytes()))

    monkeypatch.setattr(os, "fsync", fsync)
    write(path)
    assert seen == [(path.stat().st_ino, NEW, OLD)]


def test_nobody_waits_for_the_disk_where_nothing_can_be_lost(path: Path, monkeypatch):
    path.unlink()
    refuse(monkeypatch, errno.EIO)
    write(path)
    assert path.read_bytes() == NEW


@pytest.mark.parametrize("code", [errno.EIO, errno.ENOSPC, errno.EDQUOT])
def test_a_disk_that_cannot_keep_the_bytes_keeps_the_old_file(path: Path, monkeypatch, code: int):
    refuse(monkeypatch, code)
    with pytest.raises(OSError) as caught:
        write(path)
    assert (caught.value.errno, caught.value.filename) == (code, str(path))
    assert path.read_bytes() == OLD
    assert os.listdir(path.parent) == ["a"]


@pytest.mark.parametrize("code", [errno.EINVAL, errno.ENOSYS, errno.ENOTSUP, errno.EROFS])
def test_a_file_system_without_a_disk_keeps_nobody_from_writing(path: Path, monkeypatch, code: int):
    refuse(monkeypatch, code)
    write(path)
    assert path.read_bytes() == NEW


def test_no_descriptor_is_left(path: Path):
    before = os.listdir("/proc/self/fd")
    write(path)
    with pytest.raises(ZeroDivisionError), written_beside(str(path)):
        raise ZeroDivisionError
    assert os.listdir("/proc/self/fd") == before
