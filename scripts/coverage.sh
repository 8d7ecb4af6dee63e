#!/usr/bin/env bash
# Usage: scripts/coverage.sh
# Runs the tests with a library that counts executed lines. Prints a summary, and each line that no test runs with the reason
# (cmake/coverage-explained.txt). Fails if less than 97 % of the lines are run, or if a reason is missing or no longer needed.
# The full report is build/coverage/report/index.html, with not-run.txt beside it.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
scripts/setup.sh coverage

configure build/coverage --preset coverage
build build/coverage 3
find build/coverage -name '*.gcda' -delete
# Python's tests are left out: they do not run further lines of the library, and they run with the release build.
ctest --preset coverage -j 8 --progress -E '^python_'

rm -rf build/coverage/report
mkdir build/coverage/report
enough=0
gcovr --root . --object-directory build/coverage --filter '(runtime|service|codecs|requests|usbevents|config|agent)/' \
    --exclude-throw-branches --exclude-unreachable-branches --fail-under-line 97 \
    --txt build/coverage/report/summary.txt --json build/coverage/report/coverage.json \
    --html-details build/coverage/report/index.html --print-summary || enough=$?
sed '1,/^File/d' build/coverage/report/summary.txt
python3 cmake/coverage_explained.py . build/coverage/report/coverage.json | tee build/coverage/report/not-run.txt
exit $enough
