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


PASSED = "[ RUN      ] Suite.Name\n[  PASSED  ] 1 test."
FAILED = "[ RUN      ] Suite.Name\n[  FAILED  ] Suite.Name"
OF_PYTHON = "test_values.py::test_dreams"


@pytest.mark.parametrize("test, status, output, hangs", [
    ("Suite.Name", 1, FAILED, False),
    ("Suite.Name", -11, "[ RUN      ] Suite.Name", False),
    ("Suite.Name", 66, "==1==ERROR: AddressSanitizer: heap-buffer-overflow", False),
    ("Suite.Name", None, "[ RUN      ] Suite.Name", True),
    ("fuzz/fuzz_read tests", 1, "", False),
    (OF_PYTHON, 1, "1 failed in 0.2s", False),
    (OF_PYTHON, -6, "Fatal Python error: Aborted", False),
])
def test_an_assertion_a_crash_and_a_report_are_failures(test, status, output, hangs):
    assert remedies.outcome_of(test, status, output, hangs).startswith(remedies.FAILED)


@pytest.mark.parametrize("test, status, output", [
    ("Suite.Name", 0, PASSED),
    ("Suite.Name", 0, "Running 0 tests"),
    ("Suite.Name", None, "[ RUN      ] Suite.Name"),
    ("Suite.Name", -9, "[ RUN      ] Suite.Name"),
    ("Suite.Name", 127, "error while loading shared libraries"),
    (OF_PYTHON, 1, "E   ImportError: undefined symbol\n1 failed in 0.2s"),
    (OF_PYTHON, 1, "1 error in 0.2s"),
    (OF_PYTHON, 2, "1 error during collection"),
    (OF_PYTHON, 4, "ERROR: not found"),
])
def test_a_test_that_did_not_get_as_far_is_none(test, status, output):
    assert not remedies.outcome_of(test, status, output, False).startswith(remedies.FAILED)
