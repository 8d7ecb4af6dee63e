"""The cases of test_requests.py: at least one for every request, with the station before, the result, and the station after."""

from __future__ import annotations

from ipaddress import IPv4Address
from typing import Any, Dict, NamedTuple, Tuple

from kvo_hws import (
    Calibration,
    Client,
    CurrentServer,
    DebugLevel,
    HandheldMode,
    InputDevices,
    Metric,
    Panel,
    Priority,
    Service,
    Station,
    StationEx,
    UsbLock,
)

MILL_IP = "10.0.0.5"
MILL = Station(IPv4Address(MILL_IP), "Fräszentrum 1", 1024, 768, 16)
LATHE = Station(IPv4Address("10.0.0.6"), "Lathe 1", 640, 480, 8)
MILL_EX = StationEx(IPv4Address(MILL_IP), "Fräszentrum 1", 1024, 768, 16, (1, 2, 3, 4, 5, 6, 0xFFFFFFFF))
LATHE_EX = StationEx(IPv4Address("10.0.0.6"), "Lathe 1", 640, 480, 8, (0, 0, 0, 0, 0, 0, 0))


class Case(NamedTuple):
    """One call of a method. ``before`` and ``after`` are keys of the station in the plant."""

    target: Any
    method: str
    arguments: Tuple[Any, ...]
    result: Any
    before: Dict[str, Any] = {}
    after: Dict[str, Any] = {}

    def call(self) -> Any:
        return getattr(self.target, self.method)(*self.arguments)

    def __str__(self) -> str:
        return f"{type(self.target).__name__}.{self.method}"


def reads(method: str, before: Dict[str, Any], result: Any, *arguments: Any) -> Case:
    return Case(Panel(MILL_IP), method, arguments, result, before=before)


def writes(method: str, arguments: Tuple[Any, ...], after: Dict[str, Any], result: Any = None, **before: Any) -> Case:
    return Case(Panel(MILL_IP), method, arguments, result, before=before, after=after)


def service_returns(method: str, result: Any, *arguments: Any, **before: Any) -> Case:
    return Case(Service(), method, arguments, result, before=before)


