"""The simulated hardware service of a whole plant, for tests without a panel: starts kvosim, and steers it while it runs."""

from __future__ import annotations

import atexit
import json
import math
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from contextlib import contextmanager
from dataclasses import dataclass
from functools import lru_cache
from ipaddress import IPv4Address
from pathlib import Path
from typing import IO, Any, Callable, Dict, Iterator, List, Optional, Sequence, Type, Union

from ._events import close_or_report
from ._namespace import enter_private_namespace
from ._sized import decode
from .errors import EventTimeout, NamespaceRefused, NoSimulator, SimulatorError
from .panel import Panel
from .records import Address
from .service import Service

KVOSIM_VARIABLE = "KVO_KVOSIM"
STATUS_NO_SIMULATOR = 3
POLL_SECONDS = 0.02
WAITING = "kvosim: waiting for "
COMMAND_SECONDS = 30.0
"""A command of kvosim that takes longer than this hangs; it waits for the receiver of an event for 4 s itself, and for the reply
of an agent as long as it is told to."""

StationName = Union[Address, Panel]
"""A station of the simulator: its address, its Panel, or its name."""
Value = Union[int, str]
PathText = Union[str, "os.PathLike[str]"]


@dataclass(frozen=True)
class UsbDelivery:
    """What came of a change of a USB device: which device it was, and what became of the event.

    ``delivery`` is "delivered", "nobody listens", "not written", "not activated" or "the simulator ends".
    """

    station: IPv4Address
    ident2: str
    ident3: str
    delivery: str

    @property
    def delivered(self) -> bool:
        """Whether the event was written to whoever listens; what that program answered is not looked at."""
        return self.delivery == "delivered"


def _named(station: StationName) -> str:
    """As kvosim takes it: an address in dots, or a name."""
    if isinstance(station, Panel):
        return str(station.address)
    return station if isinstance(station, str) else str(IPv4Address(station))


def _option(name: str, value: Value) -> List[str]:
    """An option of kvosim: switches have no value."""
    flag = "--" + name.replace("_", "-")
    if isinstance(value, bool):
        return [flag] if value else []
    return [f"{flag}={value}"]


