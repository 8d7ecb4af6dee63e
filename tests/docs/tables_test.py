#!/usr/bin/env python3
"""Compares the tables of docs/ with the catalogue of requests, or writes them anew with KVO_WRITE_TABLES=1 in the environment.

    tables_test.py ROOT LIST          LIST is the program that prints the catalogue

Between the lines "<!-- begin NAME -->" and "<!-- end NAME -->" a page has a table that is made from the catalogue. The tables of the
command protocol are written by people, and must have every request and every reply that is a fixed text.
"""

import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(sys.argv[1])
CATALOGUE = json.loads(subprocess.run([sys.argv[2]], check=True, stdout=subprocess.PIPE).stdout)
# What a message of another function begins with: it is that one's oddity, and stands under its own label alone.
FOREIGN = "can not allocate memory"


def cell(text):
    return f"`{text}`".replace("|", "\\|") if text else ""


def command_line(request):
    words = [request["kvoctl"]["words"], *(f'"{word}"' if " " in word else word for word in request["kvoctl"]["arguments"])]
    return " ".join(words).strip()


def requests_table():
    yield "| function | over the wire | `kvoctl` | Python |"
    yield "| --- | --- | --- | --- |"
    for request in CATALOGUE:
        wire = ", ".join(map(cell, request["commands"]))
        yield f"| {cell(request['function'])} | {wire} | {cell(command_line(request))} | {cell(request['python'])} |"


def labels_table():
    labels = {}
    for request in CATALOGUE:
        for exchange in request["exchanges"]:
            for message in exchange["messages"]:
                label, _, reason = message.partition(" - ")
                if label != "command socket" and reason != FOREIGN:
                    labels.setdefault(label, set()).add(request["function"])
    yield "| `<request>` | function |"
    yield "| --- | --- |"
    for label in sorted(labels, key=str.lower):
        yield f"| {cell(label)} | {', '.join(map(cell, sorted(labels[label])))} |"


TABLES = {"requests": requests_table, "labels": labels_table}


def check_tables():
    """The pages with their tables as the catalogue has them."""
    found = set()
    for path in sorted((ROOT / "docs").glob("*.md")):
        page = path.read_text()

        def table(match):
            found.add(match[1])
            return f"<!-- begin {match[1]} -->\n" + "".join(line + "\n" for line in TABLES[match[1]]()) + f"<!-- end {match[1]} -->"

        wanted = re.sub(r"<!-- begin (\w+) -->\n.*?<!-- end \1 -->", table, page, flags=re.DOTALL)
        if wanted != page and os.environ.get("KVO_WRITE_TABLES"):
            path.write_text(wanted)
            print(f"{path.relative_to(ROOT)} is written")
        elif wanted != page:
            yield f"{path.relative_to(ROOT)}: a table is not as the catalogue has it; KVO_WRITE_TABLES=1 writes it anew"
    for name in sorted(TABLES.keys() - found):
        yield f"no page has the table {name}"


def fixed_replies(request):
    """Replies that are a text without a value, beside "failed", which all requests know."""
    for exchange in request["exchanges"]:
        reply = exchange["replies"][0] if len(exchange["replies"]) == 1 and exchange["commands"] == request["commands"] else ""
        known = exchange["result"] >= 0 or exchange["messages"]
        if known and re.fullmatch(r"[a-z_]+( [a-z]+)*", reply) and not unknown(request, exchange):
            yield reply


def unknown(request, exchange):
    return reply_is_like(request, exchange, "what is it")


def reply_is_like(request, exchange, other):
    """Whether a reply comes to the same as another one that no request knows."""
    others = [e for e in request["exchanges"] if e["replies"] == [other]]
    return any((e["result"], e["messages"]) == (exchange["result"], exchange["messages"]) for e in others)


def check_protocol():
    page = (ROOT / "docs/command-protocol.md").read_text()
    rows = [re.split(r"(?<!\\)\|", line)[1:-1] for line in page.splitlines() if line.startswith("| `")]
    for request in (r for r in CATALOGUE if r["commands"]):
        for command in request["commands"]:
            keyword = re.match(r"\w+", command)[0]
            own = [row for row in rows if re.search(rf"`{keyword}\b", row[0])]
            if not own:
                yield f"docs/command-protocol.md: no row for {keyword}"
            missing = [] if request["takes_any_reply"] else fixed_replies(request)
            for reply in missing:
                if own and not any(f"`{reply}`" in row[1] for row in own):
                    yield f"docs/command-protocol.md: {keyword} may be answered \"{reply}\", and its row does not say so"


def main():
    mistakes = [*check_tables(), *check_protocol()]
    for mistake in mistakes:
        print(mistake, file=sys.stderr)
    print(f"{len(CATALOGUE)} requests, {len(TABLES)} tables: {len(mistakes)} mistakes")
    return 1 if mistakes or not CATALOGUE else 0


if __name__ == "__main__":
    sys.exit(main())
