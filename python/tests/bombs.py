"""Files of a few kilobytes that claim terabytes, and what is to be read of each."""

from __future__ import annotations

import struct
import zlib
from collections.abc import Callable
from typing import NamedTuple

from raw_tiff import LONG, LONG8, SHORT, UNDEFINED, elsewhere, gray, long, short, tiff

MOST = 2**32 - 1
STRIP = ("readEncodedStrip", 0)
TILE = ("readEncodedTile", 0)
RGBA = ("readRGBAImage",)
LZW, GROUP4, JPEG, DEFLATE, PIXAR, SGILOG, JPEG2000 = 5, 4, 7, 8, 32909, 34676, 34712


class Bomb(NamedTuple):
    """How to make the file, and the call that would need the memory."""

    make: Callable[[], bytes]
    call: tuple[str | int, ...]
    #: What the file layer is asked for: the image, its colours, or a tag.
    layer: str = "image"
    #: Whether what is claimed is the image, so that no command can read it.
    whole: bool = True


def _tiles(rows: int, columns: int, tile: int, **more: object) -> dict[int, object]:
    tags = gray(rows, columns, 16, **more)  # type: ignore[arg-type]
    for number in (273, 278, 279):
        del tags[number]
    count = -(-rows // tile) * -(-columns // tile)
    tags.update({322: long(tile), 323: long(tile), 324: long(*[16] * count),
                 325: long(*[16] * count)})
    return tags  # type: ignore[return-value]


def _deflate() -> bytes:
    """A strip of 1.2 GB; what the stream says is decoded piece by piece, each of 16 MiB."""
    packer = zlib.compressobj(9)
    first = packer.compress(bytes(16 << 20)) + packer.flush(zlib.Z_FULL_FLUSH)
    piece = packer.compress(bytes(16 << 20)) + packer.flush(zlib.Z_FULL_FLUSH)
    data = first + piece * 74
    return tiff(gray(1200, 1 << 20, len(data), t259=short(DEFLATE)), data)


def _codestream(size: int) -> bytes:
    """The head of a JPEG 2000 codestream of one component and one tile of that many rows."""
    siz = struct.pack(">HIIIIIIIIHBBB", 0, size, size, 0, 0, size, size, 0, 0, 1, 7, 1, 1)
    cod = struct.pack(">BBHBBBBBB", 0, 0, 1, 0, 5, 4, 4, 0, 1)
    qcd = bytes([0x40]) + bytes(16)
    parts = [(0xFF51, siz), (0xFF52, cod), (0xFF5C, qcd)]
    head = b"\xff\x4f" + b"".join(struct.pack(">HH", code, len(part) + 2) + part
                                  for code, part in parts)
    return head + struct.pack(">HHHIBB", 0xFF90, 10, 0, 0, 0, 1) + b"\xff\x93" + bytes(64)


def _jpeg2000() -> bytes:
    data = _codestream(2**31)
    return tiff(gray(64, 64, len(data), t259=short(JPEG2000)), data)


def _jpeg() -> bytes:
    frame = struct.pack(">BHHBBBB", 8, 65500, 65500, 1, 1, 0x11, 0)
    quantities = b"\0" + bytes([1] * 64)
    data = (b"\xff\xd8" + b"\xff\xdb" + struct.pack(">H", len(quantities) + 2) + quantities
            + b"\xff\xc0" + struct.pack(">H", len(frame) + 2) + frame + b"\xff\xd9")
    return tiff(gray(65500, 65500, len(data), t259=short(JPEG)), data)


def _shared_tags() -> bytes:
    """4,000 tags, all of the same 40,000 bytes."""
    tags = gray(1, 1, 1)
    tags.update({40000 + number: elsewhere(UNDEFINED, 40000, 16) for number in range(4000)})
    return tiff(tags)


BOMBS = {
    "strip of 16 EiB": Bomb(
        lambda: tiff(gray(MOST, MOST, 16, t259=short(LZW))), STRIP),
    "uncompressed strip of 16 EiB": Bomb(lambda: tiff(gray(MOST, MOST, 16)), STRIP),
    "pixels of half a megabyte": Bomb(
        lambda: tiff(gray(60000, 60000, 16, t258=short(64), t277=short(65535), t339=short(3),
                          t259=short(LZW))), STRIP),
    "planes beyond count": Bomb(
        lambda: tiff(gray(65535, MOST, 16, t277=short(65535), t284=short(2), t278=long(1))), STRIP),
    "tile of 4 EiB": Bomb(lambda: tiff(_tiles(2**31 - 16, 2**31 - 16, 2**31 - 16)), TILE),
    "four billion strips": Bomb(
        lambda: tiff(gray(MOST, 1, 16, t278=long(1), t273=elsewhere(LONG, MOST),
                          t279=elsewhere(LONG, MOST))), STRIP),
    "BigTIFF, 2^60 strips": Bomb(
        lambda: tiff(gray(MOST, 1, 16, t278=long(1), t273=elsewhere(LONG8, 2**60),
                          t279=elsewhere(LONG8, 2**60)), big=True), STRIP),
    "BigTIFF, 2^63 tags": Bomb(lambda: tiff(gray(8, 8, 16), big=True, entries=2**63), STRIP),
    "BigTIFF, a strip stored in 2^63 bytes": Bomb(
        lambda: tiff(gray(MOST, 64, 16, t259=short(DEFLATE), t279=elsewhere(LONG8, 1, 2**63)),
                     big=True), STRIP),
    "deflate": Bomb(_deflate, STRIP),
    "fax line of 2^31 pixels": Bomb(
        lambda: tiff(gray(1000, 2**31 - 1, 16, t258=short(1), t259=short(GROUP4))), STRIP),
    "PixarLog line of 2^28 pixels": Bomb(
        lambda: tiff(gray(1 << 20, 1 << 28, 16, t259=short(PIXAR))), STRIP),
    "LogL strip": Bomb(
        lambda: tiff(gray(1 << 20, 1 << 28, 16, t258=short(16), t259=short(SGILOG),
                          t262=short(32844), t339=short(2))), STRIP),
    "colours of 640 GB": Bomb(
        lambda: tiff(_tiles(400000, 400000, 16384)), RGBA, "colours"),
    "ICC profile of 4 GiB": Bomb(
        lambda: tiff(gray(4, 4, 16, t34675=elsewhere(UNDEFINED, MOST))),
        ("getField", 34675), "ICC Profile", whole=False),
    "ICC profile of 2^62 bytes": Bomb(
        lambda: tiff(gray(4, 4, 16, t34675=elsewhere(UNDEFINED, 2**62)), big=True),
        ("getField", 34675), "ICC Profile", whole=False),
    "four billion sub-directories": Bomb(
        lambda: tiff(gray(4, 4, 16, t330=elsewhere(LONG, MOST))),
        ("setSubDirectory", 8), "SubIFD", whole=False),
    "colour map of 24 bits": Bomb(
        lambda: tiff(gray(4, 4, 16, t258=short(24), t262=short(3), t320=elsewhere(SHORT, 3 << 24))),
        ("getField", 320), "ColorMap", whole=False),
    "tags that share their bytes": Bomb(_shared_tags, STRIP),
    "JPEG 2000 codestream of 2^31 x 2^31": Bomb(_jpeg2000, STRIP),
    "JPEG of 65500 x 65500": Bomb(_jpeg, STRIP),
}
