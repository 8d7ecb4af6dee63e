#!/usr/bin/env bash
# Builds the manuals into build/manuals/manuals: html/ is the reference, man/ the manual pages. "cmake --install build/manuals"
# installs the pages beside everything else; the shells' completions need no building.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh manuals
mkdir -p build/manuals
cmake --preset release -DKVO_BUILD_TESTS=OFF -DKVO_BUILD_EXAMPLES=OFF -DKVO_BUILD_MANUALS=ON -B build/manuals >/dev/null
cmake --build build/manuals >build/manuals/build.log 2>&1 || { tail -n 60 build/manuals/build.log; exit 1; }
echo "the reference: $PWD/build/manuals/manuals/html/index.html"
echo "a manual page: man -M $PWD/build/manuals/manuals/man kvo_hws"
