"""Requests and events for programs with an asyncio event loop::

    import asyncio
    from kvo_hws import Panel, aio

    async def main() -> None:
        panel = Panel("10.0.0.5")
        async with aio.Requests() as requests, aio.UsbEvents() as events:
            print(await requests.ask(panel.get_mcp_address, timeout=1))
            async for event in events:
                print(event)

    asyncio.run(main())

No call in this module blocks the event loop. The event loop, the worker and the program's threads are never detached: what would
detach its caller runs on a thread of the library.
"""

from __future__ import annotations

import asyncio
import atexit
import functools
import inspect
import os
import sys
import threading
import time
import warnings
import weakref
from collections import deque
from typing import (
    Any,
    Awaitable,
    Callable,
    Deque,
    Generic,
    Optional,
    Set,
    Tuple,
    Type,
    TypeVar,
    Union,
    overload,
)

from . import embedded_events, usb_events
from ._events import Event, EventSource, report_unraisable
from .embedded_events import EmbeddedEvent
from .errors import EventsEnded, EventTimeout
from .usb_events import UsbEvent, UsbEventCode

__all__ = ["EmbeddedEvents", "RequestTimeout", "Requests", "RequestsClosed", "RequestsFull", "UsbEvents"]

MIN_TIMEOUT = 0.01
MAX_TIMEOUT = 60.0
ANSWER_SECONDS = 3.5
"""How long an event waits for the result of its callback. The service waits 4 s."""

Result = TypeVar("Result")
First = TypeVar("First")
Second = TypeVar("Second")
Third = TypeVar("Third")

if sys.version_info >= (3, 11):
    _TimeoutBase = TimeoutError
else:  # asyncio has a class of its own

    class _TimeoutBase(TimeoutError, asyncio.TimeoutError):
        pass


class RequestTimeout(_TimeoutBase):
    """A request did not end within its timeout. Also a TimeoutError and an asyncio.TimeoutError."""

    def __init__(self, text: str, begun: bool) -> None:
        super().__init__(text)
        self.begun = begun
        """False: the request was waiting, and is not sent. True: it has begun, and may still take effect."""


class RequestsFull(Exception):
    """As many requests as permitted are already waiting. The request is not sent."""


class RequestsClosed(Exception):
    """The requests were closed before this one began. It is not sent."""


def _post(loop: asyncio.AbstractEventLoop, callback: Callable[..., object], *arguments: object) -> bool:
    """Lets the loop call a function soon. Returns False if the loop is closed; then no one waits for the call."""
    try:
        loop.call_soon_threadsafe(callback, *arguments)
    except RuntimeError:
        return False
    return True


def _settle(future: asyncio.Future[Any], result: object, failure: Optional[BaseException] = None) -> None:
    """Ends a future, unless it was cancelled or its timeout has passed."""
    if future.done():
        return
    if failure is None:
        future.set_result(result)
    elif isinstance(failure, StopIteration):  # a future cannot keep one
        future.set_exception(RuntimeError(f"the request raised {failure!r}"))
    else:
        future.set_exception(failure)


def _outcome_of(function: Callable[[], object]) -> Tuple[object, Optional[BaseException]]:
    """The result of a function, or its exception. A function of its own, so that the exception refers to no future."""
    try:
        return function(), None
    except BaseException as failure:
        return None, failure


def _carry_out(function: Callable[[], object], future: asyncio.Future[Any]) -> None:
    """Calls a function on this thread, and lets the future's loop end the future with its result or its exception."""
    _post(future.get_loop(), _settle, future, *_outcome_of(function))


# ---- Requests ----


class _Request:
    """A request that waits for the worker."""

    def __init__(self, function: Callable[[], object], future: asyncio.Future[Any], timeout: float) -> None:
        self.function = function
        self.future = future
        self.loop = future.get_loop()
        self.deadline = time.monotonic() + timeout
        self.begun = False

    @property
    def needed(self) -> bool:
        """Whether someone still waits for the result. A deadline can pass before the loop, which may be busy, notices."""
        return not self.future.done() and time.monotonic() < self.deadline and not self.loop.is_closed()


