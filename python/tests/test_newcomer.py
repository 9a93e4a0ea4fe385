"""What a newcomer wants, with what README.md and its pages show: each in a command or five lines."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
import tagbridge
import tifffile
from images import image
from PIL import Image

ROOT = Path(__file__).resolve().parents[2]


@pytest.fixture
def home(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """A folder with a command `tagbridge`, a large tiled file and a stack."""
    monkeypatch.chdir(tmp_path)
    tool = tmp_path / "bin" / "tagbridge"
    tool.parent.mkdir()
    tool.write_text(f'#!/bin/sh\nexec "{sys.executable}" -m tagbridge "$@"\n')
    tool.chmod(0o755)
    monkeypatch.setenv("PATH", f"{tool.parent}:{os.environ['PATH']}")
    tile = tagbridge.imread(ROOT / "examples" / "rgb-strips.tif")[:160, :160]
    tagbridge.imwrite(tmp_path / "large.tif", (tile for _ in range(50 * 50)), shape=(8000, 8000, 3),
                      dtype="uint8", tile=(160, 160))
    with tifffile.TiffWriter(tmp_path / "stack.tif") as writer:
        for _ in range(5):
            writer.write(image((100, 120), np.uint16), photometric="minisblack", metadata=None)
    return tmp_path


def shell(command: str) -> str:
    done = subprocess.run(command, shell=True, capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    return done.stdout


def python(lines: str) -> dict:
    assert len(lines.strip().splitlines()) <= 5
    names: dict = {}
    exec(lines, names)  # noqa: S102 - the lines of this file
    return names


def test_a_newcomer_reads_a_region_of_a_large_tiled_file(home: Path):
    names = python("""
import tagbridge
with tagbridge.open("large.tif") as tif:
    corner = tif[0][4000:4320, -320:]
""")
    assert names["corner"].shape == (320, 320, 3)
    tile = Image.open(ROOT / "examples" / "rgb-strips.tif").crop((0, 0, 160, 160))
    np.testing.assert_array_equal(names["corner"], np.tile(np.asarray(tile), (2, 2, 1)))
    shell("tagbridge export large.tif part.png --region 4000:4320,7680:8000")
    np.testing.assert_array_equal(np.asarray(Image.open("part.png")), names["corner"])


def test_a_newcomer_edits_a_tag(home: Path):
    size = (home / "large.tif").stat().st_size
    shell('tagbridge set large.tif ImageDescription "the harbour"')
    assert shell("tagbridge get large.tif ImageDescription") == "the harbour\n"
    assert (home / "large.tif").stat().st_size - size < 100_000  # in place
    python("""
import tagbridge
with tagbridge.open("stack.tif", "r+") as tif:
    tif[3].tags["Artist"] = "me"
""")
    with tifffile.TiffFile("stack.tif") as other:
        assert other.pages[3].tags["Artist"].value == "me"


def test_a_newcomer_converts_a_stack_to_tiled_deflate(home: Path):
    shell("tagbridge convert stack.tif out.tif --compression deflate --tile 64x64")
    with tifffile.TiffFile("stack.tif") as before, tifffile.TiffFile("out.tif") as after:
        assert len(after.pages) == 5
        for page, other in zip(before.pages, after.pages, strict=True):
            assert (other.compression, other.is_tiled) == (8, True)
            np.testing.assert_array_equal(other.asarray(), page.asarray())


def test_a_newcomer_looks_at_a_preview(home: Path):
    shell("tagbridge preview large.tif -o small.png")
    with Image.open("small.png") as picture:
        assert 64 <= max(picture.size) <= 1024
    drawn = shell("tagbridge preview stack.tif --size 24")
    assert 5 < len(drawn.splitlines()) <= 24


@pytest.mark.parametrize("task", ["preview", "convert", "info", 'tags["Artist"] =', "tif[0][:100, -50:]"])
def test_the_readme_shows_it(task: str):
    blocks = re.findall(r"^```\w+\n(.*?)^```$", (ROOT / "README.md").read_text(), re.DOTALL | re.M)
    assert any(task in block for block in blocks)
