#!/usr/bin/env bash
# Usage: scripts/build_matrix.sh [--all | BUILD...]
# Builds the project without presets, as users do. It builds a read-only copy of the last commit (without a git repository: of the
# working tree). Warnings are errors. The default builds are gcc:Release and clang:Release.
#   BUILD   COMPILER[-VERSION]:TYPE[:Make][:lto][:fortify], such as gcc:Release, clang-14:Debug:Make, gcc-14:None:lto. TYPE is None,
#           Debug, Release, MinSizeRel or RelWithDebInfo
#   --all   the builds that a release must pass: each compiler with all build types, Make, -flto and _FORTIFY_SOURCE=3. A build is left
#           out if its compiler is not installed and is not the default of this Debian
# The exit status is 0 if no build failed and no other build is missing. The last lines list the builds that were not made. The
# environment variable KVO_MATRIX_TARGETS contains the targets, "all" by default. The build folders are in build/matrix.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
out=$PWD/build/matrix

types=(None Debug Release MinSizeRel RelWithDebInfo)
all=
builds=()
for word; do
    case $word in
    --all) all=1 ;;
    -*) refuse "\"$word\" is not an option" ;;
    *)
        [[ $word =~ ^(gcc|clang)(-[0-9]+)?:(None|Debug|Release|MinSizeRel|RelWithDebInfo)(:Make)?(:lto)?(:fortify)?$ ]] ||
            refuse "\"$word\" is not a build; write COMPILER:TYPE, such as gcc:Release or clang-14:Debug:Make"
        builds+=("$word")
        ;;
    esac
done
[ -z "$all" ] || [ ${#builds[@]} -eq 0 ] || refuse "--all includes every build; leave \"${builds[0]}\" out"
[ ${#builds[@]} -gt 0 ] || [ -n "$all" ] || builds=(gcc:Release clang:Release)

scripts/setup.sh
own=("gcc-$(default_version g++)" "clang-$(default_version clang)")
if [ -n "$all" ]; then
    # The compilers of Debian 12 and 13.
    compilers=(gcc-12 gcc-14 clang-14 clang-19)
    for compiler in "${own[@]}"; do
        [[ " ${compilers[*]} " == *" $compiler "* ]] || compilers+=("$compiler")
    done
    for compiler in "${compilers[@]}"; do
        for type in "${types[@]}"; do
            builds+=("$compiler:$type")
        done
    done
    builds+=(gcc:Release:Make clang:None:Make gcc:Release:lto gcc:RelWithDebInfo:fortify)
fi

mkdir -p "$out"
# The copy gets an old date. A file that a build writes into the sources is newer.
rm -rf "$out/source"
mkdir "$out/source"
if [ -e .git ]; then
    git archive HEAD
else
    tar -c --exclude=./build --exclude=__pycache__ .
fi | tar -x -C "$out/source"
find "$out/source" -exec touch --no-dereference --date=@1000000000 {} +
chmod -R a-w "$out/source"
trap 'chmod -R u+w "$out/source"' EXIT

cxx_of() { # COMPILER
    case $1 in
    gcc*) echo "g++${1#gcc}" ;;
    clang*) echo "clang++${1#clang}" ;;
    esac
}

# None is the empty build type: CMake uses it if the user does not name a build type.
build() { # COMPILER TYPE WORDS FOLDER
    local generator=Ninja flags=()
    [[ $3 != *:Make* ]] || generator="Unix Makefiles"
    [[ $3 != *:lto* ]] || flags+=(-flto=auto)
    # Debian's compilers do not define it by default. Without optimization it causes a warning.
    [[ $3 != *:fortify* ]] || flags+=(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)
    local type=$2
    [ "$type" != None ] || type=
    CFLAGS="${flags[*]}" CXXFLAGS="${flags[*]}" cmake -S "$out/source" -B "$4" -G "$generator" -DCMAKE_BUILD_TYPE="$type" \
        -DCMAKE_C_COMPILER="$1" -DCMAKE_CXX_COMPILER="$(cxx_of "$1")" -DCMAKE_COMPILE_WARNING_AS_ERROR=ON &&
        nice cmake --build "$4" -j "$(nproc)" --target ${KVO_MATRIX_TARGETS:-all}
}

# Succeeds if the compiler may be missing: with --all, if it belongs to another Debian.
may_be_missing() { # COMPILER
    [ -n "$all" ] && [[ $1 == *-* && " ${own[*]} " != *" $1 "* ]]
}

failed=0
built=0
left_out=()
missing=()
for build in "${builds[@]}"; do
    IFS=: read -r compiler type words <<<"$build"
    if ! command -v "$compiler" >/dev/null || ! command -v "$(cxx_of "$compiler")" >/dev/null; then
        if may_be_missing "$compiler"; then left_out+=("$build"); else missing+=("$build"); fi
        continue
    fi
    folder=$out/${build//:/-}
    rm -rf "$folder"
    mkdir -p "$folder"
    begun=$SECONDS
    if build "$compiler" "$type" ":$words" "$folder" >"$folder/build.log" 2>&1 && ! grep -n 'warning:' "$folder/build.log"; then
        echo "build_matrix.sh: $build: built in $((SECONDS - begun)) s"
        built=$((built + 1))
    else
        grep -n -A 20 -m 3 'error\|warning\|Error' "$folder/build.log" || tail -n 40 "$folder/build.log"
        echo "build_matrix.sh: $build: FAILED; the whole log: $folder/build.log"
        failed=$((failed + 1))
        continue
    fi
    # Keep only the logs: a build takes half a gigabyte.
    find "$folder" -mindepth 1 ! -name build.log -delete
done

written=$(find "$out/source" -newermt @1000000001)
if [ -n "$written" ]; then
    printf 'build_matrix.sh: the builds wrote into their sources:\n%s\n' "$written"
    failed=$((failed + 1))
fi
[ ${#left_out[@]} -eq 0 ] || echo "build_matrix.sh: left out because their compilers belong to another Debian and are not installed: ${left_out[*]}"
[ ${#missing[@]} -eq 0 ] || echo "build_matrix.sh: NOT BUILT because their compilers are not installed: ${missing[*]}"
echo "build_matrix.sh: $built built, $failed failed, ${#missing[@]} not built, ${#left_out[@]} left out"
[ $((failed + ${#missing[@]})) -eq 0 ]
