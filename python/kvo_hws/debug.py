"""The library's own version, and its messages in the system log."""

from __future__ import annotations

import ctypes
from contextlib import contextmanager
from typing import Iterator

from ._library import call, call_void
from ._sized import decode


def library_version() -> str:
    """The library's version text, ``V%#.%#.#%.#%`` in every build. Sends no request. (KVO_HWS_getDLLVersion)

    This text is correct: programs compare it literally, so the "#" characters are never replaced by digits.
    """
    buffer = ctypes.create_string_buffer(64)
    call("KVO_HWS_getDLLVersion", buffer, ctypes.byref(ctypes.c_uint32(len(buffer))))
    return decode(buffer.value)


def activate_debug() -> None:
    """Switches the library's most detailed logging on. Each request that fails then logs the reason in the system log, with the
    identity ``kvo_hws_dll``. (KVO_HWS_activateDebugDLL)
    """
    call_void("KVO_HWS_activateDebugDLL")


def deactivate_debug() -> None:
    """Switches the library's logging off again. (KVO_HWS_deactivateDebugDLL)"""
    call_void("KVO_HWS_deactivateDebugDLL")


@contextmanager
def debugging() -> Iterator[None]:
    """Switches the library's logging on for the duration of a ``with`` block."""
    activate_debug()
    try:
        yield
    finally:
        deactivate_debug()
