"""What a library's thread brings and a program's thread takes: the events of a kind, their end, and what a callback raised."""

from __future__ import annotations

import threading
import time
from collections import deque
from typing import Callable, Deque, Generic, Iterator, Optional, TypeVar

from .errors import EventsEnded, EventTimeout

Event = TypeVar("Event")


class _Report:
    """Whose end raises: the interpreter hands that to sys.unraisablehook, which takes it from nobody else."""

    def __init__(self, failure: BaseException) -> None:
        self._failure = failure

    def __del__(self) -> None:
        raise self._failure


def report(failure: BaseException) -> None:
    """Tells sys.unraisablehook of an exception that can be raised to nobody."""
    _Report(failure)


class Failures:
    """What callbacks raise on the library's threads, kept for the program's own."""

    def __init__(self) -> None:
        self._changed = threading.Condition()
        self._failure: Optional[BaseException] = None

    def fail(self, failure: BaseException) -> None:
        """Keeps what a callback raised for whoever asks next; a second one, before that, is reported at once."""
        with self._changed:
            first = self._failure is None
            if first:
                self._failure = failure
                self._changed.notify_all()
        if not first:
            report(failure)

    def raise_failure(self) -> None:
        """Raises what a callback raised, once."""
        with self._changed:
            failure, self._failure = self._failure, None
        if failure is not None:
            raise failure


class Inbox(Failures, Generic[Event]):
    """A queue with an end. Any thread puts, any thread takes."""

    def __init__(self, kind: str) -> None:
        super().__init__()
        self._kind = kind
        self._events: Deque[Event] = deque()
        self._ended = False

    def put(self, event: Event) -> None:
        """Adds an event."""
        with self._changed:
            self._events.append(event)
            self._changed.notify_all()

    def end(self) -> None:
        """No event comes any more; those that are there can still be taken."""
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def get(self, timeout: Optional[float]) -> Event:
        """Takes the next event; waits for ``timeout`` seconds at most, for ever where it is None."""
        with self._changed:
            there = self._changed.wait_for(
                lambda: bool(self._events) or self._ended or self._failure is not None, timeout
            )
            if there and self._failure is None:
                if self._events:
                    return self._events.popleft()
                raise EventsEnded(f"there are no more {self._kind}")
        self.raise_failure()
        raise EventTimeout(f"no {self._kind} within {timeout} s")


class EventSource(Generic[Event]):
    """Events that can be taken one by one, or iterated over to their end; the base of UsbEvents and EmbeddedEvents."""

    _inbox: Inbox[Event]

    def get(self, timeout: Optional[float] = None) -> Event:
        """Waits for the next event, ``timeout`` seconds at most, for ever where it is None.

        Raises EventTimeout, EventsEnded once the events have ended and all have been taken, and what the callback has raised.
        """
        return self._inbox.get(timeout)

    def __iter__(self) -> Iterator[Event]:
        """All events up to their end, waiting for each as long as it takes."""
        while True:
            try:
                event = self.get()
            except EventsEnded:
                return
            yield event

    def within(self, seconds: float) -> Iterator[Event]:
        """The events of the next so many seconds."""
        until = time.monotonic() + seconds
        while True:
            try:
                event = self.get(max(0.0, until - time.monotonic()))
            except (EventTimeout, EventsEnded):
                return
            yield event


def close_or_report(close: Callable[[], None], another: Optional[BaseException]) -> None:
    """The end of a ``with`` block: what closing raises is raised, unless something else is on its way."""
    try:
        close()
    except BaseException as failure:
        if another is None:
            raise
        report(failure)
