"""Tags written here are what other programs see, and tags that those write are read here."""

from __future__ import annotations

import json
import subprocess
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tag_table
import tifffile
from PIL import ImageCms

Tags = list[tuple[int, Any]]


def run(*command: str) -> str:
    done = subprocess.run(command, capture_output=True, check=True, timeout=60)
    return done.stdout.decode("latin-1")


def row(*elements: float) -> np.ndarray:
    return np.array([elements], np.float64)


def octets(*elements: int) -> np.ndarray:
    return np.array([elements], np.uint8)


GRAY: Tags = [(262, 1), (258, 8), (277, 1)]
RGB: Tags = [(262, 2), (258, 8), (277, 3)]
SEPARATED: Tags = [(262, 5), (258, 8), (277, 4)]
BILEVEL: Tags = [(262, 0), (258, 1), (277, 1)]
SIX = row(0.5, 0.25, 0.125, 0.75, 0.625, 0.375)
SIZE = 16


def write_image(path: Path, tags: Tags) -> Path:
    """A file of one black image with these tags, each plane in one strip, or tile if they say so."""
    present = dict(tags)
    kind = bool if present[258] == 1 else {8: np.uint8, 16: np.int16}[present[258]]
    file = tag_table.quiet("open", str(path), "w")
    size: Tags = [(256, SIZE), (257, SIZE)] + ([] if 322 in present else [(278, SIZE)])
    for tag, value in tags + size:
        tag_table.quiet("setField", file, tag, value)
    planes = present[277] if present.get(284) == 2 else 1
    pixels = np.zeros((SIZE, SIZE, present[277] // planes), kind, order="F")
    operation = "writeEncodedTile" if 322 in present else "writeEncodedStrip"
    for block in range(planes):
        tag_table.quiet(operation, file, block, pixels)
    tag_table.quiet("close", file)
    return path


def read(path: Path, *tags: int) -> list[Any]:
    file = tag_table.quiet("open", str(path), "r")
    try:
        return [tag_table.answer(file, tag) for tag in tags]
    finally:
        tag_table.quiet("close", file)


def words(text: str) -> str:
    return " ".join(text.split())


TIFFINFO: list[tuple[str, Tags, list[str]]] = [
    ("layout", [*RGB, (339, 1), (284, 1), (266, 1), (274, 3), (254, 2)], [
        "Subfile Type: multi-page document (2 = 0x2)", "Image Width: 16 Image Length: 16",
        "Bits/Sample: 8", "Sample Format: unsigned integer", "Samples/Pixel: 3", "Rows/Strip: 16",
        "Photometric Interpretation: RGB color", "Planar Configuration: single image plane",
        "FillOrder: msb-to-lsb", "Orientation: row 0 bottom, col 0 rhs",
    ]),
    ("depth", [(262, 1), (258, 16), (277, 1), (339, 2)],
     ["Bits/Sample: 16", "Sample Format: signed integer"]),
    ("tiles", [*GRAY, (322, 16), (323, 16)], ["Tile Width: 16 Tile Length: 16"]),
    ("planes", [*RGB, (284, 2)], ["Planar Configuration: separate image planes"]),
    ("thresholding", [*GRAY, (263, 3)], ["Thresholding: error diffused"]),
    ("texts", [*GRAY, (269, "doc"), (270, "descr"), (271, "mk"), (272, "mdl"), (285, "pg"),
               (305, "soft"), (306, "2024:01:02"), (315, "art"), (316, "host"), (33432, "copy")], [
        "DocumentName: doc", "ImageDescription: descr", "Make: mk", "Model: mdl",
        "PageName: pg", "Software: soft", "DateTime: 2024:01:02 ", "Artist: art",
        "HostComputer: host", "Copyright: copy",
    ]),
    ("resolution", [*GRAY, (282, 72), (283, 96.5), (296, 3), (286, 1.5), (287, 2.25)],
     ["Resolution: 72, 96.5 pixels/cm", "Position: 1.5, 2.25"]),
    ("pairs", [*GRAY, (297, row(2, 5)), (321, row(10, 240))],
     ["Page Number: 2-5", "Halftone Hints: light 10 dark 240"]),
    ("ranges", [*GRAY, (280, 1), (281, 250), (339, 1), (340, 3), (341, 200)],
     ["Min Sample Value: 1", "Max Sample Value: 250", "SMin Sample Value: 3",
      "SMax Sample Value: 200"]),
    ("lzw", [*GRAY, (259, 5), (317, 2)],
     ["Compression Scheme: LZW", "Predictor: horizontal differencing 2 (0x2)"]),
    ("fax 3", [*BILEVEL, (259, 3), (292, 4)],
     ["Compression Scheme: CCITT Group 3", "Group 3 Options: EOL padding (4 = 0x4)"]),
    ("fax 4", [*BILEVEL, (259, 4), (293, 0)], ["Group 4 Options: (0 = 0x0)"]),
    ("deflate", [*GRAY, (259, 8), (65557, 9)], ["Compression Scheme: AdobeDeflate"]),
    ("extra samples", [(262, 2), (258, 8), (277, 4), (338, 2)], ["Extra Samples: 1<unassoc-alpha>"]),
    ("inks", [*SEPARATED, (332, 1), (334, 4), (333, ["c", "m", "y", "k"])],
     ["InkSet: 1", "Ink Names: c, m, y, k", "NumberOfInks: 4"]),
    ("press", [*SEPARATED, (336, row(1, 254)), (337, "press")],
     ["TargetPrinter: press", "Dot Range: 1-254"]),
    ("ycbcr", [(262, 6), (258, 8), (277, 3), (259, 7), (530, row(1, 1)), (531, 2),
               (529, row(0.25, 0.5, 0.125)), (65537, 50), (65538, 1), (532, SIX)],
     ["YCbCr Subsampling: 1, 1", "YCbCr Positioning: cosited", "Compression Scheme: JPEG"]),
    ("chromaticities", [*RGB, (318, row(0.25, 0.5)), (319, SIX)],
     ["White Point: 0.25-0.5",
      "PrimaryChromaticities: 0.500000,0.250000,0.125000,0.750000,0.625000,0.375000"]),
    ("black and white", [*RGB, (532, SIX)], ["0: 0.5 0.25", "1: 0.125 0.75", "2: 0.625 0.375"]),
    ("blocks", [*GRAY, (34675, octets(1, 2, 3)), (34377, octets(*range(9))),
                (33723, octets(4, 5)), (700, "<xmp />")],
     ["ICC Profile: <present>, 3 bytes", "Photoshop Data: <present>, 9 bytes",
      "RichTIFFIPTC Data: <present>, 2 bytes", "XMLPacket (XMP Metadata):", "<xmp />"]),
    ("nits", [*GRAY, (37439, 179.5)], ["Sample to Nits conversion factor: 1.7950e+02"]),
]  # fmt: skip


@pytest.mark.parametrize(("tags", "lines"), [case[1:] for case in TIFFINFO],
                         ids=[case[0] for case in TIFFINFO])  # fmt: skip
def test_tiffinfo_shows_what_was_written(tmp_path: Path, tags: Tags, lines: list[str]):
    shown = run("tiffinfo", str(write_image(tmp_path / "a.tif", tags)))
    for line in lines:
        assert words(line) in words(shown)


def test_tiffinfo_shows_maps(tmp_path: Path):
    colors = np.asfortranarray(np.arange(768).reshape(3, 256).T * 80 / 65535)
    palette = write_image(tmp_path / "p.tif", [(262, 3), (258, 8), (277, 1), (320, colors)])
    assert words("255: 20400 40880 61360") in words(run("tiffinfo", "-c", str(palette)))
    curve = np.arange(256.0)[None] * 257
    graded = write_image(tmp_path / "t.tif", [*GRAY, (301, curve)])
    assert words("254: 65278") in words(run("tiffinfo", "-c", str(graded)))


EXIFTOOL: list[tuple[Tags, dict[str, Any]]] = [
    (RGB, {"ImageWidth": 16, "ImageHeight": 16, "BitsPerSample": "8 8 8", "SamplesPerPixel": 3,
           "PhotometricInterpretation": 2}),
    ([*GRAY, (269, "doc"), (270, "d"), (305, "soft"), (306, "2024:01:02 03:04:05")],
     {"DocumentName": "doc", "ImageDescription": "d", "Software": "soft",
      "ModifyDate": "2024:01:02 03:04:05"}),
    ([*GRAY, (274, 6), (282, 72), (297, row(2, 5)), (321, row(10, 240))],
     {"Orientation": 6, "XResolution": 72, "PageNumber": "2 5", "HalftoneHints": "10 240"}),
    ([*RGB, (318, row(0.25, 0.5)), (319, SIX), (532, SIX)],
     {"WhitePoint": "0.25 0.5", "PrimaryChromaticities": "0.5 0.25 0.125 0.75 0.625 0.375",
      "ReferenceBlackWhite": "0.5 0.25 0.125 0.75 0.625 0.375"}),
    ([*GRAY, (33550, row(1, 2, 0)), (33922, row(0, 0, 0, 100, 200, 0)),
      (34264, np.asfortranarray(np.arange(16.0).reshape(4, 4)))],
     {"PixelScale": "1 2 0", "ModelTiePoint": "0 0 0 100 200 0",
      "ModelTransform": "0 4 8 12 1 5 9 13 2 6 10 14 3 7 11 15"}),
    ([*GRAY, (37439, 179)], {"StoNits": 179}),
    ([*SEPARATED, (332, 1), (336, row(1, 254)), (337, "press")],
     {"InkSet": 1, "DotRange": "1 254", "TargetPrinter": "press"}),
]  # fmt: skip


@pytest.mark.parametrize(("tags", "expected"), EXIFTOOL)
def test_exiftool_shows_what_was_written(tmp_path: Path, tags: Tags, expected: dict[str, Any]):
    path = write_image(tmp_path / "a.tif", tags)
    [shown] = json.loads(run("exiftool", "-json", "-n", "-u", str(path)))
    assert {name: shown.get(name) for name in expected} == expected


GEO: Tags = [
    (33550, row(10, 20, 0)),
    (33922, row(0, 0, 0, 500000, 4649776, 0)),
    (34735, np.array([[1, 1, 0, 3], [1024, 0, 1, 1], [1025, 0, 1, 1], [3072, 0, 1, 32633]], float)),
    (34737, "WGS 84 / UTM zone 33N|"),
]


def test_gdal_sees_georeferencing_that_was_written(tmp_path: Path):
    path = write_image(tmp_path / "geo.tif", [*GRAY, *GEO])
    shown = json.loads(run("gdalinfo", "-json", str(path)))
    assert shown["geoTransform"] == [500000, 10, 0, 4649776, 0, -20]
    assert 'ID["EPSG",32633]' in shown["coordinateSystem"]["wkt"]


# --- Written by others

RPC_NAMES = ["LINE_OFF", "SAMP_OFF", "LAT_OFF", "LONG_OFF", "HEIGHT_OFF", "LINE_SCALE",
             "SAMP_SCALE", "LAT_SCALE", "LONG_SCALE", "HEIGHT_SCALE"]  # fmt: skip
RPC_LISTS = ["LINE_NUM_COEFF", "LINE_DEN_COEFF", "SAMP_NUM_COEFF", "SAMP_DEN_COEFF"]


@pytest.fixture
def plain(tmp_path: Path) -> Path:
    path = tmp_path / "plain.tif"
    tifffile.imwrite(path, np.zeros((16, 16), np.uint8), photometric="minisblack", metadata=None)
    return path


@pytest.mark.parametrize("options", [[], ["-co", "BIGTIFF=YES"], ["-co", "ENDIANNESS=BIG"]],
                         ids=["classic", "bigtiff", "big-endian"])  # fmt: skip
def test_georeferencing_by_gdal_is_read(plain: Path, tmp_path: Path, options: list[str]):
    path = tmp_path / "geo.tif"
    run("gdal_translate", "-q", "-a_srs", "EPSG:32633", "-a_ullr", "500000", "4649776", "500160",
        "4649456", *options, str(plain), str(path))  # fmt: skip
    scale, tiepoints, keys, text = read(path, 33550, 33922, 34735, 34737)
    assert scale.tolist() == [[10, 20, 0]]
    assert tiepoints.tolist() == [[0, 0, 0, 500000, 4649776, 0]]
    assert keys.shape[1] == 4 and keys[0, 3] == keys.shape[0] - 1
    assert [3072, 0, 1, 32633] in keys.tolist()
    assert "UTM zone 33N" in text


def test_a_rotated_transform_by_gdal_is_a_row_of_sixteen(tmp_path: Path):
    from osgeo import gdal

    path = tmp_path / "rotated.tif"
    image = gdal.GetDriverByName("GTiff").Create(str(path), 16, 16)
    image.SetGeoTransform([100, 1, 0.5, 200, 0.25, -1])
    image = None
    [matrix] = read(path, 34264)
    expected = [1, 0.5, 0, 100, 0.25, -1, 0, 200, 0, 0, 0, 0, 0, 0, 0, 1]
    assert matrix.tolist() == [expected]


def test_rational_polynomials_by_gdal_are_read(tmp_path: Path):
    from osgeo import gdal

    path = tmp_path / "rpc.tif"
    image = gdal.GetDriverByName("GTiff").Create(str(path), 16, 16)
    rpc = {name: str(k + 1.5) for k, name in enumerate(RPC_NAMES)}
    rpc |= {name: " ".join(str(k + 0.25) for k in range(20)) for name in RPC_LISTS}
    image.SetMetadata(rpc, "RPC")
    image = None
    [values] = read(path, 50844)
    assert values.shape == (1, 92)
    assert values[0, 2:12].tolist() == [k + 1.5 for k in range(10)]
    assert values[0, 12:32].tolist() == [k + 0.25 for k in range(20)]


def test_xmp_iptc_and_icc_by_exiftool_are_read(plain: Path, tmp_path: Path):
    profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
    (tmp_path / "a.icc").write_bytes(profile)
    run("exiftool", "-q", "-overwrite_original", "-XMP-dc:Title=a title", "-IPTC:Keywords=key word",
        f"-ICC_Profile<={tmp_path / 'a.icc'}", "-Photoshop:CopyrightFlag=true", str(plain))  # fmt: skip
    packet, iptc, icc, photoshop = read(plain, 700, 33723, 34675, 34377)
    assert isinstance(packet, str) and "a title" in packet
    assert b"key word" in iptc.tobytes()
    assert icc.tobytes() == profile
    assert photoshop.tobytes().startswith(b"8BIM")