class Simulator:
    """A simulated hardware service, in a ``with`` block::

        with Simulator(plant="plant.toml") as simulator:
            print(Service().get_stations())
            simulator.plug_usb("10.0.0.5")

    **Where it serves.** The library's sockets are at /tmp/kvo_hws, for every program of the machine. Three ways work:

    - ``Simulator()`` gives this process a /tmp/kvo_hws of its own first (enter_private_namespace), in which the simulator, this
      process and what it starts meet, and nobody else: any number of tests run side by side. That is for the life of the
      process, and has to be before it starts threads; further simulators of the process use the same place, one after another.
      Where the kernel or a container does not permit that, it uses the machine's own place as "kvosim run --shared" does: one
      simulator at a time, and start() waits for its turn, however long.
    - ``Simulator(private=False)`` serves at the machine's own place (or at whatever place the process was started in), where a
      service may be running already: then it refuses to start.
    - ``kvosim run -- python3 bench.py`` starts the program beside a simulator, in a place of their own; there
      ``Simulator.attach()`` is a handle to steer it.

    ``plant`` is a plant file, ``plant_text`` its text; without both, ``stations`` so many generated ones. ``focus`` is a
    station that is given the focus once the service is ready. ``remote`` are the sessions, 0 to 9, at which remote agents are
    served, at TCP port 5850 and the number of 127.0.0.1, which is the whole machine's. ``registry`` is a folder for the registry lists, to
    be kept from one start to the next; ``alive`` the seconds between "Alive?" events, 0 for none; ``usb_lock_address`` where
    datagrams of the USB lock are taken, "ADDRESS[:PORT]" or "none", by default 127.0.0.1:5851, to which the library is led by
    KVO_PLATFORM_INTERFACE=lo in the environment of this process, unless the variable is set. ``verbose`` shows each exchange on
    standard error. ``kvosim`` is the program; by default what KVO_KVOSIM names, else kvosim on the PATH.

    The simulator ends with the program, however that ends. A Ctrl-C at the terminal reaches the program alone.
    """

    def __init__(
        self,
        plant: Optional[PathText] = None,
        focus: Optional[StationName] = None,
        *,
        plant_text: Optional[str] = None,
        stations: int = 3,
        remote: Sequence[int] = (),
        registry: Optional[PathText] = None,
        alive: Optional[int] = None,
        usb_lock_address: Optional[str] = None,
        verbose: bool = False,
        private: bool = True,
        kvosim: Optional[PathText] = None,
    ) -> None:
        if plant is not None and plant_text is not None:
            raise TypeError("give a plant file or the text of one, not both")
        self._plant = plant
        self._plant_text = plant_text
        self._stations = stations
        self._focus = focus
        self._private = private
        self._program = _find_kvosim(kvosim)
        self._options: List[str] = [f"--remote={','.join(map(str, remote))}"] if remote else []
        for name, value in (("registry", registry), ("alive", alive), ("usb-lock-address", usb_lock_address)):
            if value is not None:
                self._options.append(f"--{name}={value}")
        self._verbose = verbose
        if verbose:
            self._options.append("--verbose")
        self._own_registry = registry is None
        self._registry: Optional[str] = None  # the temporary one, while kvosim runs
        self._process: Optional[subprocess.Popen[bytes]] = None
        self._attached = False
        self._shown = 0  # of what it says

    @classmethod
    def attach(cls, kvosim: Optional[PathText] = None) -> Simulator:
        """A handle to the simulator that runs here already, as under ``kvosim run``. It is steered, not started or stopped.

        Raises NoSimulator.
        """
        simulator = cls(kvosim=kvosim, private=False)
        simulator._attached = True
        simulator.status()
        return simulator

    # ---- Its life ----

    def start(self, timeout: float = 10.0) -> None:
        """Starts the simulator, and waits until it serves, ``timeout`` seconds at most. With ``init_time_ms`` in its plant it
        is not ready yet then: see wait_until_ready.

        Raises SimulatorError, with what kvosim says, where it can not start; NamespaceError.
        """
        if self._attached or self.running:
            raise SimulatorError("the simulator runs already")
        shared = self._private and not _has_private_place()
        if self._private:
            os.environ.setdefault("KVO_PLATFORM_INTERFACE", "lo")
        with self._plant_file() as plant, tempfile.TemporaryFile("w+", encoding="utf-8", errors="replace") as said:
            command = [self._program, "serve", f"--plant={plant}", "--until-input-ends", *self._options]
            if shared:
                # "cat" ends with its input.
                command = [self._program, "run", "--shared", f"--plant={plant}", *self._options, "--", "cat"]
            errors = None if self._verbose else said
            self._shown = 0
            # It ends with this program, however that ends, and not by a Ctrl-C that is this program's to handle.
            self._process = subprocess.Popen(
                command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=errors, start_new_session=True
            )
            atexit.register(self.kill)
            try:
                limit = math.inf if shared else timeout
                self._wait(lambda: self._serves(said, shared), limit, "the simulator does not serve")
            except BaseException:
                self.kill()
                raise
            # What it warns of, such as a port that another one has, and serves all the same.
            sys.stderr.write(_all_of(said)[self._shown :])
        if self._focus is not None:
            self._give_focus(self._focus, timeout)

    def stop(self) -> None:
        """Ends the simulator, as a service ends that is told to (SIGTERM), and waits for that."""
        self._end(signal.SIGTERM)

    def kill(self) -> None:
        """Ends the simulator as a crash would (SIGKILL); its sockets stay behind, its temporary registry does not."""
        self._end(signal.SIGKILL)

    def restart(self, timeout: float = 10.0) -> None:
        """Stops the simulator and starts it anew: the plant is as its file says again, and no events are activated."""
        self.stop()
        self.start(timeout)

    @property
    def running(self) -> bool:
        """Whether it runs."""
        if self._attached:
            try:
                self.status()
            except NoSimulator:
                return False
            return True
        return self._process is not None and self._process.poll() is None

    def wait_until_ready(self, timeout: float = 10.0) -> None:
        """Waits until the service says that it is ready; EventTimeout."""
        self._wait(lambda: Service().is_ready(), timeout, "the service is not ready")

    def __enter__(self) -> Simulator:
        if not self._attached:
            self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], another: Optional[BaseException], trace: object) -> None:
        if not self._attached:
            close_or_report(self.stop, another)

    @contextmanager
    def _plant_file(self) -> Iterator[str]:
        """The plant file, or one for as long as kvosim reads it."""
        if self._plant is not None:
            yield os.fspath(self._plant)
            return
        text = self._plant_text
        if text is None:
            text = self._run("generate", str(self._stations))
        with tempfile.TemporaryDirectory(prefix="kvo_hws-") as folder:
            file = Path(folder) / "plant.toml"
            file.write_text(text, encoding="utf-8")
            yield str(file)

    def _serves(self, said: IO[str], shared: bool) -> bool:
        process = self._process
        assert process is not None
        if process.poll() is not None:
            text = _all_of(said).strip() or f"kvosim ended with status {process.returncode}"
            raise SimulatorError(text, process.returncode)
        text = _all_of(said)
        if WAITING in text and not self._shown:
            sys.stderr.write(text)
            self._shown = len(text)
        try:
            status = self.status()
        except NoSimulator:
            return False
        except SimulatorError:
            if not shared:
                raise
            return False  # the one before it is another user's, and refuses to answer
        # A simulator that runs here already may answer; it is not this one.
        if status["process"] != process.pid:
            return False
        if self._own_registry:
            self._registry = str(status["registry"])
        return True

    def _end(self, how: signal.Signals) -> None:
        process, self._process = self._process, None
        if process is None:
            return
        atexit.unregister(self.kill)
        process.send_signal(how)
        process.wait()
        if process.stdin is not None:
            process.stdin.close()
        # One that is killed does not remove its temporary registry by itself.
        registry, self._registry = self._registry, None
        if registry is not None:
            shutil.rmtree(registry, ignore_errors=True)

    def _give_focus(self, station: StationName, timeout: float) -> None:
        try:
            self.wait_until_ready(timeout)
            if not Panel(self.station(station)["address"]).activate():
                raise SimulatorError(f"{station} is busy, and does not take the focus")
        except BaseException:
            self.kill()
            raise

    # ---- What it tells ----

    def status(self) -> Dict[str, Any]:
        """How it is: "process", "uptime_ms", "stations", "exchanges", "registry" (where its lists lie), "focus" (address and name, or
        "none"), "faults", "usb_events_activated", "usb_devices", "event_listeners", "remote_sessions" and more.
        """
        return self.command("status")

    def station(self, station: StationName) -> Dict[str, Any]:
        """All that it knows of a station, by the keys of plant files."""
        return self.command("station", "--", _named(station))

    def set_station(self, station: StationName, **values: Value) -> Dict[str, Any]:
        """Changes a station behind the programs' backs: any keys of plant files, all of them or, where one is wrong, none.

        ``simulator.set_station("10.0.0.5", mcp_address=17, viewer="nc:1", dpi="none")``
        """
        pairs = [f"{key}={int(value) if isinstance(value, bool) else value}" for key, value in values.items()]
        return self.command("station", "--set", *pairs, "--", _named(station))

    # ---- Faults ----

    def add_fault(
        self, kind: str, command: str = "*", *, after: int = 0, times: int = 0, delay_ms: Optional[int] = None
    ) -> None:
        """Makes requests fail: ``kind`` is delay, close, garbage, failed, split or silent; ``command`` the keyword of one
        request as it goes over the wire, or "*" for all.

        ``after`` so many are spared first; ``times`` so many are struck then, 0 for ever; ``delay_ms`` up to 60000, for delay
        (1000) and split (5).
        """
        options = [f"--command={command}", f"--after={after}", f"--times={times}"]
        if delay_ms is not None:
            options.append(f"--delay-ms={delay_ms}")
        self.command("fault", "add", kind, *options)

    def faults(self) -> List[Dict[str, Any]]:
        """The faults that are set, each with the number of requests that it has "struck"."""
        return _records(self.command("fault", "list")["faults"])

    def clear_faults(self) -> None:
        """Removes all faults."""
        self.command("fault", "clear")

    # ---- USB devices ----

    def plug_usb(self, station: StationName, **device: Value) -> UsbDelivery:
        """Plugs a device in; ``device`` has the keys of a plant file's usb_device, such as ident2="stick". While the station's
        USB lock is set it is refused instead.
        """
        return self._usb("plug", station, options=_device_options(device))

    def refuse_usb(self, station: StationName, **device: Value) -> UsbDelivery:
        """Lets a device come that the service refuses."""
        return self._usb("refuse", station, options=_device_options(device))

    def unplug_usb(self, station: StationName, device: str) -> UsbDelivery:
        """Removes a device, by its ident2, its ident3 or "IDENT2*IDENT3"."""
        return self._usb("unplug", station, device)

    def set_usb_state(self, station: StationName, device: str, state: int) -> UsbDelivery:
        """Changes a device's state."""
        return self._usb("state", station, device, str(state))

    def usb_devices(self, station: Optional[StationName] = None) -> List[Dict[str, Any]]:
        """The devices that are plugged in, at one station or at all."""
        where = [] if station is None else ["--", _named(station)]
        return _records(self.command("usb", "list", *where)["devices"])

    def _usb(self, what: str, station: StationName, *more: str, options: Sequence[str] = ()) -> UsbDelivery:
        told = self.command("usb", what, *options, "--", _named(station), *more)
        return UsbDelivery(IPv4Address(told["station"]), told["ident2"], told["ident3"], told["delivery"])

    # ---- Events of embedded stations ----

    def publish(self, name: str, data: str) -> int:
        """Publishes an event of embedded stations; tells to how many listeners."""
        told = self.command("event", "--", f"{name}, {data}", could_not_is_told=True)
        return int(told["listeners"])

    def wait_for_listeners(self, count: int = 1, timeout: float = 10.0) -> None:
        """Waits until so many programs listen for events of embedded stations; EventTimeout."""
        self._wait(lambda: int(self.status()["event_listeners"]) >= count, timeout, "nobody listens for events")

    # ---- The remote side of agents ----

    def ask_agent(self, session: int, request: str, timeout: int = 10) -> str:
        """Sends a request to the agent of a session, as its remote hardware service, and tells its reply.

        SimulatorError where no agent is connected, or none answers within so many seconds (1 to 600).
        """
        question = ("remote", "ask", f"--timeout={timeout}", "--", str(session), request)
        return str(self.command(*question, seconds=timeout + COMMAND_SECONDS)["reply"])

    def wait_for_agent(self, session: int, timeout: float = 10.0) -> None:
        """Waits until an agent is connected; EventTimeout."""

        def connected() -> bool:
            sessions = self.command("remote", "list")["sessions"]
            return any(one["session"] == session and one["agent"] is not None for one in sessions)

        self._wait(connected, timeout, f"no agent is connected in session {session}")

    def close_agent(self, session: int, reset: bool = False, away: Optional[int] = None) -> None:
        """Ends the connection of a session's agent, or resets it as a crash would; it comes again after 5 s. With ``away`` the
        port is closed too, for so many seconds (1 to 600), agent or not, as while the other side restarts.
        """
        absence = [] if away is None else [f"--for={away}"]
        self._run("remote", "close", str(session), *_option("reset", reset), *absence)

    def indications(self, session: int) -> List[str]:
        """The indications that a session's agent has pushed, each as it came, "I01:..."."""
        told = self._run("remote", "log", f"--session={session}", "--json").splitlines()
        records = [json.loads(line) for line in told]
        return [str(record["text"]) for record in records if record["kind"] == "indication"]

    # ---- kvosim itself ----

    def command(
        self, *arguments: str, could_not_is_told: bool = False, seconds: Optional[float] = None
    ) -> Dict[str, Any]:
        """Runs a command of kvosim (``kvosim --help``) against the simulator, and tells its answer.

        Raises NoSimulator; SimulatorError where it refused, or could not, or took longer than so many seconds. Behind "--"
        nothing is taken for an option.
        """
        words = list(arguments)
        words.insert(words.index("--") if "--" in words else len(words), "--json")
        told = json.loads(self._run(*words, could_not_is_told=could_not_is_told, seconds=seconds))
        return dict(told)

    def _run(self, *arguments: str, could_not_is_told: bool = False, seconds: Optional[float] = None) -> str:
        limit = COMMAND_SECONDS if seconds is None else seconds
        # kvosim reads and writes UTF-8, whatever the locale.
        words = [one.encode("utf-8", "surrogateescape") for one in arguments]
        try:
            ended = subprocess.run(
                [os.fsencode(self._program), *words], stdin=subprocess.DEVNULL, capture_output=True, timeout=limit
            )
        except subprocess.TimeoutExpired as error:
            raise SimulatorError(f"kvosim {' '.join(arguments)} has not come back within {limit:g} s") from error
        if ended.returncode == 0 or (could_not_is_told and ended.returncode == 1 and ended.stdout):
            return decode(ended.stdout)
        kind = NoSimulator if ended.returncode == STATUS_NO_SIMULATOR else SimulatorError
        raise kind(decode(ended.stderr).strip() or f"kvosim ended with status {ended.returncode}", ended.returncode)

    def _wait(self, condition: Callable[[], bool], timeout: float, otherwise: str) -> None:
        until = time.monotonic() + timeout
        while not condition():
            if time.monotonic() > until:
                raise EventTimeout(f"{otherwise}, after {timeout} s")
            time.sleep(POLL_SECONDS)


@lru_cache(maxsize=None)
def _has_private_place() -> bool:
    """Whether this process has one; says once why not. Raises NamespaceError where it is this process that cannot."""
    try:
        enter_private_namespace()
    except NamespaceRefused as refused:
        sys.stderr.write(f"kvo_hws: {refused.strerror}\n")
        return False
    return True


def _device_options(device: Dict[str, Value]) -> List[str]:
    return [option for name, value in device.items() for option in _option(name, value)]


def _all_of(said: IO[str]) -> str:
    # Without moving the place in the file, at which kvosim writes on.
    return os.pread(said.fileno(), os.fstat(said.fileno()).st_size, 0).decode("utf-8", "replace")


def _records(told: Any) -> List[Dict[str, Any]]:
    return [dict(one) for one in told]


def _find_kvosim(chosen: Optional[PathText]) -> str:
    program = os.fspath(chosen) if chosen is not None else os.environ.get(KVOSIM_VARIABLE, "kvosim")
    found = shutil.which(program)
    if found is None:
        raise SimulatorError(
            f"there is no program {program}; install kvosim, give its path as kvosim=..., "
            f"or set {KVOSIM_VARIABLE}, as to build/release/bin/kvosim"
        )
    return found
