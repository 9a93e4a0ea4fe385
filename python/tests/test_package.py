"""The package as others see it: names, hints and the catalog."""

from __future__ import annotations

import ast
import inspect
import os
import re
import subprocess
import sys
import textwrap
from pathlib import Path

import numpy as np
import pytest
import tagbridge
from tagbridge import _core

PACKAGE = Path(tagbridge.__file__).parent


def stub_functions() -> dict[str, ast.FunctionDef]:
    tree = ast.parse((PACKAGE / "_core.pyi").read_text())
    return {node.name: node for node in tree.body if isinstance(node, ast.FunctionDef)}


def test_the_stub_names_everything_in_the_extension():
    functions = {name for name in vars(_core) if not name.startswith("_")}
    assert functions == set(stub_functions())


def test_the_stub_has_the_parameters_of_call():
    stub = stub_functions()["call"].args
    parameters = inspect.signature(tagbridge.call).parameters
    assert [argument.arg for argument in stub.args] == ["operation"]
    assert stub.vararg.arg == "inputs"
    assert [argument.arg for argument in stub.kwonlyargs] == ["outputs"]
    assert list(parameters) == ["operation", "inputs", "outputs"]
    assert parameters["outputs"].default == 1


def test_the_stub_has_the_parameters_of_the_other_functions():
    for name, node in stub_functions().items():
        if name not in ("call", "collect"):
            signature = vars(_core)[name].__doc__.splitlines()[0]
            assert re.findall(r"(\w+): ", signature) == [argument.arg for argument in node.args.args]


def test_the_package_is_marked_as_typed():
    assert (PACKAGE / "py.typed").exists()


def test_everything_public_is_listed_and_described():
    for name in tagbridge.__all__:
        thing = getattr(tagbridge, name)
        words = (inspect.getdoc(thing) or "").splitlines()
        # The extension's functions begin with a line of types.
        sentences = [line for line in words if line.endswith(".") and " -> " not in line]
        assert name == "__version__" or sentences, name


@pytest.mark.parametrize("kind", [tagbridge.File, tagbridge.Directory, tagbridge.Block])
def test_every_public_member_is_described(kind: type):
    for name in dir(kind):
        assert name.startswith("_") or inspect.getdoc(getattr(kind, name)), name


def test_what_help_says_first_runs(tmp_path: Path, monkeypatch: pytest.MonkeyPatch):
    monkeypatch.chdir(tmp_path)
    tagbridge.imwrite("scan.tif", np.zeros((300, 300), np.uint8),
                      tags={"DateTime": "2026:01:02 03:04:05"})
    blocks = re.findall(r"::\n\n((?:    .*\n|\n)+)", inspect.getdoc(tagbridge) + "\n")
    assert len(blocks) == 2
    for block in blocks:
        exec(textwrap.dedent(block), {"tagbridge": tagbridge})  # noqa: S102 - the package's own
    assert (tmp_path / "copy.tif").exists()


def test_the_version_is_a_version():
    assert re.fullmatch(r"\d+\.\d+\.\d+", tagbridge.__version__)


def test_the_catalog_lists_every_identifier_once():
    entries = tagbridge.catalog()
    keys = [(entry.identifier, entry.warning) for entry in entries]
    assert len(set(keys)) == len(keys)
    module_errors = [
        entry
        for entry in entries
        if not entry.warning
        and entry.identifier.startswith(("KORVAL:pictoria:Tiff:", "KORVAL:pictoria:validate:"))
    ]
    assert len(module_errors) == 109


def test_the_extension_and_the_plug_in_lie_side_by_side():
    assert Path(_core.__file__).parent == PACKAGE
    assert (PACKAGE / "tagbridge.so").exists()
    assert (PACKAGE / "libtagbridge_runtime.so").exists()


def test_a_missing_numpy_is_named():
    words = "import sys; sys.modules['numpy'] = None; import tagbridge"
    done = subprocess.run([sys.executable, "-c", words], capture_output=True, text=True, check=False)
    assert done.stderr.splitlines()[-1].startswith("ModuleNotFoundError: import of numpy")


@pytest.mark.skipif("libasan" in os.environ.get("LD_PRELOAD", ""),
                    reason="other packages are not built with the sanitizers")
def test_the_package_is_imported_after_those_that_leave_little_room():
    """Libraries that are loaded late share a few hundred bytes for thread-local variables."""
    run = subprocess.run(
        [sys.executable, "-c", "import cv2, PIL.Image, tifffile, rasterio; from osgeo import gdal; "
         "import tagbridge"], capture_output=True, text=True, check=False)
    assert run.returncode == 0, run.stderr
