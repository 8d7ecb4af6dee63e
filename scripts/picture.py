#!/usr/bin/env python3
"""Draws the pictures of the documentation, each a terminal window: docs/images/demo.svg and docs/images/trace.svg.

Every line comes from a real run of the commands in a terminal of 80 columns. Long outputs are shortened, with a note. The end of
./test.sh is drawn from the reports of its last run; --check compares only its form, because the number of tests changes daily. Times
and process ids of a trace are replaced by others of the same form, because they differ in each run.
"""
import argparse
import dataclasses
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
COLUMNS = 80


@dataclasses.dataclass(frozen=True)
class Picture:
    name: str
    title: str
    # What the reader types, what runs here for it (None: only typed, TESTS: the end of ./test.sh), and which lines of its output
    # are drawn.
    steps: list

    @property
    def path(self):
        return ROOT / "docs/images" / f"{self.name}.svg"


TESTS = "the end of ./test.sh"
DEMO = Picture("demo", "A terminal: demo.sh lists the stations of a simulated plant, kvoctl shows one of them, and test.sh counts the tests", [
    ("./demo.sh", "kvoctl stations", slice(0, 8)),
    ("./demo.sh bash", None, slice(0)),
    ("kvoctl panel show 10.0.0.5", "kvoctl panel show 10.0.0.5", slice(20, 36)),
    ('kvoctl channel-info set 10.0.0.5 "setting up"', 'kvoctl channel-info set 10.0.0.5 "setting up"', slice(None)),
    ("kvoctl channel-info get 10.0.0.5", "kvoctl channel-info get 10.0.0.5", slice(None)),
    ("exit", None, slice(0)),
    ("./test.sh", TESTS, slice(None)),
])

# The programs are kvoctl with other names. They begin when the trace has taken its place.
TRACE_SCRIPT = r"""
programs=$(mktemp -d)
trap 'rm -r "$programs"' EXIT
for name in hmi watchdog; do ln -s "$(command -v kvoctl)" "$programs/$name"; done
place() { stat -c %i /tmp/kvo_hws/cmd_sock; }
service=$(place)
kvosim fault add close --command getVersion --times 1 >/dev/null
kvoctl trace & trace=$!
until [ "$(place)" != "$service" ]; do kill -0 $trace; sleep 0.01; done
{
    "$programs/hmi" ready
    "$programs/hmi" backlight on
    "$programs/watchdog" backlight off
    "$programs/hmi" viewer stop 10.0.0.6 || [ $? = 1 ]
    "$programs/watchdog" version || [ $? = 4 ]
} >/dev/null 2>&1
kill -INT $trace
wait $trace
"""
TRACE = Picture("trace", "A terminal: kvoctl trace shows the requests of two programs and the replies, and counts them at the end", [
    ("kvoctl trace", TRACE_SCRIPT, slice(0, 8)),
])
PICTURES = {picture.name: picture for picture in (DEMO, TRACE)}
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


def outputs(picture, programs):
    """What each command of the picture prints, all with one simulated plant."""
    commands = [command for _, command, _ in picture.steps if command not in (None, TESTS)]
    script = "set -e\n" + "".join(f"{command}\nprintf '\\0'\n" for command in commands)
    environment = os.environ | {"PATH": f"{programs}:{os.environ['PATH']}", "TERM": "xterm", "NO_COLOR": "1", "LC_ALL": "C.UTF-8", "TZ": "UTC"}
    environment.pop("COLUMNS", None)
    # Without the port of USB locks, which another simulator may be using.
    printed = run_in_terminal([programs / "kvosim", "run", "--plant", "examples/plant.toml", "--usb-lock-address", "none", "--",
                               "bash", "-c", script], environment)
    *texts, _ = printed.split(SEPARATOR)
    return dict(zip(commands, texts, strict=True))


CLOCK = re.compile(r"\d\d:\d\d:\d\d\.\d{3}\+00")
TRACED = re.compile(r"(?P<clock>\S+) (?P<program>\w+)\[(?P<pid>\d+)\] +[\d.]+ m?s (?P<mark>\w*> )(?P<rest>.*)")


