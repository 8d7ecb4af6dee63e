#!/usr/bin/env bash
# Usage: scripts/setup.sh [PURPOSE...]
# Installs the missing packages for building, testing and measuring, on Debian 12 and 13. The other scripts call this script.
#   (no PURPOSE)             packages for building and for all tests
#   build                    packages for building only
#   manuals, package         packages for building, and additional packages for this purpose
#   release, loops, debug, asan, tsan, fuzz, m32, armhf, aarch64, coverage, lint
#                            packages for building and for all tests, and additional packages for this purpose
# If this Debian does not have a package, the script says so and continues. Tests that need this package are then skipped.
set -euo pipefail
. "$(dirname "$0")/common.sh"

declare -A additional=(
    [build]=""
    [release]="doxygen mandoc zsh fish dpkg-dev"  # for the tests of the manuals, completions and packages
    [loops]="libglib2.0-dev libuv1-dev qtbase5-dev fonts-dejavu-core xvfb xdotool imagemagick"
    [debug]="" [asan]="" [tsan]="" [fuzz]=""
    [armhf]="g++-arm-linux-gnueabihf qemu-user googletest"
    [aarch64]="g++-aarch64-linux-gnu qemu-user googletest"
    [m32]="g++-GXX-multilib googletest"  # not g++-multilib, which conflicts with the compilers for Arm
    [coverage]="gcovr"
    [lint]="clang-tidy clang-format cppcheck"
    [manuals]="doxygen"
    [package]="debhelper dh-python doxygen dpkg-dev debootstrap lintian pybuild-plugin-pyproject python3-all python3-setuptools"
)
help_if_asked "$@"
refuse_unknown "a purpose" "$(printf '%s\n' "${!additional[@]}" | sort | xargs)" "$@"

for_building=(
    cmake ninja-build g++ pkg-config binutils
    libarchive-dev libcli11-dev libtomlplusplus-dev nlohmann-json3-dev python3
)
for_tests=(
    libgtest-dev libgmock-dev libbenchmark-dev bubblewrap
    clang libclang-rt-dev  # for the fuzzers
    abigail-tools          # compares the binary interface
    python3-pytest mypy    # for the Python module
    socat strace           # for the tests of traces
)

# Prints the wanted packages as lines of "REASON: PACKAGE...".
wanted() {
    echo "to build: ${for_building[*]}"
    case " $* " in
    *' build '* | *' manuals '* | *' package '*) ;;
    *) echo "for the tests: ${for_tests[*]}" ;;
    esac
    local purpose packages
    for purpose; do
        packages=${additional[$purpose]}
        [[ $packages != *GXX* ]] || packages=${packages//GXX/$(default_version g++)}
        [ -z "$packages" ] || echo "for $purpose: $packages"
    done
}

# Filters such lines: only packages that are not installed. Calls dpkg once for all packages, because every script needs this time.
missing() {
    local lines installed reason packages package absent
    lines=$(cat)
    # shellcheck disable=SC2046 # one word for each package
    installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' $(sed 's/^[^:]*: //' <<<"$lines") 2>/dev/null || true)
    while IFS=: read -r reason packages; do
        absent=
        for package in $packages; do
            [[ $'\n'$installed$'\n' == *$'\n'"$package installed"$'\n'* ]] || absent+=" $package"
        done
        [ -z "$absent" ] || echo "$reason:$absent"
    done <<<"$lines"
}

# Filters such lines: only packages that this system's package sources contain. Reports the others.
available() {
    local reason packages package present
    while IFS=: read -r reason packages; do
        present=
        for package in $packages; do
            if [[ $(LC_ALL=C apt-cache policy "$package") =~ "Candidate: "[^\(] ]]; then
                present+=" $package"
            else
                echo "setup.sh: this system's package sources do not have $package ($reason)" >&2
            fi
        done
        [ -z "$present" ] || echo "$reason:$present"
    done
}

absent=$(wanted "$@" | missing)
[ -n "$absent" ] || exit 0

# If apt has package lists and none of them contains a missing package, nothing can be installed, and root is not needed.
if LC_ALL=C apt-cache policy | grep ' Packages$' >/dev/null && [ -z "$(available <<<"$absent" 2>/dev/null)" ]; then
    available <<<"$absent"
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "setup.sh: needs root or sudo to install $absent" >&2; exit 1; }
    as_root=(sudo)
fi
echo "setup.sh: some packages are missing; updating the package lists (apt-get update)" >&2
"${as_root[@]}" apt-get update -qq
absent=$(wanted "$@" | missing | available)
[ -n "$absent" ] || exit 0
sed 's/^/setup.sh: installing /' <<<"$absent" >&2
# shellcheck disable=SC2046 # one word for each package
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    $(sed 's/^[^:]*: //' <<<"$absent") >/dev/null
