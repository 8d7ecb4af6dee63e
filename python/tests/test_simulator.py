"""The simulator: its folder, its start and end, and how programs control it."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import List

import pytest
from cases import MILL_IP
from conftest import PLANT, wait_for

from kvo_hws import (
    Agent,
    AgentCommand,
    EmbeddedEvents,
    EventTimeout,
    NoSimulator,
    NotConnected,
    Panel,
    Service,
    ServiceError,
    Simulator,
    SimulatorError,
    UsbDelivery,
)


def python(program: str, *before: str) -> "subprocess.CompletedProcess[str]":
    return subprocess.run([*before, sys.executable, "-c", program], capture_output=True, text=True, timeout=30)


def test_stations_can_be_changed_while_the_simulator_runs(simulator: Simulator) -> None:
    assert simulator.status()["stations"] == 2
    assert simulator.set_station("Fräszentrum 1", viewer="nc = 1:2", dpi="none", backlight=False)["viewer"] == "nc = 1:2"
    assert (simulator.station(MILL_IP)["dpi"], simulator.station(Panel(MILL_IP))["backlight"]) == ("none", 0)
    with pytest.raises(SimulatorError, match="no station has") as raised:
        simulator.station("Nobody")
    assert raised.value.status == 2
    with pytest.raises(SimulatorError):
        simulator.set_station(MILL_IP, mcp_address=256)


def test_faults_are_added_counted_and_cleared(simulator: Simulator) -> None:
    simulator.add_fault("failed", "getKVOIndex", after=1, times=1)
    simulator.add_fault("split", "getVersion", delay_ms=1)
    assert Panel(MILL_IP).get_kvo_index() == 0
    with pytest.raises(ServiceError):
        Panel(MILL_IP).get_kvo_index()
    assert Panel(MILL_IP).get_kvo_index() == 0
    assert Service().get_version() == "V04.07.01.12"
    assert [(one["command"], one["kind"], one["struck"]) for one in simulator.faults()] == [
        ("getKVOIndex", "failed", 1),
        ("getVersion", "split", 1),
    ]
    simulator.clear_faults()
    assert simulator.faults() == []
    with pytest.raises(SimulatorError):
        simulator.add_fault("nonsense")


def test_usb_devices_are_plugged_in_and_removed(simulator: Simulator) -> None:
    result = simulator.plug_usb(Panel(MILL_IP), ident2="stick", bytes="0A1B", no_text5=True, report=False)
    assert result == UsbDelivery(Panel(MILL_IP).address, "stick", "1-1.1", "not activated") and not result.delivered
    (device,) = simulator.usb_devices(MILL_IP)
    assert (device["ident2"], device["no_text5"], device["report"], device["bytes"][:6]) == ("stick", 1, 0, "0A1B00")
    simulator.set_usb_state(MILL_IP, "stick", 5)
    assert [one["state"] for one in simulator.usb_devices()] == [5]
    simulator.unplug_usb(MILL_IP, "stick")
    assert simulator.usb_devices() == []
    with pytest.raises(SimulatorError):
        simulator.unplug_usb(MILL_IP, "stick")


def test_a_session_without_an_agent_is_an_error(simulator: Simulator) -> None:
    with pytest.raises(SimulatorError, match="no agent"):
        simulator.ask_agent(3, "ping")
    with pytest.raises(EventTimeout, match="no agent is connected in session 3, after 0.1 s"):
        simulator.wait_for_agent(3, timeout=0.1)


def test_the_simulator_can_be_stopped_restarted_and_killed(simulator: Simulator) -> None:
    Panel(MILL_IP).set_mcp_address(77)
    simulator.restart()
    assert Panel(MILL_IP).get_mcp_address() == 0, "the plant is again as in its file"
    registry = Path(simulator.status()["registry"])
    assert (registry / "kvo_hws/currkvos.reg").is_file()
    simulator.kill()
    assert not registry.exists(), "a temporary registry is removed"
    assert (simulator.running, os.path.exists("/tmp/kvo_hws/cmd_sock")) == (False, True)
    with pytest.raises(NotConnected):
        Service().is_ready()
    with pytest.raises(NoSimulator):
        simulator.status()
    simulator.start()
    assert (simulator.running, Service().is_ready()) == (True, True)
    with pytest.raises(SimulatorError, match="already"):
        simulator.start()
    simulator.stop()
    simulator.stop()


def test_the_station_gets_the_focus_when_the_service_is_ready(tmp_path: Path, no_plant: None) -> None:
    file = tmp_path / "plant.toml"
    file.write_text(PLANT.replace("[service]", "[service]\ninit_time_ms = 200"))
    with Simulator(file, focus="Lathe 1", registry=tmp_path / "registry", alive=0, usb_lock_address="none") as simulator:
        assert simulator.status()["focus"] == "10.0.0.6 Lathe 1"
        assert simulator.status()["usb_lock_address"] == "none"
        assert (tmp_path / "registry").is_dir()


def test_an_invalid_plant_or_program_is_an_error(tmp_path: Path) -> None:
    broken = Simulator(plant_text="[[station]]\nname = 5\n")
    with pytest.raises(SimulatorError, match="plant.toml:"), broken:
        pytest.fail("an invalid plant was accepted")
    assert not broken.running
    with pytest.raises(SimulatorError, match="absent.toml"):
        Simulator(tmp_path / "absent.toml").start()
    with pytest.raises(TypeError):
        Simulator("plant.toml", plant_text=PLANT)
    with pytest.raises(SimulatorError, match="KVO_KVOSIM"):
        Simulator(kvosim="/nowhere/kvosim")


def test_a_second_simulator_in_the_same_folder_is_refused(simulator: Simulator) -> None:
    with pytest.raises(SimulatorError, match="a service is already running"):
        Simulator(private=False).start()
    assert simulator.running


PARALLEL = """
from kvo_hws import Simulator, Service
with Simulator(stations=5):
    print(len(Service().get_stations()))
