#!/usr/bin/env python3
"""A panel program with an event loop: it draws on while the service is silent, sets a value, and shows a USB stick.

    python3 python/examples/panel_aio.py examples/plant.toml
"""

from __future__ import annotations

import asyncio
import sys
from typing import Optional

from kvo_hws import Panel, Service, Simulator, UsbDeviceArrived, aio


async def show(panel: Panel, simulator: Simulator) -> None:
    loop = asyncio.get_running_loop()
    async with aio.Requests() as requests, aio.UsbEvents() as events:
        for station in (await requests.ask(Service().get_stations))[:3]:
            print(station.address, station.name)

        await requests.ask(panel.set_mcp_address, 17)
        print("MCP address:", await requests.ask(panel.get_mcp_address, timeout=2))

        # For the simulator's commands: the program kvosim runs on another thread.
        await loop.run_in_executor(None, lambda: simulator.plug_usb(panel, ident2="stick", text7="Memory stick"))
        event = await events.get(timeout=10)
        assert isinstance(event, UsbDeviceArrived)
        print("USB:", event.station, event.text7)

        await loop.run_in_executor(None, lambda: simulator.add_fault("silent", "getMCPAddress", times=1))
        frames = 0
        silent = requests.ask(panel.get_mcp_address, timeout=1)
        while not silent.done():
            frames += 1  # draws the window
            await asyncio.sleep(0.02)
        try:
            await silent
        except aio.RequestTimeout as timeout:
            print("silent:", timeout)
        print("drawn meanwhile:", frames > 1)


def main(plant: Optional[str] = None) -> None:
    with Simulator(plant=plant) as simulator:
        asyncio.run(show(Panel("10.0.0.5"), simulator))


if __name__ == "__main__":
    main(*sys.argv[1:2])
