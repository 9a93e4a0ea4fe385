"""What a process holds of memory and descriptors, and whether that grows."""

from __future__ import annotations

import gc
import os
from collections.abc import Sequence

PAGE = os.sysconf("SC_PAGESIZE")
#: What counts as growth: more bytes a million calls, and so many in all, than chance brings.
SLOPE = 128 << 10
GROWTH = 1 << 20
#: AddressSanitizer holds released memory back, to find later uses of it.
IS_WATCHED = "libasan" in os.environ.get("LD_PRELOAD", "")


def resident() -> int:
    """Return the bytes of memory that the process uses."""
    with open("/proc/self/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * PAGE


def descriptors() -> int:
    """Return the number of open descriptors, but for the one that lists them."""
    gc.collect()
    return len(os.listdir("/proc/self/fd")) - 1


def slope(places: Sequence[float], values: Sequence[float]) -> float:
    """Return the slope of the straight line that fits the values best."""
    middle, mean = sum(places) / len(places), sum(values) / len(values)
    spread = sum((place - middle) ** 2 for place in places)
    product = sum((place - middle) * (value - mean)
                  for place, value in zip(places, values, strict=True))
    return product / spread if spread else 0.0


class Memory:
    """Memory in use against the number of calls, from when all that is kept was made once."""

    def __init__(self, warm_up: float = 0.25) -> None:
        """Begin; that part of the samples comes before all that is kept was made."""
        self._warm_up = warm_up
        self._calls: list[int] = []
        self._resident: list[int] = []

    def sample(self, calls: int) -> None:
        """Note what is in use after so many calls."""
        self._calls.append(calls)
        self._resident.append(resident())

    @property
    def _first(self) -> int:
        return int(len(self._calls) * self._warm_up)

    @property
    def slope(self) -> float:
        """Bytes a million calls, over the samples after the warm-up."""
        begin = self._first
        return 1e6 * slope(self._calls[begin:], self._resident[begin:])

    @property
    def grows(self) -> bool:
        """Whether that is more than chance."""
        calls = self._calls[-1] - self._calls[self._first]
        growth = self.slope * calls / 1e6
        return not IS_WATCHED and self.slope > SLOPE and growth > GROWTH
