#!/usr/bin/env bash
# Sets everything up, starts the simulated hardware service for a whole plant, and shows the plant's stations as they come over
# the command socket through the library. "./demo.sh COMMAND..." runs another command beside that service.
set -euo pipefail
cd "$(dirname "$0")"
scripts/setup.sh build
cmake --preset release -DKVO_BUILD_TESTS=OFF -B build/demo >/dev/null
cmake --build build/demo >build/demo/build.log 2>&1 || { tail -n 60 build/demo/build.log; exit 1; }
PATH="$PWD/build/demo/bin:$PATH"
[ $# -gt 0 ] || set -- kvoctl stations
if kvosim run -- true 2>/dev/null; then
    exec kvosim run --plant examples/plant.toml -- "$@"
fi

# This machine grants no private place for the service's sockets: it gets the machine's own for as long as the command runs.
echo "demo.sh: no private namespace here; the service uses /tmp/kvo_hws of the whole machine" >&2
coproc simulator { exec kvosim serve --plant examples/plant.toml; }
service=$simulator_PID
trap 'kill "$service" 2>/dev/null && wait "$service" || true' EXIT
read -r _ <&"${simulator[0]}" || { echo "demo.sh: the service did not start" >&2; exit 1; }
"$@"
