"""The remote agent: lets the hardware service of another station ask about the station in focus, and drive it."""

from __future__ import annotations

import atexit
import ctypes
import os
import threading
from dataclasses import dataclass
from ipaddress import IPv4Address
from typing import Callable, List, Optional, Type

from . import _structures as c
from ._events import Failures, close_or_report, report, visits
from ._library import call, library
from ._sized import decode
from .errors import AlreadyRunning, NoThread, Timeout
from .records import Address

ANSWER_YES = 1
ANSWER_NO = 0
ANSWER_FAILED = -1
LONGEST_TEXT = 127
"""Bytes of a name or a screen; the library would cut a longer one."""


@dataclass(frozen=True)
class AgentCommand:
    """What the remote side wants of the host.

    ``name`` is "stop-viewer", "stop-viewer-preempt", "stop-viewer-noclean", "activate-me", "show-viewer-active", "set-darken"
    or "set-statusline"; ``argument`` is what the last two are followed by, else None.
    """

    name: str
    argument: Optional[str] = None


OnCommand = Callable[[AgentCommand], Optional[bool]]
"""The host's callback: True done, or yes; False nothing to do, or no; None a command that it does not know, which fails."""


RANGES = {
    "kvo_index": (0, 255),
    "channel_on_focus": (1, 8),
    "suspend_lock": (0, 2**31 - 1),
    "suspend_prio": (0, 2**31 - 1),
    "startup_active": (0, 2),
    "startup_prio": (0, 2**31 - 1),
}


def _checked(text: str, what: str) -> bytes:
    data = text.encode("utf-8", "surrogateescape")
    if len(data) > LONGEST_TEXT or b"\n" in data or b"\0" in data:
        raise ValueError(f"{what} is longer than {LONGEST_TEXT} bytes, or holds a line end")
    return data


@dataclass(frozen=True)
class AgentOptions:
    """What the agent tells the remote side of its station.

    ``kvo_index`` 0 to 255; ``mcp``: the station has a machine control panel, whose addresses may be asked for then;
    ``channel_on_focus`` 1 to 8; ``screen_on_focus`` at most 127 bytes; ``startup_active`` 0 to 2; the others, as in
    Panel.get_priority and get_startup_prio, are not negative. ValueError where one is not so.
    """

    kvo_index: int = 1
    mcp: bool = False
    channel_on_focus: int = 1
    screen_on_focus: str = ""
    suspend_lock: int = 0
    suspend_prio: int = 1
    startup_active: int = 1
    startup_prio: int = 2

    def __post_init__(self) -> None:
        _checked(self.screen_on_focus, "screen_on_focus")
        for name, (lowest, highest) in RANGES.items():
            value = getattr(self, name)
            if not lowest <= value <= highest:
                raise ValueError(f"{name} is {value}; it is {lowest} to {highest}")


