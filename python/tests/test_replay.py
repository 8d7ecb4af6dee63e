"""replay answers programs as a recording says, and reports what was not as recorded."""

from __future__ import annotations

import os
import signal
import subprocess
import sys
from datetime import timedelta
from pathlib import Path
from typing import Callable, List

import pytest
from conftest import PLANT, ROOT

from kvo_hws import (
    Exchange,
    NotConnected,
    Panel,
    Recording,
    Replay,
    ReplayMismatch,
    Service,
    ServiceError,
    Simulator,
    SimulatorError,
    UsbDeviceRemoved,
    UsbEvents,
    replay,
)

EXAMPLE = ROOT / "examples" / "plant.rec"
KVOCTL = Path(Simulator(private=False)._program).with_name("kvoctl")
HEAD = 'kvo-recording 1\nstart 2026-11-22T14:00:00Z\nprocess 1 1 "panel"\n'
TWO_ANSWERS = """0 ask 1 > "getMCPAddress=0A000005\\n" < "mcpaddr=5\\n"
1 ask 1 > "getKVOIndex=0A000005\\n" < "kvoindex=1\\n"
2 ask 1 > "getMCPAddress=0A000005\\n" < "mcpaddr=6\\n"
"""

Writes = Callable[[str], Path]


@pytest.fixture(name="write")
def writes_a_recording(tmp_path: Path) -> Writes:
    def write(lines: str) -> Path:
        file = tmp_path / "x.rec"
        file.write_text(HEAD + lines, encoding="utf-8")
        return file

    return write


def test_requests_are_answered_as_recorded_and_then_with_the_last_answer(write: Writes) -> None:
    panel = Panel("10.0.0.5")
    with replay(write(TWO_ANSWERS)) as run:
        assert [panel.get_mcp_address() for _ in range(3)] == [5, 6, 6]
        assert panel.get_kvo_index() == 1
    assert not run.running
    assert run.report["answered_as_recorded"] == 3
    assert run.report["answered_again"] == 1


def test_a_request_that_was_not_recorded_raises_at_the_end_of_the_block(write: Writes) -> None:
    with pytest.raises(ReplayMismatch) as caught:
        with replay(write(TWO_ANSWERS)):
            with pytest.raises(ServiceError):
                Panel("10.0.0.6").get_mcp_address()
    assert 'not recorded: "getMCPAddress=0A000006"' in str(caught.value)
    assert "station 10.0.0.6 instead of 10.0.0.5" in str(caught.value)
    assert caught.value.report["not_answered"] == 1


def test_another_exception_of_the_block_stays_and_the_report_is_printed(
    write: Writes, capsys: pytest.CaptureFixture[str]
) -> None:
    with pytest.raises(ServiceError):
        with replay(write(TWO_ANSWERS)):
            Panel("10.0.0.6").get_mcp_address()
    assert 'not recorded: "getMCPAddress=0A000006"' in capsys.readouterr().err


def test_nothing_is_raised_without_check(write: Writes) -> None:
    with replay(write(TWO_ANSWERS), check=False) as run:
        with pytest.raises(RuntimeError):
            print(run.report)
        with pytest.raises(ServiceError):
            Panel("10.0.0.6").get_mcp_address()
    assert run.report["not_recorded"][0]["request"] == "getMCPAddress=0A000006"


def test_a_plant_answers_what_was_not_recorded(write: Writes, tmp_path: Path) -> None:
    plant = tmp_path / "plant.toml"
    plant.write_text(PLANT, encoding="utf-8")
    with replay(write(TWO_ANSWERS), plant=plant) as run:
        assert Panel("10.0.0.6").get_mcp_address() == 0
    assert run.report["answered_from_plant"] == 1


def test_strict_requires_the_recorded_order(write: Writes) -> None:
    panel = Panel("10.0.0.5")
    file = write(TWO_ANSWERS)
    with replay(file, strict=True):
        panel.get_mcp_address()
        panel.get_kvo_index()
        panel.get_mcp_address()
    with pytest.raises(ReplayMismatch):
        with replay(file, strict=True):
            panel.get_kvo_index()
            panel.get_mcp_address()
            panel.get_mcp_address()
    with replay(file):
        panel.get_kvo_index()


