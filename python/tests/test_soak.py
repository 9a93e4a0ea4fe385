"""What ./dev soak finds: memory that grows, descriptors that are left."""

from __future__ import annotations

import os
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "soak"))

import parts  # noqa: E402
from kinds import EVERY_OPERATION, Kind, Session  # noqa: E402
from material import Files  # noqa: E402
from steadiness import IS_WATCHED, slope  # noqa: E402


@pytest.fixture
def only(monkeypatch):
    """A function that makes one kind of call the only one."""
    def replace(run):
        kind = Kind("the one at fault", run, frozenset(EVERY_OPERATION))
        monkeypatch.setattr(Session, "kinds", lambda self: [kind])
    return replace


@pytest.mark.skipif(IS_WATCHED, reason="the sanitizer holds released memory back")
def test_a_call_that_loses_memory_is_named(tmp_path: Path, only):
    lost: list[bytearray] = []

    def lose() -> int:
        lost.append(bytearray(2000))
        return 1

    only(lose)
    figures = parts.every_kind(Files(tmp_path), 800)
    assert figures.slope == pytest.approx(2e9, rel=0.2)
    assert len(figures.faults) == 1 and "with the one at fault" in figures.faults[0]


def test_descriptors_that_are_left_are_counted(tmp_path: Path, only):
    left = []

    def leave() -> int:
        if len(left) < 5:
            left.append(os.open("/dev/null", os.O_RDONLY))
        return 1

    only(leave)
    assert parts.every_kind(Files(tmp_path), 8000).descriptors == 5
    for descriptor in left:
        os.close(descriptor)


def test_an_operation_that_is_never_called_is_missed(tmp_path: Path, monkeypatch):
    monkeypatch.setattr(Session, "kinds", lambda self: [
        Kind("nothing", lambda: 1, frozenset(EVERY_OPERATION - {"isTiled"}))])
    assert parts.every_kind(Files(tmp_path), 8000).faults == ["no call of isTiled"]


def test_the_slope_is_that_of_the_line_that_fits_best():
    assert slope([0, 1, 2, 3], [5, 7, 9, 11]) == pytest.approx(2)
    assert slope([0, 1, 2, 3], [0, 1, 1, 0]) == pytest.approx(0)
