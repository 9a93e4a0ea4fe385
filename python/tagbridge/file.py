"""A TIFF file: its directories to read and edit, or directories to write."""

from __future__ import annotations

import contextlib
import operator
import os
import warnings
from collections.abc import Iterator, Mapping, Sequence
from io import UnsupportedOperation
from types import TracebackType
from typing import Any


from ._messages import Error, Warning
from .directory import Directory, Progress
from .enumerations import (
    Compression,
    Photometric,
    PlanarConfiguration,
    Predictor,
    ResolutionUnit,
)
from .first_directory import FirstDirectory
from .handle import CLOSED, Handle, Place
from .modes import parse_mode
from .plan import Options
from .targets import PathTarget, Target
from .writing import Writer


# libtiff makes many strips of a large single one, and tags that tell so, unless asked not to.
_AS_STORED = "c"


def _target_of(file: Any) -> Target:
    if isinstance(file, (str, bytes, os.PathLike)):
        return PathTarget(file)
    if callable(getattr(file, "read", None)) and callable(getattr(file, "seek", None)):
        from .objects import ObjectTarget

        return ObjectTarget(file)
    raise TypeError(f"a path or a binary file object is needed, not {type(file).__name__}")


class File(FirstDirectory):
    """An open TIFF file.

    In modes ``"r"`` and ``"r+"`` it is a sequence of the directories of the main chain; `read`,
    `tags`, `shape` and so on are those of the first. In the writing modes it has `write`.
    Use it in a with statement, or close it.
    """

    _as_stored = True  # whether a strip is always one of the file's
    _quiet = False  # whether what libtiff says when it loads directories is left out

    def __init__(self, file: Any, mode: str = "r") -> None:
        self._mode = parse_mode(mode)
        self._closed = True
        self._target = _target_of(file)
        self._is_path = isinstance(self._target, PathTarget)
        self._known = 1  # directories that are there
        self._complete = False  # whether these are all
        self._broken: Error | None = None  # why the chain ends there
        self._writer: Writer | None = None
        empty = self._target.prepare(self._mode)
        if self._mode.writes:
            self._writer = Writer(self._target, self._mode, empty)
        else:
            self._handle = Handle(self._target, self._mode.access + self._reading_flags,
                                  self._quiet)
        self._closed = False
        try:
            self._start = self._target.start()
        except BaseException:
            self.close()
            raise

    # --- What others in the package need

    @property
    def _edits(self) -> bool:
        return self._mode.edits

    @property
    def _shareable(self) -> bool:
        return self._mode.access == "r" and self._target.shareable

    def _another_handle(self) -> Handle:
        return Handle(self._target, "r" + self._reading_flags, quiet=True)

    @property
    def _reading_flags(self) -> str:
        # Of a file that is to be edited libtiff cannot be asked.
        return _AS_STORED if self._as_stored and not self._mode.edits else ""

    def _require_open(self) -> None:
        if self._closed:
            raise ValueError(CLOSED)

    def _require(self, access: str, why: str) -> None:
        self._require_open()
        if self._mode.access != access:
            raise UnsupportedOperation(f"{why}; the mode of this file is {self.mode!r}")

    def _require_reading(self) -> None:
        self._require_open()
        if not self._mode.reads:
            raise UnsupportedOperation(f"a file in mode {self.mode!r} can only be written")

    def _at(self, place: Place) -> Handle:
        self._require_reading()
        return self._handle.at(place)

    # --- What it is

    @property
    def name(self) -> str:
        """The path, or what the file object calls itself."""
        return self._target.name

    @property
    def mode(self) -> str:
        """The mode in which it was opened."""
        return self._mode.text

    @property
    def closed(self) -> bool:
        """Whether it was closed."""
        return self._closed

    @property
    def byteorder(self) -> str:
        """``"little"`` or ``"big"``."""
        self._require_open()
        return "big" if self._start[:2] == b"MM" else "little"

    @property
    def bigtiff(self) -> bool:
        """Whether offsets have 64 bits."""
        self._require_open()
        return 43 in self._start[2:4]

    def __repr__(self) -> str:
        if self._closed:
            return f"<tagbridge.File {self.name!r}, mode {self.mode!r}, closed>"
        count = self._writer.count if self._writer is not None else self._count()
        noun = "directory" if count == 1 else "directories"
        return f"<tagbridge.File {self.name!r}, mode {self.mode!r}, {count} {noun}>"

    # --- Directories

    def __len__(self) -> int:
        """Return the number of directories of the main chain that can be reached.

        A chain that loops or breaks is a warning. In the writing modes: the number written.
        """
        self._require_open()
        if self._writer is not None:
            return self._writer.count
        count = self._count()
        self._warn_if_broken()
        return count

    def _count(self) -> int:
        while self._step(self._known):
            pass
        return self._known

    def _step(self, index: int) -> bool:
        """Go to the directory behind those known, if there is one."""
        if self._complete or index < self._known:
            return index < self._known
        with self._at(Place(self._known - 1)) as handle:
            if handle.call("lastDirectory").item():
                self._complete = True
                return False
            return self._reach(handle, index)

    def _reach(self, handle: Handle, index: int) -> bool:
        try:
            handle.go(Place(index))
        except Warning:
            self._known = max(self._known, index + 1)
            raise
        except Error as error:
            self._complete = index == self._known
            self._broken = error if self._complete else None
            return False
        self._known = max(self._known, index + 1)
        return True

    def _warn_if_broken(self) -> None:
        if self._broken is not None:
            said = "; ".join([str(self._broken), *self._broken.diagnostics])
            warnings.warn(Warning(self._broken.identifier, self._broken.arguments,
                                  f"the chain of directories ends after {self._known}: {said}"),
                          stacklevel=3)

    def __getitem__(self, index: int) -> Directory:
        """Return a directory of the main chain; negative numbers count from the end.

        :raises IndexError: there is no such directory
        """
        self._require_reading()
        number = operator.index(index)
        wanted = number if number >= 0 else number + self._count()
        if wanted < 0 or not self._has(wanted):
            raise IndexError(f"{self.name} has no directory {number}")
        return Directory(self, Place(wanted))

    def _has(self, index: int) -> bool:
        if index < self._known or self._complete:
            return index < self._known
        if index == self._known:
            return self._step(index)
        with self._handle.held() as handle:
            return self._reach(handle, index)

    def __iter__(self) -> Iterator[Directory]:
        self._require_reading()
        return self._each()

    def _each(self) -> Iterator[Directory]:
        index = 0
        while self._step(index):
            yield Directory(self, Place(index))
            self._require_open()
            index += 1
        self._warn_if_broken()

    # --- Writing

    def write(
        self,
        data: Any,
        *,
        photometric: Photometric | int | str | None = None,
        compression: Compression | int | str | None = None,
        predictor: Predictor | int | str | bool | None = None,
        tile: Sequence[int] | None = None,
        rows_per_strip: int | None = None,
        planar: PlanarConfiguration | int | str = "contig",
        extra_samples: Any = None,
        colormap: Any = None,
        resolution: float | tuple[float, float] | None = None,
        resolution_unit: ResolutionUnit | int | str | None = None,
        description: str | None = None,
        level: int | None = None,
        subdirectories: int = 0,
        tags: Mapping[Any, Any] | None = None,
        shape: Sequence[int] | None = None,
        dtype: Any = None,
        progress: Progress = None,
    ) -> None:
        """Write one directory. A failure leaves those written before as they were.

        :param data: an array of rows x columns or rows x columns x samples: ``bool`` (1 bit), 8 to
            32 bit integers, ``float32`` or ``float64``; or an iterable of blocks in file order,
            taken one at a time, edges clipped or whole, plane after plane when ``planar`` is
            ``"separate"``
        :param photometric: what samples mean; None: min-is-black for 1 or 2 samples, RGB for 3 or
            4, palette with a ``colormap``
        :param compression: a member or its name: ``"none"``, ``"packbits"``, ``"lzw"``,
            ``"deflate"``, ``"jpeg"``, ``"group3"``, ``"group4"``
        :param predictor: True for what fits the dtype, or a member
        :param tile: (rows, columns), multiples of 16
        :param rows_per_strip: without it and ``tile``, strips of about 256 KiB
        :param planar: ``"contig"`` or ``"separate"``
        :param extra_samples: what samples beyond the photometric's mean: members
        :param colormap: 2^bits x 3, ``uint16`` or floats from 0 to 1
        :param resolution: pixels per ``resolution_unit``, or those of x and y
        :param resolution_unit: ``"inch"``, ``"centimeter"`` or ``"none"``
        :param description: ImageDescription
        :param level: quality of JPEG (1 to 100) or Deflate (1 to 9)
        :param subdirectories: the next so many writes become sub-directories of this one
        :param tags: further tags, as for `Directory.tags`, set before the blocks are written
        :param shape: of the image, with an iterable of blocks
        :param dtype: of the samples, with an iterable of blocks
        :param progress: as in `Directory.read`
        :raises TypeError: a dtype that cannot be written; blocks without shape and dtype
        :raises ValueError: an option that cannot be; too few or too many blocks, a wrong shape
        :raises KeyError: an unknown tag
        :raises Error: the module refuses something
        :raises io.UnsupportedOperation: the file is not open in a writing mode
        """
        self._write(data, Options(
            photometric, compression, predictor, tile, rows_per_strip, planar, extra_samples,
            colormap, resolution, resolution_unit, description, level, subdirectories, tags,
            shape, dtype, progress))

    def _write(self, data: Any, options: Options) -> None:
        self._require_open()
        if self._writer is None:
            raise UnsupportedOperation(
                f"write() needs a writing mode; the mode of this file is {self.mode!r}")
        self._writer.write(data, options)

    def flush(self) -> None:
        """Write the current directory anew if its tags or blocks were changed."""
        self._require_open()
        if self._writer is None:
            self._handle.flush()

    # --- The end

    def close(self) -> None:
        """Write what was changed and close the file. Closing twice is fine.

        A file object is left open. A new file without any directory is removed.
        """
        if self._closed:
            return
        self._closed = True
        if self._writer is not None:
            self._writer.close()
            return
        try:
            self._handle.flush()
        finally:
            self._handle.close_and_issue()

    def __enter__(self) -> File:
        self._require_open()
        return self

    def __exit__(self, kind: type[BaseException] | None, raised: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __del__(self) -> None:
        if not getattr(self, "_closed", True):
            with contextlib.suppress(Exception):
                warnings.warn(f"unclosed file {self.name!r}", ResourceWarning, source=self,
                              stacklevel=2)
            with contextlib.suppress(Exception):
                self.close()

    def __reduce__(self) -> tuple[Any, ...]:
        self._require_open()
        if self._mode.access != "r" or not self._is_path:
            raise TypeError("only a file that is open in mode 'r' on a path can be pickled")
        return File, (os.path.abspath(self.name), "r")


def open(file: Any, mode: str = "r") -> File:  # noqa: A001 - the package's own name for it
    """Open a TIFF file.

    :param file: a path, or a binary file object with ``read`` and ``seek``, and ``write`` for
        writing, which is left open
    :param mode: ``"r"`` read; ``"r+"`` edit tags and blocks in place; ``"w"`` new, an existing
        file is replaced; ``"x"`` new, must not exist; ``"a"`` append directories. ``"w8"``,
        ``"x8"`` and ``"a8"`` make a BigTIFF; ``"l"`` or ``"b"`` after a writing mode sets the byte
        order of a new file.
    :raises ValueError: another mode
    :raises OSError: FileNotFoundError, PermissionError, IsADirectoryError or FileExistsError
    :raises Error: not a TIFF file, or damaged
    """
    return File(file, mode)
