#!/usr/bin/env python3
"""Runs the commands of a page of documentation, and compares what the terminals show with what the page says.

    run_page.py [--lax] PAGE...

Several pages are run one after the other in the same terminals and the same folder: the current folder with --lax, otherwise an
empty one.

Marks in the page, each directly before a fence:
    <!-- file: NAME -->      the fence is the contents of that file
    <!-- terminal: NAME -->  the fence belongs to that terminal; its commands may keep running while the page continues
    <!-- not typed: WHY -->  the fence is skipped, and the reason is printed
Fences:
    ```sh    typed into its terminal. In the terminal without a name the commands must end with status 0 before the page continues.
             In one with a name they may keep running; Ctrl-C ends them before the next commands and at the end of the page.
    ```text  what the terminal shows next; without a mark, the terminal of the previous fence. A line "..." matches any lines.
Any other fence is a mistake in the page. So is output that the page does not show, except with --lax, which is for pages whose
commands print more than the page needs to show. A file's NAME may begin with "~/".
"""

import argparse
import contextlib
import dataclasses
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

TIMEOUT = 60  # seconds for each wait; a loaded machine needs some of them
POLL_INTERVAL = 0.02
DEFAULT_TERMINAL = "work"


class PageFails(Exception):
    pass


@dataclasses.dataclass
class Fence:
    line: int
    language: str
    file: str | None
    terminal: str | None
    not_typed: str | None
    text: str


def fences(page):
    """The fences of a page in order."""
    mark, opened, text = {}, None, []
    for number, line in enumerate(page.splitlines(), 1):
        if opened is not None:
            if line == "```":
                yield dataclasses.replace(opened, text="".join(text))
                opened, mark = None, {}
            else:
                text.append(line + "\n")
        elif line.startswith("```"):
            opened, text = Fence(number, line[3:], mark.get("file"), mark.get("terminal"),
                                 mark.get("not typed"), ""), []
        elif found := re.fullmatch(r"<!-- (file|terminal|not typed): (.+) -->", line):
            mark = {found[1]: found[2]}
        elif mark:
            raise PageFails(f"line {number}: no fence after the mark")
    if opened is not None or mark:
        raise PageFails("the last fence is not closed, or no fence follows the last mark")


def send(bash, number):
    """Sends a signal to a bash and all its processes."""
    with contextlib.suppress(ProcessLookupError):
        os.killpg(bash.pid, number)


class Terminal:
    """A bash for typed commands, and all its output."""

    def __init__(self, name, directory, records, lax):
        self.name = name
        self._lax = lax
        self._directory = directory
        self._screen = records / f"{name}.screen"
        self._ends = records / f"{name}.ends"  # one line for each typed command that has ended
        self._screen.touch()
        self._seen = 0
        self._typed = 0
        self._bash = None

    def type(self, commands):
        self.shows_nothing_else()
        if self._bash is not None and not self.is_idle():
            self.interrupt()
        if self._bash is None:
            self._open()
        self._typed += 1
        self._bash.stdin.write(f"{{\n{commands}}} </dev/null\necho >>{self._ends}\n".encode())
        self._bash.stdin.flush()

    def is_idle(self):
        """Whether all typed commands have ended. A command that fails is an error."""
        if len(self._ends.read_text()) == self._typed:
            return True
        if self._bash.poll() is not None:
            raise PageFails(f"{self.name}: ended with status {self._bash.returncode} and shows\n{self._new()}")
        return False

    def shows(self, text):
        lines = ["(?:.*\n)*" if line == "...\n" else re.escape(line) for line in text.splitlines(True)]
        wanted = re.compile(("(?:.*\n)*" if self._lax else "") + "".join(lines))
        deadline = time.monotonic() + TIMEOUT
        while not wanted.fullmatch(self._new()):
            if time.monotonic() > deadline or self.is_idle() and not wanted.fullmatch(self._new()):
                raise PageFails(f"{self.name} should show\n{text}and shows\n{self._new()}")
            time.sleep(POLL_INTERVAL)
        self._seen += len(self._new())

    def shows_nothing_else(self):
        if self._lax:
            self._seen += len(self._new())
        elif self._new():
            raise PageFails(f"{self.name} shows what the page does not show:\n{self._new()}")

    def interrupt(self):
        """Presses Ctrl-C. A command that ignores it is killed and reported as a failure."""
        if self._bash is None:
            return
        bash, self._bash = self._bash, None
        bash.stdin.close()  # if the program handles Ctrl-C itself, bash would continue to read
        try:
            send(bash, signal.SIGINT)
            bash.wait(TIMEOUT)
        except subprocess.TimeoutExpired:
            raise PageFails(f"{self.name}: Ctrl-C does not end it") from None
        finally:
            send(bash, signal.SIGKILL)  # also ends processes left in the background

    def _open(self):
        self._ends.write_text("")
        self._typed = 0
        with self._screen.open("ab") as screen:
            self._bash = subprocess.Popen(["bash", "-eo", "pipefail", "-s"], cwd=self._directory, stdin=subprocess.PIPE,
                                          stdout=screen, stderr=screen, start_new_session=True)

    def _new(self):
        """The output since the last check."""
        return self._screen.read_text(errors="backslashreplace")[self._seen:]


