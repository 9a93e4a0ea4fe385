"""The include lines follow the folder map: arrows point down only."""

import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]

MAY_INCLUDE = {
    "gateway": {"gateway", "handlers", "tags", "image", "core", "host"},
    "handlers": {"handlers", "core", "host"},
    "tags": {"tags", "core", "host"},
    "image": {"image", "kernels", "core", "host"},
    "core": {"core", "host"},
    "kernels": {"kernels"},
    "host": {"host"},
    "runtime": {"runtime", "host"},
    "python": {"python", "runtime", "host", "kernels"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s+(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)


def layer(path: str) -> str:
    return path.split("/")[0]


def violations(path: str, text: str) -> list[str]:
    """Returns what is wrong with the include lines of the file `path`, as sentences."""
    found = []
    allowed = MAY_INCLUDE[layer(path)]
    for quoted, system in INCLUDE.findall(text):
        target = layer(quoted)
        if quoted and "/" not in quoted:
            found.append(f"{quoted} is not written from the root")
        if target in MAY_INCLUDE and target not in allowed:
            found.append(f"{quoted} lies above {layer(path)}")
        if target == "handlers" and path == "gateway/gateway.cc":
            found.append("only the operation table includes handlers/")
        if layer(path) == "kernels" and "tiff" in system:
            found.append(f"{quoted or system} in a kernel, which knows only pointers and counts")
        if layer(path) == "host" and "/" in system:
            found.append(f"host/ needs {system}, but may ask an implementer for libtiff only")
    own = path.removesuffix(".cc") + ".h"
    included = [quoted or system for quoted, system in INCLUDE.findall(text)]
    if path.endswith(".cc") and own in included[1:]:
        found.append(f"{own} does not come first")
    return found


def sources() -> list[str]:
    return sorted(path.relative_to(ROOT).as_posix() for folder in MAY_INCLUDE
                  for ending in ("h", "cc") for path in (ROOT / folder).rglob(f"*.{ending}"))


@pytest.mark.parametrize("path", sources())
def test_arrows_point_down(path: str):
    assert violations(path, (ROOT / path).read_text()) == []


@pytest.mark.parametrize(("path", "line"), [
    ("host/array.h", '#include "runtime/array.h"'),
    ("host/array.h", "#include <boost/any.hpp>"),
    ("core/errors.h", '#include "image/block_write.h"'),
    ("gateway/gateway.cc", '#include "handlers/files.h"'),
    ("image/strips.cc", '#include "tags/get_field.h"'),
    ("image/strips.cc", '#include "handlers/files.h"'),
    ("image/strips.cc", '#include "image_metadata.h"'),
    ("kernels/split_simd.cc", "#include <tiffio.h>"),
    ("kernels/transpose-inl.h", '#include "host/array.h"'),
    ("tags/get_field.cc", '#include "image/block_write.h"'),
    ("runtime/arrays.cc", '#include "core/values.h"'),
    ("python/call.cc", '#include "core/errors.h"'),
    ("tags/get_field.cc", '#include <span>\n#include "tags/get_field.h"'),
])
def test_finds_an_upward_arrow(path: str, line: str):
    assert len(violations(path, line)) >= 1


def test_the_map_covers_every_folder_with_sources():
    may_include_all = {"tests", "bench", "faults", "fuzz", "tools", "build"}
    folders = {path.parent.relative_to(ROOT).parts[0] for ending in ("h", "cc")
               for path in ROOT.glob(f"*/*.{ending}")}
    assert folders - may_include_all <= set(MAY_INCLUDE)
