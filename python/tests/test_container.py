"""Without the right to make namespaces, as in most containers; and the folder /tmp/kvo_hws that private places lie on."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path
from typing import Dict, List, Tuple

import pytest
from conftest import wait_for

KVOSIM = Path(os.environ["KVO_KVOSIM"]).resolve()
LIBRARY = Path(os.environ["KVO_HWS_LIBRARY"]).resolve()
PACKAGE = Path(__file__).resolve().parents[1]


def inside(temporary: Path, *options: str) -> List[str]:
    """bwrap, with an own /tmp that the test sees at ``temporary``."""
    kept = [word for folder in (KVOSIM.parent.parent, PACKAGE) for word in ("--bind", str(folder), str(folder))]
    return ["bwrap", *options, "--dev-bind", "/", "/", "--bind", str(temporary), "/tmp", *kept, "--"]


def container(temporary: Path) -> List[str]:
    """The beginning of a command that runs in a container without the right to make namespaces; skips the test where there is
    none.
    """
    words = inside(temporary, "--unshare-user", "--disable-userns", "--cap-drop", "ALL")
    return checked(words, "true")


def machine(temporary: Path) -> List[str]:
    """The beginning of a command that runs with an own /tmp, and with all rights."""
    if os.getuid() != 0:
        pytest.skip("only root can have a /tmp of its own")
    return checked(inside(temporary, "--cap-add", "ALL"), "unshare", "--mount", "true")


def checked(words: List[str], *trial: str) -> List[str]:
    try:
        tried = subprocess.run([*words, *trial], capture_output=True, text=True)
    except FileNotFoundError:
        pytest.skip("missing tool: bwrap")
    if tried.returncode:
        pytest.skip(f"bwrap cannot make a container here: {tried.stderr.strip()}")
    return words


def environment() -> Dict[str, str]:
    return {**os.environ, "KVO_KVOSIM": str(KVOSIM), "KVO_HWS_LIBRARY": str(LIBRARY), "TMPDIR": "/tmp"}


def start(words: List[str], program: str) -> "subprocess.Popen[str]":
    return subprocess.Popen(
        [*words, sys.executable, "-c", program],
        env=environment(),
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )


def ended(process: "subprocess.Popen[str]") -> Tuple[str, str]:
    out, err = process.communicate(timeout=60)
    assert process.returncode == 0, err
    return out, err


SERVED = """
from kvo_hws import Service, Simulator
for stations in 5, 4:
    with Simulator(stations=stations, focus="10.0.0.1", alive=0) as simulator:
        print(len(Service().get_stations()), simulator.status()["focus"].split()[0], flush=True)
        input()
"""


def test_a_simulator_uses_the_machines_own_folder(tmp_path: Path) -> None:
    with start(container(tmp_path), SERVED) as process:
        out, err = "", ""
        assert process.stdin is not None
        process.stdin.write("\n\n")
        out, err = ended(process)
    assert out == "5 10.0.0.1\n4 10.0.0.1\n"
    rights = "(this root has no CAP_SYS_ADMIN, as in most containers" if os.getuid() == 0 else "(only root may"
    assert err.startswith(f"kvo_hws: no private /tmp/kvo_hws: new mount namespace: Operation not permitted {rights}")
    assert err.endswith("; Simulator() uses the machine's own instead\n") and err.count("\n") == 1
    assert not (tmp_path / "kvo_hws").exists()


def test_a_second_simulator_waits_for_its_turn(tmp_path: Path) -> None:
    words = container(tmp_path)
    with start(words, SERVED.replace("5, 4", "5,")) as first:
        assert first.stdin is not None and first.stdout is not None
        assert first.stdout.readline() == "5 10.0.0.1\n"
        with start(words, SERVED.replace("5, 4", "4,")) as second:
            assert second.stdin is not None and second.stderr is not None
            assert second.stderr.readline().startswith("kvo_hws: no private /tmp/kvo_hws")
            assert second.stderr.readline() == 'kvosim: waiting for another "kvosim run --shared" to end\n'
            first.stdin.write("\n")
            assert ended(first)[0] == ""
            second.stdin.write("\n")
            assert ended(second) == ("4 10.0.0.1\n", "")
    wait_for(lambda: not (tmp_path / "kvo_hws").exists())


OF_ANOTHER_USER = """
from kvo_hws import Service, Simulator, simulator
simulator._has_private_place = lambda: False
with Simulator(stations=4):
    print(len(Service().get_stations()))
"""


def test_a_simulator_waits_for_that_of_another_user(tmp_path: Path) -> None:
    words = machine(tmp_path)
    other = [*words, "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    tmp_path.chmod(0o1777)
    for program in str(KVOSIM), sys.executable:
        if subprocess.run([*other, "test", "-x", program]).returncode:
            pytest.skip(f"user number 65534 cannot reach {program}")
    run = [*words, str(KVOSIM), "run", "--shared", "--", "sh", "-c", "echo begun; read -r _"]
    with subprocess.Popen(run, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as first:
        assert first.stdin is not None and first.stdout is not None
        assert first.stdout.readline() == "begun\n"
        with start(other, OF_ANOTHER_USER) as second:
            assert second.stderr is not None
            waiting = 'kvosim: waiting for "kvosim run" of another user (root, number 0) to end\n'
            assert second.stderr.readline() == waiting
            first.stdin.write("\n")
            first.stdin.close()
            assert ended(second)[0] == "4\n"
    wait_for(lambda: not (tmp_path / "kvo_hws").exists())


KILLED = """
import os, signal
from kvo_hws import Simulator
Simulator().start()
os.kill(os.getpid(), signal.SIGKILL)
"""


def test_a_program_that_is_killed_leaves_nothing(tmp_path: Path) -> None:
    with start(container(tmp_path), KILLED) as process:
        process.wait(timeout=60)
        wait_for(lambda: not (tmp_path / "kvo_hws").exists())


PRIVATE = """
import os, signal, sys
from kvo_hws import Service, Simulator, enter_private_namespace
enter_private_namespace()
print("entered", flush=True)
input()
with Simulator():
    print(len(Service().get_stations()))
"""


def test_the_folder_is_removed_by_the_last_private_place(tmp_path: Path) -> None:
    folder = tmp_path / "kvo_hws"
    words = machine(tmp_path)
    with start(words, PRIVATE) as first, start(words, PRIVATE) as second:
        for one in first, second:
            assert one.stdin is not None and one.stdout is not None
            assert one.stdout.readline() == "entered\n"
            one.stdin.write("\n")
        assert ended(first)[0] == "3\n"
        assert folder.exists()
        # A run of kvosim holds it in the same way, and lets the place of the other one be.
        subprocess.run([*words, str(KVOSIM), "run", "--", "true"], check=True, env=environment())
        assert folder.exists()
        assert ended(second)[0] == "3\n"
    wait_for(lambda: not folder.exists())


def test_a_folder_that_was_there_stays(tmp_path: Path) -> None:
    folder = tmp_path / "kvo_hws"
    folder.mkdir(mode=0o755)
    with start(machine(tmp_path), PRIVATE) as process:
        assert process.stdin is not None
        process.stdin.write("\n")
        assert ended(process)[0] == "entered\n3\n"
    assert folder.exists()
