"""The remote agent: lets the hardware service of another station query and control the station in focus."""

from __future__ import annotations

import atexit
import ctypes
import os
import threading
from dataclasses import dataclass
from ipaddress import IPv4Address
from typing import Callable, List, Optional, Type

from . import _structures as c
from ._events import CallbackFailures, active_callbacks, close_preserving, report_unraisable
from ._library import call, library
from ._sized import decode
from .errors import AlreadyRunning, NoThread, Timeout
from .records import Address

RESULT_YES = 1
RESULT_NO = 0
RESULT_FAILED = -1
MAX_TEXT_BYTES = 127
"""Length of a name or a screen. The library would truncate a longer one."""


@dataclass(frozen=True)
class AgentCommand:
    """A command from the remote side to the host program.

    ``name`` is "stop-viewer", "stop-viewer-preempt", "stop-viewer-noclean", "activate-me", "show-viewer-active", "set-darken"
    or "set-statusline". The last two have an ``argument``; for the others it is None.
    """

    name: str
    argument: Optional[str] = None


OnCommand = Callable[[AgentCommand], Optional[bool]]
"""The host program's callback. Its result is True for done, or yes; False for nothing to do, or no; and None for an unknown
command, which then fails."""


RANGES = {
    "kvo_index": (0, 255),
    "channel_on_focus": (1, 8),
    "suspend_lock": (0, 2**31 - 1),
    "suspend_prio": (0, 2**31 - 1),
    "startup_active": (0, 2),
    "startup_prio": (0, 2**31 - 1),
}


def _checked_text(text: str, name: str) -> bytes:
    data = text.encode("utf-8", "surrogateescape")
    if len(data) > MAX_TEXT_BYTES or b"\n" in data or b"\0" in data:
        raise ValueError(f"{name} is longer than {MAX_TEXT_BYTES} bytes, or contains a line feed or a zero byte")
    return data


