"""A read-only mapping in Zarr 2 format over a file."""

from __future__ import annotations

import itertools
import json
import math
import os
import re
from collections.abc import Iterator
from typing import Any

from zarr.errors import ReadOnlyError
from zarr.storage import Store

from ..decoding import fitted
from ..file import File
from ..image_source import ImageSource
from ..indexing import Axis, Selection
from ..open_files import OPEN_FILES
from .pyramids import Pyramid, pyramids_of

Json = dict[str, Any]
_CHUNK = re.compile(r"(?:0|[1-9][0-9]*)(?:\.(?:0|[1-9][0-9]*))*")
_AXES = ("y", "x", "sample")


class TiffStore(Store):  # type: ignore[misc]
    """The images of a file as Zarr arrays; see `store`."""

    _writeable = False
    _erasable = False

    def __init__(self, path: str, strict: bool) -> None:
        self._path = os.path.abspath(path)
        self._strict = strict
        self._arrays: dict[str, ImageSource] = {}  # by the path of the array
        self._metadata: dict[str, Json] = {}
        with File(path) as tif:
            self._add_images(pyramids_of(tif))
        everything = {"metadata": dict(self._metadata), "zarr_consolidated_format": 1}
        self._metadata[".zmetadata"] = everything
        self._modified = os.stat(path).st_mtime_ns

    # --- What there is

    def _add_images(self, images: list[Pyramid]) -> None:
        if len(images) == 1:
            self._add_image("", images[0], images[0].levels[0].shape)
            return
        self._add_group("", {})
        for image in images:
            self._add_image(str(image.number), image, images[0].levels[0].shape)

    def _add_image(self, name: str, image: Pyramid, first: tuple[int, ...]) -> None:
        if len(image.levels) == 1:
            self._add_array(name, image.levels[0], first)
            return
        names = [str(level) for level in range(len(image.levels))]
        self._add_group(name, {"multiscales": [{
            "version": "0.1",
            "name": os.path.basename(self._path) + (f" {name}" if name else ""),
            "datasets": [{"path": each} for each in names],
        }]})
        for each, level in zip(names, image.levels, strict=True):
            self._add_array(_below(name, each), level, image.levels[0].shape)

    def _add_group(self, name: str, attributes: Json) -> None:
        self._metadata[_below(name, ".zgroup")] = {"zarr_format": 2}
        self._metadata[_below(name, ".zattrs")] = attributes

    def _add_array(self, name: str, image: ImageSource, first: tuple[int, ...]) -> None:
        """Add an array to a group; `first` is the shape of the group's first array."""
        self._arrays[name] = image
        self._metadata[_below(name, ".zarray")] = {
            "zarr_format": 2, "shape": list(image.shape), "chunks": list(image.chunk),
            "dtype": image.dtype.str, "compressor": None, "filters": None, "order": "F",
            "fill_value": None,  # no chunk is absent
        }
        # Dimensions of a name must have one length in a group.
        own = name.rpartition("/")[2]
        lengths = itertools.zip_longest(image.shape, first[:len(image.shape)])
        self._metadata[_below(name, ".zattrs")] = {"_ARRAY_DIMENSIONS": [
            axis if length == usual else f"{axis}_{own}"
            for axis, (length, usual) in zip(_AXES, lengths)]}

    # --- The mapping

    def __getitem__(self, key: str) -> bytes | memoryview:
        """Return metadata as JSON, or a chunk, whole and uncompressed, in column-major order."""
        if key in self._metadata:
            return json.dumps(self._metadata[key], indent=1).encode()
        found = self._chunk(key)
        if found is None:
            raise KeyError(key)
        image, place = found
        whole: Any = fitted(self._decoded(image, place), image.chunk)
        return memoryview(whole.reshape(-1, order="F")).cast("B").toreadonly()

    def _decoded(self, image: ImageSource, place: tuple[int, ...]) -> Any:
        if image.chunks_are_blocks:
            plane = place[2] if len(place) > 2 else 0
            return image.read_block(place[0], place[1], plane, strict=self._strict)
        starts = [index * length for index, length in zip(place, image.chunk, strict=True)]
        selection = Selection(tuple(
            Axis(start, min(chunk, length - start), 1)
            for start, chunk, length in zip(starts, image.chunk, image.shape, strict=True)))
        return image.read(selection, strict=self._strict)

    def _chunk(self, key: str) -> tuple[ImageSource, tuple[int, ...]] | None:
        name, _, numbers = key.rpartition("/")
        image = self._arrays.get(name)
        if image is None or _CHUNK.fullmatch(numbers) is None:
            return None
        place = tuple(map(int, numbers.split(".")))
        inside = len(place) == len(image.grid) and all(map(int.__lt__, place, image.grid))
        return (image, place) if inside else None

    def __contains__(self, key: object) -> bool:
        return key in self._metadata or (isinstance(key, str) and self._chunk(key) is not None)

    def __iter__(self) -> Iterator[str]:
        yield from self._metadata
        for name, image in self._arrays.items():
            for place in itertools.product(*map(range, image.grid)):
                yield _below(name, ".".join(map(str, place)))

    def __len__(self) -> int:
        return len(self._metadata) + sum(
            math.prod(image.grid) for image in self._arrays.values())

    def __setitem__(self, key: str, value: Any) -> None:
        """Raise ReadOnlyError."""
        raise ReadOnlyError

    def __delitem__(self, key: str) -> None:
        """Raise ReadOnlyError."""
        raise ReadOnlyError

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, TiffStore):
            return NotImplemented
        return self._identity() == other._identity()

    def __hash__(self) -> int:
        return hash(self._identity())

    def _identity(self) -> tuple[Any, ...]:
        return self._path, self._modified, self._strict

    def __dask_tokenize__(self) -> tuple[Any, ...]:
        return self._identity()

    # --- What Zarr would find out by going through all chunks

    def listdir(self, path: str = "") -> list[str]:
        """Return the names below a path."""
        below = f"{path.strip('/')}/" if path.strip("/") else ""
        names = {key[len(below):].partition("/")[0]
                 for key in self._metadata if key.startswith(below)}
        image = self._arrays.get(below[:-1])
        if image is not None:
            names.update(".".join(map(str, place))
                         for place in itertools.product(*map(range, image.grid)))
        return sorted(names)

    def getsize(self, path: str = "") -> int:
        """Return -1: the size of the chunks in the file is not known."""
        return -1

    def close(self) -> None:
        """Close the file where it was kept open. The store can be used again."""
        OPEN_FILES.close(self._path)

    def __repr__(self) -> str:
        return f"<tagbridge.zarr.TiffStore {self._path!r}>"


def _below(name: str, key: str) -> str:
    return f"{name}/{key}" if name else key
