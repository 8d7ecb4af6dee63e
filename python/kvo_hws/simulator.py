"""A simulated hardware service for a whole plant, for tests without a panel. Starts kvosim, and controls it while it runs."""

from __future__ import annotations

import json
import os
import shutil
import signal
import subprocess
import tempfile
from contextlib import contextmanager
from dataclasses import dataclass
from ipaddress import IPv4Address
from pathlib import Path
from typing import Any, Dict, Iterator, List, Optional, Sequence, Type, Union

from ._events import close_preserving
from ._process import KvosimProcess, PathText, find_kvosim, wait_for
from ._sized import decode
from .errors import NoSimulator, SimulatorError
from .panel import Panel
from .records import Address
from .service import Service

STATUS_NO_SIMULATOR = 3
COMMAND_SECONDS = 30.0
"""The time limit for a command of kvosim. kvosim itself waits 4 s for the receiver of an event. For the reply of an agent it
waits as long as the caller specifies."""

StationName = Union[Address, Panel]
"""A station of the simulator: an address, a Panel, or a name."""
Value = Union[int, str]


@dataclass(frozen=True)
class UsbDelivery:
    """The result of a change of a USB device: the device, and what happened to the event.

    ``delivery`` is `delivered`, `nobody listens`, `not written`, `not activated` or `the simulator ends`.
    """

    station: IPv4Address
    ident2: str
    ident3: str
    delivery: str

    @property
    def delivered(self) -> bool:
        """Whether the event was written to the listening program, with any reply of that program."""
        return self.delivery == "delivered"


def _station_argument(station: StationName) -> str:
    """The form that kvosim accepts: a dotted address or a name."""
    if isinstance(station, Panel):
        return str(station.address)
    return station if isinstance(station, str) else str(IPv4Address(station))


def _option(name: str, value: Value) -> List[str]:
    """An option of kvosim. Switches have no value."""
    flag = "--" + name.replace("_", "-")
    if isinstance(value, bool):
        return [flag] if value else []
    return [f"{flag}={value}"]


