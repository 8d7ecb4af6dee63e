"""The functions of the library that this package calls: their C parameters, which of them are outputs, and the exceptions for
their results. The tests compare the table with the headers and with the library's list of exported names."""

from __future__ import annotations

import ctypes
import operator
from ctypes import POINTER, c_char_p, c_int, c_int32, c_uint32, c_ulong, c_void_p
from ipaddress import IPv4Address
from typing import Any, Callable, Dict, Mapping, NamedTuple, Optional, Type, Union

from . import errors as e
from ._structures import (
    AgentCallback,
    EmbeddedEventCallback,
    KvoClientEntry,
    KvoDescription,
    KvoDescriptionEx,
    ThreadBody,
    UsbEventCallback,
)

Convert = Callable[[Any], object]


class Input(NamedTuple):
    """A parameter that the caller passes."""

    type: Any
    convert: Convert


class Output:
    """A pointer to a number that the function writes. The number is ``unwritten`` if the function did not write it."""

    def __init__(self, of: Any, unwritten: Optional[int] = None) -> None:
        self.type = POINTER(of)
        self._of = of
        self._unwritten = unwritten

    def create(self) -> Any:
        """A variable for the number."""
        return self._of(self._unwritten or 0)

    def read(self, variable: Any) -> Optional[int]:
        """The number; None if the function did not write it."""
        value = int(variable.value)
        return None if value == self._unwritten else value


ErrorClass = Type[e.KvoError]

COMMON: Mapping[int, ErrorClass] = {-1: e.ServiceError, -2: e.NotConnected, -7: e.NullPointer}
"""The exceptions for these codes, unless a function has another one."""


class Prototype:
    """A function: its parameters, and the exceptions for its failures where they differ from COMMON."""

    def __init__(self, *parameters: Union[Input, Output], errors: Optional[Mapping[int, ErrorClass]] = None) -> None:
        self.parameters = parameters
        self.result = c_int32
        self.errors: Dict[int, ErrorClass] = {**COMMON, **(errors or {})}

    def error(self, name: str, code: int) -> e.KvoError:
        """Creates the exception for a result."""
        return self.errors.get(code, e.KvoError)(name, code)


def _integer(least: int, most: int) -> Convert:
    """A converter that rejects numbers that do not fit the C type, because C would truncate them silently."""

    def convert(value: Any) -> int:
        number = operator.index(value)
        if not least <= number <= most:
            raise ValueError(f"{value!r} is out of range: {least} to {most}")
        return number

    return convert


def _text(forbidden: str) -> Convert:
    """A converter to UTF-8; surrogates become the bytes that they stand for. A line feed would end the request early."""

    def convert(value: Any) -> bytes:
        if not isinstance(value, str):
            raise TypeError(f"{value!r} is not a text")
        for character in forbidden:
            if character in value:
                raise ValueError(f"{value!r} contains {character!r}, which this text must not contain")
        return value.encode("utf-8", "surrogateescape")

    return convert


def _text_or_none(value: Any) -> object:
    return None if value is None else TEXT.convert(value)


def _unchanged(value: Any) -> object:
    return value


def _address(value: Any) -> int:
    return int(IPv4Address(value))


U32 = Input(c_uint32, _integer(0, 0xFFFFFFFF))
I32 = Input(c_int32, _integer(-0x80000000, 0x7FFFFFFF))
INT = Input(c_int, _integer(-0x80000000, 0x7FFFFFFF))
FLAGS = Input(c_ulong, _integer(0, 2 ** (8 * ctypes.sizeof(c_ulong)) - 1))
STATION = Input(c_uint32, _address)
TEXT = Input(c_char_p, _text("\0\n"))
QUOTED = Input(c_char_p, _text('\0\n"'))
TEXT_OR_NULL = Input(c_char_p, _text_or_none)
LINES = Input(c_char_p, _text("\0"))
HOSTS = Input(POINTER(c_char_p), _unchanged)
BUFFER = Input(c_char_p, _unchanged)
VOID_POINTER = Input(c_void_p, _unchanged)
SIZE = Input(POINTER(c_uint32), _unchanged)
HANDLE = Input(c_void_p, _unchanged)
OUT_HANDLE = Input(POINTER(c_void_p), _unchanged)
OUT_U32 = Output(c_uint32)
OUT_I32 = Output(c_int32)
OUT_COUNT = Output(c_uint32, unwritten=0xFFFFFFFF)
"""A number of devices. The service may leave it out of its reply."""


def _records(of: Type[ctypes.Structure]) -> Input:
    return Input(POINTER(of), _unchanged)


STATIONS = _records(KvoDescription)
STATIONS_EX = _records(KvoDescriptionEx)
CLIENTS = _records(KvoClientEntry)


def _callback(of: Any) -> Input:
    return Input(of, _unchanged)


_CONNECTORS: Mapping[int, ErrorClass] = {-3: e.TooSmall, -4: e.Refused, -5: e.UnknownReply, -9: e.ServiceBusy}
_REGISTRY: Mapping[int, ErrorClass] = {-3: e.TooSmall, -4: e.Timeout}
_USB_START: Mapping[int, ErrorClass] = {-3: e.NoThread, -8: e.ServerFailed}

