#!/usr/bin/env bash
# Usage: scripts/faults.sh [COUNT] [OPTION...] [PATH...]     100 faults in the library and its C++ headers by default
# Finds faults that the tests do not detect (mutation testing). The script changes one line in a copy of the working tree, builds the
# copy, and runs the tests, those of the changed module first. It repeats this COUNT times with different lines. A fault survives if
# no test fails. At the end, the script lists the faults that survived. PATH is a file or folder for the faults, such as service or
# tools/kvosim. Kinds of faults:
#   relation    a comparison is off by one or reversed         return   another value is returned
#   constant    a number is off by one, or true becomes false  text     one character of a text is changed
#   statement   a call, assignment or count is missing         lock     a guard is missing
# Options:
#   --seed=N       seed of the random choice, 1 by default. The same seed and the same sources give the same faults
#   --list         prints the faults without trying them. Some of them may not compile
#   --only=NAME    tries this fault instead of COUNT random faults; can be repeated. NAME is FILE:LINE:KIND, FILE:LINE for all faults of
#                  a line, or "survivors" for the faults that survived in the last run
#   -jN            number of tests that run at the same time, by default 12 for each processor, because tests mostly wait
# If a fault does not compile, the script takes the next one. If a fault does not change the optimized object code, it counts as
# equivalent. The script leaves out tests that do not check the behaviour of the code (packages, manuals, scripts), long tests
# (endurance, soak), and the sanitizers, which find missing locks more often.
# A fault survives for one of three reasons: a test is missing, the code is not needed, or no caller can see the difference. You have to
# decide which one it is.
# The report is also in build/faults/report.txt. The exit status is 0 if all faults were tried, even if some survived. It is 1 if the
# copy cannot be built, or if tests fail without a fault.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"

count=
seed=1
jobs=$((12 * $(nproc)))
task=run
only=()
paths=()
for word; do
    case $word in
    --list) task=list ;;
    --seed=*)
        seed=${word#*=}
        [[ $seed =~ ^[0-9]+$ ]] || refuse "\"$word\": a seed is a number, such as --seed=2"
        ;;
    --only=*)
        [[ $word =~ ^--only=(survivors|[^:]+:[0-9]+(:[a-z]+(\.[0-9]+)?)?)$ ]] ||
            refuse "\"$word\" does not name a fault; write --only=service/readers.cpp:56 or --only=survivors"
        only+=("only=${word#*=}")
        ;;
    -j*)
        jobs=${word#-j}
        [[ $jobs =~ ^[1-9][0-9]*$ ]] || refuse "\"$word\" does not name a number of tests; write -j8"
        ;;
    -*) refuse "\"$word\" is not an option (known: --seed=N --list --only=NAME -jN)" ;;
    *)
        if [[ -z $count && $word =~ ^[1-9][0-9]*$ ]]; then
            count=$word
        elif [ -n "$word" ] && [[ $word != /* && $word != *..* ]] && [ -e "$word" ]; then
            paths+=("$word")
        else
            refuse "\"$word\" is neither a number of faults nor a file or folder of the project"
        fi
        ;;
    esac
done
[ ${#only[@]} -eq 0 ] || [ -z "$count" ] || refuse "--only names the faults; leave \"$count\" out"
[ ${#paths[@]} -gt 0 ] || paths=(runtime service codecs requests usbevents config agent include/kvo_hws/*.hpp include/kvo_hws/detail)
words=("$jobs" "${count:-100}" "$seed" "${only[@]}" "${paths[@]}")

out=build/faults
if [ "$task" = list ]; then
    scripts/setup.sh build
    exec python3 scripts/plant_faults.py list $out "${words[@]}"
fi
scripts/setup.sh
mkdir -p $out
exec 9>$out/lock
flock -n 9 || { echo "scripts/faults.sh: another run is using $out" >&2; exit 1; }
python3 scripts/plant_faults.py copy $out
# Options for quick builds. After a change of the library, only the library is linked. The build does not run test programs to list
# their cases, because a program with a fault may do anything.
configure $out/build -S $out/source --preset debug -DCMAKE_C_FLAGS_DEBUG="-O0 -g0" -DCMAKE_CXX_FLAGS_DEBUG="-O0 -g0" \
    -DCMAKE_DISABLE_PRECOMPILE_HEADERS=OFF -DCMAKE_UNITY_BUILD=OFF -DKVO_BUILD_MANUALS=OFF -DCMAKE_LINK_DEPENDS_NO_SHARED=ON \
    -DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST
build $out/build 6
exec python3 scripts/plant_faults.py run $out "${words[@]}"