CASES = [
    # The service.
    service_returns("is_ready", True),
    service_returns("get_version", "V04.07.01.12"),
    service_returns("set_debug_level", None, DebugLevel.LEVEL_2),
    service_returns("get_debug_level", DebugLevel.LEVEL_2),
    service_returns("set_debug_level", None, DebugLevel.NONE),
    service_returns("get_debug_level", DebugLevel.NONE),
    service_returns("set_backlight", None, True),
    service_returns("lock_registry", True),
    service_returns("lock_registry", False),
    service_returns("unlock_registry", None),
    service_returns("get_stations", [MILL, LATHE]),
    service_returns("get_stations_ex", [MILL_EX, LATHE_EX]),
    service_returns("find_station", MILL_EX, MILL_IP),
    service_returns("find_station", LATHE_EX, None, "Lathe 1"),
    service_returns("find_station", MILL_EX, None, "Fräszentrum 1"),
    service_returns("find_station", None, "10.9.9.9"),
    service_returns("get_current_stations", [MILL, LATHE]),
    service_returns("get_previous_stations", [Station(IPv4Address("10.0.0.9"), "Old lathe", 1, 2, 3)]),
    service_returns("get_clients", [Client(18, "Halle 3 – Prüfstand")]),
    service_returns("find_by_mcp_address", MILL.address, 17, mcp_address=17),
    service_returns("find_by_mcp_address", None, 18, mcp_address=17),
    service_returns("find_by_dck_address", MILL.address, 21, dck_address=21),
    service_returns("find_by_dck_address", None, 22, dck_address=21),
    service_returns("find_by_kvo_index", MILL.address, 9, kvo_index=9),
    service_returns("find_by_kvo_index", None, 10, kvo_index=9),
    service_returns("get_usb_connectors", "10.0.0.5 X60:keyboard X61:free", usb_connectors="X60:keyboard X61:free"),
    service_returns("get_usb_connectors", "", usb_connectors=""),
    service_returns("is_usb_events_activated", False),
    # The viewer.
    writes(
        "set_statusline",
        ("Programm läuft", 3, 4),
        {"status_line": "Programm läuft", "status_value1": 3, "status_value2": 4},
    ),
    writes("reboot", (), {}, reboot_time_ms=0),
    writes("activate", (), {}, True, focus_busy=0),
    writes("activate", (), {}, False, focus_busy=1),
    reads("is_viewer_active", {"viewer": "nc:1"}, True),
    reads("is_viewer_active", {"viewer": ""}, False),
    reads("get_current_server", {"viewer": "nc-hall1:3"}, CurrentServer("nc-hall1", "3")),
    reads("get_current_server", {"viewer": ""}, None),
    writes("start_viewer", ("10.0.0.7", "3", "x"), {"viewer": "10.0.0.7:3"}, True, viewer_busy=0, viewer=""),
    writes("start_viewer", ("10.0.0.7", "3"), {"viewer": ""}, False, viewer_busy=1, viewer=""),
    writes("start_configured_viewer", ("nc", 2), {"viewer": "nc:2"}, True, viewer_busy=0, viewer=""),
    writes("start_configured_viewer", ("nc", 2), {"viewer": ""}, False, viewer_busy=1, viewer=""),
    writes("stop_viewer", (), {"viewer": ""}, True, viewer="nc:1"),
    writes("stop_viewer", (), {"viewer": ""}, False, viewer=""),
    writes("stop_viewer_preempt", (), {"viewer": ""}, True, viewer="nc:1"),
    writes("stop_viewer_preempt", (), {"viewer": ""}, False, viewer=""),
    writes("stop_viewer_no_clean", (), {"viewer": ""}, True, viewer="nc:1"),
    writes("stop_viewer_no_clean", (), {"viewer": ""}, False, viewer=""),
    # Settings.
    writes("set_brightness", (False,), {"brightness": 0}),
    writes("set_brightness", (True,), {"brightness": 1}),
    writes("set_backlight_brightness", (20,), {"backlight_brightness": 20}),
    writes("set_backlight_brightness", (30, 1), {"backlight_brightness_mode1": 30}, backlight_modes=2, backlight=1),
    reads("get_backlight_brightness", {"backlight_brightness": 41, "backlight_brightness_mode1": 42}, 41),
    reads("get_backlight_brightness", {"backlight_brightness_mode1": 42}, 42, 1),
    reads("get_backlight_brightness", {"backlight_modes": 1}, None, 1),
    writes("set_disable_num_lock", (True,), {"disable_num_lock": 1}),
    reads("get_disable_num_lock", {"disable_num_lock": 1}, True),
    reads("get_disable_num_lock", {"disable_num_lock": 0}, False),
    writes("set_disable_caps_lock", (True,), {"disable_caps_lock": 1}),
    reads("get_disable_caps_lock", {"disable_caps_lock": 1}, True),
    reads("get_disable_caps_lock", {"disable_caps_lock": 0}, False),
    writes("set_sw_caps_lock", (-1,), {"sw_caps_lock": -1}),
    reads("get_sw_caps_lock", {"sw_caps_lock": -1}, -1),
    reads("get_station_type", {"station_type": -1}, -1),
    reads("get_station_type", {"station_type": 1}, 1),
    writes("set_handheld_mode", (HandheldMode.INDIVIDUAL,), {"rv4_mode": 1}, True, handheld=1),
    writes("set_handheld_mode", (HandheldMode.AUTO,), {}, False, handheld=0),
    reads("get_handheld_mode", {"handheld": 1, "rv4_mode": 1}, HandheldMode.INDIVIDUAL),
    reads("get_handheld_mode", {"handheld": 0}, None),
    # Addresses.
    writes("set_mcp_address", (33,), {"mcp_address": 33}),
    reads("get_mcp_address", {"mcp_address": 34}, 34),
    writes("set_kvo_index", (35,), {"kvo_index": 35}),
    reads("get_kvo_index", {"kvo_index": 36}, 36),
    writes("set_dck_enable", (True,), {"dck_enable": 1}, dck_enable=0),
    reads("get_dck_enable", {"dck_enable": 1}, True),
    reads("get_dck_enable", {"dck_enable": 0}, False),
    reads("get_dck_address", {"dck_address": 37}, 37),
    writes("set_cks_index", (38,), {"cks_index": 38}),
    reads("get_cks_index", {"cks_index": 0xFFFFFFFF}, 0xFFFFFFFF),
    writes("simulate_mcp_key", (5, 6), {"simulated_mcp_key": "5:6"}),
    writes("enable_mcp_key", (7, 8), {"enabled_mcp_key": "7:8"}),
    # Focus, start and channel information.
    reads("get_priority", {"priority": "1:7"}, Priority(1, 7)),
    reads("get_priority", {"priority": ""}, Priority(0, 1)),
    reads("get_startup_active", {"startup_active": 2}, 2),
    reads("get_startup_prio", {"startup_prio": 1234567}, 1234567),
    reads("get_channel_on_focus", {"channel_on_focus": 8}, 8),
    reads("get_screen_on_focus", {"screen_on_focus": "Maschine übersicht"}, "Maschine übersicht"),
    reads("get_t2m2n", {"t2m2n": "T1 M1 N1"}, "T1 M1 N1"),
    writes("set_channel_info", ("x" * 230,), {"channel_info": "x" * 230}),
    reads("get_channel_info", {"channel_info": "Kanal 1: Fräsen"}, "Kanal 1: Fräsen"),
    reads("get_channel_info", {"channel_info": ""}, None),
    writes("delete_channel_info", (), {"channel_info": ""}, channel_info="note"),
    # Touch screen, input devices and display.
    writes("set_calibration", (Calibration(40, 1),), {"press_thresh": 40, "nonlinear": 1}, True, touch=1),
    writes("set_calibration", (Calibration(40, 1),), {}, False, touch=0, multitouch=0),
    reads("get_calibration", {"touch": 1, "press_thresh": 41, "nonlinear": -1}, Calibration(41, -1)),
    reads("get_calibration", {"touch": 0, "multitouch": 0}, None),
    writes("invalidate_touch_screen", (), {"press_thresh": -1, "nonlinear": -1}, True, touch=1, press_thresh=5),
    writes("invalidate_touch_screen", (), {}, False, touch=0, multitouch=0),
    reads(
        "get_input_devices",
        {"kbd": 1, "mouse": 2, "touch": 3, "multitouch": 4, "maxcontacts": 5, "vkbd": 6},
        InputDevices(1, 2, 3, 4, 5, 6),
    ),
    reads(
        "get_input_devices",
        {"kbd": 1, "mouse": "none", "touch": 3, "multitouch": 0, "maxcontacts": "none", "vkbd": 0},
        InputDevices(1, None, 3, 0, None, 0),
    ),
    reads("count_input_devices", {"kbd": 1, "mouse": 2, "touch": 3, "multitouch": 4}, InputDevices(1, 2, 7)),
    reads("count_input_devices", {"kbd": 1, "mouse": "none", "touch": 3, "multitouch": 4}, InputDevices(1, None, 7)),
    reads(
        "count_input_devices_v2",
        {"kbd": 1, "mouse": 2, "touch": 3, "multitouch": 4, "vkbd": 5},
        InputDevices(1, 2, 7, virtual_keyboards=5),
    ),
    reads("get_dpi", {"dpi": 96}, 96),
    # USB.
    reads("get_usb_lock", {"usb_lock": "3:4294967295"}, UsbLock(3, 0xFFFFFFFF)),
    reads("get_usb_connectors", {"usb_connectors": "X60:keyboard"}, "X60:keyboard"),
    reads("get_usb_connectors", {"usb_connectors": ""}, ""),
    # Metrics, and the kind of panel.
    reads("get_metric", {"oem_layout": "OP15"}, "OP15", Metric.PANEL_LAYOUT),
    reads("get_metric", {"softkey_type": 16}, 16, Metric.SOFTKEY_TYPE),
    reads("get_metric", {"keyboard_caps": 0xFFFFFFFE}, 0xFFFFFFFE, Metric.KEYBOARD_CAPS),
    reads("get_metric", {"dpi": 120}, 120, Metric.DPI),
    reads("get_metric", {"hardware_caps": 11}, 11, Metric.HARDWARE_CAPS),
    reads("get_metric", {"panel_rotation": 4}, 4, Metric.PANEL_ROTATION),
    reads("is_marovanti", {"marovanti": 1}, True),
    reads("is_marovanti", {"marovanti": 0}, False),
    reads("describe", {}, MILL_EX),
]
