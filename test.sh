#!/usr/bin/env bash
# Sets everything up and passes the tests: as shipped, under the address and undefined-behaviour sanitizers, and, for what runs
# threads, under the thread sanitizer. "./test.sh release" (or asan, tsan) runs one of the three.
set -euo pipefail
cd "$(dirname "$0")"
./setup.sh

run() {
    local preset=$1
    shift
    echo "== $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -- -d stats >"build/$preset/build.log" 2>&1 || { tail -n 60 "build/$preset/build.log"; return 1; }
    ctest --preset "$preset" -j 8 --progress "$@"
}

for preset in "${@:-release asan tsan}"; do
    for one in $preset; do
        case $one in
        tsan) run tsan -L threads ;;
        *) run "$one" ;;
        esac
    done
done
