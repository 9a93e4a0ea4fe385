"""Files that a process keeps open for reading, a small number of them.

Opening a file costs as much as decoding several blocks. Who reads many blocks at unforeseeable times
borrows an open file here and gives it back. Two that borrow the same file at the same time get two
handles, so that they do not wait for each other.
"""

from __future__ import annotations

import atexit
import contextlib
import os
import threading
from collections.abc import Iterator
from typing import NamedTuple

from .directory import Directory
from .file import File
from .handle import Place

#: Files that stay open while nobody reads them.
MOST_IDLE = 16


class _Key(NamedTuple):
    """A directory of a file as it is now: a file that is replaced or rewritten has another key."""

    path: str
    device: int
    inode: int
    size: int
    modified: int
    place: Place


class _QuietFile(File):
    """A file that was opened before: what there is to say about it was said then."""

    _quiet = True


class OpenFiles:
    """Directories of open files, of which those used last stay open.

    Each has a handle of its own, with the directory current, so that two directories of a file do
    not take turns in one handle.
    """

    def __init__(self, most_idle: int = MOST_IDLE) -> None:
        self._most_idle = most_idle
        self._lock = threading.Lock()
        self._idle: list[tuple[_Key, Directory]] = []  # those used last come last
        self._process = os.getpid()

    def __len__(self) -> int:
        """Return the number of files that are open and not borrowed."""
        return len(self._idle)

    @contextlib.contextmanager
    def borrowed(self, path: str, place: Place) -> Iterator[Directory]:
        """Lend a directory for a with statement; it is closed when the body raises.

        Raises the OSError or Error that opening the file does.
        """
        status = os.stat(path)
        key = _Key(path, status.st_dev, status.st_ino, status.st_size, status.st_mtime_ns, place)
        directory = self._take(key) or Directory(_QuietFile(path), place)
        try:
            yield directory
        except BaseException:
            directory.file.close()
            raise
        self._keep(key, directory)

    def _take(self, key: _Key) -> Directory | None:
        with self._lock:
            if self._process != os.getpid():
                self._leave_to_the_parent()
            for index in range(len(self._idle) - 1, -1, -1):
                if self._idle[index][0] == key:
                    return self._idle.pop(index)[1]
        return None

    def _leave_to_the_parent(self) -> None:
        inherited, self._idle = self._idle, []
        self._process = os.getpid()
        for _, directory in inherited:
            directory.file.close()

    def _keep(self, key: _Key, directory: Directory) -> None:
        with self._lock:
            self._idle.append((key, directory))
            surplus = self._idle[:-self._most_idle]
            del self._idle[:-self._most_idle]
        for _, least_used in surplus:
            least_used.file.close()

    def close(self) -> None:
        """Close all files that are not borrowed."""
        with self._lock:
            idle, self._idle = self._idle, []
        for _, directory in idle:
            directory.file.close()


OPEN_FILES = OpenFiles()
atexit.register(OPEN_FILES.close)


def _unlock() -> None:
    OPEN_FILES._lock = threading.Lock()


# Another thread may hold the lock when a process forks, and does not exist in the child.
os.register_at_fork(after_in_child=_unlock)
