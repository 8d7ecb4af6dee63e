"""Compares every #include of the library and the tools with the table of modules.txt, and the table with the README's drawing.

usage: includes_test.py ROOT
"""
import re
import sys
from pathlib import Path

LIBRARY = ("runtime", "codecs", "service", "requests", "config", "usbevents", "agent", "platform")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
HIDDEN = re.compile(rf'^\s*#\s*include\s+<((?:{"|".join((*LIBRARY, "common", "kvosim", "kvoctl"))})/[^>]*)>', re.MULTILINE)
TABLE_LINE = re.compile(r"^([\w/]+):((?: [\w/]+)*)$")
DRAWN_GROUP = re.compile(r"^ (?:the library|tools/(\w+))$")
DRAWN_LINE = re.compile(r"^   (\w+) .*─▶ ?([\w/ ]*)$")


def read_table(text):
    table = {}
    for line in text.splitlines():
        if not line or line.startswith("#"):
            continue
        found = TABLE_LINE.match(line)
        if not found:
            sys.exit(f'modules.txt: "{line}" is not of the form "module: included modules"')
        table[found[1]] = set(found[2].split())
    return table


def module_of(path):
    """The module of a source, by its path from the root or from tools/."""
    parts = path.split("/")
    if parts[0] == "tools":
        parts = parts[1:]
    return "/".join(parts[:-1])


def source_of(units, name):
    """The modifiable set of files that a source and its header include."""
    return units.setdefault(name.rsplit(".", 1)[0], set())


def check_units(units, complaints):
    """Includes inside a module have no cycles; a source and its header count as one unit."""
    done = set()

    def visit(unit, path):
        if unit in path:
            complaints.append("includes form a cycle: " + " -> ".join((*path[path.index(unit):], unit)))
        elif unit not in done:
            for included in sorted(units.get(unit, set()) - {unit}):
                visit(included, (*path, unit))
            done.add(unit)

    for unit in sorted(units):
        visit(unit, ())


def used_arrows(root, complaints):
    """Each pair of modules of which the first includes the second, with an example source."""
    used = {}
    units = {}
    for folder in (*LIBRARY, "tools"):
        for source in sorted((root / folder).rglob("*.[ch]*")):
            if source.suffix not in (".c", ".h", ".cpp", ".hpp"):
                continue
            name = source.relative_to(root).as_posix()
            text = source.read_text(encoding="utf-8")
            complaints += [f"{name} includes <{hidden}>: write a module's header in quotes" for hidden in HIDDEN.findall(text)]
            for included in INCLUDE.findall(text):
                base = root / "tools" if folder == "tools" else root
                if not (base / included).is_file():
                    complaints.append(f'{name} includes "{included}": write its path from {"tools/" if folder == "tools" else "the root"}')
                    continue
                used.setdefault((module_of(name), module_of(included)), name)
                source_of(units, name).add((base / included).relative_to(root).with_suffix("").as_posix())
    check_units(units, complaints)
    return {arrow: name for arrow, name in used.items() if arrow[0] != arrow[1]}


def check_order(table, complaints):
    """The table has no cycles: a module includes only modules above it."""
    above = set()
    for module, includes in table.items():
        for included in sorted(includes - above):
            what = "is not a module of the table" if included not in table else "is below it: that would allow a cycle"
            complaints.append(f"modules.txt: {module} includes {included}, which {what}")
        above.add(module)


def drawn(readme, table):
    """The arrows of the README's drawing, in which names of modules omit the tool's name."""
    section = readme.split("\n## Architecture\n", 1)[-1].split("\n## ", 1)[0]
    arrows = {}
    group = None
    for line in section.splitlines():
        if heading := DRAWN_GROUP.match(line):
            group = heading[1]
        elif arrow := DRAWN_LINE.match(line):
            def full(name):
                return next((known for known in (f"{group}/{name}", f"common/{name}") if known in table), name)
            arrows[full(arrow[1])] = {full(name) for name in arrow[2].split()}
    return arrows


def main():
    root = Path(sys.argv[1])
    complaints = []
    table = read_table((Path(__file__).parent / "modules.txt").read_text(encoding="utf-8"))
    check_order(table, complaints)
    used = used_arrows(root, complaints)
    for (module, included), source in sorted(used.items()):
        if included not in table.get(module, ()):
            complaints.append(f"{source}: {module} may not include {included}")
    for module, includes in table.items():
        for included in sorted(includes):
            if (module, included) not in used:
                complaints.append(f"modules.txt: {module} does not include {included} any more; remove it")
    picture = drawn((root / "README.md").read_text(encoding="utf-8"), table)
    for module in sorted(table.keys() | picture.keys()):
        if picture.get(module) != table.get(module):
            shown = "does not show it" if module not in picture else "shows " + (" ".join(sorted(picture[module])) or "nothing")
            listed = "no such module" if module not in table else " ".join(sorted(table[module])) or "nothing"
            complaints.append(f"README.md: the drawing {shown} for {module}; modules.txt has {listed}")
    print("\n".join(complaints) or f"{len(table)} modules, {len(used)} arrows")
    sys.exit(bool(complaints))


main()
