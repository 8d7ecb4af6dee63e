#!/usr/bin/env python3
"""Draws docs/images/demo.svg: a terminal window with the output of ./demo.sh and ./test.sh.

Every line comes from a real run of the commands in a terminal of 80 columns. Long outputs are shortened, with a note. The end of
./test.sh is drawn from the reports of its last run; --check compares only its form, because the number of tests changes daily.
"""
import argparse
import difflib
import errno
import fcntl
import os
import pathlib
import pty
import re
import shlex
import struct
import subprocess
import sys
import termios
from html import escape

ROOT = pathlib.Path(__file__).resolve().parents[1]
PICTURE = ROOT / "docs/images/demo.svg"
COLUMNS = 80

# What the reader types, what runs here for it (None: only typed, TESTS: the end of ./test.sh), and which lines of its output are
# drawn.
TESTS = "the end of ./test.sh"
STEPS = [
    ("./demo.sh", "kvoctl stations", slice(0, 8)),
    ("./demo.sh bash", None, slice(0)),
    ("kvoctl panel show 10.0.0.5", "kvoctl panel show 10.0.0.5", slice(20, 36)),
    ('kvoctl channel-info set 10.0.0.5 "setting up"', 'kvoctl channel-info set 10.0.0.5 "setting up"', slice(None)),
    ("kvoctl channel-info get 10.0.0.5", "kvoctl channel-info get 10.0.0.5", slice(None)),
    ("exit", None, slice(0)),
    ("./test.sh", TESTS, slice(None)),
]
PRESETS = ("release", "asan", "tsan")
SEPARATOR = "\0"

# Pixels.
COLUMN, LINE, MARGIN, TITLE_BAR = 8.4, 19, 16, 34
STYLE = """\
.window { fill: #1e2227 }
.bar { fill: #32383f }
text { font: 14px ui-monospace, SFMono-Regular, Menlo, Consolas, "DejaVu Sans Mono", "Liberation Mono", monospace; white-space: pre }
.output { fill: #d5dae0 }
.typed { fill: #ffffff; font-weight: bold }
.note { fill: #8b949e; font-style: italic }
"""


def run_in_terminal(command, environment):
    """What a command prints in a terminal, line ends as in a file."""
    terminal, inside = pty.openpty()
    fcntl.ioctl(inside, termios.TIOCSWINSZ, struct.pack("HHHH", 24, COLUMNS, 0, 0))
    process = subprocess.Popen(command, cwd=ROOT, env=environment, stdin=subprocess.DEVNULL, stdout=inside, stderr=inside)
    os.close(inside)
    printed = b""
    try:
        while piece := os.read(terminal, 65536):
            printed += piece
    except OSError as error:
        if error.errno != errno.EIO:  # the terminal's end
            raise
    os.close(terminal)
    text = printed.decode().replace("\r\n", "\n")
    if process.wait() != 0:
        sys.exit(f"{shlex.join(map(str, command))} ends with status {process.returncode}:\n{text}")
    return text


def outputs(programs):
    """What each command of STEPS prints, all with one simulated plant."""
    commands = [command for _, command, _ in STEPS if command not in (None, TESTS)]
    script = "set -e\n" + "".join(f"{command}\nprintf '\\0'\n" for command in commands)
    environment = os.environ | {"PATH": f"{programs}:{os.environ['PATH']}", "TERM": "xterm", "NO_COLOR": "1", "LC_ALL": "C.UTF-8"}
    environment.pop("COLUMNS", None)
    printed = run_in_terminal([programs / "kvosim", "run", "--plant", "examples/plant.toml", "--", "bash", "-c", script], environment)
    *texts, _ = printed.split(SEPARATOR)
    return dict(zip(commands, texts, strict=True))


def wrapped(line):
    """A line as a terminal breaks it."""
    return [line[at:at + COLUMNS] for at in range(0, len(line), COLUMNS)] or [""]