class Steady:
    """Replaces what differs between two runs of the same trace: times and process ids."""

    def __init__(self):
        self._lines = 0
        self._pids = {}
        self._width = 0

    def line(self, text):
        if not CLOCK.search(text):
            return re.sub(r" in \d+\.\d s,", " in 12.6 s,", text)
        self._lines += 1
        moment = self._lines * 1.731
        text = CLOCK.sub(f"14:03:{moment:06.3f}+00", text)
        if found := TRACED.fullmatch(text):
            pid = self._pids.setdefault(found["program"], 4711 + 52 * len(self._pids))
            program = f"{found['program']}[{pid}]"
            self._width = max(self._width, len(program))
            text = f"{found['clock']} {program:{self._width}}  {0.2 + moment % 0.3:.2f} ms {found['mark']}{found['rest']}"
        return text


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


def screen(picture, programs, tests):
    """The drawn lines: their style and their text."""
    printed = outputs(picture, programs) | {TESTS: tests}
    lines = []
    steady = Steady()
    for typed, command, part in picture.steps:
        lines.append(("typed", f"$ {typed}"))
        output = [steady.line(line) for line in printed[command].splitlines()] if command else []
        if command == TESTS:
            lines.append(("note", "… builds and runs all tests"))
        start, end, _ = part.indices(len(output))
        lines += note(start)
        lines += [("output", piece) for line in output[start:end] for piece in wrapped(line)]
        lines += note(len(output) - end)
    return lines


def drawing(title, lines):
    width = round(COLUMNS * COLUMN + 2 * MARGIN)
    height = TITLE_BAR + MARGIN + len(lines) * LINE + MARGIN
    yield f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}" role="img">'
    yield "<!-- Drawn by scripts/picture.sh; do not edit. -->"
    yield f"<title>{title}</title>"
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


def check(picture, lines, drawn, drawing_now):
    """Compares the picture with what the commands print now. Returns whether they are the same."""
    path = picture.path.relative_to(ROOT)
    if drawn == drawing_now:
        print(f"{path}: {len(lines)} lines, as the commands print them")
        return True
    sys.stdout.writelines(difflib.unified_diff(drawn.splitlines(True), drawing_now.splitlines(True), str(path), "now"))
    print(f"{path} is out of date; \"scripts/picture.sh {picture.name}\" draws it again")
    return False


def process(picture, programs, only_check):
    """Draws or checks one picture. Returns whether it is up to date."""
    drawn = picture.path.read_text(encoding="utf-8") if only_check else ""
    tests = ""
    if any(command == TESTS for _, command, _ in picture.steps):
        tests = "\n".join(re.findall(r">((?:%s): +\d+ tests, 0 failed, \d+ skipped)</text>" % "|".join(PRESETS), drawn)
                         ) if only_check else end_of_tests()
    lines = screen(picture, programs, tests)
    now = "".join(f"{line}\n" for line in drawing(picture.title, lines))
    if only_check:
        return check(picture, lines, drawn, now)
    picture.path.write_text(now, encoding="utf-8")
    print(f"{picture.path.relative_to(ROOT)}: {len(lines)} lines")
    return True


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--check", action="store_true", help="compare the pictures with what the commands print now, and write nothing")
    parser.add_argument("programs", type=pathlib.Path, metavar="FOLDER", help="the folder of the built kvosim and kvoctl")
    parser.add_argument("pictures", nargs="*", metavar="PICTURE", help=f"only these: {', '.join(PICTURES)}")
    options = parser.parse_args()
    if unknown := [name for name in options.pictures if name not in PICTURES]:
        parser.error(f"{', '.join(unknown)}: not a picture; choose from {', '.join(PICTURES)}")
    chosen = [PICTURES[name] for name in options.pictures or PICTURES]
    return 0 if all([process(picture, options.programs.resolve(), options.check) for picture in chosen]) else 1


if __name__ == "__main__":
    sys.exit(main())