class _Worker:
    """A thread that carries out requests one after the other. It keeps no reference to the Requests object, so that it can end
    when the program forgets that object."""

    def __init__(self, capacity: int) -> None:
        self.capacity = capacity
        self.changed = threading.Condition()
        self.waiting: Deque[_Request] = deque()
        self.busy = False
        self.closed = False
        self.thread: Optional[threading.Thread] = None

    def add(self, request: _Request) -> None:
        with self.changed:
            if self.closed:
                raise RequestsClosed("the requests are closed")
            if len(self.waiting) >= self.capacity:
                self.waiting = deque(one for one in self.waiting if one.needed)
            if len(self.waiting) >= self.capacity:
                raise RequestsFull(f"{self.capacity} requests are already waiting")
            if self.thread is None:
                thread = threading.Thread(target=self.run, name="kvo_hws.aio", daemon=True)
                thread.start()
                self.thread = thread
            self.waiting.append(request)
            self.changed.notify_all()

    def run(self) -> None:
        while True:
            request = self.next()
            if request is None:
                return
            _carry_out(request.function, request.future)
            del request  # keeps nothing of the program alive while it waits

    def next(self) -> Optional[_Request]:
        """The next request that someone still waits for. None after the end."""
        with self.changed:
            self.busy = False
            while True:
                self.changed.wait_for(lambda: bool(self.waiting) or self.closed)
                if not self.waiting:
                    return None
                request = self.waiting.popleft()
                if request.needed:
                    self.busy = request.begun = True
                    return request

    def expire(self, request: _Request, name: str, timeout: float) -> None:
        """Ends the await of a request whose timeout has passed. The lock: a request that is reported as not begun never begins.
        """
        with self.changed:
            what = "it may still take effect" if request.begun else "it was not sent"
            text = f"{name} did not end within {timeout} s; {what}"
            _settle(request.future, None, RequestTimeout(text, request.begun))

    def finish(self) -> None:
        """Lets the thread end after the requests that wait."""
        with self.changed:
            self.closed = True
            self.changed.notify_all()

    def close(self) -> None:
        """Drops the requests that wait, and lets the thread end."""
        with self.changed:
            dropped, self.waiting = self.waiting, deque()
            self.finish()
        for request in dropped:
            _post(request.loop, _drop, request.future)

    def join(self) -> None:
        thread = self.thread
        if thread is not None:
            thread.join()

    def reset_in_child(self) -> None:
        """A forked child does not have the thread, and another thread of the parent may have held the lock."""
        self.changed = threading.Condition()
        self.waiting.clear()
        self.closed = True
        self.thread = None


def _drop(future: asyncio.Future[Any]) -> None:
    _settle(future, None, RequestsClosed("the requests were closed before this one began; it was not sent"))
    if not future.cancelled():
        future.exception()  # it is not reported as lost if no one awaits it


_workers: weakref.WeakSet[_Worker] = weakref.WeakSet()


