#!/usr/bin/env bash
# Usage: ./test.sh [--require-all] [PRESET...]
# Installs missing packages, builds, and runs the tests of each PRESET. At the end it lists the skipped tests with their reasons, and
# the failed tests with the end of their output. Without a PRESET, these run:
#   release   all tests, with the build that is released
#   asan      all tests except those of kvoctl, with the address and undefined-behaviour sanitizers
#             (for the tests of kvoctl: cmake --preset asan -DKVO_BUILD_KVOCTL=ON)
#   tsan      the tests with several threads, with the thread sanitizer
#   fuzz      the fuzzers, for a few seconds each
# Other presets: loops (the panel programs of examples/, with each event loop), debug, coverage, m32 (all tests as 32-bit programs), armhf
# and aarch64 (the library's own tests for Arm, in an emulator).
#   --require-all   fail if a test is skipped because a tool or package is missing
set -euo pipefail
. "$(dirname "$0")/scripts/common.sh"
help_if_asked "$@"
known="$(sed -n 's/.*"name": "\([^"]*\)".*"configurePreset".*/\1/p' CMakePresets.json | sort -u | xargs)"
require_all=()
presets=()
for word; do
    if [ "$word" = --require-all ]; then
        require_all=(--require-all)
    else
        refuse_unknown "a preset" "$known --require-all" "$word"
        presets+=("$word")
    fi
done
[ ${#presets[@]} -gt 0 ] || presets=(release asan tsan fuzz)
scripts/setup.sh "${presets[@]}"

target_of() { # PRESET
    case $1 in
    tsan) echo threaded_tests ;;
    loops) echo loop_tests ;;
    fuzz) echo fuzzers ;;
    *) echo all ;;
    esac
}

configure_and_build() { # PRESET
    configure "build/$1" --preset "$1" && run_ninja "build/$1" "$(target_of "$1")"
}

minutes_of() { # PRESET
    case $1 in
    fuzz | tsan | loops) echo 2 ;;
    *) echo 4 ;;
    esac
}

# Tests mostly wait. So the next preset is built at the same time, with lower priority.
start_build() { # PRESET
    start_building "build/$1/build.log" configure_and_build "$1"
}

run_tests() { # PRESET
    if [ "$1" = fuzz ]; then
        scripts/fuzz.sh 0.6
        return
    fi
    reports+=("build/$1/tests.xml")
    rm -f "build/$1/tests.xml"
    ctest --preset "$1" -j 8 --progress --output-junit "tests.xml" --test-output-size-passed 100000 \
        $([ "$1" != tsan ] || echo "-L threads")
}

reports=()
failed=0
start_build "${presets[0]}"
while [ ${#presets[@]} -gt 0 ] && [ $failed -eq 0 ]; do
    preset=${presets[0]}
    presets=("${presets[@]:1}")
    echo "== $preset"
    await_build "$(minutes_of "$preset")" || { failed=1; break; }
    [ ${#presets[@]} -eq 0 ] || start_build "${presets[0]}"
    run_tests "$preset" || failed=1
done
[ ${#reports[@]} -eq 0 ] || scripts/test_report.py "${require_all[@]}" "${reports[@]}" || failed=1
exit $failed
