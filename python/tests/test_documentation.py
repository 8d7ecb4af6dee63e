"""The examples and the programs of docs/python.md run and print what is documented."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from typing import Dict, List, NamedTuple, Set

import pytest
from conftest import ROOT

from kvo_hws import KvoError, errors
from kvo_hws._prototypes import PROTOTYPES

PAGE = (ROOT / "docs" / "python.md").read_text(encoding="utf-8")
EXAMPLES = ["bench.py", "panel_aio.py"]
PROGRAMS: List[str] = re.findall(r"```python\n(.*?)```", PAGE, flags=re.DOTALL)


class ProgramResult(NamedTuple):
    """The result of a program."""

    status: int
    output: List[str]
    errors: str


@pytest.fixture(scope="module")
def results(tmp_path_factory: pytest.TempPathFactory) -> List[ProgramResult]:
    """Runs the examples and the programs of the page in parallel, each with its own plant."""
    folder = tmp_path_factory.mktemp("programs")
    commands = [[str(ROOT / "python" / "examples" / name), "examples/plant.toml"] for name in EXAMPLES]
    for number, program in enumerate(PROGRAMS):
        file = folder / f"program{number}.py"
        file.write_text(program, encoding="utf-8")
        commands.append([str(file)])
    started = [
        subprocess.Popen(
            [sys.executable, *command], cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
        )
        for command in commands
    ]
    outputs = [process.communicate(timeout=60) for process in started]
    return [ProgramResult(one.returncode, out.splitlines(), errors) for one, (out, errors) in zip(started, outputs)]


# Of several simulators, only one receives the datagrams of the USB lock. The others print a warning.
WARNING = re.compile(r".* warning: cannot receive the USB lock's datagrams .*\n")


def test_the_bench_example_runs_and_prints_its_results(results: List[ProgramResult]) -> None:
    status, output, errors = results[0]
    assert (status, WARNING.sub("", errors)) == (0, "")
    assert output[0] == "10.0.0.5 Milling centre 1"
    assert output[-4:] == [
        "note: tool change at 14:00",
        "USB: 10.0.0.5 stick Memory stick",
        "stopped: no service answers at /tmp/kvo_hws/cmd_sock (KVO_HWS_isInitComplete returned -2)",
        "restarted: V04.07.01.12 - note: Channel 1: milling",
    ]


def test_the_example_with_an_event_loop_runs_and_prints_its_results(results: List[ProgramResult]) -> None:
    status, output, errors = results[1]
    assert (status, WARNING.sub("", errors)) == (0, "")
    assert output[0] == "10.0.0.5 Milling centre 1"
    assert output[3:] == [
        "MCP address: 17",
        "USB: 10.0.0.5 Memory stick",
        "silent: Panel.get_mcp_address did not end within 1 s; it may still take effect",
        "drawn meanwhile: True",
    ]


def test_every_example_is_run() -> None:
    assert sorted(file.name for file in (ROOT / "python" / "examples").glob("*.py")) == sorted(EXAMPLES)


@pytest.mark.parametrize("number", range(len(PROGRAMS)))
def test_a_program_on_the_page_prints_what_its_comments_say(number: int, results: List[ProgramResult]) -> None:
    status, output, errors = results[len(EXAMPLES) + number]
    assert (status, WARNING.sub("", errors)) == (0, "")
    shown = re.findall(r"print\(.*?#\s*(.+)$", PROGRAMS[number], flags=re.MULTILINE)
    assert shown and output == shown


def test_the_page_lists_every_error_with_its_codes() -> None:
    section = PAGE.partition("## Errors")[2].partition("\n## ")[0]
    rows = re.findall(r"^\| `(\w+)` \| ([-0-9, ]*) *\|", section, flags=re.MULTILINE)
    listed = {name: {int(code) for code in re.findall(r"-\d+", codes)} for name, codes in rows}
    raised: Dict[str, Set[int]] = {"KvoError": set()}
    for prototype in PROTOTYPES.values():
        for code, kind in prototype.errors.items():
            raised.setdefault(kind.__name__, set()).add(code)
    assert listed == raised
    assert all(issubclass(getattr(errors, name), KvoError) for name in listed)


def test_the_page_names_the_environment_variables() -> None:
    for name in ("KVO_HWS_LIBRARY", "KVO_KVOSIM"):
        assert name in PAGE and name in os.environ
