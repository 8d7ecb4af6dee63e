"""Requests of an event loop: results, timeouts, order, limits and ends."""

from __future__ import annotations

import asyncio
import contextlib
import functools
import gc
import inspect
import threading
import time
from typing import Any, Callable, Dict, List, Optional

import pytest
from cases import MILL_IP
from conftest import wait_for

from kvo_hws import KvoError, NotConnected, Panel, Service, Simulator, UsbEvents, aio, usb_events

PANEL = Panel(MILL_IP)


class Blocker:
    """A request that keeps the worker busy until it is released."""

    def __init__(self, requests: aio.Requests) -> None:
        self.release = threading.Event()
        self.begun = threading.Event()
        self.future = requests.ask(self.block, timeout=60)
        assert self.begun.wait(20)

    def block(self) -> str:
        self.begun.set()
        assert self.release.wait(20)
        return "released"


async def types_are_those_of_the_function(requests: aio.Requests) -> None:
    """Not called: mypy reports an unused "ignore" if a type is unknown."""
    mcp: int = await requests.ask(PANEL.get_mcp_address, timeout=1)
    level: Optional[int] = await requests.ask(PANEL.get_backlight_brightness, 1, timeout=1)
    started: bool = await requests.ask(PANEL.start_viewer, "nc", "1")
    note: Optional[str] = await requests.ask(functools.partial(PANEL.get_channel_info))
    wrong: str = await requests.ask(PANEL.get_mcp_address, timeout=1)  # type: ignore
    wrong = await requests.ask(PANEL.start_viewer, "nc")  # type: ignore
    await requests.ask(PANEL.set_mcp_address, "five")  # type: ignore
    await requests.ask(PANEL.set_mcp_address, 5, 5)  # type: ignore
    print(mcp, level, started, note, wrong)


def test_ask_returns_what_the_function_returns(simulator: Simulator) -> None:
    async def main() -> None:
        async with aio.Requests() as requests:
            await requests.ask(PANEL.set_mcp_address, 17)
            assert await requests.ask(PANEL.get_mcp_address, timeout=1) == 17
            await requests.ask(functools.partial(PANEL.set_channel_info, info="tool change"))
            assert await requests.ask(PANEL.get_channel_info, timeout=60) == "tool change"
            assert await requests.ask(PANEL.start_viewer, "nc", "1", "2") is True
            both = await asyncio.gather(requests.ask(Service().get_version), requests.ask(PANEL.get_mcp_address))
            assert list(both) == ["V04.07.01.12", 17]
            assert requests.waiting == 0

    asyncio.run(main())


def test_every_request_has_at_most_as_many_arguments_as_ask_has_types_for() -> None:
    for kind in (Panel, Service):
        for name, method in inspect.getmembers(kind, inspect.isfunction):
            assert name.startswith("__") or len(inspect.signature(method).parameters) - 1 <= 3, name


def test_the_exception_of_a_request_is_raised_by_the_await(simulator: Simulator) -> None:
    simulator.stop()

    async def main() -> None:
        async with aio.Requests() as requests:
            with pytest.raises(NotConnected) as raised:
                await requests.ask(PANEL.get_mcp_address)
            assert isinstance(raised.value, KvoError) and raised.value.function == "KVO_HWS_getMCPAddress"
            with pytest.raises(RuntimeError, match="StopIteration"):
                await requests.ask(next, iter(()))
            with pytest.raises(ValueError, match="must not contain"):
                await requests.ask(PANEL.set_channel_info, "two\nlines")

    asyncio.run(main())


def test_a_timeout_ends_the_await_while_the_service_is_silent(simulator: Simulator) -> None:
    simulator.set_station(MILL_IP, mcp_address=3)
    simulator.add_fault("silent", "getMCPAddress", times=1)

    async def main() -> None:
        ticks = 0

        async def tick() -> None:
            nonlocal ticks
            while True:
                ticks += 1
                await asyncio.sleep(0.001)

        ticker = asyncio.ensure_future(tick())
        requests = aio.Requests()
        asked = time.monotonic()
        silent = requests.ask(PANEL.get_mcp_address, timeout=1.5)
        wait_for(lambda: requests.busy)
        later = requests.ask(PANEL.set_mcp_address, 77, timeout=0.3)
        with pytest.raises(aio.RequestTimeout, match="set_mcp_address did not end within 0.3 s; it was not sent") as unsent:
            await later
        with pytest.raises(asyncio.TimeoutError, match="get_mcp_address .* may still take effect") as sent:
            await silent
        assert 1.5 <= time.monotonic() - asked < 3.5, "the service is silent for 4 s"
        assert [type(sent.value), getattr(sent.value, "begun")] == [aio.RequestTimeout, True]
        assert isinstance(unsent.value, TimeoutError) and not unsent.value.begun
        assert ticks > 3, "the loop was not blocked"
        assert requests.busy and requests.waiting == 0
        await requests.aclose()
        assert time.monotonic() - asked >= 3.9, "aclose waits for the exchange"
        wait_for(lambda: not requests.busy, 0)
        ticker.cancel()

    asyncio.run(main())
    assert simulator.station(MILL_IP)["mcp_address"] == 3


