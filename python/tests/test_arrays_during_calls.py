"""What other threads do to the arrays of a call while it runs, and arrays of no sensible size."""

from __future__ import annotations

import contextlib
import gc
import io
import threading
from collections.abc import Callable, Iterator
from typing import Any

import numpy as np
import pytest
import tagbridge
from images import image
from numpy.lib.stride_tricks import as_strided
from tagbridge import _core, call
from tagbridge_conversions import to_host

ROWS, COLUMNS = 400, 300


class Waiting(io.BytesIO):
    """Lets another thread act, once, in the middle of a call that writes."""

    def __init__(self) -> None:
        super().__init__()
        self.action: Callable[[], None] | None = None
        self.error: BaseException | None = None

    def _act(self, action: Callable[[], None]) -> None:
        try:
            action()
        except BaseException as error:  # noqa: BLE001 - for the test to look at
            self.error = error

    def write(self, data: Any) -> int:
        action, self.action = self.action, None
        if action is not None:
            other = threading.Thread(target=self._act, args=(action,))
            other.start()
            other.join()
        return super().write(data)


@pytest.fixture
def stream() -> Waiting:
    return Waiting()


@pytest.fixture
def file(stream: Waiting) -> Iterator[Any]:
    """A file of one strip of 16-bit samples in `stream`, open for writing."""
    file = call("open", _core.add_file_object(stream, "waiting"), "w")
    for tag, value in ((262, 1), (258, 16), (277, 1), (339, 1), (284, 1), (256, COLUMNS),
                       (257, ROWS), (278, ROWS), (259, 1)):
        call("setField", file, tag, value, outputs=0)
    yield file
    call("close", file, outputs=0)


def stored(stream: Waiting, file: Any) -> np.ndarray:
    call("writeDirectory", file, outputs=0)
    return tagbridge.imread(io.BytesIO(stream.getvalue()))


@pytest.mark.parametrize("order", ["F", "C"])
def test_another_thread_cannot_resize_an_array_during_a_call(stream: Waiting, file: Any, order: Any):
    box = [np.array(image((ROWS, COLUMNS), np.uint16), order=order)]
    wanted = box[0].copy()
    box[0].resize((ROWS, COLUMNS))  # which nothing but the call keeps from working
    stream.action = lambda: box[0].resize((1, 1))
    call("writeEncodedStrip", file, 0, box[0], outputs=0)
    assert isinstance(stream.error, ValueError) and "resize" in str(stream.error)
    box[0].resize((ROWS, COLUMNS))
    np.testing.assert_array_equal(stored(stream, file), wanted)


@pytest.mark.parametrize("make", [
    lambda array: np.asfortranarray(array), lambda array: array,
    lambda array: np.repeat(array, 2, 1)[:, ::2], lambda array: array.astype(">u2")],
    ids=["as it is", "turned", "some columns", "swapped"])
def test_an_array_lives_until_the_call_has_ended(stream: Waiting, file: Any, make):
    box = [make(image((ROWS, COLUMNS), np.uint16))]
    wanted = box[0].copy()

    def forget() -> None:
        box.clear()
        gc.collect()
        [np.full((ROWS, COLUMNS), 7, np.uint16) for _ in range(5)]  # in the memory of what is gone

    stream.action = forget
    call("writeEncodedStrip", file, 0, box[0], outputs=0)
    assert box == [] and stream.error is None
    np.testing.assert_array_equal(stored(stream, file), wanted)


def test_a_file_identifier_may_be_lost_during_its_call(stream: Waiting, file: Any):
    box = [file.copy()]
    array = image((ROWS, COLUMNS), np.uint16)
    stream.action = box.clear
    call("writeEncodedStrip", box[0], 0, array, outputs=0)
    assert box == [] and stream.error is None
    np.testing.assert_array_equal(stored(stream, file), array)


def test_an_array_that_is_changed_during_a_call_is_stored_before_or_after(stream: Waiting,
                                                                          file: Any):
    array = np.zeros((ROWS, COLUMNS), np.uint16, order="F")
    stream.action = lambda: array.fill(1)
    call("writeEncodedStrip", file, 0, array, outputs=0)
    assert np.isin(stored(stream, file), (0, 1)).all()


# --- Sizes

@pytest.mark.parametrize("shape", [(2**31, 0), (0, 2**31), (0, 2**61), (2**40, 0, 2**20)], ids=str)
def test_shapes_of_nothing_are_nothing(shape, file: Any):
    host = to_host(np.empty(shape, np.uint16))
    assert 0 in host["dims"] and host["bytes"] == b""
    with contextlib.suppress(tagbridge.Error):
        call("writeEncodedStrip", file, 0, np.empty(shape, np.uint16), outputs=0)


@pytest.mark.parametrize("shape", [(2**31, 2**31), (2**62,), (2**20, 2**20, 2**20), (1, 2**45)],
                         ids=str)
@pytest.mark.parametrize("operation", ["writeEncodedStrip", "setField", "getField", "setDirectory"])
def test_huge_shapes_are_refused_before_memory_is_touched(shape, operation: str, file: Any):
    huge = as_strided(np.ones(1, np.uint8), shape, (0,) * len(shape))
    with pytest.raises((MemoryError, ValueError)):
        call(operation, file, huge, huge, outputs=0)


# --- Values without an end

def test_cycles_of_arrays_lists_and_dicts_are_refused(file: Any):
    array = np.empty((1, 2), object)
    array[0, 0] = {"field": [array, (1.0,)]}
    array[0, 1] = array[:, :1]
    with pytest.raises(ValueError):
        call("setField", file, 315, array, outputs=0)
    with pytest.raises(ValueError):
        call("setField", file, 315, {"field": [array]}, outputs=0)
    call("setField", file, 315, "goes on", outputs=0)
