"""The requests that concern the service itself or all stations."""

from __future__ import annotations

import ctypes
from ctypes import c_char_p
from ipaddress import IPv4Address
from typing import Iterable, List, Optional, Tuple, cast

from ._library import call, call_bool, call_optional_number, call_void
from ._sized import decode, sized_list, sized_text
from ._structures import KvoClientEntry, KvoDescription, KvoDescriptionEx
from .records import Address, Client, DebugLevel, ExtendedAttributes, Station, StationEx


def _station(record: KvoDescription) -> Station:
    return Station(IPv4Address(record.address), decode(record.name), record.attr1, record.attr2, record.attr3)


def _station_ex(record: KvoDescriptionEx) -> StationEx:
    ext = cast(ExtendedAttributes, tuple(record.extAttr1))
    return StationEx(IPv4Address(record.address), decode(record.name), record.attr1, record.attr2, record.attr3, ext)


def _from_registry(record: KvoDescription) -> Station:
    """The addresses in registry lists are in network byte order, because C programs pass them to inet_ntoa."""
    address = IPv4Address(ctypes.string_at(ctypes.addressof(record), 4))
    return Station(address, decode(record.name), record.attr1, record.attr2, record.attr3)


def _optional_address(address: Optional[int]) -> Optional[IPv4Address]:
    return None if address is None else IPv4Address(address)


