"""Checks CONTRIBUTING's list of the files to change for a new request, with its example request: the list has at most twelve files, each
of them has the request, and no other file has it except generated files and files that only use it.

usage: places_test.py ROOT
"""
import re
import sys
from pathlib import Path

MOST = 12
EXAMPLE = "KVO_HWS_getDisableNumLock"
# Its spellings in C, on the wire, in Python, on the command line and in output.
SPELLINGS = re.compile(r"getDisableNumLock|get_disable_num_lock|disable_num_lock|disableNumLock|panel numlock|\"numlock\"|disable numlock|get disable NumLock")
# Files that scripts/rewrite.sh generates.
WRITTEN = ["library/abi/x86_64.abi", "packaging/debian/libkvo-hws0.symbols", "tests/library/log_texts/requests.golden",
           "docs/cpp.md", "docs/requests.md", "docs/command-protocol.md", "docs/troubleshooting.md"]
# Files that use it only as an example.
USES = {
    "CONTRIBUTING.md": "this list",
    "docs/plant-file.md": "the station's state",
    "docs/programming.md": "an example of a family of requests",
    "examples/panel_settings.c": "the same example as a program",
    "examples/panel_settings.cpp": "the same with the C++ interface",
    "fuzz/service.dict": "words for the fuzzer's inputs",
    "python/tests/cases.py": "the simulated station's state",
    "tests/cpp/calls/catalogue_test.cpp": "calls that cannot be written in C++",
    "tests/soak/load_driver.cpp": "a short reply that is corrupted",
    "tests/structure/places_test.py": "its spellings",
    "tests/tools/kvoctl/command_line/usage_test.cpp": "a subcommand's help",
    "tests/tools/kvoctl/families/simulated_stations_test.cpp": "the simulated station's state",
    "tests/tools/kvosim/commands/byte_order_test.cpp": "both byte orders of an address",
    "tests/tools/kvosim/commands/station_commands_test.cpp": "the station's state",
    "tests/tools/kvosim/commands/station_sequences_test.cpp": "the station's state",
    "tests/tools/kvosim/library_stations_test.cpp": "the station's state",
    "tests/tools/kvosim/plant_file/plant_keys_test.cpp": "the station's state",
    "tests/tools/kvoctl/capture/captured_plant_test.cpp": "a captured plant file",
    "tools/kvoctl/capture/station_requests.cpp": "the key of plant files",
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
    mistakes = [f"{name} is listed but does not have it" for name in listed if name not in having]
    mistakes += [f"{name} has it but is not listed" for name in having
                 if name not in listed + WRITTEN and name not in USES]
    mistakes += [f"{name} is exempt but does not have it" for name in USES if name not in having]
    mistakes += [f"{name} is written by scripts/rewrite.sh but does not have it" for name in WRITTEN if name not in having]
    if steps != len(listed):
        mistakes.append(f"{steps} steps name {len(listed)} files; each must begin with a file")
    if len(listed) > MOST:
        mistakes.append(f"{len(listed)} places are more than {MOST}")
    print("\n".join(mistakes) or f"{len(listed)} places of {EXAMPLE}, {len(WRITTEN)} written files")
    sys.exit(bool(mistakes) or not listed)


main()
