#!/usr/bin/env bash
# Usage: scripts/manuals.sh
# Builds the manuals in demo.sh's build folder: build/demo/manuals/html/ is the reference, man/ the manual pages, which "cmake
# --install build/demo" installs beside everything else. The shells' completions need no building.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
build_demo manuals
echo "the reference: $PWD/build/demo/manuals/html/index.html"
echo "a manual page: man -M $PWD/build/demo/manuals/man kvo_hws"
