#!/usr/bin/env bash
# Usage: scripts/picture.sh [PICTURE...]
# Draws the pictures of the documentation from the current output of the commands that they show:
#   demo    README's picture (docs/images/demo.svg), from ./demo.sh and from the reports of the last run of ./test.sh, which must have
#           passed
#   trace   the picture of docs/trace.md (docs/images/trace.svg)
#   panel   the window of docs/event-loops.md (docs/images/panel.png), on a virtual display; installs and builds what ./test.sh loops does
# The test docs_picture fails if the picture of a terminal is out of date.
set -euo pipefail
. "$(dirname "$0")/common.sh"
help_if_asked "$@"
refuse_unknown "a picture" "demo trace panel" "$@"
[ $# -gt 0 ] || set -- demo trace panel

draw_window() {
    scripts/setup.sh loops
    configure build/loops --preset loops
    build build/loops 2 loop_tests
    local programs=build/loops/bin
    "$programs/sandbox" --network "$programs/kvosim" run --plant examples/plant.toml -- python3 tests/examples/panel_test.py \
        "$programs/example_panel_qt" "$programs/kvosim" --window docs/images/panel.png >/dev/null
    echo "docs/images/panel.png: $(stat -c %s docs/images/panel.png) bytes"
}

terminals=()
for picture; do
    if [ "$picture" = panel ]; then draw_window; else terminals+=("$picture"); fi
done
[ ${#terminals[@]} -eq 0 ] || { build_demo && python3 scripts/picture.py build/demo/bin "${terminals[@]}"; }
