"""What is written and converted is opened by other programs: libtiff's, exiftool, GDAL, tifffile, Pillow."""

from __future__ import annotations

import json
import re
import subprocess
from pathlib import Path
from typing import Any, NamedTuple

import numpy as np
import pytest
import tagbridge
import tifffile
from images import EXAMPLES, image
from osgeo import gdal
from PIL import Image
from tagbridge.cli import main

gdal.UseExceptions()

LAYOUTS: list[dict[str, Any]] = [{"rows_per_strip": 13}, {"tile": (32, 48)}]
LOSSLESS = ["none", "packbits", "lzw", "deflate"]
PROPER = {"float32", "float64"}
# What tifffile can decode by itself, and what Pillow has a mode for.
BY_TIFFFILE = {"none", "packbits", "deflate"}
BY_PILLOW = {"bool", "uint8", "uint16", "int16", "int32", "float32"}


class Case(NamedTuple):
    """A file that is written in the tests."""

    name: str
    shape: tuple[int, ...]
    dtype: str
    options: dict[str, Any]
    mode: str = "w"

    @property
    def compression(self) -> str:
        return self.options.get("compression", "none")


def cases() -> list[Case]:
    """Every dtype in either layout, and every compression, arrangement and format of file."""
    found = []
    for number, layout in enumerate(LAYOUTS):
        kind = ["strips", "tiles"][number]
        found += [Case(f"{dtype}-{kind}", (70, 90), dtype, layout) for dtype in
                  ["bool", "uint8", "int8", "uint16", "int16", "uint32", "int32", *sorted(PROPER)]]
        found += [Case(f"{samples}-samples-{planar}-{kind}", (70, 90, samples), "uint8",
                       {**layout, "planar": planar})
                  for samples in (2, 3, 4) for planar in ("contig", "separate")]
        found += [Case(f"{compression}-{predictor}-{dtype}-{kind}", (70, 90, 3), dtype,
                       {**layout, "compression": compression, "predictor": predictor})
                  for compression in LOSSLESS for dtype in ("uint8", "uint16", "float32")
                  for predictor in (None, True)
                  if predictor is None or compression in ("lzw", "deflate")]
        found += [Case(f"{compression}-{kind}", (70, 90), "bool", {**layout, "compression": compression})
                  for compression in ("group3", "group4")]
        found += [Case(f"{mode}-{kind}", (70, 90), "uint16", layout, mode)
                  for mode in ("wl", "wb", "w8l", "w8b")]
        found.append(Case(f"jpeg-{kind}", (70, 90, 3), "uint8",
                          {"compression": "jpeg", **({"rows_per_strip": 16} if number == 0 else layout)}))
        found.append(Case(f"palette-{kind}", (70, 90), "uint8",
                          {**layout, "colormap": np.linspace(0, 1, 768).reshape(256, 3)}))
    return found


CASES = cases()
CONVERSIONS = [[], ["--tile", "64x48"], ["--compression", "lzw", "--predictor"], ["--bigtiff"],
               ["--planar", "separate"], ["--pyramid"], ["--compression", "deflate", "--region", "5:90,9:80"]]


