"""Every real-world file is opened, walked and read as its manifest says."""

from __future__ import annotations

import corpus
import pytest
import tagbridge
from corpus import Entry

pytestmark = corpus.needs_corpus


@pytest.mark.parametrize("file", corpus.entries())
def test_the_file_opens_or_raises_the_error(file: Entry):
    if "error" in file["open"]:
        corpus.check_raises(
            {"args": [corpus.path_of(file)], **file["open"]}, lambda: corpus.opened(file).__enter__()
        )
    else:
        with corpus.opened(file) as identifier:
            assert identifier.shape == (1, 1)


@pytest.mark.parametrize("file", corpus.entries("directories"))
def test_every_block_of_every_directory_is_as_listed(file: Entry):
    corpus.check_directories(file, corpus.check_image)


@pytest.mark.parametrize("file", corpus.entries("directories"))
def test_reading_directories_ends_after_the_last(file: Entry):
    with corpus.opened(file) as identifier:
        for _ in range(file["directory_count"] - 1):
            corpus.quiet("readDirectory", identifier)
        with pytest.raises(tagbridge.Error) as caught:
            corpus.quiet("readDirectory", identifier)
    assert caught.value.identifier == "KORVAL:pictoria:Tiff:unableToReadDir"


@pytest.mark.parametrize("file", corpus.entries("setDirectory"))
def test_directories_are_reached_by_number(file: Entry):
    with corpus.opened(file) as identifier:
        for entry in file["setDirectory"]:
            if "error" in entry:
                corpus.check_raises(
                    entry, lambda n=entry["n"]: corpus.quiet("setDirectory", identifier, n)
                )
            else:
                assert corpus.quiet("setDirectory", identifier, entry["n"]) is None


@pytest.mark.parametrize("file", corpus.entries("subdirectories"))
def test_sub_directories_that_fail_raise_the_error(file: Entry):
    for entry in file["subdirectories"]:
        if "error" in entry:
            with corpus.opened(file) as identifier:
                corpus.follow(identifier, entry["path"][:-1])
                corpus.check_raises(
                    entry,
                    lambda: corpus.quiet("setSubDirectory", identifier, entry["path"][-1]),
                )
