#!/usr/bin/env bash
# Builds the Debian packages, and a source package, out of the last commit into build/packages, and has lintian look at them.
# Usage: scripts/package.sh [--check] [--working-tree]
#   --check         builds twice, in folders, time zones and locales that differ, and compares all files byte by byte
#   --working-tree  packages the files as they lie here instead, committed or not
set -euo pipefail
umask 022
cd "$(dirname "$0")/.."
root=$PWD
out=$root/build/packages

check=
tree=
for option in "$@"; do
    case $option in
    --check) check=1 ;;
    --working-tree) tree=1 ;;
    *) sed -n '2,5s/^# //p' "$0" >&2; exit 2 ;;
    esac
done
scripts/setup.sh package
# Debian's own compiler and Python, whatever else is installed here.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin

# Every date in the packages is the last commit's.
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
    # debhelper wants it at the top, where nobody else has a use for it.
    cp -r "$1/packaging/debian" "$1/debian"
    "$1/packaging/changelog.py" --date "$SOURCE_DATE_EPOCH" >"$1/debian/changelog"
    find "$1" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +
}

# What has been built lies in the folder above the source.
build() { # DIRECTORY JOBS
    rm -rf "$1"
    mkdir -p "$1"
    cp -a "$out/source" "$1/kvo-hws"
    (cd "$1/kvo-hws" && nice dpkg-buildpackage --build=full --no-sign "-j$2") >"$1.log" 2>&1 ||
        { tail -n 60 "$1.log" >&2; echo "package.sh: not built; the whole log: $1.log" >&2; return 1; }
}

mkdir -p "$out"
find "$out" -mindepth 1 -delete
export_source "$out/source"
work=$out/work
again=$out/again/a-second-time-at-another-place
mkdir -p "$(dirname "$again")"
if [ -z "$check" ]; then
    build "$work" "$(nproc)"
else
    # Beside one another; the second in a folder whose path is longer, at the other end of the world, and in another locale.
    half=$((($(nproc) + 1) / 2))
    LC_ALL=C.UTF-8 build "$work" "$half" &
    first=$!
    TZ=Pacific/Kiritimati LC_ALL=C build "$again" "$half" &
    second=$!
    failed=
    wait "$first" || failed=1
    wait "$second" || failed=1
    [ -z "$failed" ] || exit 1
fi
lintian --fail-on error,warning --allow-root "$work"/*.changes
mv "$work"/*.* "$out"
rm -rf "$work" "$out/source"
echo "package.sh: built, and nothing to tell for lintian:"
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
