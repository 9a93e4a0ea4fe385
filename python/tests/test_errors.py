"""tagbridge.Error, and what call itself refuses."""

from __future__ import annotations

import pickle
import struct

import numpy as np
import pytest
import tagbridge

TIFF = "KORVAL:pictoria:Tiff:"
VALIDATE = "KORVAL:pictoria:validate:"


@pytest.mark.parametrize(
    ("inputs", "identifier", "arguments"),
    [
        (("isTiled", 0), TIFF + "badFileId", ()),
        (("isTiled", 1.5), TIFF + "invalidFileId", ()),
        (("nosuch",), TIFF + "InvalidOperation", ("nosuch",)),
        (("Close", 0), TIFF + "InvalidOperation", ("Close",)),
        (("é\xff",), TIFF + "InvalidOperation", ("é\xff",)),
        (("Ã©",), TIFF + "InvalidOperation", ("Ã©",)),
        (("",), TIFF + "InvalidOperation", ("",)),
        (("getVersion", 1), VALIDATE + "wrongNumberOfInputs", ()),
        (("open", 1, "r"), TIFF + "argumentWasNotChar", ("file",)),
        (("open", "x", 1), TIFF + "argumentWasNotChar", ("access mode",)),
    ],
)
def test_an_error_has_the_modules_identifier_and_arguments(inputs, identifier, arguments):
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call(*inputs)
    assert caught.value.identifier == identifier
    assert caught.value.arguments == arguments
    assert isinstance(caught.value.arguments, tuple)
    assert caught.value.diagnostics == []


def test_number_arguments_are_ints(gray, open_file):
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call("setDirectory", open_file(gray), 7)
    assert caught.value.arguments == (8,)
    assert type(caught.value.arguments[0]) is int


def test_numbers_beyond_the_signed_range_stay_positive(tmp_path, open_file):
    far = 2**64 - 16
    header = struct.pack("<2s3HQ", b"II", 43, 8, 0, 16)
    tags = [(256, 4, 1), (257, 4, 1), (262, 3, 1), (273, 4, 8), (279, 4, 1), (330, 18, far)]
    entries = b"".join(struct.pack("<2H2Q", tag, kind, 1, value) for tag, kind, value in tags)
    path = tmp_path / "far.tif"
    path.write_bytes(header + struct.pack("<Q", len(tags)) + entries + bytes(8))
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call("setSubDirectory", open_file(path), np.uint64(far))
    assert caught.value.identifier == TIFF + "unableToChangeSubdir"
    assert caught.value.arguments == (far,)
    assert str(far) in str(caught.value)


@pytest.mark.parametrize("name", ["no such file.tif", "Ωmega 😀.tif"])
def test_a_file_name_returns_as_it_was_given(tmp_path, name):
    path = str(tmp_path / name)
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call("open", path, "r")
    assert caught.value.identifier == TIFF + "unableToOpenFile"
    assert caught.value.arguments == (path,)
    assert path in str(caught.value)


def test_the_text_is_the_catalogs_with_the_arguments(gray, open_file):
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call("setDirectory", open_file(gray), 7)
    [entry] = [
        entry
        for entry in tagbridge.catalog()
        if entry.identifier == TIFF + "unableToChangeDir" and not entry.warning
    ]
    assert str(caught.value) == entry.text.format(8)


def test_diagnostics_hold_what_libtiff_said(tmp_path):
    path = tmp_path / "no directory.tif"
    path.write_bytes(struct.pack("<2sHI", b"II", 42, 4000))
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call("open", str(path), "r")
    assert caught.value.diagnostics
    assert all(isinstance(text, str) for text in caught.value.diagnostics)
    assert "directory" in caught.value.diagnostics[0]


def test_diagnostics_of_an_earlier_call_are_gone(tmp_path):
    path = tmp_path / "no directory.tif"
    path.write_bytes(struct.pack("<2sHI", b"II", 42, 4000))
    with pytest.raises(tagbridge.Error):
        tagbridge.call("open", str(path), "r")
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call("isTiled", 0)
    assert caught.value.diagnostics == []


