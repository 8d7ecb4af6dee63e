#!/usr/bin/env bash
# Sets everything up and passes the tests: as shipped, under the address and undefined-behaviour sanitizers, and, for what runs
# threads, under the thread sanitizer; then the fuzzers, for a few seconds each. "./test.sh release" (or asan, tsan, fuzz) runs one
# of the four.
set -euo pipefail
cd "$(dirname "$0")"
./setup.sh

build_and_test() { # PRESET TARGET CTEST-ARGUMENT...
    local preset=$1 target=$2
    shift 2
    echo "== $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" --target "$target" >"build/$preset/build.log" 2>&1 ||
        { tail -n 60 "build/$preset/build.log"; return 1; }
    ctest --preset "$preset" -j 8 --progress "$@"
}

[ $# -gt 0 ] || set -- release asan tsan fuzz
for preset in "$@"; do
    case $preset in
    fuzz) echo "== fuzz" && ./fuzz.sh 3 ;;
    tsan) build_and_test tsan threaded_tests -L threads ;;
    *) build_and_test "$preset" all ;;
    esac
done
