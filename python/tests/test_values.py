"""Every row of the two value tables, and what is not in them."""

from __future__ import annotations

import enum
import sys
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest
import tagbridge
from hypothesis import given, settings
from hypothesis import strategies as st
from hypothesis.extra import numpy as arrays
from host_classes import CLASS_CODES, elements, units
from tagbridge_conversions import to_host


class Colour(enum.IntEnum):
    RED = 7


@pytest.mark.parametrize(
    ("value", "host_class", "dims", "data"),
    [
        (True, "logical", [1, 1], b"\1"),
        (False, "logical", [1, 1], b"\0"),
        (5, "double", [1, 1], elements(5, "f8")),
        (-(2**60), "double", [1, 1], elements(-(2.0**60), "f8")),
        (Colour.RED, "double", [1, 1], elements(7, "f8")),
        (0.25, "double", [1, 1], elements(0.25, "f8")),
        (float("nan"), "double", [1, 1], elements(np.nan, "f8")),
        ("abc", "char", [1, 3], units("abc")),
        ("", "char", [1, 0], b""),
        ("é\0\xff", "char", [1, 3], units("é\0\xff")),
        ("Ω", "char", [1, 1], units("Ω")),
        ("a😀b", "char", [1, 4], units("a😀b")),
        ("\ud83d", "char", [1, 1], units("\ud83d")),
        ("😀\udc00", "char", [1, 3], units("😀\udc00")),
        (np.str_("name"), "char", [1, 4], units("name")),
        (b"\0\xff1", "uint8", [1, 3], b"\0\xff1"),
        (b"", "uint8", [1, 0], b""),
        (bytearray(b"xyz"), "uint8", [1, 3], b"xyz"),
        (np.float64(2.5), "double", [1, 1], elements(2.5, "f8")),
        (np.float32(2.5), "single", [1, 1], elements(2.5, "f4")),
        (np.bool_(True), "logical", [1, 1], b"\1"),
        (np.int64(-3), "int64", [1, 1], elements(-3, "i8")),
        (np.uint16(65535), "uint16", [1, 1], b"\xff\xff"),
        (np.array(9, np.int32), "int32", [1, 1], elements(9, "i4")),
        (np.array(9, ">i4"), "int32", [1, 1], elements(9, "i4")),
        (np.array(["é"]), "char", [1, 1], units("é")),
        (np.array([["a", "b"], ["c", ""]]), "char", [2, 2], units("acb\0")),
        (np.array(["a", "Ω"], ">U1"), "char", [1, 2], units("aΩ")),
        (np.array([], "U1"), "char", [1, 0], b""),
        (np.array("q"), "char", [1, 1], units("q")),
    ],
    ids=lambda value: repr(value) if not isinstance(value, (list, bytes)) else "",
)
def test_a_value_becomes_the_host_array_of_its_row(value, host_class, dims, data):
    array = to_host(value)
    assert (array["class"], array["dims"], array["bytes"]) == (host_class, dims, data)


@pytest.mark.parametrize("host_class", CLASS_CODES)
@pytest.mark.parametrize("shape", [(5,), (2, 3), (2, 3, 4), (0,), (3, 0), (2, 0, 5), (2, 1, 1)])
@pytest.mark.parametrize("order", ["C", "F"])
def test_an_array_keeps_class_dimensions_and_elements(host_class, shape, order):
    dtype = CLASS_CODES[host_class][1]
    values = np.arange(np.prod(shape)).reshape(shape).astype(dtype, order=order)
    array = to_host(values)
    row = {1: [1, *shape], 3: [*shape[:2], *[n for n in shape[2:] if n != 1]]}
    assert array["class"] == host_class
    assert array["dims"] == row.get(len(shape), list(shape))
    assert array["bytes"] == elements(values, dtype)


def test_trailing_dimensions_of_one_are_dropped_and_inner_ones_kept():
    assert to_host(np.zeros((2, 1, 3, 1, 1)))["dims"] == [2, 1, 3]
    assert to_host(np.zeros((1, 1, 1)))["dims"] == [1, 1]
    assert to_host(np.zeros((0, 1, 1)))["dims"] == [0, 1]


def test_longlong_is_int64_whatever_numpy_calls_it():
    assert to_host(np.zeros(2, np.longlong))["class"] == "int64"
    assert to_host(np.zeros(2, np.ulonglong))["class"] == "uint64"


@pytest.mark.parametrize(
    "array",
    [
        np.arange(8.0),
        np.asfortranarray(np.arange(12.0).reshape(3, 4)),
        np.zeros((4, 5, 6), np.uint8, order="F"),
        np.zeros((64, 64), np.bool_, order="F")[:, 3:],
        np.zeros((5, 1)).view(np.recarray),
        np.ma.masked_array(np.arange(6.0), mask=[1, 0, 1, 0, 1, 0]),
    ],
    ids=["row", "matrix", "cube", "columns", "subclass", "masked"],
)
@pytest.mark.parametrize("writable", [True, False])
def test_column_major_arrays_go_in_without_a_copy(array, writable):
    array.flags.writeable = writable
    assert to_host(array)["address"] == array.__array_interface__["data"][0]


