"""The library's C records. The tests compare their layout with the library's own table."""

from __future__ import annotations

import ctypes
from ctypes import c_char, c_char_p, c_int32, c_uint8, c_uint16, c_uint32, c_void_p

NAME_SIZE = 260
"""Bytes of a name, including its terminator."""


class KvoDescription(ctypes.Structure):
    """A station."""

    _fields_ = [
        ("address", c_uint32),
        ("name", c_char * NAME_SIZE),
        ("attr1", c_uint32),
        ("attr2", c_uint32),
        ("attr3", c_uint32),
    ]


class KvoDescriptionEx(ctypes.Structure):
    """A station with its extended attributes. In C they are seven consecutive members, with the same layout as an array."""

    _fields_ = [
        ("address", c_uint32),
        ("name", c_char * NAME_SIZE),
        ("attr1", c_uint32),
        ("attr2", c_uint32),
        ("attr3", c_uint32),
        ("extAttr1", c_uint32 * 7),
    ]


class KvoClientEntry(ctypes.Structure):
    """A connected client."""

    _fields_ = [("value", c_uint32), ("name", c_char * NAME_SIZE)]


class _ArrivedTexts(ctypes.Structure):
    _fields_ = [("text6", c_char * 40), ("text7", c_char * 40)]


class _Texts(ctypes.Union):
    _anonymous_ = ("of_arrived",)
    _fields_ = [("of_arrived", _ArrivedTexts), ("text8", c_char * 80)]


class _Flags(ctypes.Union):
    _fields_ = [("flagWord", c_uint32), ("number3", c_uint16)]


class UsbDeviceInfo(ctypes.Structure):
    """A device that was plugged in or refused."""

    _anonymous_ = ("texts", "flags")
    _fields_ = [
        ("ipAddress", c_char * 16),
        ("ident2", c_char * 32),
        ("ident3", c_char * 32),
        ("text4", c_char * 22),
        ("text5", c_char * 10),
        ("texts", _Texts),
        ("number1", c_uint32),
        ("number2", c_uint32),
        ("flags", _Flags),
        ("flagBits", c_uint8),
    ]


class UsbStateInfo(ctypes.Structure):
    """A device that changed its state."""

    _fields_ = [
        ("ipAddress", c_char * 16),
        ("ident2", c_char * 32),
        ("ident3", c_char * 32),
        ("state", c_uint32),
    ]


class UsbRemoveInfo(ctypes.Structure):
    """A device that was removed."""

    _fields_ = [("ipAddress", c_char * 16), ("ident2", c_char * 32), ("ident3", c_char * 32)]


class _Payload(ctypes.Union):
    _fields_ = [("device", UsbDeviceInfo), ("state", UsbStateInfo), ("removed", UsbRemoveInfo)]


class UsbEventV2(ctypes.Structure):
    """The argument of the callback of USB events."""

    _fields_ = [("code", c_uint32), ("length", c_uint32), ("payload", _Payload)]


UsbEventCallback = ctypes.CFUNCTYPE(c_int32, ctypes.POINTER(UsbEventV2))
EmbeddedEventCallback = ctypes.CFUNCTYPE(None, c_char_p, c_char_p)
AgentCallback = ctypes.CFUNCTYPE(ctypes.c_int, c_void_p, c_char_p)
ThreadBody = ctypes.CFUNCTYPE(c_void_p, c_void_p)
