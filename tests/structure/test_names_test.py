"""Every GoogleTest case has a name in snake_case, such as closes_the_connection_after_a_timeout; a table of cases is defined before
INSTANTIATE_TEST_SUITE_P; a test file has at most 400 lines.

usage: test_names_test.py ROOT
"""
import re
import sys
from pathlib import Path

CASE = re.compile(r"\b(?:TEST|TEST_F|TEST_P)\(\s*(\w+),\s*(\w+)\)")
INSTANTIATION = re.compile(r"^INSTANTIATE_TEST_SUITE_P\((?:.*\n)*?.*\);$", re.MULTILINE)
LONGEST_INSTANTIATION = 5
LONGEST_FILE = 400
SNAKE_CASE = re.compile(r"[a-z][a-z0-9]*(?:_[a-z0-9]+)*")


def main():
    root = Path(sys.argv[1])
    count = 0
    complaints = []
    for source in sorted((root / "tests").rglob("*.[ch]*")):
        if source.suffix not in (".h", ".hpp", ".cpp"):
            continue
        text = source.read_text(encoding="utf-8")
        place = source.relative_to(root)
        if text.count("\n") > LONGEST_FILE:
            complaints.append(f"{place} has more than {LONGEST_FILE} lines: split it by topic")
        for found in INSTANTIATION.findall(text):
            if found.count("\n") >= LONGEST_INSTANTIATION:
                complaints.append(f"{place}: a table of cases is defined inside {found.splitlines()[0]}")
        for suite, name in CASE.findall(text):
            count += 1
            if not SNAKE_CASE.fullmatch(name):
                complaints.append(f"{place}: {suite}.{name} is not in snake_case")
    if count == 0:
        complaints.append("no test was found")
    print("\n".join(complaints) or f"{count} names")
    sys.exit(bool(complaints))


main()