def test_an_array_is_released_with_the_call():
    array = np.zeros((100, 100), order="F")
    nested = [array, {"field": array}]
    before = sys.getrefcount(array)
    to_host(nested)
    assert sys.getrefcount(array) == before
    with pytest.raises(TypeError):
        to_host([array, None])
    assert sys.getrefcount(array) == before


@pytest.mark.parametrize("dtype", ["u1", "<i2", ">i2", "<f4", ">u4", "<u8", ">f8", "?"])
@pytest.mark.parametrize(
    "layout",
    [
        lambda a: a,
        lambda a: a[::-1],
        lambda a: a[:, ::-2],
        lambda a: a[::3, 1:],
        lambda a: a.transpose(1, 0, 2),
        lambda a: a.transpose(2, 1, 0),
        lambda a: a[:, :, 0],
        lambda a: a[:, 1],
        lambda a: a[2, :, 1],
        lambda a: a[::2, 0, 0],
        lambda a: np.broadcast_to(a[:1], a.shape),
        lambda a: np.broadcast_to(a[:, :1], a.shape),
        lambda a: a.reshape(13, 5, 65, 3).transpose(3, 1, 0, 2),
    ],
    ids=["rows", "upside down", "every other column", "some rows", "columns first", "reversed",
         "one plane", "one column", "a line", "scattered", "equal rows", "equal columns", "4-d"],
)
def test_every_other_layout_is_copied_element_by_element(dtype, layout):
    base = np.random.default_rng(7).integers(0, 2**62, (65, 65, 3)).astype(dtype)
    array = layout(base)
    native = array.astype(array.dtype.newbyteorder("="))
    assert to_host(array)["bytes"] == native.tobytes(order="F")


def test_an_unaligned_array_is_copied():
    memory = np.zeros(8 * 100 + 1, np.uint8)
    array = memory[1:].view(np.float64)
    array[:] = np.arange(100)
    host = to_host(array)
    assert host["address"] % 8 == 0
    assert host["bytes"] == elements(np.arange(100), "f8")


@pytest.mark.parametrize("shape", [(63, 127), (64, 128), (65, 129), (1, 300), (300, 1), (129, 2)])
@pytest.mark.parametrize("dtype", ["u1", "u2", "u4", "u8"])
def test_row_major_copies_agree_around_the_panel_size(shape, dtype):
    array = np.arange(np.prod(shape)).reshape(shape).astype(dtype)
    assert to_host(array)["bytes"] == array.tobytes(order="F")


@given(
    arrays.arrays(
        st.sampled_from(["u1", "<i2", ">u2", "<f4", ">f8", "<i8", "?"]),
        arrays.array_shapes(min_dims=0, max_dims=5, min_side=0, max_side=9),
    ),
    st.randoms(),
)
@settings(max_examples=150, deadline=None)
def test_transposed_and_sliced_arrays_keep_their_elements(array, random):
    axes = list(range(array.ndim))
    random.shuffle(axes)
    steps = tuple(slice(None, None, random.choice([1, 1, -1, 2, -3])) for _ in axes)
    view = array.transpose(axes)[steps]
    native = view.astype(view.dtype.newbyteorder("="))
    assert to_host(view)["bytes"] == native.tobytes(order="F")


@pytest.mark.parametrize("value", [True, 3, "ab", np.uint8(1), b"123", np.arange(3, dtype="u1")])
def test_short_arrays_read_as_zero_up_to_16_bytes(value):
    array = to_host(value)
    assert array["padded"] == array["bytes"].ljust(16, b"\0")


@pytest.mark.parametrize("sequence", [list, tuple])
def test_a_sequence_becomes_a_cell_row(sequence):
    cell = to_host(sequence(["red", 2, sequence([])]))
    assert (cell["class"], cell["dims"]) == ("cell", [1, 3])
    assert [part["class"] for part in cell["cells"]] == ["char", "double", "cell"]
    assert cell["cells"][2]["dims"] == [1, 0]


def test_an_object_array_becomes_a_cell_of_its_dimensions():
    objects = np.empty((2, 2), object)
    objects[0, 0], objects[1, 0], objects[0, 1], objects[1, 1] = "a", "b", "c", "d"
    cell = to_host(objects)
    assert (cell["class"], cell["dims"]) == ("cell", [2, 2])
    assert [part["bytes"] for part in cell["cells"]] == [units(text) for text in "abcd"]
    assert to_host(np.array(["x"], object))["dims"] == [1, 1]


def test_a_dict_becomes_a_struct_with_its_fields_in_order():
    struct = to_host({"b": 1, "a": {"é": "x"}, "": True})
    assert (struct["class"], struct["dims"]) == ("struct", [1, 1])
    assert list(struct["fields"]) == ["b", "a", ""]
    assert struct["fields"]["a"]["fields"]["é"]["bytes"] == units("x")
    assert to_host({})["fields"] == {}


class Unknown:
    pass


