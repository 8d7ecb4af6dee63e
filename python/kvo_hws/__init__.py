"""The client library of an operator panel's hardware service, libkvo_hws.so.0, for Python::

    from kvo_hws import Panel, Service, Simulator

    with Simulator(plant="examples/plant.toml"):
        for station in Service().get_stations():
            print(station.address, station.name)
        Panel("10.0.0.5").set_backlight_brightness(20)

Service sends requests that concern the service or all stations, and Panel those that concern one station. UsbEvents and
EmbeddedEvents receive events, Agent serves a remote service, Simulator is a simulated plant for tests, Recording reads a
recording, and replay answers requests as they were recorded. The module kvo_hws.aio has requests and events for programs with
an asyncio event loop. A failed request raises a KvoError. The library is the file that the variable KVO_HWS_LIBRARY names,
otherwise the one that was installed with this package, otherwise the one that the system's loader finds. docs/python.md
explains more.
"""

from __future__ import annotations

from importlib.metadata import PackageNotFoundError, version

from ._namespace import enter_private_namespace
from .agent import Agent, AgentCommand, AgentOptions
from .debug import activate_debug, deactivate_debug, debugging, library_version
from .embedded_events import EmbeddedEvent, EmbeddedEvents
from .errors import (
    AlreadyRunning,
    Ambiguous,
    EventsEnded,
    EventTimeout,
    InvalidHost,
    InvalidInstance,
    KvoError,
    LibraryNotFound,
    MissingParameter,
    NamespaceError,
    NamespaceRefused,
    NoEvents,
    NoSimulator,
    NotActive,
    NotAvailable,
    NotConnected,
    NoThread,
    NotNegotiated,
    NullPointer,
    OutOfRange,
    Refused,
    ReplayMismatch,
    ServerFailed,
    ServiceBusy,
    ServiceError,
    SimulatorError,
    Timeout,
    TooSmall,
    UnknownReply,
    Unsupported,
)
from .panel import Panel
from .records import (
    Address,
    Calibration,
    Client,
    CurrentServer,
    DebugLevel,
    HandheldMode,
    InputDevices,
    Metric,
    Priority,
    Station,
    StationEx,
    UsbLock,
)
from .recording import Exchange, ExchangeEnd, ExchangeKind, Note, Piece, Process, Recording, RecordingError
from .replay import Replay, replay
from .service import Service
from .simulator import Simulator, UsbDelivery
from .usb_events import (
    UsbDeviceArrived,
    UsbDeviceRefused,
    UsbDeviceRemoved,
    UsbDeviceState,
    UsbEvent,
    UsbEventCode,
    UsbEvents,
)

try:
    __version__ = version("kvo_hws")
except PackageNotFoundError:  # not installed: used from the sources
    __version__ = "0+sources"

__all__ = [
    "Address",
    "Agent",
    "AgentCommand",
    "AgentOptions",
    "AlreadyRunning",
    "Ambiguous",
    "Calibration",
    "Client",
    "CurrentServer",
    "DebugLevel",
    "EmbeddedEvent",
    "EmbeddedEvents",
    "EventTimeout",
    "EventsEnded",
    "Exchange",
    "ExchangeEnd",
    "ExchangeKind",
    "HandheldMode",
    "InputDevices",
    "InvalidHost",
    "InvalidInstance",
    "KvoError",
    "LibraryNotFound",
    "Metric",
    "MissingParameter",
    "NamespaceError",
    "NamespaceRefused",
    "NoEvents",
    "NoSimulator",
    "NoThread",
    "NotActive",
    "NotAvailable",
    "NotConnected",
    "NotNegotiated",
    "Note",
    "NullPointer",
    "OutOfRange",
    "Panel",
    "Piece",
    "Priority",
    "Process",
    "Recording",
    "RecordingError",
    "Refused",
    "Replay",
    "ReplayMismatch",
    "ServerFailed",
    "Service",
    "ServiceBusy",
    "ServiceError",
    "Simulator",
    "SimulatorError",
    "Station",
    "StationEx",
    "Timeout",
    "TooSmall",
    "UnknownReply",
    "Unsupported",
    "UsbDelivery",
    "UsbDeviceArrived",
    "UsbDeviceRefused",
    "UsbDeviceRemoved",
    "UsbDeviceState",
    "UsbEvent",
    "UsbEventCode",
    "UsbEvents",
    "UsbLock",
    "activate_debug",
    "deactivate_debug",
    "debugging",
    "enter_private_namespace",
    "library_version",
    "replay",
]