@pytest.mark.parametrize(("speed", "most"), [("max", 20), (50, 20)])
def test_recorded_times_are_shortened(write: Writes, speed: object, most: float) -> None:
    ready = '0 ask 1 > "isInitComplete\\n" < "yes\\n"\n'
    ending = '400 ask 1 > "deactivateUSBEvents\\n" < "ok\\n"\n'
    events = '0 ask 1 > "activateUSBEvents\\n" < "ok\\n"\n300 usb 1 > "removeUSBdevice*10.0.0.5*usb1*1-1.2*\\n" < "ok\\n"\n'
    with replay(write(ready + events + ending), speed=speed, check=False):  # type: ignore[arg-type]
        with UsbEvents() as usb:
            assert isinstance(usb.get(timeout=most), UsbDeviceRemoved)


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("kvo-recording 99\n", "x.rec:1: version 99 of the format is newer than this program"),
        (HEAD + '1 ask 1 > "getVer', "x.rec:4: the quoted text"),
    ],
    ids=["newer", "cut"],
)
def test_a_file_that_cannot_be_replayed_is_refused_with_its_line(tmp_path: Path, text: str, message: str) -> None:
    file = tmp_path / "x.rec"
    file.write_text(text, encoding="utf-8")
    with pytest.raises(SimulatorError) as caught:
        Replay(file).start()
    assert message in str(caught.value)
    assert caught.value.status == 2


def test_a_replay_that_was_killed_says_so(write: Writes) -> None:
    run = replay(write(TWO_ANSWERS))
    with pytest.raises(SimulatorError, match="kvosim ended without a report, with status -9") as caught:
        with run:
            os.kill(run._process.pid, signal.SIGKILL)
    assert caught.value.status == -9
    with run:  # it can be started again
        assert Panel("10.0.0.5").get_mcp_address() == 5


def test_replays_follow_each_other(write: Writes) -> None:
    run = replay(write(TWO_ANSWERS))
    for _ in range(2):
        run.start()
        assert Panel("10.0.0.5").get_mcp_address() == 5
        run.stop()
    with pytest.raises(NotConnected):
        Service().is_ready()
    run.stop()  # does nothing


def bench(*before: str) -> List[str]:
    return [*before, sys.executable, str(ROOT / "python" / "tests" / "replay_bench.py")]


def record_bench(file: Path) -> bytes:
    """Records the bench at a simulated plant. Returns what it printed."""
    with Simulator(plant=ROOT / "examples" / "plant.toml", alive=0) as simulator:
        recorder = bench(str(KVOCTL), "record", "--capture", "--rate", "max", str(file), "--")
        with subprocess.Popen(recorder, stdout=subprocess.PIPE) as process:
            assert process.stdout is not None
            lines = []
            for line in process.stdout:
                lines.append(line)
                if line == b"listening\n":
                    simulator.plug_usb("10.0.0.5", ident2="stick")
                    simulator.set_usb_state("10.0.0.5", "stick", 2)
                    simulator.unplug_usb("10.0.0.5", "stick")
                    simulator.refuse_usb("10.0.0.6", text8="too much current")
                    simulator.wait_for_listeners()
                    simulator.publish("key", "F1")
                    simulator.publish("key", "F2")
        assert process.returncode == 0
    return b"".join(lines)


@pytest.mark.skipif(not KVOCTL.exists(), reason="kvoctl, which records, was not built")
def test_a_bench_prints_the_same_bytes_when_it_is_replayed(tmp_path: Path) -> None:
    file = tmp_path / "bench.rec"
    recorded = record_bench(file)
    assert recorded.count(b"\n") > 500
    assert b"UsbDeviceRefused" in recorded and b"F2" in recorded
    events = [one for one in Recording.load(file) if isinstance(one, Exchange) and one.offset > timedelta()]
    assert len(events) > 500
    with replay(file) as run:
        replayed = subprocess.run(bench(), stdout=subprocess.PIPE, check=True).stdout
    assert replayed == recorded
    assert run.report["usb_events"]["sent"] == 4
    assert run.report["embedded_events"]["sent"] == 2