@pytest.mark.parametrize(
    ("value", "name"),
    [
        (None, "NoneType"),
        (1j, "complex"),
        (Unknown(), "Unknown"),
        ({1, 2}, "set"),
        (range(3), "range"),
        (memoryview(b"a"), "memoryview"),
        (np.complex128(1), "complex128"),
        (np.float16(1), "float16"),
        (np.longdouble(1), "float128"),
        (np.datetime64("2020-01-01"), "datetime64"),
        (np.zeros(2, np.float16), "float16"),
        (np.zeros(2, np.complex64), "complex64"),
        (np.zeros(2, "m8[s]"), "timedelta64"),
        (np.zeros(2, [("x", "u1")]), "x"),
        (np.array(["ab"]), "U2"),
        (np.array([b"a"]), "S1"),
        (np.array(["a", "😀"]), "U\\+FFFF"),
        ([1, [None]], "NoneType"),
        (np.array([None]), "NoneType"),
        ({"a": 1j}, "complex"),
        ({1: 2}, "int"),
        ({"a\0b": 2}, "NUL"),
    ],
    ids=lambda value: repr(value) if isinstance(value, str) else "",
)
def test_anything_else_is_refused_by_type_and_position(value, name):
    with pytest.raises(TypeError, match=name) as caught:
        tagbridge.call("no such operation", 1, value)
    assert "argument 3" in str(caught.value)
    assert "input 2" in str(caught.value)


def test_an_int_beyond_every_double_is_refused_by_position():
    with pytest.raises(OverflowError, match="argument 2"):
        tagbridge.call("no such operation", 10**400)
    with pytest.raises(OverflowError, match="argument 2"):
        tagbridge.call("no such operation", [10**400])


@pytest.mark.parametrize("make", [lambda: [], lambda: {}, lambda: np.empty(1, object)])
def test_a_value_that_contains_itself_is_refused(make):
    value = make()
    if isinstance(value, dict):
        value["self"] = value
    elif isinstance(value, list):
        value.append(value)
    else:
        value[0] = value
    with pytest.raises(ValueError, match=r"call\(\) argument 2 .* more than 100 levels deep"):
        tagbridge.call("no such operation", value)


def in_an_object_array(value: Any) -> np.ndarray:
    array = np.empty((1, 2), object)
    array[0, 1] = value
    array[0, 0] = 0.0
    return array


@pytest.mark.parametrize(
    "wrap",
    [lambda value: [value], lambda value: (1.0, value), lambda value: {"a": value},
     in_an_object_array],
    ids=["list", "tuple", "dict", "array"],
)
def test_values_lie_in_one_another_up_to_100_levels_deep(wrap):
    value = 1.0
    for _ in range(100):
        value = wrap(value)
    to_host(value)
    with pytest.raises(ValueError, match="100 levels"):
        to_host(wrap(value))


def test_very_deep_values_do_not_exhaust_the_stack():
    value: list[Any] = []
    for _ in range(100_000):
        value = [value]
    limit = sys.getrecursionlimit()
    sys.setrecursionlimit(10**6)
    try:
        with pytest.raises(ValueError, match="100 levels"):
            to_host(value)
    finally:
        sys.setrecursionlimit(limit)


class Emptying(np.ndarray):
    """Runs what it is told when a copy of it is made, as for a host that wants columns."""

    hook = staticmethod(lambda: None)

    def __array_finalize__(self, original: Any) -> None:
        Emptying.hook()


def array_of(values: list[Any]) -> np.ndarray:
    array = np.empty(len(values), object)
    array[:] = values
    return array


@pytest.fixture
def emptying() -> Iterator[Any]:
    """A value that empties a container, given afterwards, while it is converted."""
    value = np.array([[1.0, 2.0], [3.0, 4.0]], object).view(Emptying)

    def empty(container: Any) -> None:
        def hook() -> None:
            if isinstance(container, np.ndarray):
                container[:] = None
            else:
                container.clear()
            [np.full(500, -1.0) for _ in range(50)]  # what was freed is used again

        Emptying.hook = staticmethod(hook)

    yield value, empty
    Emptying.hook = staticmethod(lambda: None)


@pytest.mark.parametrize("make", [list, array_of], ids=["list", "array"])
def test_items_are_converted_though_their_container_is_emptied(emptying, make):
    value, empty = emptying
    container = make([value, *(np.full(500, float(n)) for n in range(20))])
    empty(container)
    cells = to_host(container)["cells"]
    assert not any(item is value for item in container), "the hook has not run"
    assert [cell["bytes"] for cell in cells[1:]] == [np.full(500, float(n)).tobytes()
                                                     for n in range(20)]


def test_fields_are_converted_though_their_dict_is_emptied(emptying):
    value, empty = emptying
    container = {"first": value, **{f"f{n}": np.full(500, float(n)) for n in range(20)}}
    empty(container)
    fields = to_host(container)["fields"]
    assert not container, "the hook has not run"
    assert [fields[f"f{n}"]["bytes"] for n in range(20)] == [np.full(500, float(n)).tobytes()
                                                             for n in range(20)]
