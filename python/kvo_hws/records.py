"""The values that the service reports."""

from __future__ import annotations

import enum
from dataclasses import dataclass
from ipaddress import IPv4Address
from typing import Optional, Tuple, Union

Address = Union[str, int, IPv4Address]
"""A station's address: "10.0.0.5", 0x0A000005, or an IPv4Address."""

ExtendedAttributes = Tuple[int, int, int, int, int, int, int]


@dataclass(frozen=True)
class Station:
    """A station that the service knows. The daemon defines the meaning of the attributes."""

    address: IPv4Address
    name: str
    attr1: int
    attr2: int
    attr3: int


@dataclass(frozen=True)
class StationEx(Station):
    """A station with its seven extended attributes."""

    ext: ExtendedAttributes


@dataclass(frozen=True)
class Client:
    """A program that is connected to the service."""

    value: int
    name: str


@dataclass(frozen=True)
class CurrentServer:
    """The server that a viewer shows: its name or address, and the display as a text from the daemon."""

    server: str
    display: str


@dataclass(frozen=True)
class Priority:
    """A station's suspend options: lock 0 or 1, priority 1 to 10."""

    suspend_lock: int
    suspend_prio: int


@dataclass(frozen=True)
class Calibration:
    """A touch screen's calibration. The press threshold is -1 or more, and nonlinear is -1, 0 or 1. -1 means the driver's own
    value.
    """

    press_threshold: int
    nonlinear: int


@dataclass(frozen=True)
class InputDevices:
    """The numbers of a station's input devices. A number is None if the service does not report it.

    ``touch`` counts only single-touch devices. In the results of count_input_devices and count_input_devices_v2, which have no
    ``multitouch``, it counts both kinds. ``max_contacts`` is the number of fingers that the device distinguishes.
    """

    keyboards: Optional[int]
    mice: Optional[int]
    touch: Optional[int]
    multitouch: Optional[int] = None
    max_contacts: Optional[int] = None
    virtual_keyboards: Optional[int] = None


@dataclass(frozen=True)
class UsbLock:
    """The two numbers of a station's USB lock."""

    first: int
    second: int


class DebugLevel(enum.IntEnum):
    """How much the daemon logs."""

    NONE = 0
    LEVEL_1 = 1
    LEVEL_2 = 2


class HandheldMode(enum.IntEnum):
    """Modes of a handheld terminal (type RV4)."""

    AUTO = 0
    INDIVIDUAL = 1


class Metric(enum.IntEnum):
    """A value that Panel.get_metric can read."""

    PANEL_LAYOUT = 1
    """a text of 1 to 7 characters"""
    SOFTKEY_TYPE = 2
    """an even number"""
    KEYBOARD_CAPS = 3
    DPI = 4
    """dots per inch"""
    HARDWARE_CAPS = 5
    PANEL_ROTATION = 6
    """1 to 4"""
