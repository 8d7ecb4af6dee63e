#!/bin/sh
# Builds the benchmarks and prints the library's time against the same work written by hand, with goals and verdicts.
# Usage: scripts/bench.sh [SUBJECT...]    (exchange, lists, reading, writing, usb, agent; all when none is named)
set -eu
cd "$(dirname "$0")/.."

scripts/setup.sh

cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKVO_SANITIZE= -DKVO_BUILD_BENCH=ON \
    -DKVO_BUILD_TESTS=OFF -DKVO_BUILD_TOOLS=OFF -DKVO_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build/bench -j2 --target kvo_bench

echo
echo "machine:  $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) cores; Linux $(uname -r), $(uname -m)"
echo "compiler: $(g++ --version | head -n 1), RelWithDebInfo (-O2)"
exec build/bench/bin/kvo_bench "$@"
