"""Exceptions and warnings of the file layer."""

from __future__ import annotations

import sys
import warnings
from collections.abc import Iterable, Sequence
from pathlib import Path

from ._messages import Error, Warning

LIBTIFF_ERROR = "KORVAL:pictoria:tiffutils:libtiffError"
UNSUPPORTED_COMPRESSION = "KORVAL:pictoria:Tiff:unsupportedCompressionScheme"
TAG_IS_ABSENT = "KORVAL:pictoria:Tiff:tagRetrievalFailed"

_PACKAGE = str(Path(__file__).parent)


class DecodeError(Error):
    """Blocks of an image cannot be decoded. Raised by ``read(strict=True)``."""

    __module__ = "tagbridge"

    #: The numbers of the blocks, ascending.
    blocks: list[int]

    def __init__(
        self,
        identifier: str,
        arguments: Sequence[int | str] = (),
        text: str = "",
        diagnostics: Sequence[str] = (),
        blocks: Sequence[int] = (),
    ) -> None:
        super().__init__(identifier, arguments, text, diagnostics)
        self.args = (*self.args, tuple(blocks))
        self.blocks = list(blocks)


def decode_error(failures: Sequence[tuple[int, Warning]]) -> DecodeError:
    """Return the error for blocks and what libtiff said of each."""
    blocks = [block for block, _ in failures]
    first = failures[0][1]
    shown = ", ".join(map(str, blocks[:10])) + (", …" if len(blocks) > 10 else "")
    noun = "block" if len(blocks) == 1 else "blocks"
    return DecodeError(
        first.identifier,
        first.arguments,
        f"{noun} {shown} cannot be decoded: {first}",
        [f"block {block}: {said}" for block, said in failures],
        blocks,
    )


def failure_of(said: Iterable[Warning]) -> Warning | None:
    """Return the warning that says that a block was not decoded, None if there is none."""
    return next((warning for warning in said if warning.identifier == LIBTIFF_ERROR), None)


def issue(said: Iterable[Warning]) -> None:
    """Issue warnings for the line outside this package that led here.

    Every one is issued; when a filter makes exceptions of them the first is raised.
    """
    level = levels_inside()
    first: Exception | None = None
    for warning in said:
        try:
            warnings.warn(warning, stacklevel=level)
        except Exception as raised:  # noqa: BLE001 - a filter may raise whatever it likes
            first = first or raised
    if first is not None:
        raise first


def levels_inside() -> int:
    """Return the stack level, as warnings.warn counts, of the first frame outside the package."""
    level = 2
    frame = sys._getframe(2)
    while frame.f_back is not None and frame.f_code.co_filename.startswith(_PACKAGE):
        frame = frame.f_back
        level += 1
    return level
