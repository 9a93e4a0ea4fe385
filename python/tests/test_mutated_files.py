"""Mutated files on the command line, and disks that fail under what writes."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
import tagbridge
from command_line import Done, started
from images import image, pages
from mutations import Trial, sources, try_commands


def test_mutated_files_end_commands_in_a_line_and_lose_nothing(tmp_path: Path):
    commands, wrong = try_commands(range(100), tmp_path)
    assert commands >= 200 and wrong == []


def test_mutated_files_end_processes_no_otherwise(tmp_path: Path):
    def process(*arguments: object) -> Done:
        done = started(*arguments)
        assert "Traceback" not in done.stderr, done.stderr
        return Done(done.returncode, done.stdout.encode(), done.stderr)

    trial = Trial(tmp_path, sources(), process)
    assert [wrong for seed in range(1000, 1004) for wrong in trial.run(seed)] == []


# --- A file may have only so many bytes

LIMITED = """
import resource, signal, sys
limit = int(sys.argv.pop(1))
resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
"""
COMMAND = LIMITED + """
from tagbridge.cli import main
sys.exit(main())
"""
FUNCTION = LIMITED + """
import numpy, tagbridge
try:
    tagbridge.imwrite(sys.argv[1], numpy.random.default_rng(1).integers(0, 256, (300, 400), "u1"),
                      append=sys.argv[2] == "append", compression=sys.argv[3])
except tagbridge.Error as error:
    sys.exit(error.identifier)
"""


def limited(program: str, size: int, *arguments: object) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, "-c", program, str(size), *map(str, arguments)],
                          capture_output=True, text=True, check=False)


@pytest.mark.parametrize("size", [0, 100, 5000, 60_000])
@pytest.mark.parametrize("options", [(), ("--compression", "deflate"), ("--pyramid",)], ids=str)
def test_convert_on_a_full_disk_leaves_the_output_as_it_was(tmp_path: Path, size: int, options):
    tagbridge.imwrite(tmp_path / "a.tif", image((300, 400)))
    (tmp_path / "out.tif").write_bytes(b"what was there")
    done = limited(COMMAND, size, "convert", tmp_path / "a.tif", tmp_path / "out.tif", *options)
    assert done.returncode == 1 and done.stderr.count("\n") == 1, done.stderr
    assert done.stderr.startswith(f"tagbridge: {tmp_path}/")
    assert (tmp_path / "out.tif").read_bytes() == b"what was there"
    assert len(list(tmp_path.iterdir())) == 2


@pytest.mark.parametrize("size", [0, 100, 5000, 60_000])
@pytest.mark.parametrize("compression", ["none", "deflate"])
def test_imwrite_on_a_full_disk_is_an_error_and_loses_nothing(
        tmp_path: Path, size: int, compression: str):
    path = tmp_path / "a.tif"
    path.write_bytes(b"what was there")
    done = limited(FUNCTION, size, path, "new", compression)
    assert done.returncode == 1 and done.stderr.startswith("KORVAL:pictoria:"), done.stderr
    assert path.read_bytes() == b"what was there"
    assert list(tmp_path.iterdir()) == [path]


def test_appending_on_a_full_disk_keeps_the_directories_that_were_there(tmp_path: Path):
    path = tmp_path / "a.tif"
    images = pages(path)
    done = limited(FUNCTION, path.stat().st_size + 5000, path, "append", "none")
    assert done.returncode == 1 and "KORVAL:pictoria:" in done.stderr, done.stderr
    with tagbridge.open(path) as tif:
        assert len(tif) == len(images)
        for page, wanted in zip(tif, images, strict=True):
            np.testing.assert_array_equal(page.read(strict=True), wanted)
