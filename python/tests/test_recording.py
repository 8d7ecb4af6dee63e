"""Recording reads the same files as the tools. The rows are those of the C++ reader's tests."""

from __future__ import annotations

import json
import os
from datetime import datetime, timedelta, timezone
from pathlib import Path
from typing import Any, Callable, Dict, List, Tuple

import pytest
from conftest import ROOT

from kvo_hws import (
    Exchange,
    ExchangeEnd,
    ExchangeKind,
    Note,
    Piece,
    Process,
    Recording,
    RecordingError,
)

Row = Dict[str, Any]
TABLES: Dict[str, List[Row]] = json.loads(
    (ROOT / "tests" / "tools" / "common" / "recording" / "recordings.json").read_text(encoding="utf-8")
)
HEAD = "kvo-recording 1\nstart 2026-11-22T14:00:00Z\n"
START = datetime(2026, 11, 22, 14, tzinfo=timezone.utc)
EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)
PROGRAMS = {number: Process(number, 100 + number, "p") for number in (1, 2, 4)}

Reads = Callable[[str], Recording]


@pytest.fixture(name="read")
def reads_a_text(tmp_path: Path) -> Reads:
    def read(text: str) -> Recording:
        file = tmp_path / "x.rec"
        file.write_bytes(text.encode())
        return Recording.load(file)

    return read


def rows(table: str) -> Callable[[Callable[..., None]], Callable[..., None]]:
    """Runs a test with each row of a table."""
    assert len(TABLES[table]) > 3
    return pytest.mark.parametrize("row", TABLES[table], ids=lambda row: str(row["name"]))


def microseconds(count: int) -> timedelta:
    return timedelta(microseconds=count)


def pieces(rows: List[Tuple[int, str]]) -> Tuple[Piece, ...]:
    return tuple(Piece(microseconds(pause), text.encode()) for pause, text in rows)


def programs(row: Row) -> str:
    """The lines of the programs that the row's line names, unless it is such a line itself."""
    number = row["line"].get("process", 0) if row["line"] and "kind" in row["line"] else 0
    return f'process {number} {100 + number} "p"\n' if number else ""


def entry(line: Row) -> Any:
    """The exchange or note of a row."""
    offset = microseconds(line["at"])
    if "note" in line:
        return Note(offset, line["note"])
    return Exchange(
        offset,
        ExchangeKind(line["kind"]),
        PROGRAMS.get(line["process"]),
        pieces(line.get("request", [])),
        line.get("eof", False),
        pieces(line.get("reply", [])),
        ExchangeEnd(line.get("end", "closed")),
        microseconds(line.get("end_pause", 0)),
    )


def check_line(read: Reads, row: Row) -> None:
    line = row["line"]
    if line and "version" in line:
        assert len(read(f"{row['text']}\nstart 2026-11-22T14:00:00Z\n")) == 0
    elif line and "start" in line:
        assert read(f"kvo-recording 1\n{row['text']}\n").start == EPOCH + microseconds(line["start"])
    elif line and "plant" in line:
        assert read(f"{HEAD}{row['text']}\n").plant == line["plant"] + "\n"
    elif line and "pid" in line:
        process = Process(line["process"], line["pid"], line["name"])
        assert read(f"{HEAD}{row['text']}\n").processes == {process.number: process}
    else:
        found = list(read(f"{HEAD}{programs(row)}{row['text']}\n"))
        assert found == ([entry(line)] if line else [])


@rows("written")
def test_a_line_of_the_writer_is_read(row: Row, read: Reads) -> None:
    check_line(read, row)


@rows("edited")
def test_an_edited_line_is_read(row: Row, read: Reads) -> None:
    check_line(read, row)


@rows("mistakes")
def test_a_mistake_in_a_line_is_explained(row: Row, read: Reads) -> None:
    head = "kvo-recording 1\n" if row["text"].startswith("start") else f'{HEAD}process 1 1 "p"\n'
    with pytest.raises(RecordingError) as caught:
        read(f"{head}{row['text']}\n")
    assert row["message"] in caught.value.mistake
    assert caught.value.line == head.count("\n") + 1


@rows("files")
def test_a_file_is_read(row: Row, read: Reads) -> None:
    recording = read(row["text"])
    assert recording.start == START
    assert [recording.line_number(index) for index in range(len(recording))] == row["lines"]


@rows("file_mistakes")
def test_a_mistake_in_a_file_is_explained_with_its_line(row: Row, read: Reads, tmp_path: Path) -> None:
    with pytest.raises(RecordingError) as caught:
        read(row["text"])
    assert str(caught.value).startswith(f"{tmp_path / 'x.rec'}{row['message']}")
    assert caught.value.path == str(tmp_path / "x.rec")


def test_the_bytes_of_pieces_are_joined(read: Reads) -> None:
    recording = read(HEAD + '1 ask 0 > "a" "b\\n" < "c\\xA7" +1 "d"\n2 note "x"\n')
    first = recording[0]
    assert isinstance(first, Exchange)
    assert (first.request, first.reply, first.process) == (b"ab\n", b"c\xa7d", None)
    assert recording[-1] == Note(timedelta(seconds=2), "x")


def test_bytes_that_are_not_utf8_become_surrogates_in_texts(read: Reads) -> None:
    assert list(read(HEAD + '1 note "a\\xA7"\n')) == [Note(timedelta(seconds=1), "a\udca7")]


def test_every_byte_of_a_quoted_text_is_read(read: Reads) -> None:
    data = "".join(f"\\x{byte:02X}" for byte in range(256))
    first = read(f'{HEAD}1 ask 0 > "{data}" <\n')[0]
    assert isinstance(first, Exchange)
    assert first.request == bytes(range(256))


def test_the_example_is_the_recording_in_the_documentation() -> None:
    page = (ROOT / "docs" / "recording.md").read_text(encoding="utf-8")
    example = ROOT / "examples" / "plant.rec"
    assert example.read_text(encoding="utf-8").partition("\n")[2] == page.split("```\n")[1]
    recording = Recording.load(example)
    assert len(recording) == 6
    assert recording.processes == {1: Process(1, 4711, "panel")}


def test_the_lines_of_a_plant_are_the_text_of_a_plant_file(read: Reads) -> None:
    recording = read(HEAD + 'plant "[[station]]"\nplant "name = \\"Lathe 1\\""\n1 note "x"\nplant ""\n')
    assert recording.plant == '[[station]]\nname = "Lathe 1"\n\n'
    assert len(recording) == 1
    assert read(HEAD).plant == ""


def test_a_missing_file_raises_an_os_error(tmp_path: Path) -> None:
    with pytest.raises(FileNotFoundError):
        Recording.load(os.fspath(tmp_path / "none.rec"))
