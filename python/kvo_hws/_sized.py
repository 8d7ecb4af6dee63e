"""Calls functions that return texts and lists of unknown size: repeats the call with a larger buffer until the reply fits."""

from __future__ import annotations

import ctypes
from ctypes import c_uint32
from typing import Any, Callable, List, Tuple, Type, TypeVar

from ._library import call
from .errors import TooSmall

Record = TypeVar("Record", bound=ctypes.Structure)
Result = TypeVar("Result")

MAX_ATTEMPTS = 8
"""The plant may grow between two calls, but not forever."""
MAX_SIZE = 1_000_000
"""Elements or bytes. If a service reports a larger size, the size is probably wrong, and the call raises TooSmall."""


def decode(data: bytes) -> str:
    """Decodes UTF-8. Bytes that are not UTF-8 become surrogates; if these are sent again, they become the same bytes."""
    return data.decode("utf-8", "surrogateescape")


def with_growing_buffer(body: Callable[[int, Any], Result], capacity: int) -> Result:
    """Calls ``body`` with a capacity, and with the same number as a C variable. If ``body`` raises TooSmall, it has stored the
    required size in that variable, and is called again with a larger capacity.
    """
    for attempt in range(MAX_ATTEMPTS):
        size = c_uint32(capacity)
        try:
            return body(capacity, size)
        except TooSmall:
            if size.value > MAX_SIZE or attempt == MAX_ATTEMPTS - 1:
                raise
            # Powers of two: the interpreter keeps a type for each length of a C array.
            capacity = 1 << max(size.value, capacity).bit_length()
    raise AssertionError("not reached")


def sized_text(name: str, *inputs: object) -> Tuple[int, str]:
    """Calls a function whose last parameters are a buffer and its size. Returns the result and the text."""

    def attempt(capacity: int, size: Any) -> Tuple[int, str]:
        buffer = ctypes.create_string_buffer(capacity)
        code = call(name, *inputs, buffer, ctypes.byref(size)).code
        return code, decode(buffer.value)

    return with_growing_buffer(attempt, 1024)


def unsized_text(name: str, *inputs: object) -> str:
    """Calls a function that copies the daemon's whole reply to a buffer. The function does not know the buffer's size, so the
    buffer is large.
    """
    buffer = ctypes.create_string_buffer(1 << 20)
    call(name, *inputs, buffer)
    return decode(buffer.value)


def sized_list(name: str, record: Type[Record], *more: object) -> Tuple[int, List[Record]]:
    """Calls a function whose first parameters are an array and its length. Returns the result and the elements that it filled.
    """

    def attempt(capacity: int, count: Any) -> Tuple[int, List[Record]]:
        array = (record * capacity)()
        code = call(name, array, ctypes.byref(count), *more).code
        return code, list(array[: count.value])

    return with_growing_buffer(attempt, 64)
