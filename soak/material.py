"""Small files of every kind that the calls read."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import tagbridge


class Files:
    """Files in a folder, each small enough that a call takes microseconds."""

    def __init__(self, folder: Path) -> None:
        pixels = np.random.default_rng(3).integers(0, 256, (64, 48, 3), np.uint8)
        self.folder = folder
        self.strips = folder / "strips.tif"
        self.tiles = folder / "tiles.tif"
        self.ycbcr = folder / "ycbcr.tif"
        self.damaged = folder / "damaged.tif"
        self.foreign = folder / "foreign.tif"
        with tagbridge.open(self.strips, "w") as tif:
            tags = {"ICC Profile": bytes(300), "Artist": "me", "XMLPacket": "<x></x>"}
            tif.write(pixels, rows_per_strip=16, subdirectories=1, tags=tags)
            tif.write(pixels[::2, ::2])
            tif.write(pixels[:, :, 0], rows_per_strip=16, compression="lzw")
        tagbridge.imwrite(self.tiles, pixels.astype(np.uint16), tile=(16, 16),
                          compression="deflate", predictor=True, planar="separate")
        tagbridge.imwrite(self.ycbcr, pixels, photometric="ycbcr", rows_per_strip=16)
        tagbridge.imwrite(self.damaged, pixels, rows_per_strip=64, compression="deflate")
        with tagbridge.open(self.damaged) as tif:
            place = int(tif.tags["StripOffsets"][0])
        data = bytearray(self.damaged.read_bytes())
        data[place:place + 8] = b"\xff" * 8
        self.damaged.write_bytes(data)
        self.foreign.write_bytes(b"GIF89a, and nothing that libtiff knows")
