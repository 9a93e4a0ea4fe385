"""Damaged files, and arrays and options of any kind, through the file layer and the command line.

    fuzz_file_layer.py SECONDS    try new examples for so long

Whatever a file says, there are results or the exceptions that the pages name, and commands end
with a line; an image that is written is the image that is read, also after its tags were edited and
through streams that are slow, fail or lie. An example that takes longer than ten seconds of
the processor fails; one that takes two minutes ends the process, and is in the file whose name is
printed at the start.
"""

from __future__ import annotations

import contextlib
import functools
import io
import itertools
import os
import re
import sys
import tempfile
import time
import warnings
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import hypothesis
import hypothesis.extra.numpy as hnp
import numpy as np
import tagbridge
from damaged_files import DAMAGE, FILES, OF_OPTIONS, damaged
from example_limits import limited_memory, limited_time
from hypothesis import strategies as st
from odd_streams import Broken, OddStream
from tagbridge.cli import main as run_command

LARGEST_IMAGE = 1 << 22
MEMORY_LIMIT = 64 << 20

# What a file may bring about.
OF_FILES = (tagbridge.Error, MemoryError)
IN_COMMANDS = {"ValueError", "KeyError", "IndexError", "MemoryError", "UnsupportedOperation"}


@contextlib.contextmanager
def quiet() -> Iterator[None]:
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", tagbridge.Warning)
        yield


def attempt(work: Callable[[], Any], allowed: Any = OF_FILES) -> Any:
    """What the work returns, None if it ends as it may."""
    try:
        return work()
    except allowed as error:
        # The package refuses what is too large before NumPy tries.
        assert type(error).__module__.partition(".")[0] != "numpy", error
        return None


# --- Properties

ATTRIBUTES = ["shape", "dtype", "ndim", "size", "nbytes", "compression", "photometric", "planar",
              "sample_format", "tiled", "block_shape", "metadata", "subdirectories", "index"]


def look_at(page: tagbridge.Directory) -> None:
    """Read all that a directory has."""
    for name in ATTRIBUTES:
        attempt(lambda: getattr(page, name))
    for tag in attempt(lambda: list(page.tags)) or []:
        attempt(lambda: page.tags[tag])
    attempt(lambda: repr(page))
    if (attempt(lambda: page.nbytes) or 0) > LARGEST_IMAGE:
        return
    attempt(page.read)
    attempt(lambda: page.read(raw=True))
    attempt(lambda: page.read(strict=True))
    attempt(lambda: page[1:3, ::-2])
    attempt(page.rgba)
    attempt(lambda: [block.read() for block in itertools.islice(page.blocks, 3)])


def reading_ends(damage: Any) -> None:
    """A file is read, or there is an error of the list."""
    with quiet():
        tif = attempt(lambda: tagbridge.open(io.BytesIO(damaged(damage))))
        if tif is None:
            return
        with tif:
            pages = attempt(lambda: list(itertools.islice(tif, 4))) or []
            for page in pages:
                look_at(page)
                for level in (attempt(lambda: page.subdirectories) or ())[:2]:
                    look_at(level)


COMMANDS = [["info", "IN"], ["info", "IN", "--tags"], ["info", "IN", "--json", "--tags"],
            ["get", "IN", "ImageWidth"], ["get", "IN", "Compression", "-d", "1"],
            ["set", "IN", "Artist", "me"], ["set", "IN", "Orientation", "3"],
            ["convert", "IN", "OUT"], ["convert", "IN", "OUT", "--compression", "deflate"],
            ["convert", "IN", "OUT", "--tile", "16x16", "--region", "0:9,0:9"],
            ["export", "IN", "OUT.npy"], ["export", "IN", "OUT.png"],
            ["preview", "IN", "-o", "OUT.png"], ["verify", "IN"], ["diff", "IN", "IN"]]


def run_quietly(arguments: list[str]) -> tuple[int, str]:
    streams = [io.TextIOWrapper(io.BytesIO(), "utf-8") for _ in range(2)]
    with contextlib.redirect_stdout(streams[0]), contextlib.redirect_stderr(streams[1]):
        status = run_command(arguments)
    streams[1].flush()
    return status, streams[1].buffer.getvalue().decode()  # type: ignore[attr-defined]


def commands_end(damage: Any, command: list[str]) -> None:
    """A command succeeds or fails with lines; it makes a whole file or none."""
    data = damaged(damage)
    with tempfile.TemporaryDirectory() as name, quiet():
        folder = Path(name)
        (folder / "in.tif").write_bytes(data)
        out = [part.replace("OUT", "out") for part in command if part.startswith("OUT")]
        words = [part.replace("IN", f"{name}/in.tif").replace("OUT", f"{name}/out")
                 for part in command]
        status, said = run_quietly(words)
        assert status in (0, 1), said
        assert "Traceback" not in said, said
        for kind in re.findall(r"\((\w+)\)$", said, re.MULTILINE):
            assert kind in IN_COMMANDS, said
        there = {path.name for path in folder.iterdir()}
        assert there == {"in.tif", *(out if status == 0 else [])}, there
        if command[0] != "set" or status:
            assert (folder / "in.tif").read_bytes() == data


