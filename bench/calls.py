"""Calls through the package beside the same libtiff calls in an extension made for them."""

from __future__ import annotations

import timeit
from collections.abc import Callable

import tagbridge
import tagbridge_direct

from measuring import EFFORTS, Image, compare, image_file, parsed_options, report

IMAGE_WIDTH = 256
ORIENTATION = 274

# What is measured, the call of the package, that of the extension.
CALLS = [
    ("getField", 'call("getField", file, 256)', "direct.get_field(handle, 256)"),
    ("isTiled", 'call("isTiled", file)', "direct.is_tiled(handle)"),
    ("currentDirectory", 'call("currentDirectory", file)', "direct.current_directory(handle)"),
    ("setField", 'call("setField", file, 274, 1, outputs=0)', "direct.set_field(handle, 274, 1)"),
    ("open and close", 'call("close", call("open", path, "r"), outputs=0)',
     "direct.open_and_close(path, 1)"),
]
FAILING = """
try:
    call("getField", file, 65000)
except Error:
    pass
"""


def repeated(statement: str, names: dict[str, object]) -> Callable[[int], object]:
    return timeit.Timer(statement, globals=names).timeit


def measure(path: str, effort: str) -> None:
    names: dict[str, object] = {
        "call": tagbridge.call,
        "Error": tagbridge.Error,
        "direct": tagbridge_direct,
        "path": path,
        "file": tagbridge.call("open", path, "r+"),
        "handle": tagbridge_direct.open(path, "r+"),
    }
    for what, ours, reference in CALLS:
        seconds = compare(EFFORTS[effort], repeated(ours, names), repeated(reference, names))
        report("calls", what=what, value=seconds[0] / seconds[1], nanoseconds=seconds[0] * 1e9)
    seconds = compare(EFFORTS[effort], repeated(FAILING, names),
                      repeated("direct.nothing(handle, 65000)", names))
    report("calls", what="an error, caught", value=seconds[0] / seconds[1],
           nanoseconds=seconds[0] * 1e9)
    tagbridge.call("close", names["file"], outputs=0)
    tagbridge_direct.close(names["handle"])


def main() -> None:
    options = parsed_options(__doc__)
    image = Image("u8", "none", "strips", 16, 256, 256)
    with image_file(options.make_image, options.folder, image) as path:
        measure(path, options.effort)


if __name__ == "__main__":
    main()
