"""Recordings of what programs and the service sent to each other. docs/recording.md describes the files."""

from __future__ import annotations

import enum
import re
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from os import PathLike, fspath
from typing import Dict, Iterator, List, Optional, Tuple, Union

__all__ = ["Exchange", "ExchangeEnd", "ExchangeKind", "Note", "Piece", "Process", "Recording", "RecordingError"]

_VERSION = 1
_EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)
_MOST_SECONDS = 10**12
_MOST_PROCESS = 2**32 - 1
_MOST_PID = 2**63 - 1
_MOST_SHOWN = 40

_BLANKS = b" \t"
_WORD = re.compile(rb"[^ \t]*")
_NUMBER = re.compile(rb"[0-9]+")
_SECONDS = re.compile(rb"([0-9]+)(?:\.([0-9]{1,6}))?")
_START = re.compile(rb"([0-9]{4})-([0-9]{2})-([0-9]{2})T([0-9]{2}):([0-9]{2}):([0-9]+(?:\.[0-9]{1,6})?)Z")
_QUOTED = re.compile(rb'"((?:[^"\\]|\\[nrt"\\]|\\x[0-9A-Fa-f]{2})*)"')
_ESCAPE = re.compile(rb"\\(x..|.)", re.DOTALL)
_ESCAPED = {b"n": b"\n", b"r": b"\r", b"t": b"\t", b'"': b'"', b"\\": b"\\"}
_ESCAPES = {value: b"\\" + key for key, value in _ESCAPED.items()}


class RecordingError(ValueError):
    """A file that is not a valid recording. The text begins with the path and the number of the line."""

    def __init__(self, path: str, line: int, mistake: str) -> None:
        super().__init__(path, line, mistake)
        self.path = path
        self.line = line
        """The number of the line, from 1."""
        self.mistake = mistake
        """What was found, and what would be valid."""

    def __str__(self) -> str:
        return f"{self.path}:{self.line}: {self.mistake}"


class ExchangeKind(enum.Enum):
    """What an exchange was about."""

    ASK = "ask"
    """a program asked the service on the command socket"""
    USB = "usb"
    """the service sent a USB event to a program"""
    EVENT = "event"
    """the service sent an event of an embedded station; it has no reply"""


class ExchangeEnd(enum.Enum):
    """How a connection ended."""

    CLOSED = "closed"
    """the side that replies closed it"""
    LEFT = "left"
    """the side that asks closed it first"""
    RESET = "reset"
    """it was reset"""
    OPEN = "open"
    """it was still open when the recording ended"""


@dataclass(frozen=True)
class Process:
    """A program that took part. ``pid`` is 0 if the process id is unknown."""

    number: int
    pid: int
    name: str


@dataclass(frozen=True)
class Piece:
    """Bytes that arrived together, after a pause."""

    pause: timedelta
    data: bytes


@dataclass(frozen=True)
class Exchange:
    """One connection from its first byte to its end."""

    offset: timedelta
    """from the start of the recording"""
    kind: ExchangeKind
    process: Optional[Process]
    """None if the program is unknown"""
    request_pieces: Tuple[Piece, ...]
    request_ended: bool
    """the asking side closed its direction of the connection after the request"""
    reply_pieces: Tuple[Piece, ...]
    end: ExchangeEnd
    end_pause: timedelta
    """after the last byte"""

    @property
    def request(self) -> bytes:
        """The bytes of all pieces of the request, or of the event."""
        return b"".join(piece.data for piece in self.request_pieces)

    @property
    def reply(self) -> bytes:
        """The bytes of all pieces of the reply."""
        return b"".join(piece.data for piece in self.reply_pieces)


@dataclass(frozen=True)
class Note:
    """Something that happened to the recording, such as the end of the service."""

    offset: timedelta
    text: str


Entry = Union[Exchange, Note]


class Recording:
    """A recording in memory. Iterating over it returns its exchanges and notes, in the order of the file::

        for entry in Recording.load("plant.rec"):
            if isinstance(entry, Exchange):
                print(entry.offset, entry.request, entry.reply)
    """

    def __init__(
        self, start: datetime, processes: Dict[int, Process], entries: List[Entry], lines: List[int], plant: str = ""
    ) -> None:
        self.start = start
        """The moment from which all offsets count, in UTC."""
        self.processes = processes
        """The programs by their numbers."""
        self.plant = plant
        """The plant when the recording began, as the text of a plant file. Empty if the recording has none."""
        self._entries = entries
        self._lines = lines

    @classmethod
    def load(cls, path: Union[str, PathLike[str]]) -> Recording:
        """Reads and checks a file. Raises RecordingError if it is not a valid recording, and OSError if it cannot be read."""
        with open(path, "rb") as file:
            return _parse(file.read(), fspath(path))

    def __iter__(self) -> Iterator[Entry]:
        return iter(self._entries)

    def __len__(self) -> int:
        return len(self._entries)

    def __getitem__(self, index: int) -> Entry:
        return self._entries[index]

    def line_number(self, index: int) -> int:
        """The line of an exchange or a note in the file, from 1."""
        return self._lines[index]


