"""Disks that are full, or fail, under what a test does."""

from __future__ import annotations

import contextlib
import os
import resource
import shutil
import subprocess
from collections.abc import Iterator
from pathlib import Path

# Lets writes to the files below a folder fail: so many, from the n-th on. Makes a file as a sign of it.
SHIM = r"""
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

static atomic_long done;

static int fails(int descriptor) {
  const char* folder = getenv("FAILING_FOLDER");
  char link[64], name[4096] = "";
  snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  if (!folder || readlink(link, name, sizeof name - 1) < 0) return 0;
  if (strncmp(name, folder, strlen(folder)) != 0) return 0;
  long number = atomic_fetch_add(&done, 1) - atol(getenv("FAILING_FROM"));
  if (number < 0 || number >= atol(getenv("FAILING_COUNT"))) return 0;
  close(open(getenv("FAILING_SIGN"), O_CREAT | O_WRONLY, 0600));
  errno = EIO;
  return 1;
}

#define ORIGINAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

ssize_t write(int descriptor, const void* data, size_t size) {
  return fails(descriptor) ? -1 : ORIGINAL(write)(descriptor, data, size);
}
ssize_t pwrite(int descriptor, const void* data, size_t size, off_t offset) {
  return fails(descriptor) ? -1 : ORIGINAL(pwrite)(descriptor, data, size, offset);
}
ssize_t pwrite64(int descriptor, const void* data, size_t size, off64_t offset) {
  return fails(descriptor) ? -1 : ORIGINAL(pwrite64)(descriptor, data, size, offset);
}
int fsync(int descriptor) { return fails(descriptor) ? -1 : ORIGINAL(fsync)(descriptor); }
"""


@contextlib.contextmanager
def room(size: int) -> Iterator[None]:
    """Let no file of this process grow beyond that many bytes."""
    before = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (size, before[1]))
    try:
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, before)


def compiled_shim(folder: Path) -> str | None:
    """The library of a broken disk, None where nothing compiles it."""
    compiler = shutil.which("cc") or shutil.which("gcc")
    if compiler is None:
        return None
    (folder / "shim.c").write_text(SHIM)
    subprocess.run([compiler, "-shared", "-fPIC", "-o", folder / "shim.so", folder / "shim.c",
                    "-ldl"], check=True)
    return str(folder / "shim.so")


def broken_disk(shim: str, folder: Path, number: int, count: int, sign: Path) -> dict[str, str]:
    """The environment of a process of which so many writes below the folder fail from one on.

    The first that does makes the file `sign`.
    """
    loaded = [os.environ.get("LD_PRELOAD", "").strip(), shim]  # a sanitizer comes first
    return {**os.environ, "LD_PRELOAD": " ".join(loaded).strip(), "FAILING_FOLDER": f"{folder}/",
            "FAILING_FROM": str(number), "FAILING_COUNT": str(count), "FAILING_SIGN": str(sign)}