class Service:
    """The hardware service of this machine's panel.

    An object has no state. Create as many objects as you like and use them from any thread. Requests of a process run one after
    another. A request that the service does not answer takes 4 s. Each method that sends a request raises NotConnected if no
    service is running, and ServiceError if the service refuses or sends an unknown reply. A method's docstring names its other
    exceptions. Requests that concern one station are methods of Panel.
    """

    # ---- The service ----

    def is_ready(self) -> bool:
        """Whether the daemon has finished starting. (KVO_HWS_isInitComplete)"""
        return call_bool("KVO_HWS_isInitComplete")

    def get_version(self) -> str:
        """The daemon's version text. (KVO_HWS_getKVOHWSVersion)"""
        buffer = ctypes.create_string_buffer(1 << 16)
        call("KVO_HWS_getKVOHWSVersion", buffer, ctypes.byref(ctypes.c_uint32(len(buffer))))
        return decode(buffer.value)

    def get_debug_level(self) -> DebugLevel:
        """How much the daemon logs. (KVO_HWS_getDebugLevel)"""
        return DebugLevel(call("KVO_HWS_getDebugLevel").code)

    def set_debug_level(self, level: DebugLevel) -> None:
        """Sets how much the daemon logs, 0 to 2. (KVO_HWS_setDebugLevel)

        Any other level raises ServiceError and is not sent.
        """
        call_void("KVO_HWS_setDebugLevel", level)

    def set_backlight(self, on: bool) -> None:
        """Switches the backlight of the panel that the service runs on. (KVO_HWS_setBacklight)"""
        call_void("KVO_HWS_setBacklight", on)

    def lock_registry(self) -> bool:
        """Takes the daemon's lock on its registry files. (KVO_HWS_lockKVORegData)

        True: the caller has the lock now, and must release it with unlock_registry. False: another client has the lock; try
        again. Without a service, raises ServiceError.
        """
        return call_bool("KVO_HWS_lockKVORegData")

    def unlock_registry(self) -> None:
        """Releases the daemon's lock on its registry files. (KVO_HWS_unlockKVORegData)

        Without a service, raises ServiceError.
        """
        call_void("KVO_HWS_unlockKVORegData")

    def kill(self) -> None:
        """Makes the service end itself. Any reply counts as success. (KVO_HWS_killDaemon)"""
        call_void("KVO_HWS_killDaemon")

    # ---- Stations ----

    def get_stations(self) -> List[Station]:
        """All stations that the daemon knows. (KVO_HWS_getDescriptionList)

        TooSmall if there are more than a million.
        """
        _, records = sized_list("KVO_HWS_getDescriptionList", KvoDescription)
        return [_station(record) for record in records]

    def get_stations_ex(self) -> List[StationEx]:
        """All stations with their extended attributes. (KVO_HWS_getDescriptionListEx)

        TooSmall if there are more than a million.
        """
        _, records = sized_list("KVO_HWS_getDescriptionListEx", KvoDescriptionEx)
        return [_station_ex(record) for record in records]

    def find_station(self, address: Optional[Address] = None, name: Optional[str] = None) -> Optional[StationEx]:
        """Looks one station up by its address or, if that is None, by its name. None if the service does not know it.
        (KVO_HWS_getDescriptionEx)
        """
        if address is None and not name:
            raise TypeError("find_station needs an address or a name")
        record = KvoDescriptionEx()
        by_name = 0
        found = call_bool("KVO_HWS_getDescriptionEx", by_name if address is None else address, name, ctypes.byref(record))
        return _station_ex(record) if found else None

    def get_previous_stations(self, timeout: int = 1) -> Optional[List[Station]]:
        """The station list that the daemon saved to disk at its last start. None while the daemon is starting.
        (KVO_HWS_getKVOPreviousListFromRegistry)

        Waits at most ``timeout`` whole seconds for the daemon's lock, and raises Timeout if it does not get the lock. The list
        leaves out stations whose attr1 is 0. A malformed address on disk becomes 255.255.255.255.
        """
        return self._registry_list("KVO_HWS_getKVOPreviousListFromRegistry", timeout)

    def get_current_stations(self, timeout: int = 1) -> Optional[List[Station]]:
        """The station list that the daemon has on disk now. Works as get_previous_stations.
        (KVO_HWS_getKVOCurrentListFromRegistry)
        """
        return self._registry_list("KVO_HWS_getKVOCurrentListFromRegistry", timeout)

    def _registry_list(self, name: str, timeout: int) -> Optional[List[Station]]:
        code, records = sized_list(name, KvoDescription, timeout)
        return [_from_registry(record) for record in records] if code == 1 else None

    def get_clients(self, flags: int = 0) -> List[Client]:
        """The programs that are connected to the service. The daemon defines the ``flags``. (KVO_HWS_getClientList)"""
        _, records = sized_list("KVO_HWS_getClientList", KvoClientEntry, flags)
        return [Client(record.value, decode(record.name)) for record in records]

    def find_by_mcp_address(self, mcp_address: int) -> Optional[IPv4Address]:
        """The station that serves the machine control panel with this address. None if no station does; Ambiguous if several
        do. (KVO_HWS_getIPbyMCPAddress)
        """
        return _optional_address(call_optional_number("KVO_HWS_getIPbyMCPAddress", mcp_address))

    def find_by_dck_address(self, dck_address: int) -> Optional[IPv4Address]:
        """The station that has this address of direct control keys. None if no station has it; Ambiguous if several have it.
        (KVO_HWS_getIPbyDCKAddress)
        """
        return _optional_address(call_optional_number("KVO_HWS_getIPbyDCKAddress", dck_address))

    def find_by_kvo_index(self, index: int) -> Optional[IPv4Address]:
        """The station that has this KVO index. None if no station has it; Ambiguous if several have it.
        (KVO_HWS_getIPbyKVOIndex)
        """
        return _optional_address(call_optional_number("KVO_HWS_getIPbyKVOIndex", index))

    # ---- USB ----

    def set_usb_lock(self, first: int, second: int, hosts: Optional[Iterable[Address]] = None) -> None:
        """Sets the USB lock of stations with datagrams on the panel's internal network. Does not wait for a reply.
        (KVO_HWS_setUsbLock)

        If ``first`` is not 0, the stations refuse USB devices. ``hosts`` are the stations; None addresses every station of the
        network. Raises ServiceError if no datagram could be sent, and InvalidHost if 127.0.0.1 is among the hosts.
        """
        if isinstance(hosts, str):
            raise TypeError("hosts is a list of addresses; Panel.set_usb_lock takes a single station")
        addresses: List[bytes] = [] if hosts is None else [str(IPv4Address(host)).encode() for host in hosts]
        if hosts is not None and not addresses:
            raise ValueError("hosts is empty; None addresses every station")
        call_void("KVO_HWS_setUsbLock", len(addresses), (c_char_p * max(len(addresses), 1))(*addresses), first, second)

    def get_usb_connectors(self) -> str:
        """The USB connectors of all stations, a text that the daemon defines; "" if there are none.
        (KVO_HWS_getUsbConnectorList)

        Raises Refused, UnknownReply, and ServiceBusy while the service is still searching for the connectors. All three are
        subclasses of ServiceError.
        """
        return sized_text("KVO_HWS_getUsbConnectorList")[1]

    def is_usb_events_activated(self) -> bool:
        """Whether any program has activated USB events. (KVO_HWS_isUSBEventsActivated)

        Without a service, raises ServiceError.
        """
        return call_bool("KVO_HWS_isUSBEventsActivated")
