"""Passes events and exceptions of callbacks from the library's threads to the program's threads. Also makes the interpreter
wait for the library's threads before it ends."""

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
"""Time for a thread that is no longer counted to leave the interpreter."""


class ActiveCallbacks:
    """Counts the library's threads that run Python code. The process would crash if the interpreter ended during one."""

    def __init__(self) -> None:
        self.reset()

    def __enter__(self) -> None:
        with self._changed:
            self._count += 1
            self._any_so_far = True

    def __exit__(self, *_: object) -> None:
        with self._changed:
            self._count -= 1
            self._changed.notify_all()

    def wait_until_none(self) -> None:
        """Waits without a time limit, as the interpreter does for its own threads."""
        with self._changed:
            self._changed.wait_for(lambda: self._count == 0)
        if self._any_so_far:
            time.sleep(SETTLE_SECONDS)

    def reset(self) -> None:
        """Starts at 0, also in a forked child: it has none of these threads."""
        self._changed = threading.Condition()
        self._count = 0
        self._any_so_far = False


active_callbacks = ActiveCallbacks()
# atexit runs its functions in reverse order. This one is registered before those that close the events and the agent, so that
# it runs after them.
atexit.register(active_callbacks.wait_until_none)
os.register_at_fork(after_in_child=active_callbacks.reset)


class _RaisesOnDeletion:
    """Only the interpreter can pass an exception to sys.unraisablehook. It does so when the deletion of an object raises."""

    def __init__(self, failure: BaseException) -> None:
        self._failure = failure

    def __del__(self) -> None:
        raise self._failure


def report_unraisable(failure: BaseException) -> None:
    """Passes an exception that has no caller to sys.unraisablehook."""
    _RaisesOnDeletion(failure)


class CallbackFailures:
    """Keeps an exception that a callback raised on a thread of the library, until a thread of the program raises it."""

    def __init__(self, on_change: Optional[Callable[[], None]] = None) -> None:
        self._changed = threading.Condition()
        self._failure: Optional[BaseException] = None
        self._on_change = on_change

    def _notify_observer(self) -> None:
        """Called without the lock, on the thread that made the change."""
        if self._on_change is not None:
            self._on_change()

    def record(self, failure: BaseException) -> None:
        """Keeps the exception for raise_pending. If another one is pending, passes it to sys.unraisablehook at once."""
        with self._changed:
            first = self._failure is None
            if first:
                self._failure = failure
                self._changed.notify_all()
        if first:
            self._notify_observer()
        else:
            report_unraisable(failure)

    def raise_pending(self) -> None:
        """Raises the pending exception, once."""
        with self._changed:
            failure, self._failure = self._failure, None
        if failure is not None:
            raise failure


class EventQueue(CallbackFailures, Generic[Event]):
    """A queue that can end. Any thread may put events and take them. ``on_change`` is called after an event or an exception
    was put, and after the end."""

    def __init__(self, kind: str, started: bool = True, on_change: Optional[Callable[[], None]] = None) -> None:
        super().__init__(on_change)
        self._kind = kind
        self._started = started
        self._events: Deque[Tuple[float, Event]] = deque()
        self._ended = False

    def put(self, event: Event) -> None:
        """Adds an event."""
        with self._changed:
            self._events.append((time.monotonic(), event))
            self._changed.notify_all()
        self._notify_observer()

    def end(self) -> None:
        """Marks the end: no event follows. Events that are in the queue can still be taken."""
        with self._changed:
            self._ended = True
            self._changed.notify_all()
        self._notify_observer()

    def get(self, timeout: Optional[float], until: Optional[float] = None) -> Event:
        """Takes the next event. Waits at most ``timeout`` seconds, or forever if ``timeout`` is None. With ``until``, takes
        only an event that was put before that time.
        """
        if not self._started:
            raise RuntimeError(f"the {self._kind} are not started; use a with block, or call start")
        with self._changed:
            self._changed.wait_for(lambda: bool(self._events) or self._ended or self._failure is not None, timeout)
            self.raise_pending()
            if self._events and (until is None or self._events[0][0] <= until):
                return self._events.popleft()[1]
            if self._ended and not self._events:
                raise EventsEnded(f"the {self._kind} have ended")
            raise EventTimeout(f"no {self._kind} within {timeout} s")


class EventSource(Generic[Event]):
    """The base of UsbEvents and EmbeddedEvents. Events can be taken one by one, or by iterating until they end."""

    _queue: EventQueue[Event]
    _observer: Optional[Callable[[], None]] = None
    """Called after each change, on the thread that made it."""

    def get(self, timeout: Optional[float] = None) -> Event:
        """Waits for the next event and returns it. Waits at most ``timeout`` seconds, or forever if ``timeout`` is None.

        Raises EventTimeout if no event arrives in time; EventsEnded if the events have ended and all have been taken;
        RuntimeError if the events were never started; and the exception of a callback.
        """
        return self._queue.get(timeout)

    def __iter__(self) -> Iterator[Event]:
        """All events until they end. Waits for each one without a time limit."""
        while True:
            try:
                event = self.get()
            except EventsEnded:
                return
            yield event

    def _notify(self) -> None:
        if self._observer is not None:
            self._observer()

    def within(self, seconds: float) -> Iterator[Event]:
        """The events that are already in the queue, and those of the next ``seconds``. Later events stay in the queue."""
        until = time.monotonic() + seconds
        while True:
            try:
                event = self._queue.get(max(0.0, until - time.monotonic()), until)
            except (EventTimeout, EventsEnded):
                return
            yield event


def close_preserving(close: Callable[[], None], active: Optional[BaseException]) -> None:
    """Calls ``close`` at the end of a ``with`` block. If it raises while another exception is active, the other exception stays
    active, and the new one goes to sys.unraisablehook.
    """
    try:
        close()
    except BaseException as failure:
        if active is None:
            raise
        report_unraisable(failure)
