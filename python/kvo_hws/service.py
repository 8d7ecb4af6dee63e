"""The requests about the service itself and about all stations."""

from __future__ import annotations

import ctypes
from ctypes import c_char_p
from ipaddress import IPv4Address
from typing import Iterable, List, Optional, Tuple, cast

from ._library import call, done, number_if_any, yes
from ._sized import decode, sized_list, sized_text
from ._structures import KvoClientEntry, KvoDescription, KvoDescriptionEx
from .records import Address, Client, DebugLevel, ExtendedAttributes, Station, StationEx


def _station(record: KvoDescription) -> Station:
    return Station(IPv4Address(record.address), decode(record.name), record.attr1, record.attr2, record.attr3)


def _station_ex(record: KvoDescriptionEx) -> StationEx:
    ext = cast(ExtendedAttributes, tuple(record.extAttr1))
    return StationEx(IPv4Address(record.address), decode(record.name), record.attr1, record.attr2, record.attr3, ext)


def _from_registry(record: KvoDescription) -> Station:
    """Registry lists have addresses in network byte order, as programs hand them to inet_ntoa; here they are addresses."""
    address = IPv4Address(ctypes.string_at(ctypes.addressof(record), 4))
    return Station(address, decode(record.name), record.attr1, record.attr2, record.attr3)


def _found(address: Optional[int]) -> Optional[IPv4Address]:
    return None if address is None else IPv4Address(address)


