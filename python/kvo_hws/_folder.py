"""The machine's /tmp/kvo_hws, which is the mount point of private folders. A process that has a private folder there is called
a run. If a run made the machine's folder, the last run removes it. kvosim follows the same rules."""

from __future__ import annotations

import fcntl
import os
import select
import stat
from typing import NoReturn, Optional, Tuple

SOCKET_FOLDER = "/tmp/kvo_hws"
MADE_BY_RUN = 0o1755
"""The mode that marks a folder that a run made. Services create the folder without the sticky bit."""

_locked: Optional[int] = None
"""The folder's descriptor, with a shared lock. While it is open, no other run removes the folder and the mount on it."""


def lock_folder() -> None:
    """Keeps the folder until this process ends. Creates the folder if it is missing. Raises OSError.

    Call it before the process has threads, and outside the private namespace.
    """
    global _locked
    folder, made = _lock()
    if folder is not None:
        _locked = folder
        _start_guardian(folder, made)


def _lock() -> Tuple[Optional[int], bool]:
    """Returns the folder's descriptor, and whether this call made the folder. The descriptor is None if the folder belongs to
    another user and is not readable. A run never makes or removes such a folder.
    """
    while True:
        made = _make()
        try:
            folder = os.open(SOCKET_FOLDER, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW | os.O_CLOEXEC)
        except FileNotFoundError:
            continue  # a run removed it in the meantime
        except PermissionError:
            if stat.S_ISDIR(os.lstat(SOCKET_FOLDER).st_mode):
                return None, False
            raise
        if not _removed_for_root(folder):
            fcntl.flock(folder, fcntl.LOCK_SH)
            if _is_still_in_place(folder):
                return folder, made
        os.close(folder)


def release_folder() -> None:
    """Undoes lock_folder if the private folder could not be mounted."""
    global _locked
    if _locked is not None:
        _remove_unused(_locked, wait=False)
        os.close(_locked)
        _locked = None


def _make() -> bool:
    # The folder needs the mark from the start, with any umask.
    mask = os.umask(0)
    try:
        os.mkdir(SOCKET_FOLDER, MADE_BY_RUN)
        return True
    except FileExistsError:
        return False
    finally:
        os.umask(mask)


def _is_still_in_place(folder: int) -> bool:
    try:
        return os.path.samestat(os.fstat(folder), os.lstat(SOCKET_FOLDER))
    except FileNotFoundError:
        return False


def _removed_for_root(folder: int) -> bool:
    """If this process is root, removes a folder of another user that is empty and not in use. Root replaces it with its own."""
    if os.geteuid() != 0 or os.fstat(folder).st_uid == 0:
        return False
    try:
        fcntl.flock(folder, fcntl.LOCK_EX | fcntl.LOCK_NB)
        if _is_still_in_place(folder):
            os.rmdir(SOCKET_FOLDER)
    except OSError:
        return False
    return True


def _remove_unused(folder: int, wait: bool) -> None:
    try:
        fcntl.flock(folder, fcntl.LOCK_EX | (0 if wait else fcntl.LOCK_NB))
        if _is_still_in_place(folder) and stat.S_IMODE(os.fstat(folder).st_mode) == MADE_BY_RUN:
            os.rmdir(SOCKET_FOLDER)
    except OSError:
        pass  # another run uses the folder, or it contains sockets of a service or a program


def _start_guardian(folder: int, made: bool) -> None:
    """Starts the process that removes the folder. It stays outside the private namespace. It is not a child of this process,
    because this process may wait for all of its children. If it cannot be started, the folder is not removed.
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
    os.setsid()  # the terminal's signals do not reach a new session
    os.chdir("/")
    # The guardian keeps no terminal, pipe or file of the run open.
    folder, process = fcntl.fcntl(folder, fcntl.F_DUPFD, 3), fcntl.fcntl(process, fcntl.F_DUPFD, 3)
    os.dup2(folder, 0)
    os.dup2(process, 1)
    os.closerange(2, os.sysconf("SC_OPEN_MAX"))
    select.select([1], [], [])
    _remove_unused(0, wait=False)
    if made:
        # Waits for the runs of other users, because they cannot remove this folder.
        _remove_unused(0, wait=True)
    os._exit(0)