"""


def test_another_process_gets_its_own_private_folder(simulator: Simulator) -> None:
    ended = python(PARALLEL)
    assert (ended.stdout, ended.returncode) == ("5\n", 0), ended.stderr
    assert len(Service().get_stations()) == 2


def test_a_process_without_root_gets_a_private_folder_too(simulator: Simulator) -> None:
    if os.getuid() != 0:
        pytest.skip("the tests run without root already")
    other_user = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    allowed = subprocess.run([*other_user, "unshare", "--user", "--mount", "true"], capture_output=True)
    reachable = subprocess.run([*other_user, "test", "-x", os.environ["KVO_KVOSIM"]], capture_output=True)
    executable = subprocess.run([*other_user, "test", "-x", sys.executable], capture_output=True)
    if allowed.returncode or reachable.returncode or executable.returncode:
        pytest.skip("the kernel forbids user namespaces to ordinary users, or they cannot reach the build folder")
    ended = python(PARALLEL, *other_user)
    assert (ended.stdout, ended.returncode) == ("5\n", 0), ended.stderr


THREADED = """
import threading, time
from kvo_hws import Simulator
threading.Thread(target=time.sleep, args=(1,), daemon=True).start()
Simulator().start()
"""


def test_the_error_for_a_process_with_several_threads_names_the_alternatives() -> None:
    ended = python(THREADED)
    assert "NamespaceError" in ended.stderr and "this process already has 2 threads" in ended.stderr
    assert "kvosim run -- python3" in ended.stderr


ATTACHED = """
from kvo_hws import Service, Simulator, SimulatorError
with Simulator.attach() as simulator:
    assert simulator.running
    simulator.set_station("Lathe 1", mcp_address=9)
    print(Service().find_by_mcp_address(9))
    try:
        simulator.start()
    except SimulatorError as error:
        print(error)
