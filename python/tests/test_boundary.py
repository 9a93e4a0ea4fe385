"""What NumPy and Python can hand to the package: odd arrays, and objects that act when asked."""

from __future__ import annotations

import gc
import io
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tagbridge
from host_classes import elements
from images import image, write
from numpy.lib.stride_tricks import as_strided
from tagbridge_conversions import to_host

SHAPE = (37, 53)


def memmap(array: np.ndarray, folder: Path) -> np.ndarray:
    path = folder / "mapped"
    array.tofile(path)
    return np.memmap(path, array.dtype, "r+", shape=array.shape)


def unaligned(array: np.ndarray, _: Path) -> np.ndarray:
    memory = np.zeros(array.nbytes + 1, np.uint8)
    view = memory[1:].view(array.dtype).reshape(array.shape)
    view[...] = array
    return view


class Tagged(np.ndarray):
    """A subclass that says of itself what is not so."""

    @property
    def strides(self) -> tuple[int, ...]:  # type: ignore[override]
        return (10**9,) * self.ndim

    def __getitem__(self, key: Any) -> Any:
        raise RuntimeError("not to be asked")


# Arrays of equal elements; each is made of a plain one.
LAYOUTS: dict[str, Callable[[np.ndarray, Path], np.ndarray]] = {
    "upside down": lambda array, _: array[::-1].copy()[::-1],
    "mirrored": lambda array, _: array[:, ::-1].copy()[:, ::-1],
    "turned": lambda array, _: array.T.copy().T,
    "some of more": lambda array, _: np.repeat(np.repeat(array, 3, 0), 2, 1)[::3, ::2],
    "matrix": lambda array, _: np.matrix(array),
    "masked": lambda array, _: np.ma.masked_array(array, array % 2 == 0),
    "hard mask": lambda array, _: np.ma.masked_array(array, array % 2 == 0, hard_mask=True),
    "memmap": memmap,
    "unaligned": unaligned,
    "liar": lambda array, _: array.copy().view(Tagged),
    "record": lambda array, _: array.copy().view(np.recarray),
}


@pytest.mark.filterwarnings("ignore::PendingDeprecationWarning")
@pytest.mark.parametrize("layout", LAYOUTS)
@pytest.mark.parametrize("options", [{}, {"tile": (16, 16)}], ids=["strips", "tiles"])
def test_arrays_of_every_kind_are_written_by_their_elements(tmp_path: Path, layout: str, options):
    array = image(SHAPE, np.uint16)
    given = LAYOUTS[layout](array, tmp_path)
    given.flags.writeable = False
    tagbridge.imwrite(tmp_path / "a.tif", given, **options)
    np.testing.assert_array_equal(tagbridge.imread(tmp_path / "a.tif"), array)


@pytest.mark.filterwarnings("ignore::PendingDeprecationWarning")
@pytest.mark.parametrize("layout", LAYOUTS)
@pytest.mark.parametrize("options", [{"rowsperstrip": 5}, {"tile": (16, 16)}], ids=["strips", "tiles"])
@pytest.mark.parametrize("threads", [1, 2])
def test_out_of_every_kind_is_filled(tmp_path: Path, layout: str, options, threads: int):
    array = image(SHAPE, np.uint16)
    write(tmp_path / "a.tif", array, **options)
    out = LAYOUTS[layout](np.zeros(SHAPE, np.uint16), tmp_path)
    assert tagbridge.imread(tmp_path / "a.tif", out=out, threads=threads) is out
    np.testing.assert_array_equal(np.asarray(out).view(np.ndarray), array)


def test_out_whose_elements_share_memory_holds_one_of_theirs(tmp_path: Path):
    array = image(SHAPE)
    write(tmp_path / "a.tif", array, rowsperstrip=5)
    for strides in ((0, 0), (1, 0), (0, 1), (1, 1)):
        memory = np.zeros(100, np.uint8)
        out = as_strided(memory, SHAPE, strides)
        tagbridge.imread(tmp_path / "a.tif", out=out)
        assert not memory[sum((length - 1) * stride + 1 for length, stride
                              in zip(SHAPE, strides, strict=True)):].any()


@pytest.mark.parametrize("out", [
    np.zeros(SHAPE, ">u2"), np.zeros(SHAPE, "<i2"), np.zeros(SHAPE, np.float16),
    np.zeros(SHAPE, np.complex64), np.zeros(SHAPE, "M8[s]"), np.zeros(SHAPE, object),
    np.zeros(SHAPE, [("a", "<u2")]), np.zeros(SHAPE, "U1"), [[0] * 53] * 37, memoryview(bytes(4)),
    np.uint16(0), object()], ids=lambda out: str(getattr(out, "dtype", type(out).__name__)))
