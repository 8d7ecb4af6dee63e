#!/usr/bin/env bash
# Builds the fuzzers and lets each run for a while, from its corpus and from what earlier runs came upon (build/fuzz/found).
# Usage: ./fuzz.sh [SECONDS [FUZZER...]]    (10 seconds each; all when none is named)
set -euo pipefail
cd "$(dirname "$0")"
./setup.sh

seconds=${1:-10}
shift $(($# > 0))
[ $# -gt 0 ] || set -- $(ls fuzz/corpus)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${@/#/fuzz_}" >build/fuzz/build.log 2>&1 || { tail -n 60 build/fuzz/build.log; exit 1; }

run() { # FUZZER
    # Found and kept by their full names: a fuzzer may work in a folder of its own.
    local program=build/fuzz/bin/fuzz_$1 found=$PWD/build/fuzz/found/$1 log=build/fuzz/$1.log
    mkdir -p "$found" "$found.faults"
    if ! "$program" -max_total_time="$seconds" -dict="fuzz/${1%%_*}.dict" -artifact_prefix="$found.faults/" \
        "$found" "$PWD/fuzz/corpus/$1" >"$log" 2>&1; then
        grep -v '^#' "$log" | tail -n 40
        echo "$1: FAULT; again with: $program $(ls -t "$found.faults"/* | head -n 1)"
        return 1
    fi
    echo "$1: $(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1 inputs in \2 s/p' "$log"), no fault"
}

faults=0
for fuzzer in "$@"; do
    run "$fuzzer" || faults=$((faults + 1))
done
exit $((faults > 0))
