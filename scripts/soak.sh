#!/usr/bin/env bash
# Usage: scripts/soak.sh [MINUTES] [OPTION...]    20 minutes by default, fractions allowed
#        scripts/soak.sh prove [OPTION...]        runs against copies of the library with one fault each, which it must find
# Puts the library under load for a time, with a private simulated service that misbehaves, and reports whether it passed. The load is
# requests from eight threads, storms of USB events, an agent whose remote side comes and goes, signals, and faults.
#   --seed N       repeats the random numbers of an earlier run (each run prints its seed)
#   --json         prints the figures as JSON, with those of each request
#   --warm-up S    seconds before resource usage is judged (a fifth of the time by default, at most 120)
#   --patience S   seconds after which a call counts as unanswered (30 by default)
#   --session N    the agent's session (3 by default)
# Exit status: 0 if it passed. With KVO_SANITIZE=thread (or address,undefined) in the environment it runs under that sanitizer, in a
# build folder of its own.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"

minutes=20
if [ $# -gt 0 ] && [[ $1 != -* ]]; then
    [[ $1 =~ ^(prove|[0-9]+|[0-9]*\.[0-9]+)$ ]] ||
        refuse "\"$1\" is not a number of minutes; write scripts/soak.sh 5, scripts/soak.sh 0.5 or scripts/soak.sh prove"
    minutes=$1
    shift
fi
words=("$@")
while [ ${#words[@]} -gt 0 ]; do
    case ${words[0]} in
    --json) words=("${words[@]:1}") ;;
    --seed | --warm-up | --patience | --session)
        [[ ${words[1]-} =~ ^[0-9]+(\.[0-9]+)?$ ]] || refuse "${words[0]} needs a number"
        words=("${words[@]:2}")
        ;;
    *) refuse "\"${words[0]}\" is not an option (known: --seed --json --warm-up --patience --session)" ;;
    esac
done

scripts/setup.sh
sanitize=${KVO_SANITIZE:-}
build=build/soak${sanitize:+-${sanitize%%,*}}
configure "$build" --preset release -DKVO_SANITIZE="$sanitize"

# Without this, freed memory that threads cache would count as used.
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
    build "$build" 2 kvo_soak kvosim sandbox
    soak "$build/lib" --seconds "$(awk -v minutes="$minutes" 'BEGIN { print minutes * 60 }')" "$@"
    exit
fi
build "$build" 2 kvo_soak kvosim sandbox faulty_libraries
missed=0
prove leaked_descriptor "host: descriptors grew" --seconds 10 "$@" || missed=1
prove held_lock "has not returned for 8 s" --seconds 30 --patience 8 "$@" || missed=1
prove crash "ended by signal" --seconds 30 "$@" || missed=1
prove lost_memory "heap_bytes grew" --seconds 80 "$@" || missed=1
exit $missed
