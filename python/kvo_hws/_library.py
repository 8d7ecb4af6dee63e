"""Finds the shared library, and calls its functions by the table of prototypes: arguments are checked and converted, outputs
are made and read, and failures become exceptions, for all functions in this one place."""

from __future__ import annotations

import ctypes
import itertools
import os
import threading
from pathlib import Path
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Tuple, TypeVar

from ._events import visits
from ._prototypes import PROTOTYPES, Output, Prototype
from ._structures import ThreadBody
from .errors import LibraryNotFound

SONAME = "libkvo_hws.so.0"
LIBRARY_VARIABLE = "KVO_HWS_LIBRARY"

Result = TypeVar("Result")

_loaded: Optional[ctypes.CDLL] = None
_functions: Dict[str, Callable[..., int]] = {}
_loading = threading.Lock()


def _beside() -> Optional[str]:
    """The library that was installed with this module: PREFIX/lib, of PREFIX/lib/python3/dist-packages/kvo_hws.

    As for programs that were installed so, LD_LIBRARY_PATH goes first.
    """
    packages = Path(__file__).resolve().parents[1]
    file = packages.parents[1] / SONAME
    preferred = (Path(folder) / SONAME for folder in os.environ.get("LD_LIBRARY_PATH", "").split(":") if folder)
    if packages.name != "dist-packages" or not file.exists() or any(one.exists() for one in preferred):
        return None
    return str(file)


def _load() -> ctypes.CDLL:
    chosen = os.environ.get(LIBRARY_VARIABLE)
    try:
        return ctypes.CDLL(chosen or _beside() or SONAME)
    except OSError as error:
        if chosen:
            text = f"{LIBRARY_VARIABLE} names {chosen}, which can not be loaded: {error}"
        else:
            text = (
                f"{SONAME} can not be loaded ({error}); install the library, "
                f"or set {LIBRARY_VARIABLE} to its file, such as build/release/lib/{SONAME}"
            )
        raise LibraryNotFound(text) from error


def library() -> ctypes.CDLL:
    """The shared library; loaded at the first use, so that this package can be imported without it.

    Raises LibraryNotFound.
    """
    global _loaded
    with _loading:
        if _loaded is None:
            _loaded = _load()
        return _loaded


def _declare(name: str, prototype: Prototype) -> Callable[..., int]:
    shared = library()
    try:
        function: Any = shared[name]
    except AttributeError as error:
        raise LibraryNotFound(f"{shared._name} has no {name}: it is older than this module, or another library") from error
    function.restype = prototype.result
    function.argtypes = [parameter.type for parameter in prototype.parameters]
    declared: Callable[..., int] = function
    return declared


def _function(name: str) -> Callable[..., int]:
    declared = _functions.get(name)
    if declared is None:
        declared = _functions[name] = _declare(name, PROTOTYPES[name])
    return declared


class Answer(NamedTuple):
    """What a function returned, 0 or more, and the values of its outputs in their order."""

    code: int
    values: Tuple[Optional[int], ...]


def call(name: str, *inputs: object) -> Answer:
    """Calls a function with its inputs alone: outputs are made here, at the places that its prototype has for them.

    An output that the function leaves as it was is None. Raises the function's errors (KvoError), and ValueError or TypeError
    for an input that C could not take; then nothing was called.
    """
    prototype = PROTOTYPES[name]
    given = list(inputs)
    outputs: List[Tuple[Output, Any]] = []
    arguments: List[object] = []
    for parameter in prototype.parameters:
        if isinstance(parameter, Output):
            store = parameter.make()
            outputs.append((parameter, store))
            arguments.append(ctypes.byref(store))
        else:
            arguments.append(parameter.convert(given.pop(0)))
    if given:
        raise TypeError(f"{name} takes {len(inputs) - len(given)} inputs, not {len(inputs)}")
    code = _function(name)(*arguments)
    if code < 0:
        raise prototype.error(name, code)
    return Answer(code, tuple(output.read(store) for output, store in outputs))


def done(name: str, *inputs: object) -> None:
    """Calls a function that has nothing to tell but that it was done."""
    code = call(name, *inputs).code
    if code != 1:
        raise PROTOTYPES[name].error(name, code)


def yes(name: str, *inputs: object) -> bool:
    """Calls a function that says 1 for yes or done, and 0 for no or nothing done."""
    return call(name, *inputs).code == 1


def number_if_any(name: str, *inputs: object) -> Optional[int]:
    """Calls a function with one output; None where it says 0, which is that there is no such value."""
    answer = call(name, *inputs)
    return answer.values[0] if answer.code == 1 else None


def number(name: str, *inputs: object) -> int:
    """Calls a function with one output that is always there."""
    value = number_if_any(name, *inputs)
    if value is None:
        raise PROTOTYPES[name].error(name, 0)
    return value


_jobs: Dict[int, Callable[[], None]] = {}
_job_numbers = itertools.count(1)


def _carry_out(number: Optional[int]) -> None:
    with visits:
        _jobs.pop(number or 0)()


# Kept for the life of the process: a thread still returns through it when its job has been done.
_thread_body = ThreadBody(_carry_out)


def on_own_thread(body: Callable[[], Result]) -> Result:
    """Runs something on a thread of the library, and waits for its result.

    For the functions that detach their calling thread: the interpreter joins or detaches its own threads, which would be an
    error afterwards; and it starts none any more while it is ending.
    """
    results: List[Result] = []
    failures: List[BaseException] = []
    finished = threading.Event()

    def run() -> None:
        try:
            call("kvo_hws_detach_thread")
            results.append(body())
        except BaseException as failure:  # handed to the caller below, whatever it is
            failures.append(failure)
        finally:
            finished.set()

    number = next(_job_numbers)
    _jobs[number] = run
    try:
        call("kvo_hws_CreateThread", _thread_body, number)
    except BaseException:
        del _jobs[number]
        raise
    try:
        finished.wait()
    except BaseException:
        finished.wait()  # Ctrl-C is seen when it has returned: what follows must not overtake it
        raise
    if failures:
        raise failures[0]
    return results[0]
