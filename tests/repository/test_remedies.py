"""What tools/remedies/ and docs/security.md say of the sources and the tests is true.

That the tests do fail without the remedies takes compiling: ./dev remedies shows it.
"""

from __future__ import annotations

import pathlib
import re
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))

import remedies  # noqa: E402

REMEDIES = remedies.all_remedies()
GUARANTEES = (ROOT / "docs" / "security.md").read_text().split("## Guarantees")[1]


@pytest.mark.parametrize("remedy", REMEDIES, ids=lambda remedy: remedy.name)
def test_a_remedy_is_in_the_sources_once_and_its_tests_exist(remedy: remedies.Remedy):
    assert remedy.problems() == []
    assert remedy.tests
    assert all(change.text != change.instead for change in remedy.changes)


def test_each_remedy_has_a_name_of_its_own():
    names = [remedy.name for remedy in REMEDIES]
    assert sorted(set(names)) == sorted(names)


def guarantees() -> list[str]:
    rows = GUARANTEES.split("\n## ")[0].splitlines()
    return [row for row in rows if row.startswith("| ")][1:]


@pytest.mark.parametrize("row", guarantees(), ids=lambda row: row[2:42])
def test_each_guarantee_names_tests_that_exist(row: str):
    named = re.findall(r"`([^`]+)`", row.rsplit("|", 2)[1])
    assert named
    assert all(remedies.is_test(name) for name in named), row


def test_a_text_that_is_gone_or_not_alone_is_a_problem():
    for text in ["no source says this", "return"]:
        change = remedies.Change("core/edits.cc", text, "")
        assert "in core/edits.cc" in change.problem()
    assert "0 times in core/gone.cc" in remedies.Change("core/gone.cc", "x", "").problem()


def test_a_test_that_does_not_exist_is_none():
    for name in ["EditedLayout.Dreams", "test_values.py::test_dreams", "fuzz/dreams_fuzz tests",
                 "fuzz/fuzz_read tests/data/dreams"]:
        assert not remedies.is_test(name), name
