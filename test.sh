#!/usr/bin/env bash
# Sets everything up and passes the tests: as shipped; all but kvoctl's under the address and undefined-behaviour sanitizers; what
# runs threads under the thread sanitizer; then the fuzzers, for a few seconds each. "./test.sh release" (or asan, tsan, fuzz)
# runs one of the four, "./test.sh m32" everything as 32-bit programs, "./test.sh armhf aarch64" the library's own tests as programs
# for both kinds of Arm, emulated. kvoctl's under the first sanitizers: cmake --preset asan -DKVO_BUILD_KVOCTL=ON, and so on.
set -euo pipefail
cd "$(dirname "$0")"
[ $# -gt 0 ] || set -- release asan tsan fuzz
scripts/setup.sh "$@"

target_of() { # PRESET
    case $1 in
    tsan) echo threaded_tests ;;
    fuzz) echo fuzzers ;;
    *) echo all ;;
    esac
}

# The tests mostly wait: what comes next is compiled meanwhile, after them in rank.
building=
start_build() { # PRESET
    mkdir -p "build/$1"
    { cmake --preset "$1" && nice cmake --build --preset "$1" --target "$(target_of "$1")"; } >"build/$1/build.log" 2>&1 &
    building=$!
}

run_tests() { # PRESET
    case $1 in
    fuzz) scripts/fuzz.sh 0.6 ;;
    tsan) ctest --preset tsan -j 8 --progress -L threads ;;
    *) ctest --preset "$1" -j 8 --progress ;;
    esac
}

start_build "$1"
trap '[ -z "$building" ] || kill "$building" 2>/dev/null || true' EXIT
while [ $# -gt 0 ]; do
    preset=$1
    shift
    echo "== $preset"
    wait "$building" || { building=; tail -n 60 "build/$preset/build.log"; exit 1; }
    building=
    [ $# -eq 0 ] || start_build "$1"
    run_tests "$preset"
done
