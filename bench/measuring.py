"""What the Python parts of the benchmarks share: timing in turn, images, results as JSON lines."""

from __future__ import annotations

import argparse
import contextlib
import json
import os
import subprocess
import time
from collections.abc import Callable, Iterable, Iterator
from typing import Any, NamedTuple


class Effort(NamedTuple):
    """How long a comparison goes on; the C++ programs have the same names."""

    least_turns: int
    seconds: float
    seconds_of_turn: float


EFFORTS = {
    "smoke": Effort(1, 0.0, 0.0),
    "quick": Effort(3, 0.15, 0.002),
    "full": Effort(5, 0.6, 0.005),
    "large": Effort(5, 0.6, 0.005),
}


class Image(NamedTuple):
    """An image as `make_image` takes it."""

    samples: str
    compression: str
    blocks: str
    block_length: int
    width: int = 4096
    length: int = 4096


@contextlib.contextmanager
def image_file(program: str, folder: str, image: Image) -> Iterator[str]:
    """Makes the image's file with the program `make_image`, for the body of a with statement."""
    command = [program, folder, *map(str, image)]
    path = subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()
    try:
        yield path
    finally:
        os.remove(path)


def for_each_image(description: str, images: Iterable[Image],
                   measure: Callable[[Image, str, str], None]) -> None:
    """The program of a part that measures images alone, with the options of `run.py`."""
    measure_images(parsed_options(description), images, measure)


def measure_images(options: argparse.Namespace, images: Iterable[Image],
                   measure: Callable[[Image, str, str], None]) -> None:
    """Calls `measure(image, path, effort)` with the file of each image."""
    for image in images:
        image = sized(image, options.effort)
        with image_file(options.make_image, options.folder, image) as path:
            measure(image, path, options.effort)


def sized(image: Image, effort: str) -> Image:
    """The image as it is measured: tiny if the effort is "smoke"."""
    return image._replace(width=300, length=300) if effort == "smoke" else image


def parsed_options(description: str) -> argparse.Namespace:
    """Returns `make_image`, `effort` and `folder`, as `run.py` gives them."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--make-image", required=True, help="the program that makes images")
    parser.add_argument("effort", choices=EFFORTS)
    parser.add_argument("folder")
    return parser.parse_args()


def repeated(function: Callable[..., object], *arguments: object) -> Callable[[int], None]:
    """Returns a contender of `compare` that calls `function(*arguments)`."""
    def run(calls: int) -> None:
        for _ in range(calls):
            function(*arguments)

    return run


def compare(effort: Effort, *contenders: Callable[[int], object],
            clock: Callable[[], float] = time.process_time) -> list[float]:
    """Returns for each contender the seconds that a call takes in its fastest turn.

    A contender is a function that makes the given number of calls. Processor time counts, so that
    other processes do not, unless another clock is given.
    """
    calls = [_calls_of_turn(contender, effort.seconds_of_turn, clock) for contender in contenders]
    fastest = [float("inf")] * len(contenders)
    turns, start = 0, clock()
    while turns < effort.least_turns or clock() - start < effort.seconds:
        turns += 1
        for index, contender in enumerate(contenders):
            fastest[index] = min(fastest[index], _seconds(contender, calls[index], clock))
    return fastest


def report(table: str, **values: Any) -> None:
    """Prints a result for `run.py`."""
    print(json.dumps({"table": table, **values}), flush=True)


def report_factors(table: str, ours: float, others: dict[str, float], **values: Any) -> None:
    """Reports the seconds of each other program over ours; the fastest one's are the value."""
    factors = {name: seconds / ours for name, seconds in others.items()}
    fastest = min(factors, key=factors.__getitem__)
    report(table, **values, value=factors[fastest], fastest=fastest, factors=factors)


def _seconds(contender: Callable[[int], object], calls: int, clock: Callable[[], float]) -> float:
    start = clock()
    contender(calls)
    return (clock() - start) / calls


def _calls_of_turn(contender: Callable[[int], object], seconds: float,
                   clock: Callable[[], float]) -> int:
    contender(1)
    once = max(_seconds(contender, 1, clock), 1e-8)
    return max(1, int(seconds / once))
