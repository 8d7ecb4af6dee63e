"""USB events: every device that arrives, leaves, is refused or changes its state at any station."""

from __future__ import annotations

import atexit
import enum
import os
import threading
from dataclasses import dataclass
from ipaddress import IPv4Address
from typing import Any, Callable, Optional, Set, Type

from . import _structures as c
from ._events import EventSource, Inbox, close_or_report, report, visits
from ._library import call, on_own_thread
from ._sized import decode
from .errors import EventTimeout, NoEvents, NotConnected, ServerFailed, ServiceError

ANSWER_DONE = 1
ANSWER_FAILED = -1
LONGEST_CLOSE = 10.0
"""Seconds for the service to answer that events are ended: 4 for its reply, and as much for a server that does not stop."""


class UsbEventCode(enum.IntEnum):
    """What a callback of the library is told."""

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


ENDS = frozenset(
    {UsbEventCode.DEACTIVATED, UsbEventCode.SERVER_FAILED, UsbEventCode.REFUSED, UsbEventCode.NO_SERVICE}
)


@dataclass(frozen=True)
class UsbEvent:
    """Something happened to a device; the subclasses tell what. The two idents tell the devices of a station apart."""

    ip_address: str
    """The station, as the service wrote it."""
    ident2: str
    ident3: str

    @property
    def station(self) -> IPv4Address:
        """The station's address; ValueError where the service wrote something else."""
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
    """A device came that the service refuses."""

    text4: str
    text5: str
    text8: str
    number1: int
    number2: int
    number3: int
    """The low 8 bits of what was sent."""


@dataclass(frozen=True)
class UsbDeviceState(UsbEvent):
    """A device changed its state."""

    state: int


@dataclass(frozen=True)
class UsbDeviceRemoved(UsbEvent):
    """A device was removed."""


OnUsbEvent = Callable[[UsbEvent], Optional[bool]]
"""A callback: False says that it failed, and so does an exception; everything else, None too, that it was done."""


def _read(code: UsbEventCode, payload: Any) -> UsbEvent:
    record = {
        UsbEventCode.REMOVED: payload.removed,
        UsbEventCode.STATE: payload.state,
    }.get(code, payload.device)
    who = (decode(record.ipAddress), decode(record.ident2), decode(record.ident3))
    if code == UsbEventCode.REMOVED:
        return UsbDeviceRemoved(*who)
    if code == UsbEventCode.STATE:
        return UsbDeviceState(*who, record.state)
    texts = (decode(record.text4), decode(record.text5))
    numbers = (record.number1, record.number2)
    if code == UsbEventCode.DEVICE_REFUSED:
        return UsbDeviceRefused(*who, *texts, decode(record.text8), *numbers, record.number3)
    more = (decode(record.text6), decode(record.text7))
    return UsbDeviceArrived(*who, *texts, *more, *numbers, record.flagWord, record.flagBits)


