#!/usr/bin/env bash
# Usage: scripts/manuals.sh
# Builds the manuals in demo.sh's build folder: the reference in build/demo/manuals/html/ and the manual pages in man/.
# "cmake --install build/demo" then installs them with everything else. Shell completions do not have to be built.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
no_more_words "$@"
build_demo manuals
echo "the reference: $PWD/build/demo/manuals/html/index.html"
echo "a manual page: man -M $PWD/build/demo/manuals/man kvo_hws"