def test_out_of_another_type_is_refused(tmp_path: Path, out):
    write(tmp_path / "a.tif", image(SHAPE, np.uint16))
    with pytest.raises(TypeError, match="out must be an array of uint16"):
        tagbridge.imread(tmp_path / "a.tif", out=out)


@pytest.mark.parametrize("shape", [(), (0,), (37,), (0, 53), (37, 53, 1), (1, 37, 53), (53, 37)])
def test_out_of_another_shape_is_refused(tmp_path: Path, shape):
    write(tmp_path / "a.tif", image(SHAPE))
    with pytest.raises(ValueError, match="shape"):
        tagbridge.imread(tmp_path / "a.tif", out=np.zeros(shape, np.uint8))


@pytest.mark.parametrize("data", [
    np.zeros(SHAPE, np.float16), np.zeros(SHAPE, np.longdouble), np.zeros(SHAPE, np.complex128),
    np.zeros(SHAPE, "M8[D]"), np.zeros(SHAPE, "m8[s]"), np.zeros(SHAPE, [("a", "u1"), ("b", "f4")]),
    np.zeros(SHAPE, "S3"), np.zeros(SHAPE, "U2"), np.zeros(SHAPE, object), np.zeros(SHAPE, "V4"),
    np.zeros(SHAPE, np.int64), 5, None, object()],
    ids=lambda data: str(getattr(data, "dtype", type(data).__name__)))
def test_samples_that_tiff_lacks_are_refused_and_nothing_is_lost(tmp_path: Path, data):
    path = tmp_path / "a.tif"
    path.write_bytes(b"what was there")
    with pytest.raises(TypeError):
        tagbridge.imwrite(path, data)
    assert path.read_bytes() == b"what was there"
    assert list(tmp_path.iterdir()) == [path]


@pytest.mark.parametrize("shape", [(), (0,), (5,), (0, 5), (5, 0), (5, 5, 0), (1, 2, 3, 4)])
def test_shapes_that_are_no_image_are_refused(tmp_path: Path, shape):
    with pytest.raises(ValueError):
        tagbridge.imwrite(tmp_path / "a.tif", np.zeros(shape, np.uint8))
    assert list(tmp_path.iterdir()) == []


# --- Arrays of one element that claim to have many

@pytest.mark.parametrize("element", [1.0, np.uint8(1), True, "a", "object"])
@pytest.mark.parametrize("shape", [(2**42,), (2**21, 2**21), (2**14, 2**14, 2**14)], ids=str)
def test_an_array_that_repeats_one_element_costs_nothing_before_it_is_refused(element, shape):
    one = np.array([1.0], object) if element == "object" else np.array([element])
    with pytest.raises(MemoryError):
        tagbridge.call("close", np.broadcast_to(one, shape))


def test_a_cell_may_have_as_many_elements_as_memory_is_allowed_for():
    one = np.array([1.0], object)
    tagbridge.set_memory_limit(1 << 20)
    try:
        assert len(to_host(np.broadcast_to(one, (1000,)))["cells"]) == 1000
        with pytest.raises(MemoryError):
            to_host(np.broadcast_to(one, (1 << 17,)))
    finally:
        tagbridge.set_memory_limit(0)


MANY = np.broadcast_to(np.array([1.0], object), (1000,))
THREE_TIMES = np.empty(3, object)
for place in range(3):
    THREE_TIMES[place] = MANY


@pytest.mark.parametrize("few", [[MANY] * 3, dict.fromkeys("abc", MANY), THREE_TIMES],
                         ids=["list", "dict", "array"])
def test_arrays_in_one_another_may_have_as_many_elements_in_all(few):
    tagbridge.set_memory_limit(1 << 20)
    try:
        to_host(few)
        with pytest.raises(MemoryError):
            to_host([few, few])
    finally:
        tagbridge.set_memory_limit(0)


def test_an_image_that_repeats_one_element_beyond_all_files_is_an_error(tmp_path: Path):
    for shape in ((2**31, 2**30), (2**34, 5), (2**31, 3)):
        with pytest.raises((tagbridge.Error, MemoryError)):
            tagbridge.imwrite(tmp_path / "a.tif", np.broadcast_to(np.uint8(0), shape),
                              rows_per_strip=1)
    assert list(tmp_path.iterdir()) == []


# --- Subclasses that act while they are copied