DTYPES = st.sampled_from(["?", "u1", "i1", "u2", "i2", "u4", "i4", "f4", "f8"])
SHAPES = hnp.array_shapes(min_dims=2, max_dims=3, min_side=1, max_side=40)
ARRAYS = DTYPES.flatmap(lambda kind: st.tuples(st.just(kind), SHAPES, st.integers(0, 2**32 - 1)))
OPTIONS = st.fixed_dictionaries({}, optional={
    "compression": st.sampled_from([None, "none", "packbits", "lzw", "deflate"]),
    "predictor": st.sampled_from([None, True]),
    "tile": st.sampled_from([(16, 16), (32, 16), (16, 48)]),
    "rows_per_strip": st.integers(1, 50),
    "planar": st.sampled_from(["contig", "separate"]),
    "bigtiff": st.booleans(),
    "description": st.text(max_size=10),
})


def made(kind: str, shape: tuple[int, ...], seed: int) -> np.ndarray:
    """Any bits as an array; of samples, at most six, and one of one bit."""
    if len(shape) == 3:
        shape = shape[:2] if kind == "?" else (*shape[:2], 1 + shape[2] % 6)
    dtype = np.dtype(kind)
    random = np.random.default_rng(seed)
    if kind == "?":
        return random.random(shape) < 0.5
    count = int(np.prod(shape)) * dtype.itemsize
    return np.frombuffer(random.bytes(count), dtype).reshape(shape)


def images_round_trip(parts: tuple[str, tuple[int, ...], int], options: dict[str, Any],
                      key: tuple[slice, slice]) -> None:
    """An image is read as it was written, whole and in parts."""
    array = made(*parts)
    stream = io.BytesIO()
    with quiet():
        try:
            tagbridge.imwrite(stream, array, **options)
        except OF_OPTIONS:
            # Options can be refused, and samples that are no colours; not a plain image.
            assert options or (array.ndim == 3 and array.dtype.kind != "u"), parts
            return
        got = tagbridge.imread(stream)
        with tagbridge.open(stream) as tif:
            part = tif[0][key]
    wanted = array[:, :, 0] if array.ndim == 3 and array.shape[2] == 1 else array
    assert got.dtype == wanted.dtype and got.shape == wanted.shape
    assert got.tobytes() == wanted.tobytes()
    assert part.shape == wanted[key].shape and part.tobytes() == wanted[key].tobytes()


KEYS = st.tuples(*[st.slices(40)] * 2)

ODD_VALUES = st.one_of(
    st.none(), st.booleans(), st.integers(-3, 70000), st.floats(), st.text(max_size=4),
    st.binary(max_size=4), st.lists(st.integers(-1, 40), max_size=3),
    st.tuples(st.integers(0, 64), st.integers(0, 64)))
ODD_ARRAYS = st.one_of(
    ODD_VALUES,
    hnp.arrays(hnp.scalar_dtypes(), hnp.array_shapes(min_dims=0, max_dims=4, min_side=0, max_side=5)))
ODD_OPTIONS = st.dictionaries(
    st.sampled_from(["photometric", "compression", "predictor", "tile", "rows_per_strip", "planar",
                     "extra_samples", "colormap", "resolution", "resolution_unit", "description",
                     "level", "subdirectories", "tags", "shape", "dtype", "bigtiff"]),
    ODD_VALUES, max_size=3)


def writing_ends(array: Any, options: dict[str, Any]) -> None:
    """Anything is written, and can then be opened, or is refused as the pages say."""
    stream = io.BytesIO()
    with quiet():
        try:
            tagbridge.imwrite(stream, array, **options)
        except OF_OPTIONS:
            return
        with tagbridge.open(stream) as tif:
            assert len(tif) == 1


# --- Edits and streams

SETTINGS = st.sampled_from([
    ("Artist", "somebody"), ("ImageDescription", "x" * 300), ("Orientation", 3), ("Software", ""),
    ("XResolution", 72.5), ("PageNumber", [1, 3]), ("ICC Profile", bytes(100)),
    ("ModelPixelScaleTag", [0.5, 2, 0]), ("XMLPacket", "<x/>"), ("ResolutionUnit", "centimeter")])
PORTIONS = st.sampled_from([0, 0, 1, 3, 7, 100])
CALLS = st.one_of(st.just(0), st.integers(1, 200))
LIES = st.sampled_from([0, 0, 0, -100, -1, 1, 100, 2**40])


