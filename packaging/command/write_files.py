"""Writes the manual pages and the completions below a folder, as they lie below a prefix.

write_files.py FOLDER [--debian]     with --debian where Debian has those of packages
"""

from __future__ import annotations

import gzip
import sys
from pathlib import Path

import completion
import manual
from commands import PROGRAM

ZSH, FISH = "share/zsh/site-functions", "share/fish/vendor_completions.d"
ZSH_OF_PACKAGES = "share/zsh/vendor-completions"


def main(folder: Path, *, debian: bool) -> None:
    """Write everything."""
    for name, text in manual.pages():
        page = gzip.compress(text.encode(), 9, mtime=0)  # the same file from the same text
        _write(folder / "share/man/man1" / f"{name}.gz", page)
    _write(folder / "share/bash-completion/completions" / PROGRAM, completion.bash().encode())
    _write(folder / (ZSH_OF_PACKAGES if debian else ZSH) / f"_{PROGRAM}", completion.zsh().encode())
    _write(folder / FISH / f"{PROGRAM}.fish", completion.fish().encode())


def _write(path: Path, content: bytes) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)


if __name__ == "__main__":
    main(Path(sys.argv[1]), debian="--debian" in sys.argv[2:])
