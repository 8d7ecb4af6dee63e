"""Texts and lists whose size nobody knows beforehand: the caller's room is made larger until what the service tells fits."""

from __future__ import annotations

import ctypes
from ctypes import c_uint32
from typing import Any, Callable, List, Tuple, Type, TypeVar

from ._library import call
from .errors import TooSmall

Record = TypeVar("Record", bound=ctypes.Structure)
Result = TypeVar("Result")

ATTEMPTS = 8
"""The plant may grow between two calls, but not for ever."""
MOST = 1_000_000
"""Elements, or bytes: a service that says that it needs more is not believed."""


def decode(data: bytes) -> str:
    """Texts are UTF-8; bytes that are not come as surrogates, and go back as they were."""
    return data.decode("utf-8", "surrogateescape")


def fitted(body: Callable[[int, Any], Result], room: int) -> Result:
    """Calls ``body`` with a room and its size as a C number, until no TooSmall comes any more; the size then tells the need."""
    for attempt in range(ATTEMPTS):
        size = c_uint32(room)
        try:
            return body(room, size)
        except TooSmall:
            if size.value > MOST or attempt == ATTEMPTS - 1:
                raise
            # Powers of two, as each length of a C array is a type of its own that the interpreter keeps.
            room = 1 << max(size.value, room).bit_length()
    raise AssertionError("not reached")


def sized_text(name: str, *inputs: object) -> Tuple[int, str]:
    """Calls a function that ends with a buffer and its size; tells its result and the text."""

    def ask(room: int, size: Any) -> Tuple[int, str]:
        buffer = ctypes.create_string_buffer(room)
        code = call(name, *inputs, buffer, ctypes.byref(size)).code
        return code, decode(buffer.value)

    return fitted(ask, 1024)


def free_text(name: str, *inputs: object) -> str:
    """Calls a function that copies the daemon's whole reply, however long it is, to a buffer whose size it does not know."""
    buffer = ctypes.create_string_buffer(1 << 20)
    call(name, *inputs, buffer)
    return decode(buffer.value)


def sized_list(name: str, record: Type[Record], *more: object) -> Tuple[int, List[Record]]:
    """Calls a function that begins with an array and its count; tells its result and the elements that were filled."""

    def ask(room: int, count: Any) -> Tuple[int, List[Record]]:
        array = (record * room)()
        code = call(name, array, ctypes.byref(count), *more).code
        return code, list(array[: count.value])

    return fitted(ask, 64)