class _Mistake(Exception):
    """What is wrong with a line."""


def _shown(data: bytes) -> str:
    """The data in quotes; bytes that are not printable ASCII are escaped."""
    escaped = b"".join(
        _ESCAPES.get(byte) or (byte if b" " <= byte <= b"~" else b"\\x%02X" % byte[0])
        for byte in (data[at : at + 1] for at in range(min(len(data), _MOST_SHOWN)))
    )
    return f'"{escaped.decode()}"' + ("..." if len(data) > _MOST_SHOWN else "")


def _number(word: bytes, most: int) -> Optional[int]:
    value = int(word) if _NUMBER.fullmatch(word) and len(word) < 1000 else most + 1
    return value if value <= most else None


def _seconds(word: bytes) -> Optional[timedelta]:
    found = _SECONDS.fullmatch(word)
    whole = _number(found[1], _MOST_SECONDS) if found else None
    if found is None or whole is None:
        return None
    return timedelta(seconds=whole, microseconds=int((found[2] or b"").ljust(6, b"0")))


class _Words:
    """The words of a line, one after another."""

    def __init__(self, line: bytes) -> None:
        self.rest = line.lstrip(_BLANKS)

    def peek(self) -> bytes:
        found = _WORD.match(self.rest)
        return found[0] if found else b""

    def word(self) -> bytes:
        word = self.peek()
        self.rest = self.rest[len(word) :].lstrip(_BLANKS)
        return word

    def take(self, wanted: str) -> bool:
        if self.peek() != wanted.encode():
            return False
        self.word()
        return True

    def require(self, wanted: str) -> None:
        if not self.take(wanted):
            raise self.mistake(f'"{wanted}"')

    def require_end(self) -> None:
        if self.rest:
            raise self.mistake("the end of the line")

    def number(self, most: int, wanted: str) -> int:
        value = _number(self.peek(), most)
        if value is None:
            raise self.mistake(wanted)
        self.word()
        return value

    def pause(self) -> timedelta:
        if not self.rest.startswith(b"+"):
            return timedelta()
        pause = _seconds(self.peek()[1:])
        if pause is None:
            raise self.mistake("seconds with up to six decimals, such as +1.250000")
        self.word()
        return pause

    def quoted(self) -> bytes:
        found = _QUOTED.match(self.rest)
        if not found and self.rest.startswith(b'"'):
            raise _Mistake(
                f"the quoted text {_shown(self.rest)} is not complete, or has an escape other than "
                r"\n, \r, \t, \", \\ and \xNN"
            )
        if not found:
            raise _Mistake(f"expected a text in double quotes, found {_shown(self.rest)}")
        self.rest = self.rest[found.end() :]
        if self.rest and self.rest[:1] not in (b" ", b"\t"):
            raise self.mistake("a blank after the quoted text")
        self.rest = self.rest.lstrip(_BLANKS)
        return _ESCAPE.sub(lambda one: _ESCAPED.get(one[1]) or bytes([int(one[1][1:], 16)]), found[1])

    def mistake(self, wanted: str) -> _Mistake:
        return _Mistake(f"expected {wanted}, found {_shown(self.rest) if self.rest else 'the end of the line'}")


def _decoded(data: bytes) -> str:
    """Bytes that are not UTF-8 become surrogates, as in the other texts of this module."""
    return data.decode("utf-8", "surrogateescape")


def _pieces(words: _Words) -> Tuple[Tuple[Piece, ...], timedelta]:
    """The pieces, and the pause after the last one."""
    pieces = []
    pause = words.pause()
    while words.rest.startswith(b'"'):
        pieces.append(Piece(pause, words.quoted()))
        pause = words.pause()
    return tuple(pieces), pause


def _start(words: _Words) -> datetime:
    found = _START.fullmatch(words.peek())
    try:
        if not found:
            raise ValueError
        seconds = _seconds(found[6])
        year, month, day, hour, minute = (int(part) for part in found.groups()[:5])
        start = datetime(year, month, day, hour, minute, tzinfo=timezone.utc)
        if seconds is None or seconds >= timedelta(minutes=1) or start < _EPOCH:
            raise ValueError
    except ValueError:
        raise words.mistake("a time in UTC, such as 2026-11-22T14:00:00.000000Z") from None
    words.word()
    return start + seconds


