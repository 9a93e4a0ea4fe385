"""Builds the wheel for pip: CMake compiles, this packs what it installs. It needs nothing from outside.

The functions without an underscore are those that PEP 517 names. ``config_settings`` may have
``build-dir``, a folder to build in (default: a temporary one), which may be built already.
Run as a program it prints the package's METADATA.
"""

from __future__ import annotations

import base64
import contextlib
import hashlib
import os
import re
import subprocess
import sys
import sysconfig
import tarfile
import tempfile
import tomllib
import zipfile
from collections.abc import Iterator
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parents[2]
PROJECT = tomllib.loads((ROOT / "pyproject.toml").read_text(encoding="utf-8"))["project"]
VERSION = re.search(r"project\(tagbridge VERSION ([\d.]+)",
                    (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"))[1]  # type: ignore[index]
NAME = f"{PROJECT['name']}-{VERSION}"
INTERPRETER = f"cp{sys.version_info.major}{sys.version_info.minor}"
TAG = f"{INTERPRETER}-{INTERPRETER}-{sysconfig.get_platform().replace('-', '_')}"
Settings = dict[str, Any] | None


def metadata() -> str:
    """Return the text of METADATA and PKG-INFO."""
    extras = PROJECT["optional-dependencies"]
    lines = [
        "Metadata-Version: 2.1", f"Name: {PROJECT['name']}", f"Version: {VERSION}",
        f"Summary: {PROJECT['description']}", "License: MIT",
        *(f"Classifier: {classifier}" for classifier in PROJECT["classifiers"]),
        f"Requires-Python: {PROJECT['requires-python']}",
        *(f"Requires-Dist: {requirement}" for requirement in PROJECT["dependencies"]),
        *(f'Requires-Dist: {requirement}; extra == "{extra}"'
          for extra, requirements in extras.items() for requirement in requirements),
        *(f"Provides-Extra: {extra}" for extra in extras),
        "Description-Content-Type: text/markdown", "",
        (ROOT / PROJECT["readme"]).read_text(encoding="utf-8"),
    ]
    return "\n".join(lines)


def prepare_metadata_for_build_wheel(metadata_directory: str, _: Settings = None) -> str:
    """Write the .dist-info folder without building."""
    folder = Path(metadata_directory, f"{NAME}.dist-info")
    folder.mkdir()
    for name, content in _information():
        (folder / name).write_bytes(content)
    return folder.name


def build_wheel(wheel_directory: str, config_settings: Settings = None, _: str | None = None) -> str:
    """Compile, and write the wheel; return its name."""
    name = f"{NAME}-{TAG}.whl"
    with _build_folder(config_settings) as build, tempfile.TemporaryDirectory() as staging:
        _compile(build)
        _cmake("--install", build, "--component", "wheel", "--strip", "--prefix", staging)
        with zipfile.ZipFile(Path(wheel_directory, name), "w", zipfile.ZIP_DEFLATED) as wheel:
            _pack(wheel, [*_files(Path(staging)), *_described()])
    return name


def build_sdist(sdist_directory: str, _: Settings = None) -> str:
    """Write an archive of the files that git knows; return its name."""
    listed = subprocess.run(["git", "-C", ROOT, "-c", "safe.directory=*", "ls-files", "-z"],
                            stdout=subprocess.PIPE, check=True)
    name = f"{NAME}.tar.gz"
    with tarfile.open(Path(sdist_directory, name), "w:gz", format=tarfile.PAX_FORMAT) as archive:
        for path in filter(None, os.fsdecode(listed.stdout).split("\0")):
            archive.add(ROOT / path, f"{NAME}/{path}", recursive=False)
        with tempfile.NamedTemporaryFile("w", encoding="utf-8") as information:
            information.write(metadata())
            information.flush()
            archive.add(information.name, f"{NAME}/PKG-INFO")
    return name


@contextlib.contextmanager
def _build_folder(settings: Settings) -> Iterator[str]:
    if settings and "build-dir" in settings:
        yield os.path.abspath(settings["build-dir"])
    else:
        with tempfile.TemporaryDirectory(prefix="tagbridge-build-") as folder:
            yield folder


def _compile(build: str) -> None:
    if not Path(build, "CMakeCache.txt").exists():
        _cmake("-S", str(ROOT), "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
               "-DBUILD_TESTING=OFF", f"-DPython_EXECUTABLE={_python_with_numpy()}")
    _cmake("--build", build, "--target", "tagbridge_package", "tagbridge_command_files")


def _python_with_numpy() -> str:
    """The interpreter to compile for: what pip runs on need not have NumPy's headers."""
    ask = f"import numpy, sys; sys.exit(sys.version_info[:2] != {tuple(sys.version_info[:2])})"
    for python in (sys.executable, getattr(sys, "_base_executable", ""), "/usr/bin/python3"):
        if python and subprocess.run([python, "-c", ask], env=_environment(), check=False,
                                     stderr=subprocess.DEVNULL).returncode == 0:
            return python
    raise RuntimeError(f"there is no Python {sys.version.split()[0]} with NumPy 1 on this system")


def _cmake(*arguments: str) -> None:
    subprocess.run(["cmake", *arguments], env=_environment(), check=True)


def _environment() -> dict[str, str]:
    # pip hides the packages of the system from what it runs, where NumPy is.
    return {name: value for name, value in os.environ.items() if not name.startswith("PYTHON")}


def _files(staging: Path) -> Iterator[tuple[str, bytes]]:
    """The package as it is; what belongs below the prefix, such as manual pages, as data."""
    for path in sorted(staging.rglob("*")):
        if path.is_file():
            name = path.relative_to(staging).as_posix()
            inside = name if name.startswith("tagbridge/") else f"{NAME}.data/data/{name}"
            yield inside, path.read_bytes()


def _information() -> Iterator[tuple[str, bytes]]:
    scripts = "".join(f"{name} = {place}\n" for name, place in PROJECT["scripts"].items())
    wheel = f"Wheel-Version: 1.0\nGenerator: tagbridge\nRoot-Is-Purelib: false\nTag: {TAG}\n"
    yield "METADATA", metadata().encode()
    yield "WHEEL", wheel.encode()
    yield "entry_points.txt", f"[console_scripts]\n{scripts}".encode()
    yield "LICENSE", (ROOT / PROJECT["license"]["file"]).read_bytes()


def _described() -> Iterator[tuple[str, bytes]]:
    for name, content in _information():
        yield f"{NAME}.dist-info/{name}", content


def _pack(wheel: zipfile.ZipFile, files: list[tuple[str, bytes]]) -> None:
    record = f"{NAME}.dist-info/RECORD"
    lines = []
    for name, content in files:
        entry = zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0))  # the same wheel from the same files
        entry.compress_type = zipfile.ZIP_DEFLATED
        entry.external_attr = (0o100755 if ".so" in Path(name).suffixes else 0o100644) << 16
        wheel.writestr(entry, content)
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        lines.append(f"{name},sha256={digest},{len(content)}\n")
    wheel.writestr(record, "".join([*lines, f"{record},,\n"]))


if __name__ == "__main__":
    sys.stdout.write(metadata())
