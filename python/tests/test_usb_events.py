"""USB events: how they arrive, what the service gets as a reply, and how they end."""

from __future__ import annotations

import ctypes
import socket
import subprocess
import sys
import threading
import time
from ipaddress import IPv4Address
from typing import Any, List, Optional

import pytest
from cases import MILL_IP
from conftest import wait_for

from kvo_hws import (
    EventsEnded,
    EventTimeout,
    Service,
    ServiceError,
    Simulator,
    UsbDeviceArrived,
    UsbDeviceRefused,
    UsbDeviceRemoved,
    UsbDeviceState,
    UsbEvent,
    UsbEventCode,
    UsbEvents,
)


def test_events_have_all_their_fields_and_end(simulator: Simulator) -> None:
    events = UsbEvents()
    with events:
        assert events.active and events.end is None and Service().is_usb_events_activated()
        simulator.plug_usb(
            MILL_IP, ident2="stick", ident3="1-1.7", text4="four", text5="5.5", text6="sechs ü", text7="seven",
            number1=11, number2=0xFFFFFFFF, id1=0x0951, id2=0x1666, report=True,
        )  # fmt: skip
        simulator.set_usb_state(MILL_IP, "stick", 2)
        simulator.unplug_usb(MILL_IP, "stick")
        simulator.refuse_usb(
            MILL_IP, ident2="hub", ident3="2-1", text4="four", text5="5.5", text8="too much", number1=12, number3=7
        )
        simulator.refuse_usb(MILL_IP, no_text5=True)
        received = [events.get(timeout=20) for _ in range(5)]
        assert received[:4] == [
            UsbDeviceArrived(MILL_IP, "stick", "1-1.7", "four", "5.5", "sechs ü", "seven", 11, 0xFFFFFFFF, 0x08000000, 0b101),
            UsbDeviceState(MILL_IP, "stick", "1-1.7", 2),
            UsbDeviceRemoved(MILL_IP, "stick", "1-1.7"),
            UsbDeviceRefused(MILL_IP, "hub", "2-1", "four", "5.5", "too much", 12, 0, 7),
        ]
        assert isinstance(received[4], UsbDeviceRefused) and received[4].text5 == ""
        assert received[0].station == IPv4Address(MILL_IP)

        started = time.monotonic()
        with pytest.raises(EventTimeout, match="no USB events within 0.1 s"):
            events.get(timeout=0.1)
        assert list(events.within(0.1)) == []
        assert 0.2 <= time.monotonic() - started < 10
        simulator.refuse_usb(MILL_IP)
        assert len(list(events.within(0.2))) == 1

        with pytest.raises(RuntimeError, match="already"):
            UsbEvents().start()
        simulator.refuse_usb(MILL_IP)
        wait_for(lambda: len(events._queue._events) == 1)
    assert has_ended(events) and not Service().is_usb_events_activated()
    assert len(list(events)) == 1, "an event that arrived before the end can be taken after it"
    with pytest.raises(EventsEnded):
        events.get()


def has_ended(events: UsbEvents) -> bool:
    return events.end == UsbEventCode.DEACTIVATED and not events.active


def reply_to_an_event() -> str:
    """Sends an event as the service does, and returns the reply."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
        connection.settimeout(20)
        connection.connect("/tmp/kvo_hws/usb_sock")
        connection.sendall(b"removeUSBdevice*10.0.0.5*stick*1-1*\n")
        return connection.recv(64).decode().strip()


def test_the_result_of_the_callback_is_the_reply_to_the_service(simulator: Simulator) -> None:
    results: List[Optional[bool]] = [True, False, None]
    received: List[UsbEvent] = []
    barrier = threading.Barrier(3, timeout=20)

    def on_event(event: UsbEvent) -> Optional[bool]:
        received.append(event)
        # A callback on a thread of the library can send requests.
        assert Service().is_ready()
        if len(received) <= 3:
            return results[len(received) - 1]
        # The barrier passes only if three callbacks run at the same time.
        return barrier.wait() >= 0

    with UsbEvents(on_event):
        assert [reply_to_an_event() for _ in results] == ["ok", "failed", "ok"]
        threads = [threading.Thread(target=reply_to_an_event) for _ in range(3)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert not barrier.broken and received == [UsbDeviceRemoved(MILL_IP, "stick", "1-1")] * 6


def test_an_exception_in_the_callback_is_reported_as_failed_and_raised_by_close(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[Any] = []
    monkeypatch.setattr(
        sys, "unraisablehook", lambda unraisable: reported.append((unraisable.exc_type, str(unraisable.exc_value)))
    )

    def on_event(event: UsbEvent) -> None:
        raise LookupError(event.ident2)

    events = UsbEvents(on_event)
    with pytest.raises(LookupError, match="stick"), events:
        assert reply_to_an_event() == "failed"
        with pytest.raises(LookupError, match="stick"):
            events.get(timeout=20)
        assert reply_to_an_event() == "failed"
        assert not reported
        assert reply_to_an_event() == "failed"
        assert reported == [(LookupError, "stick")], "the second exception is reported"
    assert has_ended(events)
    events.close()  # does nothing now


def test_the_callback_can_close_the_events(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda unraisable: reported.append(unraisable.exc_type))

    def on_event(event: UsbEvent) -> None:
        events.close()
        raise LookupError

    events = UsbEvents(on_event)
    with pytest.raises(ZeroDivisionError), events:
        assert reply_to_an_event() == "failed"
        wait_for(lambda: has_ended(events))
        raise ZeroDivisionError
    assert reported == [LookupError], "it is reported, because the block raises another exception"


TAKER = """
from kvo_hws import UsbEvents
with UsbEvents() as events:
    print("taken", flush=True)
    input()
