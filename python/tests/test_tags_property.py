"""Any value of any class and shape for any tag is stored as the tables say or refused as they say."""

from __future__ import annotations

import itertools
from pathlib import Path
from typing import Any

import hypothesis.extra.numpy as hnp
import numpy as np
import pytest
import tag_table
import tagbridge
from hypothesis import given, settings
from hypothesis import strategies as st

# The tags by which a new file becomes one of these kinds.
KINDS: dict[str, list[tuple[int, Any]]] = {
    "empty": [],
    "gray": [(262, 1), (258, 8), (277, 1), (339, 1)],
    "signed": [(262, 1), (258, 16), (277, 1), (339, 2)],
    "float": [(262, 1), (258, 32), (277, 1), (339, 3)],
    "double": [(262, 1), (258, 64), (277, 1), (339, 3)],
    "fax": [(262, 0), (258, 1), (277, 1), (339, 1), (259, 4)],
    "rgb": [(262, 2), (258, 8), (277, 3), (259, 5)],
    "rgba": [(262, 2), (258, 16), (277, 4), (338, 2), (259, 8)],
    "palette": [(262, 3), (258, 8), (277, 1)],
    "separated": [(262, 5), (258, 8), (277, 4), (334, 4)],
    "ycbcr": [(262, 6), (258, 8), (277, 3), (259, 7)],
    "lab": [(262, 8), (258, 8), (277, 3)],
    "log": [(262, 32844), (259, 34676), (256, 4)],
}

NUMBERS = st.one_of(
    st.integers(-3, 40).map(float),
    st.sampled_from(
        [0.5, -0.5, -1.0, 255.9, 256.0, 65535.9, 65536.0, 4294967295.0, 4294967296.0, 1e39, 1e300,
         -1e300, np.nan, np.inf, -np.inf, 32773.0, 34676.0, 32845.0]
    ),
    st.floats(allow_nan=True, allow_infinity=True),
    st.floats(0, 1),
)  # fmt: skip

SHAPES = st.one_of(
    st.just((1, 1)),
    st.sampled_from(
        [(1, 2), (2, 1), (1, 3), (1, 6), (2, 6), (0, 6), (3, 4), (0, 4), (4, 4), (1, 92), (0, 0),
         (256, 3), (1, 256), (256, 1), (2, 1), (2, 3), (1, 6, 2)]
    ),
    hnp.array_shapes(min_dims=2, max_dims=3, min_side=0, max_side=5),
)  # fmt: skip

CLASSES = ["bool", "int8", "uint8", "int16", "uint16", "int32", "uint32", "int64", "uint64", "f4"]

TEXTS = st.text(st.characters(max_codepoint=255), max_size=24)


@st.composite
def doubles(draw: st.DrawFn) -> np.ndarray:
    shape = draw(SHAPES)
    fill = draw(NUMBERS)
    array = np.full(shape, fill, np.float64, order="F")
    for index, element in enumerate(draw(st.lists(NUMBERS, max_size=6))):
        if index < array.size:
            array.ravel(order="K")[index] = element
    return array


@st.composite
def other_arrays(draw: st.DrawFn) -> np.ndarray:
    shape = draw(SHAPES)
    kind = np.dtype(draw(st.sampled_from(CLASSES)))
    return np.full(shape, draw(st.integers(0, 100)), kind, order="F")


VALUES = st.one_of(
    doubles(),
    NUMBERS.map(lambda number: np.full((1, 1), number)),
    other_arrays(),
    TEXTS,
    st.binary(max_size=20).map(lambda data: np.frombuffer(data, np.uint8).reshape(1, -1)),
    st.lists(TEXTS, max_size=5),
    st.just({"field": 1.0}),
)
TAGS = st.one_of(
    st.sampled_from(tag_table.WRITABLE),
    st.sampled_from(tag_table.WRITABLE),
    st.sampled_from(list(tag_table.ROWS)),
    st.integers(0, 70000),
)

names = itertools.count()


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return tmp_path_factory.mktemp("tags")


def sample_of(file: np.ndarray) -> tuple[int, int]:
    return tuple(int(tag_table.quiet("getField", file, tag)[0, 0]) for tag in (258, 339))


def check_one(file: np.ndarray, tag: int, value: Any) -> None:
    """One setField, and everything that the tables say about it."""
    before = tag_table.directory(file)
    sample = sample_of(file)
    try:
        tag_table.quiet("setField", file, tag, value)
    except tagbridge.Error as error:
        assert error.identifier in tag_table.allowed_errors(tag)
        if not error.identifier.endswith(":unableToWriteTag"):
            assert tag_table.difference(before, tag_table.directory(file)) == []
        return
    assert tag in tag_table.WRITABLE
    if tag in tag_table.READABLE:
        read = tag_table.quiet("getField", file, tag)
        expected = tag_table.read_back(tag, value, sample)
        assert tag_table.same(read, expected), (read, expected)


@settings(max_examples=400, deadline=None)
@given(kind=st.sampled_from(sorted(KINDS)), steps=st.lists(st.tuples(TAGS, VALUES), max_size=6))
def test_every_value_is_stored_or_refused_as_the_tables_say(
    folder: Path, kind: str, steps: list[tuple[int, Any]]
):
    path = folder / f"{next(names)}.tif"
    file = tag_table.quiet("open", str(path), "w")
    try:
        for tag, value in KINDS[kind]:
            tag_table.quiet("setField", file, tag, value)
        for tag, value in steps:
            check_one(file, tag, value)
    finally:
        tag_table.quiet("close", file)
        path.unlink(missing_ok=True)
