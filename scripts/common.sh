# Functions that the scripts share: help, errors for unknown arguments, and builds with progress. A script sources this file first.
# This changes the working directory to the project's folder, and does not install or build anything. The first comment of the
# script is its help.
# shellcheck shell=bash

KVO_SCRIPT=$(realpath "$0")
# shellcheck disable=SC2034 # used by scripts
KVO_CALLER_FOLDER=$PWD # for relative paths that the user types
cd "$(dirname "${BASH_SOURCE[0]}")/.."
KVO_SCRIPT=${KVO_SCRIPT#"$PWD/"}

# Prints the script's first comment, without the line for the shell.
print_help() {
    awk 'NR == 1 { next } !/^#/ { exit } { sub(/^# ?/, ""); print }' "$KVO_SCRIPT"
}

# default_version PACKAGE: prints the version of the compiler that the package g++ or clang of this Debian installs. Prints nothing if
# apt does not know the package yet.
default_version() {
    local version
    version=$(dpkg-query -W -f '${Version}' "$1" 2>/dev/null) && [ -n "$version" ] ||
        version=$(LC_ALL=C apt-cache policy "$1" | sed -n 's/^  Candidate: //p')
    sed -E 's/^[0-9]+://; s/\..*//; s/\(none\)//' <<<"$version"
}

# help_if_asked WORD...: if the first word is -h or --help, prints the help and exits.
help_if_asked() {
    case ${1-} in
    -h | --help) print_help; exit 0 ;;
    esac
}

# refuse SENTENCE...: prints an error and exits with status 2. A script calls it before it changes anything.
refuse() {
    local command=$KVO_SCRIPT
    [[ $command == */* ]] || command=./$command # as the user must type it
    echo "$KVO_SCRIPT: $*; \"$command -h\" explains" >&2
    exit 2
}

# refuse_unknown KIND "KNOWN..." WORD...: refuses a word that is not one of the known words.
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

# no_more_words WORD...: for scripts without arguments.
no_more_words() {
    [ $# -eq 0 ] || refuse "takes no argument except -h, but got \"$1\""
}

# configure FOLDER CMAKE-ARGUMENT...: runs CMake, unless the folder is already configured with the same arguments. It also runs CMake
# if a preset has changed, because the build notices only changes of CMakeLists.txt.
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

# show_progress MINUTES LOG: reads Ninja's output. On a terminal it shows the progress in one line. Otherwise it prints a line for each
# tenth of the build.
show_progress() {
    local line tenth=0 announced=
    while IFS= read -r line; do
        [[ $line =~ ^\[([1-9][0-9]*)/([0-9]+)\]\  ]] || continue # step 0 only checks folders
        local done=${BASH_REMATCH[1]} all=${BASH_REMATCH[2]}
        if [ -z "$announced" ]; then
            announced=1
            echo "$KVO_SCRIPT: building; a full build takes about $1 min on 2 cores; the log: $2" >&2
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
# start_building LOG COMMAND...: starts a build in the background; only one can run at a time. When the command is killed, it must end
# its child processes.
start_building() {
    KVO_BUILD_LOG=$1
    shift
    mkdir -p "$(dirname "$KVO_BUILD_LOG")"
    : >"$KVO_BUILD_LOG" # await_build needs the file at once
    "$@" >>"$KVO_BUILD_LOG" 2>&1 &
    KVO_BUILDING=$!
}

# await_build MINUTES: shows the progress of the build until it ends. If the build fails, shows the end of its log.
await_build() {
    local failed=0
    tail -n +1 -s 0.2 --pid="$KVO_BUILDING" -f "$KVO_BUILD_LOG" 2>/dev/null | show_progress "$1" "$KVO_BUILD_LOG"
    wait "$KVO_BUILDING" || failed=1
    KVO_BUILDING=
    if [ $failed -eq 0 ]; then
        # Ninja's last line may not show 100 %: newer versions count the check of the folders, but do not report it.
        [ -t 2 ] || ! grep -q '^\[[1-9]' "$KVO_BUILD_LOG" || echo "$KVO_SCRIPT: 100 % built" >&2
        return 0
    fi
    tail -n 60 "$KVO_BUILD_LOG" >&2
    echo "$KVO_SCRIPT: not built; the whole log: $KVO_BUILD_LOG" >&2
    return 1
}

# run_ninja FOLDER [TARGET...]: replaces the shell that start_building started. A signal to this shell then ends Ninja.
run_ninja() {
    local folder=$1
    shift
    exec env NINJA_STATUS='[%f/%t] ' nice ninja -C "$folder" "$@"
}

# build FOLDER MINUTES [TARGET...]: runs Ninja and shows the progress. MINUTES is the time of a full build on 2 cores.
build() {
    local folder=$1 minutes=$2
    shift 2
    start_building "$folder/build.log" run_ninja "$folder" "$@"
    await_build "$minutes"
}

# build_demo [TARGET...]: builds the programs that demo.sh runs and that "cmake --install build/demo" installs.
build_demo() {
    scripts/setup.sh manuals
    configure build/demo --preset release -DKVO_BUILD_TESTS=OFF -DKVO_BUILD_MANUALS=ON
    build build/demo 2 "$@"
}

# Ends a build that is still running when the script exits. If its process leads a process group, ends the whole group.
end_build() { # PROCESS
    kill -- "-$1" 2>/dev/null || kill "$1" 2>/dev/null || true
}

end_building() {
    [ -z "$KVO_BUILDING" ] || end_build "$KVO_BUILDING"
}
trap end_building EXIT