class Requests:
    """Requests for an event loop, in an ``async with`` block::

        async with aio.Requests() as requests:
            mcp = await requests.ask(panel.get_mcp_address, timeout=1)
            await requests.ask(panel.set_mcp_address, mcp + 1)

    A thread of its own, the worker, carries the requests out one after the other, in the order of the calls of ask. At most
    ``capacity`` requests wait for it.

    Leaving the block drops the requests that wait and returns at once. A request in progress continues on the worker, and its
    await ends as usual. ``await requests.aclose()`` also waits for it.

    **A timeout ends the await, not the exchange with the service.** The worker, and the lock that permits one exchange of the
    process at a time, stay held until the exchange ends: if the service is silent, after 4 s. Other requests of this object
    wait for that time, as do requests on other threads.

    Methods may be called in any event loop and on any thread that runs one. If the loop was closed, requests that wait are not
    sent, and results are dropped. When the program ends, requests that wait are not sent.
    """

    def __init__(self, capacity: int = 256) -> None:
        if capacity < 1:
            raise ValueError(f"capacity is {capacity}; it must be 1 or more")
        self._worker = _Worker(capacity)
        _workers.add(self._worker)

    @overload
    def ask(self, function: Callable[[], Result], *, timeout: float = 5.0) -> asyncio.Future[Result]: ...

    @overload
    def ask(self, function: Callable[[First], Result], first: First, /, *, timeout: float = 5.0) -> asyncio.Future[Result]: ...

    @overload
    def ask(
        self, function: Callable[[First, Second], Result], first: First, second: Second, /, *, timeout: float = 5.0
    ) -> asyncio.Future[Result]: ...

    @overload
    def ask(
        self,
        function: Callable[[First, Second, Third], Result],
        first: First,
        second: Second,
        third: Third,
        /,
        *,
        timeout: float = 5.0,
    ) -> asyncio.Future[Result]: ...

    def ask(self, function: Callable[..., Any], *arguments: Any, timeout: float = 5.0) -> asyncio.Future[Any]:
        """Lets the worker call ``function(*arguments)``. Await the returned future for the result, or the exception, of the
        function. Pass arguments by name with functools.partial.

        ``timeout`` is 0.01 to 60 seconds, counted from this call. When it has passed, the await raises RequestTimeout, even if
        the service is silent. A request whose timeout passes while it waits is not sent. Neither is one whose future, or the
        task that awaits it, was cancelled while it waited. Once a request has begun, it continues; then its result is dropped.

        Raises RequestsFull, RequestsClosed, and ValueError for another timeout.
        """
        if not MIN_TIMEOUT <= timeout <= MAX_TIMEOUT:
            raise ValueError(f"timeout is {timeout}; it must be {MIN_TIMEOUT} to {MAX_TIMEOUT:g} seconds")
        if inspect.iscoroutinefunction(function):
            raise TypeError(f"{_name_of(function)} is a coroutine function; await it without ask")
        loop = asyncio.get_running_loop()
        request = _Request(functools.partial(function, *arguments), loop.create_future(), timeout)
        self._worker.add(request)
        timer = loop.call_later(timeout, self._worker.expire, request, _name_of(function), timeout)
        request.future.add_done_callback(lambda _: timer.cancel())
        return request.future

    @property
    def waiting(self) -> int:
        """The number of requests that wait for the worker."""
        with self._worker.changed:
            return sum(one.needed for one in self._worker.waiting)

    @property
    def busy(self) -> bool:
        """Whether a request is in progress on the worker, even one whose timeout has passed."""
        return self._worker.busy

    def close(self) -> None:
        """Drops the requests that wait: their awaits raise RequestsClosed. Returns at once."""
        self._worker.close()

    async def aclose(self) -> None:
        """Does the same as close, and waits until the request in progress has ended."""
        self.close()
        await _in_thread(self._worker.join)

    async def __aenter__(self) -> Requests:
        return self

    async def __aexit__(self, *_: object) -> None:
        self.close()

    def __del__(self, warn: Callable[..., None] = warnings.warn) -> None:
        worker: Optional[_Worker] = getattr(self, "_worker", None)
        if worker is not None and worker.thread is not None and not worker.closed:
            warn(f"unclosed {self!r}", ResourceWarning, source=self)
            worker.finish()


def _name_of(function: Callable[..., Any]) -> str:
    while isinstance(function, functools.partial):
        function = function.func
    return getattr(function, "__qualname__", None) or repr(function)


def _in_thread(body: Callable[[], Result]) -> asyncio.Future[Result]:
    """Runs ``body`` on a thread of its own, which does not keep the program from ending."""
    future: asyncio.Future[Result] = asyncio.get_running_loop().create_future()
    threading.Thread(target=_carry_out, args=(body, future), name="kvo_hws.aio", daemon=True).start()
    return future


# ---- Events ----


async def _end_of(step: asyncio.Future[Any]) -> None:
    """Waits for the end of a step that must not be left half done. If the task is cancelled, waits nevertheless, and raises
    the CancelledError after the step."""
    cancelled: Optional[asyncio.CancelledError] = None
    while not step.done():
        try:
            await asyncio.wait({step})
        except asyncio.CancelledError as error:
            cancelled = error
    if cancelled is not None:
        raise cancelled


