"""Output files that appear when they are complete.

One that takes the place of another does so for a machine that stops as well: its bytes are on the disk
before the name is theirs, so that what is found under the name afterwards is whole. Which file it is,
that of before or the new one, is up to the file system: nobody waits for the folder, which would double
the time of a small file. Where there was none, nothing can be lost, and nobody waits for the disk.
"""

from __future__ import annotations

import contextlib
import errno
import os
import tempfile
from collections.abc import Iterator

# What fsync says where there is nothing to wait for: other file systems than those of disks.
_NOT_SYNCHRONISED = {errno.EINVAL, errno.ENOSYS, errno.ENOTSUP, errno.EOPNOTSUPP, errno.EROFS}


@contextlib.contextmanager
def written_beside(path: str) -> Iterator[str]:
    """Yield the name of a file to write; it becomes `path` at the end.

    When the body raises, or the disk fails to keep the file, it is removed and `path` is as it was.
    Raises the OSError that opening `path` for writing would, or that of the disk, with that name.
    """
    place = os.path.realpath(path)
    if os.path.isdir(place):
        raise IsADirectoryError(errno.EISDIR, os.strerror(errno.EISDIR), path)
    if os.path.exists(place) and not os.access(place, os.W_OK):
        raise PermissionError(errno.EACCES, os.strerror(errno.EACCES), path)
    folder, name = os.path.split(place)
    try:
        descriptor, beside = tempfile.mkstemp(prefix=f".{name[:100]}.", suffix=".part", dir=folder)
    except OSError as error:
        raise type(error)(error.errno, error.strerror, path) from None
    try:
        # Open all the time, since an error of the disk is told to those who had the file open then.
        with os.fdopen(descriptor, "wb", buffering=0):
            yield beside
            if os.path.exists(place):
                _synchronise(descriptor, path)
        os.chmod(beside, _permissions(place))
        os.replace(beside, place)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(beside)
        raise


def _synchronise(descriptor: int, path: str) -> None:
    """Wait until the file is on the disk, where a file system knows of such a thing."""
    try:
        os.fsync(descriptor)
    except OSError as error:
        if error.errno not in _NOT_SYNCHRONISED:
            raise type(error)(error.errno, error.strerror, path) from None


def _permissions(path: str) -> int:
    """Return those of the file there, or what a new one gets."""
    try:
        return os.stat(path).st_mode & 0o7777
    except FileNotFoundError:
        mask = os.umask(0)
        os.umask(mask)
        return 0o666 & ~mask