print(simulator.running)
"""


def test_a_program_under_kvosim_run_can_attach_to_the_simulator(tmp_path: Path, no_plant: None) -> None:
    (tmp_path / "plant.toml").write_text(PLANT)
    run = [os.environ["KVO_KVOSIM"], "run", f"--plant={tmp_path / 'plant.toml'}", "--usb-lock-address=none", "--"]
    ended = python(ATTACHED, *run)
    assert ended.stdout == "10.0.0.6\nthe simulator is already running\nTrue\n", ended.stderr
    assert "NoSimulator" in python("from kvo_hws import Simulator; Simulator.attach()").stderr


LEFT_RUNNING = """
import os
from kvo_hws import Simulator
simulator = Simulator(private=False)
simulator.start()
print(simulator.status()["process"])
"""


def test_the_simulator_ends_with_a_program_that_does_not_stop_it(no_plant: None) -> None:
    ended = python(LEFT_RUNNING)
    process = int(ended.stdout)
    wait_for(lambda: not os.path.exists(f"/proc/{process}"))


def test_several_threads_can_control_the_simulator(simulator: Simulator) -> None:
    results: List[int] = []
    threads = [threading.Thread(target=lambda: results.append(simulator.status()["stations"])) for _ in range(5)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert results == [2] * 5


def test_a_request_to_an_agent_can_take_longer_than_the_limit_of_commands(
    simulator: Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    def on_command(command: AgentCommand) -> bool:
        time.sleep(2)
        return True

    with Agent(MILL_IP, session=3, on_command=on_command):
        simulator.wait_for_agent(3)
        monkeypatch.setattr("kvo_hws.simulator.COMMAND_SECONDS", 1.0)
        assert simulator.ask_agent(3, "stop-viewer") == "ok"
        monkeypatch.undo()
        with pytest.raises(SimulatorError, match="did not end within 0.2 s"):
            simulator.command("remote", "ask", "3", "stop-viewer", seconds=0.2)


def test_texts_are_utf_8_in_every_locale(simulator: Simulator) -> None:
    program = "from kvo_hws import Simulator; print(ascii(Simulator.attach().station('Fr\\xe4szentrum 1')['name']))"
    variables = {**os.environ, "LC_ALL": "C", "PYTHONUTF8": "0", "PYTHONCOERCECLOCALE": "0"}
    ended = subprocess.run([sys.executable, "-c", program], env=variables, capture_output=True, text=True)
    assert (ended.stdout, ended.stderr) == ("'Fr\\xe4szentrum 1'\n", "")


def test_a_single_host_is_rejected_as_a_list_of_hosts() -> None:
    with pytest.raises(TypeError, match="a list of addresses"):
        Service().set_usb_lock(1, 0, MILL_IP)


def test_names_and_texts_can_begin_with_a_dash(no_plant: None) -> None:
    text = '[[station]]\naddress = "10.0.0.5"\nname = "-dashed"\n'
    with Simulator(plant_text=text, remote=[3]) as own, EmbeddedEvents() as events, Agent(MILL_IP, session=3):
        assert own.station("-dashed")["address"] == MILL_IP
        assert own.set_station("-dashed", kvo_index=4, mcp_address=5)["mcp_address"] == 5
        assert own.plug_usb("-dashed", ident2="-stick").ident2 == "-stick"
        assert [one["ident2"] for one in own.usb_devices("-dashed")] == ["-stick"]
        assert own.unplug_usb("-dashed", "-stick").ident2 == "-stick"
        own.wait_for_listeners()
        own.publish("-key", "F1")
        assert events.get(timeout=20).name == "-key"
        own.wait_for_agent(3)
        assert own.ask_agent(3, "-ping") == "bad request"


BENCH = """
import os, signal, sys
from kvo_hws import Simulator
with Simulator(private=False) as simulator:
    try:
        print("ready", flush=True)
        input()
    except KeyboardInterrupt:
        print(simulator.running, flush=True)
    input()
"""


def test_the_simulator_survives_an_interrupt_of_the_program_and_ends_when_it_is_killed(no_plant: None) -> None:
    with subprocess.Popen(
        [sys.executable, "-c", BENCH], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, start_new_session=True
    ) as bench:
        assert bench.stdout is not None
        assert bench.stdout.readline() == "ready\n"
        os.killpg(bench.pid, signal.SIGINT)  # as a terminal does
        assert bench.stdout.readline() == "True\n"
        bench.kill()

    def gone() -> bool:
        try:
            Simulator.attach()
        except NoSimulator:
            return True
        except SimulatorError:
            pass  # it ended during the request
        return False

    wait_for(gone)


def test_close_agent_can_close_the_port_for_some_seconds(no_plant: None) -> None:
    with Simulator(remote=[3]) as own:
        own.close_agent(3, away=5)
        assert own.command("remote", "list")["sessions"][0]["away"]
        wait_for(lambda: not own.command("remote", "list")["sessions"][0]["away"])


def test_the_reply_of_a_failed_command_is_returned_on_request(simulator: Simulator) -> None:
    event = ("event", "--", "focus, 1")
    assert simulator.command(*event, could_not_is_told=True)["listeners"] == 0
    with pytest.raises(SimulatorError):
        simulator.command(*event)
