"""One open file of the module, with the directory that is current in it."""

from __future__ import annotations

import contextlib
import threading
from types import TracebackType
from typing import Any, NamedTuple

import numpy as np

from . import _core
from ._messages import Error, Warning
from .errors import UNSUPPORTED_COMPRESSION, issue
from .targets import Target

CLOSED = "the file is closed"
SUB_IFD = 330


class Place(NamedTuple):
    """Where a directory is: its number in the chain, then offsets of sub-directories below it."""

    number: int
    offsets: tuple[int, ...] = ()


FIRST = Place(0)


class Handle:
    """A file identifier of the module and the cursor that it carries.

    Every operation is about the current directory, so callers say first which one they mean::

        with handle.at(place):
            handle.call("getField", 256)

    The with statement holds the handle's lock: calls of several threads take turns.
    """

    def __init__(self, target: Target, mode: str, quiet: bool = False) -> None:
        """Open a file; a quiet handle issues no warnings.

        Raises what the module or the target's file object raises.
        """
        self._quiet = quiet
        self._lock = threading.RLock()
        self._target = target
        self._mode = mode
        self._session = target.session()
        self._file: Any = None
        self._place: Place | None = None
        #: Whether the current directory has changes that are not in the file yet.
        self.dirty = False
        #: What callers note about the current directory as it was loaded; empty after a change.
        self.notes: set[str] = set()
        self.reopen(mode)

    @property
    def closed(self) -> bool:
        """Whether the file was closed."""
        return self._file is None

    def reopen(self, mode: str) -> None:
        """Open the file, which is closed, in a mode of the module's."""
        said: list[Warning]
        try:
            self._file, said = self._session.run(_core.collect, "open", self._session.name, mode)
        except BaseException:
            self._session.end()
            raise
        self._mode = mode
        self._moved(FIRST if mode.startswith("r") else None)
        try:
            self._issue(said)
        except Exception:
            self.close()
            raise

    def _issue(self, said: list[Warning]) -> None:
        if said and not self._quiet:
            issue(said)

    def close(self) -> list[Warning]:
        """Close the file and return what libtiff said. Closing twice is fine."""
        with self._lock:
            file, self._file = self._file, None
            if file is None:
                return []
            self._moved(None)
            try:
                _, said = self._session.run(_core.collect, "close", file, outputs=0)
            finally:
                self._session.end()
            return said

    def close_and_issue(self) -> None:
        """Close the file and issue what libtiff said as warnings."""
        self._issue(self.close())

    def collect(self, operation: str, *inputs: Any, outputs: int = 1) -> tuple[Any, list[Warning]]:
        """Run an operation on the file; return its result and the warnings."""
        if self._file is None:
            raise ValueError(CLOSED)
        return self._session.run(_core.collect, operation, self._file, *inputs, outputs=outputs)

    def call(self, operation: str, *inputs: Any, outputs: int = 1) -> Any:
        """Run an operation on the file, issue the warnings and return the result."""
        result, said = self.collect(operation, *inputs, outputs=outputs)
        self._issue(said)
        return result

    def set_tags(self, numbers: list[int]) -> list[int]:
        """Return those of the tags that are set in the current directory."""
        if self._file is None:
            raise ValueError(CLOSED)
        return self._session.run(_core.set_tags, self._file, numbers)

    def read_blocks(self, operation: str, blocks: list[tuple[int, int, int, int, int]],
                    target: np.ndarray[Any, Any], origin: tuple[int, int, int],
                    ) -> list[tuple[int, list[Warning]]]:
        """Read blocks, below each other, into their places; return the warnings of each.

        A block is its number and where it lies in the image: the first row and the row after the
        last, and the same of columns. The target begins with the origin's row, column and sample.
        """
        if self._file is None:
            raise ValueError(CLOSED)
        return self._session.run(_core.read_blocks, operation, self._file, blocks, target, origin)

    # --- The current directory

    def at(self, place: Place) -> Handle:
        """Take the lock and make a directory current; the with statement gives the lock back.

        Raises Error when there is no such directory, ValueError after close().
        """
        self._lock.acquire()
        try:
            self.go(place)
        except BaseException:
            self._lock.release()
            raise
        return self

    def held(self) -> Handle:
        """Take the lock for a with statement and leave the current directory as it is."""
        self._lock.acquire()
        return self

    def __enter__(self) -> Handle:
        return self

    def __exit__(self, kind: type[BaseException] | None, raised: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._lock.release()

    def go(self, place: Place) -> None:
        """Make a directory current. What was changed in another one is written first."""
        if self._file is None:
            raise ValueError(CLOSED)
        if place == self._place:
            return
        self.flush()
        here = self._place
        self._moved(None)
        said: list[Warning] = []
        steps: tuple[int, ...] = place.offsets
        if here is not None and steps and here == Place(place.number, steps[:-1]):
            steps = steps[-1:]
        elif not steps and here == Place(place.number - 1):
            said += self.collect("readDirectory", outputs=0)[1]
        else:
            said += self._load("setDirectory", place.number)
        for offset in steps:
            said += self._load("setSubDirectory", np.uint64(offset))
        self._moved(place)
        self._issue(said)

    def _load(self, operation: str, argument: int | np.uint64) -> list[Warning]:
        # A directory that libtiff cannot decode is current all the same, and its tags can be read.
        try:
            return self.collect(operation, argument, outputs=0)[1]
        except Error as error:
            if error.identifier != UNSUPPORTED_COMPRESSION:
                raise
            return []

    def require_decodable(self, place: Place) -> None:
        """Raise the module's Error when libtiff cannot decode a directory's compression.

        Loading the next directory of a chain does not ask, so this is for when a block failed.
        """
        self.flush()
        self._moved(None)
        *above, last = [("setDirectory", place.number),
                        *(("setSubDirectory", np.uint64(offset)) for offset in place.offsets)]
        for operation, argument in above:
            self._load(operation, argument)
        self.collect(*last, outputs=0)

    def reload(self) -> None:
        """Forget which directory is current: the next use loads it anew."""
        self._moved(None)

    def _moved(self, place: Place | None) -> None:
        self._place = place
        self.dirty = False
        self.notes.clear()

    def flush(self) -> None:
        """Write the current directory anew if it was changed."""
        with self._lock:
            if self._file is None:
                raise ValueError(CLOSED)
            if not self.dirty:
                return
            # libtiff takes a directory with SubIFD for a new one, below which what is loaded next
            # lies, and goes on so until the file is closed.
            has_below = bool(self.set_tags([SUB_IFD]))
            self._moved(None)
            try:
                self.call("rewriteDirectory", outputs=0)
            except BaseException:
                self._drop_changes()
                raise
            if has_below:
                self._issue(self.close())
                self._session = self._target.session()
                self.reopen(self._mode)

    def _drop_changes(self) -> None:
        """Load a directory, so that the close does not write after all what was said to have failed.

        Where that cannot be loaded either, the disk is not one on which the close succeeds.
        """
        with contextlib.suppress(Exception):
            self.collect("setDirectory", 0, outputs=0)
