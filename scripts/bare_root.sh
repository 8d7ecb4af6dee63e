# Creates a minimal Debian in a directory (a root) and runs commands in it. A script that runs as root sources this file. The script
# must set these variables:
#   suite  Debian's name for the release, such as bookworm
#   work   a directory for downloads, which is kept between runs
# Then it calls make_root for each new root. remove_root removes the root; the script calls it when it ends.
# shellcheck shell=bash
# shellcheck disable=SC2154 # set by the script

mirror=http://deb.debian.org/debian
root=
bare_root_place=

# Prints why this machine cannot create a root; prints nothing if it can.
why_no_root() {
    if [ "$(id -u)" -ne 0 ]; then
        echo "must run as root, to create a minimal Debian and to run commands in it"
    elif ! command -v debootstrap >/dev/null; then
        echo "no debootstrap (scripts/setup.sh package installs it)"
    elif ! unshare --mount --pid --fork true 2>/dev/null; then
        echo "this machine does not permit private mounts (unshare)"
    fi
}

remove_root() {
    [ -z "$bare_root_place" ] || rm -rf --one-file-system "$bare_root_place"
}

make_bare_tar() {
    rm -rf "$work/root.new"
    debootstrap --variant=minbase "$suite" "$work/root.new" "$mirror" >"$work/debootstrap.log" 2>&1 || {
        tail -n 20 "$work/debootstrap.log" >&2
        echo "debootstrap cannot create a minimal $suite; the log: $work/debootstrap.log" >&2
        return 1
    }
    tar -C "$work/root.new" --numeric-owner -cf "$work/$suite.tar.new" .
    mv "$work/$suite.tar.new" "$work/$suite.tar"
    rm -rf "$work/root.new"
}

# Creates a new root and sets $root to its directory. The root gets this machine's package sources if they are for the same release.
make_root() {
    mkdir -p "$work/archives/partial"
    [ -s "$work/$suite.tar" ] || make_bare_tar
    [ -n "$bare_root_place" ] || bare_root_place=$(mktemp -d /var/tmp/kvo-bare-root.XXXXXX)
    root=$bare_root_place/root
    rm -rf --one-file-system "$root"
    mkdir "$root"
    tar -C "$root" --numeric-owner -xpf "$work/$suite.tar"
    local source sources=()
    for source in /etc/apt/sources.list /etc/apt/sources.list.d/debian.sources; do
        ! grep -qw "$suite" "$source" 2>/dev/null || sources+=("$source")
    done
    if [ ${#sources[@]} -gt 0 ]; then
        rm -f "$root/etc/apt/sources.list"
        cp -t "$root" --parents "${sources[@]}"
    fi
    cp -L /etc/resolv.conf "$root/etc/resolv.conf"
    in_root apt-get -qq update
}

# in_root COMMAND...: runs the command in the root, with separate mount and process namespaces. When the command ends in any way, its
# mounts are removed and its processes are killed.
in_root() {
    # shellcheck disable=SC2016 # the shell in the root expands the variables
    unshare --mount --pid --fork --kill-child --propagation private bash -euc '
        root=$1 archives=$2; shift 2
        mount --bind "$root" "$root"
        mount -t proc proc "$root/proc"
        mount -t sysfs -o ro sysfs "$root/sys"
        mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
        mount --bind "$root/dev/pts/ptmx" "$root/dev/ptmx"
        mount -t tmpfs tmpfs "$root/tmp"
        mount --bind "$archives" "$root/var/cache/apt/archives"
        cd "$root"
        pivot_root . mnt
        umount -l mnt
        exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
    ' in_root "$root" "$work/archives" "$@"
}
