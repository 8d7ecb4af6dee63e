"""For tests with an event loop: blocking calls on other threads, conditions, and programs of their own."""

from __future__ import annotations

import asyncio
import subprocess
import sys
import time
from typing import Any, Awaitable, Callable

QUIET = ["-W", "ignore:This process:DeprecationWarning"]
"""Python 3.12 and later warn that another thread may hold a lock in a forked child. The package releases its own."""


def in_a_thread(function: Callable[..., Any], *arguments: object) -> Awaitable[Any]:
    return asyncio.get_running_loop().run_in_executor(None, function, *arguments)


async def until(condition: Callable[[], bool]) -> None:
    """Waits until the condition is true, while the loop runs."""
    for _ in range(2000):
        if condition():
            return
        await asyncio.sleep(0.01)
    raise AssertionError("the condition did not become true in time")


def until_blocking(condition: Callable[[], bool]) -> None:
    """Waits until the condition is true, while the loop does not run."""
    for _ in range(2000):
        if condition():
            return
        time.sleep(0.01)
    raise AssertionError("the condition did not become true in time")


def run_program(program: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, *QUIET, "-c", program], capture_output=True, text=True, timeout=60)
