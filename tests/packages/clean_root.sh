#!/usr/bin/env bash
# Usage: tests/packages/clean_root.sh [FOLDER-OF-PACKAGES]
# Installs the packages of build/packages on a bare Debian 12, uses them there, removes them, and checks that they leave nothing.
# Needs root, and the mirror that this machine's apt uses. If it cannot run, it prints the reason and exits with status 77.

# shellcheck disable=SC2016 # text in single quotes is for the shell inside the root
set -euo pipefail
. "$(dirname "$0")/../../scripts/common.sh"
help_if_asked "$@"
[ $# -le 1 ] || refuse "takes one folder, but also got \"$2\""
packages=build/packages
if [ $# -gt 0 ]; then
    packages=$(cd "$KVO_CALLER_FOLDER" && [ -d "$1" ] && realpath -- "$1") || refuse "\"$1\" is not a folder here"
fi
packages=$(realpath "$packages")
suite=bookworm
work=$PWD/build/clean-root
. scripts/bare_root.sh

skip() { echo "clean_root.sh: skipped: $1"; exit 77; }
fail() { echo "clean_root.sh: FAILED: $1" >&2; exit 1; }
step() { printf '%4d s  %s\n' "$SECONDS" "$1"; }

reason=$(why_no_root)
[ -z "$reason" ] || skip "$reason"
ls "$packages"/*.deb >/dev/null 2>&1 || skip "no packages in $packages (scripts/package.sh builds them)"
trap remove_root EXIT
trap 'exit 130' INT TERM HUP

make_root_with_packages() {
    make_root
    mkdir -p "$root/packages"
    cp "$packages"/*.deb "$root/packages"
}

install() { # PACKAGE-OR-FILE...
    in_root apt-get install -y -qq --no-install-recommends "$@" >"$work/apt.log" 2>&1 ||
        { tail -n 30 "$work/apt.log" >&2; fail "apt-get install $*"; }
}

debs() { # PACKAGE...: their files inside the root
    local name file
    for name in "$@"; do
        for file in "$packages/$name"_*.deb; do
            echo "/packages/${file##*/}"
        done
    done
}

expect() { # TEXT COMMAND...: runs the command inside the root; its output must contain the text
    local text=$1 output
    shift
    output=$(in_root "$@" 2>&1) || fail "$* ended with $?:
$output"
    grep -qF -- "$text" <<<"$output" || fail "$* did not print \"$text\" but:
$output"
}

plant=/usr/share/kvo-hws/plant.toml

use_tools() {
    expect "Milling centre 1" kvosim run --plant $plant -- kvoctl stations
    expect "Milling centre 1" kvosim run --plant $plant -- kvoctl panel show "Milling centre 1"
    expect "10.0.0.5" kvosim run --plant $plant -- kvoctl --json stations
    expect "Milling centre 1" bash -c 'kvosim serve --plant '$plant' & for _ in {1..50}; do
        [ -S /tmp/kvo_hws/cmd_sock ] && break; sleep 0.1; done; kvoctl stations; kill %1; wait'
}

use_python() {
    # The part before "~" or "+" is the project's version.
    expect "version $(in_root dpkg-query -W -f '${Version}' python3-kvo-hws | sed 's/[~+].*//')." \
        python3 -c 'import kvo_hws; print(f"version {kvo_hws.__version__}.")'
    expect "the level is not one of 0 to 100" \
        python3 -c 'import kvo_hws; print(kvo_hws.OutOfRange("KVO_HWS_setBacklightBrightness", -3))'
    expect "30 stations" python3 -c "
from kvo_hws import Service, Simulator
with Simulator(plant='$plant'):
    print(len(Service().get_stations()), 'stations')"
}

build_examples() {
    expect "10.0.0.5" bash -euc 'cd /tmp
        cc -Wall -Werror -o first /usr/share/doc/libkvo-hws-doc/examples/stations.c $(pkg-config --cflags --libs kvo_hws)
        kvosim run --plant '$plant' -- ./first'
    expect "10.0.0.5" bash -euc 'cd /tmp
        c++ -std=c++17 -Wall -Werror -o first_cpp /usr/share/doc/libkvo-hws-doc/examples/stations.cpp $(pkg-config --cflags --libs kvo_hws)
        kvosim run --plant '$plant' -- ./first_cpp'
    expect "10.0.0.5" bash -euc 'cmake -S /usr/share/doc/libkvo-hws-doc/examples -B /tmp/examples
        cmake --build /tmp/examples
        kvosim run --plant '$plant' -- /tmp/examples/example_stations_cpp'
}

# The links of the Markdown pages lead to existing files.
follow_links() {
    in_root bash -euc 'cd /usr/share/doc/libkvo-hws-doc/docs
        links=0
        for page in *.md; do
            for link in $(grep -oE "\]\([^]):# ]+[)#]" "$page" | sed "s/^](//; s/.$//"); do
                links=$((links + 1))
                [ -e "$link" ] || { echo "$page: $link does not exist"; exit 1; }
            done
        done
        [ "$links" -gt 30 ]' || fail "a page has a broken link"
}