class Agent:
    """The agent of this process, in a ``with`` block::

        with Agent(focus="10.0.0.5", remote="127.0.0.1", session=3, on_command=answer) as agent:
            agent.push("screen changed")

    ``focus`` is the station in focus, by its address or, where that is None, by ``focus_name``; ``remote`` the remote hardware
    service, at TCP port 5850 + ``session`` (0 to 9). The agent connects and connects anew by itself: one second after a connect
    has failed, five after a connection was lost. An agent whose station the local service does not know ends by itself: see
    ``running``.

    ``on_command`` is called on the agent's thread, one command at a time, while the remote side waits. It may ask the service,
    push events and close the agent; it must not wait for the remote side. What it raises makes the command fail, and is raised
    by the next push or close; a second exception before that goes to sys.unraisablehook. Without it such commands fail.
    """

    def __init__(
        self,
        focus: Optional[Address] = None,
        remote: Address = "127.0.0.1",
        session: int = 0,
        on_command: Optional[OnCommand] = None,
        *,
        focus_name: Optional[str] = None,
        options: AgentOptions = AgentOptions(),
    ) -> None:
        if (focus is None) == (focus_name is None):
            raise TypeError("the agent needs the focus as an address, or focus_name")
        if not 0 <= session <= 9:
            raise ValueError(f"session {session} is not one of 0 to 9")
        self._on_command = on_command
        self._focus_name = _checked(focus_name or "", "focus_name")
        station = f"focusKvoName={focus_name}" if focus is None else f"focusKvoIp={IPv4Address(focus)}"
        self._parameters = _lines(station, IPv4Address(remote), session, options)
        self._handle: Optional[ctypes.c_void_p] = None
        self._failures = Failures()

    def start(self) -> None:
        """Starts the agent; does not wait for a connection. (KVO_HWS_startupEmbHwsClient)

        Raises AlreadyRunning where one runs in this process, or has ended and was not closed; NoThread.
        """
        global _current
        with _change:
            if _current is not None:
                raise AlreadyRunning("KVO_HWS_startupEmbHwsClient", -8)
            self._name_focus()
            handle = ctypes.c_void_p()
            _current = self
            try:
                call("KVO_HWS_startupEmbHwsClient", self._parameters, ctypes.byref(handle), _callback)
            except BaseException as failure:
                _current = None
                if isinstance(failure, NoThread):  # until it is cleaned up, no other one starts
                    call("KVO_HWS_cleanupEmbHwsClient", ctypes.c_void_p.in_dll(library(), "gEmbKvoInst"))
                raise
            self._handle = handle

    def close(self) -> None:
        """Stops the agent, and waits for its end, which takes a second or two. (KVO_HWS_cleanupEmbHwsClient)

        Does nothing where it was not started. Raises what ``on_command`` has raised, and Timeout where the agent still runs
        after 6 s, as ``on_command`` has not returned: it ends when that does. Called by ``on_command`` itself, it does not wait.
        """
        global _current
        with _change:
            handle, self._handle = self._handle, None
        if handle is not None:
            try:
                call("KVO_HWS_cleanupEmbHwsClient", handle)
            except Timeout:
                if threading.get_ident() != _callback_thread:
                    raise
            finally:
                with _change:
                    if _current is self:
                        _current = None
        self._failures.raise_failure()

    def push(self, text: str) -> None:
        """Pushes an event to the remote side as an indication, in one line. (KVO_HWS_sendEmbHwsEvent)

        Raises NotNegotiated where the remote side has not sent a valid request since the start, NullPointer where the agent was
        not started, and what ``on_command`` has raised. An event that meets no connection is lost, without an error.
        """
        self._failures.raise_failure()
        call("KVO_HWS_sendEmbHwsEvent", self._handle, text)

    @property
    def running(self) -> bool:
        """Whether the agent's thread runs; False also where it found no station in focus."""
        handle = self._handle  # another thread may close it meanwhile
        if handle is None or handle.value is None:
            return False
        return ctypes.c_uint32.from_address(handle.value).value == 1

    @property
    def negotiated(self) -> bool:
        """Whether the remote side has sent a valid request since the start, from which on events can be pushed."""
        return self._handle is not None and ctypes.c_uint32.in_dll(library(), "protocolNegotiated").value == 1

    def __enter__(self) -> Agent:
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], another: Optional[BaseException], trace: object) -> None:
        close_or_report(self.close, another)

    def _name_focus(self) -> None:
        """By name the station is found only where the program has put the name here as well."""
        (ctypes.c_char * 260).in_dll(library(), "gFocusName").value = self._focus_name

    def _commanded(self, text: str) -> int:
        name, equals, argument = text.partition("=")
        if self._on_command is None:
            return ANSWER_FAILED
        try:
            answer = self._on_command(AgentCommand(name, argument if equals else None))
        except BaseException as failure:
            self._failures.fail(failure)
            return ANSWER_FAILED
        if answer is None:
            return ANSWER_FAILED
        return ANSWER_YES if answer else ANSWER_NO


def _lines(station: str, remote: IPv4Address, session: int, options: AgentOptions) -> str:
    lines: List[str] = [
        station,
        f"remoteKvoHwsIp={remote}",
        f"remoteSession={session}",
        f"kvoIndex={options.kvo_index:d}",
        f"mcpFlag={options.mcp:d}",
        f"channelOnFocus={options.channel_on_focus:d}",
        f"screenOnFocus={options.screen_on_focus}",
        f"suspendLock={options.suspend_lock:d}",
        f"suspendPrio={options.suspend_prio:d}",
        f"startupActive={options.startup_active:d}",
        f"startupPrio={options.startup_prio:d}",
    ]
    return "\n".join(lines) + "\n"


_current: Optional[Agent] = None
_callback_thread: Optional[int] = None
_change = threading.Lock()


def _receive(_handle: Optional[int], command: Optional[bytes]) -> int:
    """The library's callback, one call at a time."""
    global _callback_thread
    with visits:
        _callback_thread = threading.get_ident()
        try:
            agent = _current
            return ANSWER_FAILED if agent is None else agent._commanded(decode(command or b""))
        except BaseException as failure:  # none may pass into C
            report(failure)
            return ANSWER_FAILED
        finally:
            _callback_thread = None


# Kept for the life of the process: an agent whose clean-up was given up may still call it.
_callback = c.AgentCallback(_receive)


@atexit.register
def _end_with_the_process() -> None:
    """No thread of the library may come to an interpreter that is ending."""
    agent = _current
    if agent is not None:
        close_or_report(agent.close, SystemExit())


def _forget() -> None:
    """A child that was forked has neither the library's threads nor what its parent has started."""
    global _current, _change
    if _current is not None:
        _current._handle = None
        _current = None
    _change = threading.Lock()


os.register_at_fork(after_in_child=_forget)
