"""The type hints of the package hold, and those of its users are checked against them."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import tagbridge

CONFIGURATION = Path(__file__).parents[1] / "mypy.ini"
PACKAGES = Path(tagbridge.__file__).parents[1]


def mypy(*arguments: str, cache: Path) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--config-file", str(CONFIGURATION),
         "--cache-dir", str(cache), *arguments],
        cwd=PACKAGES, capture_output=True, text=True, check=False)


def test_the_package_is_clean(tmp_path: Path):
    checked = mypy("-p", "tagbridge", cache=tmp_path)
    assert checked.returncode == 0, checked.stdout + checked.stderr


def test_a_wrong_use_is_found(tmp_path: Path):
    wrong = "import tagbridge; tagbridge.open('a.tif').read(threads='two')"
    checked = mypy("-c", wrong, cache=tmp_path)
    assert checked.returncode == 1
    assert '"read" of "FirstDirectory" has incompatible type "str"' in checked.stdout


def test_no_module_is_long():
    for path in (PACKAGES / "tagbridge").rglob("*.py"):
        assert len(path.read_text().splitlines()) <= 400, path