PROTOTYPES: Dict[str, Prototype] = {
    # The library itself.
    "KVO_HWS_activateDebugDLL": Prototype(),
    "KVO_HWS_deactivateDebugDLL": Prototype(),
    "KVO_HWS_getDLLVersion": Prototype(BUFFER, SIZE, errors={-1: e.TooSmall}),
    "kvo_hws_CreateThread": Prototype(_callback(ThreadBody), VOID_POINTER, errors={-1: e.NoThread}),
    "kvo_hws_detach_thread": Prototype(),
    # The service.
    "KVO_HWS_setDebugLevel": Prototype(INT),
    "KVO_HWS_getDebugLevel": Prototype(),
    "KVO_HWS_lockKVORegData": Prototype(),
    "KVO_HWS_unlockKVORegData": Prototype(),
    "KVO_HWS_getKVOHWSVersion": Prototype(BUFFER, SIZE),
    "KVO_HWS_setBacklight": Prototype(U32),
    "KVO_HWS_isInitComplete": Prototype(),
    "KVO_HWS_killDaemon": Prototype(),
    # The list of known stations.
    "KVO_HWS_getDescriptionList": Prototype(STATIONS, SIZE, errors={-3: e.TooSmall}),
    "KVO_HWS_getDescriptionListEx": Prototype(STATIONS_EX, SIZE, errors={-3: e.TooSmall}),
    "KVO_HWS_getDescriptionEx": Prototype(STATION, TEXT_OR_NULL, STATIONS_EX),
    "KVO_HWS_getKVOPreviousListFromRegistry": Prototype(STATIONS, SIZE, U32, errors=_REGISTRY),
    "KVO_HWS_getKVOCurrentListFromRegistry": Prototype(STATIONS, SIZE, U32, errors=_REGISTRY),
    # Viewer, status line, focus and reboot of a station.
    "KVO_HWS_setStatusline": Prototype(STATION, U32, U32, TEXT),
    "KVO_HWS_rebootKVO": Prototype(STATION),
    "KVO_HWS_isViewerActive": Prototype(STATION),
    "KVO_HWS_getCurrentServer": Prototype(STATION, BUFFER, SIZE, BUFFER, SIZE, errors={-3: e.TooSmall, -4: e.TooSmall}),
    "KVO_HWS_setActivateMe": Prototype(STATION),
    "KVO_HWS_setStartViewer": Prototype(STATION, QUOTED, QUOTED, QUOTED),
    "KVO_HWS_startConfiguredViewer": Prototype(STATION, QUOTED, U32),
    "KVO_HWS_setStopViewer": Prototype(STATION),
    "KVO_HWS_setStopViewerPreempt": Prototype(STATION),
    "KVO_HWS_setStopViewerNoClean": Prototype(STATION),
    # Settings of a station's panel.
    "KVO_HWS_setBrightness": Prototype(STATION, U32),
    "KVO_HWS_setBacklightBrightness": Prototype(STATION, U32, errors={-3: e.OutOfRange}),
    "KVO_HWS_setBacklightBrightnessV2": Prototype(
        STATION, U32, U32, errors={-3: e.OutOfRange, -4: e.OutOfRange, -5: e.Unsupported, -6: e.NotActive}
    ),
    "KVO_HWS_getBacklightBrightnessV2": Prototype(STATION, OUT_U32, U32, errors={-3: e.NullPointer, -4: e.OutOfRange}),
    "KVO_HWS_setDisableNumLock": Prototype(STATION, U32),
    "KVO_HWS_setDisableCapsLock": Prototype(STATION, U32),
    "KVO_HWS_getDisableNumLock": Prototype(STATION, OUT_U32),
    "KVO_HWS_getDisableCapsLock": Prototype(STATION, OUT_U32),
    "KVO_HWS_getStationType": Prototype(STATION, OUT_I32),
    "KVO_HWS_getSwCapsLock": Prototype(STATION, OUT_I32),
    "KVO_HWS_setSwCapsLock": Prototype(STATION, I32),
    "KVO_HWS_getRV4Mode": Prototype(STATION, OUT_U32),
    "KVO_HWS_setRV4Mode": Prototype(STATION, U32, errors={-3: e.OutOfRange}),
    # Addresses.
    "KVO_HWS_setMCPAddress": Prototype(STATION, U32),
    "KVO_HWS_setKVOIndex": Prototype(STATION, U32),
    "KVO_HWS_setDCKEnable": Prototype(STATION, U32),
    "KVO_HWS_setKVOCksIndex": Prototype(STATION, U32, errors={-3: e.OutOfRange}),
    "KVO_HWS_simulateMCPKey": Prototype(STATION, U32, U32),
    "KVO_HWS_enableMCPKey": Prototype(STATION, U32, U32),
    "KVO_HWS_getMCPAddress": Prototype(STATION, OUT_U32),
    "KVO_HWS_getKVOIndex": Prototype(STATION, OUT_U32),
    "KVO_HWS_getDCKEnable": Prototype(STATION, OUT_U32),
    "KVO_HWS_getDCKAddress": Prototype(STATION, OUT_U32),
    "KVO_HWS_getKVOCksIndex": Prototype(STATION, OUT_U32),
    "KVO_HWS_getIPbyMCPAddress": Prototype(U32, OUT_U32, errors={-3: e.Ambiguous}),
    "KVO_HWS_getIPbyDCKAddress": Prototype(U32, OUT_U32, errors={-3: e.Ambiguous}),
    "KVO_HWS_getIPbyKVOIndex": Prototype(U32, OUT_U32, errors={-3: e.Ambiguous}),
    # Focus, start and channel information.
    "KVO_HWS_getKVOPriority": Prototype(STATION, OUT_U32, OUT_U32),
    "KVO_HWS_getKVOStartupActive": Prototype(STATION, OUT_U32),
    "KVO_HWS_getKVOStartupPrio": Prototype(STATION, OUT_U32),
    "KVO_HWS_getKVOChannelOnFocus": Prototype(STATION, OUT_U32),
    "KVO_HWS_getKVOScreenOnFocus": Prototype(STATION, BUFFER),
    "KVO_HWS_getKVOT2M2N": Prototype(STATION, BUFFER),
    "KVO_HWS_setChannelInfo": Prototype(STATION, QUOTED, errors={-3: e.OutOfRange}),
    "KVO_HWS_getChannelInfo": Prototype(STATION, BUFFER, SIZE, errors={-3: e.TooSmall}),
    "KVO_HWS_deleteChannelInfo": Prototype(STATION),
    # Touch screen, input devices and display.
    "KVO_HWS_invalidateTouchScreen": Prototype(STATION),
    "KVO_HWS_getTouchScreenCalibParam": Prototype(STATION, OUT_I32, OUT_I32),
    "KVO_HWS_setTouchScreenCalibParam": Prototype(STATION, I32, I32, errors={-3: e.OutOfRange}),
    "KVO_HWS_showInputDevice": Prototype(STATION, OUT_COUNT, OUT_COUNT, OUT_COUNT),
    "KVO_HWS_showInputDeviceV2": Prototype(STATION, OUT_COUNT, OUT_COUNT, OUT_COUNT, OUT_COUNT),
    "KVO_HWS_showInputDeviceV3": Prototype(
        STATION, OUT_U32, OUT_COUNT, OUT_COUNT, OUT_COUNT, OUT_COUNT, OUT_COUNT, OUT_COUNT
    ),
    "KVO_HWS_showDPI": Prototype(STATION, OUT_I32),
    # USB lock and connectors.
    "KVO_HWS_getUsbLock": Prototype(STATION, OUT_U32, OUT_U32),
    "KVO_HWS_setUsbLock": Prototype(U32, HOSTS, INT, INT, errors={-10: e.InvalidHost}),
    "KVO_HWS_getUsbConnectorList": Prototype(BUFFER, SIZE, errors=_CONNECTORS),
    "KVO_HWS_getUsbConnectorListOne": Prototype(STATION, BUFFER, SIZE, errors=_CONNECTORS),
    # Metrics, clients and the kind of panel.
    "KVO_HWS_getStationMetrics": Prototype(
        STATION, U32, VOID_POINTER, errors={-4: e.NotAvailable, -5: e.UnknownReply, -9: e.OutOfRange}
    ),
    "KVO_HWS_getClientList": Prototype(CLIENTS, SIZE, FLAGS, errors={-3: e.TooSmall}),
    "KVO_HWS_isMarovantiPanel": Prototype(STATION, errors={-3: e.UnknownReply, -4: e.Refused, -5: e.UnknownReply}),
    # USB events.
    "KVO_HWS_activateUSBEventsV2": Prototype(_callback(UsbEventCallback), errors=_USB_START),
    "KVO_HWS_closeUSBEvents": Prototype(errors={-8: e.ServerFailed, -9: e.NoEvents}),
    "KVO_HWS_isUSBEventsActivated": Prototype(),
    # Events of embedded stations.
    "KVO_HWS_activateEmbKvoEvents": Prototype(
        _callback(EmbeddedEventCallback), errors={-1: e.NoThread, -8: e.AlreadyRunning}
    ),
    "KVO_HWS_deactivateEmbKvoEvents": Prototype(errors={-1: e.Timeout}),
    # The remote agent.
    "KVO_HWS_startupEmbHwsClient": Prototype(
        LINES,
        OUT_HANDLE,
        _callback(AgentCallback),
        errors={-1: e.NoThread, -8: e.AlreadyRunning, -9: e.MissingParameter},
    ),
    "KVO_HWS_cleanupEmbHwsClient": Prototype(HANDLE, errors={-1: e.Timeout, -10: e.InvalidInstance}),
    "KVO_HWS_sendEmbHwsEvent": Prototype(HANDLE, TEXT, errors={-1: e.NotNegotiated, -10: e.InvalidInstance}),
}
