"""Every member of every record in the headers, and every constant, has a row in library/abi/records.cpp that checks it.

usage: records_test.py ROOT
"""
import re
import sys
from pathlib import Path

RECORD = re.compile(r"^(?:typedef )?struct (\w+) \{\n(.*?)^\}", re.MULTILINE | re.DOTALL)
CONSTANTS = re.compile(r"^enum \w+ \{\n(.*?)^\}", re.MULTILINE | re.DOTALL)
NAMED_UNION = re.compile(r"^    union \{.*?^    \} (?=\w+;)", re.MULTILINE | re.DOTALL)
POINTER_TO_FUNCTION = re.compile(r"\(\*(\w+)\)\([^)]*\)")
ROW = re.compile(r"^(MEMBER|SIZE|VALUE)\((\w+)(?:, ([a-zA-Z]\w*), )?", re.MULTILINE)


def declared(header):
    header = re.sub(r"/\*.*?\*/", "", header, flags=re.DOTALL)
    for name, body in RECORD.findall(header):
        body = POINTER_TO_FUNCTION.sub(r"\1", NAMED_UNION.sub("", body))
        yield "SIZE", name, ""
        yield from (("MEMBER", name, member) for member in re.findall(r"(\w+)(?:\[\w+\])?\s*[,;]", body))
    for body in CONSTANTS.findall(header):
        yield from (("VALUE", name, "") for name in re.findall(r"^\s*([A-Za-z_]\w*)", body, re.MULTILINE))


def main():
    root = Path(sys.argv[1])
    rows = set(ROW.findall((root / "library/abi/records.cpp").read_text(encoding="utf-8")))
    found = [row for header in sorted((root / "include/kvo_hws").glob("*.h")) for row in declared(header.read_text(encoding="utf-8"))]
    missing = [" ".join(row).rstrip() for row in found if row not in rows]
    print("\n".join(f"library/abi/records.cpp has no row for {row}" for row in missing) or f"{len(found)} rows")
    kinds = [kind for kind, _, _ in found]
    sys.exit(bool(missing) or kinds.count("SIZE") < 20 or kinds.count("VALUE") < 40)


main()
