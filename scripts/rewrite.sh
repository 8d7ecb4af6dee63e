#!/usr/bin/env bash
# Usage: scripts/rewrite.sh
# Regenerates files from the sources: the description of the binary interface, the package's list of symbols, the list of log texts,
# and the tables of docs/. For each of these files, a test compares it with the sources. This script builds the release preset and
# runs these tests in a mode in which they write the files. Then it shows the changes. Review them before you commit.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
[ $# -eq 0 ] || refuse "\"$1\" is not expected; scripts/rewrite.sh takes no arguments"

scripts/setup.sh
configure build/release --preset release
build build/release 4 all
export KVO_WRITE_ABI=1 KVO_WRITE_GOLDEN=1 KVO_WRITE_SYMBOLS=1 KVO_WRITE_TABLES=1
failed=0
# One test at a time: on a busy machine, the list would also contain log texts of timeouts.
ctest --preset release -j 1 -R '^(binary_interface|packages_lists|docs_tables|LogTexts\.)' || failed=1
git --no-pager diff --stat -- library/abi packaging/debian tests/library/log_texts docs
exit $failed
