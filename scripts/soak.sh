#!/usr/bin/env bash
# Usage: scripts/soak.sh [MINUTES] [OPTION...]    puts load on the library for MINUTES: 20 by default, fractions allowed
#        scripts/soak.sh prove [OPTION...]        checks that the test finds faults: runs it with faulty copies of the library
# Soak test: puts load on the library for a long time, and checks its results and its resource usage. The load consists of requests from
# eight threads and two event loops, many USB events, an agent whose remote side often disconnects, and signals. The simulated service is
# private and fails on purpose.
#   --seed N       uses the random numbers of an earlier run; each run prints its seed
#   --json         prints the figures as JSON, also those of each request
#   --warm-up S    seconds before the check of resource usage starts (by default a fifth of the time, at most 120)
#   --patience S   seconds after which a call counts as unanswered (30 by default)
#   --session N    the agent's session (3 by default)
# The exit status is 0 if the library passed. With the environment variable KVO_SANITIZE=thread (or address,undefined), the test runs
# under that sanitizer, in a separate build folder.
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

# Without the tunable, freed memory in the caches of threads would count as used.
soak() { # LIBRARY_FOLDER OPTION...
    local library=$1
    shift
    "$build/bin/sandbox" --network "$build/bin/kvosim" run --plant examples/plant.toml --remote 3 -- \
        env LD_LIBRARY_PATH="$library" GLIBC_TUNABLES=glibc.malloc.tcache_count=0 "$build/bin/kvo_soak" "$@"
}

prove() { # FAULT COMPLAINT OPTION...
    local fault=$1 complaint=$2 output
    shift 2
    if output=$(soak "$build/faulty/$fault" "$@" 2>&1); then
        echo "$fault: NOT FOUND"
        return 1
    fi
    grep -m1 -- "$complaint" <<<"$output" | sed "s/^/$fault: found: /" || { echo "$output"; echo "$fault: found for another reason"; return 1; }
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
