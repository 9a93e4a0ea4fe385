"""All readable tags of real files, written into a new file, read back as they were."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import corpus
import numpy as np
import pytest
import tag_table
import tagbridge

EXAMPLES = sorted((Path(__file__).parents[2] / "examples").glob("*.tif"))

# What others are checked against comes first; ink names follow their number.
FIRST = [262, 259, 65560, 258, 277, 338, 339, 284]
ORDER = FIRST + [tag for tag in tag_table.WRITABLE if tag not in [*FIRST, 333]] + [333]


def values_of(file: np.ndarray) -> dict[int, Any]:
    answers = {tag: tag_table.answer(file, tag) for tag in tag_table.READABLE}
    return {tag: value for tag, value in answers.items() if not isinstance(value, tuple)}


def store(file: np.ndarray, values: dict[int, Any]) -> dict[int, Any]:
    """Stores what can be; returns that. A number of sub-directories stands for their offsets."""
    stored = {}
    for tag in ORDER:
        if tag not in values:
            continue
        value = float(values[tag].size) if tag == 330 else values[tag]
        try:
            tag_table.quiet("setField", file, tag, value)
            stored[tag] = np.asarray([[value]]) if tag == 330 else value
        except tagbridge.Error as error:
            assert error.identifier in tag_table.allowed_errors(tag), tag
    return stored


def check_round_trip(file: np.ndarray, path: Path) -> int:
    values = values_of(file)
    copy = tag_table.quiet("open", str(path), "w")
    try:
        stored = store(copy, values)
        sample = tuple(int(tag_table.quiet("getField", copy, tag)[0, 0]) for tag in (258, 339))
        for tag, value in stored.items():
            read = tag_table.answer(copy, tag)
            expected = tag_table.read_back(tag, value, sample)
            assert tag_table.same(read, expected), (tag, read, expected)
    finally:
        tag_table.quiet("close", copy)
        path.unlink(missing_ok=True)
    return len(stored)


@pytest.mark.parametrize("example", EXAMPLES, ids=lambda path: path.name)
def test_tags_of_the_examples_survive_a_copy(example: Path, tmp_path: Path):
    file = tag_table.quiet("open", str(example), "r")
    try:
        assert check_round_trip(file, tmp_path / "copy.tif") > 10
    finally:
        tag_table.quiet("close", file)


@corpus.needs_corpus
@pytest.mark.parametrize("file", corpus.entries("directories"))
def test_tags_of_real_files_survive_a_copy(file: corpus.Entry, tmp_path: Path):
    corpus.check_directories(
        file, lambda identifier, _: check_round_trip(identifier, tmp_path / "copy.tif")
    )
