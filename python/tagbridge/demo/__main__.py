"""python -m tagbridge.demo FILE…"""

from __future__ import annotations

import argparse
import collections
import contextlib
import dataclasses
import io
import logging
import os
import sys
import time
import warnings
from collections.abc import Iterator
from typing import Any

import numpy as np
from tqdm import tqdm

from .._messages import Error
from ..directory import Directory
from ..file import File
from . import ahead, copying, images, report

log = logging.getLogger("tagbridge.demo")
LIBTIFF_ERROR = "KORVAL:pictoria:tiffutils:libtiffError"
# In a file that is all damage, the blocks that follow tell nothing new, and there may be millions.
DAMAGED_IN_A_ROW = 64


class Notices:
    """Collects the warnings of a directory, each text once with its count."""

    def __init__(self) -> None:
        self.counts: collections.Counter[str] = collections.Counter()
        self.libtiff_errors = 0

    def __call__(self, message: Warning | str, *_details: object, **_more: object) -> None:
        self.counts[str(message)] += 1
        self.libtiff_errors += getattr(message, "identifier", None) == LIBTIFF_ERROR


@contextlib.contextmanager
def collected_warnings() -> Iterator[Notices]:
    """Collects warnings instead of showing them."""
    notices = Notices()
    with warnings.catch_warnings():
        warnings.simplefilter("always")
        warnings.showwarning = notices
        yield notices


@dataclasses.dataclass
class Totals:
    """What was read, of a directory or of everything."""

    directories: int = 0
    blocks: int = 0
    size: int = 0
    seconds: float = 0.0

    def add(self, other: Totals) -> None:
        """Counts another total in."""
        for field in dataclasses.fields(self):
            setattr(self, field.name, getattr(self, field.name) + getattr(other, field.name))


@dataclasses.dataclass
class Image:
    """The reading of one directory so far."""

    totals: Totals = dataclasses.field(default_factory=Totals)
    planes: dict[int, images.PlaneStatistics] = dataclasses.field(
        default_factory=lambda: collections.defaultdict(images.PlaneStatistics))
    dtype: str | None = None
    damaged: int = 0

    def add(self, array: np.ndarray[Any, Any]) -> None:
        """Counts a block in."""
        self.dtype = array.dtype.name
        self.totals.blocks += 1
        self.totals.size += array.nbytes


def read_image(page: Directory, image: Image, notices: Notices) -> None:
    """Reads the blocks of a directory into `image`, only a few of them held at a time."""
    in_a_row = 0
    bar = tqdm(total=len(page.blocks), unit="block", leave=False, delay=1,
               disable=not sys.stderr.isatty())
    with bar, contextlib.closing(ahead.blocks_of(page)) as blocks:
        while True:
            errors_before = notices.libtiff_errors
            start = time.perf_counter()
            block, array = next(blocks, (None, None))
            image.totals.seconds += time.perf_counter() - start
            if block is None or array is None:
                return
            bar.update()
            image.add(array)
            for plane, samples in images.planes_of(block.plane, array):
                image.planes[plane].add(samples)
            damaged = notices.libtiff_errors > errors_before
            image.damaged += damaged
            in_a_row = in_a_row + 1 if damaged else 0
            if in_a_row == DAMAGED_IN_A_ROW:
                return


def show_image(name: str, page: Directory, image: Image) -> None:
    """Shows what a directory is and holds."""
    log.info("  %-6s %s", name, report.describe(page, image.dtype))
    for plane, statistics in sorted(image.planes.items()):
        log.info("         %s", report.describe_plane(plane, statistics))
    totals = image.totals
    log.info("         %s in %s, %s", report.size(totals.size),
             report.counted(totals.blocks, report.unit(page)),
             report.throughput(totals.size, totals.seconds))


def show_error(name: str, error: Exception) -> None:
    """Shows what kept a directory or a file from being read."""
    first, *others = report.describe_error(error)
    log.error("  %-6s error %s", name, first)
    for line in others:
        log.error("           %s", line)


def show_notices(notices: Notices) -> None:
    """Shows the warnings of a directory."""
    for line in report.describe_notices(notices.counts):
        log.warning("         warning %s", line)


def demonstrate_directory(name: str, page: Directory, totals: Totals) -> bool:
    """Reads and shows one directory; returns whether all of it could be read."""
    error: Exception | None = None
    image = Image()
    known = False
    with collected_warnings() as notices:
        try:
            known = bool(page.metadata)
            read_image(page, image, notices)
        except (Error, MemoryError) as caught:
            error = caught
    image.totals.directories = 1
    totals.add(image.totals)
    if known:
        show_image(name, page, image)
    show_notices(notices)
    if image.damaged:
        log.error("         error %s", LIBTIFF_ERROR)
        log.error("           %d of %s could not be decoded", image.damaged,
                  report.counted(image.totals.blocks, report.unit(page)))
    if error is not None:
        show_error(name, error)
    return error is None and not image.damaged


def demonstrate_copy(path: str) -> bool:
    """Copies a file through the module and shows what came of it; returns whether all is well."""
    result = copying.copy_and_compare(path)
    for name, error in result.skipped:
        log.info("  %-6s not copied: %s", name, ", ".join(report.describe_error(error)[:2]))
    if result.directories:
        log.info("  copy   %s in Deflate tiles of %d x %d, %s; pixels %s; tiffinfo %s",
                 report.counted(result.directories, "directory"), copying.TILE, copying.TILE,
                 report.size(result.size),
                 "equal" if result.equal else "DIFFER",
                 f"says {result.complaint}" if result.complaint else "accepts it")
    return result.equal and not result.complaint


def demonstrate_file(path: str, totals: Totals, copy: bool) -> bool:
    """Reads and shows every directory of a file; returns whether all of it could be read."""
    log.info("%s", min(path, os.path.relpath(path), key=len))
    good = True
    with collected_warnings() as notices:
        try:
            with File(path) as tif:
                for name, page in images.walk(tif):
                    good &= demonstrate_directory(name, page, totals)
            if copy:
                good &= demonstrate_copy(path)
        except (Error, MemoryError, OSError) as error:
            show_error("", error)
            good = False
    show_notices(notices)
    return good


def parse_arguments() -> argparse.Namespace:
    """Returns what the command line asks for."""
    parser = argparse.ArgumentParser(
        prog="demo", description="Read every image of TIFF files and show what is in them.")
    parser.add_argument("files", nargs="+", metavar="FILE")
    parser.add_argument("--copy", action="store_true",
                        help="also copy each file to Deflate tiles (holds an image in memory)")
    parser.add_argument("-q", "--quiet", action="store_true", help="show only what went wrong")
    return parser.parse_args()


def main() -> int:
    """Demonstrates the files and returns the exit status."""
    arguments = parse_arguments()
    if isinstance(sys.stdout, io.TextIOWrapper):  # a file name may hold any byte
        sys.stdout.reconfigure(errors="backslashreplace")
    logging.basicConfig(stream=sys.stdout, format="%(message)s",
                        level=logging.WARNING if arguments.quiet else logging.INFO)
    totals = Totals()
    failed = sum(not demonstrate_file(path, totals, arguments.copy) for path in arguments.files)
    log.info("%s, %s, %s at %s; %d failed", report.counted(len(arguments.files), "file"),
             report.counted(totals.directories, "directory"), report.size(totals.size),
             report.throughput(totals.size, totals.seconds), failed)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