class _Answer:
    """What the service gets as the reply to one event. A thread of the library waits for it."""

    def __init__(self, event: object) -> None:
        self._event = event
        self._changed = threading.Condition()
        self._result: Optional[bool] = None

    def give(self, result: bool) -> None:
        """Sets the reply, unless it is too late."""
        with self._changed:
            if self._result is None:
                self._result = result
                self._changed.notify_all()

    def wait(self) -> bool:
        """Waits for the reply. If it does not come in time, it is False, and the event is marked as late."""
        with self._changed:
            if not self._changed.wait_for(lambda: self._result is not None, ANSWER_SECONDS):
                self._result = False
                object.__setattr__(self._event, "late", True)
            return self._result is True


_sources: weakref.WeakSet[_Events[Any]] = weakref.WeakSet()


class _Events(Generic[Event]):
    """The base of UsbEvents and EmbeddedEvents. Their events come from ``source``, an object without an event loop."""

    def __init__(self, source: EventSource[Event]) -> None:
        self._source = source
        source._observer = self._wake_soon
        self._loop: Optional[asyncio.AbstractEventLoop] = None
        self._waiters: Set[asyncio.Future[None]] = set()
        self._queued: Set[_Answer] = set()
        """The answers to events whose callback has not begun."""
        self._handlers: Set[asyncio.Future[Any]] = set()
        self._closing: Optional[asyncio.Future[None]] = None
        self._step = threading.Lock()
        """Starting and closing the source are done one after the other, on threads of their own."""
        _sources.add(self)

    async def get(self, timeout: Optional[float] = None) -> Event:
        """Waits for the next event and returns it. Waits at most ``timeout`` seconds, or forever if ``timeout`` is None.

        Raises EventTimeout if no event arrives in time; EventsEnded if the events have ended and all have been taken;
        RuntimeError if the events were never started; and the exception of the callback.
        """
        until = None if timeout is None else asyncio.get_running_loop().time() + timeout
        while True:
            try:
                return self._source.get(0)
            except EventTimeout:
                if not await self._change(until):
                    raise EventTimeout(f"no event within {timeout} s") from None

    def __aiter__(self) -> _Events[Event]:
        """All events until they end."""
        return self

    async def __anext__(self) -> Event:
        try:
            return await self.get()
        except EventsEnded:
            raise StopAsyncIteration from None

    async def _change(self, until: Optional[float]) -> bool:
        """Waits for the next change of the source. Returns False if the time of the loop's clock has come first."""
        loop = asyncio.get_running_loop()
        if loop is not self._loop:
            raise RuntimeError("the events were started in another event loop")
        if until is not None and loop.time() >= until:
            return False
        waiter = loop.create_future()
        timer = None if until is None else loop.call_at(until, _settle, waiter, None)
        self._waiters.add(waiter)
        try:
            await waiter
        finally:
            self._waiters.discard(waiter)
            if timer is not None:
                timer.cancel()
        return True

    def _wake(self) -> None:
        for waiter in self._waiters:
            _settle(waiter, None)

    # ---- Start and end ----

    async def _begin(self, begin: Callable[[], None]) -> None:
        """Starts the source with ``begin``. If the task is cancelled meanwhile, closes the source."""
        self._loop = asyncio.get_running_loop()
        self._closing = None
        self._queued.clear()  # what a loop that was closed has left
        step = _in_thread(functools.partial(self._in_turn, begin))
        try:
            await _end_of(step)
        except asyncio.CancelledError as cancelled:
            if step.exception() is None:
                await self._close_after(cancelled)
            raise
        step.result()

    def _in_turn(self, step: Callable[[], None]) -> None:
        with self._step:
            step()

    def _close_source(self) -> None:
        raise NotImplementedError

    def close(self) -> None:
        """Begins to end the events, and returns at once. Callbacks that have not begun do not begin; the service gets "failed"
        for their events. Only for the thread of the event loop."""
        closing = self._closing
        if closing is None or closing.done() or closing.get_loop() is not asyncio.get_running_loop():
            self._closing = _in_thread(functools.partial(self._in_turn, self._close_source))
        for answer in tuple(self._queued):  # the loop may have other work for a while
            answer.give(False)

    async def aclose(self) -> None:
        """Ends the events, and waits for the end and for callbacks that are still running. Takes about a second.

        If the task is cancelled meanwhile, the events nevertheless end. Events that arrived before can still be taken. Does
        nothing if the events have already ended. Raises the exception of the callback. A callback that calls aclose waits for
        nothing.
        """
        self.close()
        closing = self._closing
        if closing is None or asyncio.current_task() in self._handlers:
            return
        await _end_of(closing)
        loop = asyncio.get_running_loop()
        running = {one for one in self._handlers if one.get_loop() is loop}  # none of a loop that was closed
        if running:
            await asyncio.wait(running)
        closing.result()
        self._source._queue.raise_pending()

    async def _close_after(self, active: Optional[BaseException]) -> None:
        """Does the same as aclose. If it fails while another exception is active, the other exception stays active."""
        try:
            await self.aclose()
        except asyncio.CancelledError:
            raise
        except BaseException as failure:
            if active is None:
                raise
            report_unraisable(failure)

    async def __aexit__(self, kind: Optional[Type[BaseException]], active: Optional[BaseException], trace: object) -> None:
        await self._close_after(active)

    def _reset_in_child(self) -> None:
        """A thread of the parent that a forked child does not have may have held a lock, or may have been closing."""
        self._step = threading.Lock()
        self._queued = set()
        self._closing = None

    # ---- Callbacks ----

    def _call(self, on_event: Callable[[Event], object], event: Event, answer: _Answer) -> None:
        """Calls the callback, in the event loop."""
        self._queued.discard(answer)
        if self._closing is not None:
            answer.give(False)
            return
        try:
            result = on_event(event)
        except (SystemExit, KeyboardInterrupt):
            answer.give(False)
            raise
        except BaseException as failure:
            self._source._queue.record(failure)
            answer.give(False)
            return
        if inspect.isawaitable(result):
            handler = asyncio.ensure_future(result)
            self._handlers.add(handler)
            handler.add_done_callback(functools.partial(self._called, answer))
        else:
            answer.give(result is not False)

    def _called(self, answer: _Answer, handler: asyncio.Future[Any]) -> None:
        """A callback that is a coroutine has ended."""
        self._handlers.discard(handler)
        failure = None if handler.cancelled() else handler.exception()
        if failure is not None:
            self._source._queue.record(failure)
        answer.give(not handler.cancelled() and failure is None and handler.result() is not False)

    # ---- On the library's threads ----

    def _wake_soon(self) -> None:
        loop = self._loop
        if loop is not None:
            _post(loop, self._wake)

    def _hand_over(self, on_event: Callable[[Event], object], event: Event) -> Optional[_Answer]:
        """Lets the loop call the callback. Returns None if the loop or the events are closed."""
        answer = _Answer(event)
        self._queued.add(answer)  # before the check: close answers what is queued
        loop = self._loop
        if self._closing is None and loop is not None and _post(loop, self._call, on_event, event, answer):
            return answer
        self._queued.discard(answer)
        return None


