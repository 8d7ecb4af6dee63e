"""The name of every GoogleTest case is a sentence in snake_case: closes_the_connection_after_a_timeout.

usage: test_names_test.py ROOT
"""
import re
import sys
from pathlib import Path

CASE = re.compile(r"\b(?:TEST|TEST_F|TEST_P)\(\s*(\w+),\s*(\w+)\)")
SNAKE_CASE = re.compile(r"[a-z][a-z0-9]*(?:_[a-z0-9]+)*")


def main():
    root = Path(sys.argv[1])
    count = 0
    complaints = []
    for source in sorted((root / "tests").rglob("*.[ch]*")):
        if source.suffix not in (".h", ".cpp"):
            continue
        for suite, name in CASE.findall(source.read_text(encoding="utf-8")):
            count += 1
            if not SNAKE_CASE.fullmatch(name):
                complaints.append(f"{source.relative_to(root)}: {suite}.{name} is not in snake_case")
    if count == 0:
        complaints.append("no test was found")
    print("\n".join(complaints) or f"{count} names")
    sys.exit(bool(complaints))


main()
