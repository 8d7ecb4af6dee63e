"""CONTRIBUTING's list of the places in which a request stands, for the request that it names: at most ten, each of them has it, and
no other source has it but what a command writes and what only uses it.

usage: places_test.py ROOT
"""
import re
import sys
from pathlib import Path

MOST = 10
EXAMPLE = "KVO_HWS_getDisableNumLock"
# As it is spelt in C, on the wire, in Python, and on the command line; and what it shows there.
SPELLINGS = re.compile(r"getDisableNumLock|get_disable_num_lock|disable_num_lock|disableNumLock|panel numlock|\"numlock\"|disable numlock|get disable NumLock")
# scripts/rewrite.sh writes them.
WRITTEN = ["library/abi/x86_64.abi", "packaging/debian/libkvo-hws0.symbols", "tests/library/log_texts/requests.golden",
           "docs/requests.md", "docs/command-protocol.md", "docs/troubleshooting.md"]
# What uses it as an example, and would do as well with another request.
USES = {
    "CONTRIBUTING.md": "this list",
    "docs/plant-file.md": "the station's state",
    "docs/programming.md": "a family of requests by one of them",
    "examples/panel_settings.c": "the same as a program",
    "fuzz/service.dict": "words that inputs are made of",
    "python/tests/cases.py": "what the simulated station has",
    "tests/soak/load_driver.cpp": "a short reply that is spoilt",
    "tests/structure/places_test.py": "its spellings",
    "tests/tools/kvoctl/command_line/usage_test.cpp": "a subcommand's help",
    "tests/tools/kvoctl/families/simulated_stations_test.cpp": "what the simulated station has",
    "tests/tools/kvosim/commands/byte_order_test.cpp": "the two orders of an address",
    "tests/tools/kvosim/commands/station_commands_test.cpp": "the station's state",
    "tests/tools/kvosim/commands/station_sequences_test.cpp": "the station's state",
    "tests/tools/kvosim/library_stations_test.cpp": "the station's state",
    "tests/tools/kvosim/plant_file/plant_keys_test.cpp": "the station's state",
    "tools/kvosim/plant/panel.h": "the station's state",
    "tools/kvosim/plant/station_keys.cpp": "the station's state",
}
LEFT_OUT = {".git", "build", ".mypy_cache", "__pycache__"}


def sources(root):
    for path in sorted(root.rglob("*")):
        relative = path.relative_to(root)
        if path.is_file() and not LEFT_OUT & set(relative.parts) and "corpus" not in relative.parts:
            yield str(relative), path.read_bytes().decode("utf-8", "replace")


def places(root):
    section = (root / "CONTRIBUTING.md").read_text().split("## Adding a request\n")[1].split("\n## ")[0]
    if EXAMPLE not in section:
        sys.exit(f"CONTRIBUTING.md does not have {EXAMPLE} as its example")
    return re.findall(r"^\d+\. `([^`]+)`:", section, re.MULTILINE), len(re.findall(r"^\d+\. ", section, re.MULTILINE))


def main():
    root = Path(sys.argv[1]).resolve()
    listed, steps = places(root)
    having = [name for name, text in sources(root) if SPELLINGS.search(text)]
    mistakes = [f"{name} is listed and does not have it" for name in listed if name not in having]
    mistakes += [f"{name} has it and is not listed" for name in having
                 if name not in listed + WRITTEN and name not in USES]
    mistakes += [f"{name} is exempt and does not have it" for name in USES if name not in having]
    mistakes += [f"{name} is written by scripts/rewrite.sh and does not have it" for name in WRITTEN if name not in having]
    if steps != len(listed):
        mistakes.append(f"{steps} steps name {len(listed)} files; each begins with one")
    if len(listed) > MOST:
        mistakes.append(f"{len(listed)} places are more than {MOST}")
    print("\n".join(mistakes) or f"{len(listed)} places of {EXAMPLE}, {len(WRITTEN)} written files")
    sys.exit(bool(mistakes) or not listed)


main()
