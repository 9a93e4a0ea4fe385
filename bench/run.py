"""Runs all benchmarks of a build and prints their results as tables of ratios.

Each figure is a ratio of two times that were taken in turn, so that it holds on any machine and
with other work going on. Nothing is asserted but that all contenders read the same pixels.
"""

from __future__ import annotations

import argparse
import datetime
import importlib
import json
import os
import platform
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from pathlib import Path
from typing import Any

from goals import TABLES, Goal, Result, Table

HERE = Path(__file__).resolve().parent
PARTS = ("kernels", "read", "jpeg2000", "write", "memory", "calls", "peers", "views",
         "side_by_side", "files")


def command_of(part: str, options: argparse.Namespace) -> list[str]:
    programs = options.build / "bench"
    if part == "kernels":
        seconds = {"smoke": "0.001", "quick": "0.05"}.get(options.effort, "0.3")
        return [str(programs / "kernels_bench"), "--benchmark_format=json",
                f"--benchmark_min_time={seconds}", "--benchmark_filter=256x256"]
    if part in ("read", "jpeg2000", "write", "memory"):
        return [str(programs / f"{part}_bench"), options.effort, options.folder]
    return [sys.executable, str(HERE / f"{part}.py"), "--make-image", str(programs / "make_image"),
            options.effort, options.folder]


def kernel_results(output: str) -> Iterator[Result]:
    """Keeps the kernels for one sample a pixel."""
    for row in json.loads(output)["benchmarks"]:
        what, _, layout = row["name"].removesuffix("/manual_time").partition("/256x256")
        if layout in ("", "x1/of_256_rows"):
            yield {"table": "kernels", "what": what, "value": row["of_memcpy"]}
        elif row["name"].startswith(("split", "join")):
            yield {"table": "kernels", "what": what + layout, "value": row["of_memcpy"]}


def results_of(part: str, options: argparse.Namespace) -> list[Result]:
    print(f"measuring: {part}", file=sys.stderr)
    paths = [str(options.build / "bench"), str(options.build / "python")]
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(paths)}
    run = subprocess.run(command_of(part, options), check=True, env=environment,
                         stdout=subprocess.PIPE, text=True)
    if part == "kernels":
        return list(kernel_results(run.stdout))
    return [json.loads(line) for line in run.stdout.splitlines()]


# --- The head: what the figures depend on

def processor() -> str:
    for line in Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return platform.machine()


def version_of(module: str) -> str:
    try:
        return importlib.import_module(module).__version__
    except ImportError:
        return "not installed"


def libtiff_version(build: Path) -> str:
    sys.path.append(str(build / "python"))
    text = importlib.import_module("tagbridge").call("getVersion")
    return text.splitlines()[0].removeprefix("LIBTIFF, Version ")


def head(build: Path) -> str:
    modules = {"NumPy": "numpy", "tifffile": "tifffile", "Pillow": "PIL", "OpenCV": "cv2",
               "GDAL": "osgeo.gdal", "Zarr": "zarr"}
    peers = ", ".join(f"{name} {version_of(module)}" for name, module in modules.items())
    return (f"{datetime.date.today()}, {processor()}, {os.cpu_count()} cores, "
            f"Linux {platform.release().split('-')[0]}, libtiff {libtiff_version(build)}, "
            f"Python {platform.python_version()}, {peers}\n")


# --- Tables

def description(result: Result) -> str:
    if "what" in result:
        return result["what"]
    blocks = result["blocks"]
    if "block_length" in result:
        length = result["block_length"]
        blocks = f"tiles {length} x {length}" if blocks == "tiles" else f"strips of {length} rows"
    size = f"{result['width']} x {result['length']}"
    return f"{result['samples']}, {result['compression']}, {blocks}, {size}"


def remark(result: Result) -> str:
    if "nanoseconds" in result:
        return f"{result['nanoseconds']:.0f} ns"
    if "waiting" in result:
        return f"waited for each other {100 * result['waiting']:.1f} % of the time"
    if "factors" in result:
        return ", ".join(f"{name} {factor:.1f}" for name, factor in result["factors"].items())
    return ""


def verdict(value: float, goal: Goal, higher_is_better: bool) -> str:
    def holds(bound: float) -> bool:
        return value >= bound if higher_is_better else value <= bound

    return "aim" if holds(goal.aim) else "yes" if holds(goal.required) else "NO"


def row_of(table: Table, result: Result) -> str:
    value = result["value"]
    if table.name == "growth":
        value *= 1e9 / (result["width"] * result["length"])
    goal = table.goal(result)
    cells = [description(result), f"{value:.2f}"]
    if goal is None:
        cells += ["", "", ""]
    else:
        cells += [f"{goal.required:g}", f"{goal.aim:g}",
                  verdict(value, goal, table.higher_is_better)]
    return "| " + " | ".join([*cells, remark(result)]) + " |"


def print_table(table: Table, results: list[Result]) -> None:
    rows = [row_of(table, result) for result in results if result["table"] == table.name]
    if not rows:
        return
    print(f"\n## {table.title}\n")
    print(f"| what | {table.measured} | required | aim | reached | |")
    print("|---|---|---|---|---|---|")
    print("\n".join(rows))


def parse_options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, default=HERE.parent / "build" / "gcc",
                        help="the build to measure")
    effort = parser.add_mutually_exclusive_group()
    for name, meaning in {"smoke": "only show that everything runs, on tiny images",
                          "quick": "measure in a third of the time, less exactly",
                          "large": "measure images up to a gigapixel as well"}.items():
        effort.add_argument(f"--{name}", dest="effort", action="store_const", const=name,
                            default="full", help=meaning)
    parser.add_argument("--only", choices=PARTS, nargs="+", default=PARTS, metavar="PART",
                        help=f"of {', '.join(PARTS)}")
    parser.add_argument("--folder", help="where to put images, by default a temporary folder; "
                        "up to 300 MB, with --large 1 GB")
    parser.add_argument("--json", type=Path, help="keep the results in this file as well")
    return parser.parse_args()


def main() -> None:
    options = parse_options()
    options.build = options.build.resolve()
    with tempfile.TemporaryDirectory(prefix="tagbridge-", dir=options.folder) as folder:
        options.folder = folder
        results: list[dict[str, Any]] = []
        for part in options.only:
            results += results_of(part, options)
    if options.json:
        options.json.write_text("".join(json.dumps(result) + "\n" for result in results))
    print(head(options.build))
    for table in TABLES:
        print_table(table, results)


if __name__ == "__main__":
    main()
