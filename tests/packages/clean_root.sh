#!/usr/bin/env bash
# Usage: tests/packages/clean_root.sh [FOLDER-OF-PACKAGES]
# Installs the packages of build/packages on a bare Debian 12, uses them there as their owners would, removes them, and looks for
# what they left. Needs root, and the mirror that this machine's apt uses; exits with 77 where it cannot run, and says why.

# shellcheck disable=SC2016 # what stands in single quotes is read by the shell in there
set -euo pipefail
. "$(dirname "$0")/../../scripts/common.sh"
help_if_asked "$@"
[ $# -le 1 ] || refuse "takes one folder, but got \"$2\" besides"
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

debs() { # PACKAGE...: their files inside of the root
    local name file
    for name in "$@"; do
        for file in "$packages/$name"_*.deb; do
            echo "/packages/${file##*/}"
        done
    done
}

expect() { # TEXT COMMAND...: the command runs there, and its output has the text
    local text=$1 output
    shift
    output=$(in_root "$@" 2>&1) || fail "$* ended with $?:
$output"
    grep -qF -- "$text" <<<"$output" || fail "$* did not tell \"$text\" but:
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
    # Before "~" or "+" stands the project's version.
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
    expect "10.0.0.5" bash -euc 'cmake -S /usr/share/doc/libkvo-hws-doc/examples -B /tmp/examples
        cmake --build /tmp/examples
        kvosim run --plant '$plant' -- /tmp/examples/example_stations_cpp'
}

# The links of the pages in Markdown lead to files that are there.
follow_links() {
    in_root bash -euc 'cd /usr/share/doc/libkvo-hws-doc/docs
        links=0
        for page in *.md; do
            for link in $(grep -oE "\]\([^]):# ]+[)#]" "$page" | sed "s/^](//; s/.$//"); do
                links=$((links + 1))
                [ -e "$link" ] || { echo "$page: there is no $link"; exit 1; }
            done
        done
        [ "$links" -gt 30 ]' || fail "the pages lead nowhere"
}

read_manuals() {
    expect "kvosim" man kvosim
    expect "kvoctl" man kvoctl
    expect "KVO_HWS_getBacklightBrightnessV2" man 3 KVO_HWS_getBacklightBrightnessV2
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
    in_root systemd-analyze verify --man=no kvosim@root.service || fail "systemd does not like the unit"
    in_root systemd-analyze security --offline=yes --threshold=40 kvosim@root.service >"$work/unit.log" 2>&1 ||
        { tail -n 40 "$work/unit.log" >&2; fail "the unit may do more than it needs to"; }
    # Its link in /etc is a trace too, where purging leaves it.
    in_root systemctl enable kvosim@root.service 2>/dev/null || fail "the unit can not be enabled"
}

# The libraries of a panel take the stand-ins' place, and give it back.
replace_stand_ins() {
    in_root bash -euc 'cd /tmp && dpkg-deb -R /packages/libkvo-hws-platform_*.deb panel
        sed -i "s/^Package: .*/Package: panel-libraries/" panel/DEBIAN/control
        rm -rf panel/usr/share/doc
        dpkg-deb --root-owner-group --build panel /packages/panel-libraries.deb' >/dev/null
    install /packages/panel-libraries.deb
    expect "panel-libraries" bash -c 'dpkg -S /usr/lib/*/libdrak.so'
    in_root dpkg-query -W libkvo-hws0 kvo-hws-tools python3-kvo-hws >/dev/null || fail "the panel's libraries removed more than the stand-ins"
    ! in_root dpkg-query -W -f '${Status}\n' libkvo-hws-platform 2>/dev/null | grep -q 'ok installed' ||
        fail "the stand-ins stayed beside the panel's libraries"
    expect "Milling centre 1" kvosim run --plant $plant -- kvoctl stations
    # shellcheck disable=SC2046 # one package's file
    install $(debs libkvo-hws-platform) panel-libraries-
    expect "libkvo-hws-platform" bash -c 'dpkg -S /usr/lib/*/libdrak.so'
    in_root dpkg --purge panel-libraries >/dev/null 2>&1
    rm "$root/packages/panel-libraries.deb"
}

# Names, kinds, rights, targets and contents; without what dpkg, apt, the loader, man and systemd keep for themselves.
list_files() {
    local kept=(-path ./packages -o -path ./var/log -o -path ./var/cache -o -path ./var/lib/apt -o -path ./var/lib/dpkg
        -o -path ./etc/ld.so.cache -o -path ./run/systemd)
    (cd "$root" && {
        find . -xdev '(' "${kept[@]}" ')' -prune -o -printf '%p %y %m %l\n'
        find . -xdev '(' "${kept[@]}" ')' -prune -o -type f -print0 | xargs -0 sha256sum
        find ./var/lib -xdev -name '*kvo*'
    } | LC_ALL=C sort)
    in_root dpkg-query -W -f '${Package} ${Status}\n'
}

make_root_with_packages
step "a bare $suite: $(in_root dpkg-query -W | wc -l) packages"
# shellcheck disable=SC2046 # one word a file
install $(debs libkvo-hws0 libkvo-hws-platform kvo-hws-tools python3-kvo-hws)
step "installed what runs programs, with its dependencies: $(in_root dpkg-query -W | wc -l) packages"
use_tools
use_python
step "used kvosim, kvoctl and the Python module"

make_root_with_packages
install g++ cmake make pkg-config man-db python3 systemd
list_files >"$work/before"
step "another bare $suite, with a compiler: $(wc -l <"$work/before") lines of list"
# shellcheck disable=SC2046 # one word a file
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
step "had the unit checked"
replace_stand_ins
step "a panel's libraries took the stand-ins' place and gave it back"
in_root apt-get purge -y -qq 'libkvo-hws*' kvo-hws-tools python3-kvo-hws >"$work/apt.log" 2>&1 || { cat "$work/apt.log"; fail "purge"; }
list_files >"$work/after"
diff -u "$work/before" "$work/after" || fail "the packages left traces"
step "purged; no trace of them"
