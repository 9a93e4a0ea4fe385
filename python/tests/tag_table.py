"""What docs/tags.md says, in a form that tests can ask.

The page gives the tags, their names and whether they can be read and written; what a stored value
reads back as, and which errors a tag may raise, is told here once more, independently of the module.
"""

from __future__ import annotations

import warnings
from pathlib import Path
from typing import Any, NamedTuple

import numpy as np
import tagbridge

PAGE = Path(__file__).parents[2] / "docs" / "tags.md"


class Row(NamedTuple):
    tag: int
    name: str
    returned: str
    accepted: str
    checks: str

    @property
    def readable(self) -> bool:
        return not self.returned.startswith("refused")

    @property
    def writable(self) -> bool:
        return not self.accepted.startswith("refused")


def _rows() -> dict[int, Row]:
    cells = (
        [cell.strip() for cell in line.split("|")[1:-1]]
        for line in PAGE.read_text(encoding="utf-8").splitlines()
        if line.startswith("| ") and line[2].isdigit()
    )
    return {int(tag): Row(int(tag), *words) for tag, *words in cells}


ROWS = _rows()
READABLE = [tag for tag, row in ROWS.items() if row.readable]
WRITABLE = [tag for tag, row in ROWS.items() if row.writable]

# --- Kinds of values

LONGS = {254, 256, 257, 278, 292, 293, 322, 323, 65537, 65538, 65557, 65560}
SHORTS = {258, 259, 262, 263, 266, 274, 277, 280, 281, 284, 296, 317, 332, 334, 339, 531}
FLOATS = {282, 283, 286, 287}
PAIRS = {297, 321, 336, 530}
TEXTS = {269, 270, 271, 272, 285, 305, 315, 316, 337, 33432, 34737}
FLOAT_ARRAYS = {318, 319, 529, 532}
DOUBLE_ARRAYS = {33550, 34264, 34736, 50844}
BYTES = {33723, 34377, 34675}
SAMPLE_RANGES = {340, 341}

# --- Errors that a tag may raise, without the component "KORVAL:pictoria:Tiff:"

SCALAR = {"tagValueNotDoublePrecisionScalar"}
ARRAY = {"tagValueNotDoublePrecisionArray"}
NEEDED = {"tagRetrievalBeforeWriteFailed"}
SEPARATED = NEEDED | {"photometricInterpretationNotSeparated"}
COLORIMETRY = NEEDED | {"badTagUsedWithPhotometric"}
COUNT = {"badTagValueCount"}
ZERO = {"zeroLengthDimension"}

_FURTHER: dict[int, set[str]] = {
    256: ZERO, 257: ZERO, 278: ZERO,
    322: ZERO | {"badTileDimension"}, 323: ZERO | {"badTileDimension"},
    258: NEEDED | {
        "badBitsPerSampleValue", "badPhotometricLabPaletteBitsPerSampleCombination",
        "doNotSetForLogLuv",
    },
    259: NEEDED | {
        "badBitsPerSampleCompressionCombination", "ccittNotSupportedForCreating",
        "unsupportedCompressionScheme",
    },
    263: COLORIMETRY | {"badThresholdingValue"},
    277: NEEDED | {"doNotSetForLogLuv", "badSamplesPerPixelBitsPerSampleCombination"},
    284: NEEDED | {"badPlanarConfigurationValue", "badPhotometricPlanarConfigurationCombination"},
    301: COLORIMETRY | ARRAY | {"badTransferFunctionSize", "badTransferFunctionSppCombination"},
    306: {"argumentWasNotChar", "dateTimeTooLong"},
    318: COLORIMETRY, 319: COLORIMETRY, 532: COLORIMETRY,
    320: NEEDED | {"badColorMap", "colorMapValuesNotNormalized"},
    332: SEPARATED, 336: SEPARATED, 337: SEPARATED,
    333: SEPARATED | {"notCellString", "badNumberOfInkNames"},
    334: SEPARATED | {"invalidNumberOfInksValue"},
    338: ARRAY,
    339: NEEDED | {
        "doNotSetForLogLuv", "badValue", "badSampleFormatfor1Bps", "sampleFormatValueNotSupported",
    },
    700: {"badXmlPacketTagType", "lengthTooShort"},
    33550: COUNT, 34264: COUNT, 50844: COUNT,
    33922: {"bad2DtagValue"}, 34735: {"bad2DtagValue"},
    34377: {"lengthTooShort"},
    37439: SCALAR | ARRAY,
    65560: NEEDED | {
        "badCompressionForSgiLogDataFmt", "tagRetrievalFailed", "fmtAlreadySet",
        "invalidSGILogDataFmtValue",
    },
}  # fmt: skip


