"""How programs end while callbacks still run, and what happens to events and agents in child processes."""

from __future__ import annotations

import subprocess
import sys
import threading
import time
from typing import Any, List

import pytest
from cases import MILL_IP
from conftest import wait_for

from kvo_hws import EmbeddedEvents, EventTimeout, NoThread, Service, Simulator, UsbEvent, UsbEventCode, UsbEvents
from kvo_hws._events import EventQueue, EventSource

# The callback still runs when the program ends, and the interpreter takes some time to end.
BUSY = """
import sys, time
from kvo_hws import Agent, EmbeddedEvents, UsbEvents

class Late:
    def __del__(self, sleep=time.sleep):
        sleep(0.2)

def on_event(event):
    print("begun", flush=True)
    until = time.monotonic() + 1.5
    while time.monotonic() < until:
        time.sleep(0.001)
    print("done", flush=True)
    return True

late = Late()
source = {source}
source.start()
input()
{end}
"""
SOURCES = {
    "usb": "UsbEvents(on_event)",
    "embedded": "EmbeddedEvents(on_event)",
    "agent": 'Agent("10.0.0.5", session=3, on_command=on_event)',
}


def trigger(source: str, simulator: Simulator) -> None:
    if source == "usb":
        wait_for(Service().is_usb_events_activated)
        simulator.refuse_usb(MILL_IP)
    elif source == "embedded":
        simulator.wait_for_listeners()
        simulator.publish("key", "F1")
    else:
        simulator.wait_for_agent(3)
        assert simulator.ask_agent(3, "stop-viewer") == "ok"