def test_a_request_whose_timeout_passed_is_not_sent_although_the_loop_was_busy(simulator: Simulator) -> None:
    sent: List[int] = []

    async def main() -> None:
        async with aio.Requests() as requests:
            blocker = Blocker(requests)
            request = requests.ask(sent.append, 1, timeout=0.05)
            time.sleep(0.06)  # the loop cannot notice the timeout
            blocker.release.set()
            wait_for(lambda: not requests.busy)
            with pytest.raises(aio.RequestTimeout) as raised:
                await request
            assert not raised.value.begun and await blocker.future == "released"

    asyncio.run(main())
    assert not sent


def test_a_result_that_is_there_counts_although_the_loop_was_busy_past_the_timeout() -> None:
    async def main() -> None:
        async with aio.Requests() as requests:
            asked = time.monotonic()
            request = requests.ask(str, 7, timeout=1)
            wait_for(lambda: time.monotonic() > asked + 1)
            assert await request == "7"

    asyncio.run(main())



@pytest.mark.parametrize("as_task", [False, True], ids=["future", "task"])
def test_a_request_that_was_cancelled_while_it_waited_is_not_sent(as_task: bool) -> None:
    sent: List[int] = []

    async def main() -> None:
        async with aio.Requests() as requests:

            async def await_it() -> None:
                await requests.ask(sent.append, 1)

            blocker = Blocker(requests)
            request: asyncio.Future[None] = asyncio.ensure_future(await_it()) if as_task else requests.ask(sent.append, 1)
            await asyncio.sleep(0)
            assert requests.waiting == 1
            request.cancel()
            if as_task:
                await asyncio.wait({request})
            assert requests.waiting == 0
            blocker.release.set()
            assert await requests.ask(str, 2) == "2"
            assert request.cancelled()

    asyncio.run(main())
    assert not sent


def test_a_request_that_is_cancelled_in_progress_is_completed_and_its_result_dropped() -> None:
    async def main() -> None:
        reported: List[Dict[str, Any]] = []
        asyncio.get_running_loop().set_exception_handler(lambda _, context: reported.append(context))
        async with aio.Requests() as requests:
            blocker = Blocker(requests)
            blocker.future.cancel()
            assert requests.busy
            blocker.release.set()
            assert await requests.ask(str, 2) == "2"
            assert blocker.future.cancelled() and not reported

    asyncio.run(main())


def test_requests_end_in_the_order_in_which_they_were_asked() -> None:
    called: List[int] = []
    ended: List[int] = []

    def request(number: int) -> None:
        called.append(number)
        if number % 3 == 0:
            raise LookupError

    async def main() -> None:
        async with aio.Requests() as requests:
            blocker = Blocker(requests)
            futures: List[asyncio.Future[None]] = []
            for number in range(50):
                future = requests.ask(request, number)
                future.add_done_callback(lambda _, number=number: ended.append(number))  # type: ignore[misc]
                futures.append(future)
            blocker.release.set()
            outcomes = await asyncio.gather(*futures, return_exceptions=True)
            assert [isinstance(one, LookupError) for one in outcomes] == [number % 3 == 0 for number in range(50)]

    asyncio.run(main())
    assert called == ended == list(range(50))


def test_a_full_queue_is_an_error_and_has_room_after_a_cancellation() -> None:
    async def main() -> None:
        async with aio.Requests(capacity=2) as requests:
            blocker = Blocker(requests)
            waiting = [requests.ask(str, number) for number in range(2)]
            with pytest.raises(aio.RequestsFull, match="2 requests are already waiting"):
                requests.ask(str, 2)
            waiting[0].cancel()
            assert requests.waiting == 1
            last = requests.ask(str, 3)
            with pytest.raises(aio.RequestsFull):
                requests.ask(str, 4)
            blocker.release.set()
            assert [await waiting[1], await last] == ["1", "3"]

    asyncio.run(main())


