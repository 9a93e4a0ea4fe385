"""Where the bytes of a file are: at a path or in a file object."""

from __future__ import annotations

import abc
import contextlib
import errno
import os
import stat
from collections.abc import Callable
from typing import Any, TypeVar

from .modes import Mode

_Result = TypeVar("_Result")

_PROBES = {
    "r": os.O_RDONLY,
    "r+": os.O_RDWR,
    "w": os.O_RDWR | os.O_CREAT,
    "x": os.O_RDWR | os.O_CREAT | os.O_EXCL,
    "a": os.O_RDWR | os.O_CREAT,
}


class Session(abc.ABC):
    """The time from an open to a close of the module's."""

    #: What the module's "open" takes.
    name: str

    @abc.abstractmethod
    def run(self, function: Callable[..., _Result], *arguments: Any, **keywords: Any) -> _Result:
        """Call a function that may touch the file."""

    @abc.abstractmethod
    def end(self) -> None:
        """The file was closed."""


class Target(abc.ABC):
    """A place for a file's bytes."""

    #: What people call it.
    name: str

    @property
    @abc.abstractmethod
    def shareable(self) -> bool:
        """Whether another handle can read it at the same time."""

    @abc.abstractmethod
    def prepare(self, mode: Mode) -> bool:
        """Raise the OSError that keeps the file from being opened so; say if it begins empty."""

    @abc.abstractmethod
    def session(self) -> Session:
        """Return what an open of the module's needs."""

    @abc.abstractmethod
    def start(self) -> bytes:
        """Return the first four bytes."""

    @abc.abstractmethod
    def size(self) -> int:
        """Return the number of bytes."""

    @abc.abstractmethod
    def cut(self, size: int) -> None:
        """Drop what lies behind that many bytes."""

    @abc.abstractmethod
    def discard(self) -> None:
        """Remove what was to be a new file; empty one that was there empty."""

    @abc.abstractmethod
    def forget(self) -> None:
        """Remove what `prepare` has made, after an open that failed."""


class PathSession(Session):
    """A file that the runtime opens by its name."""

    def __init__(self, name: str) -> None:
        self.name = name

    def run(self, function: Callable[..., _Result], *arguments: Any, **keywords: Any) -> _Result:
        """Call the function."""
        return function(*arguments, **keywords)

    def end(self) -> None:
        """Nothing is left."""


class PathTarget(Target):
    """A file in the file system."""

    def __init__(self, path: str | bytes | os.PathLike[str] | os.PathLike[bytes]) -> None:
        self.name = os.fsdecode(path)
        self._made = False  # by `prepare`
        self._replaces = False  # whatever is there
        self._identity: tuple[int, int] | None = None

    def prepare(self, mode: Mode) -> bool:
        """Raise FileNotFoundError, PermissionError, IsADirectoryError or FileExistsError."""
        self._made = not os.path.exists(self.name)
        self._replaces = mode.access in ("w", "x")
        flags = _PROBES[mode.access] | os.O_NONBLOCK | os.O_CLOEXEC
        descriptor = os.open(self.name, flags, 0o666)
        try:
            status = os.fstat(descriptor)
        finally:
            os.close(descriptor)
        if stat.S_ISDIR(status.st_mode):
            raise IsADirectoryError(errno.EISDIR, os.strerror(errno.EISDIR), self.name)
        self._identity = status.st_dev, status.st_ino
        return status.st_size == 0

    @property
    def shareable(self) -> bool:
        """Whether the path still leads to the file that was opened."""
        try:
            status = os.stat(self.name)
        except OSError:
            return False
        return self._identity == (status.st_dev, status.st_ino)

    def session(self) -> Session:
        """Return what an open of the module's needs."""
        return PathSession(self.name)

    def start(self) -> bytes:
        """Return the first four bytes."""
        with open(self.name, "rb", buffering=0) as file:
            return file.read(4)

    def size(self) -> int:
        """Return the number of bytes."""
        return os.stat(self.name).st_size

    def cut(self, size: int) -> None:
        """Drop what lies behind that many bytes."""
        os.truncate(self.name, size)

    def discard(self) -> None:
        """Remove a new file; empty one that was there empty."""
        if self._made or self._replaces:
            with contextlib.suppress(FileNotFoundError):
                os.unlink(self.name)
        else:
            self.cut(0)

    def forget(self) -> None:
        """Remove what `prepare` has made."""
        if self._made:
            with contextlib.suppress(FileNotFoundError):
                os.unlink(self.name)
