"""Mode "w" empties a file, so it must tell one that is open here from one that was."""

import pathlib

import pytest

from tagbridge import Error, call


def test_a_closed_file_can_be_written_anew_again_and_again(tmp_path: pathlib.Path):
    path = str(tmp_path / "again.tif")
    for _ in range(3):
        # Every open gets the file descriptor that the one before has given back.
        call("close", call("open", path, "w"), outputs=0)


def test_an_open_file_cannot_be_written_anew(tmp_path: pathlib.Path):
    path = str(tmp_path / "kept.tif")
    file = call("open", path, "w")
    with pytest.raises(Error) as caught:
        call("open", path, "w")
    assert caught.value.identifier == "KORVAL:pictoria:Tiff:unableToOpenFile"
    call("close", file, outputs=0)
    call("close", call("open", path, "w"), outputs=0)
