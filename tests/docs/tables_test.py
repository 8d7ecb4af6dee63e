#!/usr/bin/env python3
"""Compares the tables of docs/ with the catalogue of requests, or rewrites them with KVO_WRITE_TABLES=1 in the environment.

    tables_test.py ROOT LIST          LIST is the program that prints the catalogue

Between the lines "<!-- begin NAME -->" and "<!-- end NAME -->" a page has a table that is made from the catalogue.
"""

import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(sys.argv[1])
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "docs/reference"))
from filter import as_used  # noqa: E402 (in another folder)

CATALOGUE = json.loads(subprocess.run([sys.argv[2]], check=True, stdout=subprocess.PIPE).stdout)
# The reason in a message that has another function's label; the table lists a function only under its own label.
FOREIGN = "can not allocate memory"


def cell(text):
    return f"`{text}`".replace("|", "\\|") if text else ""


def command_line(request):
    words = [request["kvoctl"]["words"], *(f'"{word}"' if " " in word else word for word in request["kvoctl"]["arguments"])]
    return " ".join(words).strip()


def requests_table():
    yield "| function | over the wire | C++ | `kvoctl` | Python |"
    yield "| --- | --- | --- | --- | --- |"
    for request in CATALOGUE:
        wire = ", ".join(map(cell, request["commands"]))
        yield f"| {cell(request['function'])} | {wire} | {cell(request['cpp'])} | {cell(command_line(request))} | {cell(request['python'])} |"


def headers():
    """The declarations of the C++ interface by class ("" for functions): the name and the type of the result."""
    declarations = {}
    for path in (ROOT / "include/kvo_hws").glob("*.hpp"):
        text = re.sub(r"/\*.*?\*/|//[^\n]*|namespace detail \{.*?\n\}  // namespace detail", "", as_used(path.read_text()), flags=re.DOTALL)
        for part in re.split(r"^(?=class |\};)", text, flags=re.MULTILINE):
            owner = re.match(r"class (?:\[\[nodiscard\]\] )?(\w+)", part)
            for result, name in re.findall(r"(?<![\w:])((?:Result<[^;{}()=]*>|void|bool))\s+(\w+)\(", part):
                declarations.setdefault((owner[1] if owner else "", name), result)
    return declarations


def results_in_cpp(request):
    owner, _, name = request["cpp"].rpartition("::")
    return DECLARATIONS.get((owner, name), "")


def cpp_table():
    yield "| function of C | C++ | result |"
    yield "| --- | --- | --- |"
    rows = (f"| {cell(r['function'])} | {cell('kvo::' + r['cpp'])} | {cell(results_in_cpp(r))} |" for r in CATALOGUE if r["cpp"])
    yield from dict.fromkeys(rows)


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


def results_table():
    """The meanings of results by kvoctl's commands, without results that mean the same everywhere and without answers to queries."""
    everywhere = {1, -1, -2, -7}
    commands = {}
    for request in (r for r in CATALOGUE if r["kvoctl"]["words"]):
        shown = [exchange["result"] for exchange in request["exchanges"] if exchange["replies"] and
                 exchange["replies"][0] in request["shown"]]
        # Only results of replies: kvoctl checks arguments itself, and its buffers are large enough.
        for code in {exchange["result"] for exchange in request["exchanges"] if exchange["usual"]}:
            if code <= 0 and code not in everywhere and code not in shown:
                words = commands.setdefault((-code, request["meanings"][str(code)]), [])
                words.extend([request["kvoctl"]["words"]] if request["kvoctl"]["words"] not in words else [])
    yield "| result | commands | meaning |"
    yield "| --- | --- | --- |"
    for (code, text), words in sorted(commands.items()):
        yield f"| {-code} | {', '.join(map(cell, words))} | {text} |"


def protocol_table(family):
    def table():
        yield "| request | replies | meaning |"
        yield "|---|---|---|"
        for request in (r for r in CATALOGUE if r["family"] == family):
            for row in request["wire"]:
                yield "".join(f"| {text} ".replace("|  ", "| ") for text in row).rstrip() + " |"

    return table


FAMILIES = dict.fromkeys(r["family"] for r in CATALOGUE if r["wire"])
DECLARATIONS = headers()
TABLES = {"requests": requests_table, "cpp": cpp_table, "labels": labels_table, "results": results_table} | {f"protocol_{name}": protocol_table(name) for name in FAMILIES}


def check_tables():
    """Compares or rewrites the tables of the pages."""
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
            yield f"{path.relative_to(ROOT)}: a table differs from the catalogue; KVO_WRITE_TABLES=1 rewrites it"
    for name in sorted(TABLES.keys() - found):
        yield f"no page has the table {name}"


def check_protocol():
    """The protocol has each command of the catalogue, and each reply that is a fixed text."""
    forms = {}
    for request in CATALOGUE:
        for form, replies, _ in request["wire"]:
            forms.setdefault(re.match(r"`(\w+)", form)[1], "")
            forms[re.match(r"`(\w+)", form)[1]] += replies
    for request in CATALOGUE:
        for command in request["commands"]:
            keyword = re.match(r"\w+", command)[0]
            if keyword not in forms:
                yield f"the protocol has no row for {keyword}; .wire(...) in the catalogue describes it"
            for reply in fixed_replies(request):
                if f"`{reply}`" not in forms.get(keyword, f"`{reply}`"):
                    yield f"{keyword} may be answered \"{reply}\", but its row of the protocol does not show that"


def fixed_replies(request):
    """Replies without a value that have a meaning of their own; all requests know "failed"."""
    unknown = {(e["result"], *e["messages"]) for e in request["exchanges"] if e["name"].startswith("unknown")}
    for exchange in request["exchanges"]:
        if exchange["usual"] and len(exchange["replies"]) == 1 and not request["takes_any_reply"]:
            reply = exchange["replies"][0]
            has_effect = exchange["result"] >= 0 or exchange["messages"]
            if has_effect and re.fullmatch(r"[a-z_]+( [a-z]+)*", reply) and (exchange["result"], *exchange["messages"]) not in unknown:
                yield reply


def check_functions():
    """The catalogue has each function of the library that sends a request."""
    exported = re.findall(r"^ +(KVO_HWS_\w+);", (ROOT / "library/exports.map").read_text(), re.MULTILINE)
    for name in sorted(set(exported) - {request["function"] for request in CATALOGUE}):
        yield f"the catalogue has no {name}"
    for request in CATALOGUE:
        if not request["cpp"]:
            yield f"{request['name']} has no method in C++; .cpp(...) in the catalogue names it"
        elif not results_in_cpp(request):
            yield f"no header declares {request['cpp']}, the method for {request['name']}"


def main():
    mistakes = [*check_functions(), *check_tables(), *check_protocol()]
    for mistake in mistakes:
        print(mistake, file=sys.stderr)
    print(f"{len(CATALOGUE)} requests, {len(TABLES)} tables: {len(mistakes)} mistakes")
    return 1 if mistakes or not CATALOGUE else 0


if __name__ == "__main__":
    sys.exit(main())
