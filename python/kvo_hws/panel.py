"""The requests that concern one station."""

from __future__ import annotations

import ctypes
from ipaddress import AddressValueError, IPv4Address
from typing import Literal, Optional, Tuple, Union, cast, overload

from ._library import call, call_bool, call_number, call_optional_number, call_void
from ._sized import decode, unsized_text, sized_text
from .records import (
    Address,
    Calibration,
    CurrentServer,
    HandheldMode,
    InputDevices,
    Metric,
    Priority,
    StationEx,
    UsbLock,
)
from .service import Service

SERVER_SIZE = 1025
"""Bytes of a server's name or of a display, including the terminator."""


class Panel:
    """A station, identified by its address.

    An object keeps only the address. Create as many objects as you like and use them from any thread. The station need not
    exist. Each method raises NotConnected if no service is running, and ServiceError if the service refuses, does not know the
    station, or sends an unknown reply. A method's docstring names its other exceptions. If a method changes something and
    returns a bool, True means that the change was made, and False that there was nothing to do or the station was busy.
    """

    def __init__(self, address: Address) -> None:
        try:
            self.address = IPv4Address(address)
            """The station's address."""
        except AddressValueError as error:
            raise AddressValueError(
                f"{address!r} is not an IPv4 address; Panel.named finds a station by its name"
            ) from error

    @classmethod
    def named(cls, name: str) -> Panel:
        """The station with this name. Asks the service; LookupError if it does not know the name."""
        station = Service().find_station(name=name)
        if station is None:
            raise LookupError(f"the service does not know a station named {name!r}")
        return cls(station.address)

    def __repr__(self) -> str:
        return f"Panel({str(self.address)!r})"

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Panel) and other.address == self.address

    def __hash__(self) -> int:
        return hash(self.address)

    def describe(self) -> Optional[StationEx]:
        """What the service knows about the station. None if it does not know the station. (KVO_HWS_getDescriptionEx)"""
        return Service().find_station(self.address)

    # ---- Viewer, status line, focus and reboot ----

    def set_statusline(self, text: str, value1: int = 0, value2: int = 0) -> None:
        """Sets the status line. The daemon defines the meaning of the two numbers. (KVO_HWS_setStatusline)"""
        call_void("KVO_HWS_setStatusline", self.address, value1, value2, text)

    def reboot(self) -> None:
        """Reboots the station. (KVO_HWS_rebootKVO)"""
        call_void("KVO_HWS_rebootKVO", self.address)

    def activate(self) -> bool:
        """Requests the focus for the station. False if it is busy. (KVO_HWS_setActivateMe)"""
        return call_bool("KVO_HWS_setActivateMe", self.address)

    def is_viewer_active(self) -> bool:
        """Whether the viewer is running. (KVO_HWS_isViewerActive)"""
        return call_bool("KVO_HWS_isViewerActive", self.address)

    def get_current_server(self) -> Optional[CurrentServer]:
        """The server that the viewer shows. None if it shows none. (KVO_HWS_getCurrentServer)"""
        server = ctypes.create_string_buffer(SERVER_SIZE)
        display = ctypes.create_string_buffer(SERVER_SIZE)
        sizes = [ctypes.c_uint32(SERVER_SIZE), ctypes.c_uint32(SERVER_SIZE)]
        shown = call_bool(
            "KVO_HWS_getCurrentServer", self.address, server, ctypes.byref(sizes[0]), display, ctypes.byref(sizes[1])
        )
        return CurrentServer(decode(server.value), decode(display.value)) if shown else None

    def start_viewer(self, part1: str, part2: str = "", part3: str = "") -> bool:
        """Starts the viewer with connection data, sent as "part1:part2:part3". False if it is busy.
        (KVO_HWS_setStartViewer)
        """
        return call_bool("KVO_HWS_setStartViewer", self.address, part1, part2, part3)

    def start_configured_viewer(self, text: str, number: int) -> bool:
        """Starts the viewer with a configured connection, sent as "text:number". False if it is busy.
        (KVO_HWS_startConfiguredViewer)
        """
        return call_bool("KVO_HWS_startConfiguredViewer", self.address, text, number)

    def stop_viewer(self) -> bool:
        """Stops the viewer. False if it is not running. (KVO_HWS_setStopViewer)"""
        return call_bool("KVO_HWS_setStopViewer", self.address)

    def stop_viewer_preempt(self) -> bool:
        """Stops the viewer ahead of other waiting requests. False if it is not running. (KVO_HWS_setStopViewerPreempt)"""
        return call_bool("KVO_HWS_setStopViewerPreempt", self.address)

    def stop_viewer_no_clean(self) -> bool:
        """Stops the viewer without cleaning up after it. False if it is not running. (KVO_HWS_setStopViewerNoClean)"""
        return call_bool("KVO_HWS_setStopViewerNoClean", self.address)

    # ---- Settings ----

    def set_brightness(self, bright: bool) -> None:
        """Switches the panel to bright or dark. (KVO_HWS_setBrightness)"""
        call_void("KVO_HWS_setBrightness", self.address, bright)

    def set_backlight_brightness(self, level: int, mode: Optional[int] = None) -> None:
        """Sets the backlight's brightness, 0 to 100 percent. OutOfRange for any other level.
        (KVO_HWS_setBacklightBrightness; with a mode, KVO_HWS_setBacklightBrightnessV2)

        ``mode`` is 0 or 1 and selects the mode to set. Raises OutOfRange for any other mode, Unsupported if the station does
        not know the mode, and NotActive if its backlight is not active.
        """
        if mode is None:
            call_void("KVO_HWS_setBacklightBrightness", self.address, level)
        else:
            call_void("KVO_HWS_setBacklightBrightnessV2", self.address, level, mode)

    def get_backlight_brightness(self, mode: int = 0) -> Optional[int]:
        """The backlight's brightness in mode 0 or 1, in percent. None if the station does not know the mode; OutOfRange for any
        other mode. (KVO_HWS_getBacklightBrightnessV2)
        """
        return call_optional_number("KVO_HWS_getBacklightBrightnessV2", self.address, mode)

    def set_disable_num_lock(self, disable: bool) -> None:
        """Disables or enables the NumLock key. (KVO_HWS_setDisableNumLock)"""
        call_void("KVO_HWS_setDisableNumLock", self.address, disable)

    def get_disable_num_lock(self) -> bool:
        """Whether the NumLock key is disabled. (KVO_HWS_getDisableNumLock)"""
        return call_number("KVO_HWS_getDisableNumLock", self.address) != 0

    def set_disable_caps_lock(self, disable: bool) -> None:
        """Disables or enables the CapsLock key. (KVO_HWS_setDisableCapsLock)"""
        call_void("KVO_HWS_setDisableCapsLock", self.address, disable)

    def get_disable_caps_lock(self) -> bool:
        """Whether the CapsLock key is disabled. (KVO_HWS_getDisableCapsLock)"""
        return call_number("KVO_HWS_getDisableCapsLock", self.address) != 0

    def set_sw_caps_lock(self, state: int) -> None:
        """Sets the software CapsLock state, -1, 0 or 1. ServiceError for any other state. (KVO_HWS_setSwCapsLock)"""
        call_void("KVO_HWS_setSwCapsLock", self.address, state)

    def get_sw_caps_lock(self) -> int:
        """The software CapsLock state, -1, 0 or 1. (KVO_HWS_getSwCapsLock)"""
        return call_number("KVO_HWS_getSwCapsLock", self.address)

    def get_station_type(self) -> int:
        """The station's type, -1, 0 or 1. (KVO_HWS_getStationType)"""
        return call_number("KVO_HWS_getStationType", self.address)

    def set_handheld_mode(self, mode: HandheldMode) -> bool:
        """Sets the mode of the handheld terminal (type RV4), 0 or 1. False if the station has none; OutOfRange for any other
        mode. (KVO_HWS_setRV4Mode)
        """
        return call_bool("KVO_HWS_setRV4Mode", self.address, mode)

    def get_handheld_mode(self) -> Optional[int]:
        """The mode of the handheld terminal, a HandheldMode or an unknown number. None if the station has no handheld terminal.
        (KVO_HWS_getRV4Mode)
        """
        mode = call_optional_number("KVO_HWS_getRV4Mode", self.address)
        return HandheldMode(mode) if mode in (0, 1) else mode

    # ---- Addresses ----

    def set_mcp_address(self, mcp_address: int) -> None:
        """Sets the address of the machine control panel (MCP) that the station serves, 0 to 255. The daemon checks it.
        (KVO_HWS_setMCPAddress)
        """
        call_void("KVO_HWS_setMCPAddress", self.address, mcp_address)

    def get_mcp_address(self) -> int:
        """The address of the machine control panel that the station serves, 0 to 255. (KVO_HWS_getMCPAddress)"""
        return call_number("KVO_HWS_getMCPAddress", self.address)

    def set_kvo_index(self, index: int) -> None:
        """Sets the KVO index, 0 to 255. The daemon checks it. (KVO_HWS_setKVOIndex)"""
        call_void("KVO_HWS_setKVOIndex", self.address, index)

    def get_kvo_index(self) -> int:
        """The KVO index, 0 to 255. (KVO_HWS_getKVOIndex)"""
        return call_number("KVO_HWS_getKVOIndex", self.address)

    def set_dck_enable(self, enable: bool) -> None:
        """Switches the direct control keys (DCK) on or off. (KVO_HWS_setDCKEnable)"""
        call_void("KVO_HWS_setDCKEnable", self.address, enable)

    def get_dck_enable(self) -> bool:
        """Whether the direct control keys are on. (KVO_HWS_getDCKEnable)"""
        return call_number("KVO_HWS_getDCKEnable", self.address) != 0

    def get_dck_address(self) -> int:
        """The address of the direct control keys, 0 to 255. (KVO_HWS_getDCKAddress)"""
        return call_number("KVO_HWS_getDCKAddress", self.address)

    def set_cks_index(self, index: int) -> None:
        """Sets the cks index, 0 to 255. OutOfRange for any other index. (KVO_HWS_setKVOCksIndex)"""
        call_void("KVO_HWS_setKVOCksIndex", self.address, index)

    def get_cks_index(self) -> int:
        """The cks index, any 32-bit number. (KVO_HWS_getKVOCksIndex)"""
        return call_number("KVO_HWS_getKVOCksIndex", self.address)

    def simulate_mcp_key(self, value1: int, value2: int) -> None:
        """Simulates a key of the machine control panel. The daemon defines the meaning of the two numbers.
        (KVO_HWS_simulateMCPKey)
        """
        call_void("KVO_HWS_simulateMCPKey", self.address, value1, value2)

    def enable_mcp_key(self, value1: int, value2: int) -> None:
        """Enables a key of the machine control panel. The daemon defines the meaning of the two numbers. (KVO_HWS_enableMCPKey)
        """
        call_void("KVO_HWS_enableMCPKey", self.address, value1, value2)

    # ---- Focus, start and channel information ----

    def get_priority(self) -> Priority:
        """The suspend options. (KVO_HWS_getKVOPriority)"""
        suspend_lock, suspend_prio = _call_two_numbers("KVO_HWS_getKVOPriority", self.address)
        return Priority(suspend_lock, suspend_prio)

    def get_startup_active(self) -> int:
        """Whether the station becomes active at start, 0 to 2. (KVO_HWS_getKVOStartupActive)"""
        return call_number("KVO_HWS_getKVOStartupActive", self.address)

    def get_startup_prio(self) -> int:
        """The priority with which the station becomes active at start. (KVO_HWS_getKVOStartupPrio)"""
        return call_number("KVO_HWS_getKVOStartupPrio", self.address)

    def get_channel_on_focus(self) -> int:
        """The channel that the station shows when it gets the focus, 1 to 8. (KVO_HWS_getKVOChannelOnFocus)"""
        return call_number("KVO_HWS_getKVOChannelOnFocus", self.address)

    def get_screen_on_focus(self) -> str:
        """The screen that the station shows when it gets the focus. (KVO_HWS_getKVOScreenOnFocus)

        The C function copies the whole reply to a buffer of 1 MiB without a check. The service must not send a longer reply.
        """
        return unsized_text("KVO_HWS_getKVOScreenOnFocus", self.address)

    def get_t2m2n(self) -> str:
        """The M:N assignment, a text that the daemon defines. (KVO_HWS_getKVOT2M2N)

        The C function copies the whole reply to a buffer of 1 MiB without a check. The service must not send a longer reply.
        """
        return unsized_text("KVO_HWS_getKVOT2M2N", self.address)

    def set_channel_info(self, info: str) -> None:
        """Stores the channel information: at most 230 bytes, without double quotes. OutOfRange for a longer text.
        (KVO_HWS_setChannelInfo)
        """
        call_void("KVO_HWS_setChannelInfo", self.address, info)

    def get_channel_info(self) -> Optional[str]:
        """The channel information. None if the station has none. (KVO_HWS_getChannelInfo)"""
        code, text = sized_text("KVO_HWS_getChannelInfo", self.address)
        return text if code == 1 else None

    def delete_channel_info(self) -> None:
        """Deletes the channel information. (KVO_HWS_deleteChannelInfo)"""
        call_void("KVO_HWS_deleteChannelInfo", self.address)

    # ---- Touch screen, input devices and display ----

    def invalidate_touch_screen(self) -> bool:
        """Discards the touch calibration. False if the station has no touch screen. (KVO_HWS_invalidateTouchScreen)"""
        return call_bool("KVO_HWS_invalidateTouchScreen", self.address)

    def get_calibration(self) -> Optional[Calibration]:
        """The touch calibration. None if the station has no touch screen. (KVO_HWS_getTouchScreenCalibParam)

        A number that the service does not report is 0, because older services report only one of them. Both are 0 if the
        service refuses.
        """
        answer = call("KVO_HWS_getTouchScreenCalibParam", self.address)
        press_threshold, nonlinear = answer.values
        return Calibration(press_threshold or 0, nonlinear or 0) if answer.code == 1 else None

    def set_calibration(self, calibration: Calibration) -> bool:
        """Sets the touch calibration. False if the station has no touch screen; OutOfRange for a threshold below -1, or for a
        nonlinear other than -1, 0 and 1. (KVO_HWS_setTouchScreenCalibParam)
        """
        return call_bool(
            "KVO_HWS_setTouchScreenCalibParam", self.address, calibration.press_threshold, calibration.nonlinear
        )

    def get_input_devices(self) -> InputDevices:
        """The numbers of input devices. A number is None if the service does not report it; all are None if the service
        refuses. (KVO_HWS_showInputDeviceV3)
        """
        _, *counts = call("KVO_HWS_showInputDeviceV3", self.address).values
        return InputDevices(*counts)

    def count_input_devices(self) -> InputDevices:
        """The numbers of input devices without virtual keyboards, read with the oldest C function. ``touch`` counts both kinds
        of touch devices, and is 0 if the service reports neither. The other numbers are as in get_input_devices.
        (KVO_HWS_showInputDevice)
        """
        keyboards, mice, touch = call("KVO_HWS_showInputDevice", self.address).values
        return InputDevices(keyboards, mice, touch)

    def count_input_devices_v2(self) -> InputDevices:
        """The same as count_input_devices, with the virtual keyboards. (KVO_HWS_showInputDeviceV2)"""
        keyboards, mice, touch, virtual = call("KVO_HWS_showInputDeviceV2", self.address).values
        return InputDevices(keyboards, mice, touch, virtual_keyboards=virtual)

    def get_dpi(self) -> int:
        """The display's resolution in dots per inch. (KVO_HWS_showDPI)

        Raises ServiceError also if the station does not report the resolution. get_metric(Metric.DPI) raises NotAvailable then.
        """
        return call_number("KVO_HWS_showDPI", self.address)

    # ---- USB ----

    def get_usb_lock(self) -> UsbLock:
        """The USB lock. (KVO_HWS_getUsbLock)"""
        first, second = _call_two_numbers("KVO_HWS_getUsbLock", self.address)
        return UsbLock(first, second)

    def set_usb_lock(self, first: int, second: int) -> None:
        """Sets the USB lock with a datagram. Does not wait for a reply. See Service.set_usb_lock. (KVO_HWS_setUsbLock)"""
        Service().set_usb_lock(first, second, [self.address])

    def get_usb_connectors(self) -> str:
        """The USB connectors, a text that the daemon defines; "" if there are none. (KVO_HWS_getUsbConnectorListOne)

        Raises Refused, UnknownReply, and ServiceBusy while the service is still searching for the connectors. All three are
        subclasses of ServiceError.
        """
        return sized_text("KVO_HWS_getUsbConnectorListOne", self.address)[1]

    # ---- Metrics, and the kind of panel ----

    @overload
    def get_metric(self, metric: Literal[Metric.PANEL_LAYOUT]) -> str:
        ...

    @overload
    def get_metric(
        self,
        metric: Literal[
            Metric.SOFTKEY_TYPE, Metric.KEYBOARD_CAPS, Metric.DPI, Metric.HARDWARE_CAPS, Metric.PANEL_ROTATION
        ],
    ) -> int:
        ...

    @overload
    def get_metric(self, metric: Metric) -> Union[int, str]:
        ...

    def get_metric(self, metric: Metric) -> Union[int, str]:
        """Reads a metric: a text for Metric.PANEL_LAYOUT, a number for the others. (KVO_HWS_getStationMetrics)

        Raises NotAvailable if the station does not report it, UnknownReply for a malformed value, and OutOfRange for an unknown
        metric.
        """
        area = (ctypes.c_uint8 * 8)()
        call("KVO_HWS_getStationMetrics", self.address, metric, ctypes.byref(area))
        if metric == Metric.PANEL_LAYOUT:
            return decode(bytes(area).split(b"\0")[0])
        return int(ctypes.c_uint32.from_buffer(area).value)

    def is_marovanti(self) -> bool:
        """Whether this is a Marovanti panel. (KVO_HWS_isMarovantiPanel)

        Raises Refused if the panel was not found or the daemon failed, and UnknownReply for an unknown mode or reply.
        """
        return call_bool("KVO_HWS_isMarovantiPanel", self.address)


def _call_two_numbers(name: str, station: IPv4Address) -> Tuple[int, int]:
    """Calls a function with two outputs that it always writes."""
    return cast(Tuple[int, int], call(name, station).values)
