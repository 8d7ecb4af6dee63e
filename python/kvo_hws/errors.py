"""What goes wrong, as exceptions. The library's result codes are ambiguous across functions (-3 is "too small" of one and "out
of range" of another), so that each function has a table of its own; a program goes by the exception's class."""

from __future__ import annotations

from typing import Optional

from ._result_texts import result_text


class KvoError(Exception):
    """A function of the library failed; the base of all its failures.

    Catch this one to catch whatever the library says; the subclasses tell the reasons apart.
    """

    def __init__(self, function: str, code: int, reason: Optional[str] = None) -> None:
        super().__init__(function, code, reason)
        self.function = function
        """Name of the C function."""
        self.code = code
        """Its result, as the function's comment in the headers explains it; negative."""
        self.reason = reason or result_text(function, code)
        """What is wrong, in words."""

    def __str__(self) -> str:
        return f"{self.reason} ({self.function} returned {self.code})"


class NotConnected(KvoError):
    """There is no service, or it does not take connections."""


class ServiceError(KvoError):
    """The service refused, answered something unknown, or the exchange broke (4 s without a byte of the reply among others)."""


class Refused(ServiceError):
    """The service refused, where that is told apart from an unknown answer."""


class UnknownReply(ServiceError):
    """The service answered something unknown, or a malformed value, where that is told apart from a refusal."""


class ServiceBusy(ServiceError):
    """The service is busy, where that is a failure; try again."""


class NotAvailable(KvoError):
    """The station has no such information."""


class OutOfRange(KvoError, ValueError):
    """An argument is out of range; nothing was sent."""


class TooSmall(KvoError):
    """What the service tells is larger than this module makes room for, however often it is asked."""


class Ambiguous(KvoError, LookupError):
    """Several stations match."""


class Timeout(KvoError):
    """Something did not happen in time: a lock was not obtained, or a thread of the library still runs."""


class Unsupported(KvoError):
    """The station does not know the mode."""


class NotActive(KvoError):
    """The station's backlight is not active."""


class NullPointer(KvoError):
    """A pointer that is needed is null; a mistake of this module or of its caller."""


class ServerFailed(KvoError):
    """The server of USB events could not be stopped or started."""


class NoThread(KvoError):
    """A thread that is needed could not be started."""


class AlreadyRunning(KvoError):
    """It runs already in this process, or has ended and was not cleaned up."""


class MissingParameter(KvoError, ValueError):
    """An obligatory parameter is missing."""


class InvalidInstance(KvoError):
    """A handle that is not the agent's."""


class NoEvents(KvoError):
    """USB events are not active in this program."""


class InvalidHost(KvoError, ValueError):
    """A host address that can not be used."""


class NotNegotiated(KvoError):
    """The remote side has not sent the agent a valid request yet."""


class LibraryNotFound(ImportError):
    """The shared library can not be used; the text says what to install or to set."""


class EventTimeout(TimeoutError):
    """No event came in time."""


class EventsEnded(Exception):
    """No event will come any more: they were closed, or taken over by another program."""


class NamespaceError(OSError):
    """This process can not have a private /tmp/kvo_hws; the text says which step failed, and what works instead."""


class NamespaceRefused(NamespaceError):
    """The kernel, or a container, does not grant a private /tmp/kvo_hws; the text says which right is missing. Nothing has
    changed: Simulator() uses the machine's own folder then."""


class SimulatorError(Exception):
    """The simulator refused, or could not do what was asked.

    ``status`` is its exit status: 1 could not be done, 2 refused, 3 no simulator runs; None where the program itself could not
    be used.
    """

    def __init__(self, text: str, status: Optional[int] = None) -> None:
        super().__init__(text, status)
        self.text = text
        self.status = status

    def __str__(self) -> str:
        return self.text


class NoSimulator(SimulatorError):
    """No simulator runs here."""
