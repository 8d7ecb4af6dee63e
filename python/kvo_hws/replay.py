"""A recording that is replayed: programs get the recorded answers and events, for tests without a panel or a plant."""

from __future__ import annotations

import json
import os
import signal
import sys
import tempfile
from pathlib import Path
from typing import Any, Dict, List, Optional, Type, Union

from ._events import close_preserving
from ._process import KvosimProcess, PathText, find_kvosim
from .errors import ReplayMismatch, SimulatorError

STATUS_NOT_AS_RECORDED = 4


class Replay:
    """A recording that is replayed, in a ``with`` block::

        with replay("fault.rec"):
            print(Service().get_stations())

    kvosim answers each request as it was recorded, and sends the recorded events. The end of the block raises ReplayMismatch if
    this process, or a program that it started, sent a request that was not recorded. The page replay.md explains the rules.

    **The parameters.**

    - ``recording`` is the path of a recording.
    - ``speed`` divides the recorded times: 2 is twice as fast, and "max" sends everything at once.
    - ``strict`` also raises ReplayMismatch unless every recorded request was sent once, in the recorded order.
    - ``plant`` is the path of a plant file. It answers requests that were not recorded.
    - ``check=False`` raises nothing at the end of the block. Read ``report`` instead.
    - ``private``, ``verbose`` and ``kvosim`` are those of Simulator. The folder of the sockets is also the same.
    """

    def __init__(
        self,
        recording: PathText,
        *,
        speed: Union[float, str] = 1,
        strict: bool = False,
        plant: Optional[PathText] = None,
        check: bool = True,
        private: bool = True,
        verbose: bool = False,
        kvosim: Optional[PathText] = None,
    ) -> None:
        self._recording = os.fspath(recording)
        self._check = check
        self._options: List[str] = [f"--speed={speed}"]
        if strict:
            self._options.append("--strict")
        if plant is not None:
            self._options.append(f"--plant={os.fspath(plant)}")
        if verbose:
            self._options.append("--verbose")
        self._process = KvosimProcess(find_kvosim(kvosim), private=private, verbose=verbose)
        self._folder: Optional[tempfile.TemporaryDirectory[str]] = None
        self._report: Optional[Dict[str, Any]] = None

    def start(self, timeout: float = 10.0) -> None:
        """Starts the replay, and waits at most ``timeout`` seconds until it accepts requests.

        Raises SimulatorError with the message of kvosim if kvosim cannot start, for example because the recording is damaged; and
        NamespaceError.
        """
        self._report = None
        self._folder = tempfile.TemporaryDirectory(prefix="kvo_hws-")
        options = [f"--report={self._report_file}", *self._options]
        try:
            self._process.start(
                ["serve", f"--replay={self._recording}", *options],
                ["replay", "--shared", *options, self._recording],
                lambda _shared: bool(self._process.output),
                timeout,
            )
        except BaseException:
            self._remove_folder()
            raise

    def stop(self) -> None:
        """Ends the replay. Raises ReplayMismatch if the requests were not as recorded, unless ``check`` is False.

        Raises SimulatorError if kvosim has ended without a report, for example because it was killed.
        """
        mismatch = self._end()
        if mismatch is not None:
            raise mismatch

    def _end(self) -> Optional[ReplayMismatch]:
        status = self._process.end(signal.SIGTERM)
        if status is None:
            return None
        try:
            report = dict(json.loads(self._report_file.read_text(encoding="utf-8")))
        except (OSError, ValueError):
            text = self._process.messages.strip()
            raise SimulatorError(text or f"kvosim ended without a report, with status {status}", status) from None
        finally:
            self._remove_folder()
        self._report = report
        if not self._check or status != STATUS_NOT_AS_RECORDED:
            return None
        return ReplayMismatch(self._process.messages.strip() or "the requests were not as recorded", report)

    @property
    def running(self) -> bool:
        """Whether the replay is running."""
        return self._process.running

    @property
    def report(self) -> Dict[str, Any]:
        """What was asked, and how it differs from the recording. The keys are those of ``kvosim replay --report``. It exists after
        the end of the replay.
        """
        if self._report is None:
            raise RuntimeError("the report exists after the end of the replay")
        return self._report

    def __enter__(self) -> Replay:
        self.start()
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], active: Optional[BaseException], trace: object) -> None:
        def end() -> None:
            mismatch = self._end()
            if mismatch is not None and active is None:
                raise mismatch
            if mismatch is not None:
                sys.stderr.write(f"{mismatch}\n")  # it may be the cause of the active exception

        close_preserving(end, active)

    @property
    def _report_file(self) -> Path:
        assert self._folder is not None
        return Path(self._folder.name) / "report.json"

    def _remove_folder(self) -> None:
        folder, self._folder = self._folder, None
        if folder is not None:
            folder.cleanup()


replay = Replay
"""The same class, named for ``with`` blocks."""
