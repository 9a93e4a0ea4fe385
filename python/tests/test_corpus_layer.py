"""The file layer on every file of the corpus: what can be opened is read, shown and described."""

from __future__ import annotations

import numpy as np
import pytest
import tagbridge
from corpus import Entry, entries, needs_corpus, path_of, quiet
from images import recorded


def every_directory(tif: tagbridge.File) -> list[tagbridge.Directory]:
    found = list(tif)
    for page in found[:]:
        try:
            found += page.subdirectories
        except tagbridge.Error:
            pass
    return found


@needs_corpus
@pytest.mark.parametrize("entry", entries("directories"))
def test_reading_gives_what_is_promised_or_an_error(entry: Entry):
    with recorded(), tagbridge.open(path_of(entry)) as tif:
        assert len(tif) == len(list(tif)) == len(entry["directories"])
        for page in every_directory(tif):
            repr(page)
            page._repr_html_()
            for name in page.tags:
                try:
                    page.tags[name]
                except tagbridge.Error:
                    pass
            try:
                array = page.read()
            except tagbridge.Error:
                continue
            assert (array.shape, array.dtype) == (page.shape, page.dtype)
            assert array.flags.f_contiguous
            np.testing.assert_array_equal(page[::-3, 1::2], array[::-3, 1::2])
            for block in page.blocks[:4]:
                where = (block.rows, block.columns)
                part = array[where] if block.plane is None else array[(*where, block.plane)]
                np.testing.assert_array_equal(block.read(), part)


@needs_corpus
@pytest.mark.parametrize("entry", entries("directories"))
def test_rgba_is_that_of_the_operation(entry: Entry):
    """For the usual Orientation, with which the operation's rows are those of the image."""
    with recorded(), tagbridge.open(path_of(entry)) as tif:
        if int(tif.tags.get("Orientation", 1)) != 1:
            pytest.skip("turned round")
        try:
            rgba = tif.rgba()
        except tagbridge.Error:
            return
        handle = quiet("open", path_of(entry), "rc")
        raster = np.atleast_3d(quiet("readRGBAImage", handle))
        quiet("close", handle)
        np.testing.assert_array_equal(rgba, raster.transpose(2, 1, 0)[::-1])
