"""Events of embedded stations in an event loop."""

from __future__ import annotations

import asyncio
import threading
from typing import List

import pytest
from aio_support import in_a_thread, until

from kvo_hws import AlreadyRunning, EmbeddedEvent, EmbeddedEvents, EventsEnded, Simulator, aio


def test_embedded_events_arrive_in_the_loop(simulator: Simulator) -> None:
    async def main() -> None:
        async with aio.EmbeddedEvents() as events:
            with pytest.raises(AlreadyRunning):
                await in_a_thread(EmbeddedEvents().start)
            with pytest.raises(AlreadyRunning):
                await aio.EmbeddedEvents().start()
            await in_a_thread(simulator.wait_for_listeners)
            waiting = asyncio.ensure_future(events.get())
            await asyncio.sleep(0)
            await in_a_thread(simulator.publish, "key", "F1")
            await in_a_thread(simulator.publish, "screen", "Übersicht, 2")
            assert await asyncio.wait_for(waiting, 20) == EmbeddedEvent("key", "F1")
            async for event in events:
                assert event == EmbeddedEvent("screen", "Übersicht, 2")
                break
        assert [event async for event in events] == []

    asyncio.run(main())


def test_a_loop_over_embedded_events_ends_when_they_are_closed(simulator: Simulator) -> None:
    async def main() -> None:
        events = aio.EmbeddedEvents()
        await events.start()
        await in_a_thread(simulator.wait_for_listeners)
        waiting = asyncio.ensure_future(events.get())
        await asyncio.sleep(0)
        await events.aclose()
        with pytest.raises(EventsEnded):
            await asyncio.wait_for(waiting, 20)

    asyncio.run(main())


@pytest.mark.parametrize("coroutine", [False, True], ids=["function", "coroutine"])
def test_embedded_events_are_passed_to_the_callback_in_the_loop(coroutine: bool, simulator: Simulator) -> None:
    received: List[object] = []

    def function(event: EmbeddedEvent) -> None:
        received.append((event.data, threading.get_ident()))
        if event.data == "F3":
            raise LookupError(event.data)

    async def coroutine_function(event: EmbeddedEvent) -> None:
        await asyncio.sleep(0)
        function(event)

    async def main() -> None:
        with pytest.raises(LookupError, match="F3"):
            async with aio.EmbeddedEvents(coroutine_function if coroutine else function):
                await in_a_thread(simulator.wait_for_listeners)
                for key in ("F1", "F2", "F3"):
                    await in_a_thread(simulator.publish, "key", key)
                await until(lambda: len(received) == 3)

    asyncio.run(main())
    assert received == [(key, threading.get_ident()) for key in ("F1", "F2", "F3")]
