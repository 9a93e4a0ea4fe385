"""Says what part of the product's lines a fuzz target reaches with the inputs of some folders."""

from __future__ import annotations

import argparse
import collections
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
FOLDERS = ["core", "gateway", "handlers", "image", "kernels", "runtime", "tags"]


def profile(build: pathlib.Path, target: str, folders: list[pathlib.Path]) -> pathlib.Path:
    """Runs the target over the folders; returns what was counted."""
    kept = build / "profiles"
    kept.mkdir(exist_ok=True)
    merged = kept / f"{target}.profdata"
    # The program and the runtime's library leave a file each, named by how they were built.
    for old in kept.glob(f"{target}-*.profraw"):
        old.unlink()
    subprocess.run([build / "fuzz" / target, *folders], check=True, stdout=subprocess.DEVNULL,
                   env={**os.environ, "LLVM_PROFILE_FILE": str(kept / f"{target}-%m.profraw")})
    subprocess.run(["llvm-profdata", "merge", "-sparse", "-o", merged,
                    *kept.glob(f"{target}-*.profraw")], check=True)
    return merged


def lines_by_folder(build: pathlib.Path, target: str, merged: pathlib.Path) -> dict[str, list[int]]:
    """The lines that ran and those that there are, of each folder."""
    library = build / "python" / "tagbridge" / "libtagbridge_runtime.so"
    shown = subprocess.run(
        ["llvm-cov", "export", "-summary-only", f"-instr-profile={merged}",
         build / "fuzz" / target, f"-object={library}"],
        check=True, capture_output=True, text=True).stdout
    found: dict[str, list[int]] = collections.defaultdict(lambda: [0, 0])
    for file in json.loads(shown)["data"][0]["files"]:
        path = pathlib.Path(os.path.normpath(file["filename"]))
        if path.is_relative_to(ROOT) and (folder := path.relative_to(ROOT).parts[0]) in FOLDERS:
            found[folder][0] += file["summary"]["lines"]["covered"]
            found[folder][1] += file["summary"]["lines"]["count"]
    return found


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, help="folder of the preset coverage")
    parser.add_argument("target", help="fuzz_read and so on")
    parser.add_argument("folders", type=pathlib.Path, nargs="*", help="inputs of the target")
    arguments = parser.parse_args()
    folders = [folder for folder in arguments.folders if any(folder.iterdir())]
    inputs = sum(len(list(folder.iterdir())) for folder in folders)
    if not inputs:
        print(f"{arguments.target}: no inputs yet; ./dev fuzz {arguments.target} finds some")
        return 0
    merged = profile(arguments.build, arguments.target, folders)
    lines = lines_by_folder(arguments.build, arguments.target, merged)
    parts = [f"{folder} {100 * ran // max(count, 1)}%" for folder, (ran, count) in sorted(lines.items())]
    ran, count = (sum(numbers) for numbers in zip(*lines.values()))
    print(f"{arguments.target}: {inputs} inputs reach {ran} of {count} lines, "
          f"{100 * ran // count}%: {', '.join(parts)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