def test_an_error_can_be_sent_to_another_process():
    error = tagbridge.Error("a:b", (1, "x"), "text", ["said"])
    copy = pickle.loads(pickle.dumps(error))
    assert (copy.identifier, copy.arguments, copy.diagnostics) == ("a:b", (1, "x"), ["said"])
    assert str(copy) == "text"
    assert pickle.loads(pickle.dumps(tagbridge.call)) is tagbridge.call


def test_error_is_an_exception_of_the_package():
    assert issubclass(tagbridge.Error, Exception)
    assert tagbridge.Error.__module__ == "tagbridge"


def test_text_beyond_one_byte_a_character_is_an_identified_error_of_the_host():
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call("Ω")
    assert caught.value.identifier
    assert not caught.value.identifier.startswith(TIFF)


@pytest.mark.parametrize("operation", [None, 5, b"close", np.array(["c"]), ["close"]])
def test_an_operation_that_is_no_str_is_a_type_error(operation):
    with pytest.raises(TypeError, match="operation must be a str"):
        tagbridge.call(operation)


def test_arguments_are_checked_as_python_does():
    with pytest.raises(TypeError, match="operation"):
        tagbridge.call()
    with pytest.raises(TypeError, match="unexpected keyword argument 'output'"):
        tagbridge.call("getVersion", output=1)
    with pytest.raises(TypeError, match="unexpected keyword argument 'operation'"):
        tagbridge.call("getVersion", operation="close")
    with pytest.raises(TypeError):
        tagbridge.call("getVersion", outputs="1")
    with pytest.raises(TypeError):
        tagbridge.call("getVersion", outputs=1.0)
    for outputs in (-1, 2**40, 2**80):
        with pytest.raises((ValueError, OverflowError)):
            tagbridge.call("getVersion", outputs=outputs)


def test_outputs_decides_what_is_returned():
    version = tagbridge.call("getVersion")
    assert version.startswith("LIBTIFF")
    assert tagbridge.call("getVersion", outputs=0) is None
    assert tagbridge.call("getVersion", outputs=1) == version
    assert tagbridge.call("getVersion", outputs=3) == (version, None, None)
    assert tagbridge.call(operation="getVersion") == version


def test_an_operation_without_a_result_returns_none(gray):
    file = tagbridge.call("open", str(gray), "r")
    assert tagbridge.call("close", file) is None


def test_operation_names_need_not_be_constants():
    assert tagbridge.call("".join(["get", "Version"])) == tagbridge.call("getVersion")


@pytest.mark.parametrize("kind", ["u1", "u2", "f4", "?"])
def test_a_narrow_scalar_has_no_bytes_of_an_earlier_one(kind):
    # A file identifier is the first 8 bytes of an array, whatever its class.
    for identifier, error in (1e300, "invalidFileId"), (np.array(0, kind), "badFileId"):
        with pytest.raises(tagbridge.Error) as caught:
            tagbridge.call("isTiled", identifier)
        assert caught.value.identifier == TIFF + error


@pytest.mark.parametrize("kind", ["u2", "i2", "u4", "i4", "u8", "i8", "f4", ">i2"])
def test_numbers_of_any_type_are_taken_by_value(gray, open_file, kind):
    file = open_file(gray)
    width = tagbridge.call("getField", file, 256)
    assert tagbridge.call("getField", file, np.array(256, kind)) == width
    assert tagbridge.call("getField", file, np.array([[256]], kind)) == width


@pytest.mark.parametrize("count", [7, 8, 9, 40])
def test_any_number_of_inputs_is_handed_over(count):
    with pytest.raises(tagbridge.Error) as caught:
        tagbridge.call("isTiled", *range(count))
    assert caught.value.identifier == "KORVAL:pictoria:validate:wrongNumberOfInputs"