OnUsbEvent = Callable[[UsbEvent], Union[Optional[bool], Awaitable[Optional[bool]]]]
"""A callback: a function or a coroutine function. False or an exception means that it failed; any other result, including None,
means success."""
OnEmbeddedEvent = Callable[[EmbeddedEvent], object]
"""A callback: a function or a coroutine function. Its result is ignored."""


class UsbEvents(_Events[UsbEvent]):
    """The USB events of all stations, in an ``async with`` block::

        async with aio.UsbEvents() as events:
            event = await events.get(timeout=5)
            async for event in events: ...

    Without ``on_event``, each event is reported to the service as done when it arrives, and waits until get or the loop takes
    it. With ``on_event``, the event loop calls that function for each event. If it is a coroutine function, it runs as a task;
    several may run at once. Its result is reported to the service. get and the loop then only wait for the end.

    The result counts if it is there 3.5 s after the event arrived, because the service waits only 4 s. Otherwise the service
    gets "failed", and ``event.late`` becomes True. Nothing is lost: a callback that has not begun by then is called later, with
    the late event; a callback that is running continues.

    An exception of the callback means that it has failed; the next get, loop or aclose raises it again, at the latest the end
    of the block. A second exception before that goes to sys.unraisablehook.

    If the event loop is closed, the service gets "failed" at once. If the loop is stopped, a callback's event waits for 3.5 s.
    All else is as for kvo_hws.UsbEvents. Of both classes together, one object of a process receives events at a time.
    """

    def __init__(self, on_event: Optional[OnUsbEvent] = None) -> None:
        self._on_event = on_event
        self._usb = usb_events.UsbEvents(None if on_event is None else self._answer)
        super().__init__(self._usb)

    @property
    def active(self) -> bool:
        """Whether the service has accepted the activation, and the events have not ended since."""
        return self._usb.active

    @property
    def end(self) -> Optional[UsbEventCode]:
        """The code of the end; None if the events have not ended."""
        return self._usb.end

    async def start(self, timeout: float = 10.0) -> None:
        """Activates the events, and waits at most ``timeout`` seconds until the service accepts the activation. If no service
        is running, or the service is still starting, also waits until it is ready. (KVO_HWS_activateUSBEventsV2)

        Raises EventTimeout if the service was not ready in time; ServiceError if it refuses; NotConnected if it ended at that
        moment; ServerFailed; NoThread; and RuntimeError if this process already receives the events.
        """
        until = asyncio.get_running_loop().time() + timeout
        await self._begin(self._usb._activate)
        try:
            while not self._usb._decided() and await self._change(until):
                pass
            self._usb._check_activation(timeout)
        except BaseException as failure:
            await self._close_after(failure)
            raise

    def _close_source(self) -> None:
        self._usb._close()

    async def __aenter__(self) -> UsbEvents:
        await self.start()
        return self

    def _answer(self, event: UsbEvent) -> bool:
        assert self._on_event is not None
        answer = self._hand_over(self._on_event, event)
        return answer is not None and answer.wait()


