#!/usr/bin/env bash
# Usage: scripts/bench.sh [--seconds N] [SUBJECT...]
# Builds and runs the benchmarks. They compare the library with a baseline, which is code that does the same work, and mark missed
# goals. Subjects: exchange, lists, reading, writing, usb, agent, plant, tap, recording, loading, cpp, requests. Without a subject,
# all of them run.
# --seconds is the length of the recording (default: 15); its memory is checked if it takes 120 s or more.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
subjects=("$@")
length=()
if [ "${1:-}" = --seconds ]; then
    [[ ${2:-} =~ ^[1-9][0-9]{0,4}$ ]] || refuse "--seconds needs a number from 1 to 86400, but got \"${2:-}\""
    length=("${@:1:2}")
    subjects=("${@:3}")
fi
refuse_unknown "a subject" "exchange lists reading writing usb agent plant tap recording loading cpp requests" "${subjects[@]}"

scripts/setup.sh
configure build/bench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKVO_SANITIZE= -DKVO_BUILD_BENCH=ON \
    -DKVO_BUILD_TESTS=OFF -DKVO_BUILD_KVOCTL=OFF -DKVO_BUILD_EXAMPLES=OFF
build build/bench 4 kvo_bench

echo
echo "machine:  $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) cores; Linux $(uname -r), $(uname -m)"
echo "compiler: $(g++ --version | head -n 1), RelWithDebInfo (-O2)"
exec build/bench/bin/kvo_bench "${length[@]}" "${subjects[@]}"
