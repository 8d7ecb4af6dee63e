#!/usr/bin/env python3
"""Counts the tests that CTest skipped, and prints each reason with the tests that it holds for.

A reason is what the test printed: "skipped: REASON", GoogleTest's GTEST_SKIP() or pytest's -rs. One that begins with "missing tool: "
can be removed by installing something, and fails a run that requires all tests."""

import argparse
import pathlib
import re
import sys
import xml.etree.ElementTree

MISSING = "missing tool: "
UNKNOWN = "no reason was printed"
# What each kind of test prints: the line after "Skipped" is GoogleTest's, after "file:line: ".
REASONS = [
    re.compile(r"^(?:-- |[\w.]+: )?skipped: (.+)$", re.MULTILINE),
    re.compile(r"^\S+:\d+: Skipped\n(.+)$", re.MULTILINE),
    re.compile(r"^SKIPPED \[\d+\] \S+: (.+)$", re.MULTILINE),
]


def reasons(case):
    """Why a test, or a part of it, was skipped; a test of pytest's passes although some of its cases are skipped."""
    output = case.findtext("system-out") or ""
    found = [reason.strip() for pattern in REASONS for reason in pattern.findall(output)]
    whole = case.find("skipped") is not None
    return found or ([UNKNOWN] if whole else [])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--require-all", action="store_true", help="end with status 1 where a tool or package is missing")
    parser.add_argument("reports", nargs="+", type=pathlib.Path, metavar="REPORT", help="what ctest --output-junit wrote")
    options = parser.parse_args()

    skipped, total = {}, 0
    for report in options.reports:
        if not report.exists():
            continue  # CTest did not come that far, and has said why
        for case in xml.etree.ElementTree.parse(report).iter("testcase"):
            total += 1
            for reason in reasons(case):
                skipped.setdefault(reason, []).append(f"{report.parent.name}: {case.get('name')}")

    print(f"{sum(map(len, skipped.values()))} of {total} tests were skipped" + (":" if skipped else ""))
    for reason, tests in sorted(skipped.items()):
        print(f"  {len(tests)}  {reason}")
        for test in tests:
            print(f"        {test}")
    missing = sum(len(tests) for reason, tests in skipped.items() if reason.startswith(MISSING))
    if missing and options.require_all:
        print(f"{missing} tests need something that is not installed here, and --require-all wants them run", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