class Reader:
    """Follows the page, fence by fence."""

    def __init__(self, directory, records, lax):
        self._directory = directory
        self._records = records
        self._lax = lax
        self._terminals = {}
        self._before = None

    def follow(self, fence):
        if fence.not_typed is not None:
            print(f"line {fence.line}: not typed: {fence.not_typed}")
            self._before = None
        elif fence.file is not None:
            (self._directory / pathlib.Path(fence.file).expanduser()).write_text(fence.text)
            self._before = None
        elif fence.language == "sh":
            self._type(fence)
        elif fence.language == "text" and (fence.terminal or self._before):
            terminal = self._terminal(fence.terminal) if fence.terminal else self._before
            terminal.shows(fence.text)
        else:
            raise PageFails(f"a fence that is neither written to a file nor run nor shown ({fence.language})")

    def finish(self):
        for terminal in self._terminals.values():
            terminal.shows_nothing_else()
        self.leave()

    def leave(self):
        terminals, self._terminals = self._terminals, {}
        with contextlib.ExitStack() as each:
            for terminal in terminals.values():
                each.callback(terminal.interrupt)

    def _type(self, fence):
        self._before = self._terminal(fence.terminal or DEFAULT_TERMINAL)
        self._before.type(fence.text)
        if fence.terminal is None:
            deadline = time.monotonic() + TIMEOUT
            while not self._before.is_idle():
                if time.monotonic() > deadline:
                    raise PageFails(f"the commands do not end: {fence.text}")
                time.sleep(POLL_INTERVAL)

    def _terminal(self, name):
        if name not in self._terminals:
            self._terminals[name] = Terminal(name, self._directory, self._records, self._lax)
        return self._terminals[name]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--lax", action="store_true", help="run in the current folder, and allow output that the pages do not show")
    parser.add_argument("pages", nargs="+", type=pathlib.Path, metavar="PAGE")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    with tempfile.TemporaryDirectory() as directory, tempfile.TemporaryDirectory() as records:
        reader = Reader(pathlib.Path.cwd() if options.lax else pathlib.Path(directory), pathlib.Path(records), options.lax)
        try:
            for page in options.pages:
                line, followed = 1, 0
                for fence in fences(page.read_text()):
                    line = fence.line
                    reader.follow(fence)
                    followed += fence.not_typed is None
                print(f"{page.name}: {followed} fences are correct")
                if not followed:
                    return 1
            reader.finish()
        except PageFails as failure:
            print(f"{page}:{line}: {failure}", file=sys.stderr)
            return 1
        finally:
            reader.leave()
    return 0


if __name__ == "__main__":
    sys.exit(main())
