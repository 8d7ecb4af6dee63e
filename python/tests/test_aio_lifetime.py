"""How programs with an event loop end while requests and callbacks run, and what happens in child processes."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
from pathlib import Path

import pytest
from aio_support import QUIET, run_program
from cases import MILL_IP

from kvo_hws import Service, Simulator

SILENT = """
import asyncio, time
from kvo_hws import Panel, aio
panel = Panel("10.0.0.5")

async def main():
    async with aio.Requests() as requests:
        request = requests.ask({request}, timeout=60)
        await asyncio.sleep(0.2)
        requests.ask(panel.set_mcp_address, 78)
        print("busy", requests.busy, flush=True)

asyncio.run(main())
"""


@pytest.mark.parametrize("request_text", ["panel.get_mcp_address", "time.sleep, 3600"])
def test_a_program_ends_while_a_request_is_in_progress(request_text: str, simulator: Simulator) -> None:
    simulator.set_station(MILL_IP, mcp_address=3)
    simulator.add_fault("silent", "getMCPAddress", times=1)
    ended = run_program(SILENT.format(request=request_text))
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, "busy True\n", "")
    assert simulator.station(MILL_IP)["mcp_address"] == 3


INTERRUPTED = """
import asyncio, time
from kvo_hws import aio

def block():
    print("busy", flush=True)
    time.sleep(3600)

async def main():
    async with aio.Requests() as requests:
        await requests.ask(block, timeout=60)

asyncio.run(main())
"""


def test_a_program_that_waits_for_a_request_can_be_interrupted() -> None:
    with subprocess.Popen(
        [sys.executable, "-c", INTERRUPTED], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as program:
        assert program.stdout is not None
        assert program.stdout.readline() == "busy\n"
        program.send_signal(signal.SIGINT)
        _, errors = program.communicate(timeout=60)
    assert program.returncode == -signal.SIGINT and errors.endswith("KeyboardInterrupt\n")


WAITING = """
import atexit, threading
release = threading.Event()

def at_the_very_end():  # registered before those of the package, so that it runs after them
    release.set()
    requests._worker.thread.join(20)
    print(requests._worker.thread.is_alive())

atexit.register(at_the_very_end)
import asyncio
from kvo_hws import Panel, aio
requests = aio.Requests()

async def ask():
    requests.ask(release.wait, timeout=60)
    requests.ask(Panel("10.0.0.5").set_mcp_address, 79, timeout=60)

loop = asyncio.new_event_loop()
loop.run_until_complete(ask())
"""


def test_requests_that_wait_when_the_program_ends_are_not_sent(simulator: Simulator) -> None:
    simulator.set_station(MILL_IP, mcp_address=3)
    ended = run_program(WAITING)
    assert (ended.returncode, ended.stdout) == (0, "False\n")
    assert simulator.station(MILL_IP)["mcp_address"] == 3


FORKED_REQUESTS = """
import asyncio, atexit, os, threading
from kvo_hws import Panel, aio

def hold(lock, held, release):
    with lock:
        held.set()
        release.wait()

async def ask(function, *arguments):
    return await requests.ask(function, *arguments)

panel = Panel("10.0.0.5")
requests = aio.Requests()
loop = asyncio.new_event_loop()
loop.run_until_complete(ask(panel.set_mcp_address, 5))
held, release = threading.Event(), threading.Event()
holder = threading.Thread(target=hold, args=(requests._worker.changed, held, release))
holder.start()
held.wait()
child = os.fork()
if child == 0:
    # Without the end of the interpreter: it would close the loop, whose selector the child shares with its parent.
    atexit._run_exitfuncs()
    os._exit(5)
release.set()
holder.join()
print(os.waitpid(child, 0)[1] >> 8, loop.run_until_complete(ask(panel.get_mcp_address)))
requests.close()
"""


def test_the_end_of_a_forked_child_does_not_affect_the_requests_of_its_parent(simulator: Simulator) -> None:
    ended = run_program(FORKED_REQUESTS)
    assert (ended.returncode, ended.stdout, ended.stderr) == (0, "5 5\n", "")


OPEN_EVENTS = """
import asyncio, threading
from test_usb_events import reply_to_an_event
from kvo_hws import aio

async def on_event(event):
    begun.set()
    await asyncio.sleep(3600)

async def start():
    await usb.start()
    await embedded.start()
    {last}

begun = threading.Event()
usb, embedded = aio.UsbEvents(on_event), aio.EmbeddedEvents(print)
loop = asyncio.new_event_loop()
loop.run_until_complete(start())
{end}
print("left open")
"""
BUSY_CALLBACK = """threading.Thread(target=reply_to_an_event, daemon=True).start()
    await loop.run_in_executor(None, begun.wait)"""


@pytest.mark.parametrize("last", ["pass", BUSY_CALLBACK], ids=["idle", "busy"])
@pytest.mark.parametrize("end", ["", "loop.close()"], ids=["stopped", "closed"])
def test_a_program_with_open_events_ends_normally(
    end: str, last: str, simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setenv("PYTHONPATH", str(Path(__file__).parent), prepend=os.pathsep)
    ended = run_program(OPEN_EVENTS.format(last=last, end=end))
    assert (ended.returncode, ended.stdout) == (0, "left open\n"), ended.stderr
    assert "FATAL" not in ended.stderr and "Traceback" not in ended.stderr
    assert not Service().is_usb_events_activated()


FORKED_EVENTS = """
import asyncio, atexit, os, threading
from kvo_hws import aio

async def start():
    await usb.start()
    await embedded.start()

async def finish():
    print((await usb.get(20)).ident2, (await embedded.get(20)).data)
    await usb.aclose()
    await embedded.aclose()

usb, embedded = aio.UsbEvents(), aio.EmbeddedEvents()
loop = asyncio.new_event_loop()
loop.run_until_complete(start())
answer = aio._Answer(None)
holder = threading.Thread(target=answer._changed.acquire)  # as if it were just beginning to wait for the answer
holder.start()
holder.join()
usb._queued.add(answer)
usb._step.acquire()
child = os.fork()
if child == 0:
    asyncio.run(usb.aclose())
    # Without the end of the interpreter: it would close the loop, whose selector the child shares with its parent.
    atexit._run_exitfuncs()
    os._exit(5)
usb._queued.discard(answer)
usb._step.release()
print(os.waitpid(child, 0)[1] >> 8, usb.active, flush=True)
input()
loop.run_until_complete(finish())
"""


def test_the_end_of_a_forked_child_does_not_affect_the_events_of_its_parent(simulator: Simulator) -> None:
    with subprocess.Popen(
        [sys.executable, *QUIET, "-c", FORKED_EVENTS], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as parent:
        assert parent.stdout is not None
        assert parent.stdout.readline() == "5 True\n"
        simulator.wait_for_listeners()
        assert simulator.refuse_usb(MILL_IP, ident2="hub").delivered
        assert simulator.publish("key", "F7") == 1
        assert parent.communicate("\n", timeout=60) == ("hub F7\n", "")
    assert parent.returncode == 0
