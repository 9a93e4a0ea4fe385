"""Words for what the demonstration shows."""

from __future__ import annotations

from collections.abc import Mapping

from .._messages import Error
from ..directory import Directory
from .images import PlaneStatistics

COMPRESSIONS = {
    1: "uncompressed", 2: "CCITT RLE", 3: "CCITT Group 3", 4: "CCITT Group 4", 5: "LZW",
    6: "old-style JPEG", 7: "JPEG", 8: "Deflate", 32766: "NeXT", 32771: "CCITT RLE words",
    32773: "PackBits", 32809: "ThunderScan", 32909: "Pixar film", 32946: "Deflate (old code)",
    34661: "JBIG", 34676: "SGILog", 34677: "SGILog 24", 34887: "LERC", 34925: "LZMA",
    33003: "JPEG 2000 YCbCr", 33005: "JPEG 2000 RGB", 34712: "JPEG 2000", 50000: "ZSTD", 50001: "WebP",
}
PHOTOMETRICS = {
    0: "min-is-white", 1: "min-is-black", 2: "RGB", 3: "palette", 4: "mask", 5: "separated",
    6: "YCbCr", 8: "CIELab", 9: "ICCLab", 10: "ITULab", 32844: "LogL", 32845: "LogLuv",
}
CLASSES = {"bool": "logical", "float32": "single", "float64": "double"}
SHOWN_NOTICES = 3


def size(count: float) -> str:
    """Returns a number of bytes in the unit that suits it."""
    for unit in ("B", "kB", "MB", "GB"):
        if abs(count) < 1000 or unit == "GB":
            break
        count /= 1000
    return f"{count:.0f} {unit}" if unit == "B" else f"{count:.3g} {unit}"


def throughput(count: int, seconds: float) -> str:
    """Returns a number of bytes in a second."""
    return f"{size(count / seconds)}/s" if seconds > 0 else "0 B/s"


def describe(page: Directory, dtype: str | None) -> str:
    """Returns one line on the shape, class, layout and compression of an image."""
    rows, columns, *samples = page.shape
    shape = " x ".join(map(str, (columns, rows, *samples)))
    blocks = ("tiles {1} x {0}" if page.tiled else "strips of {0}").format(*page.block_shape)
    photometric = PHOTOMETRICS.get(page.photometric, f"photometric {page.photometric}")
    if page.metadata["YCbCrSubsampling"]:
        photometric += " {}:{}".format(*page.metadata["YCbCrSubsampling"])
    parts = [f"{shape} {CLASSES.get(dtype or '', dtype) or '(no class)'}", photometric,
             blocks + (", planes apart" if page.planar == 2 else ""),
             COMPRESSIONS.get(page.compression, f"compression {page.compression}")]
    return ", ".join(parts)


def unit(page: Directory) -> str:
    """Returns what the blocks of a directory are."""
    return "tile" if page.tiled else "strip"


def describe_plane(plane: int, statistics: PlaneStatistics) -> str:
    """Returns a line on the samples of a plane."""
    return (f"plane {plane + 1}: min {statistics.minimum:g}, mean {statistics.mean:g}, "
            f"max {statistics.maximum:g}")


def counted(count: int, noun: str) -> str:
    """Returns "1 tile", "2 tiles", "2 directories"."""
    if count == 1:
        return f"1 {noun}"
    return f"{count} {noun[:-1]}ies" if noun.endswith("y") else f"{count} {noun}s"


def describe_error(error: Exception) -> list[str]:
    """Returns the lines that tell an error: identifier, text, and what libtiff said."""
    if not isinstance(error, Error):
        return [f"{type(error).__name__}: {error}"]
    return [error.identifier, str(error), *(f"libtiff: {said}" for said in error.diagnostics)]


def describe_notices(counts: Mapping[str, int]) -> list[str]:
    """Returns a line for each of the first notices and one for how many there are besides."""
    lines = [text if count == 1 else f"{text} ({count} times)" for text, count in counts.items()]
    more = len(lines) - SHOWN_NOTICES
    return lines if more <= 0 else [*lines[:SHOWN_NOTICES], f"and {counted(more, 'other message')}"]
