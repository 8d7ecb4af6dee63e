"""What a library's thread brings and a program's thread takes: the events of a kind, their end, and what a callback raised; and
the end of the interpreter, which waits for such threads."""

from __future__ import annotations

import atexit
import os
import threading
import time
from collections import deque
from typing import Callable, Deque, Generic, Iterator, Optional, Tuple, TypeVar

from .errors import EventsEnded, EventTimeout

Event = TypeVar("Event")

SETTLE_SECONDS = 0.01
"""For a thread that has counted itself out to leave the interpreter."""


class Visits:
    """The library's threads that are in the interpreter. One that is met there by its end would take the whole process down."""

    def __init__(self) -> None:
        self.forget()

    def __enter__(self) -> None:
        with self._changed:
            self._count += 1
            self._ever = True

    def __exit__(self, *_: object) -> None:
        with self._changed:
            self._count -= 1
            self._changed.notify_all()

    def wait_for_their_end(self) -> None:
        """However long it takes, as the interpreter waits for threads of its own."""
        with self._changed:
            self._changed.wait_for(lambda: self._count == 0)
        if self._ever:
            time.sleep(SETTLE_SECONDS)

    def forget(self) -> None:
        """A child that was forked has none of these threads."""
        self._changed = threading.Condition()
        self._count = 0
        self._ever = False


visits = Visits()
# Registered ahead of those that end the events and the agent, and so carried out after them.
atexit.register(visits.wait_for_their_end)
os.register_at_fork(after_in_child=visits.forget)


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

    def __init__(self, kind: str, begun: bool = True) -> None:
        super().__init__()
        self._kind = kind
        self._begun = begun
        self._events: Deque[Tuple[float, Event]] = deque()
        self._ended = False

    def put(self, event: Event) -> None:
        """Adds an event."""
        with self._changed:
            self._events.append((time.monotonic(), event))
            self._changed.notify_all()

    def end(self) -> None:
        """No event comes any more; those that are there can still be taken."""
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def get(self, timeout: Optional[float], until: Optional[float] = None) -> Event:
        """Takes the next event, of those that came before ``until`` where that is given; waits for ``timeout`` seconds at most,
        for ever where it is None.
        """
        if not self._begun:
            raise RuntimeError(f"{self._kind} come once they are started: by a with block, or by start")
        with self._changed:
            self._changed.wait_for(lambda: bool(self._events) or self._ended or self._failure is not None, timeout)
            self.raise_failure()
            if self._events and (until is None or self._events[0][0] <= until):
                return self._events.popleft()[1]
            if self._ended and not self._events:
                raise EventsEnded(f"there are no more {self._kind}")
            raise EventTimeout(f"no {self._kind} within {timeout} s")


class EventSource(Generic[Event]):
    """Events that can be taken one by one, or iterated over to their end; the base of UsbEvents and EmbeddedEvents."""

    _inbox: Inbox[Event]

    def get(self, timeout: Optional[float] = None) -> Event:
        """Waits for the next event, ``timeout`` seconds at most, for ever where it is None.

        Raises EventTimeout, EventsEnded once the events have ended and all have been taken, and what the callback has raised;
        RuntimeError where they were never started.
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
        """The events of the next so many seconds, and those that wait already; what comes later is left for others to take."""
        until = time.monotonic() + seconds
        while True:
            try:
                event = self._inbox.get(max(0.0, until - time.monotonic()), until)
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
