"""The package as others see it: names, hints and the catalog."""

from __future__ import annotations

import ast
import inspect
import re
from pathlib import Path

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
        assert name == "__version__" or inspect.getdoc(thing), name


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