class Acting(np.ndarray):
    """Does what it is told whenever an array is made of it."""

    action: Any = staticmethod(lambda array: None)

    def __array_finalize__(self, original: Any) -> None:
        Acting.action(self)


@pytest.fixture
def acting() -> Iterator[Callable[[np.ndarray, Any], np.ndarray]]:
    def make(array: np.ndarray, action: Any) -> np.ndarray:
        Acting.action = staticmethod(lambda array: None)
        view = array.view(Acting)
        Acting.action = staticmethod(action)
        return view

    yield make
    Acting.action = staticmethod(lambda array: None)


def fail(_: Any) -> None:
    raise LookupError("no array is made of this one")


def grow(array: np.ndarray) -> None:
    """Make the copy larger than what it is a copy of."""
    if array.ndim == 2 and array.base is None:
        array.resize((5000, *array.shape), refcheck=False)


@pytest.mark.parametrize("action", [fail, grow], ids=lambda action: action.__name__)
@pytest.mark.parametrize("array", [
    np.arange(12, dtype=">i4").reshape(3, 4), np.arange(12.0).reshape(3, 4)[::-1],
    np.arange(24.0).reshape(3, 8)[:, ::2], np.arange(12, dtype=">f8").reshape(3, 4)[::-1, ::-1]],
    ids=["swapped", "upside down", "some columns", "turned"])
def test_a_subclass_has_no_say_in_how_its_elements_are_copied(acting, array, action):
    native = array.astype(array.dtype.newbyteorder("="))
    host = to_host(acting(array, action))
    assert host["dims"] == [3, 4] and host["bytes"] == elements(native, native.dtype)


def test_an_exception_of_a_subclass_arrives_and_nothing_is_lost(tmp_path: Path, acting):
    path = tmp_path / "a.tif"
    path.write_bytes(b"what was there")
    objects = acting(np.array([["a", "b"], ["c", "d"]], object), fail)
    with pytest.raises(LookupError):
        tagbridge.call("close", objects)
    write(tmp_path / "b.tif", image(SHAPE))
    out = acting(np.zeros(SHAPE, np.uint8), fail)
    tagbridge.imread(tmp_path / "b.tif", out=out)
    assert path.read_bytes() == b"what was there"


# --- Objects that raise, or use the package, when they are asked for their value

class Asked:
    """Acts whenever it is asked to be something else."""

    def __init__(self, action: Callable[[], Any]) -> None:
        self._action = action

    def __index__(self) -> int:
        return self._action() or 0

    __int__ = __len__ = __hash__ = __index__

    def __array__(self, dtype: Any = None) -> np.ndarray:
        return self._action() or np.zeros(SHAPE, np.uint8)

    def __str__(self) -> str:
        return self._action() or "0"

    __repr__ = __fspath__ = __str__

    def __float__(self) -> float:
        return float(self._action() or 0)

    def __iter__(self) -> Iterator[Any]:
        return iter(self._action() or ())


def refuse() -> None:
    raise LookupError("not now")


USES: dict[str, Callable[[Any, Any], Any]] = {
    "directory": lambda tif, asked: tif[asked],
    "row": lambda tif, asked: tif[0][asked],
    "rows": lambda tif, asked: tif[0][asked:asked],
    "block": lambda tif, asked: tif.blocks[asked],
    "outputs": lambda tif, asked: tagbridge.call("getVersion", outputs=asked),
    "open": lambda tif, asked: tagbridge.open(asked),
    "imwrite": lambda tif, asked: tagbridge.imwrite(asked, np.zeros((5, 5), np.uint8)),
    "array": lambda tif, asked: tagbridge.imwrite(io.BytesIO(), asked),
    "numbers": lambda tif, asked: tif.tags.__setitem__("ModelPixelScaleTag", asked),
    "number": lambda tif, asked: tif.tags.__setitem__("XResolution", asked),
    "texts": lambda tif, asked: tif.tags.__setitem__("InkNames", asked),
    "tile": lambda tif, asked: tagbridge.imwrite(
        io.BytesIO(), np.zeros((5, 5), np.uint8), tile=(asked, asked)),
    "resolution": lambda tif, asked: tagbridge.imwrite(
        io.BytesIO(), np.zeros((5, 5), np.uint8), resolution=asked),
    "colormap": lambda tif, asked: tagbridge.imwrite(
        io.BytesIO(), np.zeros((5, 5), np.uint8), colormap=asked),
    "text": lambda tif, asked: tagbridge.imwrite(
        io.BytesIO(), np.zeros((5, 5), np.uint8), description=asked),
    "operation": lambda tif, asked: tagbridge.call(asked),
    "input": lambda tif, asked: tagbridge.call("close", asked),
    "limit": lambda tif, asked: tagbridge.set_cache_limit(asked),
}


