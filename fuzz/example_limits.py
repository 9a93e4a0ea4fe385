"""How much an example of the file layer's fuzz target may take: time and addresses."""

from __future__ import annotations

import contextlib
import faulthandler
import os
import resource
import time
from collections.abc import Iterator
from pathlib import Path

#: Of the processor, which others may want too.
SECONDS = 10
#: Of a clock. What never ends is ended, with the lines that it is at, for there is no other way.
SECONDS_OF_HANGS = 120
ADDRESSES = 2 << 30


def _addresses() -> int:
    """How many bytes of addresses the process has."""
    return int(Path("/proc/self/statm").read_text().split()[0]) * resource.getpagesize()


@contextlib.contextmanager
def limited_memory() -> Iterator[None]:
    """Let the process have 2 GiB more than it has; with sanitizers nothing is limited."""
    before = resource.getrlimit(resource.RLIMIT_AS)
    if "libasan" not in os.environ.get("LD_PRELOAD", ""):  # which takes terabytes for itself
        resource.setrlimit(resource.RLIMIT_AS, (_addresses() + ADDRESSES, before[1]))
    try:
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_AS, before)


@contextlib.contextmanager
def limited_time(example: object, note: Path | None) -> Iterator[None]:
    """Fail when the body takes more than ten seconds of the processor.

    :param note: where to write the example, which nobody else can tell of when it never ends
    """
    if note is not None:
        note.write_text(f"{example!r}\n", encoding="utf-8", errors="backslashreplace")
    faulthandler.dump_traceback_later(SECONDS_OF_HANGS, exit=True)
    start = time.process_time()
    try:
        yield
    finally:
        faulthandler.cancel_dump_traceback_later()
    seconds = time.process_time() - start
    assert seconds < SECONDS, f"took {seconds:.1f} s"
