"""Who owns what, limits, and the memory that is kept for reuse."""

from __future__ import annotations

import gc
import os
import resource
import sys

import numpy as np
import pytest
import tagbridge
import tifffile


@pytest.fixture
def large(tmp_path):
    """One strip of 8 MiB, compressed."""
    path = tmp_path / "large.tif"
    pixels = np.zeros((2048, 4096), np.uint8)
    tifffile.imwrite(
        path, pixels, compression="zlib", rowsperstrip=2048, photometric="minisblack"
    )
    return path


@pytest.fixture
def memory_limit():
    yield tagbridge.set_memory_limit
    tagbridge.set_memory_limit(0)


def test_the_default_limit_is_the_physical_memory():
    with open("/proc/meminfo", encoding="ascii") as lines:
        kibibytes = int(next(lines).split()[1])
    assert tagbridge.memory_limit() == pytest.approx(1024 * kibibytes, rel=0.01)


def test_a_result_beyond_the_limit_is_a_memory_error(large, open_file, memory_limit):
    file = open_file(large)
    memory_limit(1 << 20)
    assert tagbridge.memory_limit() == 1 << 20
    with pytest.raises(MemoryError):
        tagbridge.call("readEncodedStrip", file, 0)
    memory_limit(0)
    assert tagbridge.call("readEncodedStrip", file, 0).shape == (2048, 4096)


def test_an_argument_beyond_the_limit_is_a_memory_error(memory_limit):
    memory_limit(1 << 20)
    with pytest.raises(MemoryError):
        tagbridge.call("close", np.zeros((2048, 1024), np.uint8))


def test_a_result_outlives_its_file(gray):
    file = tagbridge.call("open", str(gray), "r")
    strip = tagbridge.call("readEncodedStrip", file, 0)
    before = strip.copy()
    tagbridge.call("close", file)
    gc.collect()
    np.testing.assert_array_equal(strip, before)
    strip[:] = 0
    assert not strip.any()


def test_results_do_not_share_memory(gray, open_file):
    file = open_file(gray)
    first, second = (tagbridge.call("readEncodedStrip", file, 0) for _ in range(2))
    assert not np.shares_memory(first, second)
    first[:] = 0
    assert second.any()


def test_an_array_stays_referenced_only_during_the_call():
    array = np.zeros((50, 50), order="F")
    before = sys.getrefcount(array)
    for value in (array, [array], {"a": array}):
        tagbridge.call("close", 0.5, outputs=0)
        with pytest.raises(tagbridge.Error):
            tagbridge.call("isTiled", value)
        del value
    assert sys.getrefcount(array) == before


def test_an_argument_is_left_as_it_is(gray, open_file):
    file = open_file(gray)
    number = np.asfortranarray(np.full((3, 3), 1.0))
    number.flags.writeable = False
    tagbridge.call("readEncodedStrip", file, number)
    assert (number == 1).all()
    assert file.shape == (1, 1)


@pytest.mark.skipif(
    "libasan" in os.environ.get("LD_PRELOAD", ""),
    reason="the sanitizer holds released memory back to find later uses",
)
def test_reading_over_and_over_takes_no_more_memory(large, open_file):
    file = open_file(large)
    for _ in range(3):
        tagbridge.call("readEncodedStrip", file, 0)
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    for _ in range(30):
        tagbridge.call("readEncodedStrip", file, 0)
        with pytest.raises(tagbridge.Error):
            tagbridge.call("readEncodedStrip", file, 1)
    after = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    assert after - before < 16 << 10


def test_kept_memory_is_given_back_on_request(large, open_file):
    file = open_file(large)
    tagbridge.call("readEncodedStrip", file, 0)
    limit = tagbridge.cache_limit()
    assert 0 <= tagbridge.cached_bytes() <= limit
    tagbridge.release_cached_memory()
    assert tagbridge.cached_bytes() == 0
    tagbridge.set_cache_limit(0)
    tagbridge.call("readEncodedStrip", file, 0)
    assert tagbridge.cached_bytes() == 0
    assert tagbridge.cache_limit() == 0
    tagbridge.set_cache_limit(limit)


@pytest.mark.parametrize("function", [tagbridge.set_memory_limit, tagbridge.set_cache_limit])
def test_limits_are_non_negative_integers(function):
    for wrong in (-1, "1", 2**70):
        with pytest.raises(TypeError):
            function(wrong)
