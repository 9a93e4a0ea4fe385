"""The exception classes. The extension fills them in."""

from __future__ import annotations

from collections.abc import Sequence


class Error(Exception):
    """An operation failed. ``str()`` of it is the text of the message catalog."""

    __module__ = "tagbridge"

    #: The complete identifier, such as ``"KORVAL:pictoria:Tiff:badFileId"``.
    identifier: str
    #: What the identifier's text is filled in with, in order.
    arguments: tuple[int | str, ...]
    #: What libtiff said during the call, in order.
    diagnostics: list[str]

    def __init__(
        self,
        identifier: str,
        arguments: Sequence[int | str] = (),
        text: str = "",
        diagnostics: Sequence[str] = (),
    ) -> None:
        super().__init__(identifier, arguments, text, diagnostics)
        self.identifier = identifier
        self.arguments = tuple(arguments)
        self.diagnostics = list(diagnostics)

    def __str__(self) -> str:
        return self.args[2] or self.identifier


class Warning(UserWarning):  # noqa: A001 - the package's own name for it
    """An operation went on after something noteworthy."""

    __module__ = "tagbridge"

    #: The complete identifier. libtiff's own messages have
    #: ``"KORVAL:pictoria:tiffutils:libtiffError"`` or ``"…:libtiffWarning"``.
    identifier: str
    #: What the identifier's text is filled in with, in order.
    arguments: tuple[int | str, ...]

    def __init__(
        self, identifier: str, arguments: Sequence[int | str] = (), text: str = ""
    ) -> None:
        super().__init__(identifier, arguments, text)
        self.identifier = identifier
        self.arguments = tuple(arguments)

    def __str__(self) -> str:
        return self.args[2] or self.identifier