def pictures(stream: io.BytesIO) -> list[Any]:
    """What the first directories show: arrays, or which errors."""
    shown: list[Any] = []
    with tagbridge.open(stream) as tif:
        shown.append((tif.byteorder, tif.bigtiff))
        for page in itertools.islice(tif, 4):
            try:
                shown.append((page.shape, page.dtype))
                if page.nbytes <= LARGEST_IMAGE:
                    shown.append(page.read().tobytes())
            except OF_FILES as error:
                shown.append((type(error), getattr(error, "identifier", None)))
    return shown


def edits_keep_the_pixels(damage: Any, number: int, settings: list[tuple[str, Any]], portion: int,
                          failing: int) -> None:
    """A file of which tags were set shows what it did; what could not be edited is as it was."""
    data = damaged(damage)
    with quiet():
        before = attempt(lambda: pictures(io.BytesIO(data)))
        stream = OddStream(data, portion, failing)
        is_written = False
        try:
            with tagbridge.open(stream, "r+") as tif:
                for tag, value in settings:
                    attempt(lambda: tif[number].tags.__setitem__(tag, value))
                tif.flush()
                is_written = True
        except (Broken, IndexError, *OF_FILES) as error:
            assert stream.raised is None or error is stream.raised
            if not is_written:
                assert stream.getvalue()[:len(data)] == data  # what was added is of no use
        else:
            assert stream.raised is None
        assert attempt(lambda: pictures(io.BytesIO(stream.getvalue()))) == before


def odd_streams_are_read(damage: Any, portion: int, failing: int, lie: int) -> None:
    """A stream is read as its bytes are, or what it raises arrives."""
    data = damaged(damage)
    with quiet():
        stream = OddStream(data, portion, failing, lie)
        try:
            shown = pictures(stream)
        except OF_FILES:
            shown = None
        except Broken as error:
            assert error is stream.raised
            return
        assert stream.raised is None
        if lie == 0:
            assert shown == attempt(lambda: pictures(io.BytesIO(data)))


def odd_streams_are_written(number: int, array: tuple[str, tuple[int, ...], int],
                            options: dict[str, Any], portion: int, failing: int) -> None:
    """What is appended to a stream gets there, or what it raises arrives and all else is there."""
    data = FILES[number] if number else b""
    plain, stream = io.BytesIO(data), OddStream(data, portion, failing)
    append = functools.partial(tagbridge.imwrite, array=made(*array), append=bool(data), **options)
    with quiet():
        try:
            append(plain)
        except OF_OPTIONS:
            return
        try:
            append(stream)
        except Broken as error:
            assert error is stream.raised
            if data:
                shown = pictures(io.BytesIO(data))
                assert pictures(io.BytesIO(stream.getvalue()))[:len(shown)] == shown
            return
    assert stream.raised is None
    assert stream.getvalue() == plain.getvalue()


PROPERTIES = {
    reading_ends: (DAMAGE,),
    commands_end: (DAMAGE, st.sampled_from(COMMANDS)),
    images_round_trip: (ARRAYS, OPTIONS, KEYS),
    writing_ends: (ODD_ARRAYS, ODD_OPTIONS),
    edits_keep_the_pixels: (DAMAGE, st.integers(0, 2), st.lists(SETTINGS, max_size=3), PORTIONS,
                            CALLS),
    odd_streams_are_read: (DAMAGE, PORTIONS, CALLS, LIES),
    odd_streams_are_written: (st.integers(0, len(FILES) - 1), ARRAYS, OPTIONS, PORTIONS, CALLS),
}


def try_examples(check: Callable[..., None], count: int, seed: int,
                 note: Path | None = None) -> None:
    """Try so many examples of a property; the seed says which."""
    def within_limits(example: tuple[Any, ...]) -> None:
        with limited_time((check.__name__, seed, *example), note), limited_memory():
            check(*example)

    limit = tagbridge.memory_limit()
    tagbridge.set_memory_limit(MEMORY_LIMIT)
    try:
        given = hypothesis.given(st.tuples(*PROPERTIES[check]))(within_limits)
        settings = hypothesis.settings(
            max_examples=count, deadline=None, database=None, print_blob=False,
            suppress_health_check=list(hypothesis.HealthCheck))
        hypothesis.seed(seed)(settings(given))()
    finally:
        tagbridge.set_memory_limit(limit)


def main() -> int:
    if len(sys.argv) != 2 or not sys.argv[1].isdigit():
        print(f"usage: {sys.argv[0]} SECONDS", file=sys.stderr)
        return 2
    examples = 25  # of each between two looks at the clock
    end = time.monotonic() + int(sys.argv[1])
    first = seed = int(time.time())
    note = Path(tempfile.gettempdir()) / f"fuzz_file_layer.{os.getpid()}"
    print(f"the example that is tried: {note}", flush=True)
    while time.monotonic() < end:
        for check in PROPERTIES:
            try_examples(check, examples, seed, note)
        seed += 1
    note.unlink()
    print(f"{(seed - first) * examples} examples of each of {len(PROPERTIES)} properties, "
          f"seeds from {first}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
