"""Builds the site: the pages of docs/, and those that the package itself has to say.

build.py FOLDER     a link that leads nowhere ends it
"""

from __future__ import annotations

import functools
import html.parser
import re
import shutil
import sys
import tempfile
import urllib.parse
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "packaging" / "command"))

import api  # noqa: E402
from commands import Argument, Command, program  # noqa: E402
from mkdocs.commands.build import build  # noqa: E402
from mkdocs.config import load_config  # noqa: E402


def main(folder: Path) -> int:
    """Write the site; return 1 when a link leads nowhere."""
    with tempfile.TemporaryDirectory() as sources:
        shutil.copytree(ROOT / "docs", sources, dirs_exist_ok=True)
        Path(sources, "api.md").write_text(api.page(), encoding="utf-8")
        Path(sources, "commands.md").write_text(commands_page(), encoding="utf-8")
        shutil.copy(ROOT / "CHANGELOG.md", Path(sources, "changes.md"))
        config = load_config(str(ROOT / "mkdocs.yml"), docs_dir=sources, site_dir=str(folder),
                             strict=True)
        # Headings are linked to as they are in the sources, which other places show as well.
        config["mdx_configs"]["toc"]["slugify"] = slug
        build(config)
    broken = [f"{page.relative_to(folder)}: {link}" for page in sorted(folder.rglob("*.html"))
              for link in broken_links(page)]
    for line in broken:
        print(line, file=sys.stderr)
    return 1 if broken else 0


def slug(heading: str, _: str) -> str:
    """Return the anchor of a heading."""
    return re.sub(r"[^\w -]", "", heading).lower().replace(" ", "-")


def commands_page() -> str:
    """Return the commands with their options, from the parser."""
    whole, commands = program()
    return "\n".join(["# Commands, option by option", *map(_command, [whole, *commands])]) + "\n"


def _command(command: Command) -> str:
    options = "\n".join(_row(argument) for argument in [*command.positionals, *command.options])
    return (f"\n## {' '.join(filter(None, ['tagbridge', command.name]))}\n\n{command.about}\n\n"
            f"```text\n{command.usage}\n```\n\n| | |\n|---|---|\n{options}\n\n"
            f"```console\n$ {command.example}\n```")


def _row(argument: Argument) -> str:
    value = argument.value.replace("|", "\\|")
    names = ", ".join(f"`{name}{' ' + value if value else ''}`" for name in argument.names)
    return f"| {names or f'`{value}`'} | {argument.about} |"


class Links(html.parser.HTMLParser):
    """Collects where a page leads, and where it can be led to."""

    def __init__(self, page: Path) -> None:
        super().__init__()
        self.targets: list[str] = []
        self.anchors: set[str] = {""}
        self.feed(page.read_text(encoding="utf-8"))

    def handle_starttag(self, tag: str, attributes: list[tuple[str, str | None]]) -> None:
        """Take the attributes that matter."""
        for name, value in attributes:
            if name == "id":
                self.anchors.add(value or "")
            elif name in ("href", "src"):
                self.targets.append(value or "")


@functools.cache
def _read(page: Path) -> Links:
    return Links(page)


def broken_links(page: Path) -> list[str]:
    """Return the links of a page to files and anchors that are not there."""
    found = []
    for link in _read(page).targets:
        parts = urllib.parse.urlsplit(link)
        if parts.scheme or parts.netloc or page.name == "404.html":
            continue
        target = page.parent / urllib.parse.unquote(parts.path) if parts.path else page
        if target.is_dir():
            target /= "index.html"
        anchor = urllib.parse.unquote(parts.fragment)
        if not target.exists() or (target.suffix == ".html" and anchor != "__skip"
                                   and anchor not in _read(target).anchors):
            found.append(link)
    return found


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]).resolve()))
