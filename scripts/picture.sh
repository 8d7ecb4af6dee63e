#!/usr/bin/env bash
# Usage: scripts/picture.sh
# Draws README's picture, docs/images/demo.svg, from what the commands of ./demo.sh print today. The CTest test docs_picture fails
# when the picture is out of date.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
build_demo
python3 scripts/picture.py build/demo/bin
