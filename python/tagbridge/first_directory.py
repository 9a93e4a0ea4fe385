"""What a file has of its first directory."""

from __future__ import annotations

import abc
from typing import TYPE_CHECKING, Any

import numpy as np

from .blocks import Blocks
from .enumerations import Compression, Photometric, PlanarConfiguration, SampleFormat
from .tags import Tags

if TYPE_CHECKING:
    from .directory import Directory, Progress


class FirstDirectory(abc.ABC):
    """The attributes of a directory, for what has a first one: see Directory."""

    @abc.abstractmethod
    def __getitem__(self, index: int) -> Directory:
        """Return a directory."""

    @property
    def shape(self) -> tuple[int, ...]:
        """That of the first directory: see Directory.shape."""
        return self[0].shape

    @property
    def dtype(self) -> np.dtype[Any]:
        """That of the first directory: see Directory.dtype."""
        return self[0].dtype

    @property
    def ndim(self) -> int:
        """That of the first directory: see Directory.ndim."""
        return self[0].ndim

    @property
    def size(self) -> int:
        """That of the first directory: see Directory.size."""
        return self[0].size

    @property
    def nbytes(self) -> int:
        """That of the first directory: see Directory.nbytes."""
        return self[0].nbytes

    @property
    def compression(self) -> Compression | int:
        """That of the first directory: see Directory.compression."""
        return self[0].compression

    @property
    def photometric(self) -> Photometric | int:
        """That of the first directory: see Directory.photometric."""
        return self[0].photometric

    @property
    def planar(self) -> PlanarConfiguration | int:
        """That of the first directory: see Directory.planar."""
        return self[0].planar

    @property
    def sample_format(self) -> SampleFormat | int:
        """That of the first directory: see Directory.sample_format."""
        return self[0].sample_format

    @property
    def tiled(self) -> bool:
        """That of the first directory: see Directory.tiled."""
        return self[0].tiled

    @property
    def block_shape(self) -> tuple[int, int]:
        """That of the first directory: see Directory.block_shape."""
        return self[0].block_shape

    @property
    def blocks(self) -> Blocks:
        """That of the first directory: see Directory.blocks."""
        return self[0].blocks

    @property
    def tags(self) -> Tags:
        """That of the first directory: see Directory.tags."""
        return self[0].tags

    @property
    def metadata(self) -> dict[str, Any]:
        """That of the first directory: see Directory.metadata."""
        return self[0].metadata

    @property
    def subdirectories(self) -> tuple[Directory, ...]:
        """That of the first directory: see Directory.subdirectories."""
        return self[0].subdirectories

    def read(
        self,
        out: np.ndarray[Any, Any] | None = None,
        *,
        raw: bool = False,
        strict: bool = False,
        threads: int | None = None,
        progress: Progress = None,
    ) -> np.ndarray[Any, Any]:
        """Return the image of the first directory: see Directory.read."""
        return self[0].read(out, raw=raw, strict=strict, threads=threads, progress=progress)

    def rgba(self) -> np.ndarray[Any, Any]:
        """Return the first directory's image as RGBA: see Directory.rgba."""
        return self[0].rgba()

    def __array__(self, dtype: Any = None, copy: bool | None = None) -> np.ndarray[Any, Any]:
        return self[0].__array__(dtype)
