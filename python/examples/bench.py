#!/usr/bin/env python3
"""A test bench: a simulated plant, its stations, a USB stick that is plugged in, and a service that is restarted.

    python3 python/examples/bench.py examples/plant.toml
"""

from __future__ import annotations

import sys
from typing import Optional

from kvo_hws import NotConnected, Panel, Service, Simulator, UsbDeviceArrived, UsbEvents


def main(plant: Optional[str] = None) -> None:
    service = Service()
    with Simulator(plant=plant) as simulator:
        stations = service.get_stations()
        for station in stations:
            print(station.address, station.name)

        panel = Panel(stations[0].address)
        panel.set_channel_info("tool change at 14:00")
        print("note:", panel.get_channel_info())

        with UsbEvents() as events:
            simulator.plug_usb(panel, ident2="stick", text7="Memory stick")
            event = events.get(timeout=5)
            assert isinstance(event, UsbDeviceArrived)
            print("USB:", event.station, event.ident2, event.text7)

        simulator.stop()
        try:
            service.is_ready()
        except NotConnected as error:
            print("stopped:", error)
        simulator.start()
        print("restarted:", service.get_version(), "- note:", panel.get_channel_info())


if __name__ == "__main__":
    main(*sys.argv[1:2])
