"""Reads a bomb in every manner in a process of little memory, and says how each read ended.

usage: bomb_reader.py FILE BOMB
"""

from __future__ import annotations

import json
import resource
import sys
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

ADDRESSES = 512 << 20
resource.setrlimit(resource.RLIMIT_AS, (ADDRESSES, ADDRESSES))

import tagbridge  # noqa: E402
from bombs import BOMBS, Bomb  # noqa: E402
from command_line import run  # noqa: E402
from images import recorded  # noqa: E402
from tagbridge.errors import failure_of  # noqa: E402


def by_calls(path: str, bomb: Bomb) -> None:
    operation, *inputs = bomb.call
    file = tagbridge.call("open", path, "r")
    try:
        tagbridge.call(str(operation), file, *inputs)
    finally:
        tagbridge.call("close", file, outputs=0)


def by_files(path: str, bomb: Bomb) -> None:
    with tagbridge.open(path) as tif:
        if bomb.layer == "image":
            tif.read(strict=True)
        elif bomb.layer == "colours":
            tif.rgba()
        else:
            tif.tags[bomb.layer]


def ending(read: Callable[..., None], *arguments: Any) -> str:
    """How a read ended: an identifier or the name of an exception."""
    with recorded() as said:
        try:
            read(*arguments)
        except tagbridge.Error as error:
            return error.identifier
        except Exception as error:  # noqa: BLE001 - the test says which may be
            return type(error).__name__
    failure = failure_of(said)  # a block that reads as zeros
    return "no error" if failure is None else failure.identifier


def command(*arguments: str) -> dict[str, Any]:
    done = run(*arguments)
    return {"status": done.returncode, "stderr": done.stderr}


def peak() -> int:
    """The most memory that the process has had so far, in bytes."""
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024


def main(path: str, name: str) -> None:
    bomb = BOMBS[name]
    copy = str(Path(path).with_name("copy.tif"))
    before = peak()
    ways: dict[str, Callable[[], Any]] = {
        "call": lambda: ending(by_calls, path, bomb),
        "file": lambda: ending(by_files, path, bomb),
        "info": lambda: command("info", "--tags", path),
        "verify": lambda: command("verify", path),
        "convert": lambda: command("convert", path, copy),
        "preview": lambda: command("preview", path),
    }
    said: dict[str, Any] = {}
    for way, read in ways.items():
        start = time.monotonic()
        ended = read()
        said[way] = {"ended": ended, "seconds": time.monotonic() - start}
    said["grown"] = peak() - before
    print(json.dumps(said))


if __name__ == "__main__":
    main(*sys.argv[1:])
