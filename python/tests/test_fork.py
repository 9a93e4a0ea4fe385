"""Processes that fork while other threads are inside calls."""

from __future__ import annotations

import os
import subprocess
import sys
import textwrap

import numpy as np
import pytest
import tifffile

FORKS = """
import io, os, signal, sys, threading, time, tagbridge

def read(path):
    file = tagbridge.call("open", path, "r")
    total = sum(int(tagbridge.call("readEncodedStrip", file, n).sum()) for n in range(10))
    tagbridge.call("close", file)
    return total

def repeat(operation):
    while not done.is_set():
        operation()

def open_missing():
    try:
        tagbridge.call("open", sys.argv[1] + ".missing", "r")
    except tagbridge.Error:
        pass

def child():
    signal.alarm(20)
    good = read(sys.argv[1]) == expected
    {child_end}

expected = read(sys.argv[1])
content = open(sys.argv[1], "rb").read()
done = threading.Event()
threads = [threading.Thread(target=repeat, args=[operation], daemon=True)
           for operation in (lambda: read(sys.argv[1]), {busy})]
for thread in threads:
    thread.start()
states = []
for _ in range(12):
    process = os.fork()
    if process == 0:
        child()
    states.append(os.waitpid(process, 0)[1])
done.set()
for thread in threads:
    thread.join()
print(states.count(0))
"""


pytestmark = pytest.mark.skipif(
    "libasan" in os.environ.get("LD_PRELOAD", ""),
    reason="the sanitizer's allocator does not survive such a fork",
)


@pytest.fixture
def large(tmp_path):
    path = tmp_path / "large.tif"
    pixels = np.arange(1000 * 500, dtype=np.uint32).reshape(1000, 500)
    tifffile.imwrite(path, pixels, rowsperstrip=100, compression="deflate",
                     photometric="minisblack")
    return path


@pytest.mark.parametrize("busy", ["lambda: read(sys.argv[1])", "open_missing",
                                  "lambda: tagbridge.imread(io.BytesIO(content))"])
@pytest.mark.parametrize("child_end", ["os._exit(0 if good else 1)", "sys.exit(0 if good else 1)"])
def test_children_can_call_the_module(large, busy, child_end):
    """Whatever the other threads do at that moment, and whether a child ends with or without the
    interpreter's own cleanup."""
    script = textwrap.dedent(FORKS).format(busy=busy, child_end=child_end)
    ended = subprocess.run(
        [sys.executable, "-c", script, str(large)], capture_output=True, text=True, timeout=300,
    )
    assert (ended.stdout, ended.returncode) == ("12\n", 0), ended.stderr


def test_a_fork_waits_for_a_call_that_needs_python(large):
    """Each read of the file needs the interpreter, which the thread that forks must not keep."""
    script = """
import io, os, sys, threading, time, tagbridge

class Slow(io.BytesIO):
    def readinto(self, buffer):
        inside.set()
        time.sleep(0.05)
        return super().readinto(buffer)
    def read(self, *size):
        inside.set()
        time.sleep(0.05)
        return super().read(*size)

inside = threading.Event()
content = open(sys.argv[1], "rb").read()
thread = threading.Thread(target=tagbridge.imread, args=[Slow(content)], daemon=True)
thread.start()
states = []
for _ in range(3):
    inside.clear()
    inside.wait(5)
    process = os.fork()
    if process == 0:
        os._exit(0)
    states.append(os.waitpid(process, 0)[1])
    if not thread.is_alive():
        break
thread.join()
print(set(states))
"""
    ended = subprocess.run([sys.executable, "-c", script, str(large)], capture_output=True,
                           text=True, timeout=20)
    assert (ended.stdout, ended.returncode) == ("{0}\n", 0), ended.stderr
