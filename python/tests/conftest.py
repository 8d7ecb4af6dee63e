"""Fixtures: a private folder for the library's sockets, and a simulated plant in it."""

from __future__ import annotations

import time
from pathlib import Path
from typing import Callable, Iterator, List

import pytest

from kvo_hws import Simulator, _library, enter_private_namespace

ROOT = Path(__file__).resolve().parents[2]

PLANT = """
[service]
version = "V04.07.01.12"

[[client]]
name = "Halle 3 – Prüfstand"
value = 18

[[registry.previous]]
address = "10.0.0.9"
name = "Old lathe"
attr1 = 1
attr2 = 2
attr3 = 3

[[station]]
address = "10.0.0.5"
name = "Fräszentrum 1"
attr1 = 1024
attr2 = 768
attr3 = 16
ext = [1, 2, 3, 4, 5, 6, 0xFFFFFFFF]

[[station]]
address = "10.0.0.6"
name = "Lathe 1"
attr1 = 640
attr2 = 480
attr3 = 8
"""


def wait_for(condition: Callable[[], bool], seconds: float = 20) -> None:
    """Waits until the condition is true. Fails if it is not true in time."""
    until = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < until, "the condition did not become true in time"
        time.sleep(0.01)


def pytest_configure(config: pytest.Config) -> None:
    """Enters the namespace before a test starts a thread."""
    enter_private_namespace()


@pytest.fixture(scope="module")
def plant() -> Iterator[Simulator]:
    """A plant with two stations, for all tests of a file."""
    with Simulator(plant_text=PLANT, remote=[3]) as simulator:
        yield simulator


@pytest.fixture
def simulator(plant: Simulator) -> Iterator[Simulator]:
    """The plant, running and without faults."""
    if not plant.running:
        plant.start()
    plant.clear_faults()
    yield plant


@pytest.fixture
def no_plant(plant: Simulator) -> None:
    """For tests that start a simulator of their own."""
    plant.stop()


@pytest.fixture
def calls(monkeypatch: pytest.MonkeyPatch) -> List[str]:
    """The names of the C functions that the test calls."""
    called: List[str] = []
    function = _library._function

    def recorded(name: str) -> object:
        called.append(name)
        return function(name)

    monkeypatch.setattr(_library, "_function", recorded)
    return called
