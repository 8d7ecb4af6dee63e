"""Events of embedded stations: how they arrive, what callbacks may do, and how they end."""

from __future__ import annotations

import sys
import time
from typing import Any, List

import pytest
from conftest import wait_for

from kvo_hws import AlreadyRunning, EmbeddedEvent, EmbeddedEvents, EventsEnded, EventTimeout, Simulator, Timeout


def test_events_arrive_in_order(simulator: Simulator) -> None:
    with EmbeddedEvents() as events:
        simulator.wait_for_listeners()
        assert simulator.publish("key", "F1") == 1
        assert simulator.publish("screen", "Übersicht, 2") == 1
        assert events.get(timeout=20) == EmbeddedEvent("key", "F1")
        assert events.get(timeout=20) == EmbeddedEvent("screen", "Übersicht, 2")
        with pytest.raises(EventTimeout):
            events.get(timeout=0.05)
    assert list(events) == []
    with pytest.raises(EventsEnded):
        events.get()
    wait_for(lambda: simulator.publish("key", "F2") == 0)


def test_the_callback_receives_events_and_its_exception_is_raised(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[str] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda unraisable: reported.append(str(unraisable.exc_value)))
    received: List[EmbeddedEvent] = []

    def on_event(event: EmbeddedEvent) -> None:
        received.append(event)
        raise LookupError(event.data)

    with pytest.raises(LookupError, match="F1"), EmbeddedEvents(on_event):
        simulator.wait_for_listeners()
        for key in ("F1", "F2"):
            simulator.publish("key", key)
        wait_for(lambda: len(received) == 2)
        wait_for(lambda: reported == ["F2"])


def test_the_callback_can_close_the_events(simulator: Simulator) -> None:
    events = EmbeddedEvents(lambda event: events.close())
    events.start()
    simulator.wait_for_listeners()
    simulator.publish("key", "F1")
    started = time.monotonic()
    assert list(events) == []
    assert time.monotonic() - started < 20


def test_only_one_object_of_a_process_can_listen(simulator: Simulator) -> None:
    with EmbeddedEvents() as first:
        with pytest.raises(AlreadyRunning):
            EmbeddedEvents().start()
        simulator.wait_for_listeners()
        simulator.publish("key", "F1")
        assert first.get(timeout=20).data == "F1"


def test_the_listener_reconnects_after_a_restart_of_the_service(simulator: Simulator) -> None:
    with EmbeddedEvents() as events:
        simulator.wait_for_listeners()
        simulator.restart()
        simulator.wait_for_listeners()
        simulator.publish("key", "F3")
        assert events.get(timeout=20) == EmbeddedEvent("key", "F3")


def test_a_listener_without_a_service_ends_when_a_service_starts(simulator: Simulator) -> None:
    simulator.stop()
    events = EmbeddedEvents()
    events.start()
    try:
        events.close()
    except Timeout as error:
        assert error.code == -1
        with pytest.raises(AlreadyRunning):
            events.start()
    simulator.start()

    def starts() -> bool:
        try:
            events.start()
        except AlreadyRunning:
            return False
        return True

    wait_for(starts)
    simulator.wait_for_listeners()
    events.close()
    events.close()


def test_close_before_start_does_nothing(simulator: Simulator) -> None:
    EmbeddedEvents().close()


def test_an_exception_of_the_callback_is_reported_if_the_block_raises_too(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda unraisable: reported.append(unraisable.exc_type))

    def on_event(event: EmbeddedEvent) -> None:
        raise LookupError

    with pytest.raises(ZeroDivisionError), EmbeddedEvents(on_event) as events:
        simulator.wait_for_listeners()
        simulator.publish("key", "F1")
        wait_for(lambda: events._queue._failure is not None)
        raise ZeroDivisionError
    assert reported == [LookupError]
