"""USB events: how they come, what is answered, and how they end."""

from __future__ import annotations

import socket
import subprocess
import sys
import threading
import time
from ipaddress import IPv4Address
from typing import Any, List, Optional

import pytest
from cases import HERE
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


def test_events_come_with_all_that_they_tell_and_have_an_end(simulator: Simulator) -> None:
    events = UsbEvents()
    with events:
        assert events.active and events.end is None and Service().is_usb_events_activated()
        simulator.plug_usb(
            HERE, ident2="stick", ident3="1-1.7", text4="four", text5="5.5", text6="sechs ü", text7="seven",
            number1=11, number2=0xFFFFFFFF, id1=0x0951, id2=0x1666, report=True,
        )  # fmt: skip
        simulator.set_usb_state(HERE, "stick", 2)
        simulator.unplug_usb(HERE, "stick")
        simulator.refuse_usb(
            HERE, ident2="hub", ident3="2-1", text4="four", text5="5.5", text8="too much", number1=12, number3=7
        )
        simulator.refuse_usb(HERE, no_text5=True)
        came = [events.get(timeout=20) for _ in range(5)]
        assert came[:4] == [
            UsbDeviceArrived(HERE, "stick", "1-1.7", "four", "5.5", "sechs ü", "seven", 11, 0xFFFFFFFF, 0x08000000, 0b101),
            UsbDeviceState(HERE, "stick", "1-1.7", 2),
            UsbDeviceRemoved(HERE, "stick", "1-1.7"),
            UsbDeviceRefused(HERE, "hub", "2-1", "four", "5.5", "too much", 12, 0, 7),
        ]
        assert isinstance(came[4], UsbDeviceRefused) and came[4].text5 == ""
        assert came[0].station == IPv4Address(HERE)

        started = time.monotonic()
        with pytest.raises(EventTimeout, match="no USB events within 0.1 s"):
            events.get(timeout=0.1)
        assert list(events.within(0.1)) == []
        assert 0.2 <= time.monotonic() - started < 10
        simulator.refuse_usb(HERE)
        assert len(list(events.within(0.2))) == 1

        with pytest.raises(RuntimeError, match="already"):
            UsbEvents().start()
        simulator.refuse_usb(HERE)
        wait_for(lambda: len(events._inbox._events) == 1)
    assert has_ended(events) and not Service().is_usb_events_activated()
    assert len(list(events)) == 1, "what came before the end can be taken after it"
    with pytest.raises(EventsEnded):
        events.get()


def has_ended(events: UsbEvents) -> bool:
    return events.end == UsbEventCode.DEACTIVATED and not events.active


def answer_to_an_event() -> str:
    """What a service is answered that brings an event."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
        connection.settimeout(20)
        connection.connect("/tmp/kvo_hws/usb_sock")
        connection.sendall(b"removeUSBdevice*10.0.0.5*stick*1-1*\n")
        return connection.recv(64).decode().strip()


def test_what_the_callback_says_is_what_the_service_is_told(simulator: Simulator) -> None:
    answers: List[Optional[bool]] = [True, False, None]
    came: List[UsbEvent] = []
    meeting = threading.Barrier(3, timeout=20)

    def on_event(event: UsbEvent) -> Optional[bool]:
        came.append(event)
        # It runs on a thread of the library, from which everything may be asked.
        assert Service().is_ready()
        if len(came) <= 3:
            return answers[len(came) - 1]
        # Events that come at once are told at once.
        return meeting.wait() >= 0

    with UsbEvents(on_event):
        assert [answer_to_an_event() for _ in answers] == ["ok", "failed", "ok"]
        threads = [threading.Thread(target=answer_to_an_event) for _ in range(3)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert not meeting.broken and came == [UsbDeviceRemoved(HERE, "stick", "1-1")] * 6


def test_what_the_callback_raises_is_told_as_failed_and_raised_by_the_close(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda told: reported.append((told.exc_type, str(told.exc_value))))

    def on_event(event: UsbEvent) -> None:
        raise LookupError(event.ident2)

    events = UsbEvents(on_event)
    with pytest.raises(LookupError, match="stick"), events:
        assert answer_to_an_event() == "failed"
        with pytest.raises(LookupError, match="stick"):
            events.get(timeout=20)
        assert answer_to_an_event() == "failed"
        assert not reported
        assert answer_to_an_event() == "failed"
        assert reported == [(LookupError, "stick")], "a second one is reported"
    assert has_ended(events)
    events.close()  # which has nothing to do any more


def test_a_callback_may_close_the_events(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda told: reported.append(told.exc_type))

    def on_event(event: UsbEvent) -> None:
        events.close()
        raise LookupError

    events = UsbEvents(on_event)
    with pytest.raises(ZeroDivisionError), events:
        assert answer_to_an_event() == "failed"
        wait_for(lambda: has_ended(events))
        raise ZeroDivisionError
    assert reported == [LookupError], "where something else is raised, it is reported"


TAKER = """
from kvo_hws import UsbEvents
with UsbEvents() as events:
    print("taken", flush=True)
    input()
"""


def test_another_program_that_takes_them_ends_the_iteration(simulator: Simulator) -> None:
    with UsbEvents() as events:
        taker = subprocess.Popen(
            [sys.executable, "-c", TAKER], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
        )
        assert taker.stdin is not None and taker.stdout is not None
        assert taker.stdout.readline() == "taken\n"
        assert list(events) == [] and events.end == UsbEventCode.DEACTIVATED
        simulator.refuse_usb(HERE)
    assert Service().is_usb_events_activated()  # what is closed is no longer this program's
    taker.communicate("\n")
    assert taker.returncode == 0 and not Service().is_usb_events_activated()


def test_a_service_that_is_not_there_or_refuses_is_told(simulator: Simulator) -> None:
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


def test_a_program_that_forgets_to_close_them_ends_all_the_same(simulator: Simulator) -> None:
    ended = subprocess.run([sys.executable, "-c", FORGETFUL], capture_output=True, text=True, timeout=20)
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, "left open\n", "")
    assert not Service().is_usb_events_activated()
