"""A test bench that is recorded and then run again while the recording is replayed. It prints everything that it gets."""

from __future__ import annotations

import inspect
from typing import Any

from kvo_hws import (
    Calibration,
    DebugLevel,
    EmbeddedEvents,
    HandheldMode,
    KvoError,
    Metric,
    Panel,
    Service,
    UsbEvents,
)


def show(what: str, ask: Any) -> None:
    try:
        print(what, "->", ask())
    except KvoError as error:
        print(what, "->", repr(error))


def read_everything(of: Any) -> None:
    """Calls all methods that read something and need no arguments."""
    for name, method in inspect.getmembers(of, inspect.ismethod):
        parameters = inspect.signature(method).parameters.values()
        if name.startswith(("get_", "is_", "count_", "describe")) and all(
            one.default is not inspect.Parameter.empty for one in parameters
        ):
            show(f"{of}.{name}" if isinstance(of, Panel) else name, method)


def change(service: Service, panel: Panel) -> None:
    service.set_debug_level(DebugLevel(1))
    service.set_backlight(True)
    panel.set_channel_info("tool change at 14:00")
    panel.set_backlight_brightness(20)
    panel.set_mcp_address(77)
    panel.set_statusline("running", 1, 2)
    show("viewer", lambda: panel.start_viewer("nc1", "3"))
    show("handheld mode", lambda: panel.set_handheld_mode(HandheldMode(0)))
    show("calibration", lambda: panel.set_calibration(Calibration(10, 0)))
    show("by address", lambda: service.find_by_mcp_address(77))
    show("by name", lambda: service.find_station(name="Lathe 1"))
    show("focus", panel.activate)
    for metric in Metric:
        show(str(metric), lambda metric=metric: panel.get_metric(metric))


def main() -> None:
    service = Service()
    read_everything(service)
    stations = service.get_stations()
    for station in stations:
        read_everything(Panel(station.address))
    change(service, Panel(stations[0].address))
    read_everything(Panel(stations[0].address))
    show("no such station", Panel("10.9.9.9").get_mcp_address)
    with UsbEvents() as usb, EmbeddedEvents() as embedded:
        print("listening", flush=True)
        for _ in range(4):
            print(usb.get(timeout=20))
        for _ in range(2):
            print(embedded.get(timeout=20))


if __name__ == "__main__":
    main()
