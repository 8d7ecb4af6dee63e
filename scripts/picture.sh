#!/usr/bin/env bash
# Usage: scripts/picture.sh [PICTURE...]
# Draws the pictures of the documentation from the current output of the commands that they show:
#   demo    README's picture (docs/images/demo.svg), from ./demo.sh and from the reports of the last run of ./test.sh, which must have
#           passed
#   trace   the picture of docs/trace.md (docs/images/trace.svg)
# The test docs_picture fails if a picture is out of date.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
refuse_unknown "a picture" "demo trace" "$@"
build_demo
python3 scripts/picture.py build/demo/bin "$@"
