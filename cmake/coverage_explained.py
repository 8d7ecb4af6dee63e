"""Lists the lines that no test runs, with the reasons from coverage-explained.txt in the same directory.

Usage: coverage_explained.py ROOT GCOVR_JSON. Fails if a line has no reason, or if a reason has no line.
"""

import json
import pathlib
import sys


def squashed(text):
    return " ".join(text.split())


def read_explanations(path):
    """Pairs of file and code, each with its reason."""
    reasons = {}
    entry = None
    for line in path.read_text().splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        if line[0].isspace():
            reasons[entry] = squashed(reasons[entry] + " " + line)
        else:
            file, code = line.split(":", 1)
            entry = (file, squashed(code))
            reasons[entry] = ""
    return reasons


def uncovered_lines(root, measured):
    """File, number, text, and the code up to and including that line."""
    for file in measured["files"]:
        source = (root / file["file"]).read_text().splitlines()
        for line in file["lines"]:
            if line["count"] == 0 and not line.get("gcovr/noncode"):
                number = line["line_number"]
                yield file["file"], number, source[number - 1].strip(), squashed(" ".join(source[:number]))


def main():
    root, measured = pathlib.Path(sys.argv[1]), json.loads(pathlib.Path(sys.argv[2]).read_text())
    reasons = read_explanations(pathlib.Path(__file__).with_name("coverage-explained.txt"))
    used = set()
    unexplained = 0
    for file, number, text, code in uncovered_lines(root, measured):
        entry = next((entry for entry in reasons if entry[0] == file and code.endswith(entry[1])), None)
        used.add(entry)
        unexplained += entry is None
        print(f"{file}:{number}: {text}\n    {reasons.get(entry) or 'NOT EXPLAINED'}")
    stale = [entry for entry in reasons if entry not in used]
    for file, code in stale:
        print(f"{file}: \"{code}\" is explained, but is no longer an uncovered line")
    return 1 if unexplained or stale else 0


sys.exit(main())
