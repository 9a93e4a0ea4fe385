"""What is installed works where it is installed: below a prefix, in a virtual environment, in a shell."""

from __future__ import annotations

import gzip
import os
import re
import shutil
import subprocess
import sys
from collections.abc import Sequence
from pathlib import Path

import pytest
import tagbridge
from tagbridge.cli.parser import make_parser

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(tagbridge.__file__).parents[2]
RUNTIME = BUILD / "python" / "tagbridge" / "libtagbridge_runtime.so"
EXAMPLE = ROOT / "examples" / "rgb-strips.tif"
COMMANDS = ["info", "get", "set", "convert", "export", "preview", "verify", "diff"]

pytestmark = pytest.mark.skipif("libasan" in os.environ.get("LD_PRELOAD", ""),
                                reason="a build with sanitizers is not installed")


def run(*command: object, folder: Path = Path("/"), status: int = 0) -> str:
    """Run a program without the package of the build; return its output."""
    environment = {key: value for key, value in os.environ.items() if not key.startswith("PYTHON")}
    done = subprocess.run([str(part) for part in command], cwd=folder, env=environment, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    assert done.returncode == status, done.stdout
    return done.stdout


@pytest.fixture(scope="module")
def prefix(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A folder below which everything is installed."""
    folder = tmp_path_factory.mktemp("prefix")
    run("cmake", "--build", BUILD, "--target", "tagbridge_package", "tagbridge_command_files")
    for component in ["runtime", "devel", "python", "command"]:
        run("cmake", "--install", BUILD, "--component", component, "--prefix", folder)
    return folder


# --- The library

def exported() -> dict[str, str]:
    """The version of each function that the runtime exports."""
    lines = run("nm", "-D", "-C", "--defined-only", RUNTIME).splitlines()
    names = [line[19:] for line in lines if line[17] == "T"]
    return {name: version for name, _, version in (name.partition("@@") for name in names)}


def test_the_library_has_its_version_in_its_name():
    assert "[libtagbridge_runtime.so.0]" in run("readelf", "-d", RUNTIME)
    assert "libtagbridge_runtime.so.0]" in run("readelf", "-d", RUNTIME.with_name("tagbridge.so"))


def test_what_programs_rely_on_is_exported_and_nothing_else_as_that():
    public = {name for name, version in exported().items() if version == "TAGBRIDGE_0"}
    recorded = set((ROOT / "runtime" / "exports.txt").read_text().splitlines())
    assert recorded - public == set(), "gone or changed: raise TAGBRIDGE_SOVERSION"
    assert public - recorded == set(), "new: add it to runtime/exports.txt"


def test_every_export_has_a_version():
    assert set(exported().values()) == {"TAGBRIDGE_0", "TAGBRIDGE_PRIVATE"}


def program_of_the_page() -> str:
    page = (ROOT / "docs" / "embedding.md").read_text()
    return re.search(r"^```cpp\n(.*?)^```$", page, re.DOTALL | re.MULTILINE)[1]


def project_of_the_page() -> str:
    page = (ROOT / "docs" / "embedding.md").read_text()
    return re.search(r"^```cmake\n(.*?)^```$", page, re.DOTALL | re.MULTILINE)[1]


def test_a_project_elsewhere_finds_the_package_and_builds_the_program_of_the_page(
        prefix: Path, tmp_path: Path):
    (tmp_path / "CMakeLists.txt").write_text(project_of_the_page())
    (tmp_path / "size.cc").write_text(program_of_the_page())
    output = run("cmake", "-B", "build", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}",
                 folder=tmp_path)
    plugin = re.search(r"plug-in: (.*)", output)[1]
    assert Path(plugin).is_relative_to(prefix)
    run("cmake", "--build", "build", folder=tmp_path)
    assert run(tmp_path / "build" / "size", plugin, EXAMPLE) == "240 columns, 180 rows\n"
    assert "cannot be opened" in run(tmp_path / "build" / "size", plugin, "nothing.tif", status=1)


def test_headers_that_are_installed_need_no_others(prefix: Path):
    headers = sorted((prefix / "include" / "tagbridge").rglob("*.h"))
    assert len(headers) == 11
    for header in headers:
        included = re.findall(r'#include "(.*?)"', header.read_text())
        assert all((prefix / "include" / "tagbridge" / name).exists() for name in included), header


# --- Python and the command line below a prefix

def test_the_command_works_below_a_prefix(prefix: Path):
    assert run(prefix / "bin" / "tagbridge", "--version") == f"tagbridge {tagbridge.__version__}\n"
    assert "180 x 240 x 3" in run(prefix / "bin" / "tagbridge", "info", EXAMPLE)


def test_the_plug_in_is_found_beside_the_runtime(prefix: Path):
    [package] = prefix.glob("lib*/python3*/dist-packages")
    assert not list(package.rglob("tagbridge.so")) and list(prefix.rglob("tagbridge.so"))
    words = f"import sys; sys.path.insert(0, {str(package)!r}); import tagbridge as t;" \
            f"print(t.__file__, t.imread({str(EXAMPLE)!r}).shape)"
    assert run(sys.executable, "-c", words) == f"{package}/tagbridge/__init__.py (180, 240, 3)\n"


# --- The wheel

@pytest.fixture(scope="module")
def environment(tmp_path_factory: pytest.TempPathFactory, prefix: Path) -> Path:
    """A virtual environment into which pip has installed the project, without network."""
    folder = tmp_path_factory.mktemp("environment")
    run(sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", folder)
    run(folder / "bin" / "python", "-m", "pip", "install", "--no-index", "--config-settings",
        f"build-dir={BUILD}", "--disable-pip-version-check", ROOT)
    return folder


def test_pip_installs_the_package_and_the_command(environment: Path, tmp_path: Path):
    for folder in [tmp_path, Path("/"), ROOT]:
        version = run(environment / "bin" / "tagbridge", "--version", folder=folder)
        assert version == f"tagbridge {tagbridge.__version__}\n"
    words = f"import tagbridge; print(tagbridge.__file__, tagbridge.imread({str(EXAMPLE)!r}).shape)"
    place, shape = run(environment / "bin" / "python", "-c", words).split(" ", 1)
    assert Path(place).is_relative_to(environment) and shape == "(180, 240, 3)\n"


def test_the_wheel_needs_nothing_of_the_build(environment: Path):
    [package] = environment.glob("lib/python*/site-packages/tagbridge")
    for library in package.glob("*.so*"):
        needed = re.findall(r"(libtagbridge\S*) => (\S+)", run("ldd", library))
        assert all(Path(place).parent == package for _, place in needed), library
    assert {"tagbridge.so", "libtagbridge_runtime.so.0"} <= {path.name for path in package.iterdir()}


def test_pip_knows_the_package_and_removes_it_whole(environment: Path):
    shown = run(environment / "bin" / "python", "-m", "pip", "show", "tagbridge")
    assert f"Version: {tagbridge.__version__}" in shown and "Requires: numpy" in shown
    copy = environment.with_name("copy")
    run("cp", "-a", environment, copy)
    [package] = copy.glob("lib/python*/site-packages")
    names = (package / f"tagbridge-{tagbridge.__version__}.dist-info" / "RECORD").read_text()
    for line in names.splitlines():
        assert (package / line.split(",")[0]).exists(), line
    shutil.rmtree(copy)


def test_the_source_archive_has_what_the_wheel_is_built_from(tmp_path: Path):
    if not (ROOT / ".git").exists():
        pytest.skip("the archive is made of what git knows")
    words = "import sys; sys.path.insert(0, 'packaging/backend'); import tagbridge_build as b;" \
            f"print(b.build_sdist({str(tmp_path)!r}))"
    name = run(sys.executable, "-c", words, folder=ROOT).strip()
    listed = run("tar", "-tf", tmp_path / name)
    folder = name.removesuffix(".tar.gz")
    for path in ["PKG-INFO", "pyproject.toml", "CMakeLists.txt", "packaging/backend/tagbridge_build.py"]:
        assert f"{folder}/{path}\n" in listed


# --- Manual pages and completion

def page(prefix: Path, name: str) -> str:
    """A manual page as a reader sees it, without breaks and hyphens."""
    source = gzip.decompress((prefix / "share" / "man" / "man1" / f"{name}.1.gz").read_bytes())
    done = subprocess.run(["groff", "-man", "-Tascii", "-P-cbou", "-rHY=0", "-ww"], input=source,
                          capture_output=True, check=True)
    assert done.stderr == b""
    return re.sub(r"\s+", " ", done.stdout.decode())


@pytest.mark.parametrize("command", COMMANDS)
def test_a_manual_page_tells_what_help_tells(prefix: Path, command: str, capsys):
    with pytest.raises(SystemExit):
        make_parser().parse_args([command, "--help"])
    text = page(prefix, f"tagbridge-{command}")
    shown = capsys.readouterr().out
    for option in set(re.findall(r"--[a-z-]+", shown)) | {"-h"}:
        assert option in text, option
    assert re.search(r"example: (tagbridge \S+)", shown)[1] in text


def test_the_first_manual_page_leads_to_the_others(prefix: Path):
    text = page(prefix, "tagbridge")
    assert all(f"tagbridge-{command}(1)" in text for command in COMMANDS)


def completed(prefix: Path, *words: str) -> list[str]:
    """What bash completes the last word to."""
    script = prefix / "share" / "bash-completion" / "completions" / "tagbridge"
    quoted = " ".join(f"'{word}'" for word in ["tagbridge", *words])
    return run("bash", "-c", f"compopt() {{ :; }}; . {script}; COMP_WORDS=({quoted});"
               f"COMP_CWORD={len(words)}; _tagbridge; printf '%s\\n' \"${{COMPREPLY[@]}}\"").split()


@pytest.mark.parametrize(("words", "found"), [
    ([""], [*COMMANDS, "-h", "--help", "--version"]),
    (["co"], ["convert"]),
    (["convert", "--pl"], ["--planar"]),
    (["convert", "a.tif", "--compression", "p"], ["packbits"]),
    (["convert", "a.tif", "--planar", ""], ["contig", "separate"]),
    (["convert", ""], []),               # names of files
    (["convert", "--level", ""], []),
    (["get", "a.tif", "ImageDes"], ["ImageDescription"]),
    (["get", "-d", "1", "a.tif", "ImageW"], ["ImageWidth"]),
    (["get", ""], []),
    (["nothing", ""], []),
], ids=" ".join)
def test_bash_completes(prefix: Path, words: Sequence[str], found: list[str]):
    assert completed(prefix, *words) == found


@pytest.mark.parametrize(("shell", "name"), [
    ("zsh", "zsh/site-functions/_tagbridge"), ("fish", "fish/vendor_completions.d/tagbridge.fish")])
def test_other_shells_have_every_option(prefix: Path, shell: str, name: str):
    script = prefix / "share" / name
    if shutil.which(shell):
        run(shell, "-n", script)
    text = script.read_text()
    for option in ["rows-per-strip", "compression", "json", "tags", "region", "size", "version"]:
        assert option in text


@pytest.mark.skipif(shutil.which("fish") is None, reason="there is no fish")
@pytest.mark.parametrize(("line", "found"), [
    ("tagbridge co", "convert"), ("tagbridge convert --pl", "--planar"),
    ("tagbridge get a.tif ImageDes", "ImageDescription"),
    ("tagbridge convert a.tif --compression p", "packbits")])
def test_fish_completes(prefix: Path, line: str, found: str):
    script = prefix / "share" / "fish" / "vendor_completions.d" / "tagbridge.fish"
    assert run("fish", "-c", f"source {script}; complete -C '{line}'").split("\t")[0].strip() == found
