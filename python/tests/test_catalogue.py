"""Each method against the replies that the catalogue of requests has: what is asked, what is returned, and what is raised."""

from __future__ import annotations

import inspect
import json
import os
import re
import socket
import subprocess
import threading
from pathlib import Path
from typing import Any, Callable, Dict, Iterator, List, NamedTuple, Optional

import pytest

import kvo_hws
from kvo_hws import KvoError, Panel, Service
from kvo_hws._prototypes import PROTOTYPES
from kvo_hws._result_texts import result_text

SOCKET = Path("/tmp/kvo_hws/cmd_sock")
Json = Dict[str, Any]


def catalogue() -> List[Json]:
    printed = subprocess.run([os.environ["KVO_CATALOGUE"]], check=True, stdout=subprocess.PIPE).stdout
    return list(json.loads(printed))


CATALOGUE = catalogue()


def method_of(request: Json) -> Callable[..., Any]:
    """The method, of an object about the catalogue's station."""
    owner, _, name = request["python"].rpartition(".")
    objects: Dict[str, Any] = {"Panel": Panel("10.0.0.5"), "Service": Service(), "": kvo_hws}
    found: Callable[..., Any] = getattr(objects.get(owner) or getattr(kvo_hws, owner), name)
    return found


@pytest.mark.parametrize("request_", [r for r in CATALOGUE if r["python"]], ids=lambda request: str(request["name"]))
def test_the_method_names_its_function(request_: Json) -> None:
    assert request_["function"] in re.findall(r"KVO_HWS_\w+", inspect.getdoc(method_of(request_)) or "")


def test_all_functions_of_the_module_are_in_the_catalogue() -> None:
    assert {name for name in PROTOTYPES if name.startswith("KVO_HWS_")} <= {request["function"] for request in CATALOGUE}


# ---- Those that need no more than the station ----


class Exchange(NamedTuple):
    request: Json
    exchange: Json

    def __str__(self) -> str:
        return f"{self.request['name']} {self.exchange['name']}"


def is_plain(request: Json) -> bool:
    """Whether the arguments are the station and room for outputs, as far as there are any."""
    usual = [exchange for exchange in request["exchanges"] if exchange["usual"]]
    plain = all(isinstance(argument, dict) for exchange in usual for argument in exchange["arguments"])
    return plain and len(request["commands"]) == 1 and request["python"].startswith(("Panel.", "Service."))


def exchanges() -> Iterator[Exchange]:
    for request in CATALOGUE:
        for exchange in request["exchanges"]:
            if is_plain(request) and exchange["usual"]:
                yield Exchange(request, exchange)


class Replies:
    """A service that gives one reply, or closes the connection."""

    def __init__(self, exchange: Json) -> None:
        self._exchange = exchange
        self._listener: Optional[socket.socket] = None
        self.heard: List[str] = []

    def __enter__(self) -> Replies:
        if self._exchange["service"] != "absent":
            SOCKET.parent.mkdir(parents=True, exist_ok=True)
            self._listener = socket.socket(socket.AF_UNIX)
            self._listener.bind(str(SOCKET))
            self._listener.listen()
            self._thread = threading.Thread(target=self._serve, args=(self._listener,))
            self._thread.start()
        return self

    def __exit__(self, *_: object) -> None:
        if self._listener is not None:
            self._listener.shutdown(socket.SHUT_RDWR)
            self._thread.join()
            self._listener.close()
            SOCKET.unlink()

    def _serve(self, listener: socket.socket) -> None:
        while True:
            try:
                connection, _ = listener.accept()
            except OSError:
                return
            with connection, connection.makefile("rwb") as lines:
                self.heard.append(lines.readline().decode().rstrip("\n"))
                if self._exchange["replies"]:
                    lines.write(self._exchange["replies"][0].encode() + b"\n")


def readings(stored: str) -> List[object]:
    """What stored bytes can be in Python: an unsigned or a signed number, or a text."""
    content = bytes.fromhex(stored)
    numbers: List[object] = [int.from_bytes(content[:4], "little"), int.from_bytes(content[:4], "little", signed=True)]
    return [*numbers, content.rstrip(b"\0").decode("utf-8", "replace")]


def agrees(value: Any, stored: List[str]) -> bool:
    """Whether a returned number, text or tuple is what was stored; of other objects nothing is said here."""
    if isinstance(value, tuple) and len(value) == len(stored):
        return all(agrees(part, [one]) for part, one in zip(value, stored))
    if isinstance(value, (int, float, str)) and stored:
        return any(value in readings(one) for one in stored)
    return True


@pytest.mark.parametrize("row", exchanges(), ids=str)
def test_the_method_returns_what_is_answered(row: Exchange) -> None:
    request, exchange = row
    failure: Optional[KvoError] = None
    value: Any = None
    with Replies(exchange) as service:
        try:
            value = method_of(request)()
        except KvoError as error:
            failure = error
    assert service.heard[:1] == exchange["commands"][:1]
    if exchange["result"] < 0:
        assert failure is not None and failure.code == exchange["result"]
        assert result_text(request["function"], exchange["result"]) in str(failure)
    elif failure is not None:
        assert failure.code == exchange["result"] == 0
    elif exchange["result"] == 1:
        assert agrees(value, [stored for stored in exchange["values"] if stored is not None])
    elif exchange["result"] == 0 and not exchange["values"]:
        assert not value
