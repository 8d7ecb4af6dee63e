"""The events that the local service publishes for embedded stations: a name and its data."""

from __future__ import annotations

import atexit
import os
import threading
from dataclasses import dataclass
from typing import Callable, Optional, Type

from . import _structures as c
from ._events import EventSource, Inbox, close_or_report, report, visits
from ._library import call
from ._sized import decode
from .errors import KvoError


@dataclass(frozen=True)
class EmbeddedEvent:
    """An event: a name of at most 19 bytes, and data."""

    name: str
    data: str


OnEmbeddedEvent = Callable[[EmbeddedEvent], object]
"""A callback; what it returns does not count."""


class EmbeddedEvents(EventSource[EmbeddedEvent]):
    """The events of embedded stations, in a ``with`` block::

        with EmbeddedEvents() as events:
            event = events.get(timeout=5)

    Without ``on_event`` events wait here to be taken: by get, by iterating, by within. With ``on_event`` they go to it instead,
    one at a time, on a thread of the library; what it raises is raised by the next get, iteration or close, and a second
    exception before that goes to sys.unraisablehook. It may close the events.

    The library connects as soon as there is a service, and again where the connection is lost, once a second: starting does not
    wait for that, and events that are published before are not heard (Simulator.wait_for_listeners waits in tests). One object
    of a process listens at a time. **Starting replaces the process's handler of SIGUSR1** by one that does nothing.
    """

    def __init__(self, on_event: Optional[OnEmbeddedEvent] = None) -> None:
        self._on_event = on_event
        self._inbox = Inbox[EmbeddedEvent]("events of embedded stations", begun=False)

    def start(self) -> None:
        """Begins to listen. (KVO_HWS_activateEmbKvoEvents)

        Raises AlreadyRunning where this process listens already, or where an earlier listener has found no service to end at;
        NoThread.
        """
        global _current
        with _change:
            before = _current
            if before is None:
                self._inbox = Inbox[EmbeddedEvent]("events of embedded stations")
                _current = self
            try:
                call("KVO_HWS_activateEmbKvoEvents", _callback)
            except BaseException:
                _current = before
                raise

    def close(self) -> None:
        """Stops listening; waits a second at most for the listener's end. (KVO_HWS_deactivateEmbKvoEvents)

        Events that came before can still be taken. Does nothing where it does not listen. Raises what ``on_event`` has raised,
        and Timeout where the listener still runs: without a service it ends when there is one, and cannot be started again
        before.
        """
        global _current
        with _change:
            listening = _current is self
            if listening:
                _current = None
        try:
            if listening:
                call("KVO_HWS_deactivateEmbKvoEvents")
        finally:
            self._inbox.end()
        self._inbox.raise_failure()

    def __enter__(self) -> EmbeddedEvents:
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], another: Optional[BaseException], trace: object) -> None:
        close_or_report(self.close, another)

    def _happened(self, event: EmbeddedEvent) -> None:
        if self._on_event is None:
            self._inbox.put(event)
            return
        try:
            self._on_event(event)
        except BaseException as failure:
            self._inbox.fail(failure)


_current: Optional[EmbeddedEvents] = None
_change = threading.RLock()


def _receive(name: Optional[bytes], data: Optional[bytes]) -> None:
    """The library's callback; one that still comes after a close finds nobody."""
    with visits:
        try:
            receiver = _current
            if receiver is not None:
                receiver._happened(EmbeddedEvent(decode(name or b""), decode(data or b"")))
        except BaseException as failure:  # none may pass into C
            report(failure)


# Kept for the life of the process: the library may call it shortly after a close.
_callback = c.EmbeddedEventCallback(_receive)


@atexit.register
def _end_with_the_process() -> None:
    """No thread of the library may come to an interpreter that is ending."""
    events = _current
    if events is not None:
        try:
            events.close()
        except KvoError:
            pass  # there is no service; the listener waits for one, and goes with the process


def _forget() -> None:
    """A child that was forked has neither the library's threads nor what its parent has started."""
    global _current, _change
    _current = None
    _change = threading.RLock()


os.register_at_fork(after_in_child=_forget)
