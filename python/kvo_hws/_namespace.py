"""A /tmp/kvo_hws of this process's own: the library's sockets have fixed paths for the whole machine, so that programs that are
tested side by side each need a place of their own there."""

from __future__ import annotations

import ctypes
import errno
import os
import threading
from typing import Optional

from ._folder import SOCKET_FOLDER, hold_folder, let_go
from .errors import NamespaceError, NamespaceRefused

CLONE_NEWNS = 0x00020000
CLONE_NEWUSER = 0x10000000
CAP_SYS_ADMIN = 21
MS_NOSUID = 0x2
MS_NODEV = 0x4
MS_REC = 0x4000
MS_PRIVATE = 0x40000

INSTEAD = (
    "; work inside \"kvosim run -- python3 ...\" and use Simulator.attach(), "
    "or share the machine's own folder with Simulator(private=False)"
)

_libc = ctypes.CDLL(None, use_errno=True)
_entered = False
_entering = threading.Lock()


def _fail(step: str, number: Optional[int] = None) -> NamespaceError:
    number = ctypes.get_errno() if number is None else number
    return NamespaceError(number, f"no private {SOCKET_FOLDER}: {step}: {os.strerror(number)}{INSTEAD}")


def _mount(source: str, target: str, kind: str, flags: int, options: str) -> bool:
    done: int = _libc.mount(source.encode(), target.encode(), kind.encode(), ctypes.c_ulong(flags), options.encode())
    return done == 0


def _write(path: str, text: str) -> None:
    try:
        with open(path, "w", encoding="ascii") as file:
            file.write(text)
    except OSError as error:
        raise _fail(f"write {path}", error.errno) from error


def _may_mount() -> bool:
    """Whether this process may do what root may with mounts."""
    with open("/proc/self/status", encoding="ascii", errors="replace") as status:
        rights = next(line for line in status if line.startswith("CapEff:"))
    return bool(int(rights.split()[1], 16) >> CAP_SYS_ADMIN & 1)


def _refused(number: int) -> NamespaceRefused:
    if _may_mount():
        missing = "although this process has CAP_SYS_ADMIN: a filter of system calls, as of a container, forbids it"
    elif os.geteuid() == 0:
        missing = "this root has no CAP_SYS_ADMIN, as in most containers, and is not granted a user namespace either"
    else:
        missing = "only root may, and the kernel or the container forbids user namespaces"
    step = f"new mount namespace: {os.strerror(errno.EPERM)} ({missing}: {os.strerror(number)})"
    return NamespaceRefused(number, f"no private {SOCKET_FOLDER}: {step}; Simulator() uses the machine's own instead")


def _unshare_mounts() -> None:
    """Without root, a user namespace in which this user keeps its own number grants the right to mount."""
    user, group = os.getuid(), os.getgid()
    if _libc.unshare(CLONE_NEWNS) == 0:
        return
    if ctypes.get_errno() != errno.EPERM:
        raise _fail("new mount namespace")
    if _libc.unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0:
        raise _refused(ctypes.get_errno())
    _write("/proc/self/setgroups", "deny")
    _write("/proc/self/uid_map", f"{user} {user} 1")
    _write("/proc/self/gid_map", f"{group} {group} 1")


def _is_shared(mount_point: str) -> bool:
    """Whether a mount is seen in other namespaces as well."""
    shared = False
    with open("/proc/self/mountinfo", encoding="utf-8", errors="surrogateescape") as mounts:
        for line in mounts:
            # The last mount of a place is the one that is seen.
            if line.split()[4] == mount_point:
                shared = " shared:" in line
    return shared


def enter_private_namespace() -> None:
    """Gives this process, and what it starts from now on, a /tmp/kvo_hws of its own, empty; once, and for its whole life.

    Call it while the process has a single thread: threads that run already would stay outside. Needs no root where the kernel
    grants user namespaces. Raises NamespaceRefused where it does not, NamespaceError.
    """
    global _entered
    with _entering:
        if _entered:
            return
        threads = len(os.listdir("/proc/self/task"))
        if threads > 1:
            raise NamespaceError(
                errno.EBUSY,
                f"no private {SOCKET_FOLDER}: this process has {threads} threads already, and only one would be inside; "
                f"start the first Simulator, or call enter_private_namespace, before other threads are started{INSTEAD}",
            )
        try:
            hold_folder()  # which the mount lies on
        except OSError as error:
            raise _fail("hold the folder", error.errno) from error
        try:
            _mount_own()
        except NamespaceError:
            let_go()
            raise
        _entered = True


def _mount_own() -> None:
    _unshare_mounts()
    # Nothing that is mounted from here on reaches the outside. In a chroot the root may be no mount of its own.
    told_private = _mount("none", "/", "none", MS_REC | MS_PRIVATE, "")
    if not told_private and ctypes.get_errno() != errno.EINVAL:
        raise _fail("make the mounts private")
    if not _mount("tmpfs", SOCKET_FOLDER, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=16m"):
        raise _fail(f"mount {SOCKET_FOLDER}")
    if not told_private and _is_shared(SOCKET_FOLDER):
        _libc.umount(SOCKET_FOLDER.encode())
        ctypes.set_errno(errno.EINVAL)
        raise _fail("make the mounts private (this is a chroot below a shared mount)")