@pytest.fixture(scope="module")
def folder(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """All files, those that were converted below ``converted``."""
    made = tmp_path_factory.mktemp("files")
    for case in CASES:
        with tagbridge.open(made / f"{case.name}.tif", case.mode) as tif:
            tif.write(image(case.shape, case.dtype), resolution=300, description="a picture",
                      tags={"Artist": "me"}, **case.options)
    (made / "converted").mkdir()
    for example in sorted(EXAMPLES.glob("*.tif")):
        for number, options in enumerate(CONVERSIONS):
            out = made / "converted" / f"{example.stem}-{number}.tif"
            assert main(["convert", str(example), str(out), *options]) == 0, (example, options)
    return made


def test_tiffinfo_has_no_complaint(folder: Path):
    files = sorted(map(str, folder.rglob("*.tif")))
    assert len(files) == len(CASES) + len(CONVERSIONS) * len(list(EXAMPLES.glob("*.tif")))
    done = subprocess.run(["tiffinfo", "-D", *files], capture_output=True, text=True, check=False)
    # It does not know the tags of maps.
    complaints = [line for line in done.stderr.splitlines()
                  if not re.search("Unknown field with tag (33550|33922|34735|34737)", line)]
    assert (done.returncode, complaints) == (0, [])


def test_exiftool_has_no_error(folder: Path):
    done = subprocess.run(["exiftool", "-json", "-r", "-error", "-fileType", "-imageSize", str(folder)],
                          capture_output=True, text=True, check=False)
    shown = json.loads(done.stdout)
    assert len(shown) == len(list(folder.rglob("*.tif")))
    for file in shown:
        assert "Error" not in file and file["FileType"] in ("TIFF", "BTF"), file
        assert "x" in file["ImageSize"], file


def same(got: Any, wanted: np.ndarray, case: Case) -> None:
    """Compare pixels; JPEG loses some of them."""
    assert got.shape == wanted.shape
    if case.compression == "jpeg":
        assert abs(got.astype(int) - wanted).mean() < 3
    else:
        np.testing.assert_array_equal(got, wanted)


@pytest.mark.parametrize("case", CASES, ids=lambda case: case.name)
def test_gdal_reads_the_same(folder: Path, case: Case):
    path = folder / f"{case.name}.tif"
    bands = gdal.Open(str(path)).ReadAsArray()
    same(np.moveaxis(bands, 0, 2) if bands.ndim == 3 else bands, tagbridge.imread(path), case)


@pytest.mark.parametrize("case", CASES, ids=lambda case: case.name)
def test_tifffile_reads_the_same(folder: Path, case: Case):
    path = folder / f"{case.name}.tif"
    with tifffile.TiffFile(path) as other:
        page = other.pages[0]
        assert (page.imagelength, page.imagewidth, page.dtype) == (70, 90, np.dtype(case.dtype))
        assert page.tags["Artist"].value == "me"
        floats_apart = case.options.get("predictor") and case.dtype in PROPER
        if case.compression in BY_TIFFFILE and case.dtype != "bool" and not floats_apart:
            got = page.asarray()
            apart = case.options.get("planar") == "separate"
            same(np.moveaxis(got, 0, 2) if apart else got, tagbridge.imread(path), case)


def readable_by_pillow(case: Case) -> bool:
    """Whether Pillow has a mode for it."""
    if case.mode[1:2] == "8":
        return False  # no BigTIFF
    if len(case.shape) == 2:
        return case.dtype in BY_PILLOW
    return case.dtype == "uint8" and (case.shape[2] > 2 or case.options.get("planar") == "contig")


@pytest.mark.parametrize("case", list(filter(readable_by_pillow, CASES)), ids=lambda case: case.name)
def test_pillow_reads_the_same(folder: Path, case: Case):
    path = folder / f"{case.name}.tif"
    with Image.open(path) as picture:
        same(np.asarray(picture), tagbridge.imread(path), case)


@pytest.mark.parametrize("example", sorted(EXAMPLES.glob("*.tif")), ids=lambda path: path.stem)
def test_conversions_are_read_alike_by_gdal_and_tifffile(folder: Path, example: Path):
    for path in sorted((folder / "converted").glob(f"{example.stem}-*.tif")):
        with tagbridge.open(path) as tif, tifffile.TiffFile(path) as other:
            assert len(other.pages) == len(tif)
            assert [page.imagelength for page in other.pages] == [page.shape[0] for page in tif]
            for number, page in enumerate(tif, start=1):
                bands = gdal.Open(f"GTIFF_DIR:{number}:{path}").ReadAsArray()
                if page.photometric == tagbridge.Photometric.SEPARATED:
                    continue  # GDAL makes RGB of inks
                got = np.moveaxis(bands, 0, 2) if bands.ndim == 3 else bands
                np.testing.assert_array_equal(got, page.read())