read_manuals() {
    expect "kvosim" man kvosim
    expect "kvoctl" man kvoctl
    expect "KVO_HWS_getBacklightBrightnessV2" man 3 KVO_HWS_getBacklightBrightnessV2
    expect "Result<std::uint32_t> mcp_address() const" man 3 kvo::Station
    expect "Result<std::uint32_t> mcp_address() const" man kvo::Station::mcp_address
    expect "KVO_HWS_getBacklightBrightnessV2" bash -c 'cat /usr/share/doc/libkvo-hws-doc/html/*.html'
    expect "complete" bash -c 'cat /usr/share/bash-completion/completions/kvoctl; . /usr/share/bash-completion/completions/kvoctl; complete -p kvoctl'
    [ -s "$root/usr/share/zsh/vendor-completions/_kvo" ] || fail "no completion for zsh"
    [ -s "$root/usr/share/fish/vendor_completions.d/kvoctl.fish" ] || fail "no completion for fish"
    local page
    for page in "$root"/usr/share/man/man[15]/kvo*.gz; do
        page=$(basename "$page" .gz)
        expect "NAME" man "${page##*.}" "${page%.*}"
    done
}

check_unit() {
    in_root systemd-analyze verify --man=no kvosim@root.service || fail "systemd reports errors in the unit"
    in_root systemd-analyze security --offline=yes --threshold=40 kvosim@root.service >"$work/unit.log" 2>&1 ||
        { tail -n 40 "$work/unit.log" >&2; fail "the unit has more rights than it needs"; }
    # Enabling creates a link in /etc; purging must remove it too.
    in_root systemctl enable kvosim@root.service 2>/dev/null || fail "the unit cannot be enabled"
}

# Replaces the stand-ins by a panel's libraries, and the other way round.
replace_stand_ins() {
    in_root bash -euc 'cd /tmp && dpkg-deb -R /packages/libkvo-hws-platform_*.deb panel
        sed -i "s/^Package: .*/Package: panel-libraries/" panel/DEBIAN/control
        rm -rf panel/usr/share/doc
        dpkg-deb --root-owner-group --build panel /packages/panel-libraries.deb' >/dev/null
    install /packages/panel-libraries.deb
    expect "panel-libraries" bash -c 'dpkg -S /usr/lib/*/libdrak.so'
    in_root dpkg-query -W libkvo-hws0 kvo-hws-tools python3-kvo-hws >/dev/null || fail "the panel's libraries removed more than the stand-ins"
    ! in_root dpkg-query -W -f '${Status}\n' libkvo-hws-platform 2>/dev/null | grep -q 'ok installed' ||
        fail "the stand-ins stayed installed with the panel's libraries"
    expect "Milling centre 1" kvosim run --plant $plant -- kvoctl stations
    # shellcheck disable=SC2046 # the file of one package
    install $(debs libkvo-hws-platform) panel-libraries-
    expect "libkvo-hws-platform" bash -c 'dpkg -S /usr/lib/*/libdrak.so'
    in_root dpkg --purge panel-libraries >/dev/null 2>&1
    rm "$root/packages/panel-libraries.deb"
}

# Lists names, types, modes, link targets and contents, without the files that dpkg, apt, the loader, man and systemd maintain.
list_files() {
    local excluded=(-path ./packages -o -path ./var/log -o -path ./var/cache -o -path ./var/lib/apt -o -path ./var/lib/dpkg
        -o -path ./etc/ld.so.cache -o -path ./run/systemd)
    (cd "$root" && {
        find . -xdev '(' "${excluded[@]}" ')' -prune -o -printf '%p %y %m %l\n'
        find . -xdev '(' "${excluded[@]}" ')' -prune -o -type f -print0 | xargs -0 sha256sum
        find ./var/lib -xdev -name '*kvo*'
    } | LC_ALL=C sort)
    in_root dpkg-query -W -f '${Package} ${Status}\n'
}

make_root_with_packages
step "a bare $suite: $(in_root dpkg-query -W | wc -l) packages"
# shellcheck disable=SC2046 # one word for each file
install $(debs libkvo-hws0 libkvo-hws-platform kvo-hws-tools python3-kvo-hws)
step "installed the packages for running programs, with their dependencies: $(in_root dpkg-query -W | wc -l) packages"
use_tools
use_python
step "used kvosim, kvoctl and the Python module"

make_root_with_packages
install g++ cmake make pkg-config man-db python3 systemd
list_files >"$work/before"
step "another bare $suite, with a compiler: $(wc -l <"$work/before") lines in the list of files"
# shellcheck disable=SC2046 # one word for each file
install $(debs libkvo-hws0 libkvo-hws-dev libkvo-hws-platform kvo-hws-tools libkvo-hws-doc python3-kvo-hws)
step "installed all packages"
use_tools
use_python
step "used kvosim, kvoctl and the Python module"
build_examples
step "built examples with pkg-config and with CMake"
read_manuals
follow_links
step "read manual pages"
check_unit
step "checked the unit"
replace_stand_ins
step "replaced the stand-ins by a panel's libraries and back"
in_root apt-get purge -y -qq 'libkvo-hws*' kvo-hws-tools python3-kvo-hws >"$work/apt.log" 2>&1 || { cat "$work/apt.log"; fail "purge"; }
list_files >"$work/after"
diff -u "$work/before" "$work/after" || fail "the packages left files or changes"
step "purged; nothing is left"
