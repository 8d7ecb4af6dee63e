#!/usr/bin/env bash
# Usage: scripts/coverage.sh
# Runs the tests with a library that counts executed lines. Prints a summary and the lines that no test runs, each with the reason
# (cmake/coverage-explained.txt). Fails if the tests run less than 97 % of the lines, or if a reason is missing or no longer needed.
# The full report is build/coverage/report/index.html. The list of lines is in not-run.txt in the same folder.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
scripts/setup.sh coverage

configure build/coverage --preset coverage
build build/coverage 3
find build/coverage -name '*.gcda' -delete
# Without Python's tests: they need the release build, and do not run any other line of the library.
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