def _of_kind(tag: int) -> set[str]:
    if tag in LONGS | SHORTS:
        return SCALAR
    if tag in FLOATS:
        return SCALAR | ARRAY
    if tag in PAIRS | FLOAT_ARRAYS:
        return ARRAY | COUNT
    if tag in TEXTS:
        return {"argumentWasNotChar"}
    if tag in DOUBLE_ARRAYS:
        return ARRAY
    if tag in BYTES:
        return {"badUninterpretedTagType"}
    if tag in SAMPLE_RANGES:
        return SCALAR | ARRAY | NEEDED | {
            "badSMinMaxValueForBiLevelImage", "badSampleFormatBitsPerSampleCombination",
        }
    return set()


def allowed_errors(tag: int) -> set[str]:
    """The identifiers that setField may raise for the tag in a file open for writing."""
    if tag not in ROWS:
        names = {"unrecognizedTagNumber"}
    elif not ROWS[tag].writable:
        names = {"unsupportedTag" if 32995 <= tag <= 32998 else "unrecognizedTagNumber"}
    else:
        names = _of_kind(tag) | _FURTHER.get(tag, set()) | {"unableToWriteTag"}
    return {f"KORVAL:pictoria:Tiff:{name}" for name in names} | {
        "KORVAL:pictoria:validate:argumentOutOfBounds"
    }


# --- What getField returns for a value that setField has taken


def _cut(value: Any) -> np.ndarray:
    return np.trunc(np.nan_to_num(np.asarray(value, np.float64))) + 0.0


def _row(values: np.ndarray) -> np.ndarray:
    return np.atleast_2d(values.ravel(order="F"))


def read_back(tag: int, value: Any, sample: tuple[int, int] = (8, 1)) -> Any:
    """The value as the tables say. `sample` are BitsPerSample and SampleFormat."""
    if tag in LONGS | SHORTS | PAIRS | {338}:
        return _row(_cut(value))
    if tag in FLOATS | FLOAT_ARRAYS:
        return _row(np.asarray(value, np.float32).astype(np.float64))
    if tag in DOUBLE_ARRAYS | {37439}:
        return _row(np.asarray(value, np.float64))
    if tag in TEXTS:
        return text(value).split("\0")[0]
    if tag == 306:
        return text(value).split("\0")[0].ljust(19)
    if tag == 700:
        return text(value)
    if tag in BYTES:
        return _row(np.asarray(value, np.uint8))
    if tag in (33922, 34735):
        return np.asarray(value) if tag == 33922 else _cut(value)
    if tag == 301:
        curves = _cut(value)
        return curves if curves.shape[1] == 3 and curves.shape[0] > 1 else _row(curves)
    if tag == 320:
        return _cut(np.asarray(value) * 65535.0 + 0.5) / 65535.0
    if tag == 330:
        return np.zeros((1, int(_cut(_first(value)))), np.uint64)
    if tag == 333:
        return [text(name).split("\0")[0] for name in np.asarray(value).ravel(order="F")]
    assert tag in SAMPLE_RANGES
    return _sample_range(np.asarray(value), *sample)


def _first(value: Any) -> float:
    """The first element as a number; 0 when there is none."""
    if isinstance(value, str):
        return ord(value[0]) if value else 0
    if isinstance(value, np.ndarray) and value.dtype.kind in "biuf" and value.size:
        return float(value.ravel(order="F")[0])
    return 0


def _sample_range(value: np.ndarray, bits: int, form: int) -> np.ndarray:
    if bits != 1 and form not in (1, 2, 3):
        return np.zeros((1, 1))
    if form == 3 and bits == 32:
        return _row(value.astype(np.float32).astype(np.float64))
    return _row(value) if bits == 1 or form == 3 else _row(_cut(value))


def text(value: Any) -> str:
    """The characters of a char array in storage order."""
    if isinstance(value, str):
        return value
    return "".join(c or "\0" for c in np.asarray(value).ravel(order="F"))


def same(a: Any, b: Any) -> bool:
    """Equality of two values of getField, NaN being equal to itself."""
    if isinstance(a, str) or isinstance(b, str):
        return isinstance(a, str) and isinstance(b, str) and a == b
    if isinstance(b, list):
        return list(a.ravel(order="F")) == b
    if a.dtype == object:
        return b.dtype == object and list(a.ravel()) == list(b.ravel())
    return a.dtype == b.dtype and a.shape == b.shape and np.array_equal(a, b, equal_nan=True)


# --- Calls


def quiet(*inputs: Any) -> Any:
    """A call whose warnings nobody wants to see."""
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", tagbridge.Warning)
        return tagbridge.call(*inputs)


def answer(file: np.ndarray, tag: int) -> Any:
    """What getField returns, or the identifier of its error in a tuple."""
    try:
        return quiet("getField", file, tag)
    except tagbridge.Error as error:
        return (error.identifier,)


def directory(file: np.ndarray) -> dict[int, Any]:
    """The answers for all tags of the current directory."""
    return {tag: answer(file, tag) for tag in READABLE}


def difference(a: dict[int, Any], b: dict[int, Any]) -> list[int]:
    """The tags whose answers differ."""
    return [
        tag
        for tag in a
        if (a[tag] != b[tag] if isinstance(a[tag], tuple) or isinstance(b[tag], tuple)
            else not same(a[tag], b[tag]))
    ]  # fmt: skip
