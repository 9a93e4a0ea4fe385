"""What goes wrong in a command, as a line for people."""

from __future__ import annotations

import contextlib
import sys
from collections.abc import Iterator

from .._messages import Error


class Failure(Exception):
    """A command cannot go on with a file."""

    def __init__(self, file: str, what: str, identifier: str) -> None:
        super().__init__(file, what, identifier)
        self.file = file
        self.what = what
        self.identifier = identifier

    @classmethod
    def of(cls, file: str, error: BaseException) -> Failure:
        """Return the failure that an exception is for people."""
        if isinstance(error, Error):
            return cls(file, _with_reason(error), error.identifier)
        name = type(error).__name__
        if isinstance(error, OSError) and error.strerror:
            return cls(file, error.strerror, name)
        if isinstance(error, KeyError):
            return cls(file, f"there is no tag {error.args[0]!r}" if error.args else "no tag", name)
        if isinstance(error, MemoryError):
            return cls(file, str(error) or "there is not enough memory", name)
        return cls(file, str(error) or name, name)

    def __str__(self) -> str:
        parts = ["tagbridge", self.file, f"{self.what} ({self.identifier})"]
        return " ".join(": ".join(part for part in parts if part).split("\n"))


def _with_reason(error: Error) -> str:
    return f"{error} {error.diagnostics[-1]}" if error.diagnostics else str(error)


def report(failure: Failure) -> None:
    """Print a failure on standard error, as one line."""
    print(failure, file=sys.stderr)


@contextlib.contextmanager
def about(file: str) -> Iterator[None]:
    """Say which file an exception of the body is about."""
    try:
        yield
    except (Failure, BrokenPipeError):
        raise
    except Exception as error:
        raise Failure.of(file, error) from error
