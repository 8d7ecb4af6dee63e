#!/usr/bin/env bash
# Sets everything up, starts the simulated hardware service for a whole plant, and shows the plant's stations as they come over
# the command socket through the library. "./demo.sh COMMAND..." runs another command beside that service.
set -euo pipefail
cd "$(dirname "$0")"
./setup.sh
cmake --preset release -DKVO_BUILD_TESTS=OFF -DKVO_BUILD_BENCH=OFF -B build/demo >/dev/null
cmake --build build/demo >build/demo/build.log 2>&1 || { tail -n 60 build/demo/build.log; exit 1; }
PATH="$PWD/build/demo/bin:$PATH"
[ $# -gt 0 ] || set -- kvoctl stations
exec kvosim run --plant examples/plant.toml -- "$@"
