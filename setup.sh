#!/usr/bin/env bash
# Installs what building, testing and measuring need on Debian 12, unless it is there already. Used by the other scripts.
set -euo pipefail

packages=(
    cmake ninja-build g++ pkg-config binutils
    libcli11-dev libtomlplusplus-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    clang libclang-rt-14-dev  # for the fuzzers
    abigail-tools             # compares the binary interface
)

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
