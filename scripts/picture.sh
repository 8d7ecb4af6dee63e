#!/usr/bin/env bash
# Usage: scripts/picture.sh
# Draws the picture of README (docs/images/demo.svg) from the current output of ./demo.sh and from the reports of the last run of
# ./test.sh, which must have passed. The test docs_picture fails if the picture is out of date.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
build_demo
python3 scripts/picture.py build/demo/bin
