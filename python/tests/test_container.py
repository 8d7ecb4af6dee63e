"""Simulators without the right to create namespaces, as in most containers; and the mount point of private folders."""

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


def bwrap(temporary: Path, *options: str) -> List[str]:
    """The command bwrap with its own /tmp, which the test sees as ``temporary``."""
    kept = [word for folder in (KVOSIM.parent.parent, PACKAGE) for word in ("--bind", str(folder), str(folder))]
    return ["bwrap", *options, "--dev-bind", "/", "/", "--bind", str(temporary), "/tmp", *kept, "--"]


def container(temporary: Path) -> List[str]:
    """The beginning of a command that runs in a container without the right to create namespaces. Skips the test if bwrap
    cannot create the container.
    """
    words = bwrap(temporary, "--unshare-user", "--disable-userns", "--cap-drop", "ALL")
    return usable(words, "true")


def as_root_with_own_tmp(temporary: Path) -> List[str]:
    """The beginning of a command that runs with its own /tmp and all rights. Skips the test without root."""
    if os.getuid() != 0:
        pytest.skip("only root can have a /tmp of its own")
    return usable(bwrap(temporary, "--cap-add", "ALL"), "unshare", "--mount", "true")


def usable(words: List[str], *trial: str) -> List[str]:
    try:
        result = subprocess.run([*words, *trial], capture_output=True, text=True)
    except FileNotFoundError:
        pytest.skip("missing tool: bwrap")
    if result.returncode:
        pytest.skip(f"bwrap cannot create a container here: {result.stderr.strip()}")
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


def output_of(process: "subprocess.Popen[str]") -> Tuple[str, str]:
    out, err = process.communicate(timeout=60)
    assert process.returncode == 0, err
    return out, err


TWO_SIMULATORS = """
from kvo_hws import Service, Simulator
for stations in 5, 4:
    with Simulator(stations=stations, focus="10.0.0.1", alive=0) as simulator:
        print(len(Service().get_stations()), simulator.status()["focus"].split()[0], flush=True)
        input()
"""


def test_a_simulator_without_rights_uses_the_machines_own_folder(tmp_path: Path) -> None:
    with start(container(tmp_path), TWO_SIMULATORS) as process:
        assert process.stdin is not None
        process.stdin.write("\n\n")
        out, err = output_of(process)
    assert out == "5 10.0.0.1\n4 10.0.0.1\n"
    rights = "(root has no CAP_SYS_ADMIN here, as in most containers" if os.getuid() == 0 else "(only root may"
    assert err.startswith(f"kvo_hws: no private /tmp/kvo_hws: new mount namespace: Operation not permitted {rights}")
    assert err.endswith("; Simulator() uses the machine's own folder instead\n") and err.count("\n") == 1
    assert not (tmp_path / "kvo_hws").exists()


def test_a_second_simulator_waits_until_the_first_one_ends(tmp_path: Path) -> None:
    words = container(tmp_path)
    with start(words, TWO_SIMULATORS.replace("5, 4", "5,")) as first:
        assert first.stdin is not None and first.stdout is not None
        assert first.stdout.readline() == "5 10.0.0.1\n"
        with start(words, TWO_SIMULATORS.replace("5, 4", "4,")) as second:
            assert second.stdin is not None and second.stderr is not None
            assert second.stderr.readline().startswith("kvo_hws: no private /tmp/kvo_hws")
            assert second.stderr.readline() == 'kvosim: waiting for another "kvosim run --shared" to end\n'
            first.stdin.write("\n")
            assert output_of(first)[0] == ""
            second.stdin.write("\n")
            assert output_of(second) == ("4 10.0.0.1\n", "")
    wait_for(lambda: not (tmp_path / "kvo_hws").exists())


OF_ANOTHER_USER = """
from kvo_hws import Service, Simulator, _process
_process._has_private_folder = lambda: False
with Simulator(stations=4):
    print(len(Service().get_stations()))
"""


def test_a_simulator_waits_for_the_run_of_another_user(tmp_path: Path) -> None:
    words = as_root_with_own_tmp(tmp_path)
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
            assert output_of(second)[0] == "4\n"
    wait_for(lambda: not (tmp_path / "kvo_hws").exists())


KILLED = """
import os, signal
from kvo_hws import Simulator
Simulator().start()
os.kill(os.getpid(), signal.SIGKILL)
"""


def test_a_killed_program_leaves_no_folder(tmp_path: Path) -> None:
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


def test_the_last_process_with_a_private_folder_removes_the_mount_point(tmp_path: Path) -> None:
    folder = tmp_path / "kvo_hws"
    words = as_root_with_own_tmp(tmp_path)
    with start(words, PRIVATE) as first, start(words, PRIVATE) as second:
        for process in first, second:
            assert process.stdin is not None and process.stdout is not None
            assert process.stdout.readline() == "entered\n"
            process.stdin.write("\n")
        assert output_of(first)[0] == "3\n"
        assert folder.exists()
        # A run of kvosim locks the folder in the same way, and does not remove it from the other process.
        subprocess.run([*words, str(KVOSIM), "run", "--", "true"], check=True, env=environment())
        assert folder.exists()
        assert output_of(second)[0] == "3\n"
    wait_for(lambda: not folder.exists())


def test_an_existing_folder_is_kept(tmp_path: Path) -> None:
    folder = tmp_path / "kvo_hws"
    folder.mkdir(mode=0o755)
    with start(as_root_with_own_tmp(tmp_path), PRIVATE) as process:
        assert process.stdin is not None
        process.stdin.write("\n")
        assert output_of(process)[0] == "entered\n3\n"
    assert folder.exists()
