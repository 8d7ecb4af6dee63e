"""The exceptions of this package. The library's result codes are ambiguous: -3 means "too small" for one function and "out of
range" for another. Therefore each function has its own table of exceptions. Programs test the class of the exception."""

from __future__ import annotations

from typing import Any, Dict, Optional

from ._result_texts import result_text


class KvoError(Exception):
    """A function of the library failed. This is the base class of all its failures; the subclasses distinguish the reasons."""

    def __init__(self, function: str, code: int, reason: Optional[str] = None) -> None:
        super().__init__(function, code, reason)
        self.function = function
        """Name of the C function."""
        self.code = code
        """The negative result. The function's comment in the headers explains it."""
        self.reason = reason or result_text(function, code)
        """The reason, in words."""

    def __str__(self) -> str:
        return f"{self.reason} ({self.function} returned {self.code})"


class NotConnected(KvoError):
    """No service is running, or it does not accept connections."""


class ServiceError(KvoError):
    """The service refused or sent an unknown reply, or the exchange broke. For example, no byte of the reply arrived for 4 s.
    """


class Refused(ServiceError):
    """The service refused. Only functions that distinguish refusals from unknown replies raise this."""


class UnknownReply(ServiceError):
    """The service sent an unknown reply or a malformed value. Only functions that distinguish this from refusals raise it."""


class ServiceBusy(ServiceError):
    """The service is busy. Only functions that treat this as an error raise it. Try again later."""


class NotAvailable(KvoError):
    """The station has no such information."""


class OutOfRange(KvoError, ValueError):
    """An argument is out of range; nothing was sent."""


class TooSmall(KvoError):
    """The reply is larger than the largest buffer of this module, or did not fit after several attempts."""


class Ambiguous(KvoError, LookupError):
    """Several stations match."""


class Timeout(KvoError):
    """A lock was not obtained in time, or a thread of the library did not end in time."""


class Unsupported(KvoError):
    """The station does not know the mode."""


class NotActive(KvoError):
    """The station's backlight is not active."""


class NullPointer(KvoError):
    """A required pointer is null. This is a mistake in this module or in its caller."""


class ServerFailed(KvoError):
    """The server of USB events could not be stopped or started."""


class NoThread(KvoError):
    """A required thread could not be started."""


class AlreadyRunning(KvoError):
    """The agent or listener is already running in this process, or has ended but was not cleaned up."""


class MissingParameter(KvoError, ValueError):
    """A required parameter is missing."""


class InvalidInstance(KvoError):
    """The handle is not the agent's."""


class NoEvents(KvoError):
    """USB events are not active in this program."""


class InvalidHost(KvoError, ValueError):
    """A host address that cannot be used."""


class NotNegotiated(KvoError):
    """The remote side has not sent the agent a valid request yet."""


class LibraryNotFound(ImportError):
    """The shared library cannot be used. The text contains the reason and, if possible, what to install or to set."""


class EventTimeout(TimeoutError):
    """No event arrived in time, or another condition did not become true in time."""


class EventsEnded(Exception):
    """No more events arrive: they were closed, or another program took them over."""


class NamespaceError(OSError):
    """This process cannot get a private /tmp/kvo_hws. The text names the step that failed, and the alternatives."""


class NamespaceRefused(NamespaceError):
    """The kernel or a container does not grant a private /tmp/kvo_hws. The text names the missing right. Nothing has changed:
    Simulator() then uses the machine's own folder."""


class SimulatorError(Exception):
    """The simulator refused a request or failed to carry it out.

    ``status`` is the exit status of kvosim: 1 it failed, 2 it refused, 3 no simulator is running. It is None if the program
    itself could not be used.
    """

    def __init__(self, text: str, status: Optional[int] = None) -> None:
        super().__init__(text, status)
        self.text = text
        self.status = status

    def __str__(self) -> str:
        return self.text


class NoSimulator(SimulatorError):
    """No simulator is running here."""


class ReplayMismatch(AssertionError):
    """The requests of a replay were not those of its recording. ``report`` has the details, as ``Replay.report`` has."""

    def __init__(self, text: str, report: Dict[str, Any]) -> None:
        super().__init__(text, report)
        self.text = text
        self.report = report

    def __str__(self) -> str:
        return self.text
