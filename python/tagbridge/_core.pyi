from typing import Any, Literal, Union, overload

import numpy

from ._messages import Warning

__version__: str

# What call accepts; the elements of lists, tuples, dicts and object arrays are of it again.
Input = Union[
    bool,
    int,
    float,
    str,
    bytes,
    bytearray,
    numpy.generic,
    numpy.ndarray[Any, Any],
    list[Any],
    tuple[Any, ...],
    dict[str, Any],
]

@overload
def call(operation: str, *inputs: Input, outputs: Literal[1] = 1) -> Any: ...
@overload
def call(operation: str, *inputs: Input, outputs: Literal[0]) -> None: ...
@overload
def call(operation: str, *inputs: Input, outputs: int) -> Any: ...
def collect(
    operation: str, *inputs: Input, outputs: int = 1
) -> tuple[Any, list[Warning]]: ...
def set_tags(file: numpy.ndarray[Any, Any], numbers: list[int]) -> list[int]: ...
def set_memory_limit(bytes: int) -> None: ...
def memory_limit() -> int: ...
def set_cache_limit(bytes: int) -> None: ...
def cache_limit() -> int: ...
def cached_bytes() -> int: ...
def release_cached_memory() -> None: ...
def catalog_rows() -> list[tuple[str, str, str, str, bool]]: ...
