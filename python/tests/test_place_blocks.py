"""Copying blocks into their place, the one step of reading that is not Python's."""

from __future__ import annotations

import numpy as np
import pytest
from images import image
from tagbridge._core import place_blocks


@pytest.mark.parametrize("shape", [(10, 7), (10, 7, 3)])
@pytest.mark.parametrize("dtype", [bool, "uint8", "int16", "float32", "float64"])
@pytest.mark.parametrize("heights", [[10], [4, 4, 2], [1] * 10, [0, 10]])
def test_blocks_come_below_each_other(shape, dtype, heights):
    whole = np.zeros((30, 20, *shape[2:]), dtype, order="F")
    source = np.asfortranarray(image(shape, dtype))
    edges = np.cumsum([0, *heights])
    target = whole[5:15, 3:10]
    place_blocks(target, [source[a:b] for a, b in zip(edges, edges[1:], strict=False)])
    np.testing.assert_array_equal(target, source)
    target[...] = 0
    assert not whole.any()


TARGET = np.zeros((10, 7), np.uint8, order="F")


@pytest.mark.parametrize(("target", "blocks", "kind"), [
    (TARGET, [TARGET[:9]], ValueError), (TARGET, [], ValueError),
    (TARGET, [TARGET[:, :6]], ValueError), (TARGET, [TARGET.astype(np.uint16)], ValueError),
    (TARGET, [np.zeros((10, 7), np.uint8)], ValueError), (TARGET, [5], ValueError),
    (TARGET, [np.zeros((10, 7, 2), np.uint8, order="F")], ValueError),
    (np.zeros((10, 7), np.uint8), [TARGET], ValueError), (5, [TARGET], TypeError)])
def test_what_does_not_fit_is_refused(target, blocks, kind):
    with pytest.raises(kind):
        place_blocks(target, blocks)


def test_a_target_that_cannot_be_written_is_refused():
    target = TARGET.copy(order="F")
    target.flags.writeable = False
    with pytest.raises(ValueError):
        place_blocks(target, [TARGET])
