"""The command line as its user runs it, for its tests."""

from __future__ import annotations

import contextlib
import io
import subprocess
import sys
from typing import NamedTuple

from tagbridge.cli import main


class Done(NamedTuple):
    """How a command ended."""

    returncode: int
    output: bytes
    stderr: str

    @property
    def stdout(self) -> str:
        return self.output.decode()


def run(*arguments: object) -> Done:
    """Run a command in this process; there is never a traceback."""
    streams = [io.TextIOWrapper(io.BytesIO(), "utf-8") for _ in range(2)]
    with contextlib.redirect_stdout(streams[0]), contextlib.redirect_stderr(streams[1]):
        status = main([str(argument) for argument in arguments])
    for stream in streams:
        stream.flush()
    output, error = (stream.buffer.getvalue() for stream in streams)  # type: ignore[attr-defined]
    assert b"Traceback" not in error, error
    return Done(status, output, error.decode())


def started(*arguments: object) -> subprocess.CompletedProcess[str]:
    """Run a command in a process of its own."""
    return subprocess.run([sys.executable, "-m", "tagbridge", *map(str, arguments)],
                          capture_output=True, text=True, check=False)


def good(*arguments: object) -> str:
    """Run a command that succeeds; return what it prints."""
    done = run(*arguments)
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    return done.stdout


def failed(*arguments: object, status: int = 1) -> str:
    """Run a command that fails with one line; return the line."""
    done = run(*arguments)
    assert done.returncode == status
    assert done.stderr.count("\n") == 1, done.stderr
    return done.stderr.rstrip("\n")
