"""USB events in an event loop: how they arrive, what the service gets as a reply, and how they end."""

from __future__ import annotations

import asyncio
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from typing import Any, Callable, List, Optional

import pytest
from aio_support import in_a_thread, until, until_blocking
from cases import MILL_IP
from test_usb_events import TAKER, reply_to_an_event

from kvo_hws import (
    EventsEnded,
    EventTimeout,
    Service,
    ServiceError,
    Simulator,
    UsbDeviceArrived,
    UsbDeviceRemoved,
    UsbEvent,
    UsbEventCode,
    UsbEvents,
    aio,
    usb_events,
)

REMOVED = UsbDeviceRemoved(MILL_IP, "stick", "1-1")


ANSWER_SECONDS = aio.ANSWER_SECONDS


@pytest.fixture(autouse=True)
def much_time_for_answers(monkeypatch: pytest.MonkeyPatch) -> None:
    """A busy machine makes no event late, but in the tests of late events."""
    monkeypatch.setattr(aio, "ANSWER_SECONDS", 60)


async def types_are_known(events: aio.UsbEvents) -> None:
    """Not called: mypy reports an unused "ignore" if a type is unknown."""
    async for event in events:
        wrong: int = event  # type: ignore
    wrong = await events.get()  # type: ignore
    aio.UsbEvents(on_event=lambda event: event.ident4)  # type: ignore
    print(wrong)


def test_events_arrive_in_the_loop_and_end(simulator: Simulator) -> None:
    async def main() -> None:
        events = aio.UsbEvents()
        async with events:
            assert events.end is None and Service().is_usb_events_activated()
            await in_a_thread(simulator.plug_usb, MILL_IP)
            await in_a_thread(simulator.refuse_usb, MILL_IP)
            assert isinstance(await events.get(timeout=20), UsbDeviceArrived)
            assert (await events.get(timeout=20)).late is False
            with pytest.raises(EventTimeout, match="no event within 0.05 s"):
                await events.get(timeout=0.05)
            waiting = asyncio.ensure_future(events.get())
            await asyncio.sleep(0)
            await in_a_thread(reply_to_an_event)
            assert await asyncio.wait_for(waiting, 20) == REMOVED
            assert reply_to_an_event() == "ok", "the reply does not need the loop"
        assert not Service().is_usb_events_activated()
        assert [event async for event in events] == [REMOVED], "an event that arrived before the end"
        with pytest.raises(EventsEnded):
            await events.get()
        await events.aclose()

    asyncio.run(main())
    assert not Service().is_usb_events_activated()


def test_the_result_of_a_function_is_the_reply_to_the_service(simulator: Simulator) -> None:
    received: List[object] = []

    def on_event(event: UsbEvent) -> Optional[bool]:
        received.append((event, event.late, threading.get_ident()))
        return {1: True, 2: False}.get(len(received))

    async def main() -> None:
        async with aio.UsbEvents(on_event):
            assert [await in_a_thread(reply_to_an_event) for _ in range(3)] == ["ok", "failed", "ok"]

    asyncio.run(main())
    assert received == [(REMOVED, False, threading.get_ident())] * 3


def test_the_result_of_a_coroutine_is_the_reply_and_several_run_at_once(simulator: Simulator) -> None:
    async def main() -> None:
        all_begun = asyncio.Event()
        begun: List[UsbEvent] = []

        async def on_event(event: UsbEvent) -> Optional[bool]:
            begun.append(event)
            number = len(begun)
            if number == 3:
                all_begun.set()
            await all_begun.wait()
            assert await requests.ask(Service().is_ready)
            return {1: True, 2: False}.get(number)

        async with aio.Requests() as requests, aio.UsbEvents(on_event):
            replies = await asyncio.gather(*(in_a_thread(reply_to_an_event) for _ in range(3)))
            assert sorted(replies) == ["failed", "ok", "ok"]

    asyncio.run(main())


