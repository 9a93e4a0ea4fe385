"""Makes the images of this folder: python3 examples/make_examples.py [FOLDER]

The pictures are computed, so that nobody owns them, and are stored by GDAL, ImageMagick, Pillow
and tifffile, never by tagbridge: what reads them here has not written them. The same versions of
these tools make the same bytes again.
"""

import argparse
import pathlib
import subprocess
import tempfile

import numpy as np
import tifffile
from osgeo import gdal, osr
from PIL import Image

gdal.UseExceptions()


def coordinates(rows: int, columns: int, span: float = 1.0) -> tuple[np.ndarray, np.ndarray]:
    """Returns y and x of each pixel, x running over -span..span and y in proportion."""
    y, x = np.mgrid[0:rows, 0:columns].astype(np.float64)
    scale = 2 * span / columns
    return (y - rows / 2) * scale, (x - columns / 2) * scale


def escape_time(z: np.ndarray, c: np.ndarray, limit: int) -> np.ndarray:
    """Returns the smoothed number of steps of z*z + c until it escapes, 0 where it does not."""
    steps = np.zeros(z.shape)
    alive = np.ones(z.shape, dtype=bool)
    for step in range(1, limit + 1):
        z = np.where(alive, z * z + c, z)
        escaped = alive & (np.abs(z) > 16)
        steps[escaped] = step + 1 - np.log2(np.log(np.abs(z[escaped])))
        alive &= ~escaped
    return steps


def colours(phase: np.ndarray, offsets: tuple[float, float, float]) -> np.ndarray:
    """Returns an RGB picture that runs through smooth colours with `phase`, black where it is 0."""
    waves = [0.5 - 0.5 * np.cos(phase + offset) for offset in offsets]
    rgb = np.stack(waves, axis=-1) * (phase > 0)[..., np.newaxis]
    return np.round(255 * rgb).astype(np.uint8)


def mandelbrot(rows: int, columns: int) -> np.ndarray:
    y, x = coordinates(rows, columns, 1.6)
    steps = escape_time(np.zeros((rows, columns), complex), x - 0.65 + 1j * y, 120)
    return colours(1.9 * np.sqrt(steps), (0.3, 0.9, 1.6))


def julia(rows: int, columns: int) -> np.ndarray:
    y, x = coordinates(rows, columns, 1.55)
    return escape_time(x + 1j * y, np.full(x.shape, -0.8 + 0.156j), 200)


def relief(rows: int, columns: int, seed: int) -> np.ndarray:
    """Returns a terrain between 0 and 1: noise whose spectrum falls with the frequency."""
    noise = np.fft.fft2(np.random.default_rng(seed).standard_normal((rows, columns)))
    frequency = np.hypot(np.fft.fftfreq(rows)[:, np.newaxis], np.fft.fftfreq(columns))
    frequency[0, 0] = np.inf
    height = np.real(np.fft.ifft2(noise / frequency**1.9))
    return (height - height.min()) / np.ptp(height)


def moon(rows: int, columns: int) -> np.ndarray:
    """Returns a cratered ball lit from the left, 16 bits a sample."""
    y, x = coordinates(rows, columns, 1.1)
    inside = x * x + y * y < 1
    z = np.sqrt(np.where(inside, 1 - x * x - y * y, 0))
    height = 0.35 * relief(rows, columns, 7)
    random = np.random.default_rng(11)
    for _ in range(60):
        row, column = random.uniform(-1, 1, 2)
        radius = 0.02 + 0.16 * random.random() ** 4
        distance = np.hypot(y - row, x - column) / radius
        bowl = np.where(distance < 1, distance**2 - 1, 0.35 * np.exp(-3 * (distance - 1)))
        height += 0.5 * radius * np.where(distance < 3, bowl, 0)
    slope_y, slope_x = np.gradient(height, 2.2 / columns)
    light = np.clip(0.45 * z - 0.75 * x - 0.25 * y + 0.35 * slope_x + 0.1 * slope_y, 0.02, None)
    return np.where(inside, np.clip(65535 * 0.8 * light, 0, 65535), 0).astype(np.uint16)


def sunset(rows: int, columns: int, hour: float) -> np.ndarray:
    """Returns a sun over the sea; `hour` from 0 to 1 lets it sink."""
    y, x = coordinates(rows, columns, 1.0)
    sky = y < 0.1
    height = np.where(sky, y, 0.2 - y)
    glow = np.exp(-3.0 * np.hypot(x, height + 0.45 - 0.6 * hour))
    disc = sky & (np.hypot(x, y + 0.45 - 0.6 * hour) < 0.14)
    ripple = np.where(sky, 1.0, 0.62 + 0.25 * np.sin(90 * np.sqrt(np.clip(y - 0.05, 0, None))))
    red = (0.25 + 0.9 * glow) * ripple + disc
    green = (0.16 + 0.62 * glow * (1 - 0.5 * hour)) * ripple + 0.85 * disc
    blue = (0.42 + 0.12 * glow - 0.35 * hour * (height + 0.7)) * ripple + 0.4 * disc
    return np.round(255 * np.clip(np.stack([red, green, blue], -1), 0, 1)).astype(np.uint8)


