"""Runs clang-tidy on C++ sources, on those only that it has not passed yet as they are.

A source counts as changed when it, a header of the project that it includes, the checks or the
flags are. Where it was last clean stands in the build folder, so a second run costs nothing.
"""

from __future__ import annotations

import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]


def headers_of(build: pathlib.Path) -> dict[str, list[pathlib.Path]]:
    """The project's headers that each source included when it was compiled, as ninja knows them."""
    known = subprocess.run(["ninja", "-C", build, "-t", "deps"], capture_output=True, text=True,
                           check=True).stdout
    found: dict[str, list[pathlib.Path]] = {}
    for entry in known.split("\n\n"):
        paths = [(build / line.strip()).resolve() for line in entry.splitlines()[1:]]
        own = [path for path in paths if path.is_relative_to(ROOT)]
        for path in own:
            if path.suffix == ".cc":
                found[str(path)] = own
    return found


def fingerprint(command: dict[str, str], files: list[pathlib.Path]) -> str:
    digest = hashlib.sha256(command["command"].encode())
    folder = pathlib.Path(command["file"]).relative_to(ROOT).parts[0]
    checks = [ROOT / ".clang-tidy", ROOT / folder / ".clang-tidy"]
    for path in [*checks, *sorted(set(files))]:
        if path.exists():
            digest.update(path.read_bytes())
    return digest.hexdigest()


def is_clean(build: pathlib.Path, source: str, mark: pathlib.Path) -> bool:
    """Leaves the mark of a clean source at once, so that a run which is stopped is not lost."""
    checked = subprocess.run(["clang-tidy", "--quiet", "-p", build, source], capture_output=True,
                             text=True, check=False)
    if checked.returncode != 0:
        print(checked.stdout, file=sys.stderr, flush=True)
        return False
    mark.touch()
    return True


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, help="folder with compile_commands.json")
    parser.add_argument("sources", nargs="*", help="sources; default: all that are compiled")
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    wanted = {str((ROOT / source).resolve()) for source in arguments.sources}
    commands = {str(pathlib.Path(command["file"]).resolve()): command
                for command in json.loads((build / "compile_commands.json").read_text())}
    headers = headers_of(build)
    passed = build / "lint"
    passed.mkdir(exist_ok=True)
    marks = {}
    for source, command in sorted(commands.items()):
        inside = pathlib.Path(source).is_relative_to(ROOT) and not source.startswith(str(build))
        if not inside or (wanted and source not in wanted):
            continue
        mark = passed / fingerprint(command, headers.get(source, [pathlib.Path(source)]))
        if not mark.exists():
            marks[source] = mark
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        clean = list(pool.map(lambda source: is_clean(build, source, marks[source]), marks))
    print(f"clang-tidy: {len(marks)} of {len(commands)} sources read, "
          f"{clean.count(False)} with complaints")
    return 0 if all(clean) else 1


if __name__ == "__main__":
    sys.exit(main())
