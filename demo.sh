#!/usr/bin/env bash
# Usage: ./demo.sh [COMMAND...]
# Installs the packages that building needs, builds, starts the simulated hardware service for a whole plant, and lists the plant's
# stations, which it reads through the library. With a COMMAND it runs that command beside the service instead: "./demo.sh bash"
# starts a shell in which you can try things. "cmake --install build/demo --prefix ~/kvo" installs the build.
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
    echo "demo.sh: cannot make a private namespace; the service uses the machine's /tmp/kvo_hws" >&2
    shared=(--shared)
fi
exec kvosim run "${shared[@]}" --plant examples/plant.toml -- "$@"
