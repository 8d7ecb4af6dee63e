# What the scripts share: help, refusing what they do not know, and building with progress. Sourced by a script, whose first comment
# is its help; the script goes on in the project's folder. Nothing here installs or builds before a script asks for it.
# shellcheck shell=bash

KVO_SCRIPT=$(realpath "$0")
# shellcheck disable=SC2034 # used by scripts
KVO_CALLER_FOLDER=$PWD # what a caller names by a relative path lies there
cd "$(dirname "${BASH_SOURCE[0]}")/.."
KVO_SCRIPT=${KVO_SCRIPT#"$PWD/"}

# The script's first comment, without what is meant for programs.
print_help() {
    awk 'NR == 1 { next } !/^#/ { exit } { sub(/^# ?/, ""); print }' "$KVO_SCRIPT"
}

# default_version PACKAGE: the version of the compiler that this Debian's package g++ or clang installs.
# Nothing where it is not known yet.
default_version() {
    local version
    version=$(dpkg-query -W -f '${Version}' "$1" 2>/dev/null) && [ -n "$version" ] ||
        version=$(LC_ALL=C apt-cache policy "$1" | sed -n 's/^  Candidate: //p')
    sed -E 's/^[0-9]+://; s/\..*//; s/\(none\)//' <<<"$version"
}

# help_if_asked WORD...: prints the help and ends where the first word asks for it.
help_if_asked() {
    case ${1-} in
    -h | --help) print_help; exit 0 ;;
    esac
}

# refuse SENTENCE...: ends with status 2, before anything was done.
refuse() {
    local command=$KVO_SCRIPT
    [[ $command == */* ]] || command=./$command # as it has to be typed
    echo "$KVO_SCRIPT: $*; \"$command -h\" explains" >&2
    exit 2
}

# refuse_unknown KIND "KNOWN..." WORD...: ends where a word is not among the known ones.
refuse_unknown() {
    local kind=$1 known=$2 word
    shift 2
    for word; do
        case " $known " in
        *" $word "*) ;;
        *) refuse "\"$word\" is not $kind${known:+ (known: $known)}" ;;
        esac
    done
}

# no_more_words WORD...: for scripts that take none.
no_more_words() {
    [ $# -eq 0 ] || refuse "takes no words besides -h, but got \"$1\""
}

# configure FOLDER CMAKE-ARGUMENT...: runs CMake unless the folder is configured with the same arguments. A change of a CMakeLists.txt
# is noticed by the build itself, one of the presets is not.
configure() {
    local folder=$1 stamp=$1/configured-with
    shift
    if [ -e "$folder/build.ninja" ] && [ "$(cat "$stamp" 2>/dev/null)" = "$*" ] && [ ! CMakePresets.json -nt "$stamp" ]; then
        return 0
    fi
    mkdir -p "$folder"
    rm -f "$stamp"
    cmake -B "$folder" "$@" >"$folder/configure.log" 2>&1 || {
        tail -n 60 "$folder/configure.log" >&2
        echo "$KVO_SCRIPT: CMake cannot configure $folder; the log: $folder/configure.log" >&2
        return 1
    }
    echo "$*" >"$stamp"
}

# show_progress MINUTES LOG: reads what Ninja writes. On a terminal its status stays one line; elsewhere each tenth gets one.
show_progress() {
    local line tenth=0 announced=
    while IFS= read -r line; do
        [[ $line =~ ^\[([1-9][0-9]*)/([0-9]+)\]\  ]] || continue # step 0 only looks at the folders
        local done=${BASH_REMATCH[1]} all=${BASH_REMATCH[2]}
        if [ -z "$announced" ]; then
            announced=1
            echo "$KVO_SCRIPT: building; all of it takes about $1 min on 2 cores; the log: $2" >&2
        fi
        if [ -t 2 ]; then
            printf '\r\033[K%.*s' $(($(tput cols 2>/dev/null || echo 80) - 1)) "$line" >&2
        elif [ $((done * 10 / all)) -gt $tenth ] && [ "$done" -lt "$all" ]; then
            tenth=$((done * 10 / all))
            echo "$KVO_SCRIPT: $((tenth * 10)) % built ($done of $all steps)" >&2
        fi
    done
    [ -z "$announced" ] || [ ! -t 2 ] || printf '\r\033[K' >&2
}

KVO_BUILDING=
# start_building LOG COMMAND...: builds beside what comes next, one build at a time. The command is one that ends what it started.
start_building() {
    KVO_BUILD_LOG=$1
    shift
    mkdir -p "$(dirname "$KVO_BUILD_LOG")"
    : >"$KVO_BUILD_LOG" # there already when await_build reads it
    "$@" >>"$KVO_BUILD_LOG" 2>&1 &
    KVO_BUILDING=$!
}

# await_build MINUTES: shows how the build that was started goes, and the end of its log where it fails.
await_build() {
    local failed=0
    tail -n +1 -s 0.2 --pid="$KVO_BUILDING" -f "$KVO_BUILD_LOG" 2>/dev/null | show_progress "$1" "$KVO_BUILD_LOG"
    wait "$KVO_BUILDING" || failed=1
    KVO_BUILDING=
    if [ $failed -eq 0 ]; then
        # Not taken from Ninja's count: newer versions count a look at the folders and do not report it.
        [ -t 2 ] || ! grep -q '^\[[1-9]' "$KVO_BUILD_LOG" || echo "$KVO_SCRIPT: 100 % built" >&2
        return 0
    fi
    tail -n 60 "$KVO_BUILD_LOG" >&2
    echo "$KVO_SCRIPT: not built; the whole log: $KVO_BUILD_LOG" >&2
    return 1
}

# run_ninja FOLDER [TARGET...]: in place of the shell that start_building runs it in, so that what ends the shell ends Ninja.
run_ninja() {
    local folder=$1
    shift
    exec env NINJA_STATUS='[%f/%t] ' nice ninja -C "$folder" "$@"
}

# build FOLDER MINUTES [TARGET...]: MINUTES is how long all of it takes on 2 cores.
build() {
    local folder=$1 minutes=$2
    shift 2
    start_building "$folder/build.log" run_ninja "$folder" "$@"
    await_build "$minutes"
}

# build_demo [TARGET...]: what demo.sh runs and "cmake --install build/demo" installs.
build_demo() {
    scripts/setup.sh manuals
    configure build/demo --preset release -DKVO_BUILD_TESTS=OFF -DKVO_BUILD_MANUALS=ON
    build build/demo 2 "$@"
}

# A build does not outlive its script: with its group, where it leads one.
end_build() { # PROCESS
    kill -- "-$1" 2>/dev/null || kill "$1" 2>/dev/null || true
}

end_building() {
    [ -z "$KVO_BUILDING" ] || end_build "$KVO_BUILDING"
}
trap end_building EXIT
