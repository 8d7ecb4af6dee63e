#!/usr/bin/env bash
# Usage: ./demo.sh [COMMAND...]
# Installs what building needs, builds, starts the simulated hardware service for a whole plant, and shows the plant's stations as
# they come over the command socket through the library; with a COMMAND, runs that beside the service instead: "./demo.sh bash"
# gives a shell to look around in. "cmake --install build/demo --prefix ~/kvo" installs what was built.
set -euo pipefail
. "$(dirname "$0")/scripts/common.sh"
help_if_asked "$@"
case ${1-kvoctl} in
-*) refuse "\"$1\" is not an option; a COMMAND comes first, its options after it" ;;
kvoctl | kvosim | example_* | build/demo/*) ;; # the build brings these
*) command -v -- "$1" >/dev/null || refuse "\"$1\" is not a command here (besides kvoctl and kvosim: any of this machine's)" ;;
esac

build_demo
PATH="$PWD/build/demo/bin:$PATH"
[ $# -gt 0 ] || set -- kvoctl stations
shared=()
if ! kvosim run -- true 2>/dev/null; then
    echo "demo.sh: no private namespace here; the service uses /tmp/kvo_hws of the whole machine" >&2
    shared=(--shared)
fi
exec kvosim run "${shared[@]}" --plant examples/plant.toml -- "$@"
