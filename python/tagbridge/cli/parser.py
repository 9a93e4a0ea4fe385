"""What the commands take."""

from __future__ import annotations

import argparse
import re
import sys
from collections.abc import Callable, Sequence
from typing import Any, NoReturn

from .. import __version__
from .._tag_table import ROWS
from . import convert, diff, export, info, preview, tag_values, verify

Command = Callable[[Any], int | None]
_NUMBER = re.compile(r"-?\d+")
_TAGS = tuple(name for _, name, kind, _ in ROWS if kind)


class Parser(argparse.ArgumentParser):
    """Reports wrong usage as one line."""

    def error(self, message: str) -> NoReturn:
        """Print the line and end with status 2."""
        print(f"{self.prog}: {message} (see {self.prog} --help)", file=sys.stderr)
        sys.exit(2)


def with_repeated_options(arguments: Sequence[str]) -> list[str]:
    """Let ``-d`` of convert take several numbers without taking the files behind them."""
    result: list[str] = []
    if list(arguments[:1]) != ["convert"]:
        return list(arguments)
    taking = False
    for argument in arguments:
        number = _NUMBER.fullmatch(argument) is not None
        if taking and number and result[-2:-1] == ["-d"] and _NUMBER.fullmatch(result[-1]):
            result.append("-d")
        taking = argument == "-d" or (taking and number)
        result.append(argument)
    return result


def region(text: str) -> tuple[slice, slice]:
    """Return the rows and columns of R0:R1,C0:C1; an end may be left out."""
    found = re.fullmatch(r"(-?\d*):(-?\d*),(-?\d*):(-?\d*)", text)
    if found is None:
        raise argparse.ArgumentTypeError(f"{text!r} is not R0:R1,C0:C1")
    first, last, left, right = (int(part) if part else None for part in found.groups())
    return slice(first, last), slice(left, right)


def tile(text: str) -> tuple[int, int]:
    """Return the rows and columns of RxC."""
    found = re.fullmatch(r"(\d+)[xX](\d+)", text)
    if found is None:
        raise argparse.ArgumentTypeError(f"{text!r} is not RxC, such as 256x256")
    rows, columns = int(found[1]), int(found[2])
    if rows < 1 or columns < 1 or rows % 16 or columns % 16:
        raise argparse.ArgumentTypeError(f"rows and columns of {text} are no multiples of 16")
    return rows, columns


def positive(text: str) -> int:
    """Return a number of at least 1."""
    if not text.isdecimal() or int(text) < 1:
        raise argparse.ArgumentTypeError(f"{text!r} is not a positive number")
    return int(text)


def make_parser() -> argparse.ArgumentParser:
    """Return the parser of the command line."""
    parser = Parser(
        prog="tagbridge", description="Look at, convert, check and edit TIFF files.",
        epilog="example: tagbridge info scan.tif", allow_abbrev=False)
    parser.add_argument("--version", action="version", version=f"tagbridge {__version__}")
    commands = parser.add_subparsers(metavar="COMMAND", required=True, parser_class=Parser)

    def add(name: str, run: Command, words: str, example: str) -> argparse.ArgumentParser:
        command = commands.add_parser(
            name, help=words, description=words[0].upper() + words[1:] + ".", allow_abbrev=False,
            epilog=f"example: tagbridge {name} {example}")
        command.set_defaults(run=run)
        return command

    command = add("info", info.run, "show the directories of files", "--tags scan.tif")
    _add_files(command)
    command.add_argument("--json", action="store_true", help="one JSON object a file")
    command.add_argument("--tags", action="store_true", help="all tags of each directory")

    command = add("get", tag_values.run_get, "print the value of a tag", "scan.tif DateTime")
    _add_tag(command)
    _add_directory(command)

    command = add("set", tag_values.run_set, "store the value of a tag in place",
                  'scan.tif ImageDescription "the harbour" -d 1')
    _add_tag(command)
    command.add_argument("values", nargs="+", metavar="VALUE",
                         help="text, numbers, a name such as bottom_left, or @FILE for bytes")
    _add_directory(command)

    _add_convert(add("convert", convert.run, "copy images into a new file",
                     "*.tif stack.tif --compression deflate --tile 256x256"))

    command = add("export", export.run, "write an image as an array or a picture",
                  "scan.tif part.png --region 0:512,0:512")
    _add_file(command)
    command.add_argument("output", metavar="OUT", type=export.output_name,
                         help="a name that ends in .npy or .png")
    _add_directory(command)
    _add_region(command)

    command = add("preview", preview.run, "show a small picture of an image",
                  "scan.tif -o small.png")
    _add_file(command)
    _add_directory(command)
    command.add_argument("--size", type=positive, metavar="N",
                         help="rows or columns at most, whichever are more")
    command.add_argument("-o", dest="output", metavar="OUT.png", type=preview.output_name,
                         help="write a file instead of drawing in the terminal")

    command = add("verify", verify.run, "decode every block of every directory", "*.tif")
    _add_files(command)

    command = add("diff", diff.run, "compare layouts, tags and pixels of two files",
                  "before.tif after.tif")
    command.add_argument("first", metavar="A", help="a TIFF file")
    command.add_argument("second", metavar="B", help="another")
    return parser