def note(count):
    return [("note", f"… {count} more {'line' if count == 1 else 'lines'}")] if count else []


def end_of_tests():
    """The last lines of ./test.sh, from the reports that its last run left."""
    reports = [ROOT / "build" / preset / "tests.xml" for preset in PRESETS]
    if missing := [str(report.relative_to(ROOT)) for report in reports if not report.exists()]:
        sys.exit(f"run ./test.sh first; its picture needs {', '.join(missing)}")
    report = subprocess.run([ROOT / "scripts/test_report.py", *reports], check=True, capture_output=True, text=True).stdout
    return "\n".join(report.splitlines()[-len(PRESETS):])


def screen(programs, tests):
    """The drawn lines: their style and their text."""
    printed = outputs(programs) | {TESTS: tests}
    lines = []
    for typed, command, part in STEPS:
        lines.append(("typed", f"$ {typed}"))
        output = printed[command].splitlines() if command else []
        if command == TESTS:
            lines.append(("note", "… builds and runs all tests"))
        start, end, _ = part.indices(len(output))
        lines += note(start)
        lines += [("output", piece) for line in output[start:end] for piece in wrapped(line)]
        lines += note(len(output) - end)
    return lines


def drawing(lines):
    width = round(COLUMNS * COLUMN + 2 * MARGIN)
    height = TITLE_BAR + MARGIN + len(lines) * LINE + MARGIN
    yield f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}" role="img">'
    yield "<!-- Drawn by scripts/picture.sh; do not edit. -->"
    yield "<title>A terminal: demo.sh lists the stations of a simulated plant, kvoctl shows one of them, and test.sh counts the tests</title>"
    yield f"<style>\n{STYLE}</style>"
    yield f'<rect class="window" width="{width}" height="{height}" rx="8"/>'
    yield f'<path class="bar" d="M0 {TITLE_BAR}V8a8 8 0 0 1 8-8h{width - 16}a8 8 0 0 1 8 8v{TITLE_BAR - 8}z"/>'
    for number, colour in enumerate(("#ff5f57", "#febc2e", "#28c840")):
        yield f'<circle cx="{20 + 20 * number}" cy="{TITLE_BAR // 2}" r="6" fill="{colour}"/>'
    for number, (style, text) in enumerate(lines, 1):
        # textLength keeps the columns aligned whichever font the reader has.
        y = TITLE_BAR + MARGIN + number * LINE - 5
        yield (f'<text class="{style}" x="{MARGIN}" y="{y}" textLength="{len(text) * COLUMN:.1f}" xml:space="preserve">'
               f"{escape(text, quote=False)}</text>")
    yield "</svg>"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--check", action="store_true", help="compare the picture with what the commands print now, and write nothing")
    parser.add_argument("programs", type=pathlib.Path, metavar="FOLDER", help="the folder of the built kvosim and kvoctl")
    options = parser.parse_args()
    if options.check:
        drawn = PICTURE.read_text(encoding="utf-8")
        tests = "\n".join(re.findall(r">((?:%s): +\d+ tests, 0 failed, \d+ skipped)</text>" % "|".join(PRESETS), drawn))
    else:
        tests = end_of_tests()
    lines = screen(options.programs.resolve(), tests)
    picture = "".join(f"{line}\n" for line in drawing(lines))
    if not options.check:
        PICTURE.write_text(picture, encoding="utf-8")
        print(f"{PICTURE.relative_to(ROOT)}: {len(lines)} lines")
        return 0
    if drawn == picture:
        print(f"{len(lines)} lines, as the commands print them")
        return 0
    sys.stdout.writelines(difflib.unified_diff(drawn.splitlines(True), picture.splitlines(True), "docs/images/demo.svg", "now"))
    print("docs/images/demo.svg is out of date; scripts/picture.sh draws it again")
    return 1


if __name__ == "__main__":
    sys.exit(main())
