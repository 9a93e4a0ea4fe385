# PYTHON_ARGCOMPLETE_OK
"""The command line: tagbridge COMMAND …"""

from __future__ import annotations

import contextlib
import io
import os
import signal
import sys
import warnings
from collections.abc import Sequence
from typing import Any, NoReturn

from .._messages import Warning
from .failures import Failure, report
from .parser import make_parser, with_repeated_options

INTERRUPTED = 130
TERMINATED = 143


def main(arguments: Sequence[str] | None = None) -> int:
    """Run a command and return the exit status: 0, 1 (error), 2 (usage), 130 (interrupt)."""
    for stream in (sys.stdout, sys.stderr):
        if isinstance(stream, io.TextIOWrapper):  # a file name may hold any byte
            stream.reconfigure(errors="backslashreplace")
    parser = make_parser()
    _complete(parser)
    given = list(sys.argv[1:] if arguments is None else arguments)
    try:
        options = parser.parse_args(with_repeated_options(given))
    except SystemExit as end:
        return int(end.code or 0)
    return _run(options)


def _run(options: Any) -> int:
    _end_on_termination()
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", Warning)  # commands say themselves what fails
        try:
            status = int(options.run(options) or 0)
            sys.stdout.flush()
            return status
        except Failure as failure:
            report(failure)
        except KeyboardInterrupt:
            print("tagbridge: interrupted", file=sys.stderr)
            return INTERRUPTED
        except BrokenPipeError:
            # Whoever read the output has enough; Python must not complain at its end.
            os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        except Exception as error:  # noqa: BLE001 - people get a line, never a traceback
            report(Failure.of("", error))
    return 1


def _end_on_termination() -> None:
    def end(*_: object) -> NoReturn:
        raise SystemExit(TERMINATED)

    with contextlib.suppress(ValueError):  # another thread than the first
        signal.signal(signal.SIGTERM, end)


def _complete(parser: Any) -> None:
    try:
        import argcomplete
    except ImportError:
        return
    argcomplete.autocomplete(parser)
