"""The fuzz targets, their dictionary and the page about them belong together."""

from __future__ import annotations

import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TARGETS = sorted(path.stem.removeprefix("fuzz_") for path in (ROOT / "fuzz").glob("fuzz_*.*"))
LINE = re.compile(r'(\w+)="((?:[^"\\\x00-\x1f\x7f-\xff]|\\x[0-9a-f]{2})+)"')


def dictionary() -> list[str]:
    lines = (ROOT / "fuzz" / "tiff.dict").read_text(encoding="ascii").splitlines()
    return [line for line in lines if line and not line.startswith("#")]


@pytest.mark.parametrize("target", TARGETS)
def test_the_page_says_what_an_input_of_the_target_is(target: str):
    assert f"| `{target}` | " in (ROOT / "CONTRIBUTING.md").read_text()


def test_the_dictionary_is_in_the_notation_of_both_fuzzers():
    assert [line for line in dictionary() if not LINE.fullmatch(line)] == []


def test_no_entry_of_the_dictionary_has_the_name_of_another():
    names = [line.partition("=")[0] for line in dictionary()]
    assert len(names) == len(set(names)) > 100


def test_entries_for_a_tag_begin_with_its_number():
    values = dict(line.split("=", 1) for line in dictionary())
    assert values["ImageWidth"].startswith(r'"\x00\x01\x03\x00')
    assert values["ImageWidth_big"].startswith(r'"\x01\x00\x00\x03')


def test_kept_inputs_are_those_of_a_target():
    kept = {path.name for path in (ROOT / "tests" / "data").iterdir() if path.is_dir()}
    assert kept <= {f"fuzz_{target}" for target in TARGETS}
