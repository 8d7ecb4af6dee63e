#!/usr/bin/env bash
# Usage: scripts/lint.sh [STEP...] [FOLDER...]
# Runs static analysis. The default folders are those of the library, the stand-ins (platform), the tools, the catalogue and the
# examples. Without a STEP, all steps run:
#   phrases   finds wording that is not plain English (scripts/phrases.txt); without a FOLDER, in the whole project
#   analyze   the compiler's own analyzer, except for tools, tests and the catalogue
#   check     cppcheck
#   tidy      clang-tidy, which takes longer than the other steps
# The reasons for suppressed findings are in .clang-tidy, in cmake/cppcheck-suppressions.txt, or in the code.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
steps=()
while [[ ${1-} =~ ^(phrases|analyze|check|tidy)$ ]]; do
    steps+=("$1")
    shift
done
[ ${#steps[@]} -gt 0 ] || steps=(phrases analyze check tidy)

named=("$@")
[ $# -gt 0 ] || set -- include runtime service codecs requests usbevents config agent platform catalogue tools examples
for folder; do
    [ -d "$folder" ] || refuse "\"$folder\" is neither a step (phrases, analyze, check, tidy) nor a folder here"
done
if [ "${steps[*]}" != phrases ]; then
    scripts/setup.sh lint
    configure build/lint --preset debug
fi

phrases() { scripts/phrases.py "${named[@]}"; }

tidy() {
    local folders="($(IFS='|'; echo "$*"))"
    run-clang-tidy -quiet -j "$(nproc)" -p build/lint "^$PWD/$folders/" 2>/dev/null | grep -v '^clang-tidy'
    return "${PIPESTATUS[0]}"
}

# cppcheck does not parse numbers with a unit of time, such as 10ms. So it checks a copy of the sources without such units.
check() {
    local copy=build/lint/cppcheck
    rm -rf "$copy"
    mkdir -p "$copy"
    cp -r include runtime service codecs requests usbevents config agent platform catalogue tools examples tests "$copy"
    find "$copy" -name '*.cpp' -o -name '*.h' -o -name '*.hpp' | xargs sed -i -E 's/\b([0-9]+)(us|ms|s|min)\b/std::chrono::seconds(\1)/g'
    (cd "$copy" && cppcheck -j "$(nproc)" --quiet --std=c++20 --std=c11 -I include -I . --error-exitcode=1 \
        --enable=warning,style,performance,portability --suppressions-list="$OLDPWD/cmake/cppcheck-suppressions.txt" \
        --template='{file}:{line}: {severity}: {message} [{id}]' "$@")
}

# Without tools, tests, the catalogue and the examples in C++: they may throw exceptions, which this analyzer does not follow. Two of its
# warnings are off, because the analyzer does not understand returned objects and the width of a bool in C++.
analyze() {
    local sources
    sources=$(find "$@" -name '*.c' -o -name '*.cpp' | grep -v '^tools\|^tests\|^catalogue\|^examples/.*\.cpp' || true)
    printf '%s\n' "$sources" | xargs -r -P "$(nproc)" -I SOURCE sh -c 'case SOURCE in
        *.c) gcc -std=c11 -fanalyzer -Wall -Wextra -Werror -I include -c SOURCE -o /dev/null ;;
        *) g++ -std=c++20 -fanalyzer -Wno-analyzer-use-of-uninitialized-value -Wno-analyzer-shift-count-overflow -Werror \
            -I include -I . -c SOURCE -o /dev/null ;;
        esac'
}

faults=0
for step in "${steps[@]}"; do
    echo "== $step ($SECONDS s so far)"
    "$step" "$@" || faults=$((faults + 1))
done
exit $((faults > 0))
