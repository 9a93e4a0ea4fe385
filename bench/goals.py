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


_TILE_CALL = _by_samples(u8=(.25, .38), u16=(.28, .42), u32=(.35, .52), f64=(.40, .60))
_STRIP_CALL = _by_samples(u8=(.15, .22), u16=(.15, .28), u32=(.25, .40), f64=(.30, .50))
_KERNELS = {
    "block_to_columns/u8": Goal(.30, .43),
    "block_to_columns/u16": Goal(.32, .45),
    "block_to_columns/u32": Goal(.42, .60),
    "block_to_columns/u64": Goal(.48, .68),
    "bits_to_logicals": Goal(.55, .90),
}
_CALLS = {
    "getField": Goal(2, 2),
    "isTiled": Goal(2, 2),
    "currentDirectory": Goal(2, 2),
    "setField": Goal(2, 2),
    "open and close": Goal(1.2, 1.2),
    "an error, caught": Goal(40, 40),
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


def _read(result: Result) -> Goal | None:
    if result["compression"] == "packbits":
        return Goal(1.8, 1.4)
    if result["compression"] != "none":
        return Goal(1.12, 1.03)
    bits = result["samples"] == "1bit"
    if _is_tiled(result):
        return Goal(4, 2.5) if bits else Goal(1.8, 1.5)
    if _is_thin(result):
        return None if bits else Goal(4, 2.5)
    return Goal(12, 8) if bits else Goal(2.3, 1.7)


def _write(result: Result) -> Goal | None:
    return Goal(1.8, 1.3) if result["compression"] == "none" else Goal(1.12, 1.05)


def _rgba(result: Result) -> Goal | None:
    return Goal(2.2, 1.5) if result["compression"] == "none" else Goal(1.4, 1.1)


def _whole_image(result: Result) -> Goal | None:
    return Goal(4, 10) if result["compression"] == "none" else Goal(1.8, 2.2)


def _zarr(result: Result) -> Goal | None:
    return Goal(3, 5) if result["compression"] == "none" else Goal(1.5, 2)


TABLES = [
    Table("kernels", "Kernels alone, 256 x 256", "fraction of memcpy", True,
          lambda result: _KERNELS.get(result["what"])),
    Table("whole call", "A whole call", "fraction of memcpy", True, _whole_call),
    Table("read", "Reading all blocks", "times libtiff's loop", False, _read),
    Table("read again", "Reading them again, the file kept open", "times libtiff's loop", False,
          lambda result: None),
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
    Table("page faults", "Page faults, reads", "faults a call", False, lambda result: Goal(0, 0)),
    Table("page faults of writes", "Page faults, writes", "faults a call", False,
          lambda result: Goal(0, 0)),
    # Beyond the two there are libtiff's decoder and the tables of the directory.
    Table("peak memory", "Peak of a read", "times block and output", False,
          lambda result: Goal(1.02, 1.0)),
    Table("growth", "Time and size", "nanoseconds a pixel", False, lambda result: None),
]
