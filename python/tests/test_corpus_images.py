"""Summaries, RGBA images and tags of every real-world file are as its manifest says."""

from __future__ import annotations

import corpus
import numpy as np
import pytest
from corpus import Entry

pytestmark = corpus.needs_corpus


def plain(value: object) -> object:
    """A field of the summary as the manifest writes it."""
    array = np.asarray(value)
    return array.item() if array.size == 1 else array.ravel(order="F").tolist()


def check_metadata(file: np.ndarray, entry: Entry) -> None:
    wanted = entry["metadata"]
    if "error" in wanted:
        corpus.check_raises(wanted, lambda: corpus.quiet("retrieveMetadata", file))
        return
    summary = corpus.quiet("retrieveMetadata", file)
    assert list(summary) == list(wanted)
    assert {name: plain(value) for name, value in summary.items()} == wanted


def check_rgba(file: np.ndarray, entry: Entry) -> None:
    corpus.check_call(entry["rgba"], "readRGBAImage", file)
    for part in entry["rgba_parts"]:
        corpus.check_call(part, part["operation"], file, *part["at"])


def check_fields(file: np.ndarray, entry: Entry) -> None:
    for tag, wanted in entry["fields"].items():
        corpus.check_call(wanted, "getField", file, int(tag))
    for tag in entry["absent"]:
        missing = {"error": "KORVAL:pictoria:Tiff:tagRetrievalFailed"}
        corpus.check_raises(missing, lambda tag=tag: corpus.quiet("getField", file, tag))


@pytest.mark.parametrize("file", corpus.entries("directories"))
def test_the_summary_of_every_directory_is_as_listed(file: Entry):
    corpus.check_directories(file, check_metadata)


@pytest.mark.parametrize("file", corpus.entries("directories"))
def test_every_rgba_image_is_as_listed(file: Entry):
    corpus.check_directories(file, check_rgba)


@pytest.mark.parametrize("file", corpus.entries("directories"))
def test_every_tag_is_as_listed(file: Entry):
    corpus.check_directories(file, check_fields)


@pytest.mark.parametrize("file", corpus.entries("variants"))
def test_blocks_after_a_field_was_set_are_as_listed(file: Entry):
    for entry in file["variants"]:
        with corpus.opened(file) as identifier:
            corpus.follow(identifier, entry["path"])
            corpus.quiet("setField", identifier, *entry["set"])
            corpus.check_image(identifier, entry)
