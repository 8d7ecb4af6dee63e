"""The events that the local service publishes for embedded stations: a name and its data."""

from __future__ import annotations

import atexit
import os
import threading
from dataclasses import dataclass
from typing import Callable, Optional, Type

from . import _structures as c
from ._events import EventQueue, EventSource, active_callbacks, close_preserving, report_unraisable
from ._library import call
from ._sized import decode
from .errors import KvoError


@dataclass(frozen=True)
class EmbeddedEvent:
    """An event: a name of at most 19 bytes, and data."""

    name: str
    data: str


OnEmbeddedEvent = Callable[[EmbeddedEvent], object]
"""A callback. Its result is ignored."""


class EmbeddedEvents(EventSource[EmbeddedEvent]):
    """The events of embedded stations, in a ``with`` block::

        with EmbeddedEvents() as events:
            event = events.get(timeout=5)

    Without ``on_event``, events wait in a queue until get, iteration or within takes them. With ``on_event``, the library
    passes them to that function, one at a time, on a thread of the library. The function may close the events. If it raises an
    exception, the next get, iteration or close raises it again. A second exception before that goes to sys.unraisablehook.

    The library tries to connect once a second until a service is running, and again after the connection was lost. start does
    not wait for the connection. Events that are published before the connection exists are missed; tests can call
    Simulator.wait_for_listeners first. Only one object of a process listens at a time. **start replaces the process's handler
    of SIGUSR1** with one that does nothing.
    """

    def __init__(self, on_event: Optional[OnEmbeddedEvent] = None) -> None:
        self._on_event = on_event
        self._queue = EventQueue[EmbeddedEvent]("events of embedded stations", started=False)

    def start(self) -> None:
        """Starts to listen. (KVO_HWS_activateEmbKvoEvents)

        Raises AlreadyRunning if this process is already listening. Also raises it if an earlier listener is still running,
        because a listener that waits for a service ends only when one starts. Raises NoThread.
        """
        global _current
        with _change:
            previous = _current
            if previous is None:
                self._queue = EventQueue[EmbeddedEvent]("events of embedded stations", on_change=self._notify)
                _current = self
            try:
                call("KVO_HWS_activateEmbKvoEvents", _callback)
            except BaseException:
                _current = previous
                raise

    def close(self) -> None:
        """Stops listening, and waits at most one second for the end of the listener. (KVO_HWS_deactivateEmbKvoEvents)

        Events that arrived before can still be taken. Does nothing if this object is not listening. Raises the exception of
        ``on_event``, and Timeout if the listener is still running. Without a service, the listener ends only when a service
        starts; it cannot be started again before that.
        """
        self._close()
        self._queue.raise_pending()

    def _close(self) -> None:
        global _current
        with _change:
            listening = _current is self
            if listening:
                _current = None
        try:
            if listening:
                call("KVO_HWS_deactivateEmbKvoEvents")
        finally:
            self._queue.end()

    def __enter__(self) -> EmbeddedEvents:
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], active: Optional[BaseException], trace: object) -> None:
        close_preserving(self.close, active)

    def _handle_event(self, event: EmbeddedEvent) -> None:
        if self._on_event is None:
            self._queue.put(event)
            return
        try:
            self._on_event(event)
        except BaseException as failure:
            self._queue.record(failure)


_current: Optional[EmbeddedEvents] = None
_change = threading.RLock()


def _receive(name: Optional[bytes], data: Optional[bytes]) -> None:
    """The library's callback. It may still be called after a close; then no object receives the event."""
    with active_callbacks:
        try:
            receiver = _current
            if receiver is not None:
                receiver._handle_event(EmbeddedEvent(decode(name or b""), decode(data or b"")))
        except BaseException as failure:  # must not enter the C code
            report_unraisable(failure)


# Lives as long as the process: the library may call it shortly after a close.
_callback = c.EmbeddedEventCallback(_receive)


@atexit.register
def _close_at_exit() -> None:
    """A thread of the library must not enter an interpreter that is ending."""
    events = _current
    if events is not None:
        try:
            events.close()
        except KvoError:
            pass  # no service is running; the listener waits for one, and ends with the process


def _reset_in_child() -> None:
    """A forked child has neither the library's threads nor the listener that its parent started."""
    global _current, _change
    _current = None
    _change = threading.RLock()


os.register_at_fork(after_in_child=_reset_in_child)
