"""Tags of a directory as a mapping, and their values in Python's types."""

from __future__ import annotations

import operator
import reprlib
from collections.abc import Callable, Iterator, Mapping, MutableMapping
from io import UnsupportedOperation
from typing import TYPE_CHECKING, Any, NamedTuple

import numpy as np

from ._checks import decoded_text, encoded_text
from ._messages import Error
from ._tag_table import ROWS
from .enumerations import OF_TAG, coded, named
from .errors import TAG_IS_ABSENT

if TYPE_CHECKING:
    from .directory import Directory
    from .handle import Handle

SUB_IFD = "SubIFD"
# Tags above this are settings of a codec, which no file holds.
_LAST_IN_A_FILE = 0xFFFF


class Tag(NamedTuple):
    """What the module knows of a tag."""

    number: int
    name: str
    #: ``"whole"``, ``"real"``, one of these with ``" row"`` or ``" table"``, ``"text"``,
    #: ``"texts"``, ``"bytes"``, ``"characters"``; empty for a tag that cannot be read.
    kind: str
    writable: bool


_BY_NUMBER: Mapping[int, Tag] = {row[0]: Tag(*row) for row in ROWS}
_BY_NAME: Mapping[str, Tag] = {tag.name: tag for tag in _BY_NUMBER.values()}
_READABLE = [tag.number for tag in _BY_NUMBER.values() if tag.kind]
# libtiff keeps offsets and sizes of strips and of tiles in one place.
_OF_STRIPS = ("StripOffsets", "StripByteCounts")
_OF_TILES = ("TileOffsets", "TileByteCounts")


def _number_of(key: object, default: int) -> int:
    if isinstance(key, str):
        return _BY_NAME[key].number if key in _BY_NAME else default
    try:
        return operator.index(key)  # type: ignore[arg-type]
    except TypeError:
        return default


def find_tag(key: str | int) -> Tag:
    """Return the tag of that name or number. Raises KeyError for one that the module lacks."""
    tag = _BY_NUMBER.get(_number_of(key, default=-1))
    if tag is None:
        raise KeyError(key)
    return tag


# --- From the module

def _number(tag: Tag, value: Any) -> Any:
    if tag.kind == "real":
        return float(value.item())
    number = int(value.item())
    kind: Any = OF_TAG.get(tag.name)
    return number if kind is None else named(kind, number)


def _numbers(tag: Tag, value: Any) -> Any:
    whole = tag.kind.startswith("whole")
    array = np.array(value, dtype=np.int64 if whole else np.float64, order="F")
    return array if tag.kind.endswith("table") else array.reshape(-1, order="F")


_FROM_MODULE: Mapping[str, Callable[[Tag, Any], Any]] = {
    "whole": _number,
    "real": _number,
    "whole row": _numbers,
    "real row": _numbers,
    "whole table": _numbers,
    "real table": _numbers,
    "text": lambda _, value: decoded_text(value),
    "characters": lambda _, value: decoded_text(value),
    "texts": lambda _, value: [decoded_text(text) for text in value.flat],
    "bytes": lambda _, value: value.tobytes(order="F"),
}


def from_module(tag: Tag, value: Any) -> Any:
    """Return the Python value for what "getField" gave."""
    return _FROM_MODULE[tag.kind](tag, value)


# --- To the module

def _without_names(kind: Any, value: Any) -> Any:
    if isinstance(value, (list, tuple)):
        return [_without_names(kind, each) for each in value]
    return coded(kind, value) if isinstance(value, str) else value


def _as_numbers(tag: Tag, value: Any) -> Any:
    """Return doubles where the value is numbers; else the value, for the module to refuse."""
    kind = OF_TAG.get(tag.name)
    if kind is not None:
        value = _without_names(kind, value)
    if isinstance(value, (str, bytes, bytearray)):
        return value
    array = np.asarray(value)
    if array.dtype.kind not in "biuf":
        return value
    doubles = np.asfortranarray(array, dtype=np.float64)
    return float(doubles.item()) if doubles.ndim == 0 else doubles


