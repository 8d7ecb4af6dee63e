#!/usr/bin/env bash
# Usage: ./demo.sh [COMMAND...]
# Installs the packages for building, builds the project, starts a simulated hardware service for a whole plant, and runs COMMAND. The
# default COMMAND, "kvoctl stations", lists the stations of the plant. "./demo.sh bash" starts a shell, in which you can try other
# commands. "cmake --install build/demo --prefix ~/kvo" installs the build.
set -euo pipefail
. "$(dirname "$0")/scripts/common.sh"
help_if_asked "$@"
case ${1-kvoctl} in
-*) refuse "\"$1\" is not an option; put the COMMAND first and its options after it" ;;
kvoctl | kvosim | example_* | build/demo/*) ;; # built below
*) command -v -- "$1" >/dev/null || refuse "\"$1\" is not a command on this machine; use kvoctl, kvosim or an installed command" ;;
esac

build_demo
PATH="$PWD/build/demo/bin:$PATH"
[ $# -gt 0 ] || set -- kvoctl stations
shared=()
if ! kvosim run -- true 2>/dev/null; then
    echo "demo.sh: cannot create a private namespace; the service uses the machine's /tmp/kvo_hws" >&2
    shared=(--shared)
fi
exec kvosim run "${shared[@]}" --plant examples/plant.toml -- "$@"
