"""Checks each method with the replies of the catalogue of requests: the request line, the returned value, and the exception."""

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
    """The method, bound to an object for the catalogue's station."""
    owner, _, name = request["python"].rpartition(".")
    objects: Dict[str, Any] = {"Panel": Panel("10.0.0.5"), "Service": Service(), "": kvo_hws}
    found: Callable[..., Any] = getattr(objects.get(owner) or getattr(kvo_hws, owner), name)
    return found


@pytest.mark.parametrize("request_", [r for r in CATALOGUE if r["python"]], ids=lambda request: str(request["name"]))
def test_the_docstring_names_the_c_function(request_: Json) -> None:
    assert request_["function"] in re.findall(r"KVO_HWS_\w+", inspect.getdoc(method_of(request_)) or "")


def test_all_functions_of_the_module_are_in_the_catalogue() -> None:
    assert {name for name in PROTOTYPES if name.startswith("KVO_HWS_")} <= {request["function"] for request in CATALOGUE}


# ---- Requests whose only input is the station ----


class Exchange(NamedTuple):
    request: Json
    exchange: Json

    def __str__(self) -> str:
        return f"{self.request['name']} {self.exchange['name']}"


def takes_only_a_station(request: Json) -> bool:
    """Whether the only arguments are the station and buffers for outputs, or none."""
    usual = [exchange for exchange in request["exchanges"] if exchange["usual"]]
    no_inputs = all(isinstance(argument, dict) for exchange in usual for argument in exchange["arguments"])
    return no_inputs and len(request["commands"]) == 1 and request["python"].startswith(("Panel.", "Service."))


def exchanges() -> Iterator[Exchange]:
    for request in CATALOGUE:
        for exchange in request["exchanges"]:
            if takes_only_a_station(request) and exchange["usual"]:
                yield Exchange(request, exchange)


class OneReplyService:
    """A service that sends one reply, or closes the connection. With "absent" in the catalogue it does not listen."""

    def __init__(self, exchange: Json) -> None:
        self._exchange = exchange
        self._listener: Optional[socket.socket] = None
        self.received: List[str] = []

    def __enter__(self) -> OneReplyService:
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
                self.received.append(lines.readline().decode().rstrip("\n"))
                if self._exchange["replies"]:
                    lines.write(self._exchange["replies"][0].encode() + b"\n")


def interpretations(stored: str) -> List[object]:
    """The possible Python values of stored bytes: an unsigned number, a signed number, and a text."""
    content = bytes.fromhex(stored)
    numbers: List[object] = [int.from_bytes(content[:4], "little"), int.from_bytes(content[:4], "little", signed=True)]
    return [*numbers, content.rstrip(b"\0").decode("utf-8", "replace")]


def matches(value: Any, stored: List[str]) -> bool:
    """Whether a returned number, text or tuple equals the stored bytes. Objects of other types are not checked."""
    if isinstance(value, tuple) and len(value) == len(stored):
        return all(matches(part, [one]) for part, one in zip(value, stored))
    if isinstance(value, (int, float, str)) and stored:
        return any(value in interpretations(one) for one in stored)
    return True


@pytest.mark.parametrize("row", exchanges(), ids=str)
def test_the_method_returns_the_value_of_the_reply(row: Exchange) -> None:
    request, exchange = row
    failure: Optional[KvoError] = None
    value: Any = None
    with OneReplyService(exchange) as service:
        try:
            value = method_of(request)()
        except KvoError as error:
            failure = error
    assert service.received[:1] == exchange["commands"][:1]
    if exchange["result"] < 0:
        assert failure is not None and failure.code == exchange["result"]
        assert result_text(request["function"], exchange["result"]) in str(failure)
    elif failure is not None:
        assert failure.code == exchange["result"] == 0
    elif exchange["result"] == 1:
        assert matches(value, [stored for stored in exchange["values"] if stored is not None])
    elif exchange["result"] == 0 and not exchange["values"]:
        assert not value