@pytest.fixture
def edited(tmp_path: Path, monkeypatch) -> Iterator[tagbridge.File]:
    monkeypatch.chdir(tmp_path)  # some of the objects are names of files
    array = image(SHAPE)
    tagbridge.imwrite(tmp_path / "edited.tif", array, rows_per_strip=8)
    with tagbridge.open(tmp_path / "edited.tif", "r+") as tif:
        yield tif
    np.testing.assert_array_equal(tagbridge.imread(tmp_path / "edited.tif"), array)


@pytest.mark.parametrize("use", USES)
def test_an_object_that_raises_when_asked_ends_in_an_exception(edited: tagbridge.File, use: str):
    limit = tagbridge.cache_limit()
    with pytest.raises((LookupError, TypeError, ValueError, AttributeError, tagbridge.Error)):
        USES[use](edited, Asked(refuse))
    assert edited.read().shape == SHAPE and tagbridge.cache_limit() == limit


@pytest.mark.parametrize("use", USES)
def test_an_object_that_closes_the_file_when_asked_does_no_harm(edited: tagbridge.File, use: str):
    limit = tagbridge.cache_limit()
    try:
        USES[use](edited, Asked(edited.close))
    except (ValueError, TypeError, AttributeError, OSError, tagbridge.Error):
        pass
    finally:
        tagbridge.set_cache_limit(limit)
    with pytest.raises(ValueError, match="closed"):
        edited.close()
        edited.read()


@pytest.mark.parametrize("threads", [1, 2])
def test_a_file_may_be_closed_by_what_is_told_of_progress(tmp_path: Path, threads: int):
    array = image((300, 200))
    write(tmp_path / "a.tif", array, rowsperstrip=10)
    tif = tagbridge.open(tmp_path / "a.tif")
    try:
        got = tif.read(progress=lambda done, total: tif.close(), threads=threads)
    except ValueError as error:
        assert "closed" in str(error)
    else:
        np.testing.assert_array_equal(got, array)
    assert tif.closed


def test_what_is_told_of_progress_may_read_the_file(tmp_path: Path):
    array = image((100, 200))
    write(tmp_path / "a.tif", array, rowsperstrip=10)
    for threads in (1, 2):
        inner = []
        with tagbridge.open(tmp_path / "a.tif") as tif:
            outer = tif.read(progress=lambda done, total: inner.append(tif.read()), threads=threads)
        for got in (outer, *inner):
            np.testing.assert_array_equal(got, array)


def test_a_file_may_be_closed_by_the_blocks_that_are_written(tmp_path: Path):
    tif = tagbridge.open(tmp_path / "a.tif", "w")

    def blocks() -> Iterator[np.ndarray]:
        yield np.zeros((10, 20), np.uint8)
        tif.close()
        yield np.zeros((10, 20), np.uint8)

    with pytest.raises(ValueError, match="closed"):
        tif.write(blocks(), shape=(20, 20), dtype=np.uint8, rows_per_strip=10)
    tif.close()
    assert list(tmp_path.iterdir()) == []


# --- Memory that others let go of

def test_an_array_outlives_its_owner_during_a_call():
    arrays = [np.asfortranarray(image((400, 300), np.uint16))]
    wanted = arrays[0].copy()

    class Forgetful(io.BytesIO):
        def write(self, data: Any) -> int:
            arrays.clear()
            gc.collect()
            [np.full((400, 300), 7, np.uint16) for _ in range(5)]  # what was freed is used again
            return super().write(data)

    stream = Forgetful()
    tagbridge.imwrite(stream, arrays[0], rows_per_strip=50)
    assert arrays == []
    np.testing.assert_array_equal(tagbridge.imread(stream), wanted)


def test_an_array_cannot_be_resized_while_it_is_filled(tmp_path: Path):
    array = image((64, 64), np.uint16)
    write(tmp_path / "a.tif", array, rowsperstrip=16)
    out, refused = np.zeros((64, 64), np.uint16, order="F"), []

    def resize(done: int, total: int) -> None:
        with pytest.raises(ValueError, match="resize"):
            out.resize((4, 4))
        refused.append(done)

    tagbridge.imread(tmp_path / "a.tif", out=out, progress=resize)
    assert refused
    np.testing.assert_array_equal(out, array)