def _completed(action: argparse.Action, words: Sequence[str]) -> None:
    """Say what a shell may complete an argument to."""
    action.completer = lambda **_: words  # type: ignore[attr-defined]  # of argcomplete


def _add_files(command: argparse.ArgumentParser) -> None:
    command.add_argument("files", nargs="+", metavar="FILE", help="TIFF files")


def _add_file(command: argparse.ArgumentParser) -> None:
    command.add_argument("file", metavar="FILE", help="a TIFF file")


def _add_tag(command: argparse.ArgumentParser) -> None:
    _add_file(command)
    _completed(command.add_argument("tag", metavar="TAG", help="name or number"), _TAGS)


def _add_region(command: argparse.ArgumentParser) -> None:
    command.add_argument("--region", type=region, metavar="R0:R1,C0:C1",
                         help="only these rows and columns, counted from 0")


def _add_directory(command: argparse.ArgumentParser) -> None:
    command.add_argument("-d", dest="directory", type=int, default=0, metavar="N",
                         help="directory, counted from 0 (default: 0)")


def _add_convert(command: argparse.ArgumentParser) -> None:
    command.add_argument("inputs", nargs="+", metavar="IN", help="TIFF files")
    command.add_argument("output", metavar="OUT", help="the file that is written")
    _completed(
        command.add_argument("--compression", metavar="C", type=convert.compression,
                             help=f"{', '.join(convert.COMPRESSIONS[:-1])} or "
                             f"{convert.COMPRESSIONS[-1]} (default: that of the image if it loses "
                             "nothing, else deflate)"),
        convert.COMPRESSIONS)
    command.add_argument("--level", type=int, metavar="N", help="quality of JPEG or Deflate")
    command.add_argument("--predictor", action="store_true", help="the one that fits the samples")
    blocks = command.add_mutually_exclusive_group()
    blocks.add_argument("--tile", type=tile, metavar="RxC",
                        help="rows and columns of a tile, multiples of 16")
    blocks.add_argument("--rows-per-strip", type=positive, metavar="N",
                        help="strips of so many rows (default: of about 256 KiB)")
    command.add_argument("--planar", choices=("contig", "separate"),
                         help="samples of a pixel together or in planes (default: as they are)")
    command.add_argument("--bigtiff", action="store_true",
                         help="offsets of 64 bits (a large image has them anyway)")
    command.add_argument("-d", dest="directories", type=int, action="append", metavar="N",
                         help="only these directories of each file, counted from 0")
    _add_region(command)
    command.add_argument("--pyramid", action="store_true",
                         help="add images of half the size each as sub-directories")
