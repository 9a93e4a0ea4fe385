"""Files whose bytes a file object has."""

from __future__ import annotations

import io
from collections.abc import Callable
from typing import Any, TypeVar

from . import _core
from ._messages import Error
from .modes import Mode
from .targets import Session, Target

_Result = TypeVar("_Result")
_SEEK_END = 2


class ObjectSession(Session):
    """A file object under the name by which the runtime opens it."""

    def __init__(self, file: Any, label: str) -> None:
        self._label = label
        self.name = _core.add_file_object(file, label)
        self._busy = False

    def run(self, function: Callable[..., _Result], *arguments: Any, **keywords: Any) -> _Result:
        """Call a function; an exception of the file object's methods comes out as it is."""
        if self._busy:
            raise RuntimeError("a file object cannot use the file that is read through it")
        self._busy = True
        error: BaseException | None = None
        try:
            result = function(*arguments, **keywords)
        except Exception as caught:
            error = caught
        finally:
            self._busy = False
        # Not inside the handler, which would make what the module says of it the context.
        failure = _core.file_object_failure(self.name)
        if failure is not None:
            raise failure
        if error is not None:
            raise self._renamed(error)
        return result

    def _renamed(self, error: BaseException) -> BaseException:
        if not isinstance(error, Error) or self.name not in error.arguments:
            return error
        arguments = [self._label if part == self.name else part for part in error.arguments]
        text = str(error).replace(self.name, self._label)
        return Error(error.identifier, arguments, text, error.diagnostics)

    def end(self) -> None:
        """Take the name back."""
        _core.remove_file_object(self.name)


class ObjectTarget(Target):
    """A binary file object, which is left open."""

    def __init__(self, file: Any) -> None:
        self._file = file
        given = getattr(file, "name", None)
        self.name = given if isinstance(given, str) else f"<{type(file).__name__}>"

    @property
    def shareable(self) -> bool:
        """A file object has one position, and one reader at a time."""
        return False

    def prepare(self, mode: Mode) -> bool:
        """Raise UnsupportedOperation or FileExistsError; say whether there are no bytes."""
        if mode.access != "r" and not callable(getattr(self._file, "write", None)):
            raise io.UnsupportedOperation(f"mode {mode.text!r} needs a file object with write()")
        empty = self.size() == 0
        if mode.access == "x" and not empty:
            raise FileExistsError(f"the file object {self.name} holds something already")
        return empty

    def session(self) -> Session:
        """Return what an open of the module's needs."""
        return ObjectSession(self._file, self.name.encode("utf-8", "replace").decode())

    def start(self) -> bytes:
        """Return the first four bytes."""
        self._file.seek(0)
        start = b""
        while len(start) < 4 and (part := self._file.read(4 - len(start))):
            start += bytes(part)
        return start[:4]

    def size(self) -> int:
        """Return the number of bytes."""
        end = self._file.seek(0, _SEEK_END)
        return int(self._file.tell() if end is None else end)

    def cut(self, size: int) -> None:
        """Drop what lies behind that many bytes, if the file object can."""
        truncate = getattr(self._file, "truncate", None)
        if truncate is not None:
            self._file.seek(0)
            truncate(size)

    def discard(self) -> None:
        """Drop all bytes."""
        self.cut(0)

    def forget(self) -> None:
        """Nothing was made."""
