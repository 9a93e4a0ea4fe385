"""What the benchmarks should reach, and how each table is read.

A goal has two figures: the one that must hold and the one that is aimed at.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Any, NamedTuple

Result = dict[str, Any]


class Goal(NamedTuple):
    required: float
    aim: float


class Table(NamedTuple):
    """A table of the report; `name` is what the programs call it."""

    name: str
    title: str
    measured: str
    higher_is_better: bool
    goal: Callable[[Result], Goal | None]


def _by_samples(**goals: tuple[float, float]) -> Callable[[str], Goal | None]:
    rows = {samples: Goal(*figures) for samples, figures in goals.items()}
    return rows.get


_TILE_CALL = _by_samples(u8=(.42, .50), u16=(.48, .55), u32=(.55, .62), f64=(.65, .72))
_STRIP_CALL = _by_samples(u8=(.15, .22), u16=(.15, .28), u32=(.25, .40), f64=(.30, .50))
_KERNELS = {
    "block_to_columns/u8": Goal(.30, .43),
    "block_to_columns/u16": Goal(.32, .45),
    "block_to_columns/u32": Goal(.42, .60),
    "block_to_columns/u64": Goal(.48, .68),
    "bits_to_logicals": Goal(.55, .90),
}
_CALLS = {
    "getField": Goal(2, 1.7),
    "isTiled": Goal(2, 2),
    "currentDirectory": Goal(2, 2),
    "setField": Goal(1.7, 1.5),
    "open and close": Goal(1.15, 1.05),
    "an error, caught": Goal(38, 30),
}


def _is_tiled(result: Result) -> bool:
    return result["blocks"].startswith("tiles")


def _is_thin(result: Result) -> bool:
    """Strips of one row, or a single strip: libtiff divides that into pieces of about 8 KB."""
    return result["blocks"] in ("strips of 1 row", f"strips of {result['length']} rows")


def _whole_call(result: Result) -> Goal | None:
    if _is_thin(result):
        return None
    return (_TILE_CALL if _is_tiled(result) else _STRIP_CALL)(result["samples"])


def _blocks(result: Result) -> str:
    """What goals are given for: tiles, strips of some rows, one strip; empty for strips of a row."""
    if _is_tiled(result):
        return "tiles"
    if _is_thin(result):
        return "" if result["blocks"] == "strips of 1 row" else "one strip"
    return result["blocks"]


_READ = {"tiles": Goal(1.3, 1.1), "strips of 16 rows": Goal(1.4, 1.2),
         "strips of 256 rows": Goal(1.5, 1.2), "one strip": Goal(1.6, 1.3)}
_READ_AGAIN = {("u8", "tiles"): Goal(1.9, 1.6), ("u16", "tiles"): Goal(1.5, 1.3),
               ("f32", "tiles"): Goal(1.3, 1.1), ("u8", "strips of 16 rows"): Goal(2.1, 1.7),
               ("u8", "strips of 256 rows"): Goal(2, 1.6), ("1bit", "tiles"): Goal(9, 6),
               ("1bit", "strips of 16 rows"): Goal(9, 6)}


def _read(result: Result) -> Goal | None:
    if result["compression"] == "packbits":
        return Goal(1.8, 1.3)
    if result["compression"] != "none":
        return Goal(1.12, 1.03)
    if result["samples"] == "1bit":
        return Goal(2.4, 2) if _blocks(result) in ("tiles", "strips of 16 rows") else None
    return _READ.get(_blocks(result))


def _read_again(result: Result) -> Goal | None:
    return _READ_AGAIN.get((result["samples"], _blocks(result)))


def _write(result: Result) -> Goal | None:
    if result["compression"] != "none":
        return Goal(1.12, 1.05)
    return Goal(1.8, 1.4) if result["samples"] == "1bit" else Goal(1.5, 1.25)


def _rgba(result: Result) -> Goal | None:
    return Goal(2.2, 1.5) if result["compression"] == "none" else Goal(1.4, 1.1)


def _whole_image(result: Result) -> Goal | None:
    return Goal(4, 10) if result["compression"] == "none" else Goal(1.8, 2.2)


def _zarr(result: Result) -> Goal | None:
    return Goal(3, 5) if result["compression"] == "none" else Goal(1.5, 2)


def _on_all_processors(result: Result) -> Goal | None:
    return Goal(6, 12) if result["compression"] == "none" else Goal(2.5, 4)


TABLES = [
    Table("kernels", "Kernels alone, 256 x 256", "fraction of memcpy", True,
          lambda result: _KERNELS.get(result["what"])),
    Table("whole call", "A whole call", "fraction of memcpy", True, _whole_call),
    Table("read", "Reading all blocks", "times libtiff's loop", False, _read),
    Table("read again", "Reading them again, the file kept open", "times libtiff's loop", False,
          _read_again),
    Table("jpeg2000", "Reading JPEG 2000", "times OpenJPEG alone", False,
          lambda result: Goal(1.05, 1.02)),
    Table("write", "Writing ready blocks", "times libtiff's loop", False, _write),
    Table("rgba", "RGBA, whole image", "times libtiff's loop", False, _rgba),
    Table("calls", "Calls from Python", "times the direct call", False,
          lambda result: _CALLS[result["what"]]),
    Table("whole image", "A whole image in Python", "times as fast", True, _whole_image),
    Table("zarr column-major", "A whole image through Zarr, as one column-major array",
          "times as fast as tifffile's view", True, _zarr),
    Table("zarr", "A whole image through Zarr, each in its own order",
          "times as fast as tifffile's view", True, _zarr),
    Table("two handles", "Two threads, a handle each, wall time", "times one thread's", False,
          lambda result: Goal(.60, .52)),
    Table("threads=2", "A whole image in Python, threads=2, wall time", "times threads=1", False,
          lambda result: Goal(.65, .54)),
    Table("all processors", "A whole image in Python on all processors, wall time",
          "times as fast", True, _on_all_processors),
    Table("file read", "A whole image by File.read, one thread", "times a loop of calls", False,
          lambda result: Goal(1.1, 1)),
    Table("region", "A region of 256 x 256 of a large image, the file opened each time",
          "times as fast", True, lambda result: Goal(3, 6)),
    Table("all tags", "Directories", "times as fast", True, lambda result: Goal(1, 2)),
    Table("imwrite", "Writing a whole image from Python", "times as fast", True,
          lambda result: Goal(1, 1.5)),
    Table("page faults", "Page faults, reads", "faults a call", False, lambda result: Goal(0, 0)),
    Table("page faults of writes", "Page faults, writes", "faults a call", False,
          lambda result: Goal(0, 0)),
    # Beyond the two there are libtiff's decoder and the tables of the directory.
    Table("peak memory", "Peak of a read", "times block and output", False,
          lambda result: Goal(1.02, 1.0)),
    Table("growth", "Time and size", "nanoseconds a pixel", False, lambda result: None),
]