@dataclass(frozen=True)
class AgentOptions:
    """The values that the agent reports to the remote side about its station. A value out of range raises ValueError.

    ``kvo_index`` is 0 to 255. ``mcp`` is True if the station has a machine control panel; the remote side may then query the
    panel's addresses. ``channel_on_focus`` is 1 to 8, ``screen_on_focus`` has at most 127 bytes, and ``startup_active`` is 0 to
    2. The others are 0 or more; Panel.get_priority and Panel.get_startup_prio explain them.
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
        _checked_text(self.screen_on_focus, "screen_on_focus")
        for name, (lowest, highest) in RANGES.items():
            value = getattr(self, name)
            if not lowest <= value <= highest:
                raise ValueError(f"{name} is {value}; it must be {lowest} to {highest}")


class Agent:
    """The agent of this process, in a ``with`` block::

        with Agent(focus="10.0.0.5", remote="127.0.0.1", session=3, on_command=answer) as agent:
            agent.push("screen changed")

    ``focus`` is the address of the station in focus. If it is None, ``focus_name`` is the name of that station. ``remote`` is
    the address of the remote hardware service, and its TCP port is 5850 + ``session`` (0 to 9). The agent connects by itself.
    It tries again one second after a failed attempt, and five seconds after a connection was lost. If the local service does
    not know the station, the agent ends, and ``running`` becomes False.

    ``on_command`` is the function for commands that only the host program can execute. Without it, these commands fail. The
    agent's thread calls it for one command at a time, while the remote side waits. The function may send requests to the
    service, push events and close the agent. It must not wait for the remote side. If it raises an exception, the command
    fails, and the next push or close raises the exception. A second exception before that goes to sys.unraisablehook.
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
            raise TypeError("the agent needs either focus, which is an address, or focus_name")
        if not 0 <= session <= 9:
            raise ValueError(f"session {session} is out of range: 0 to 9")
        self._on_command = on_command
        self._focus_name = _checked_text(focus_name or "", "focus_name")
        station = f"focusKvoName={focus_name}" if focus is None else f"focusKvoIp={IPv4Address(focus)}"
        self._parameters = _parameter_lines(station, IPv4Address(remote), session, options)
        self._handle: Optional[ctypes.c_void_p] = None
        self._failures = CallbackFailures()

    def start(self) -> None:
        """Starts the agent without waiting for a connection. (KVO_HWS_startupEmbHwsClient)

        Raises AlreadyRunning if an agent is running in this process, or has ended but was not closed, and NoThread.
        """
        global _current
        with _change:
            if _current is not None:
                raise AlreadyRunning("KVO_HWS_startupEmbHwsClient", -8)
            self._store_focus_name()
            handle = ctypes.c_void_p()
            _current = self
            try:
                call("KVO_HWS_startupEmbHwsClient", self._parameters, ctypes.byref(handle), _callback)
            except BaseException as failure:
                _current = None
                if isinstance(failure, NoThread):  # no other agent can start before the clean-up
                    call("KVO_HWS_cleanupEmbHwsClient", ctypes.c_void_p.in_dll(library(), "gEmbKvoInst"))
                raise
            self._handle = handle

    def close(self) -> None:
        """Stops the agent, and waits for its end, which takes a second or two. (KVO_HWS_cleanupEmbHwsClient)

        Does nothing if the agent was not started. Raises the exception of ``on_command``. Raises Timeout if the agent is still
        running after 6 s because ``on_command`` has not returned; the agent ends when ``on_command`` returns. ``on_command``
        may also call close, which then does not wait.
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
        self._failures.raise_pending()

    def push(self, text: str) -> None:
        """Pushes an event to the remote side as an indication, which is one line. (KVO_HWS_sendEmbHwsEvent)

        Raises NotNegotiated if the remote side has not sent a valid request since the start, NullPointer if the agent was not
        started, and the exception of ``on_command``. Without a connection, the event is lost without an exception.
        """
        self._failures.raise_pending()
        call("KVO_HWS_sendEmbHwsEvent", self._handle, text)

    @property
    def running(self) -> bool:
        """Whether the agent's thread is running. False if the agent did not find the station in focus."""
        handle = self._handle  # another thread may close it in the meantime
        if handle is None or handle.value is None:
            return False
        return ctypes.c_uint32.from_address(handle.value).value == 1

    @property
    def negotiated(self) -> bool:
        """Whether the remote side has sent a valid request since the start. Events can be pushed only after that."""
        return self._handle is not None and ctypes.c_uint32.in_dll(library(), "protocolNegotiated").value == 1

    def __enter__(self) -> Agent:
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], active: Optional[BaseException], trace: object) -> None:
        close_preserving(self.close, active)

    def _store_focus_name(self) -> None:
        """The library finds a station by name only if the program has also stored the name in this variable."""
        (ctypes.c_char * 260).in_dll(library(), "gFocusName").value = self._focus_name

    def _handle_command(self, text: str) -> int:
        name, equals, argument = text.partition("=")
        if self._on_command is None:
            return RESULT_FAILED
        try:
            result = self._on_command(AgentCommand(name, argument if equals else None))
        except BaseException as failure:
            self._failures.record(failure)
            return RESULT_FAILED
        if result is None:
            return RESULT_FAILED
        return RESULT_YES if result else RESULT_NO


def _parameter_lines(station: str, remote: IPv4Address, session: int, options: AgentOptions) -> str:
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
    """The library's callback. The library makes one call at a time."""
    global _callback_thread
    with active_callbacks:
        _callback_thread = threading.get_ident()
        try:
            agent = _current
            return RESULT_FAILED if agent is None else agent._handle_command(decode(command or b""))
        except BaseException as failure:  # must not enter the C code
            report_unraisable(failure)
            return RESULT_FAILED
        finally:
            _callback_thread = None


# Lives as long as the process: an agent whose clean-up timed out may still call it.
_callback = c.AgentCallback(_receive)


@atexit.register
def _close_at_exit() -> None:
    """A thread of the library must not enter an interpreter that is ending."""
    agent = _current
    if agent is not None:
        close_preserving(agent.close, SystemExit())


def _reset_in_child() -> None:
    """A forked child has neither the library's threads nor the agent that its parent started."""
    global _current, _change
    if _current is not None:
        _current._handle = None
        _current = None
    _change = threading.Lock()


os.register_at_fork(after_in_child=_reset_in_child)
