"""Files that a process keeps open for reading, a small number of them.

Opening a file costs as much as decoding several blocks. Who reads many blocks at unforeseeable
times borrows an open file here and gives it back. Two that borrow the same file at the same time
get two handles, so that they do not wait for each other.
"""

from __future__ import annotations

import atexit
import contextlib
import os
import threading
from collections.abc import Iterator
from typing import Any, NamedTuple

import numpy as np

from .blocks import Decoded, decode_block
from .decoding import decoder_for
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


class Description(NamedTuple):
    """What an image looks like to those who read it."""

    #: Of the image as `Directory.read` returns it.
    shape: tuple[int, ...]
    dtype: np.dtype[Any]
    #: Rows, columns and, for an image of several samples, samples that are decoded together.
    block: tuple[int, ...]
    #: Whether a block is a tile.
    tiled: bool

    @classmethod
    def of(cls, directory: Directory) -> Description:
        """Describe a directory. Raises Error when the module cannot read the image."""
        layout = directory._layout
        shape = directory.shape
        # A single strip may say that it has more rows than the image.
        rows = layout.block_rows if layout.tiled else min(layout.block_rows, layout.rows)
        apart = layout.separate and not layout.is_ycbcr
        samples = ((1,) if apart else shape[2:])[:len(shape) - 2]
        block = (max(1, rows), max(1, layout.block_columns), *samples)
        return cls(shape, directory.dtype, block, layout.tiled)


class OpenImage:
    """A directory of a file that is open for it alone."""

    def __init__(self, path: str, place: Place) -> None:
        """Open the file. Raises the OSError or Error of that, Error for an unreadable image."""
        file = _QuietFile(path)
        try:
            self.directory = Directory(file, place)
            self.description = Description.of(self.directory)
            self._layout = self.directory._layout
            self._decode = decoder_for(self.directory, raw=False)
        except BaseException:
            file.close()
            raise

    def block(self, row: int, column: int, plane: int) -> tuple[int, Decoded]:
        """Decode the block in that row and column of blocks; return its number with it."""
        number = self._layout.number(row, column, plane)
        extent = self._layout.extent_at(row, column, plane)
        return number, decode_block(self.directory, self._decode, number, extent)

    def close(self) -> None:
        """Close the file."""
        self.directory.file.close()


class OpenFiles:
    """Directories of open files, of which those used last stay open.

    Each has a handle of its own, with the directory current, so that two directories of a file do
    not take turns in one handle.
    """

    def __init__(self, most_idle: int = MOST_IDLE) -> None:
        self._most_idle = most_idle
        self._lock = threading.Lock()
        self._idle: list[tuple[_Key, OpenImage]] = []  # those used last come last
        self._process = os.getpid()

    def __len__(self) -> int:
        """Return the number of files that are open and not borrowed."""
        return len(self._idle)

    @contextlib.contextmanager
    def borrowed(self, path: str, place: Place) -> Iterator[OpenImage]:
        """Lend an image for a with statement; it is closed when the body raises.

        Raises the OSError or Error that opening it does.
        """
        status = os.stat(path)
        key = _Key(path, status.st_dev, status.st_ino, status.st_size, status.st_mtime_ns, place)
        image = self._take(key) or OpenImage(path, place)
        try:
            yield image
        except BaseException:
            image.close()
            raise
        self._keep(key, image)

    def _take(self, key: _Key) -> OpenImage | None:
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
        for _, image in inherited:
            image.close()

    def _keep(self, key: _Key, image: OpenImage) -> None:
        with self._lock:
            self._idle.append((key, image))
            surplus = self._idle.pop(0)[1] if len(self._idle) > self._most_idle else None
        if surplus is not None:
            surplus.close()

    def close(self, path: str | None = None) -> None:
        """Close files that are not borrowed: all, or that at a path."""
        with self._lock:
            closing = [each for each in self._idle if path is None or each[0].path == path]
            self._idle = [each for each in self._idle if each not in closing]
        for _, image in closing:
            image.close()


OPEN_FILES = OpenFiles()
atexit.register(OPEN_FILES.close)


def _unlock() -> None:
    OPEN_FILES._lock = threading.Lock()


# Another thread may hold the lock when a process forks, and does not exist in the child.
os.register_at_fork(after_in_child=_unlock)