class Service:
    """The hardware service of this machine's panel.

    An object without a state: any number of them, from any thread. Requests of a process wait for one another; one that the
    service does not answer takes 4 s. Each method that asks raises NotConnected without a service, and ServiceError where the
    service refuses or answers something unknown; what else is raised is told by the method. What one station does or tells is
    a method of Panel.
    """

    # ---- The service ----

    def is_ready(self) -> bool:
        """Whether the daemon has finished starting. (KVO_HWS_isInitComplete)"""
        return yes("KVO_HWS_isInitComplete")

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

        ServiceError also for another level, which is not sent.
        """
        done("KVO_HWS_setDebugLevel", level)

    def set_backlight(self, on: bool) -> None:
        """Switches the backlight of the panel that the service runs on. (KVO_HWS_setBacklight)"""
        done("KVO_HWS_setBacklight", on)

    def lock_registry(self) -> bool:
        """Takes the daemon's lock on its registry files. (KVO_HWS_lockKVORegData)

        True: it is held now; give it back with unlock_registry. False: somebody else holds it, try again. ServiceError also
        without a service.
        """
        return yes("KVO_HWS_lockKVORegData")

    def unlock_registry(self) -> None:
        """Gives the daemon's lock on its registry files back. (KVO_HWS_unlockKVORegData)

        ServiceError also without a service.
        """
        done("KVO_HWS_unlockKVORegData")

    def kill(self) -> None:
        """Tells the service to end itself; whatever it answers is taken for yes. (KVO_HWS_killDaemon)"""
        done("KVO_HWS_killDaemon")

    # ---- Stations ----

    def get_stations(self) -> List[Station]:
        """All stations that the daemon knows. (KVO_HWS_getDescriptionList)

        TooSmall where there are more than a million.
        """
        _, records = sized_list("KVO_HWS_getDescriptionList", KvoDescription)
        return [_station(record) for record in records]

    def get_stations_ex(self) -> List[StationEx]:
        """All stations with their extended attributes. (KVO_HWS_getDescriptionListEx)

        TooSmall where there are more than a million.
        """
        _, records = sized_list("KVO_HWS_getDescriptionListEx", KvoDescriptionEx)
        return [_station_ex(record) for record in records]

    def find_station(self, address: Optional[Address] = None, name: Optional[str] = None) -> Optional[StationEx]:
        """Looks one station up, by its address or, where that is None, by its name; None where there is no such station.
        (KVO_HWS_getDescriptionEx)
        """
        if address is None and not name:
            raise TypeError("find_station needs an address or a name")
        record = KvoDescriptionEx()
        by_name = 0
        found = yes("KVO_HWS_getDescriptionEx", by_name if address is None else address, name, ctypes.byref(record))
        return _station_ex(record) if found else None

    def get_previous_stations(self, timeout: int = 1) -> Optional[List[Station]]:
        """The station list that the daemon kept on disk at its last start; None while the daemon is starting.
        (KVO_HWS_getKVOPreviousListFromRegistry)

        ``timeout``: longest wait for the daemon's lock, in whole seconds. Stations whose attr1 is 0 are left out. Timeout where
        the lock was not obtained. An address that is malformed on disk is 255.255.255.255.
        """
        return self._registry_list("KVO_HWS_getKVOPreviousListFromRegistry", timeout)

    def get_current_stations(self, timeout: int = 1) -> Optional[List[Station]]:
        """The station list that the daemon keeps on disk now; as get_previous_stations.
        (KVO_HWS_getKVOCurrentListFromRegistry)
        """
        return self._registry_list("KVO_HWS_getKVOCurrentListFromRegistry", timeout)

    def _registry_list(self, name: str, timeout: int) -> Optional[List[Station]]:
        code, records = sized_list(name, KvoDescription, timeout)
        return [_from_registry(record) for record in records] if code == 1 else None

    def get_clients(self, flags: int = 0) -> List[Client]:
        """The programs that are connected to the service; ``flags`` are the daemon's. (KVO_HWS_getClientList)"""
        _, records = sized_list("KVO_HWS_getClientList", KvoClientEntry, flags)
        return [Client(record.value, decode(record.name)) for record in records]

    def find_by_mcp_address(self, mcp_address: int) -> Optional[IPv4Address]:
        """The station that serves a machine control panel's address; None where none does, Ambiguous where several do.
        (KVO_HWS_getIPbyMCPAddress)
        """
        return _found(number_if_any("KVO_HWS_getIPbyMCPAddress", mcp_address))

    def find_by_dck_address(self, dck_address: int) -> Optional[IPv4Address]:
        """The station that has an address of direct control keys; None where none has, Ambiguous where several have.
        (KVO_HWS_getIPbyDCKAddress)
        """
        return _found(number_if_any("KVO_HWS_getIPbyDCKAddress", dck_address))

    def find_by_kvo_index(self, index: int) -> Optional[IPv4Address]:
        """The station that has a KVO index; None where none has, Ambiguous where several have. (KVO_HWS_getIPbyKVOIndex)"""
        return _found(number_if_any("KVO_HWS_getIPbyKVOIndex", index))

    # ---- USB ----

    def set_usb_lock(self, first: int, second: int, hosts: Optional[Iterable[Address]] = None) -> None:
        """Sets the USB lock of stations by datagrams on the panel's internal network; no answer is awaited.
        (KVO_HWS_setUsbLock)

        ``first`` is not 0 where devices are to be kept off; ``hosts`` are the stations, every one of the network where it is
        None. ServiceError: no datagram could be sent. InvalidHost: 127.0.0.1 is among the hosts.
        """
        if isinstance(hosts, str):
            raise TypeError("hosts is a list of addresses; Panel.set_usb_lock addresses one")
        addresses: List[bytes] = [] if hosts is None else [str(IPv4Address(host)).encode() for host in hosts]
        if hosts is not None and not addresses:
            raise ValueError("no hosts are given; None addresses every station")
        done("KVO_HWS_setUsbLock", len(addresses), (c_char_p * max(len(addresses), 1))(*addresses), first, second)

    def get_usb_connectors(self) -> str:
        """The USB connectors of all stations as the daemon writes them; "" where there are none. (KVO_HWS_getUsbConnectorList)

        Refused, ServiceBusy while they are being looked for, or UnknownReply; all three are ServiceErrors.
        """
        return sized_text("KVO_HWS_getUsbConnectorList")[1]

    def is_usb_events_activated(self) -> bool:
        """Whether any program has USB events activated. (KVO_HWS_isUSBEventsActivated)

        ServiceError also without a service.
        """
        return yes("KVO_HWS_isUSBEventsActivated")
