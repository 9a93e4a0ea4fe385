"""Telling how far a long task is."""

from __future__ import annotations

import contextlib
import sys
from collections.abc import Callable, Iterator


class Report:
    """Counts blocks and tells somebody. Call it for each block that is done."""

    def __init__(self, tell: Callable[[int, int], object] | None) -> None:
        self._tell = tell
        self.done = 0
        self.total = 0

    def __call__(self) -> None:
        self.done += 1
        if self._tell is not None:
            self._tell(self.done, self.total)


@contextlib.contextmanager
def reporting(progress: bool | Callable[[int, int], object] | None) -> Iterator[Report]:
    """Yield the report for a ``progress`` argument.

    True is a bar on standard error; a function is called with the numbers of blocks done and of
    all. Raises TypeError for anything else that is not false.
    """
    if not progress:
        yield Report(None)
    elif progress is True:
        with _bar() as report:
            yield report
    elif callable(progress):
        yield Report(progress)
    else:
        raise TypeError(f"progress is True or a function, not {type(progress).__name__}")


@contextlib.contextmanager
def _bar() -> Iterator[Report]:
    from tqdm import tqdm

    with tqdm(unit="block", file=sys.stderr) as bar:

        def show(_: int, total: int) -> None:
            bar.total = total
            bar.update()

        yield Report(show)
