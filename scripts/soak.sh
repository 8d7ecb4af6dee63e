#!/usr/bin/env bash
# Works the library hard for a time, beside a simulated service of its own that misbehaves, and tells whether it has held:
# requests of eight threads, storms of USB events, an agent whose remote side comes and goes, signals, faults.
# Usage: scripts/soak.sh [MINUTES] [OPTION...]    20 minutes unless told, fractions too; options: --seed N (the same random numbers
#                                           again), --json, and what "build/soak/bin/kvo_soak --help" tells
#        scripts/soak.sh prove                    shows that it finds what is wrong, in copies of the library with a fault each
# Exit status: 0 where all has held. KVO_SANITIZE=thread (or address,undefined) in the environment: with that sanitizer, in a
# folder of its own.
set -euo pipefail
cd "$(dirname "$0")/.."

minutes=20
case ${1:-} in
prove) shift; minutes=prove ;;
'' | -*) ;;
*)
    if ! [[ $1 =~ ^([0-9]+|[0-9]*\.[0-9]+)$ ]]; then
        echo "soak.sh: \"$1\" is no number of minutes; write scripts/soak.sh 5, scripts/soak.sh 0.5 or scripts/soak.sh prove" >&2
        exit 2
    fi
    minutes=$1
    shift
    ;;
esac

scripts/setup.sh
sanitize=${KVO_SANITIZE:-}
build=build/soak${sanitize:+-${sanitize%%,*}}
mkdir -p "$build"
build() { # TARGET...
    { cmake --preset release -B "$build" -DKVO_SANITIZE="$sanitize" &&
        nice cmake --build "$build" -j2 --target "$@"; } >"$build/build.log" 2>&1 || { tail -n 60 "$build/build.log"; exit 1; }
}

# What a thread keeps of freed memory for itself would count as held.
soak() { # LIBRARY_FOLDER OPTION...
    local library=$1
    shift
    "$build/bin/sandbox" --network "$build/bin/kvosim" run --plant examples/plant.toml --remote 3 -- \
        env LD_LIBRARY_PATH="$library" GLIBC_TUNABLES=glibc.malloc.tcache_count=0 "$build/bin/kvo_soak" "$@"
}

prove() { # FAULT COMPLAINT OPTION...
    local fault=$1 complaint=$2 told
    shift 2
    if told=$(soak "$build/faulty/$fault" "$@" 2>&1); then
        echo "$fault: NOT FOUND"
        return 1
    fi
    grep -m1 -- "$complaint" <<<"$told" | sed "s/^/$fault: found: /" || { echo "$told"; echo "$fault: found for another reason"; return 1; }
}

if [ "$minutes" != prove ]; then
    build kvo_soak kvosim sandbox
    soak "$build/lib" --seconds "$(awk -v minutes="$minutes" 'BEGIN { print minutes * 60 }')" "$@"
    exit
fi
build kvo_soak kvosim sandbox faulty_libraries
missed=0
prove leaked_descriptor "host: descriptors grew" --seconds 10 "$@" || missed=1
prove held_lock "has not returned for 8 s" --seconds 30 --patience 8 "$@" || missed=1
prove crash "ended by signal" --seconds 30 "$@" || missed=1
prove lost_memory "heap_bytes grew" --seconds 80 "$@" || missed=1
exit $missed
