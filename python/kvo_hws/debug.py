"""The library itself: its version, and its messages in the system log."""

from __future__ import annotations

import ctypes
from contextlib import contextmanager
from typing import Iterator

from ._library import call, done
from ._sized import decode


def library_version() -> str:
    """The library's version text, ``V%#.%#.#%.#%`` in every build. Asks nobody. (KVO_HWS_getDLLVersion)

    Programs compare the text as it stands; it is no mistake, and not to be filled in.
    """
    buffer = ctypes.create_string_buffer(64)
    call("KVO_HWS_getDLLVersion", buffer, ctypes.byref(ctypes.c_uint32(len(buffer))))
    return decode(buffer.value)


def activate_debug() -> None:
    """Switches the library's most talkative logging on: each request that fails says why in the system log, under the identity
    ``kvo_hws_dll``. (KVO_HWS_activateDebugDLL)
    """
    done("KVO_HWS_activateDebugDLL")


def deactivate_debug() -> None:
    """Switches the library's logging off again. (KVO_HWS_deactivateDebugDLL)"""
    done("KVO_HWS_deactivateDebugDLL")


@contextmanager
def debugging() -> Iterator[None]:
    """Switches the library's logging on for a ``with`` block."""
    activate_debug()
    try:
        yield
    finally:
        deactivate_debug()
