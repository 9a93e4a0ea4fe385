"""Tiny files that claim terabytes, read in a process that may have half a gigabyte."""

from __future__ import annotations

import json
import os
import subprocess
import sys
from collections.abc import Iterator
from concurrent.futures import Future, ThreadPoolExecutor
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
from bombs import BOMBS
from images import image

MEBIBYTE = 1 << 20
needs_addresses = pytest.mark.skipif(
    "libasan" in os.environ.get("LD_PRELOAD", ""),
    reason="AddressSanitizer reserves terabytes of addresses for itself")


def read_in_little_memory(path: Path, name: str) -> dict[str, Any]:
    program = Path(__file__).with_name("bomb_reader.py")
    done = subprocess.run([sys.executable, program, path, name], capture_output=True, text=True,
                          check=False, timeout=120, env=os.environ | {"OPENBLAS_NUM_THREADS": "1"})
    assert done.returncode == 0, done.stderr
    return json.loads(done.stdout)


@pytest.fixture(scope="module")
def readings(tmp_path_factory) -> Iterator[dict[str, Future[dict[str, Any]]]]:
    """What became of each bomb. Most of the time goes by in waits before a second try to open."""
    def read(name: str, folder: Path) -> dict[str, Any]:
        path = folder / "bomb.tif"
        path.write_bytes(BOMBS[name].make())
        assert path.stat().st_size < 2 * MEBIBYTE
        said = read_in_little_memory(path, name)
        said["left"] = sorted(each.name for each in path.parent.iterdir())
        return said

    with ThreadPoolExecutor(8) as pool:
        yield {name: pool.submit(read, name, tmp_path_factory.mktemp("bomb")) for name in BOMBS}


@needs_addresses
@pytest.mark.parametrize("name", BOMBS)
def test_a_bomb_ends_in_an_error_before_memory_is_touched(readings, name: str):
    bomb, said = BOMBS[name], readings[name].result()
    assert said.pop("grown") < 64 * MEBIBYTE
    assert set(said.pop("left")) <= {"bomb.tif", "copy.tif"}
    refusals = ("MemoryError",) if bomb.whole else ("MemoryError", "KeyError")
    for way in ("call", "file"):
        ended = said[way]["ended"]
        assert ended in refusals or ended.startswith("KORVAL:pictoria:"), (way, ended)
    for way in ("verify", "convert", "preview", "info"):
        status, stderr = said[way]["ended"].values()
        must_fail = bomb.whole and way in ("verify", "convert")
        assert status in ((1,) if must_fail else (0, 1)), way
        assert all(line.startswith("tagbridge: ") for line in stderr.splitlines()), stderr
        assert bool(stderr) == (status == 1), way
        assert ": MemoryError (" not in stderr, "a name is no explanation"
    assert max(each["seconds"] for each in said.values()) < 10, said


@pytest.fixture
def memory_limit():
    yield tagbridge.set_memory_limit
    tagbridge.set_memory_limit(0)


def test_an_image_beyond_the_limit_is_a_memory_error_though_its_blocks_are_small(
        tmp_path: Path, memory_limit):
    array = image((600, 500, 3))
    tagbridge.imwrite(tmp_path / "a.tif", array, tile=(16, 16))
    memory_limit(700_000)
    with tagbridge.open(tmp_path / "a.tif") as tif:
        with pytest.raises(MemoryError, match="600 x 500 x 3 uint8 takes 900000 bytes"):
            tif.read()
        with pytest.raises(MemoryError):
            tif.rgba()
        np.testing.assert_array_equal(tif[0][:, 100:400], array[:, 100:400])
        memory_limit(900_000)
        np.testing.assert_array_equal(tif.read(), array)
