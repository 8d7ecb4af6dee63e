#!/usr/bin/env bash
# Usage: scripts/faults.sh [COUNT] [OPTION...] [PATH...]     100 faults in the library's folders by default
# Finds faults that the tests miss (mutation testing). Plants faults of one line, one at a time, in a copy of the working tree, runs
# the nearest tests first, and lists the faults that survive all tests. PATH is a file or folder to plant in, such as service or
# tools/kvosim. Kinds of faults:
#   relation    a comparison off by one, or reversed           return   another value returned
#   constant    a number off by one, true for false            text     one character of a text changed
#   statement   a call, assignment or count left out           lock     a guard left out
#   --seed=N       seed of the random choice, 1 by default; the same seed plants the same faults in the same sources
#   --list         prints the faults without planting them; some of them may not compile
#   --only=NAME    this fault instead of COUNT random ones; repeatable. FILE:LINE for all faults of a line, FILE:LINE:KIND, or
#                  "survivors" for those of the last run
#   -jN            tests at a time; 12 for each processor by default, because tests mostly wait
# A fault that does not compile is replaced by the next one. A fault that does not change the optimized object code counts as
# equivalent. Tests that do not judge the code's behaviour (packages, manuals, scripts) and long tests (endurance, soak) are left
# out. A surviving fault means that a test is missing, that the code is not needed, or that no caller can see the difference:
# a person has to judge. The sanitizers, which find missing locks more often, are not used here.
# The report is also in build/faults/report.txt. Exit status: 0 if all faults were planted, whatever survived; 1 if the copy cannot
# be built or if tests fail without a fault.
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
        [[ $jobs =~ ^[1-9][0-9]*$ ]] || refuse "\"$word\" is not a number of tests at a time; write -j8"
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
[ ${#paths[@]} -gt 0 ] || paths=(runtime service codecs requests usbevents config agent)
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
# Options for quick builds: a change of the library links the library alone, and a test program is not run to list its cases,
# because a fault may make it do anything.
configure $out/build -S $out/source --preset debug -DCMAKE_C_FLAGS_DEBUG="-O0 -g0" -DCMAKE_CXX_FLAGS_DEBUG="-O0 -g0" \
    -DCMAKE_DISABLE_PRECOMPILE_HEADERS=OFF -DCMAKE_UNITY_BUILD=OFF -DKVO_BUILD_MANUALS=OFF -DCMAKE_LINK_DEPENDS_NO_SHARED=ON \
    -DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST
build $out/build 6
exec python3 scripts/plant_faults.py run $out "${words[@]}"