@pytest.mark.parametrize("coroutine", [False, True], ids=["function", "coroutine"])
def test_an_exception_is_answered_as_failed_and_raised_once(
    coroutine: bool, simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    reported: List[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda unraisable: reported.append(unraisable.exc_type))

    def function(event: UsbEvent) -> Optional[bool]:
        raise LookupError(event.ident2)

    async def coroutine_function(event: UsbEvent) -> Optional[bool]:
        await asyncio.sleep(0)
        raise LookupError(event.ident2)

    async def main() -> None:
        events = aio.UsbEvents(coroutine_function if coroutine else function)
        with pytest.raises(LookupError, match="stick"):
            async with events:
                waiting = asyncio.ensure_future(events.get(timeout=20))
                assert await in_a_thread(reply_to_an_event) == "failed"
                with pytest.raises(LookupError, match="stick"):
                    await waiting
                assert await in_a_thread(reply_to_an_event) == "failed"
                assert not reported
                assert await in_a_thread(reply_to_an_event) == "failed"
                assert reported == [LookupError], "the second exception is reported"
        await events.aclose()
        with pytest.raises(ZeroDivisionError):
            async with events:
                assert await in_a_thread(reply_to_an_event) == "failed"
                raise ZeroDivisionError
        assert reported == [LookupError, LookupError], "it is reported, because the block raises another exception"

    asyncio.run(main())


def test_a_callback_that_takes_too_long_is_answered_as_failed_and_continues(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(aio, "ANSWER_SECONDS", 2)

    async def main() -> None:
        replied = asyncio.Event()
        late: List[bool] = []

        async def on_event(event: UsbEvent) -> bool:
            late.append(event.late)
            await replied.wait()
            late.append(event.late)
            return True

        async with aio.UsbEvents(on_event):
            assert await in_a_thread(reply_to_an_event) == "failed"
            assert late == [False]
            replied.set()
        assert late == [False, True], "the end of the block waits for the callback"

    asyncio.run(main())


def test_an_event_for_a_stopped_loop_is_answered_as_failed_and_still_delivered(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(aio, "ANSWER_SECONDS", ANSWER_SECONDS)
    late: List[bool] = []
    loop = asyncio.new_event_loop()
    events = aio.UsbEvents(lambda event: late.append(event.late))
    loop.run_until_complete(events.start())
    sent = time.monotonic()
    assert reply_to_an_event() == "failed"
    assert 3.5 <= time.monotonic() - sent and ANSWER_SECONDS == 3.5, "the service waits 4 s"
    assert not late
    loop.run_until_complete(events.aclose())
    assert late == [True]
    loop.close()


@pytest.mark.parametrize("callback", [False, True], ids=["queue", "callback"])
def test_a_closed_loop_gets_no_events_and_delays_no_thread(
    callback: bool, simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(aio, "ANSWER_SECONDS", 3600)
    called: List[UsbEvent] = []
    events = aio.UsbEvents(called.append) if callback else aio.UsbEvents()
    asyncio.run(events.start())
    assert reply_to_an_event() == ("failed" if callback else "ok")

    async def finish() -> List[UsbEvent]:
        with pytest.raises(RuntimeError, match="another event loop"):
            while True:
                called.append(await events.get())
        await events.aclose()
        return [event async for event in events]

    assert asyncio.run(finish()) == []
    assert called == ([] if callback else [REMOVED])
    assert events.end is UsbEventCode.DEACTIVATED


def test_events_whose_loop_was_closed_can_be_closed_in_another_one(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(aio, "ANSWER_SECONDS", 2)
    begun = threading.Event()
    replies: List[str] = []

    async def on_event(event: UsbEvent) -> None:
        begun.set()
        await asyncio.Event().wait()

    async def begin_to_close() -> None:
        await in_a_thread(begun.wait)
        events.close()

    loop = asyncio.new_event_loop()
    events = aio.UsbEvents(on_event)
    loop.run_until_complete(events.start())
    sender = threading.Thread(target=lambda: replies.append(reply_to_an_event()))
    sender.start()
    loop.run_until_complete(begin_to_close())
    loop.close()
    asyncio.run(asyncio.wait_for(events.aclose(), 20))
    sender.join(20)
    assert events.end is UsbEventCode.DEACTIVATED and replies == ["failed"]


def test_a_function_can_close_the_events(simulator: Simulator) -> None:
    async def main() -> None:
        events = aio.UsbEvents(lambda event: events.close())
        await events.start()
        assert await in_a_thread(reply_to_an_event) == "ok"
        assert [event async for event in events] == []
        await events.aclose()

    asyncio.run(main())


def test_a_coroutine_that_closes_the_events_does_not_wait_for_itself(simulator: Simulator) -> None:
    async def main() -> None:
        async def on_event(event: UsbEvent) -> None:
            await events.aclose()

        events = aio.UsbEvents(on_event)
        await events.start()
        assert await in_a_thread(reply_to_an_event) == "ok"
        assert [event async for event in events] == []
        await events.aclose()

    asyncio.run(main())


def test_the_end_waits_for_a_callback_that_is_running(simulator: Simulator) -> None:
    async def main() -> None:
        begun, release = asyncio.Event(), asyncio.Event()

        async def on_event(event: UsbEvent) -> None:
            begun.set()
            await release.wait()

        events = aio.UsbEvents(on_event)
        await events.start()
        reply = in_a_thread(reply_to_an_event)
        await begun.wait()
        ending = asyncio.ensure_future(events.aclose())
        await until(lambda: events._closing is not None and events._closing.done())
        await asyncio.sleep(0.01)
        assert events.end is UsbEventCode.DEACTIVATED and not ending.done()
        release.set()
        await ending
        await reply

    asyncio.run(main())


def test_no_callback_begins_after_the_end(simulator: Simulator) -> None:
    called: List[UsbEvent] = []

    async def main() -> None:
        events = aio.UsbEvents(called.append)
        async with events:
            events.close()
            assert await in_a_thread(events._answer, REMOVED) is False
        assert await in_a_thread(events._answer, REMOVED) is False

    asyncio.run(main())
    assert not called


def test_closing_answers_events_whose_callback_has_not_begun_although_the_loop_is_busy(simulator: Simulator) -> None:
    called: List[UsbEvent] = []

    async def main() -> None:
        events = aio.UsbEvents(called.append)
        await events.start()
        with ThreadPoolExecutor() as senders:  # blocks the loop
            reply = senders.submit(reply_to_an_event)
            until_blocking(lambda: len(events._queued) == 1)
            events.close()
            assert reply.result(20) == "failed"
            assert senders.submit(events._answer, REMOVED).result(20) is False, "also one that arrives now"
        await events.aclose()

    asyncio.run(main())
    assert not called


def test_a_cancelled_end_still_ends_the_events(simulator: Simulator) -> None:
    async def main() -> None:
        events = aio.UsbEvents()
        await events.start()
        ending = asyncio.ensure_future(events.aclose())
        await asyncio.sleep(0)
        ending.cancel()
        await asyncio.wait({ending})
        assert ending.cancelled() and events.end is UsbEventCode.DEACTIVATED

    asyncio.run(main())
    assert not Service().is_usb_events_activated()


def test_iteration_ends_if_another_program_takes_the_events(simulator: Simulator) -> None:
    async def main() -> None:
        async with aio.UsbEvents() as events:
            with subprocess.Popen(
                [sys.executable, "-c", TAKER], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
            ) as taker:
                assert [event async for event in events] == [] and events.end is UsbEventCode.DEACTIVATED
                await in_a_thread(taker.communicate, "\n")

    asyncio.run(main())


def test_a_second_object_is_refused_and_does_not_disturb_the_first(simulator: Simulator) -> None:
    async def main() -> None:
        async with aio.UsbEvents() as events:
            for second in (aio.UsbEvents(), events):
                with pytest.raises(RuntimeError, match="already receives"):
                    await second.start()
            with pytest.raises(RuntimeError, match="already receives"):
                UsbEvents().start()
            assert await in_a_thread(reply_to_an_event) == "ok"
            assert events.active and await events.get(timeout=20) == REMOVED

    asyncio.run(main())


def test_a_missing_or_refusing_service_is_an_error(simulator: Simulator) -> None:
    async def main() -> None:
        events = aio.UsbEvents()
        with pytest.raises(RuntimeError, match="not started"):
            await events.get()
        await in_a_thread(simulator.stop)
        with pytest.raises(EventTimeout, match="not ready to send USB events within 0.3 s"):
            await events.start(timeout=0.3)
        await in_a_thread(simulator.start)
        simulator.add_fault("failed", "activateUSBEvents", times=1)
        with pytest.raises(ServiceError, match="refused to send USB events"):
            await events.start()
        async with events:
            assert events.active

    asyncio.run(main())


@pytest.mark.parametrize("moment", ["activating", "waiting"])
def test_a_cancelled_start_leaves_nothing_active(
    moment: str, simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    begun = threading.Event()
    go_on = threading.Event()
    call: Callable[..., Any] = getattr(usb_events, "call")

    def slow(name: str, *inputs: object) -> Any:
        begun.set()
        assert go_on.wait(20)
        return call(name, *inputs)

    async def main() -> None:
        await in_a_thread(simulator.stop)
        events = aio.UsbEvents()
        with monkeypatch.context() as patch:
            patch.setattr(usb_events, "call", slow)
            if moment == "waiting":
                go_on.set()
            starting = asyncio.ensure_future(events.start(timeout=3600))
            await in_a_thread(begun.wait)
            if moment == "waiting":
                await until(lambda: bool(events._waiters))
            starting.cancel()
            await asyncio.sleep(0)
            go_on.set()
            await asyncio.wait({starting})
        assert starting.cancelled()
        await in_a_thread(simulator.start)
        async with aio.UsbEvents() as others:
            assert others.active and await in_a_thread(reply_to_an_event) == "ok"

    asyncio.run(main())


def test_the_loop_runs_while_events_start_and_end(simulator: Simulator, monkeypatch: pytest.MonkeyPatch) -> None:
    callers: List[int] = []
    call: Callable[..., Any] = getattr(usb_events, "call")
    main_thread = threading.get_ident()

    async def main() -> None:
        loop = asyncio.get_running_loop()
        ticked = threading.Event()

        def recorded(name: str, *inputs: object) -> Any:
            callers.append(threading.get_ident())
            ticked.clear()
            loop.call_soon_threadsafe(ticked.set)
            assert ticked.wait(20), "the loop is blocked"
            return call(name, *inputs)

        monkeypatch.setattr(usb_events, "call", recorded)
        async with aio.UsbEvents():
            pass

    before = set(threading.enumerate())
    asyncio.run(main())
    assert len(callers) == 2 and main_thread not in callers, "the library detaches these threads"
    for helper in set(threading.enumerate()) - before:
        helper.join(20)
        assert not helper.is_alive()
