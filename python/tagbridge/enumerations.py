"""The values of tags that stand for something, named as the TIFF specification names them."""

from __future__ import annotations

import enum
import operator
from collections.abc import Mapping
from typing import Any, TypeVar


class Compression(enum.IntEnum):
    """How the blocks of an image are compressed (tag 259)."""

    NONE = 1
    CCITT_RLE = 2
    CCITT_GROUP3 = 3
    CCITT_GROUP4 = 4
    LZW = 5
    OLD_JPEG = 6
    JPEG = 7
    ADOBE_DEFLATE = 8
    JBIG_T85 = 9
    JBIG_T43 = 10
    NEXT = 32766
    CCITT_RLEW = 32771
    PACKBITS = 32773
    THUNDERSCAN = 32809
    PIXAR_FILM = 32908
    PIXAR_LOG = 32909
    #: The code that Deflate had before it was registered; ADOBE_DEFLATE is the one to write.
    DEFLATE = 32946
    DCS = 32947
    JBIG = 34661
    SGI_LOG = 34676
    SGI_LOG24 = 34677
    JPEG_2000 = 34712
    LERC = 34887
    LZMA = 34925
    ZSTD = 50000
    WEBP = 50001
    JPEG_XL = 50002


class Photometric(enum.IntEnum):
    """What the samples of a pixel mean (tag 262)."""

    MIN_IS_WHITE = 0
    MIN_IS_BLACK = 1
    RGB = 2
    PALETTE = 3
    MASK = 4
    SEPARATED = 5
    YCBCR = 6
    CIELAB = 8
    ICCLAB = 9
    ITULAB = 10
    CFA = 32803
    LOGL = 32844
    LOGLUV = 32845
    LINEAR_RAW = 34892


class PlanarConfiguration(enum.IntEnum):
    """Whether the samples of a pixel lie together or in planes of their own (tag 284)."""

    CONTIG = 1
    SEPARATE = 2
    CHUNKY = 1
    PLANAR = 2


class SampleFormat(enum.IntEnum):
    """The type of a sample (tag 339)."""

    UINT = 1
    INT = 2
    IEEE_FP = 3
    VOID = 4
    COMPLEX_INT = 5
    COMPLEX_IEEE_FP = 6
    IEEEFP = 3


class Predictor(enum.IntEnum):
    """What is done to samples before LZW or Deflate (tag 317)."""

    NONE = 1
    HORIZONTAL = 2
    FLOATING_POINT = 3


class ExtraSample(enum.IntEnum):
    """What a sample beyond those of the photometric interpretation means (tag 338)."""

    UNSPECIFIED = 0
    ASSOCIATED_ALPHA = 1
    UNASSOCIATED_ALPHA = 2


class ResolutionUnit(enum.IntEnum):
    """The unit of XResolution and YResolution (tag 296)."""

    NONE = 1
    INCH = 2
    CENTIMETER = 3


class Orientation(enum.IntEnum):
    """Where row 0 and column 0 are to be shown, in this order (tag 274)."""

    TOP_LEFT = 1
    TOP_RIGHT = 2
    BOTTOM_RIGHT = 3
    BOTTOM_LEFT = 4
    LEFT_TOP = 5
    RIGHT_TOP = 6
    RIGHT_BOTTOM = 7
    LEFT_BOTTOM = 8


class FillOrder(enum.IntEnum):
    """Which bit of a byte holds the first of its pixels (tag 266)."""

    MSB_TO_LSB = 1
    LSB_TO_MSB = 2


class YCbCrPositioning(enum.IntEnum):
    """Where subsampled chroma lies among the luma samples (tag 531)."""

    CENTERED = 1
    COSITED = 2


class InkSet(enum.IntEnum):
    """Which inks a separated image has (tag 332)."""

    CMYK = 1
    NOT_CMYK = 2


class SubfileType(enum.IntFlag):
    """What a directory is among those of its file (tag 254)."""

    REDUCED_IMAGE = 1
    PAGE = 2
    MASK = 4


Coded = enum.IntEnum | enum.IntFlag

#: The enumeration of a tag's values, by the tag's name.
OF_TAG: Mapping[str, type[Coded]] = {
    "Compression": Compression,
    "PhotometricInterpretation": Photometric,
    "PlanarConfiguration": PlanarConfiguration,
    "SampleFormat": SampleFormat,
    "Predictor": Predictor,
    "ExtraSamples": ExtraSample,
    "ResolutionUnit": ResolutionUnit,
    "Orientation": Orientation,
    "FillOrder": FillOrder,
    "YCbCrPositioning": YCbCrPositioning,
    "InkSet": InkSet,
    "SubfileType": SubfileType,
}

# What people call things apart from the members' names.
_ALSO: Mapping[tuple[type, str], int] = {
    (Compression, "deflate"): Compression.ADOBE_DEFLATE,
    (Compression, "group3"): Compression.CCITT_GROUP3,
    (Compression, "group4"): Compression.CCITT_GROUP4,
}

_Member = TypeVar("_Member", bound=int)


def _plain(name: str) -> str:
    return "".join(letter for letter in name.lower() if letter.isalnum())


def named(kind: type[_Member], value: int) -> _Member | int:
    """Return the member of ``kind`` with that value, the number itself when there is none."""
    try:
        return kind(value)
    except ValueError:
        return value


def coded(kind: type[Coded], value: Any) -> int:
    """Return the number that a member, a value or a name stands for.

    Names are compared without regard to case, blanks, hyphens and underscores. ``"deflate"`` is
    the registered code, 8. Raises ValueError for a name that ``kind`` does not have and TypeError
    for what is neither a number nor text.
    """
    if not isinstance(value, str):
        return operator.index(value)
    wanted = _plain(value)
    if (kind, wanted) in _ALSO:
        return int(_ALSO[kind, wanted])
    for name, member in kind.__members__.items():
        if _plain(name) == wanted:
            return int(member)
    names = ", ".join(name.lower() for name in kind.__members__)
    raise ValueError(f"{value!r} is none of {names}")
