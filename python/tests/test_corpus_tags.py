"""Every tag of every directory of the real-world files is what their manifest says."""

from __future__ import annotations

import corpus
import numpy as np
import pytest
import tagbridge
from corpus import Entry

pytestmark = corpus.needs_corpus


def check_tags(file: np.ndarray, directory: Entry) -> None:
    for tag, entry in directory["fields"].items():
        corpus.check_call(entry, "getField", file, int(tag))
    for tag in directory["absent"]:
        with pytest.raises(tagbridge.Error) as caught:
            corpus.quiet("getField", file, tag)
        assert caught.value.identifier == "KORVAL:pictoria:Tiff:tagRetrievalFailed", tag


@pytest.mark.parametrize("file", corpus.entries("directories"))
def test_every_tag_of_every_directory_is_as_listed(file: Entry):
    corpus.check_directories(file, check_tags)


@pytest.mark.parametrize("file", corpus.entries("variants"))
def test_codec_settings_of_files_open_for_reading_change_what_is_read(file: Entry):
    for variant in file["variants"]:
        with corpus.opened(file) as identifier:
            corpus.follow(identifier, variant["path"])
            corpus.quiet("setField", identifier, *variant["set"])
            corpus.check_image(identifier, variant)
