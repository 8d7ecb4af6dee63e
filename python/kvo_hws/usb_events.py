"""USB events of all stations: a device was plugged in, removed or refused, or changed its state."""

from __future__ import annotations

import atexit
import enum
import os
import threading
from dataclasses import dataclass
from ipaddress import IPv4Address
from typing import Any, Callable, Optional, Set, Type

from . import _structures as c
from ._events import EventQueue, EventSource, active_callbacks, close_preserving, report_unraisable
from ._library import call, run_on_library_thread
from ._sized import decode
from .errors import EventTimeout, NoEvents, NotConnected, ServerFailed, ServiceError

RESULT_DONE = 1
RESULT_FAILED = -1
MAX_CLOSE_SECONDS = 10.0
"""How long close waits for the service to confirm the end: 4 s for its reply, and 4 s for a server that does not stop."""


class UsbEventCode(enum.IntEnum):
    """The codes that the library passes to its callback."""

    ACTIVATED = 1
    DEACTIVATED = 2
    BEGIN = 3
    NEW_DEVICE = 10
    REMOVED = 11
    STATE = 13
    DEVICE_REFUSED = 14
    SERVER_FAILED = 100
    REFUSED = 101
    NO_SERVICE = 102


END_CODES = frozenset(
    {UsbEventCode.DEACTIVATED, UsbEventCode.SERVER_FAILED, UsbEventCode.REFUSED, UsbEventCode.NO_SERVICE}
)


@dataclass(frozen=True)
class UsbEvent:
    """An event of a device; the subclass is the kind of event. The two idents identify a device of a station."""

    ip_address: str
    """The station's address, as the service sent it."""
    ident2: str
    ident3: str
    late = False  # without a type: not a field, so that it takes no part in comparisons
    """True if the service was answered "failed" before the callback had finished. Only callbacks of kvo_hws.aio can be late."""

    @property
    def station(self) -> IPv4Address:
        """The station's address. ValueError if the service sent something else."""
        return IPv4Address(self.ip_address)


@dataclass(frozen=True)
class UsbDeviceArrived(UsbEvent):
    """A device was plugged in."""

    text4: str
    text5: str
    text6: str
    text7: str
    number1: int
    number2: int
    flag_word: int
    flag_bits: int
    """Bit 0 is id1 & 1, bits 1 and 2 are id2 & 3, bit 3 is bit 31 of flag_word."""


@dataclass(frozen=True)
class UsbDeviceRefused(UsbEvent):
    """A device was plugged in, and the service refused it."""

    text4: str
    text5: str
    text8: str
    number1: int
    number2: int
    number3: int
    """The low 8 bits of the number that the service sent."""


@dataclass(frozen=True)
class UsbDeviceState(UsbEvent):
    """A device changed its state."""

    state: int


@dataclass(frozen=True)
class UsbDeviceRemoved(UsbEvent):
    """A device was removed."""


OnUsbEvent = Callable[[UsbEvent], Optional[bool]]
"""A callback. False or an exception means that it failed; any other result, including None, means success."""


def _event_of(code: UsbEventCode, payload: Any) -> UsbEvent:
    record = {
        UsbEventCode.REMOVED: payload.removed,
        UsbEventCode.STATE: payload.state,
    }.get(code, payload.device)
    device = (decode(record.ipAddress), decode(record.ident2), decode(record.ident3))
    if code == UsbEventCode.REMOVED:
        return UsbDeviceRemoved(*device)
    if code == UsbEventCode.STATE:
        return UsbDeviceState(*device, record.state)
    texts = (decode(record.text4), decode(record.text5))
    numbers = (record.number1, record.number2)
    if code == UsbEventCode.DEVICE_REFUSED:
        return UsbDeviceRefused(*device, *texts, decode(record.text8), *numbers, record.number3)
    more = (decode(record.text6), decode(record.text7))
    return UsbDeviceArrived(*device, *texts, *more, *numbers, record.flagWord, record.flagBits)


