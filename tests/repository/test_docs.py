"""The code blocks of README.md and docs/ do what the pages say.

Blocks marked python are run, those of a page in order, in one namespace and in a temporary folder
in which examples/ can be reached. A block with prompts (>>>) must also give the output it shows.
Blocks marked cpp are compiled.
"""

import doctest
import pathlib
import re
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BLOCK = re.compile(r"^```(python|cpp)\n(.*?)^```$", re.DOTALL | re.MULTILINE)
LINK = re.compile(r"\]\((?!https?:)([^)#\s]*)(?:#([^)\s]*))?\)")
PAGES = [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]


def name(page: pathlib.Path) -> str:
    return page.relative_to(ROOT).as_posix()


def blocks(page: pathlib.Path, language: str) -> list[tuple[int, str]]:
    """Returns the line and the text of each block of that language on a page."""
    text = page.read_text()
    return [(text.count("\n", 0, found.start(2)), found.group(2))
            for found in BLOCK.finditer(text) if found.group(1) == language]


def run_block(source: str, namespace: dict, page: str, line: int) -> None:
    if ">>> " not in source:
        # Padding makes a traceback name the line of the page.
        exec(compile("\n" * line + source, page, "exec"), namespace)
        return
    test = doctest.DocTestParser().get_doctest(source, namespace, page, page, line)
    runner = doctest.DebugRunner(
        optionflags=doctest.ELLIPSIS | doctest.IGNORE_EXCEPTION_DETAIL)
    try:
        runner.run(test, clear_globs=False)
    except doctest.DocTestFailure as failure:
        pytest.fail(f"{page}:{line + failure.example.lineno + 1}: {failure.example.source.strip()}"
                    f" gave {failure.got.strip()}, the page says {failure.example.want.strip()}")
    namespace.update(test.globs)


@pytest.mark.parametrize("page", [page for page in PAGES if blocks(page, "python")], ids=name)
def test_blocks_run_as_the_page_says(page: pathlib.Path, tmp_path: pathlib.Path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "examples").symlink_to(ROOT / "examples")
    namespace: dict = {"__name__": "__main__"}
    for line, source in blocks(page, "python"):
        run_block(source, namespace, name(page), line)


@pytest.mark.parametrize("page", [page for page in PAGES if blocks(page, "cpp")], ids=name)
def test_programs_compile(page: pathlib.Path):
    for line, source in blocks(page, "cpp"):
        compiler = subprocess.run(
            ["c++", "-std=c++20", "-Wall", "-Werror", "-fsyntax-only", "-I", ROOT, "-x", "c++", "-"],
            input="\n" * line + source, text=True, capture_output=True, check=False)
        assert compiler.returncode == 0, compiler.stderr


@pytest.mark.parametrize("page", PAGES, ids=name)
def test_links_lead_somewhere(page: pathlib.Path):
    for target, anchor in LINK.findall(page.read_text()):
        linked = page.parent / target if target else page
        assert linked.exists(), target
        if anchor:
            headings = re.findall(r"^#+ (.*)$", linked.read_text(), re.MULTILINE)
            anchors = {re.sub(r"[^\w -]", "", heading).lower().replace(" ", "-")
                       for heading in headings}
            assert anchor in anchors, f"{target}#{anchor}"


def test_the_page_of_errors_is_that_of_the_catalog():
    generator = ROOT / "tools" / "error_docs.py"
    page = subprocess.run([sys.executable, generator], capture_output=True, text=True, check=True)
    assert (ROOT / "docs" / "errors.md").read_text() == page.stdout, "run ./dev docs"


def test_a_block_that_lies_is_found(tmp_path: pathlib.Path):
    with pytest.raises(pytest.fail.Exception, match="page.md:8: 1 [+] 1 gave 2, the page says 3"):
        run_block(">>> 1 + 1\n3\n", {}, "page.md", 7)
    with pytest.raises(ZeroDivisionError):
        run_block("1 / 0\n", {}, "page.md", 7)


def test_readme_fits_a_sitting():
    assert len((ROOT / "README.md").read_text().splitlines()) <= 150
