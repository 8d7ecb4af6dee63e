"""The machine's /tmp/kvo_hws, on which private ones are mounted: as kvosim does it, the last run removes the folder that a run
made. A run is whatever process has a private place there."""

from __future__ import annotations

import fcntl
import os
import select
import stat
from typing import NoReturn, Optional, Tuple

SOCKET_FOLDER = "/tmp/kvo_hws"
MADE_BY_RUN = 0o1755
"""The mode that marks a folder that a run made. Services make theirs without the sticky bit."""

_held: Optional[int] = None
"""Its descriptor, with the shared lock: no other run removes the folder, and with it the mount, as long as it is open."""


def hold_folder() -> None:
    """Keeps the folder, which is made where it is missing, until this process ends. Raises OSError.

    To be called before the process has threads, and outside of the private namespace.
    """
    global _held
    folder, made = _hold()
    if folder is not None:
        _held = folder
        _start_guardian(folder, made)


def _hold() -> Tuple[Optional[int], bool]:
    """The folder's descriptor, and whether it was made; none for another user's who lets no one read it: no run has made that,
    and none removes it.
    """
    while True:
        made = _make()
        try:
            folder = os.open(SOCKET_FOLDER, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW | os.O_CLOEXEC)
        except FileNotFoundError:
            continue  # a run has removed it meanwhile
        except PermissionError:
            if stat.S_ISDIR(os.lstat(SOCKET_FOLDER).st_mode):
                return None, False
            raise
        if not _given_up(folder):
            fcntl.flock(folder, fcntl.LOCK_SH)
            if _is_there(folder):
                return folder, made
        os.close(folder)


def let_go() -> None:
    """Ends what hold_folder began, where no private place has come of it."""
    global _held
    if _held is not None:
        _remove_unused(_held, wait=False)
        os.close(_held)
        _held = None


def _make() -> bool:
    # The mark has to be there from the start, whatever the umask.
    mask = os.umask(0)
    try:
        os.mkdir(SOCKET_FOLDER, MADE_BY_RUN)
        return True
    except FileExistsError:
        return False
    finally:
        os.umask(mask)


def _is_there(folder: int) -> bool:
    try:
        return os.path.samestat(os.fstat(folder), os.lstat(SOCKET_FOLDER))
    except FileNotFoundError:
        return False


def _given_up(folder: int) -> bool:
    """Root replaces a folder of another user that is empty and not in use."""
    if os.geteuid() != 0 or os.fstat(folder).st_uid == 0:
        return False
    try:
        fcntl.flock(folder, fcntl.LOCK_EX | fcntl.LOCK_NB)
        if _is_there(folder):
            os.rmdir(SOCKET_FOLDER)
    except OSError:
        return False
    return True


def _remove_unused(folder: int, wait: bool) -> None:
    try:
        fcntl.flock(folder, fcntl.LOCK_EX | (0 if wait else fcntl.LOCK_NB))
        if _is_there(folder) and stat.S_IMODE(os.fstat(folder).st_mode) == MADE_BY_RUN:
            os.rmdir(SOCKET_FOLDER)
    except OSError:
        pass  # another run uses it, or a service or a program has its sockets there


def _start_guardian(folder: int, made: bool) -> None:
    """Starts the process that removes the folder: it stays outside, and is no child of this one, which may wait for all of its
    children. Where that cannot be done the folder stays behind.
    """
    try:
        process = os.pidfd_open(os.getpid())
    except (AttributeError, OSError):
        return
    child = os.fork()
    if child == 0:
        try:
            if os.fork() == 0:
                _guard(folder, process, made)
        finally:
            os._exit(0)
    os.waitpid(child, 0)
    os.close(process)


def _guard(folder: int, process: int, made: bool) -> NoReturn:
    os.setsid()  # out of the reach of the terminal's signals
    os.chdir("/")
    # It holds no terminal, pipe or file of the run.
    folder, process = fcntl.fcntl(folder, fcntl.F_DUPFD, 3), fcntl.fcntl(process, fcntl.F_DUPFD, 3)
    os.dup2(folder, 0)
    os.dup2(process, 1)
    os.closerange(2, os.sysconf("SC_OPEN_MAX"))
    select.select([1], [], [])
    _remove_unused(0, wait=False)
    if made:
        # Runs of other users cannot remove it.
        _remove_unused(0, wait=True)
    os._exit(0)