def section(rows: int, columns: int) -> np.ndarray:
    """Returns stained tissue under a microscope: violet nuclei in pink."""
    y, x = coordinates(rows, columns, 1.0)
    pink = relief(rows, columns, 5)
    nuclei = np.zeros((rows, columns))
    random = np.random.default_rng(23)
    for _ in range(220):
        row, column = random.uniform(-0.75, 0.75), random.uniform(-1, 1)
        stretch, turn = random.uniform(0.7, 1.4), random.uniform(0, np.pi)
        dy, dx = y - row, x - column
        along, across = dx * np.cos(turn) + dy * np.sin(turn), dy * np.cos(turn) - dx * np.sin(turn)
        distance = np.hypot(along / stretch, across * stretch) / random.uniform(0.025, 0.045)
        nuclei = np.maximum(nuclei, np.clip(3 * (1.15 - distance), 0, 1))
    light = [0.97 - 0.12 * pink - 0.55 * nuclei, 0.86 - 0.45 * pink - 0.5 * nuclei,
             0.93 - 0.22 * pink - 0.3 * nuclei]
    return np.round(255 * np.clip(np.stack(light, -1), 0, 1)).astype(np.uint8)


def gdal_copy(picture: np.ndarray, path: pathlib.Path, options: list[str], geo: bool = False):
    """Stores rows-by-columns or rows-by-columns-by-bands samples with GDAL."""
    bands = picture.reshape(*picture.shape[:2], -1)
    kinds = {np.uint8: gdal.GDT_Byte, np.float32: gdal.GDT_Float32}
    memory = gdal.GetDriverByName("MEM").Create(
        "", bands.shape[1], bands.shape[0], bands.shape[2], kinds[picture.dtype.type])
    for band in range(bands.shape[2]):
        memory.GetRasterBand(band + 1).WriteArray(bands[:, :, band])
    if geo:
        zone = osr.SpatialReference()
        zone.ImportFromEPSG(32632)
        memory.SetProjection(zone.ExportToWkt())
        memory.SetGeoTransform((399960.0, 30.0, 0.0, 5300040.0, 0.0, -30.0))
    gdal.GetDriverByName("GTiff").CreateCopy(str(path), memory, options=options)


def make_rgb_strips(path: pathlib.Path) -> None:
    picture = Image.fromarray(mandelbrot(180, 240))
    picture.save(path, compression="tiff_lzw", tiffinfo={317: 2}, strip_size=32 * 240 * 3)


def make_grey16_bigendian(path: pathlib.Path) -> None:
    tifffile.imwrite(path, moon(200, 200), byteorder=">", photometric="minisblack",
                     rowsperstrip=40, software=False, metadata=None)


def make_float32_geotiff(path: pathlib.Path) -> None:
    height = (420 + 2600 * relief(150, 200, 3) ** 1.6).astype(np.float32)
    gdal_copy(height, path, ["TILED=YES", "BLOCKXSIZE=64", "BLOCKYSIZE=64", "COMPRESS=DEFLATE",
                             "PREDICTOR=3"], geo=True)


def make_bilevel_group4(path: pathlib.Path) -> None:
    """Draws a rose of interleaved curves with ImageMagick."""
    curves = []
    for turn in np.arange(0, 360, 7.5):
        curves += ["-draw", f"translate 160,160 rotate {turn} bezier 0,0 150,-20 60,120 -20,150"]
    subprocess.run(["convert-im6.q16", "-size", "320x320", "xc:white", "-fill", "none",
                    "-stroke", "black", "-strokewidth", "1.2", *curves, "-colorspace", "Gray",
                    "-threshold", "60%", "-type", "bilevel", "-strip", "-compress",
                    "Group4", str(path)], check=True)


def make_palette(path: pathlib.Path) -> None:
    steps = julia(160, 240)
    indices = np.clip(np.round(17 * np.log1p(steps) * 2.4), 0, 255).astype(np.uint8)
    ramp = colours(np.linspace(0, 2 * np.pi, 256), (0.0, 0.5, 1.1))
    image = Image.fromarray(indices, mode="P")
    image.putpalette(ramp.tobytes())
    image.save(path, compression="packbits", strip_size=40 * 240)


def make_tiled_pyramid(path: pathlib.Path) -> None:
    """Stores a picture and its two halvings, which hang below it as sub-directories."""
    picture = sunset(256, 384, 0.35)
    layout = {"tile": (64, 64), "photometric": "rgb", "compression": "zlib", "predictor": 2,
              "software": False, "metadata": None}
    with tifffile.TiffWriter(path) as writer:
        writer.write(picture, subifds=2, **layout)
        for _ in range(2):
            rows, columns = picture.shape[0] // 2, picture.shape[1] // 2
            picture = picture.reshape(rows, 2, columns, 2, 3).mean((1, 3)).astype(np.uint8)
            writer.write(picture, subfiletype=1, **layout)


