"""File objects that behave as badly as file objects may, for the fuzz target of the file layer."""

from __future__ import annotations

import io


class Broken(OSError):
    """What a stream raises that fails."""


class OddStream(io.BytesIO):
    """Bytes that come and go in small portions, fail once, or are said to be more or fewer.

    :param portion: the most that is read or written at once; 0 for all
    :param failing: the call that raises, counted from 1; 0 for none
    :param lie: what is added to the size
    """

    def __init__(self, data: bytes = b"", portion: int = 0, failing: int = 0, lie: int = 0) -> None:
        super().__init__(data)
        self._portion = portion
        self._failing = failing
        self._lie = lie
        #: What was raised, once it was.
        self.raised: Broken | None = None

    def _count(self) -> None:
        self._failing -= 1
        if self._failing == 0:
            self.raised = Broken(5, "the stream is broken")
            raise self.raised

    def read(self, size: int | None = -1) -> bytes:
        self._count()
        return super().read(min(size or 0, self._portion) if self._portion else size)

    def write(self, data: bytes) -> int:  # type: ignore[override]
        self._count()
        return super().write(data[:self._portion] if self._portion else data)

    def seek(self, offset: int, whence: int = 0) -> int:
        self._count()
        end = super().seek(offset, whence)
        return max(end + self._lie, 0) if whence == io.SEEK_END else end
