"""A directory of an open file: an image with its tags."""

from __future__ import annotations

import math
from collections.abc import Callable
from io import UnsupportedOperation
from typing import TYPE_CHECKING, Any

import numpy as np

from ._messages import Error
from .blocks import Blocks
from .enumerations import Compression, Photometric, PlanarConfiguration, SampleFormat, named
from .handle import Handle, Place
from .html import directory_html, directory_png
from .indexing import Selection, parse_key
from .layout import Layout, plain_metadata
from .reading import read_image
from .rgba import read_rgba
from .tags import SUB_IFD, Tags

if TYPE_CHECKING:
    from .file import File

Progress = bool | Callable[[int, int], object] | None
_SGI_LOG_DATA_FORMAT = 65560
_LOG_AS_FLOAT = 0


class Directory:
    """A directory of an open file: an image with its tags.

    It is a view: making one reads nothing, and it lasts as long as the file is open. Index it like
    an array, ``page[100:200, :50]``: only the blocks that are touched are decoded.
    """

    def __init__(self, file: File, place: Place) -> None:
        self._file = file
        self._place = place
        self._known_layout: tuple[Layout, dict[str, Any]] | None = None
        self._tags: Tags | None = None

    # --- What others in the package need

    def _current(self) -> Handle:
        """Take the file's lock for a with statement, with this directory current."""
        return self._file._at(self._place)

    def _require_editable(self, what: str) -> None:
        self._file._require("r+", f"{what} can be changed in mode 'r+' only")
        if self._place.offsets and what == "tags":
            raise UnsupportedOperation("tags of a sub-directory cannot be changed in place")

    def _forget_layout(self) -> None:
        self._known_layout = None

    def _start_reading(self) -> None:
        """Load the directory anew where libtiff decodes rightly only the first time."""
        if self._layout.compression == Compression.OLD_JPEG:
            with self._current() as handle:
                handle.flush()
                handle.reload()

    def _prepare(self, handle: Handle) -> None:
        """Have the codec of a LogL or LogLuv image give floats, once after each load."""
        if self._layout.is_log and "log" not in handle.notes:
            self._choose_floats(handle)

    def _choose_floats(self, handle: Handle) -> None:
        handle.call("setField", _SGI_LOG_DATA_FORMAT, _LOG_AS_FLOAT, outputs=0)
        handle.notes.add("log")

    def _layout_and_metadata(self) -> tuple[Layout, dict[str, Any]]:
        self._file._require_reading()
        if self._known_layout is not None:
            return self._known_layout
        with self._current() as handle:
            if self._known_layout is None:
                metadata = plain_metadata(handle.call("retrieveMetadata"))
                if metadata["PhotometricInterpretation"] in (Photometric.LOGL, Photometric.LOGLUV):
                    self._choose_floats(handle)
                    metadata = plain_metadata(handle.call("retrieveMetadata"))
                unit = "Tiles" if metadata["isTiled"] else "Strips"
                blocks = int(handle.call(f"numberOf{unit}").item())
                self._known_layout = Layout.of(metadata, blocks), metadata
            return self._known_layout

    @property
    def _layout(self) -> Layout:
        return self._layout_and_metadata()[0]

    # --- What it is

    @property
    def file(self) -> File:
        """The open file."""
        return self._file

    @property
    def index(self) -> int | None:
        """The place in the file's chain, counted from 0; None for a sub-directory."""
        return None if self._place.offsets else self._place.number

    @property
    def shape(self) -> tuple[int, ...]:
        """Rows and columns of the image, and samples of a pixel when there are several."""
        layout = self._layout
        if layout.is_ycbcr:
            return layout.rows, layout.columns, 3
        return (layout.rows, layout.columns, *layout.trailing)

    @property
    def dtype(self) -> np.dtype[Any]:
        """The dtype of `read()`'s result. Raises Error when the module cannot read the samples."""
        layout = self._layout
        if layout.is_ycbcr:
            return np.dtype(np.uint8)
        if layout.dtype is not None:
            return layout.dtype
        with self._current() as handle:
            block = handle.call(f"readEncoded{layout.unit}", 0)  # says what is the matter
        return np.dtype(block.dtype)

    @property
    def ndim(self) -> int:
        """2, or 3 when a pixel has several samples."""
        return len(self.shape)

    @property
    def size(self) -> int:
        """The number of samples."""
        return math.prod(self.shape)

    @property
    def nbytes(self) -> int:
        """The number of bytes of `read()`'s result."""
        return self.size * self.dtype.itemsize

    @property
    def compression(self) -> Compression | int:
        """How the blocks are compressed; an int for a code without a name."""
        return named(Compression, self._layout.compression)

    @property
    def photometric(self) -> Photometric | int:
        """What the samples mean; an int for a code without a name."""
        return named(Photometric, self._layout.photometric)

    @property
    def planar(self) -> PlanarConfiguration | int:
        """Whether samples lie together or in planes; an int for a code without a name."""
        return named(PlanarConfiguration, self._layout.planar)

    @property
    def sample_format(self) -> SampleFormat | int:
        """The type of the samples; an int for a code without a name."""
        return named(SampleFormat, self._layout.sample_format)

    @property
    def tiled(self) -> bool:
        """Whether the image is stored in tiles, else in strips."""
        return self._layout.tiled

    @property
    def block_shape(self) -> tuple[int, int]:
        """Rows and columns of a strip or tile as stored; those at the edge may hold less."""
        layout = self._layout
        return layout.block_rows, layout.block_columns

    @property
    def blocks(self) -> Blocks:
        """The strips or tiles in file order, plane after plane: a sequence of Block."""
        return Blocks(self, self._layout)

    @property
    def tags(self) -> Tags:
        """The tags, a mapping by name or number; can be assigned to in mode ``"r+"``."""
        self._file._require_reading()
        if self._tags is None:
            self._tags = Tags(self)
        return self._tags

    @property
    def metadata(self) -> dict[str, Any]:
        """The sixteen fields of "retrieveMetadata": int, bool (isTiled), tuple of int."""
        return dict(self._layout_and_metadata()[1])

    @property
    def subdirectories(self) -> tuple[Directory, ...]:
        """The directories below this one, such as the levels of a pyramid."""
        if SUB_IFD not in self.tags:
            return ()
        offsets = [offset for offset in self.tags[SUB_IFD].tolist() if offset]
        return tuple(
            Directory(self._file, Place(self._place.number, (*self._place.offsets, offset)))
            for offset in offsets
        )

    # --- Reading

    def read(
        self,
        out: np.ndarray[Any, Any] | None = None,
        *,
        raw: bool = False,
        strict: bool = False,
        threads: int | None = None,
        progress: Progress = None,
    ) -> np.ndarray[Any, Any]:
        """Return the whole image, an array of `shape` and `dtype` in Fortran order.

        Bits come as ``bool``, YCbCr as RGB ``uint8``. A block that cannot be decoded is a warning
        and holds zeros.

        :param out: an array of this shape and dtype in any layout, filled and returned
        :param raw: YCbCr as stored: three planes, each value repeated over the pixels it is for
        :param strict: raise DecodeError instead of warning
        :param threads: how many decode at the same time; None for as many as are worth it
        :param progress: True for a bar on standard error, or a function that is called with the
            number of blocks done and that of all
        :raises Error: the module refuses the image
        :raises ValueError: ``out`` has another shape, or ``threads`` is not positive
        :raises TypeError: ``out`` has another dtype
        """
        selection = Selection.whole(self._shape_as_read(raw))
        return read_image(self, selection, out=out, raw=raw, strict=strict, threads=threads,
                          progress=progress)

    def _shape_as_read(self, raw: bool) -> tuple[int, ...]:
        layout = self._layout
        return (layout.rows, layout.columns, *layout.trailing) if raw else self.shape

    def __getitem__(self, key: Any) -> Any:
        """Return a part of the image as NumPy would: integers, slices and an ellipsis.

        :raises IndexError: an integer beyond the edge, or another kind of index
        """
        selection = parse_key(key, self.shape)
        return selection.finish(read_image(self, selection))

    __iter__ = None

    def __array__(self, dtype: Any = None, copy: bool | None = None) -> np.ndarray[Any, Any]:
        array = self.read()
        return array if dtype is None else array.astype(dtype, copy=False)

    def rgba(self) -> np.ndarray[Any, Any]:
        """Return rows x columns x 4 ``uint8``: red, green, blue and alpha as libtiff converts it.

        Row 0 and column 0 are those of `read()`, whatever Orientation says.

        :raises Error: libtiff cannot convert the image
        """
        return read_rgba(self)

    # --- Being shown, kept, sent

    def __repr__(self) -> str:
        where = f"sub-directory of {self._place.number}" if self._place.offsets else str(self.index)
        return f"<tagbridge.Directory {where} of {self._file.name!r}{self._summary()}>"

    def _summary(self) -> str:
        try:
            sizes = " x ".join(map(str, self.shape))
            return f": {sizes} {self.dtype}, {_name(self.compression)}"
        except (Error, ValueError, OSError):
            return ""

    def _repr_html_(self) -> str:
        return directory_html(self)

    def _repr_png_(self) -> bytes | None:
        return directory_png(self)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Directory):
            return NotImplemented
        return self._file is other._file and self._place == other._place

    def __hash__(self) -> int:
        return hash((id(self._file), self._place))

    def __reduce__(self) -> tuple[Any, ...]:
        return Directory, (self._file, self._place)


def _name(value: Any) -> str:
    return getattr(value, "name", str(value))
