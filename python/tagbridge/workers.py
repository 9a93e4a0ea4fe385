"""What is told to the program for which a worker of a cluster computes."""

from __future__ import annotations

import sys
from collections.abc import Iterable

from ._messages import Warning
from .errors import issue


def tell(said: Iterable[Warning]) -> None:
    """Issue warnings here, and in a worker of a cluster also where its results go."""
    warnings = list(said)
    if not warnings:
        return
    cluster = sys.modules.get("distributed.worker")
    if cluster is None or not _in_worker(cluster):
        issue(warnings)
        return
    for warning in warnings:
        cluster.warn(warning)


def _in_worker(cluster: object) -> bool:
    try:
        cluster.get_worker()  # type: ignore[attr-defined]
    except ValueError:
        return False
    return True