class Simulator:
    """A simulated hardware service, in a ``with`` block::

        with Simulator(plant="plant.toml") as simulator:
            print(Service().get_stations())
            simulator.plug_usb("10.0.0.5")

    **The folder of the sockets.** All programs of a machine use the library's sockets in /tmp/kvo_hws. There are three ways to
    start a simulator:

    - ``Simulator()`` uses a private /tmp/kvo_hws. start() gives this folder to the process (enter_private_namespace) before the
      simulator starts. Only the simulator, this process and the programs that it starts use the folder, so any number of tests
      can run in parallel. The folder exists until the process ends. Start the first simulator before the process starts
      threads. Other simulators of the process use the same folder, one after the other. If the kernel or a container does not
      permit a private folder, the simulator uses the machine's own folder, as "kvosim run --shared" does. Then only one
      simulator runs at a time, and start() waits without a time limit until the folder is free.
    - ``Simulator(private=False)`` uses the machine's own folder, or the folder with which the process was started. If a service
      is already running there, the simulator refuses to start.
    - ``kvosim run -- python3 bench.py`` starts the program together with a simulator, in a private folder. In that program,
      ``Simulator.attach()`` returns an object that controls the simulator.

    **The parameters.**

    - ``plant`` is the path of a plant file, and ``plant_text`` is the content of such a file. Without both, the plant has
      ``stations`` generated stations.
    - ``focus`` is the station that gets the focus when the service is ready.
    - ``remote`` are the numbers of the agents' sessions, 0 to 9. For each of them, the simulator listens at TCP port 5850 + the
      number of 127.0.0.1. All programs of the machine share these ports.
    - ``registry`` is a folder that keeps the registry lists from one start to the next.
    - ``alive`` is the number of seconds between "Alive?" events; 0 switches them off.
    - ``usb_lock_address`` is the address at which the simulator receives datagrams of the USB lock, "ADDRESS[:PORT]" or "none".
      The default is 127.0.0.1:5851. With ``private``, start() sets KVO_PLATFORM_INTERFACE=lo in the environment of this process
      unless the variable is set. The library then sends the datagrams to this address.
    - ``verbose`` prints each exchange on standard error.
    - ``kvosim`` is the path of the program kvosim. The default is the variable KVO_KVOSIM, otherwise kvosim from the PATH.

    The simulator ends when this process ends, even if the process is killed. A Ctrl-C at the terminal reaches only this
    process.
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
            raise TypeError("pass either plant or plant_text, not both")
        self._plant = plant
        self._plant_text = plant_text
        self._stations = stations
        self._focus = focus
        self._program = find_kvosim(kvosim)
        self._options: List[str] = [f"--remote={','.join(map(str, remote))}"] if remote else []
        for name, value in (("registry", registry), ("alive", alive), ("usb-lock-address", usb_lock_address)):
            if value is not None:
                self._options.append(f"--{name}={value}")
        if verbose:
            self._options.append("--verbose")
        self._own_registry = registry is None
        self._registry: Optional[str] = None  # the temporary folder, while kvosim runs
        self._process = KvosimProcess(self._program, private=private, verbose=verbose)
        self._attached = False

    @classmethod
    def attach(cls, kvosim: Optional[PathText] = None) -> Simulator:
        """Returns an object that controls the simulator that is already running here, for example under ``kvosim run``. The
        object does not start or stop it.

        Raises NoSimulator.
        """
        simulator = cls(kvosim=kvosim, private=False)
        simulator._attached = True
        simulator.status()
        return simulator

    # ---- Starting and stopping ----

    def start(self, timeout: float = 10.0) -> None:
        """Starts the simulator, and waits at most ``timeout`` seconds until it accepts requests. If its plant has
        ``init_time_ms``, the service is not ready yet; see wait_until_ready.

        Raises SimulatorError with the message of kvosim if kvosim cannot start, and NamespaceError.
        """
        if self._attached or self.running:
            raise SimulatorError("the simulator is already running")
        with self._plant_file() as plant:
            options = [f"--plant={plant}", *self._options]
            self._process.start(["serve", *options], ["run", "--shared", *options], self._accepts_requests, timeout)
        if self._focus is not None:
            self._give_focus(self._focus, timeout)

    def stop(self) -> None:
        """Ends the simulator normally (SIGTERM), and waits for its end."""
        self._end(signal.SIGTERM)

    def kill(self) -> None:
        """Ends the simulator as a crash would (SIGKILL). Its sockets remain; its temporary registry is removed."""
        self._end(signal.SIGKILL)

    def restart(self, timeout: float = 10.0) -> None:
        """Stops the simulator and starts it again. The plant is again as in its file, and USB events are not activated."""
        self.stop()
        self.start(timeout)

    @property
    def running(self) -> bool:
        """Whether the simulator is running."""
        if self._attached:
            try:
                self.status()
            except NoSimulator:
                return False
            return True
        return self._process.running

    def wait_until_ready(self, timeout: float = 10.0) -> None:
        """Waits until the service reports that it is ready. Raises EventTimeout."""
        wait_for(Service().is_ready, timeout, "the service is not ready")

    def __enter__(self) -> Simulator:
        if not self._attached:
            self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], active: Optional[BaseException], trace: object) -> None:
        if not self._attached:
            close_preserving(self.stop, active)

    @contextmanager
    def _plant_file(self) -> Iterator[str]:
        """Yields the path of the plant file, or of a temporary plant file that exists until kvosim has read it."""
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

    def _accepts_requests(self, shared: bool) -> bool:
        try:
            status = self.status()
        except NoSimulator:
            return False
        except SimulatorError:
            if not shared:
                raise
            return False  # the simulator of another user still runs here, and refuses requests of this user
        # The reply may come from another simulator that already runs here.
        if status["process"] != self._process.pid:
            return False
        if self._own_registry:
            self._registry = str(status["registry"])
        return True

    def _end(self, how: signal.Signals) -> None:
        self._process.end(how)
        # A killed simulator does not remove its temporary registry.
        registry, self._registry = self._registry, None
        if registry is not None:
            shutil.rmtree(registry, ignore_errors=True)

    def _give_focus(self, station: StationName, timeout: float) -> None:
        try:
            self.wait_until_ready(timeout)
            if not Panel(self.station(station)["address"]).activate():
                raise SimulatorError(f"{station} is busy and does not take the focus")
        except BaseException:
            self.kill()
            raise

    # ---- State ----

    def status(self) -> Dict[str, Any]:
        """The simulator's status: "process", "uptime_ms", "stations", "exchanges", "registry" (the folder of its lists),
        "focus" (address and name, or "none"), "faults", "usb_events_activated", "usb_devices", "event_listeners",
        "remote_sessions" and more.
        """
        return self.command("status")

    def station(self, station: StationName) -> Dict[str, Any]:
        """The whole state of a station, with the keys of plant files."""
        return self.command("station", "--", _station_argument(station))

    def set_station(self, station: StationName, **values: Value) -> Dict[str, Any]:
        """Changes a station's state directly, without a request to the service. Accepts the keys of plant files. If a key or
        value is wrong, nothing changes.

        ``simulator.set_station("10.0.0.5", mcp_address=17, viewer="nc:1", dpi="none")``
        """
        pairs = [f"{key}={int(value) if isinstance(value, bool) else value}" for key, value in values.items()]
        return self.command("station", "--set", *pairs, "--", _station_argument(station))

    # ---- Faults ----

    def add_fault(
        self, kind: str, command: str = "*", *, after: int = 0, times: int = 0, delay_ms: Optional[int] = None
    ) -> None:
        """Makes requests fail. ``kind`` is delay, close, garbage, failed, split or silent. ``command`` is the keyword of a
        request on the wire, or "*" for all requests.

        The fault does not affect the first ``after`` requests. It affects the next ``times`` requests; with 0, all of them.
        ``delay_ms`` is at most 60000; the kinds delay (default 1000) and split (default 5) use it.
        """
        options = [f"--command={command}", f"--after={after}", f"--times={times}"]
        if delay_ms is not None:
            options.append(f"--delay-ms={delay_ms}")
        self.command("fault", "add", kind, *options)

    def faults(self) -> List[Dict[str, Any]]:
        """The active faults. The key "struck" of each is the number of requests that it has affected."""
        return _records(self.command("fault", "list")["faults"])

    def clear_faults(self) -> None:
        """Removes all faults."""
        self.command("fault", "clear")

    # ---- USB devices ----

    def plug_usb(self, station: StationName, **device: Value) -> UsbDelivery:
        """Plugs a device in. ``device`` has the keys of a plant file's usb_device, such as ident2="stick". While the station's
        USB lock is set, the device is refused instead.
        """
        return self._usb("plug", station, options=_device_options(device))

    def refuse_usb(self, station: StationName, **device: Value) -> UsbDelivery:
        """Plugs a device in that the service refuses."""
        return self._usb("refuse", station, options=_device_options(device))

    def unplug_usb(self, station: StationName, device: str) -> UsbDelivery:
        """Removes a device. ``device`` is its ident2, its ident3 or "IDENT2*IDENT3"."""
        return self._usb("unplug", station, device)

    def set_usb_state(self, station: StationName, device: str, state: int) -> UsbDelivery:
        """Changes the state of a device."""
        return self._usb("state", station, device, str(state))

    def usb_devices(self, station: Optional[StationName] = None) -> List[Dict[str, Any]]:
        """The devices that are plugged in, at one station or at all stations."""
        where = [] if station is None else ["--", _station_argument(station)]
        return _records(self.command("usb", "list", *where)["devices"])

    def _usb(self, what: str, station: StationName, *more: str, options: Sequence[str] = ()) -> UsbDelivery:
        reply = self.command("usb", what, *options, "--", _station_argument(station), *more)
        return UsbDelivery(IPv4Address(reply["station"]), reply["ident2"], reply["ident3"], reply["delivery"])

    # ---- Events of embedded stations ----

    def publish(self, name: str, data: str) -> int:
        """Publishes an event of embedded stations. Returns the number of listeners."""
        reply = self.command("event", "--", f"{name}, {data}", could_not_is_told=True)
        return int(reply["listeners"])

    def wait_for_listeners(self, count: int = 1, timeout: float = 10.0) -> None:
        """Waits until ``count`` programs listen for events of embedded stations. Raises EventTimeout."""
        too_few = f"fewer than {count} programs listen for events"
        wait_for(lambda: int(self.status()["event_listeners"]) >= count, timeout, too_few)

    # ---- The remote side of agents ----

    def ask_agent(self, session: int, request: str, timeout: int = 10) -> str:
        """Sends a request to the agent of a session, as its remote hardware service does, and returns the agent's reply.

        Raises SimulatorError if no agent is connected, or the agent does not reply within ``timeout`` seconds (1 to 600).
        """
        question = ("remote", "ask", f"--timeout={timeout}", "--", str(session), request)
        return str(self.command(*question, seconds=timeout + COMMAND_SECONDS)["reply"])

    def wait_for_agent(self, session: int, timeout: float = 10.0) -> None:
        """Waits until an agent is connected. Raises EventTimeout."""

        def connected() -> bool:
            sessions = self.command("remote", "list")["sessions"]
            return any(one["session"] == session and one["agent"] is not None for one in sessions)

        wait_for(connected, timeout, f"no agent is connected in session {session}")

    def close_agent(self, session: int, reset: bool = False, away: Optional[int] = None) -> None:
        """Ends the connection of a session's agent. With ``reset``, resets the connection as a crash would. The agent connects
        again after 5 s. ``away`` also closes the port for that many seconds (1 to 600), as if the remote side restarted; this
        works even if no agent is connected.
        """
        absence = [] if away is None else [f"--for={away}"]
        self._run("remote", "close", str(session), *_option("reset", reset), *absence)

    def indications(self, session: int) -> List[str]:
        """The indications that a session's agent has pushed, unchanged: "I01:..."."""
        lines = self._run("remote", "log", f"--session={session}", "--json").splitlines()
        records = [json.loads(line) for line in lines]
        return [str(record["text"]) for record in records if record["kind"] == "indication"]

    # ---- Commands of kvosim ----

    def command(
        self, *arguments: str, could_not_is_told: bool = False, seconds: Optional[float] = None
    ) -> Dict[str, Any]:
        """Runs a command of kvosim (``kvosim --help``) for this simulator, and returns its JSON reply.

        Raises NoSimulator, and SimulatorError if the command was refused, failed, or took longer than ``seconds``. With
        ``could_not_is_told``, returns the reply of a command that failed, if it printed one. Arguments after "--" are not
        options.
        """
        # The keyword keeps its first name: test benches pass it.
        words = list(arguments)
        words.insert(words.index("--") if "--" in words else len(words), "--json")
        return dict(json.loads(self._run(*words, accept_failure=could_not_is_told, seconds=seconds)))

    def _run(self, *arguments: str, accept_failure: bool = False, seconds: Optional[float] = None) -> str:
        limit = COMMAND_SECONDS if seconds is None else seconds
        # kvosim reads and writes UTF-8 in every locale.
        words = [one.encode("utf-8", "surrogateescape") for one in arguments]
        try:
            ended = subprocess.run(
                [os.fsencode(self._program), *words], stdin=subprocess.DEVNULL, capture_output=True, timeout=limit
            )
        except subprocess.TimeoutExpired as error:
            raise SimulatorError(f"kvosim {' '.join(arguments)} did not end within {limit:g} s") from error
        if ended.returncode == 0 or (accept_failure and ended.returncode == 1 and ended.stdout):
            return decode(ended.stdout)
        kind = NoSimulator if ended.returncode == STATUS_NO_SIMULATOR else SimulatorError
        raise kind(decode(ended.stderr).strip() or f"kvosim ended with status {ended.returncode}", ended.returncode)


def _device_options(device: Dict[str, Value]) -> List[str]:
    return [option for name, value in device.items() for option in _option(name, value)]


def _records(rows: Any) -> List[Dict[str, Any]]:
    return [dict(one) for one in rows]
