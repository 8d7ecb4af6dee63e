#!/usr/bin/env bash
# Usage: scripts/manuals.sh
# Builds the manuals in the build folder of demo.sh: the HTML reference in build/demo/manuals/html, and the manual pages in
# build/demo/manuals/man. "cmake --install build/demo" then installs the manuals with the programs.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
build_demo manuals
echo "the reference: $PWD/build/demo/manuals/html/index.html"
echo "a manual page: man -M $PWD/build/demo/manuals/man kvo_hws"
