"""Some examples of what `./dev fuzz file_layer` looks for, the same each time."""

from __future__ import annotations

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "fuzz"))

import fuzz_file_layer  # noqa: E402


# Of properties that open many files that are none, which takes a second each.
FEWER = {"reading_ends": 10, "commands_end": 12, "edits_keep_the_pixels": 8, "odd_streams_are_read": 6}


@pytest.mark.parametrize("check", fuzz_file_layer.PROPERTIES, ids=lambda check: check.__name__)
def test_examples_hold(check):
    fuzz_file_layer.try_examples(check, FEWER.get(check.__name__, 20), seed=1)


def test_a_damaged_file_differs_and_the_same_damage_is_the_same():
    damage = (0, [("field", 5, 3), ("bit", 100, 1)])
    assert fuzz_file_layer.damaged((0, [])) == fuzz_file_layer.FILES[0]
    assert fuzz_file_layer.damaged(damage) == fuzz_file_layer.damaged(damage)
    assert fuzz_file_layer.damaged(damage) != fuzz_file_layer.FILES[0]