def test_leaving_the_block_drops_what_waits_and_does_not_wait_for_the_request_in_progress() -> None:
    sent: List[int] = []

    async def main() -> None:
        reported: List[Dict[str, Any]] = []
        asyncio.get_running_loop().set_exception_handler(lambda _, context: reported.append(context))
        async with aio.Requests() as requests:
            blocker = Blocker(requests)
            request = requests.ask(sent.append, 1)
            requests.ask(sent.append, 2)
        assert requests.busy and requests.waiting == 0
        with pytest.raises(aio.RequestsClosed, match="not sent"):
            await request
        with pytest.raises(aio.RequestsClosed):
            requests.ask(sent.append, 3)
        await asyncio.sleep(0)  # the loop forgets the futures
        gc.collect()
        assert not reported, "an await that does not exist cannot miss the exception"
        closed = asyncio.ensure_future(requests.aclose())
        await asyncio.sleep(0.05)
        assert not closed.done()
        blocker.release.set()
        await closed
        thread = requests._worker.thread
        assert thread is not None and not thread.is_alive()
        assert await blocker.future == "released"
        requests.close()
        await requests.aclose()

    asyncio.run(main())
    assert not sent


def test_closing_requests_that_were_never_asked_does_nothing() -> None:
    async def main() -> None:
        async with aio.Requests() as requests:
            await requests.aclose()

    asyncio.run(main())


@pytest.mark.parametrize("timeout", [0.0099, 0, -1, 60.1, float("nan"), float("inf")])
def test_a_timeout_out_of_range_is_an_error(timeout: float) -> None:
    async def main() -> None:
        requests = aio.Requests()
        with pytest.raises(ValueError, match=r"it must be 0\.01 to 60 seconds"):
            requests.ask(str, 1, timeout=timeout)
        assert requests._worker.thread is None

    asyncio.run(main())


def test_wrong_uses_are_errors() -> None:
    async def request() -> None:
        """A coroutine function."""

    async def main() -> None:
        with pytest.raises(TypeError, match="request is a coroutine function"):
            aio.Requests().ask(request)

    asyncio.run(main())
    with pytest.raises(RuntimeError, match="no running event loop"):
        aio.Requests().ask(str, 1)
    with pytest.raises(ValueError, match="capacity is 0"):
        aio.Requests(capacity=0)


@pytest.mark.parametrize("timeout", [0.01, 60])
def test_the_limits_of_a_timeout_are_permitted(timeout: float) -> None:
    async def main() -> None:
        async with aio.Requests() as requests:
            with contextlib.suppress(aio.RequestTimeout):  # on a busy machine
                assert await requests.ask(str, 1, timeout=timeout) == "1"

    asyncio.run(main())


def test_a_closed_event_loop_does_not_disturb_the_worker() -> None:
    sent: List[str] = []
    requests = aio.Requests()
    blockers: List[Blocker] = []

    async def first() -> None:
        blockers.append(Blocker(requests))
        requests.ask(sent.append, "closed loop")

    async def second() -> None:
        request = requests.ask(sent.append, "second loop")
        blockers[0].release.set()
        await request
        await requests.aclose()

    asyncio.run(first())
    asyncio.run(second())
    assert sent == ["second loop"]


def test_a_stopped_event_loop_gets_the_result_when_it_runs_again() -> None:
    requests = aio.Requests()
    loop = asyncio.new_event_loop()

    async def ask() -> asyncio.Future[str]:
        return requests.ask(str, 7, timeout=60)

    async def finish(request: asyncio.Future[str]) -> str:
        await requests.aclose()
        return await request

    request = loop.run_until_complete(ask())
    wait_for(lambda: not requests._worker.waiting and not requests.busy)
    assert loop.run_until_complete(finish(request)) == "7"
    loop.close()


def test_an_unclosed_object_is_reported_and_its_requests_are_completed() -> None:
    async def main() -> None:
        requests = aio.Requests()
        blocker = Blocker(requests)
        request = requests.ask(str, 7)
        worker = requests._worker.thread
        assert worker is not None
        with pytest.warns(ResourceWarning, match="unclosed <kvo_hws.aio.Requests"):
            del requests
            gc.collect()
        blocker.release.set()
        assert await request == "7"
        worker.join(20)
        assert not worker.is_alive()

    asyncio.run(main())


def test_usb_events_that_are_started_by_the_worker_do_not_detach_it(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    callers: Dict[str, int] = {}
    call: Callable[..., Any] = getattr(usb_events, "call")

    def recorded(name: str, *inputs: object) -> Any:
        callers[name] = threading.get_ident()
        return call(name, *inputs)

    monkeypatch.setattr(usb_events, "call", recorded)

    async def main() -> None:
        requests = aio.Requests()
        events = UsbEvents()
        await requests.ask(events.start, timeout=20)
        assert events.active
        await requests.ask(events.close, timeout=20)
        worker = requests._worker.thread
        assert worker is not None
        assert set(callers) == {"KVO_HWS_activateUSBEventsV2", "KVO_HWS_closeUSBEvents"}
        assert not {worker.ident, threading.get_ident()} & set(callers.values())
        await requests.aclose()

    asyncio.run(main())
