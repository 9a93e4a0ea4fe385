"""Output files that appear when they are complete."""

from __future__ import annotations

import contextlib
import errno
import os
import tempfile
from collections.abc import Iterator


@contextlib.contextmanager
def written_beside(path: str) -> Iterator[str]:
    """Yield the name of a file to write; it becomes `path` at the end.

    When the body raises, the file is removed and `path` is as it was. Raises the OSError that
    opening `path` for writing would, with that name.
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
    os.close(descriptor)
    try:
        yield beside
        os.chmod(beside, _permissions(place))
        os.replace(beside, place)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(beside)
        raise


def _permissions(path: str) -> int:
    """Return those of the file there, or what a new one gets."""
    try:
        return os.stat(path).st_mode & 0o7777
    except FileNotFoundError:
        mask = os.umask(0)
        os.umask(mask)
        return 0o666 & ~mask