@pytest.mark.parametrize("end", ["", "source.close()"], ids=["left_open", "closed"])
@pytest.mark.parametrize("source", SOURCES)
def test_the_end_of_a_program_waits_for_running_callbacks(source: str, end: str, simulator: Simulator) -> None:
    program = BUSY.format(source=SOURCES[source], end=end)
    with subprocess.Popen(
        [sys.executable, "-c", program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as ended:
        assert ended.stdin is not None and ended.stdout is not None
        requester = threading.Thread(target=trigger, args=(source, simulator))
        requester.start()
        assert ended.stdout.readline() == "begun\n"
        output, errors = ended.communicate("\n", timeout=60)
        requester.join()
    assert (ended.returncode, output, errors) == (0, "done\n", "")


INTERRUPTED = """
import os, signal, threading, time
from kvo_hws import UsbEvents

class Late:
    def __del__(self, sleep=time.sleep):
        sleep(2.5)

def interrupt_twice():
    for _ in range(2):
        time.sleep(0.4)
        os.kill(os.getpid(), signal.SIGINT)

late = Late()
with UsbEvents() as events:
    threading.Thread(target=interrupt_twice, daemon=True).start()
    events.get()
"""


def test_an_interrupted_close_completes_before_the_program_ends(simulator: Simulator) -> None:
    ended = subprocess.run([sys.executable, "-c", INTERRUPTED], stderr=subprocess.PIPE, text=True, timeout=60)
    assert "FATAL" not in ended.stderr and ended.stderr.endswith("KeyboardInterrupt\n")
    assert ended.returncode == -2 and not Service().is_usb_events_activated()


FORKED = """
import os, sys
from kvo_hws import Agent, EmbeddedEvents, UsbEvents
with UsbEvents() as usb, EmbeddedEvents() as embedded, Agent("10.0.0.5", session=3) as agent:
    child = os.fork()
    if child == 0:
        sys.exit(5)
    print(os.waitpid(child, 0)[1] >> 8, usb.active, agent.running, flush=True)
    input()
    print(usb.get(10).ident2, embedded.get(10).data)
"""


def test_the_end_of_a_forked_child_does_not_affect_the_events_of_its_parent(simulator: Simulator) -> None:
    # Python 3.12 and later warn that another thread may hold a lock in the child. This child uses no lock.
    quiet = ["-W", "ignore:This process:DeprecationWarning"]
    with subprocess.Popen(
        [sys.executable, *quiet, "-c", FORKED], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as parent:
        assert parent.stdout is not None
        assert parent.stdout.readline() == "5 True True\n"
        assert Service().is_usb_events_activated()
        simulator.wait_for_listeners()
        simulator.wait_for_agent(3)
        assert simulator.refuse_usb(MILL_IP, ident2="hub").delivered
        assert simulator.publish("key", "F7") == 1
        assert parent.communicate("\n", timeout=60) == ("hub F7\n", "")
    assert parent.returncode == 0


def test_events_can_be_started_while_the_previous_ones_still_end(simulator: Simulator) -> None:
    def on_event(event: UsbEvent) -> None:
        first.close()

    first = UsbEvents(on_event)
    first.start()
    simulator.add_fault("delay", "deactivateUSBEvents", times=1, delay_ms=800)
    simulator.refuse_usb(MILL_IP)
    assert list(first) == []
    with UsbEvents() as second:
        assert first.end == UsbEventCode.DEACTIVATED
        assert second.active and second.end is None
        assert simulator.refuse_usb(MILL_IP, ident2="hub").delivered
        assert second.get(timeout=20).ident2 == "hub"
    assert not Service().is_usb_events_activated()


def test_events_that_were_never_started_raise_an_error() -> None:
    sources: List[EventSource[Any]] = [UsbEvents(), EmbeddedEvents()]
    for source in sources:
        with pytest.raises(RuntimeError, match="are not started"):
            source.get()
        with pytest.raises(RuntimeError):
            next(iter(source))


def test_only_one_waiting_thread_gets_the_exception_of_a_callback(monkeypatch: pytest.MonkeyPatch) -> None:
    queue: EventQueue[int] = EventQueue("numbers")
    raise_pending = queue.raise_pending
    results: List[object] = []

    def raise_later() -> None:
        time.sleep(0.1)
        raise_pending()

    def take() -> None:
        try:
            results.append(queue.get(None))
        except Exception as failure:
            results.append(type(failure))

    monkeypatch.setattr(queue, "raise_pending", raise_later)
    takers = [threading.Thread(target=take) for _ in range(2)]
    for taker in takers:
        taker.start()
    time.sleep(0.1)
    queue.record(LookupError())
    wait_for(lambda: LookupError in results)
    queue.put(7)
    for taker in takers:
        taker.join()
    assert results == [LookupError, 7]


def test_continuous_events_do_not_extend_the_time_limit(simulator: Simulator) -> None:
    stop = threading.Event()
    with UsbEvents() as events:
        event = UsbEvent(MILL_IP, "hub", "1-1")

        def storm() -> None:
            while not stop.wait(0.001):
                events._queue.put(event)

        thread = threading.Thread(target=storm)
        thread.start()
        started = time.monotonic()
        try:
            for number, _ in enumerate(events.within(0.2)):
                time.sleep(0.002)
                assert number < 1000
        finally:
            stop.set()
            thread.join()
        assert time.monotonic() - started < 10
        with pytest.raises(EventTimeout):
            while True:
                events.get(0)


NO_THREAD = """
import resource
from kvo_hws import Agent, NoThread, Service
Service().is_ready()
agent = Agent("10.0.0.5", session=3)
with open("/proc/self/statm") as sizes:
    used = int(sizes.read().split()[0]) * resource.getpagesize()
resource.setrlimit(resource.RLIMIT_AS, (used + (1 << 20), resource.RLIM_INFINITY))
try:
    agent.start()
except NoThread as error:
    print(type(error).__name__)
resource.setrlimit(resource.RLIMIT_AS, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
with agent:
    print(agent.running)
"""


def test_an_agent_that_failed_to_get_a_thread_can_be_started_again(simulator: Simulator) -> None:
    ended = subprocess.run([sys.executable, "-c", NO_THREAD], capture_output=True, text=True, timeout=60)
    assert (ended.stdout, ended.stderr) == (f"{NoThread.__name__}\nTrue\n", "")
