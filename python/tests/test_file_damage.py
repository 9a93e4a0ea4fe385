"""Damaged blocks: warnings, zeros, and errors when asked for."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pytest
import tagbridge
import tifffile
from images import damage, image, recorded, write


@pytest.fixture
def damaged(tmp_path: Path):
    array = image((60, 40))
    path = tmp_path / "damaged.tif"
    write(path, array, rowsperstrip=10, compression="zlib")
    for block in (1, 4):
        damage(path, block)
    with tagbridge.open(path) as tif:
        yield tif, array


@pytest.mark.parametrize("threads", [1, 3])
def test_a_block_that_cannot_be_decoded_is_one_warning_and_zeros(damaged, threads: int):
    tif, array = damaged
    with recorded() as said:
        got = tif.read(threads=threads)
    assert [each.identifier for each in said] == ["KORVAL:pictoria:tiffutils:libtiffError"] * 2
    wanted = array.copy()
    wanted[10:20] = wanted[40:50] = 0
    np.testing.assert_array_equal(got, wanted)


def test_indexing_warns_of_the_blocks_it_touches(damaged):
    tif, array = damaged
    with recorded() as said:
        got = tif[0][15:35]
    assert len(said) == 1
    np.testing.assert_array_equal(got[5:], array[20:35])
    assert not got[:5].any()
    with recorded() as said:
        tif[0][20:40]
    assert said == []


def test_a_damaged_block_reads_as_zeros(damaged):
    tif, _ = damaged
    with recorded() as said:
        assert not tif.blocks[4].read().any()
    assert len(said) == 1


@pytest.mark.parametrize("threads", [1, 3])
def test_strict_raises_with_the_numbers_of_the_blocks(damaged, threads: int):
    tif, _ = damaged
    with recorded() as said, pytest.raises(tagbridge.DecodeError) as caught:
        tif.read(strict=True, threads=threads)
    assert isinstance(caught.value, tagbridge.Error)
    assert caught.value.blocks == [1, 4]
    assert caught.value.identifier == "KORVAL:pictoria:tiffutils:libtiffError"
    assert len(caught.value.diagnostics) == 2 and "1, 4" in str(caught.value)
    assert said == []


def test_a_decode_error_can_be_pickled(damaged):
    import pickle

    with pytest.raises(tagbridge.DecodeError) as caught:
        damaged[0].read(strict=True)
    again = pickle.loads(pickle.dumps(caught.value))
    assert (again.blocks, str(again)) == (caught.value.blocks, str(caught.value))


def test_strict_reads_what_is_whole(tiles):
    page, array = tiles
    np.testing.assert_array_equal(page.read(strict=True), array)


def test_a_compression_that_libtiff_lacks_is_an_error_however_one_gets_there(tmp_path: Path):
    path = tmp_path / "a.tif"
    with tifffile.TiffWriter(path) as writer:
        for _ in range(2):
            writer.write(image((16, 16)), photometric="minisblack", compression="zlib",
                         metadata=None)
    with tifffile.TiffFile(path) as tiff:
        place = tiff.pages[1].tags[259].valueoffset
    data = bytearray(path.read_bytes())
    data[place:place + 2] = (60001).to_bytes(2, "little")  # no codec's number
    path.write_bytes(data)
    with tagbridge.open(path) as tif:
        for page in (list(tif)[1], tif[1]):
            assert page.tags["ImageWidth"] == 16
            with recorded(), pytest.raises(tagbridge.Error) as caught:
                page.read()
            assert caught.value.identifier.endswith("unsupportedCompressionScheme")
