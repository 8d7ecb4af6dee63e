#!/usr/bin/env bash
# Usage: scripts/debian13.sh
# Runs "./test.sh release" of the last commit on a bare Debian 13, which it makes. Needs root, debootstrap, and Debian's mirror; takes
# as long as a first build and all tests do. What is downloaded is kept in build/debian13, and so is the log.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
. scripts/bare_root.sh
suite=trixie
work=$PWD/build/debian13

reason=$(why_no_root)
[ -z "$reason" ] || { echo "debian13.sh: $reason" >&2; exit 1; }
[ -z "$(git status --porcelain)" ] || echo "debian13.sh: what is not committed is not tested" >&2
trap remove_root EXIT
trap 'exit 130' INT TERM HUP

make_root
source=/root/kvo_hws
mkdir -p "$root$source"
git archive HEAD | tar -x -C "$root$source"
echo "debian13.sh: tests $(git log -1 --format='%h (%s)') on a bare Debian 13"
in_root "$source/test.sh" release 2>&1 | tee "$work/test.log"
