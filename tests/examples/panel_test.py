#!/usr/bin/env python3
"""Uses a panel program as its user does, beside a simulated service: looks at the stations, sets the backlight, plugs a USB stick in, and
makes the service silent. Runs within "kvosim run".

    panel_test.py PROGRAM KVOSIM [--window [PICTURE]]

With --window, the program draws on a virtual display, and the mouse and the keyboard are used there. PICTURE is a file for a picture of
the window while the service is silent; scripts/picture.sh draws the one in docs/ like this.
"""

import contextlib
import json
import os
import re
import select
import subprocess
import sys
import tempfile
import time

TIMEOUT = 60  # seconds for each wait; a loaded machine needs some of them
STATION = "10.0.0.5"
WINDOW = (960, 600)
DARKER = (520, 110)  # on the slider, to the left of its handle

program, kvosim = sys.argv[1:3]
with_window = "--window" in sys.argv
picture = sys.argv[4] if len(sys.argv) > 4 else None


class Failure(Exception):
    pass


def simulator(*arguments):
    return subprocess.run([kvosim, *arguments], check=True, capture_output=True, text=True, timeout=TIMEOUT).stdout


class Panel:
    """A running panel program. Each drawing is printed, and contains its number."""

    def __init__(self, process, display):
        self._process = process
        self._display = display
        self._printed = ""

    def _read(self):
        ready, _, _ = select.select([self._process.stdout], [], [], TIMEOUT)
        piece = os.read(self._process.stdout.fileno(), 65536) if ready else b""
        if not piece:
            raise Failure("the program ends" if ready else "the program has stopped drawing")
        self._printed += piece.decode(errors="replace")

    def next_drawings(self):
        """All drawings from now on. The first may be incomplete."""
        while select.select([self._process.stdout], [], [], 0)[0]:
            self._read()
        self._printed = self._printed[self._printed.rfind("drawing "):]
        deadline = time.monotonic() + TIMEOUT
        while time.monotonic() < deadline:
            self._read()
            *complete, self._printed = re.split(r"(?=^.*drawing \d)", self._printed, flags=re.MULTILINE)
            yield from filter(None, complete)
        raise Failure("it does not show that")

    def shows(self, *patterns):
        """Waits for a drawing that shows all of the patterns."""
        last = ""
        try:
            for last in self.next_drawings():
                if all(re.search(pattern, last) for pattern in patterns):
                    print(f"shows {' and '.join(patterns)}")
                    return
        except Failure as failure:
            raise Failure(f"waiting for {patterns}: {failure}; the last drawing:\n{last}") from None

    def draws(self, count):
        """Waits for so many more drawings."""
        for _, _ in zip(range(count), self.next_drawings()):
            pass

    def draws_while_it_waits(self):
        """Sees three drawings of the time that an unanswered request has waited, each time longer than before."""
        seen, before = [], 0
        for drawing in self.next_drawings():
            waited = int(re.search(r"waiting +(\d+) ms|$", drawing)[1] or 0)
            number = int(re.search(r"drawing (\d+)|$", drawing)[1] or 0)
            seen = seen + [(number, waited)] if waited > before else []
            before = waited
            if len(seen) == 3 and seen[0][0] < seen[1][0] < seen[2][0]:
                print(f"draws while it waits: {seen}")
                return
            seen = seen[-2:]

    def make_darker(self):
        if self._display:
            self._display.click(*DARKER)
        else:
            self._press(b"-")

    def store_picture(self, path):
        """Stores a picture of a window that has drawn for a while, and then waited for the service for a while."""
        simulator("fault", "clear")
        self.draws(60)
        simulator("fault", "add", "silent")
        self.draws(50)
        self._display.store_picture(path)

    def end(self):
        if self._display:
            self._display.press("ctrl+q")
        else:
            self._press(b"q")
        try:
            while True:
                self._read()
        except Failure:
            pass
        if status := self._process.wait(TIMEOUT):
            raise Failure(f"the program ends with status {status}")

    def _press(self, key):
        self._process.stdin.write(key)
        self._process.stdin.flush()


class Display:
    """A virtual display."""

    def __init__(self, name):
        self.environment = os.environ | {"DISPLAY": name, "QT_QPA_PLATFORM": "xcb"}

    def click(self, x, y):
        self._do("mousemove", str(x), str(y), "click", "1")

    def press(self, keys):
        self._do("key", keys)

    def store_picture(self, path):
        subprocess.run(["import", "-window", "root", "-strip", "-colors", "128", f"png8:{path}"], env=self.environment, check=True,
                       timeout=TIMEOUT)

    def _do(self, *arguments):
        subprocess.run(["xdotool", *arguments], env=self.environment, check=True, timeout=TIMEOUT)


@contextlib.contextmanager
def running(command, **options):
    with subprocess.Popen(command, **options) as process:
        try:
            yield process
        finally:
            process.kill() if process.stdin else process.terminate()


@contextlib.contextmanager
def virtual_display():
    reader, writer = os.pipe()
    with running(["Xvfb", "-displayfd", str(writer), "-screen", "0", f"{WINDOW[0]}x{WINDOW[1]}x24"], pass_fds=[writer],
                 stderr=subprocess.DEVNULL), os.fdopen(reader) as numbers:
        os.close(writer)
        number = numbers.readline().strip()
        if not number:
            raise Failure("Xvfb does not start")
        yield Display(f":{number}")


def backlight_of_the_station_becomes(level):
    deadline = time.monotonic() + TIMEOUT
    while (found := json.loads(simulator("station", STATION, "--json"))["backlight_brightness"]) != level:
        if time.monotonic() > deadline:
            raise Failure(f"the station's backlight is at {found} %, not at {level} %")
        time.sleep(0.02)


def use(panel):
    panel.shows(r"10\.0\.0\.6 +Milling centre 2", r"(?i)backlight.* 100 %", "USB.* (no device|0)", r"(?i)service +answers")
    panel.make_darker()
    backlight_of_the_station_becomes(90)
    panel.shows(r"(?i)backlight.* 90 %")
    simulator("usb", "plug", STATION, "--ident2", "stick")
    panel.shows(rf"{STATION} +Memory stick \(stick\)")
    simulator("fault", "add", "silent")
    panel.draws_while_it_waits()
    panel.shows("the request was not done by its deadline")
    if picture:
        panel.store_picture(picture)
    simulator("fault", "clear")
    panel.shows(r"(?i)service +answers")
    simulator("usb", "unplug", STATION, "stick")
    panel.shows("USB.* (no device|0)")
    panel.end()


def main():
    with contextlib.ExitStack() as stack:
        display = stack.enter_context(virtual_display()) if with_window else None
        environment = display.environment if display else os.environ
        runtime = stack.enter_context(tempfile.TemporaryDirectory())
        process = stack.enter_context(running([program, *(["--print"] if display else [])], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                              env=environment | {"XDG_RUNTIME_DIR": runtime}))
        try:
            use(Panel(process, display))
        except Failure as failure:
            print(failure, file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
