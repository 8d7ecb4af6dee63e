#!/usr/bin/env bash
# Usage: scripts/fuzz.sh [MINUTES [FUZZER...]]     runs the fuzzers for MINUTES in total: 3 by default, fractions allowed
#        scripts/fuzz.sh minimise [FUZZER...]      adds the found inputs to the corpus, and reduces the corpus without losing coverage
# Builds the fuzzers, by default all of them. A fuzzer first runs with each input of its corpus. Then it searches for new inputs. The
# search starts from the corpus and from the inputs that earlier runs found (build/fuzz/found).
# Each fuzzer has a folder in fuzz/corpus. This folder contains inputs that people wrote; their names say what they show. The folder
# "found" in it contains inputs that a search found; their names are computed from their content.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"

task=run
minutes=${1-3}
shift $(($# > 0))
if [ "$minutes" = minimise ]; then
    task=minimise
elif ! [[ $minutes =~ ^([0-9]+|[0-9]*\.[0-9]+)$ ]]; then
    refuse "\"$minutes\" is not a number of minutes; write scripts/fuzz.sh 5, scripts/fuzz.sh 0.5 or scripts/fuzz.sh minimise"
fi
refuse_unknown "a fuzzer" "$(ls fuzz/corpus | xargs)" "$@"
[ $# -gt 0 ] || set -- $(ls fuzz/corpus)

scripts/setup.sh
configure build/fuzz --preset fuzz
build build/fuzz 2 "${@/#/fuzz_}"

# libFuzzer counts whole seconds and runs for one more.
seconds=$(awk -v minutes="$minutes" -v fuzzers=$# 'BEGIN { each = int(minutes * 60 / fuzzers) - 1; print each < 1 ? 1 : each }')
# Fuzzers write files for every input, and leave them there after a crash. So they use a folder in memory, which is removed at the end.
shared_memory=/dev/shm
[ -w $shared_memory ] || shared_memory=${TMPDIR:-/tmp}
TMPDIR=$(mktemp -d "$shared_memory/fuzz.XXXXXX")
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

count() { find "$1" -type f | wc -l; }                # FOLDER
bytes() { find "$1" -type f -exec cat {} + | wc -c; } # FOLDER

fault() { # FUZZER LOG INPUT
    grep -v '^#' "$2" | tail -n 40
    echo "$1: FAULT; reproduce it with: build/fuzz/bin/fuzz_$1 $3"
    return 1
}

run() { # FUZZER
    # Full paths, because a fuzzer may change its working directory.
    local program=build/fuzz/bin/fuzz_$1 corpus=$PWD/fuzz/corpus/$1 found=$PWD/build/fuzz/found/$1 log=build/fuzz/$1.log
    local inputs known
    mkdir -p "$found" "$found.faults"
    mapfile -d "" inputs < <(find "$corpus" -type f -print0 | sort -z)
    "$program" -artifact_prefix="$found.faults/" "${inputs[@]}" >"$log" 2>&1 ||
        { fault "$1" "$log" "$(sed -n 's/^Running: //p' "$log" | tail -n 1)"; return 1; }

    known=$(count "$found")
    "$program" -max_total_time="$seconds" -dict="fuzz/${1%%_*}.dict" -print_funcs=0 -artifact_prefix="$found.faults/" \
        "$found" "$corpus" >"$log" 2>&1 || { fault "$1" "$log" "$(ls -t "$found.faults"/* | head -n 1)"; return 1; }
    echo "$1: ${#inputs[@]} inputs replayed, $(($(count "$found") - known)) new in $(sed -n 's/^Done.* in \([0-9]*\) .*/\1/p' "$log") s"
}

# Reduces the found inputs without losing coverage. Coverage includes how often a line is reached; if the result is too large, only
# whether it is reached. The inputs that people wrote are kept.
minimise() { # FUZZER
    local corpus=$PWD/fuzz/corpus/$1 found=$PWD/build/fuzz/found/$1 smallest=$PWD/build/fuzz/smallest/$1
    local log=build/fuzz/$1.log before often
    mkdir -p "$found"
    before=$(($(count "$corpus") + $(count "$found")))
    for often in 1 0; do
        rm -rf "$smallest"
        mkdir -p "$smallest"
        find "$corpus" -maxdepth 1 -type f -exec cp -t "$smallest" {} +
        "build/fuzz/bin/fuzz_$1" -set_cover_merge=1 -use_counters=$often "$smallest" "$corpus" "$found" >"$log" 2>&1 ||
            { tail -n 40 "$log"; return 1; }
        [ "$(bytes "$smallest")" -gt 24576 ] || break
    done
    find "$corpus" -maxdepth 1 -type f -printf "$smallest/%f\0" | xargs -0 rm -f
    rm -rf "$corpus/found" "$found"
    mv "$smallest" "$corpus/found"
    echo "$1: $(count "$corpus") inputs of $before, $(bytes "$corpus") bytes"
}

faults=0
for fuzzer in "$@"; do
    "$task" "$fuzzer" || faults=$((faults + 1))
done
[ "$task" = run ] || echo "the corpus has $(bytes fuzz/corpus) bytes; it is meant to stay below 300000"
exit $((faults > 0))
