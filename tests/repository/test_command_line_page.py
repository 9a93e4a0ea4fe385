"""The pages show what the commands print."""

from __future__ import annotations

import re
import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PAGES = [ROOT / "docs" / "command-line.md", ROOT / "README.md", ROOT / "docs" / "index.md",
         ROOT / "docs" / "how-to.md"]
BLOCK = re.compile(r"^```console\n(.*?)^```$", re.DOTALL | re.MULTILINE)


def steps(page: Path) -> list[tuple[str, str]]:
    """The commands of the page that can run here, with what it shows of their output."""
    found = []
    for block in BLOCK.findall(page.read_text(encoding="utf-8")):
        for part in re.split(r"^\$ ", block, flags=re.MULTILINE)[1:]:
            command, _, output = part.partition("\n")
            if command.startswith(("tagbridge ", "cp ")):
                found.append((command, output))
    return found


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_the_page_shows_what_the_commands_print(page: Path, tmp_path: Path):
    (tmp_path / "examples").symlink_to(ROOT / "examples")
    tool = tmp_path / "bin" / "tagbridge"
    tool.parent.mkdir()
    tool.write_text(f'#!/bin/sh\nexec "{sys.executable}" -m tagbridge "$@"\n')
    tool.chmod(0o755)
    for command, shown in steps(page):
        done = subprocess.run(f'PATH="{tool.parent}:$PATH"; {command}', shell=True, cwd=tmp_path,
                              capture_output=True, text=True, check=False)
        assert done.stderr == "", command
        wanted = re.escape(shown).replace("…", ".*")
        assert re.fullmatch(wanted, done.stdout, re.DOTALL), f"{command}\n{done.stdout}"


def test_the_page_has_every_command():
    text = PAGES[0].read_text(encoding="utf-8")
    commands = ["info", "get", "set", "convert", "export", "preview", "verify", "diff"]
    assert all(f"tagbridge {command} " in text for command in commands)
