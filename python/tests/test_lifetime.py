"""How programs end while the library's threads still run callbacks, and what becomes of events and agents in their children."""

from __future__ import annotations

import subprocess
import sys
import threading
import time
from typing import Any, List

import pytest
from cases import HERE
from conftest import wait_for

from kvo_hws import EmbeddedEvents, EventTimeout, NoThread, Service, Simulator, UsbEvent, UsbEventCode, UsbEvents
from kvo_hws._events import EventSource, Inbox

# A callback that still runs when the program has come to its end, and an interpreter that takes its time to end.
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


def bring(what: str, simulator: Simulator) -> None:
    if what == "usb":
        wait_for(Service().is_usb_events_activated)
        simulator.refuse_usb(HERE)
    elif what == "embedded":
        simulator.wait_for_listeners()
        simulator.publish("key", "F1")
    else:
        simulator.wait_for_agent(3)
        assert simulator.ask_agent(3, "stop-viewer") == "ok"


@pytest.mark.parametrize("end", ["", "source.close()"], ids=["left_open", "closed"])
@pytest.mark.parametrize("what", SOURCES)
def test_a_program_that_ends_waits_for_callbacks_that_run(what: str, end: str, simulator: Simulator) -> None:
    program = BUSY.format(source=SOURCES[what], end=end)
    with subprocess.Popen(
        [sys.executable, "-c", program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as ended:
        assert ended.stdin is not None and ended.stdout is not None
        asker = threading.Thread(target=bring, args=(what, simulator))
        asker.start()
        assert ended.stdout.readline() == "begun\n"
        output, errors = ended.communicate("\n", timeout=60)
        asker.join()
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


def test_a_close_that_is_interrupted_is_ended_before_the_program(simulator: Simulator) -> None:
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


def test_a_child_that_was_forked_and_ends_leaves_its_parents_events_alone(simulator: Simulator) -> None:
    # Python 3.12 and later warn of the lock that another thread may hold in the child; this child touches none.
    quiet = ["-W", "ignore:This process:DeprecationWarning"]
    with subprocess.Popen(
        [sys.executable, *quiet, "-c", FORKED], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as parent:
        assert parent.stdout is not None
        assert parent.stdout.readline() == "5 True True\n"
        assert Service().is_usb_events_activated()
        simulator.wait_for_listeners()
        simulator.wait_for_agent(3)
        assert simulator.refuse_usb(HERE, ident2="hub").delivered
        assert simulator.publish("key", "F7") == 1
        assert parent.communicate("\n", timeout=60) == ("hub F7\n", "")
    assert parent.returncode == 0


def test_events_can_be_started_while_the_last_ones_are_still_ending(simulator: Simulator) -> None:
    def on_event(event: UsbEvent) -> None:
        first.close()

    first = UsbEvents(on_event)
    first.start()
    simulator.add_fault("delay", "deactivateUSBEvents", times=1, delay_ms=800)
    simulator.refuse_usb(HERE)
    assert list(first) == []
    with UsbEvents() as second:
        assert first.end == UsbEventCode.DEACTIVATED
        assert second.active and second.end is None
        assert simulator.refuse_usb(HERE, ident2="hub").delivered
        assert second.get(timeout=20).ident2 == "hub"
    assert not Service().is_usb_events_activated()


def test_events_that_were_never_started_do_not_come() -> None:
    sources: List[EventSource[Any]] = [UsbEvents(), EmbeddedEvents()]
    for source in sources:
        with pytest.raises(RuntimeError, match="once they are started"):
            source.get()
        with pytest.raises(RuntimeError):
            next(iter(source))


def test_what_a_callback_raised_goes_to_one_of_those_who_wait(monkeypatch: pytest.MonkeyPatch) -> None:
    inbox: Inbox[int] = Inbox("numbers")
    raise_failure = inbox.raise_failure
    came: List[object] = []

    def raise_later() -> None:
        time.sleep(0.1)
        raise_failure()

    def take() -> None:
        try:
            came.append(inbox.get(None))
        except Exception as failure:
            came.append(type(failure))

    monkeypatch.setattr(inbox, "raise_failure", raise_later)
    takers = [threading.Thread(target=take) for _ in range(2)]
    for taker in takers:
        taker.start()
    time.sleep(0.1)
    inbox.fail(LookupError())
    wait_for(lambda: LookupError in came)
    inbox.put(7)
    for taker in takers:
        taker.join()
    assert came == [LookupError, 7]


def test_events_that_come_without_end_do_not_prolong_the_time(simulator: Simulator) -> None:
    stop = threading.Event()
    with UsbEvents() as events:
        event = UsbEvent(HERE, "hub", "1-1")

        def storm() -> None:
            while not stop.wait(0.001):
                events._inbox.put(event)

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


def test_an_agent_that_got_no_thread_can_be_started_again(simulator: Simulator) -> None:
    ended = subprocess.run([sys.executable, "-c", NO_THREAD], capture_output=True, text=True, timeout=60)
    assert (ended.stdout, ended.stderr) == (f"{NoThread.__name__}\nTrue\n", "")
