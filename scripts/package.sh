#!/usr/bin/env bash
# Usage: scripts/package.sh [--check] [--working-tree]
# Builds the Debian packages and a source package from the last commit into build/packages, and checks them with lintian.
#   --check         builds twice, in different folders, time zones and locales, and compares all files byte by byte
#   --working-tree  builds from the working tree, with uncommitted changes, instead of the last commit
set -euo pipefail
umask 022
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
refuse_unknown "an option" "--check --working-tree" "$@"
root=$PWD
out=$root/build/packages

check=
tree=
for option in "$@"; do
    case $option in
    --check) check=1 ;;
    --working-tree) tree=1 ;;
    esac
done
scripts/setup.sh package
# Use Debian's own compiler and Python, even if others are installed.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin

# All dates in the packages are the date of the last commit.
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH

export_source() { # DIRECTORY
    mkdir -p "$1"
    if [ -n "$tree" ]; then
        git ls-files -z --cached --others --exclude-standard | while IFS= read -rd '' file; do
            [ ! -e "$file" ] || printf '%s\0' "$file"
        done | tar -c --null -T - | tar -x -C "$1"
    else
        git archive HEAD | tar -x -C "$1"
    fi
    # debhelper expects the folder debian/ at the top.
    cp -r "$1/packaging/debian" "$1/debian"
    "$1/packaging/changelog.py" --date "$SOURCE_DATE_EPOCH" >"$1/debian/changelog"
    find "$1" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +
}

# The packages are written to the folder above the sources.
build_packages() { # DIRECTORY JOBS
    rm -rf "$1"
    mkdir -p "$1"
    cp -a "$out/source" "$1/kvo-hws"
    cd "$1/kvo-hws"
    # In a new process group, because dpkg-buildpackage does not end its child processes when it is killed.
    exec setsid nice dpkg-buildpackage --build=full --no-sign "-j$2"
}

mkdir -p "$out"
find "$out" -mindepth 1 -delete
export_source "$out/source"
work=$out/work
again=$out/again/a-second-time-at-another-place
mkdir -p "$(dirname "$again")"
if [ -z "$check" ]; then
    start_building "$out/work.log" build_packages "$work" "$(nproc)"
    await_build 2
else
    # Both builds run at the same time; the second has a longer path, another time zone and another locale.
    half=$((($(nproc) + 1) / 2))
    (TZ=Pacific/Kiritimati LC_ALL=C build_packages "$again" "$half") >"$again.log" 2>&1 &
    second=$!
    trap 'end_building; end_build "$second"' EXIT
    LC_ALL=C.UTF-8 start_building "$out/work.log" build_packages "$work" "$half"
    failed=
    await_build 6 || failed=1
    wait "$second" || { failed=1; tail -n 60 "$again.log" >&2; echo "package.sh: not built; the whole log: $again.log" >&2; }
    trap end_building EXIT
    [ -z "$failed" ] || exit 1
fi
lintian --fail-on error,warning --allow-root "$work"/*.changes
mv "$work"/*.* "$out"
rm -rf "$work" "$out/source"
echo "package.sh: built; lintian reports no problems:"
(cd "$out" && stat -c '%10s  %n' -- *.deb *.dsc *.tar.*)

[ -n "$check" ] || exit 0
different=0
compared=0
for file in "$out"/*.deb "$out"/*.dsc "$out"/*.tar.*; do
    compared=$((compared + 1))
    cmp "$file" "$again/$(basename "$file")" || different=$((different + 1))
done
echo "package.sh: $compared files compared with those of a second build, $different differ"
[ "$different" -eq 0 ] || exit 1
rm -rf "$out/again"
