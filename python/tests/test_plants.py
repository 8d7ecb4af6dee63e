"""Requests to special plants: a service that starts or ends, and lists of many sizes."""

from __future__ import annotations

import pytest
from conftest import wait_for

from kvo_hws import NotConnected, Service, Simulator


def test_registry_lists_are_none_while_the_daemon_starts() -> None:
    text = '[service]\ninit_time_ms = 600000\n[[station]]\naddress = "10.0.0.5"\nname = "a"\n'
    with Simulator(plant_text=text):
        assert not Service().is_ready()
        assert Service().get_current_stations() is None


@pytest.mark.parametrize("count", [0, 63, 64, 65, 1000])
def test_lists_of_any_size_are_read(count: int) -> None:
    with Simulator(stations=count):
        stations = Service().get_stations()
        assert len(stations) == count == len(Service().get_stations_ex())
        assert len({station.address for station in stations}) == count
        in_registry = Service().get_current_stations()
        assert in_registry is not None and len(in_registry) == len([one for one in stations if one.attr1])


def test_kill_ends_the_service() -> None:
    with Simulator(stations=1) as own:
        Service().kill()
        wait_for(lambda: not own.running)
        with pytest.raises(NotConnected):
            Service().kill()