def _as_text(_: Tag, value: Any) -> Any:
    return encoded_text(value) if isinstance(value, str) else value


def _as_texts(tag: Tag, value: Any) -> Any:
    if isinstance(value, (str, bytes)):
        return value
    try:
        return [_as_text(tag, each) for each in value]
    except TypeError:
        return value


def _as_bytes(_: Tag, value: Any) -> Any:
    return bytes(value) if isinstance(value, memoryview) else value


def to_module(tag: Tag, value: Any) -> Any:
    """Return what "setField" takes for a Python value.

    A value of another kind than the tag's is returned as it is: the module says what it lacks.
    Raises ValueError for a name that the tag's enumeration does not have and for text with NUL.
    """
    if tag.kind in ("text", "characters"):
        return _as_text(tag, value)
    if tag.kind == "texts":
        return _as_texts(tag, value)
    return _as_bytes(tag, value) if tag.kind == "bytes" else _as_numbers(tag, value)


class Tags(MutableMapping[Any, Any]):
    """The tags of a directory, by name (``"ImageWidth"``) or number (256).

    Iteration gives the names of those that are present, in order of number. Values are int (or a
    member of an enumeration), float, str, bytes, list of str, and for several numbers arrays:
    1-d ``int64`` or ``float64``, 2-d for ColorMap, TransferFunction, ModelTiepointTag and
    GeoKeyDirectoryTag.

    Assigning checks and stores at once; the file must be open in mode ``"r+"``. A refusal is the
    module's :class:`Error` and changes nothing. A tag cannot be deleted.
    """

    def __init__(self, directory: Directory) -> None:
        self._directory = directory
        self._known: dict[int, Tag] | None = None  # those present, where nothing can change them

    def _present_in(self, handle: Handle) -> dict[int, Tag]:
        if self._known is not None:
            return self._known
        hidden = _OF_STRIPS if handle.call("isTiled").item() else _OF_TILES
        tags = [_BY_NUMBER[number] for number in handle.set_tags(_READABLE)]
        present = {
            tag.number: tag for tag in tags
            if tag.name not in hidden
            and (tag.number <= _LAST_IN_A_FILE or str(tag.number) in handle.notes)
        }
        if not self._directory.file._edits:
            self._known = present
        return present

    def _present(self) -> dict[int, Tag]:
        with self._directory._current() as handle:
            return self._present_in(handle)

    def __getitem__(self, key: str | int) -> Any:
        with self._directory._current() as handle:
            tag = self._present_in(handle).get(_number_of(key, default=-1))
            if tag is None:
                raise KeyError(key)
            try:
                value = handle.call("getField", tag.number)
            except Error as error:
                if error.identifier == TAG_IS_ABSENT:
                    raise KeyError(key) from None
                raise
        return from_module(tag, value)

    def __contains__(self, key: object) -> bool:
        return _number_of(key, default=-1) in self._present()

    def __iter__(self) -> Iterator[str]:
        return iter([tag.name for tag in self._present().values()])

    def __len__(self) -> int:
        return len(self._present())

    def __setitem__(self, key: str | int, value: Any) -> None:
        self._directory._require_editable("tags")
        tag = find_tag(key)
        if tag.name == SUB_IFD:
            raise UnsupportedOperation("sub-directories are made by write(subdirectories=…)")
        given = to_module(tag, value)
        with self._directory._current() as handle:
            handle.call("setField", tag.number, given, outputs=0)
            handle.dirty = True
            if tag.number > _LAST_IN_A_FILE:
                handle.notes.add(str(tag.number))
            self._directory._forget_layout()

    def __delitem__(self, key: str | int) -> None:
        raise TypeError("a tag cannot be deleted")

    def __repr__(self) -> str:
        shown = ", ".join(f"{name!r}: {reprlib.repr(value)}" for name, value in self.items())
        return f"<tags {{{shown}}}>"
