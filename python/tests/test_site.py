"""The site is complete, and its links lead somewhere."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest
import tagbridge

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools" / "site"))

import build  # noqa: E402

pytestmark = pytest.mark.skipif("libasan" in os.environ.get("LD_PRELOAD", ""),
                                reason="the site is the same in every build")


@pytest.fixture(scope="module")
def site(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The site; building it follows every link."""
    folder = tmp_path_factory.mktemp("site")
    done = subprocess.run([sys.executable, ROOT / "tools" / "site" / "build.py", folder],
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
    return folder


def test_every_page_is_there_and_in_the_menu(site: Path):
    menu = (site / "index.html").read_text()
    for page in (ROOT / "docs").glob("*.md"):
        assert (site / f"{page.stem}.html").exists() and f'href="{page.stem}.html"' in menu, page


def test_every_public_name_is_described(site: Path):
    text = (site / "api.html").read_text()
    for name in tagbridge.__all__:
        assert name.startswith("__") or f'id="{name.lower()}"' in text, name
    for name in ["open(file, mode=", "memory_limit()", "File.write()", "Directory.block_shape"]:
        assert name in re.sub("<.*?>", "", text).replace("&#39;", "'"), name


def test_every_command_is_described(site: Path):
    text = (site / "commands.html").read_text()
    for command in ["info", "get", "set", "convert", "export", "preview", "verify", "diff"]:
        assert f'id="tagbridge-{command}"' in text
    assert "--rows-per-strip N" in text


def test_nothing_is_fetched_from_elsewhere(site: Path):
    for page in site.rglob("*.html"):
        assert not re.findall(r'<(?:script|link|img)[^>]+(?:src|href)="?https?:', page.read_text())


def test_broken_links_are_found(tmp_path: Path):
    page = tmp_path / "a.html"
    (tmp_path / "b.html").write_text('<h1 id="there">b</h1>')
    page.write_text('<a href="b.html#there">1</a><a href="b.html#not">2</a><a href="c.html">3</a>'
                    '<img src="d.png"><a href="#e">4</a><a href="https://example.org/">5</a>')
    assert build.broken_links(page) == ["b.html#not", "c.html", "d.png", "#e"]


@pytest.mark.parametrize(("docstring", "markdown"), [
    ("Return it.\n\n:param file: a path, or\n    an object\n:raises OSError: it is not there",
     "Return it.\n\n- `file`: a path, or an object\n- raises `OSError`: it is not there"),
    (":func:`open` gives a ``File``", "`open` gives a `File`"),
    ("So::\n\n    a = 1\n    b = 2\n\nDone.", "So:\n\n```python\na = 1\nb = 2\n```\n\nDone."),
], ids=["fields", "roles", "code"])
def test_docstrings_become_markdown(docstring: str, markdown: str):
    from api import text

    assert text(docstring) == markdown