class _Reader:
    """Reads line after line. The version comes first, then the start, and programs before the exchanges that name them."""

    def __init__(self) -> None:
        self.has_version = False
        self.start: Optional[datetime] = None
        self.processes: Dict[int, Process] = {}
        self.plant: List[str] = []

    def read(self, line: bytes) -> Optional[Entry]:
        words = _Words(line)
        if not words.rest or words.rest.startswith(b"#"):
            return None
        entry = self._read_words(words)
        words.require_end()
        return entry

    def check_end(self) -> None:
        if self.start is None:
            missing = "start" if self.has_version else "kvo-recording"
            raise _Mistake(f'the file ends before its "{missing}" line')

    def _read_words(self, words: _Words) -> Optional[Entry]:
        if words.take("kvo-recording"):
            self._read_version(words)
        elif not self.has_version:
            raise _Mistake(f'expected "kvo-recording {_VERSION}" as the first line; this file is not a recording')
        elif words.take("start"):
            self._read_start(words)
        elif words.take("process"):
            self._read_process(words)
        elif words.take("plant"):
            self._read_plant(words)
        else:
            return self._read_entry(words)
        return None

    def _read_entry(self, words: _Words) -> Entry:
        offset = _seconds(words.peek())
        if offset is None:
            raise words.mistake('an offset in seconds, "start", "process" or "plant"')
        words.word()
        self._require_start()
        if words.take("note"):
            return Note(offset, _decoded(words.quoted()))
        return self._read_exchange(words, offset)

    def _require_start(self) -> None:
        if self.start is None:
            raise _Mistake('expected "start" with a time in UTC before the first exchange')

    def _read_version(self, words: _Words) -> None:
        wanted = "the version of the format, such as 1"
        if words.peek() == b"0":
            raise words.mistake(wanted)
        version = words.number(_MOST_PROCESS, wanted)
        if self.has_version:
            raise _Mistake('a second "kvo-recording"; only the first line names the version')
        if version > _VERSION:
            raise _Mistake(
                f"version {version} of the format is newer than this program, which reads version {_VERSION}; use a newer program"
            )
        self.has_version = True

    def _read_start(self, words: _Words) -> None:
        start = _start(words)
        if self.start is not None:
            raise _Mistake('a second "start"; a recording has one')
        self.start = start

    def _read_process(self, words: _Words) -> None:
        number = words.number(_MOST_PROCESS, "the number of the program")
        pid = words.number(_MOST_PID, "a process id, or 0 if it is unknown")
        process = Process(number, pid, _decoded(words.quoted()))
        self._require_start()
        if number == 0 or number in self.processes:
            raise _Mistake(f"each program needs a number of its own, from 1; {number} is not free")
        self.processes[number] = process

    def _read_plant(self, words: _Words) -> None:
        line = _decoded(words.quoted())
        self._require_start()
        self.plant.append(line + "\n")

    def _read_exchange(self, words: _Words, offset: timedelta) -> Exchange:
        kind = next((kind for kind in ExchangeKind if words.take(kind.value)), None)
        if kind is None:
            raise words.mistake('"ask", "usb", "event" or "note"')
        number = words.number(_MOST_PROCESS, "the number of a program, or 0")
        words.require(">")
        request, pause = _pieces(words)
        if pause:
            raise words.mistake("a text in double quotes after the pause")
        ended = words.take("eof")
        words.require("<")
        reply, pause = _pieces(words)
        end: Optional[ExchangeEnd] = ExchangeEnd.CLOSED
        if pause or words.rest:
            end = next((end for end in ExchangeEnd if words.take(end.value)), None)
        if end is None:
            raise words.mistake('"closed", "left", "reset" or "open"')
        if number != 0 and number not in self.processes:
            raise _Mistake(f'no "process {number}" precedes this line')
        return Exchange(offset, kind, self.processes.get(number), request, ended, reply, end, pause)


def _parse(data: bytes, path: str) -> Recording:
    reader = _Reader()
    entries: List[Entry] = []
    lines: List[int] = []
    number = 1
    try:
        texts = data[3:].split(b"\n") if data.startswith(b"\xef\xbb\xbf") else data.split(b"\n")
        if not texts[-1]:
            texts.pop()  # what follows the last line end
        for text in texts:
            entry = reader.read(text[:-1] if text.endswith(b"\r") else text)
            if entry is not None:
                entries.append(entry)
                lines.append(number)
            number += 1
        reader.check_end()
    except _Mistake as mistake:
        raise RecordingError(path, number, str(mistake)) from None
    assert reader.start is not None
    return Recording(reader.start, reader.processes, entries, lines, "".join(reader.plant))
