"""tagbridge.Warning, issued, filtered and turned into an error."""

from __future__ import annotations

import warnings

import numpy as np
import pytest
import tagbridge
import tifffile
from conftest import open_descriptors

LIBTIFF_WARNING = "KORVAL:pictoria:tiffutils:libtiffWarning"


def test_what_libtiff_says_is_a_warning_with_identifier_and_arguments(unknown_tag):
    with pytest.warns(tagbridge.Warning) as issued:
        file = tagbridge.call("open", str(unknown_tag), "r")
    tagbridge.call("close", file)
    [warning] = [record.message for record in issued]
    assert warning.identifier == LIBTIFF_WARNING
    libtiff_module, message = warning.arguments
    assert isinstance(libtiff_module, str)
    assert "65000" in message
    assert message in str(warning)


def test_a_warning_points_at_the_line_of_the_call(unknown_tag):
    with warnings.catch_warnings(record=True) as issued:
        warnings.simplefilter("always")
        file = tagbridge.call("open", str(unknown_tag), "r")
    tagbridge.call("close", file)
    assert [record.filename for record in issued] == [__file__]
    assert 'call("open"' in open(__file__).read().splitlines()[issued[0].lineno - 1]


def test_a_warning_is_issued_through_the_warnings_module(unknown_tag, monkeypatch):
    issued = []
    monkeypatch.setattr(warnings, "warn", lambda warning, *rest, **more: issued.append(warning))
    tagbridge.call("close", tagbridge.call("open", str(unknown_tag), "r"))
    assert [warning.identifier for warning in issued] == [LIBTIFF_WARNING]


def test_warnings_can_be_ignored(unknown_tag):
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        warnings.simplefilter("ignore", tagbridge.Warning)
        file = tagbridge.call("open", str(unknown_tag), "r")
    assert not tagbridge.call("isTiled", file)
    tagbridge.call("close", file)


def test_a_warning_that_is_an_error_is_raised_after_the_call(unknown_tag):
    """The second directory has the unknown tag: reading it succeeds all the same."""
    with tifffile.TiffWriter(unknown_tag) as writer:
        for tags in [[], [(65000, "I", 1, 5, True)]]:
            writer.write(np.zeros((4, 4), np.uint8), extratags=tags, metadata=None)
    file = tagbridge.call("open", str(unknown_tag), "r")
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        with pytest.raises(tagbridge.Warning) as caught:
            tagbridge.call("readDirectory", file)
    assert caught.value.identifier == LIBTIFF_WARNING
    assert tagbridge.call("currentDirectory", file) == 2
    tagbridge.call("close", file)


def test_a_file_whose_identifier_a_warning_kept_back_is_closed(unknown_tag):
    """Nobody has the identifier, so nobody could close it."""
    before = open_descriptors(unknown_tag)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        for _ in range(3):
            with pytest.raises(tagbridge.Warning):
                tagbridge.call("open", str(unknown_tag), "r")
    assert open_descriptors(unknown_tag) == before == 0


def test_further_warnings_are_notes_of_the_first(unknown_tag):
    tags = [(65000, "I", 1, 5, True), (65001, "I", 1, 5, True)]
    tifffile.imwrite(unknown_tag, np.zeros((4, 4), np.uint8), extratags=tags)
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        with pytest.raises(tagbridge.Warning) as caught:
            tagbridge.call("open", str(unknown_tag), "r")
    assert "65000" in str(caught.value)
    [note] = caught.value.__notes__
    assert "65001" in note


def test_a_failing_call_raises_its_error_even_when_warnings_are_errors(tmp_path):
    path = tmp_path / "empty.tif"
    path.write_bytes(b"II*\0")
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        with pytest.raises(tagbridge.Error):
            tagbridge.call("open", str(path), "r")


def test_warning_is_a_user_warning_of_the_package():
    assert issubclass(tagbridge.Warning, UserWarning)
    assert tagbridge.Warning.__module__ == "tagbridge"
    assert str(tagbridge.Warning("a:b")) == "a:b"
