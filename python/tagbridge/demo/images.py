"""Walks the directories of an open file and reads their blocks, one at a time."""

from __future__ import annotations

import contextlib
import dataclasses
import warnings
from collections.abc import Iterator

import numpy as np

import tagbridge
from tagbridge import call

SUB_IFD = 330
YCBCR = 6
# What a file nests deeper than this is not followed.
DEEPEST = 16


@dataclasses.dataclass(frozen=True)
class Layout:
    """How the current directory stores its image: "retrieveMetadata" as plain numbers."""

    width: int
    length: int
    samples: int
    bits: int
    sample_format: int
    extra_samples: int
    planar: int
    photometric: int
    compression: int
    tiled: bool
    block_width: int
    block_length: int
    subsampling: tuple[int, ...]

    @property
    def separate(self) -> bool:
        return self.planar == 2

    @property
    def chroma_apart(self) -> bool:
        """Says whether a read gives Y, Cb and Cr as three arrays."""
        return self.photometric == YCBCR and not self.separate

    @property
    def unit(self) -> str:
        return "Tile" if self.tiled else "Strip"


@contextlib.contextmanager
def opened(path: str, mode: str) -> Iterator[np.ndarray]:
    """Opens a file for the body of a with statement."""
    file = call("open", path, mode)
    try:
        yield file
    finally:
        call("close", file, outputs=0)


def layout_of(file: np.ndarray) -> Layout:
    """Returns the layout of the current directory."""
    fields = call("retrieveMetadata", file)
    number = {name: int(value.item()) for name, value in fields.items() if value.size == 1}
    tiled = bool(number["isTiled"])
    return Layout(
        width=number["ImageWidth"],
        length=number["ImageLength"],
        samples=number["SamplesPerPixel"],
        bits=number["BitsPerSample"],
        sample_format=number["SampleFormat"],
        extra_samples=number["numExtraSamples"],
        planar=number["PlanarConfiguration"],
        photometric=number["PhotometricInterpretation"],
        compression=number["Compression"],
        tiled=tiled,
        block_width=number["TileWidth"] if tiled else number["ImageWidth"],
        block_length=number["TileLength" if tiled else "RowsPerStrip"],
        subsampling=tuple(int(factor) for factor in fields["YCbCrSubsampling"].flat),
    )


@dataclasses.dataclass(frozen=True)
class Visit:
    """A directory that the walk has reached, or the error that kept it away."""

    name: str
    error: tagbridge.Error | None = None


def sub_directories(file: np.ndarray) -> list[int]:
    """Returns the offsets of the sub-directories that the current directory lists."""
    try:
        return [int(offset) for offset in call("getField", file, SUB_IFD).flat]
    except tagbridge.Error:
        return []


def go_to(file: np.ndarray, number: int, offsets: tuple[int, ...]) -> None:
    """Makes a directory current: the one of that number, then down along sub-directories."""
    call("setDirectory", file, number, outputs=0)
    for offset in offsets:
        call("setSubDirectory", file, np.uint64(offset), outputs=0)


def walk(file: np.ndarray) -> Iterator[Visit]:
    """Makes each directory current in turn, every one followed by its sub-directories.

    The names are "1", "2" and so on along the file's chain, "2.1" for the first sub-directory of
    the second directory. A sub-directory that cannot be reached is a visit with an error; a chain
    that is broken or loops ends the walk with a warning, since all that can be reached was visited. A sub-directory that several directories
    list, or that lists itself, is visited once.
    """
    seen: set[int] = set()
    number = 0
    while True:
        below = sub_directories(file)
        yield Visit(str(number + 1))
        if below:
            yield from _walk_below(file, number, (), below, str(number + 1), seen)
            go_to(file, number, ())
        if call("lastDirectory", file).item():
            return
        try:
            call("readDirectory", file, outputs=0)
        except tagbridge.Error as error:
            warnings.warn(": ".join([str(error), *error.diagnostics]), stacklevel=2)
            return
        number += 1


def _walk_below(file: np.ndarray, number: int, path: tuple[int, ...], below: list[int],
                name: str, seen: set[int]) -> Iterator[Visit]:
    for position, offset in enumerate(below, 1):
        here, visited = f"{name}.{position}", (*path, offset)
        if offset == 0 or offset in seen or len(visited) > DEEPEST:
            continue
        seen.add(offset)
        try:
            go_to(file, number, visited)
            deeper = sub_directories(file)
        except tagbridge.Error as error:
            yield Visit(here, error)
            continue
        yield Visit(here)
        yield from _walk_below(file, number, visited, deeper, here, seen)


def block_count(file: np.ndarray, layout: Layout) -> int:
    """Returns the number of strips or tiles of the current directory, those of all planes."""
    return int(call(f"numberOf{layout.unit}s", file).item())


def read_block(file: np.ndarray, layout: Layout, block: int) -> tuple[np.ndarray, ...]:
    """Reads a strip or tile: one array, or Y, Cb and Cr."""
    if layout.chroma_apart:
        return call(f"readEncoded{layout.unit}", file, block, outputs=3)
    return (call(f"readEncoded{layout.unit}", file, block),)


def planes_of(layout: Layout, block: int, blocks: int,
              arrays: tuple[np.ndarray, ...]) -> Iterator[tuple[int, np.ndarray]]:
    """Yields the number and the samples of each plane that a block holds."""
    if layout.separate:
        blocks_per_plane = max(1, blocks // max(1, layout.samples))
        yield block // blocks_per_plane, arrays[0]
    elif len(arrays) > 1:
        yield from enumerate(arrays)
    elif arrays[0].ndim == 2:
        yield 0, arrays[0]
    else:
        yield from ((plane, arrays[0][:, :, plane]) for plane in range(arrays[0].shape[2]))


@dataclasses.dataclass
class PlaneStatistics:
    """Minimum, mean and maximum of the samples of a plane, NaN left out."""

    minimum: float = float("inf")
    maximum: float = float("-inf")
    total: float = 0.0
    count: int = 0

    def add(self, samples: np.ndarray) -> None:
        if samples.dtype.kind == "f":
            samples = samples[~np.isnan(samples)]
        if samples.size == 0:
            return
        self.minimum = min(self.minimum, samples.min().item())
        self.maximum = max(self.maximum, samples.max().item())
        self.total += float(samples.sum(dtype=np.float64))
        self.count += samples.size

    @property
    def mean(self) -> float:
        return self.total / self.count if self.count else float("nan")
