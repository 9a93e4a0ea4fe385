"""Images on a cluster of two processes, of which some die."""

from __future__ import annotations

import os
import runpy
import signal
import time
import warnings
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import dask.array as da
import numpy as np
import pytest
import tagbridge
import tagbridge.dask
import tagbridge.zarr
from distributed import Client, LocalCluster
from images import EXAMPLES, damage, image

pytestmark = pytest.mark.skipif(
    "libasan" in os.environ.get("LD_PRELOAD", ""),
    reason="a cluster under the sanitizers takes minutes to start",
)


@pytest.fixture(scope="module")
def client(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Client]:
    with (LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                       memory_limit=None, local_directory=str(tmp_path_factory.mktemp("workers"))
                       ) as cluster, Client(cluster) as connected):
        yield connected


@pytest.fixture
def tiles(tmp_path: Path) -> tuple[Path, np.ndarray]:
    path, pixels = tmp_path / "tiles.tif", image((400, 300), np.uint16)
    tagbridge.imwrite(path, pixels, tile=(64, 64), compression="lzw")
    return path, pixels


def noted(block: np.ndarray, folder: str) -> np.ndarray:
    """Take some time, and leave a file named after the process."""
    time.sleep(0.05)
    Path(folder, f"{os.getpid()}.pid").touch()
    return block


def noted_tiles(path: Path, folder: Path) -> da.Array:
    folder.mkdir()
    return tagbridge.dask.from_tiff(path).map_blocks(noted, str(folder), dtype=np.uint16,
                                                     meta=np.empty((0, 0), np.uint16))


def kill_one(folder: Path, begun: Callable[[], bool]) -> None:
    """Kill a worker of this test's cluster that has done something but not all of it."""
    deadline = time.monotonic() + 60
    while not begun():
        assert time.monotonic() < deadline
        time.sleep(0.005)
    process = int(next(folder.glob("*.pid")).stem)
    assert process != os.getpid()
    os.kill(process, signal.SIGKILL)


def test_a_cluster_gives_what_numpy_gives(client, tiles):
    path, pixels = tiles
    array = tagbridge.dask.from_tiff(path)
    assert np.array_equal(array.compute(), pixels)
    assert array.astype(float).std().compute() == pytest.approx(pixels.std())
    assert np.array_equal(array[::-3, 7].compute(), pixels[::-3, 7])


def test_a_stack_is_computed_across_files(client, tmp_path):
    stack = image((6, 40, 50))
    for number, pixels in enumerate(stack):
        tagbridge.imwrite(tmp_path / f"{number}.tif", pixels)
    array = tagbridge.dask.from_tiff([tmp_path / f"{number}.tif" for number in range(6)])
    assert np.array_equal(array.max(axis=0).compute(), stack.max(axis=0))


def test_a_damaged_block_is_a_warning_where_the_result_goes(client, tiles):
    path, pixels = tiles
    damage(path, block=6)
    with warnings.catch_warnings(record=True) as said:
        warnings.simplefilter("always")
        found = tagbridge.dask.from_tiff(path).compute()
        deadline = time.monotonic() + 30  # it comes on another way than the result
        while not said and time.monotonic() < deadline:
            time.sleep(0.005)
    expected = pixels.copy()
    expected[64:128, 64:128] = 0
    assert np.array_equal(found, expected)
    assert [type(each.message) for each in said] == [tagbridge.Warning]


def test_a_damaged_block_is_an_error_when_strict(client, tiles):
    damage(tiles[0], block=6)
    with pytest.raises(tagbridge.DecodeError) as caught:
        tagbridge.dask.from_tiff(tiles[0], strict=True).compute()
    assert caught.value.blocks == [6]


def test_a_zarr_store_is_read_by_a_cluster(client, tiles):
    array = da.from_zarr(tagbridge.zarr.store(tiles[0]))
    assert np.array_equal(array.compute(), tiles[1])


def test_one_file_is_streamed_from_a_cluster(client, tiles, tmp_path):
    array = 7 + tagbridge.dask.from_tiff(tiles[0])
    tagbridge.dask.to_tiff(array, tmp_path / "out.tif", tile=(32, 32), compression="deflate")
    assert np.array_equal(tagbridge.imread(tmp_path / "out.tif"), 7 + tiles[1])


def test_both_workers_write_a_folder(client, tiles, tmp_path):
    array = noted_tiles(tiles[0], tmp_path / "pids")
    tagbridge.dask.to_tiffs(array, tmp_path / "folder", tile=(32, 32))
    assert np.array_equal(tagbridge.dask.from_tiff(tmp_path / "folder").compute(), tiles[1])
    assert len(list((tmp_path / "pids").iterdir())) == 2


def test_the_example_counts_what_numpy_counts(client, tmp_path):
    example = runpy.run_path(str(EXAMPLES / "cluster.py"))
    mosaic = example["mosaic"](1024)[:, :8192]
    tagbridge.dask.to_tiffs(mosaic, tmp_path, compression="deflate")
    counts = example["histogram"](tagbridge.dask.from_tiff(tmp_path, chunks=(512, 4096))).compute()
    assert np.array_equal(counts, np.bincount(mosaic.compute().ravel(), minlength=256))


def test_workers_keep_few_files_open(client, tmp_path):
    paths = [tmp_path / f"{number}.tif" for number in range(60)]
    for path in paths:
        tagbridge.imwrite(path, np.ones((8, 8), np.uint8))
    assert tagbridge.dask.from_tiff(paths).sum().compute() == 60 * 64

    def opened(folder: str) -> int:
        links = (os.path.realpath(f"/proc/self/fd/{each}") for each in os.listdir("/proc/self/fd"))
        return sum(link.startswith(folder) for link in links)

    assert 0 < max(client.run(opened, str(tmp_path)).values()) <= 16


def test_a_killed_worker_loses_nothing(client, tiles, tmp_path):
    pids = tmp_path / "pids"
    future = client.compute(noted_tiles(tiles[0], pids))
    kill_one(pids, begun=lambda: any(pids.iterdir()))
    assert np.array_equal(future.result(timeout=60), tiles[1])
    assert len(list(pids.iterdir())) >= 2


def test_a_worker_killed_while_it_writes_loses_nothing(client, tiles, tmp_path):
    folder, pids = tmp_path / "folder", tmp_path / "pids"
    array = noted_tiles(tiles[0], pids)
    with ThreadPoolExecutor(1) as pool:
        done = pool.submit(tagbridge.dask.to_tiffs, array, folder, tile=(32, 32))
        kill_one(pids, begun=lambda: any(folder.rglob("*.tif")))
        done.result(timeout=60)
    assert np.array_equal(tagbridge.dask.from_tiff(folder).compute(), tiles[1])
    assert not list(folder.rglob("*.part"))
