#!/usr/bin/env bash
# Usage: scripts/debian13.sh
# Tests the last commit on a minimal Debian 13, which the script creates. It runs "./test.sh release" there, and builds without presets
# with gcc and clang (scripts/build_matrix.sh). The script needs root, debootstrap and Debian's mirror. It takes as long as three full
# builds and all tests. Downloads and logs are kept in build/debian13.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
. scripts/bare_root.sh
suite=trixie
work=$PWD/build/debian13

reason=$(why_no_root)
[ -z "$reason" ] || { echo "debian13.sh: $reason" >&2; exit 1; }
[ -z "$(git status --porcelain)" ] || echo "debian13.sh: uncommitted changes are not tested" >&2
trap remove_root EXIT
trap 'exit 130' INT TERM HUP

make_root
source=/root/kvo_hws
mkdir -p "$root$source"
git archive HEAD | tar -x -C "$root$source"
echo "debian13.sh: testing $(git log -1 --format='%h (%s)') on a minimal Debian 13"
failed=0
in_root "$source/test.sh" release 2>&1 | tee "$work/test.log" || failed=1
in_root "$source/scripts/build_matrix.sh" gcc:Release clang:Release 2>&1 | tee "$work/builds.log" || failed=1
exit $failed