def make_pages(path: pathlib.Path) -> None:
    pages = [Image.fromarray(sunset(96, 144, hour)) for hour in (0.0, 0.4, 0.7, 1.0)]
    pages[0].save(path, save_all=True, append_images=pages[1:], compression="tiff_adobe_deflate",
                  tiffinfo={317: 2})


def make_rgb_planes(path: pathlib.Path) -> None:
    gdal_copy(mandelbrot(135, 180)[:, :, ::-1], path,
              ["INTERLEAVE=BAND", "COMPRESS=LZW", "PREDICTOR=2", "BLOCKYSIZE=45",
               "PHOTOMETRIC=RGB"])


def make_cmyk(path: pathlib.Path) -> None:
    rgb = sunset(120, 160, 0.8).astype(np.int16)
    black = 255 - rgb.max(axis=2, keepdims=True)
    inks = np.concatenate([255 - rgb - black, black], axis=2).astype(np.uint8)
    Image.fromarray(inks, mode="CMYK").save(path, compression="tiff_adobe_deflate")


def make_ycbcr_jpeg_tiles(path: pathlib.Path) -> None:
    gdal_copy(sunset(192, 256, 0.1), path,
              ["TILED=YES", "BLOCKXSIZE=64", "BLOCKYSIZE=64", "COMPRESS=JPEG",
               "PHOTOMETRIC=YCBCR", "JPEG_QUALITY=90"])


def make_double_bigtiff(path: pathlib.Path) -> None:
    """Stores the interference of two waves, values from -2 to 2."""
    y, x = coordinates(100, 120)
    waves = sum(np.cos(40 * np.hypot(y, x - centre)) for centre in (-0.35, 0.35))
    tifffile.imwrite(path, np.round(waves, 6), bigtiff=True, photometric="minisblack",
                     compression="zlib", rowsperstrip=25, software=False, metadata=None)


def ycbcr_codestream(tile: np.ndarray) -> bytes:
    """Encodes RGB as JPEG 2000 with halved colours and without a colour transform."""
    memory = gdal.GetDriverByName("MEM").Create("", tile.shape[1], tile.shape[0], 3)
    for number, colour in enumerate((gdal.GCI_RedBand, gdal.GCI_GreenBand, gdal.GCI_BlueBand)):
        memory.GetRasterBand(number + 1).SetColorInterpretation(colour)
        memory.GetRasterBand(number + 1).WriteArray(tile[:, :, number])
    path = "/vsimem/tile.j2k"
    gdal.GetDriverByName("JP2OpenJPEG").CreateCopy(
        path, memory, options=["CODEC=J2K", "YCBCR420=YES", "QUALITY=20"])
    file = gdal.VSIFOpenL(path, "rb")
    encoded = bytes(gdal.VSIFReadL(1, gdal.VSIStatL(path).size, file))
    gdal.VSIFCloseL(file)
    gdal.Unlink(path)
    return encoded


def make_slide_jpeg2000(path: pathlib.Path) -> None:
    """Stores tiles as scanners of slides do; tifffile takes them for deflated ones at first."""
    picture = section(192, 256)
    tiles = (ycbcr_codestream(picture[row:row + 64, column:column + 64])
             for row in range(0, 192, 64) for column in range(0, 256, 64))
    tifffile.imwrite(path, tiles, shape=picture.shape, dtype=picture.dtype, tile=(64, 64),
                     photometric="rgb", compression="zlib", software=False, metadata=None)
    with tifffile.TiffFile(path, mode="r+b") as file:
        file.pages[0].tags["Compression"].overwrite(33003)


MAKERS = {
    "bilevel-group4.tif": make_bilevel_group4,
    "cmyk.tif": make_cmyk,
    "double-bigtiff.tif": make_double_bigtiff,
    "float32-geotiff.tif": make_float32_geotiff,
    "grey16-bigendian.tif": make_grey16_bigendian,
    "pages.tif": make_pages,
    "palette.tif": make_palette,
    "pyramid.tif": make_tiled_pyramid,
    "rgb-planes.tif": make_rgb_planes,
    "rgb-strips.tif": make_rgb_strips,
    "slide-jpeg2000.tif": make_slide_jpeg2000,
    "ycbcr-jpeg-tiles.tif": make_ycbcr_jpeg_tiles,
}


def main() -> None:
    parser = argparse.ArgumentParser(description="Make the example images.")
    parser.add_argument("folder", nargs="?", type=pathlib.Path,
                        default=pathlib.Path(__file__).parent)
    folder = parser.parse_args().folder
    for name, make in MAKERS.items():
        with tempfile.TemporaryDirectory() as scratch:  # GDAL may leave a side file
            made = pathlib.Path(scratch) / name
            make(made)
            (folder / name).write_bytes(made.read_bytes())


if __name__ == "__main__":
    main()