class UsbEvents(EventSource[UsbEvent]):
    """The USB events of all stations, in a ``with`` block::

        with UsbEvents() as events:
            event = events.get(timeout=5)
            for event in events: ...

    Without ``on_event``, each event is reported to the service as done when it arrives. It waits in a queue until get,
    iteration or within takes it. With ``on_event``, each event is passed to that function, and the function's result is
    reported to the service. get and iteration then only wait for the end.

    The library calls ``on_event`` on its own threads, one for each event, several at once. If the function shares data with the
    rest of the program, protect the data with a lock. The service waits 4 s for the function's result. An exception means that
    the function has failed; the next get, iteration or close raises it again. A second exception before that goes to
    sys.unraisablehook. The function may call everything in this package.

    Only one program of a panel receives the events at a time: start takes them from the program that had them. If another
    program takes the events, or the service ends them, iteration ends, and ``end`` is the code of the end. Only one object of a
    process receives events at a time. After the end, an object can be started again.
    """

    def __init__(self, on_event: Optional[OnUsbEvent] = None) -> None:
        self._on_event = on_event
        self._code_changed = threading.Condition()
        self._code: Optional[UsbEventCode] = None
        self._closing = False
        self._queue = EventQueue[UsbEvent]("USB events", started=False)

    @property
    def active(self) -> bool:
        """Whether the service has accepted the activation, and the events have not ended since."""
        return self._code == UsbEventCode.ACTIVATED

    @property
    def end(self) -> Optional[UsbEventCode]:
        """The code of the end; None if the events have not ended."""
        code = self._code
        return code if code in END_CODES else None

    def start(self, timeout: float = 10.0) -> None:
        """Activates the events, and waits at most ``timeout`` seconds until the service accepts the activation. If no service
        is running, or the service is still starting, also waits until it is ready. (KVO_HWS_activateUSBEventsV2)

        Raises EventTimeout if the service was not ready in time; ServiceError if it refuses; NotConnected if it ended at that
        moment; ServerFailed; NoThread; and RuntimeError if this process already receives the events.
        """
        self._activate()
        try:
            with self._code_changed:
                self._code_changed.wait_for(self._decided, timeout)
            self._check_activation(timeout)
        except BaseException as failure:
            close_preserving(self.close, failure)
            raise

    def _activate(self) -> None:
        _claim(self)
        self._code = None
        self._closing = False
        self._queue = EventQueue[UsbEvent]("USB events", on_change=self._notify)
        try:
            run_on_library_thread(lambda: call("KVO_HWS_activateUSBEventsV2", _callback))
        except BaseException as failure:
            close_preserving(self.close, failure)
            raise

    def _decided(self) -> bool:
        """Whether the service has accepted or refused the activation."""
        return self.active or self.end is not None

    def _check_activation(self, timeout: float) -> None:
        if not self._decided():
            raise EventTimeout(f"the service was not ready to send USB events within {timeout} s")
        function = "KVO_HWS_activateUSBEventsV2"
        if self.end == UsbEventCode.NO_SERVICE:
            raise NotConnected(function, -2)
        if self.end == UsbEventCode.SERVER_FAILED:
            raise ServerFailed(function, -8)
        if self.end == UsbEventCode.REFUSED:
            raise ServiceError(function, -1, "the service refused to send USB events")

    def close(self) -> None:
        """Ends the events, and waits until the service has confirmed the end. Takes about a second. (KVO_HWS_closeUSBEvents)

        Events that arrived before can still be taken. Does nothing if the events have already ended. Raises ServerFailed, and
        the exception of ``on_event``. ``on_event`` may also call close, which then does not wait.
        """
        self._close()
        self._queue.raise_pending()

    def _close(self) -> None:
        if _current is self:
            try:
                self._end_activation()
            finally:
                self._queue.end()

    def _end_activation(self) -> None:
        """Closes the events. This object receives the codes until the code of the end arrives. Otherwise the next object would
        receive that code and treat it as its own end.
        """
        if self.end is None and not self._closing:
            self._closing = True
            try:
                run_on_library_thread(lambda: call("KVO_HWS_closeUSBEvents"))
            except NoEvents:
                _release(self)  # the service or another program has just ended them
                return
        if threading.get_ident() not in _callback_threads:
            self._wait_for_end()

    def _wait_for_end(self) -> None:
        with self._code_changed:
            self._code_changed.wait_for(lambda: self.end is not None, MAX_CLOSE_SECONDS)
        _release(self)

    def __enter__(self) -> UsbEvents:
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], active: Optional[BaseException], trace: object) -> None:
        close_preserving(self.close, active)

    # ---- On the library's threads ----

    def _handle_code(self, code: UsbEventCode) -> int:
        with self._code_changed:
            if self.end is None:
                self._code = code
            self._code_changed.notify_all()
        if code in END_CODES:
            self._queue.end()
        self._notify()
        return RESULT_DONE

    def _handle_event(self, event: UsbEvent) -> int:
        if self._on_event is None:
            self._queue.put(event)
            return RESULT_DONE
        try:
            return RESULT_FAILED if self._on_event(event) is False else RESULT_DONE
        except BaseException as failure:
            self._queue.record(failure)
            return RESULT_FAILED


_current: Optional[UsbEvents] = None
_change = threading.Lock()
_callback_threads: Set[int] = set()


def _claim(events: UsbEvents) -> None:
    global _current
    previous = _current
    if previous is not None and previous._closing:
        previous._wait_for_end()
    with _change:
        if _current is not None and _current.end is None:
            raise RuntimeError("this process already receives the USB events; close the other UsbEvents first")
        _current = events


def _release(events: UsbEvents) -> None:
    global _current
    with _change:
        if _current is events:
            _current = None


def _receive(event: Any) -> int:
    """The library's callback. It may still be called after an end; then no object receives the event."""
    thread = threading.get_ident()
    with active_callbacks:
        _callback_threads.add(thread)
        try:
            receiver = _current
            if receiver is None:
                return RESULT_FAILED
            code = UsbEventCode(event.contents.code)
            if code in END_CODES or code in (UsbEventCode.BEGIN, UsbEventCode.ACTIVATED):
                return receiver._handle_code(code)
            return receiver._handle_event(_event_of(code, event.contents.payload))
        except BaseException as failure:  # must not enter the C code
            report_unraisable(failure)
            return RESULT_FAILED
        finally:
            _callback_threads.discard(thread)


# Lives as long as the process: the library may call it shortly after a close.
_callback = c.UsbEventCallback(_receive)


@atexit.register
def _close_at_exit() -> None:
    """A thread of the library must not enter an interpreter that is ending."""
    events = _current
    if events is not None:
        close_preserving(events.close, SystemExit())


def _reset_in_child() -> None:
    """A forked child has neither the library's threads nor the events that its parent activated."""
    global _current, _change
    _current = None
    _callback_threads.clear()
    _change = threading.Lock()


os.register_at_fork(after_in_child=_reset_in_child)