class EmbeddedEvents(_Events[EmbeddedEvent]):
    """The events of embedded stations, in an ``async with`` block::

        async with aio.EmbeddedEvents() as events:
            async for event in events: ...

    Without ``on_event``, events wait until get or the loop takes them. With ``on_event``, the event loop calls that function for
    each event. If it is a coroutine function, it runs as a task; several may run at once. The service expects no answer to
    these events, so that none is late. An exception of the callback is raised as it is for UsbEvents.

    All else is as for kvo_hws.EmbeddedEvents. Of both classes together, one object of a process listens at a time. **start
    replaces the process's handler of SIGUSR1** with one that does nothing.
    """

    def __init__(self, on_event: Optional[OnEmbeddedEvent] = None) -> None:
        self._on_event = on_event
        self._embedded = embedded_events.EmbeddedEvents(None if on_event is None else self._pass_on)
        super().__init__(self._embedded)

    async def start(self) -> None:
        """Starts to listen. (KVO_HWS_activateEmbKvoEvents)

        Raises AlreadyRunning if this process is already listening. Also raises it if an earlier listener is still running,
        because a listener that waits for a service ends only when one starts. Raises NoThread.
        """
        await self._begin(self._embedded.start)

    def _close_source(self) -> None:
        self._embedded._close()

    async def __aenter__(self) -> EmbeddedEvents:
        await self.start()
        return self

    def _pass_on(self, event: EmbeddedEvent) -> None:
        assert self._on_event is not None
        self._hand_over(self._on_event, event)


# ---- The end of the program, and forked children ----


@atexit.register
def _close_at_exit() -> None:
    """Nothing more is sent while the program ends."""
    for worker in list(_workers):
        worker.close()


def _reset_in_child() -> None:
    for worker in list(_workers):
        worker.reset_in_child()
    for source in list(_sources):
        source._reset_in_child()


os.register_at_fork(after_in_child=_reset_in_child)