"""


def test_iteration_ends_if_another_program_takes_the_events(simulator: Simulator) -> None:
    with UsbEvents() as events:
        taker = subprocess.Popen(
            [sys.executable, "-c", TAKER], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        assert taker.stdin is not None and taker.stdout is not None
        assert taker.stdout.readline() == "taken\n"
        assert list(events) == [] and events.end == UsbEventCode.DEACTIVATED
        simulator.refuse_usb(MILL_IP)
    assert Service().is_usb_events_activated()  # of the other program: the close above did not end them
    taker.communicate("\n")
    assert taker.returncode == 0 and not Service().is_usb_events_activated()


def test_a_missing_or_refusing_service_is_an_error(simulator: Simulator) -> None:
    events = UsbEvents()
    simulator.stop()
    with pytest.raises(EventTimeout, match="not ready"):
        events.start(timeout=0.3)
    simulator.start()
    simulator.add_fault("failed", "activateUSBEvents")
    with pytest.raises(ServiceError, match="refused to send USB events"):
        events.start()


FORGETFUL = """
from kvo_hws import UsbEvents, EmbeddedEvents
events, embedded = UsbEvents(), EmbeddedEvents()
events.start()
embedded.start()
print("left open")
"""


def test_a_program_with_open_events_ends_normally(simulator: Simulator) -> None:
    ended = subprocess.run([sys.executable, "-c", FORGETFUL], capture_output=True, text=True, timeout=20)
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, "left open\n", "")
    assert not Service().is_usb_events_activated()


def is_detached() -> bool:
    """Whether the thread that calls this cannot be joined by pthread_join."""
    system = ctypes.CDLL(None)
    system.pthread_self.restype = ctypes.c_ulong
    attributes = ctypes.create_string_buffer(64)
    state = ctypes.c_int(-1)
    assert system.pthread_getattr_np(ctypes.c_ulong(system.pthread_self()), attributes) == 0
    assert system.pthread_attr_getdetachstate(attributes, ctypes.byref(state)) == 0
    system.pthread_attr_destroy(attributes)
    return state.value != 0


def test_neither_start_nor_close_detaches_the_calling_thread(simulator: Simulator, monkeypatch: pytest.MonkeyPatch) -> None:
    """The functions of the library detach the thread that calls them. The interpreter itself joins or detaches its threads."""
    assert not is_detached(), "the main thread of a program is joinable"
    with UsbEvents() as events:
        assert events.active
    assert not is_detached()

    reporting: List[int] = []
    handle_code = UsbEvents._handle_code

    def record(events: UsbEvents, code: UsbEventCode) -> int:
        if code == UsbEventCode.BEGIN:  # comes on the thread that calls the library
            reporting.append(threading.get_native_id())
        return handle_code(events, code)

    monkeypatch.setattr(UsbEvents, "_handle_code", record)
    states: List[bool] = []

    def start_and_close() -> None:
        states.append(is_detached())
        with UsbEvents():
            pass
        states.append(is_detached())

    thread = threading.Thread(target=start_and_close)
    thread.start()
    thread.join(30)
    assert not thread.is_alive() and len(states) == 2
    assert states[0] == states[1]
    assert len(reporting) == 2 and thread.native_id not in reporting
