#!/usr/bin/env bash
# Installs what building, testing and measuring need on Debian 12, unless it is there already. Used by the other scripts.
# "scripts/setup.sh m32" (or armhf, aarch64, coverage, lint) installs what that one needs besides; "scripts/setup.sh build" (or manuals, package)
# what building needs, or these two besides, without what is only for tests.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config binutils
    libcli11-dev libtomlplusplus-dev nlohmann-json3-dev python3
)
for_tests=(
    libgtest-dev libgmock-dev libbenchmark-dev
    clang libclang-rt-14-dev  # for the fuzzers
    abigail-tools             # compares the binary interface
    python3-pytest mypy       # for the Python module
)
declare -A besides=(
    [release]="doxygen mandoc zsh fish"  # for the tests of the manuals and completions
    [armhf]="g++-arm-linux-gnueabihf qemu-user googletest"
    [aarch64]="g++-aarch64-linux-gnu qemu-user googletest"
    [m32]="g++-12-multilib googletest"
    [coverage]="gcovr"
    [lint]="clang-tidy cppcheck"
    [manuals]="doxygen"
    [package]="debhelper dh-python doxygen dpkg-dev debootstrap lintian pybuild-plugin-pyproject python3-all python3-setuptools"
)
case " $* " in
*' build '* | *' manuals '* | *' package '*) ;;
*) packages+=("${for_tests[@]}") ;;
esac
for purpose in "$@"; do
    read -ra more <<<"${besides[$purpose]-}"
    packages+=("${more[@]}")
done

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "setup.sh: needs root or sudo to install: ${missing[*]}" >&2; exit 1; }
    as_root=(sudo)
fi
echo "setup.sh: installing ${missing[*]}" >&2
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
