"""A kvosim that serves this process and the programs that it starts. It ends with this process."""

from __future__ import annotations

import atexit
import math
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from functools import lru_cache
from typing import IO, Callable, List, Optional, Sequence, Union

from ._namespace import enter_private_namespace
from .errors import EventTimeout, NamespaceRefused, SimulatorError

KVOSIM_VARIABLE = "KVO_KVOSIM"
POLL_SECONDS = 0.02
WAITING = "kvosim: waiting for "

PathText = Union[str, "os.PathLike[str]"]


class KvosimProcess:
    """Starts and ends kvosim. ``program`` is its path, see find_kvosim.

    With ``private``, start() gives this process a private folder for the sockets. If that is not permitted, kvosim uses the
    machine's own folder, and start() waits without a time limit until the folder is free. With ``verbose``, kvosim's messages
    go to standard error at once.
    """

    def __init__(self, program: str, *, private: bool, verbose: bool) -> None:
        self._program = program
        self._private = private
        self._verbose = verbose
        self._process: Optional[subprocess.Popen[bytes]] = None
        self._output: Optional[IO[str]] = None
        self._messages: Optional[IO[str]] = None
        self._shown = 0  # characters of kvosim's messages that were printed

    @property
    def pid(self) -> int:
        """The process id. start() must have been called."""
        assert self._process is not None
        return self._process.pid

    @property
    def running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    @property
    def output(self) -> str:
        """What kvosim has written to standard output since start()."""
        return _text_of(self._output)

    @property
    def messages(self) -> str:
        """What kvosim has written to standard error since start(); empty with ``verbose``."""
        return _text_of(self._messages)

    def start(self, serve: Sequence[str], run_shared: Sequence[str], is_ready: Callable[[bool], bool], timeout: float) -> None:
        """Starts kvosim with one of two command lines, and waits until ``is_ready`` returns True. ``is_ready`` gets whether the
        machine's own folder is used.

        ``serve`` serves until the end of its input; ``run_shared`` runs a command, with the machine's own folder. The command is
        added here.
        """
        shared = self._private and not _has_private_folder()
        if self._private:
            os.environ.setdefault("KVO_PLATFORM_INTERFACE", "lo")
        # "cat" ends at the end of its input, when this process ends.
        words = [*run_shared, "--", "sh", "-c", "echo ready; exec cat"] if shared else [*serve, "--until-input-ends"]
        self._close_files()
        self._output = tempfile.TemporaryFile("w+", encoding="utf-8", errors="replace")
        self._messages = tempfile.TemporaryFile("w+", encoding="utf-8", errors="replace")
        self._shown = 0
        # kvosim ends when its input ends, so it ends with this program, even a killed one. In a new session, a Ctrl-C for
        # this program does not reach it.
        self._process = subprocess.Popen(
            [self._program, *words],
            stdin=subprocess.PIPE,
            stdout=self._output,
            stderr=None if self._verbose else self._messages,
            start_new_session=True,
        )
        atexit.register(self.kill)
        try:
            limit = math.inf if shared else timeout
            wait_for(lambda: self._lives() and is_ready(shared), limit, "the simulator does not accept requests")
        except BaseException:
            self.kill()
            raise
        # Warnings of kvosim, for example about a port that another program uses. kvosim runs nevertheless.
        sys.stderr.write(self.messages[self._shown :])

    def kill(self) -> None:
        self.end(signal.SIGKILL)

    def end(self, how: signal.Signals) -> Optional[int]:
        """Ends kvosim with a signal, and waits for its end. Returns its exit status; None if it was not started."""
        process, self._process = self._process, None
        if process is None:
            return None
        atexit.unregister(self.kill)
        process.send_signal(how)
        process.wait()
        if process.stdin is not None:
            process.stdin.close()
        return process.returncode

    def _lives(self) -> bool:
        """Raises SimulatorError if kvosim has ended. Shows what it waits for."""
        assert self._process is not None
        if self._process.poll() is not None:
            text = self.messages.strip() or f"kvosim ended with status {self._process.returncode}"
            raise SimulatorError(text, self._process.returncode)
        text = self.messages
        if WAITING in text and not self._shown:
            sys.stderr.write(text)
            self._shown = len(text)
        return True

    def _close_files(self) -> None:
        for file in (self._output, self._messages):
            if file is not None:
                file.close()

    def __del__(self) -> None:
        self._close_files()


def wait_for(condition: Callable[[], bool], timeout: float, failure: str) -> None:
    """Waits until the condition is true. Raises EventTimeout."""
    until = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > until:
            raise EventTimeout(f"{failure}, after {timeout} s")
        time.sleep(POLL_SECONDS)


def find_kvosim(chosen: Optional[PathText]) -> str:
    """The path of kvosim. Raises SimulatorError."""
    program = os.fspath(chosen) if chosen is not None else os.environ.get(KVOSIM_VARIABLE, "kvosim")
    found = shutil.which(program)
    if found is None:
        raise SimulatorError(
            f"the program {program} was not found; install kvosim, pass its path as kvosim=..., "
            f"or set {KVOSIM_VARIABLE} to it, such as build/release/bin/kvosim"
        )
    return found


@lru_cache(maxsize=None)
def _has_private_folder() -> bool:
    """Gives this process a private folder and returns True. If the kernel or a container refuses, prints the reason once and
    returns False. Raises NamespaceError for any other cause, such as a process that has several threads.
    """
    try:
        enter_private_namespace()
    except NamespaceRefused as refused:
        sys.stderr.write(f"kvo_hws: {refused.strerror}\n")
        return False
    return True


def _text_of(file: Optional[IO[str]]) -> str:
    if file is None or file.closed:
        return ""
    # pread does not move the position at which kvosim continues to write.
    return os.pread(file.fileno(), os.fstat(file.fileno()).st_size, 0).decode("utf-8", "replace")
