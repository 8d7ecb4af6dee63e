"""Finds and loads the shared library, and calls its functions as the table of prototypes describes them: checks and converts
arguments, creates and reads outputs, and turns failures into exceptions."""

from __future__ import annotations

import ctypes
import itertools
import os
import threading
from pathlib import Path
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Tuple, TypeVar

from ._events import active_callbacks
from ._prototypes import PROTOTYPES, Output, Prototype
from ._structures import ThreadBody
from .errors import LibraryNotFound

SONAME = "libkvo_hws.so.0"
LIBRARY_VARIABLE = "KVO_HWS_LIBRARY"

Result = TypeVar("Result")

_loaded: Optional[ctypes.CDLL] = None
_functions: Dict[str, Callable[..., int]] = {}
_loading = threading.Lock()


def _installed_with_module() -> Optional[str]:
    """PREFIX/lib/libkvo_hws.so.0, if this module is PREFIX/lib/python3/dist-packages/kvo_hws. None if a folder of
    LD_LIBRARY_PATH contains the library, because programs that were installed into the same prefix use that one, too.
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
        return ctypes.CDLL(chosen or _installed_with_module() or SONAME)
    except OSError as error:
        if chosen:
            text = f"{LIBRARY_VARIABLE} names {chosen}, which cannot be loaded: {error}"
        else:
            text = (
                f"{SONAME} cannot be loaded ({error}); install the library, "
                f"or set {LIBRARY_VARIABLE} to its file, such as build/release/lib/{SONAME}"
            )
        raise LibraryNotFound(text) from error


def library() -> ctypes.CDLL:
    """The shared library. It is loaded at the first use, so this package can be imported without it.

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


class CallResult(NamedTuple):
    """The result of a function, 0 or more, and the values of its outputs in order."""

    code: int
    values: Tuple[Optional[int], ...]


def call(name: str, *inputs: object) -> CallResult:
    """Calls a function of the library. The caller passes only the inputs; the outputs are created here, in the positions of the
    prototype.

    An output that the function did not write is None. Raises the function's errors (KvoError). For an input that C cannot take,
    raises ValueError or TypeError, and does not call the function.
    """
    prototype = PROTOTYPES[name]
    remaining = list(inputs)
    outputs: List[Tuple[Output, Any]] = []
    arguments: List[object] = []
    for parameter in prototype.parameters:
        if isinstance(parameter, Output):
            variable = parameter.create()
            outputs.append((parameter, variable))
            arguments.append(ctypes.byref(variable))
        else:
            arguments.append(parameter.convert(remaining.pop(0)))
    if remaining:
        raise TypeError(f"{name} takes {len(inputs) - len(remaining)} inputs, not {len(inputs)}")
    code = _function(name)(*arguments)
    if code < 0:
        raise prototype.error(name, code)
    return CallResult(code, tuple(output.read(variable) for output, variable in outputs))


def call_void(name: str, *inputs: object) -> None:
    """Calls a function that returns 1 for success and has no other result; any other number is an error."""
    code = call(name, *inputs).code
    if code != 1:
        raise PROTOTYPES[name].error(name, code)


def call_bool(name: str, *inputs: object) -> bool:
    """Calls a function that returns 1 for yes or done, and 0 for no or nothing done."""
    return call(name, *inputs).code == 1


def call_optional_number(name: str, *inputs: object) -> Optional[int]:
    """Calls a function with one output. Returns None if the function returns 0, which means that no such value exists."""
    result = call(name, *inputs)
    return result.values[0] if result.code == 1 else None


def call_number(name: str, *inputs: object) -> int:
    """Calls a function with one output that it always writes."""
    value = call_optional_number(name, *inputs)
    if value is None:
        raise PROTOTYPES[name].error(name, 0)
    return value


_jobs: Dict[int, Callable[[], None]] = {}
_job_numbers = itertools.count(1)


def _run_job(number: Optional[int]) -> None:
    with active_callbacks:
        _jobs.pop(number or 0)()


# Lives as long as the process: a thread returns through it after its job is done.
_thread_body = ThreadBody(_run_job)


def run_on_library_thread(body: Callable[[], Result]) -> Result:
    """Runs ``body`` on a thread of the library, and waits for its result.

    Some functions detach the thread that calls them. A thread of the interpreter must not call these functions, because the
    interpreter itself joins or detaches its threads. A thread of the library also works while the interpreter ends; the
    interpreter does not start threads then.
    """
    results: List[Result] = []
    failures: List[BaseException] = []
    finished = threading.Event()

    def run() -> None:
        try:
            call("kvo_hws_detach_thread")
            results.append(body())
        except BaseException as failure:  # raised below, on the caller's thread
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
        finished.wait()  # Ctrl-C takes effect when the job is done, so that the caller's next step comes after the job
        raise
    if failures:
        raise failures[0]
    return results[0]
