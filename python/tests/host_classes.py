"""The classes of host arrays, for tests of the conversions."""

from __future__ import annotations

from typing import Any

import numpy as np

CLASS_CODES = {
    "logical": (3, np.bool_),
    "double": (6, np.float64),
    "single": (7, np.float32),
    "int8": (8, np.int8),
    "uint8": (9, np.uint8),
    "int16": (10, np.int16),
    "uint16": (11, np.uint16),
    "int32": (12, np.int32),
    "uint32": (13, np.uint32),
    "int64": (14, np.int64),
    "uint64": (15, np.uint64),
}
CELL, STRUCT, CHAR = 1, 2, 4


def units(text: str) -> bytes:
    return text.encode("utf-16-le", "surrogatepass")


def elements(value: Any, dtype: Any) -> bytes:
    return np.asarray(value, dtype).tobytes(order="F")
