"""Gives this process a private /tmp/kvo_hws. The paths of the library's sockets are the same for all programs of the machine.
Therefore each of several programs that are tested in parallel needs a private folder."""

from __future__ import annotations

import ctypes
import errno
import os
import threading
from typing import Optional

from ._folder import SOCKET_FOLDER, lock_folder, release_folder
from .errors import NamespaceError, NamespaceRefused

CLONE_NEWNS = 0x00020000
CLONE_NEWUSER = 0x10000000
CAP_SYS_ADMIN = 21
MS_NOSUID = 0x2
MS_NODEV = 0x4
MS_REC = 0x4000
MS_PRIVATE = 0x40000

ALTERNATIVES = (
    "; run the program with \"kvosim run -- python3 ...\" and use Simulator.attach(), "
    "or use the machine's own folder with Simulator(private=False)"
)

_libc = ctypes.CDLL(None, use_errno=True)
_entered = False
_entering = threading.Lock()


def _error(step: str, error: Optional[int] = None) -> NamespaceError:
    error = ctypes.get_errno() if error is None else error
    return NamespaceError(error, f"no private {SOCKET_FOLDER}: {step}: {os.strerror(error)}{ALTERNATIVES}")


def _mount(source: str, target: str, kind: str, flags: int, options: str) -> bool:
    result: int = _libc.mount(source.encode(), target.encode(), kind.encode(), ctypes.c_ulong(flags), options.encode())
    return result == 0


def _write(path: str, text: str) -> None:
    try:
        with open(path, "w", encoding="ascii") as file:
            file.write(text)
    except OSError as error:
        raise _error(f"write {path}", error.errno) from error


def _may_mount() -> bool:
    """Whether this process has root's right to mount."""
    with open("/proc/self/status", encoding="ascii", errors="replace") as status:
        capabilities = next(line for line in status if line.startswith("CapEff:"))
    return bool(int(capabilities.split()[1], 16) >> CAP_SYS_ADMIN & 1)


def _refused(error: int) -> NamespaceRefused:
    if _may_mount():
        missing = "although this process has CAP_SYS_ADMIN: a system call filter, such as a container's, forbids it"
    elif os.geteuid() == 0:
        missing = "root has no CAP_SYS_ADMIN here, as in most containers, and does not get a user namespace either"
    else:
        missing = "only root may, and the kernel or the container forbids user namespaces"
    step = f"new mount namespace: {os.strerror(errno.EPERM)} ({missing}: {os.strerror(error)})"
    return NamespaceRefused(error, f"no private {SOCKET_FOLDER}: {step}; Simulator() uses the machine's own folder instead")


def _unshare_mounts() -> None:
    """Creates a mount namespace. Without root's rights, also creates a user namespace, which grants the right to mount. In it,
    the user keeps its own number.
    """
    user, group = os.getuid(), os.getgid()
    if _libc.unshare(CLONE_NEWNS) == 0:
        return
    if ctypes.get_errno() != errno.EPERM:
        raise _error("new mount namespace")
    if _libc.unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0:
        raise _refused(ctypes.get_errno())
    _write("/proc/self/setgroups", "deny")
    _write("/proc/self/uid_map", f"{user} {user} 1")
    _write("/proc/self/gid_map", f"{group} {group} 1")


def _is_shared(mount_point: str) -> bool:
    """Whether other namespaces see a mount as well."""
    shared = False
    with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as mounts:
        for line in mounts:
            # The last mount at a path is the visible one.
            if line.split()[4] == mount_point:
                shared = " shared:" in line
    return shared


def enter_private_namespace() -> None:
    """Gives this process, and the programs that it starts from now on, a private /tmp/kvo_hws, which is empty at first. The
    folder exists until the process ends. Further calls do nothing.

    Call this function while the process has a single thread, because other threads would not see the private folder. Root is
    not required if the kernel grants user namespaces. Raises NamespaceRefused if this process may not create a namespace, and
    NamespaceError if anything else fails.
    """
    global _entered
    with _entering:
        if _entered:
            return
        threads = len(os.listdir("/proc/self/task"))
        if threads > 1:
            raise NamespaceError(
                errno.EBUSY,
                f"no private {SOCKET_FOLDER}: this process already has {threads} threads, and only one would be inside; "
                f"start the first Simulator, or call enter_private_namespace, before you start other threads{ALTERNATIVES}",
            )
        try:
            lock_folder()  # the mount point
        except OSError as error:
            raise _error("lock the folder", error.errno) from error
        try:
            _mount_private_folder()
        except NamespaceError:
            release_folder()
            raise
        _entered = True


def _mount_private_folder() -> None:
    _unshare_mounts()
    # Keeps later mounts out of other namespaces. In a chroot "/" may not be a mount point, and then mount fails with EINVAL.
    made_private = _mount("none", "/", "none", MS_REC | MS_PRIVATE, "")
    if not made_private and ctypes.get_errno() != errno.EINVAL:
        raise _error("make the mounts private")
    if not _mount("tmpfs", SOCKET_FOLDER, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=16m"):
        raise _error(f"mount {SOCKET_FOLDER}")
    if not made_private and _is_shared(SOCKET_FOLDER):
        _libc.umount(SOCKET_FOLDER.encode())
        ctypes.set_errno(errno.EINVAL)
        raise _error("make the mounts private (this is a chroot below a shared mount)")
