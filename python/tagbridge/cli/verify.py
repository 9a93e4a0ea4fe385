"""tagbridge verify: can every block be decoded?"""

from __future__ import annotations

import warnings
from collections.abc import Iterator
from typing import Any

from .._messages import Error, Warning
from ..decoding import decoder_for
from ..directory import Directory
from ..errors import failure_of
from ..file import File
from .failures import Failure, about, report
from .info import below
from .terminal import progress_bar


def run(options: Any) -> int:
    """Decode every block of every directory of the files; report those that fail."""
    return int(any([_verify_file(file) for file in options.files]))


def _verify_file(file: str) -> bool:
    """Return whether something is wrong with a file."""
    blocks = failed = directories = 0
    try:
        with about(file), File(file) as tif, warnings.catch_warnings(record=True) as said:
            warnings.simplefilter("always", Warning)
            for label, page in _directories(tif):
                directories += 1
                done, wrong = _verify_directory(file, label, page)
                blocks, failed = blocks + done, failed + wrong
            for each in said:
                if isinstance(each.message, Warning) and "chain of directories" in str(each.message):
                    report(Failure(file, str(each.message), each.message.identifier))
                    failed += 1
    except Failure as failure:
        report(failure)
        return True
    words = "all good" if not failed else f"{failed} failed"
    print(f"{file}: {_counted(directories, 'directory', 'directories')}, "
          f"{_counted(blocks, 'block', 'blocks')}, {words}")
    return failed > 0


def _counted(number: int, one: str, many: str) -> str:
    return f"{number} {one if number == 1 else many}"


def _directories(tif: File) -> Iterator[tuple[str, Directory]]:
    seen: set[int] = set()

    def tree(label: str, page: Directory, depth: int) -> Iterator[tuple[str, Directory]]:
        yield label, page
        for number, level in enumerate(below(page, seen, depth)):
            yield from tree(f"{label}.{number}", level, depth + 1)

    for page in tif:
        yield from tree(str(page.index), page, 0)


def _verify_directory(file: str, label: str, page: Directory) -> tuple[int, int]:
    """Return the number of blocks and of those that fail."""
    try:
        count = len(page.blocks)
        decode = decoder_for(page, raw=True)
    except Error as error:
        report(Failure.of(f"{file}: directory {label}", error))
        return 0, 1
    failed = 0
    for block in progress_bar(page.blocks, count, f"directory {label}"):
        try:
            with page._current() as handle:
                page._prepare(handle)
                _, said = decode(handle, block.index, block._extent)
            trouble: Error | Warning | None = failure_of(said)
        except Error as error:
            trouble = error
        if trouble is not None:
            failed += 1
            where = f"{file}: directory {label}, block {block.index}"
            report(Failure(where, str(trouble), trouble.identifier))
    return count, failed
