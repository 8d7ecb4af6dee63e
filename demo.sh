#!/usr/bin/env bash
# Usage: ./demo.sh [COMMAND...]
# Installs what building needs, builds, starts the simulated hardware service for a whole plant, and shows the plant's stations as
# they come over the command socket through the library; with a COMMAND, runs that beside the service instead: "./demo.sh bash"
# gives a shell to look around in. "cmake --install build/demo --prefix ~/kvo" installs what was built.
set -euo pipefail
. "$(dirname "$0")/scripts/common.sh"
help_if_asked "$@"
case ${1-} in
-*) refuse "\"$1\" is not an option; a COMMAND comes first, its options after it" ;;
'' | kvoctl | kvosim | example_* | build/demo/*) ;; # the build brings these
*) command -v -- "$1" >/dev/null || refuse "\"$1\" is not a command here (besides kvoctl and kvosim: any of this machine's)" ;;
esac

build_demo
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
