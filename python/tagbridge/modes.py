"""The modes in which a file is opened."""

from __future__ import annotations

import dataclasses
import re

_MODE = re.compile(r"(?P<access>r\+?|[wxa])(?P<big>(?<=[wxa])8)?(?P<order>(?<=[wxa8])[lb])?")
_MODES = (
    "'r' (read), 'r+' (edit), 'w' or 'w8' (new), 'x' or 'x8' (new, must not exist), "
    "'a' or 'a8' (append); 8 is BigTIFF; 'l' or 'b' may follow after a writing mode"
)


@dataclasses.dataclass(frozen=True)
class Mode:
    """What a mode says."""

    #: As it was given.
    text: str
    #: ``"r"``, ``"r+"``, ``"w"``, ``"x"`` or ``"a"``.
    access: str
    #: Flags for the module: BigTIFF and byte order of a new file.
    flags: str

    @property
    def reads(self) -> bool:
        """Whether the file's directories can be read."""
        return self.access in ("r", "r+")

    @property
    def edits(self) -> bool:
        """Whether tags and blocks can be changed in place."""
        return self.access == "r+"

    @property
    def writes(self) -> bool:
        """Whether directories can be written, and nothing else."""
        return not self.reads


def parse_mode(text: str) -> Mode:
    """Return what a mode says. Raises ValueError, which lists the modes, for another text."""
    found = _MODE.fullmatch(text) if isinstance(text, str) else None
    if found is None:
        raise ValueError(f"mode {text!r} is none of {_MODES}")
    return Mode(text, found["access"], (found["big"] or "") + (found["order"] or ""))
