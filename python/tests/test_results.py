"""What comes out of the module, as values of Python."""

from __future__ import annotations

import numpy as np
import pytest
from host_classes import CELL, CHAR, CLASS_CODES, STRUCT, elements, units
from tagbridge_conversions import to_host, to_python


@pytest.mark.parametrize("host_class", CLASS_CODES)
@pytest.mark.parametrize("dims", [[1, 1], [2, 3], [2, 3, 4], [0, 0], [1, 0], [5, 1]])
def test_a_numeric_result_is_a_writable_column_major_view(host_class, dims):
    code, dtype = CLASS_CODES[host_class]
    values = (np.arange(np.prod(dims)) % 2).astype(dtype).reshape(dims, order="F")
    array = to_python((code, dims, values.tobytes(order="F")))
    assert array.dtype == dtype
    assert array.dtype.isnative
    assert array.shape == tuple(dims)
    np.testing.assert_array_equal(array, values)
    assert array.flags.f_contiguous
    assert array.flags.writeable
    assert array.flags.aligned
    assert not array.flags.owndata


def test_a_result_is_passed_on_without_a_copy():
    array = to_python((6, [10, 10], bytes(800)))
    assert to_host(array)["address"] == array.__array_interface__["data"][0]


def test_results_have_elements_of_their_own_also_after_others_ended():
    for _ in range(2):
        results = [to_python((6, [1, 1], bytes(8))) for _ in range(40)]
        for number, result in enumerate(results):
            result[0, 0] = number
        assert [result[0, 0] for result in results] == list(range(40))
        del results, result


def test_parts_of_a_result_outlive_the_whole():
    cell = to_python((CELL, [1, 2], [(9, [1, 3], b"abc"), (9, [1, 40], bytes(40))]))
    part = cell[0, 0]
    del cell
    assert part.tobytes() == b"abc"
    part[0, 0] = 7
    assert part[0, 0] == 7


@pytest.mark.parametrize(
    ("dims", "text"),
    [([1, 3], "abc"), ([1, 1], "é"), ([0, 0], ""), ([1, 0], ""), ([3, 0], ""), ([0, 2, 2], "")],
)
def test_a_char_row_and_every_empty_char_array_is_a_str(dims, text):
    assert to_python((CHAR, dims, units(text))) == text


def test_a_str_has_one_character_for_each_element():
    assert to_python((CHAR, [1, 2], units("😀"))) == "\ud83d\ude00"
    assert to_python((CHAR, [1, 3], units("a\0Ω"))) == "a\0Ω"


@pytest.mark.parametrize("dims", [[2, 2], [4, 1], [1, 2, 2]])
def test_other_char_arrays_are_arrays_of_characters(dims):
    array = to_python((CHAR, dims, units("aΩcd")))
    assert array.dtype == np.dtype("<U1")
    assert array.shape == tuple(dims)
    assert array.ravel(order="F").tolist() == ["a", "Ω", "c", "d"]


def test_a_cell_is_an_object_array_with_none_where_it_is_unset():
    parts = [(CHAR, [1, 1], units("a")), None, (6, [1, 1], elements(2, "f8")), (CELL, [0, 0], [])]
    cell = to_python((CELL, [2, 2], parts))
    assert cell.dtype == object
    assert cell[0, 0] == "a"
    assert cell[1, 0] is None
    assert cell[0, 1] == 2
    assert cell[1, 1].shape == (0, 0)


def test_a_struct_is_a_dict_with_its_fields_in_order():
    struct = to_python((STRUCT, [1, 1], [{"z": (CHAR, [1, 1], units("q")), "a": None}]))
    assert list(struct.items()) == [("z", "q"), ("a", None)]


def test_other_structs_are_object_arrays_of_dicts():
    elements_ = [{"n": (CHAR, [1, 1], units(text))} for text in "xyz"]
    array = to_python((STRUCT, [1, 3], elements_))
    assert array.shape == (1, 3)
    assert array.tolist() == [[{"n": "x"}, {"n": "y"}, {"n": "z"}]]


def test_an_empty_slot_is_none():
    assert to_python(None) is None


@pytest.mark.parametrize("text", ["", "plain", "\0\x01\xff", "".join(map(chr, range(256)))])
def test_text_returns_as_it_went(text):
    array = to_host(text)
    assert to_python((CHAR, array["dims"], array["bytes"])) == text
