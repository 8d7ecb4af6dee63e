#!/usr/bin/env python3
"""Sums up what CTest ran: the skipped tests by reason, the end of each failed test's output, and a line for each preset.

The reason is what the test printed: "skipped: REASON", GoogleTest's GTEST_SKIP() or pytest's -rs. A reason that begins with
"missing tool: " goes away when something is installed, and fails a run that requires all tests."""

import argparse
import pathlib
import re
import sys
import xml.etree.ElementTree

MISSING = "missing tool: "
UNKNOWN = "no reason was printed"
LAST_LINES = 40
# What each kind of test prints; GoogleTest prints the reason on the line after "file:line: Skipped".
REASONS = [
    re.compile(r"^(?:-- |[\w.]+: )?skipped: (.+)$", re.MULTILINE),
    re.compile(r"^\S+:\d+: Skipped\n(.+)$", re.MULTILINE),
    re.compile(r"^SKIPPED \[\d+\] \S+: (.+)$", re.MULTILINE),
]


def reasons(case):
    """Why a test or a part of it was skipped. A test that runs pytest passes even if some of its cases are skipped."""
    output = case.findtext("system-out") or ""
    found = [reason.strip() for pattern in REASONS for reason in pattern.findall(output)]
    whole = case.find("skipped") is not None
    return found or ([UNKNOWN] if whole else [])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--require-all", action="store_true", help="end with status 1 where a tool or package is missing")
    parser.add_argument("reports", nargs="+", type=pathlib.Path, metavar="REPORT", help="what ctest --output-junit wrote")
    options = parser.parse_args()

    skipped, failed, total, summary = {}, [], 0, []
    for report in options.reports:
        if not report.exists():
            continue  # CTest stopped earlier and printed the reason
        before = total, len(failed), sum(map(len, skipped.values()))
        for case in xml.etree.ElementTree.parse(report).iter("testcase"):
            total += 1
            name = f"{report.parent.name}: {case.get('name')}"
            for reason in reasons(case):
                skipped.setdefault(reason, []).append(name)
            if case.find("failure") is not None:
                failed.append((name, (case.findtext("system-out") or "").splitlines()[-LAST_LINES:]))
        ran, failures, skips = (now - then for now, then in zip((total, len(failed), sum(map(len, skipped.values()))), before))
        summary.append(f"{report.parent.name + ':':9} {ran} tests, {failures} failed, {skips} skipped")

    print(f"{sum(map(len, skipped.values()))} of {total} tests were skipped" + (":" if skipped else ""))
    for reason, tests in sorted(skipped.items()):
        print(f"  {len(tests)}  {reason}")
        for test in tests:
            print(f"        {test}")
    for name, output in failed:
        print(f"failed: {name}", *output, sep="\n    ")
    if failed:
        print(f"{len(failed)} of {total} tests failed: " + ", ".join(name for name, _ in failed))
    print(*summary, sep="\n")
    missing = sum(len(tests) for reason, tests in skipped.items() if reason.startswith(MISSING))
    if missing and options.require_all:
        print(f"{missing} tests need something that is not installed here, and --require-all wants them run", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
