"""No file has grown so long that it should be several."""

import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = {"bench", "core", "faults", "fuzz", "gateway", "handlers", "host", "image", "kernels",
           "packaging", "python", "runtime", "soak", "tags", "tests", "tools", "examples"}
MOST_LINES = 400
TABLES = {"runtime/catalog_entries.cc"}  # a row for each text of the catalog


def sources() -> list[str]:
    return sorted(path.relative_to(ROOT).as_posix() for folder in FOLDERS
                  for ending in ("h", "cc", "py") for path in (ROOT / folder).rglob(f"*.{ending}")
                  if path.relative_to(ROOT).as_posix() not in TABLES)


@pytest.mark.parametrize("path", sources())
def test_no_file_is_long(path: str):
    assert len((ROOT / path).read_text().splitlines()) <= MOST_LINES


def test_the_script_for_people_is_short():
    assert len((ROOT / "dev").read_text().splitlines()) <= MOST_LINES


def test_every_folder_of_the_sources_is_looked_at():
    tracked = subprocess.run(["git", "-C", ROOT, "ls-files", "*.cc", "*.py"], capture_output=True,
                             text=True, check=False).stdout.split()
    assert {path.partition("/")[0] for path in tracked} <= FOLDERS