class UsbEvents(EventSource[UsbEvent]):
    """The USB events of all stations, in a ``with`` block::

        with UsbEvents() as events:
            event = events.get(timeout=5)
            for event in events: ...

    Without ``on_event`` events are told done to the service as they come, and wait here to be taken: by get, by iterating, by
    within. With ``on_event`` they go to it instead, and its answer is what the service is told; get and iterating then wait for
    the end.

    ``on_event`` is called on threads of the library, one for each event, several at once: what it shares with the rest of the
    program needs a lock. The service waits for its answer for 4 s. What it raises counts as failed, and is raised by the next
    get, iteration or close; a second exception before that goes to sys.unraisablehook. It may call everything of this package.

    One program of a panel has the events at a time: starting takes them from the one that had them. Where another program takes
    them, or the service ends them, iterating ends, and ``end`` tells the code. One object of a process has them at a time.
    Once ended, an object can be started again.
    """

    def __init__(self, on_event: Optional[OnUsbEvent] = None) -> None:
        self._on_event = on_event
        self._state = threading.Condition()
        self._code: Optional[UsbEventCode] = None
        self._closing = False
        self._inbox = Inbox[UsbEvent]("USB events", begun=False)

    @property
    def active(self) -> bool:
        """Whether the service has accepted the activation, and no end has come since."""
        return self._code == UsbEventCode.ACTIVATED

    @property
    def end(self) -> Optional[UsbEventCode]:
        """The code of the end; None where none has come."""
        code = self._code
        return code if code in ENDS else None

    def start(self, timeout: float = 10.0) -> None:
        """Activates the events, and waits until the service has accepted that; where there is none, or one that is still
        starting, until it is ready, for ``timeout`` seconds at most. (KVO_HWS_activateUSBEventsV2)

        Raises EventTimeout where the service was not ready in time, ServiceError where it refuses, NotConnected where it went
        away just then, ServerFailed, NoThread; RuntimeError where this process has them already.
        """
        _take_over(self)
        self._code = None
        self._closing = False
        self._inbox = Inbox[UsbEvent]("USB events")
        try:
            on_own_thread(lambda: call("KVO_HWS_activateUSBEventsV2", _callback))
            self._await_activation(timeout)
        except BaseException as failure:
            close_or_report(self.close, failure)
            raise

    def _await_activation(self, timeout: float) -> None:
        with self._state:
            told = self._state.wait_for(lambda: self._code == UsbEventCode.ACTIVATED or self.end is not None, timeout)
        if not told:
            raise EventTimeout(f"the service was not ready to send USB events within {timeout} s")
        function = "KVO_HWS_activateUSBEventsV2"
        if self.end == UsbEventCode.NO_SERVICE:
            raise NotConnected(function, -2)
        if self.end == UsbEventCode.SERVER_FAILED:
            raise ServerFailed(function, -8)
        if self.end == UsbEventCode.REFUSED:
            raise ServiceError(function, -1, "the service refused to send USB events")

    def close(self) -> None:
        """Ends the events, and waits until the service has been told. (KVO_HWS_closeUSBEvents)

        Events that came before can still be taken. Does nothing where they have ended already. Raises ServerFailed, and what
        ``on_event`` has raised. Takes about a second. May be called by ``on_event``, which does not wait then.
        """
        if _current is self:
            try:
                self._end_activation()
            finally:
                self._inbox.end()
        self._inbox.raise_failure()

    def _end_activation(self) -> None:
        """Until its end is told the object is the one that has the events: the next one would take that end for its own."""
        if self.end is None and not self._closing:
            self._closing = True
            try:
                on_own_thread(lambda: call("KVO_HWS_closeUSBEvents"))
            except NoEvents:
                _leave(self)  # they ended on their own, just now
                return
        if threading.get_ident() not in _callback_threads:
            self._await_end()

    def _await_end(self) -> None:
        with self._state:
            self._state.wait_for(lambda: self.end is not None, LONGEST_CLOSE)
        _leave(self)

    def __enter__(self) -> UsbEvents:
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], another: Optional[BaseException], trace: object) -> None:
        close_or_report(self.close, another)

    # ---- On the library's threads ----

    def _told(self, code: UsbEventCode) -> int:
        with self._state:
            if self.end is None:
                self._code = code
            self._state.notify_all()
        if code in ENDS:
            self._inbox.end()
        return ANSWER_DONE

    def _happened(self, event: UsbEvent) -> int:
        if self._on_event is None:
            self._inbox.put(event)
            return ANSWER_DONE
        try:
            return ANSWER_FAILED if self._on_event(event) is False else ANSWER_DONE
        except BaseException as failure:
            self._inbox.fail(failure)
            return ANSWER_FAILED


_current: Optional[UsbEvents] = None
_change = threading.Lock()
_callback_threads: Set[int] = set()


def _take_over(events: UsbEvents) -> None:
    global _current
    before = _current
    if before is not None and before._closing:
        before._await_end()
    with _change:
        if _current is not None and _current.end is None:
            raise RuntimeError("this process has the USB events already; close the other UsbEvents first")
        _current = events


def _leave(events: UsbEvents) -> None:
    global _current
    with _change:
        if _current is events:
            _current = None


def _receive(event: Any) -> int:
    """The library's callback. Late calls may come after an end; then nobody is there for them."""
    thread = threading.get_ident()
    with visits:
        _callback_threads.add(thread)
        try:
            receiver = _current
            if receiver is None:
                return ANSWER_FAILED
            code = UsbEventCode(event.contents.code)
            if code in ENDS or code in (UsbEventCode.BEGIN, UsbEventCode.ACTIVATED):
                return receiver._told(code)
            return receiver._happened(_read(code, event.contents.payload))
        except BaseException as failure:  # none may pass into C
            report(failure)
            return ANSWER_FAILED
        finally:
            _callback_threads.discard(thread)


# Kept for the life of the process: the library may call it shortly after a close.
_callback = c.UsbEventCallback(_receive)


@atexit.register
def _end_with_the_process() -> None:
    """No thread of the library may come to an interpreter that is ending."""
    events = _current
    if events is not None:
        close_or_report(events.close, SystemExit())


def _forget() -> None:
    """A child that was forked has neither the library's threads nor what its parent has activated."""
    global _current, _change
    _current = None
    _callback_threads.clear()
    _change = threading.Lock()


os.register_at_fork(after_in_child=_forget)
