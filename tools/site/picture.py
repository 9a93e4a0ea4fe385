"""Draws docs/pictures/examples.png: images of examples/ side by side, read with the package."""

from __future__ import annotations

from pathlib import Path

import tagbridge
from PIL import Image
from tagbridge.preview import small_picture

ROOT = Path(__file__).resolve().parents[2]
NAMES = ["rgb-strips", "grey16-bigendian", "slide-jpeg2000", "float32-geotiff", "pages", "palette"]
SIZE, GAP, COLUMNS = (220, 150), 8, 3


def main() -> None:
    """Write the picture."""
    width = COLUMNS * (SIZE[0] + GAP) - GAP
    height = len(NAMES) // COLUMNS * (SIZE[1] + GAP) - GAP
    sheet = Image.new("RGBA", (width, height))
    for number, name in enumerate(NAMES):
        with tagbridge.open(ROOT / "examples" / f"{name}.tif") as tif:
            picture = Image.fromarray(small_picture(tif[0], 400).copy("C")).convert("RGB")
        row, column = divmod(number, COLUMNS)
        sheet.paste(_filled(picture), (column * (SIZE[0] + GAP), row * (SIZE[1] + GAP)))
    sheet.quantize(192).save(ROOT / "docs" / "pictures" / "examples.png", optimize=True)


def _filled(picture: Image.Image) -> Image.Image:
    """The middle of a picture, as large as its place."""
    scale = max(SIZE[0] / picture.width, SIZE[1] / picture.height)
    picture = picture.resize((round(picture.width * scale), round(picture.height * scale)))
    left, top = (picture.width - SIZE[0]) // 2, (picture.height - SIZE[1]) // 2
    return picture.crop((left, top, left + SIZE[0], top + SIZE[1]))


if __name__ == "__main__":
    main()
