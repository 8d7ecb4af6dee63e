#!/usr/bin/env python3
"""Prepares a source for Doxygen: headers and pages are written to be read as they stand, and some of that means something
else to it. Run by Doxygen with a file's name; writes what it is to read, line for line."""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def linked_names():
    """What the library exports, the headers' inline functions and the enumerators: worth a link wherever they are mentioned."""
    exported = re.findall(r'^\s+(\w+);$', (ROOT / 'library/exports.map').read_text(), re.M)
    headers = ''.join(path.read_text() for path in (ROOT / 'include/kvo_hws').glob('*.h'))
    enumerators = re.findall(r'^\s+([A-Z][A-Z_0-9]+) = ', headers, re.M)
    inline = re.findall(r'^static inline .*?(\w+)\(', headers, re.M)
    # A name that is a plain word is mostly meant as one.
    return {name for name in exported + inline + enumerators if re.search('[A-Z_]', name) and len(name) > 5}


NAME = re.compile(r'(?<![\w#:.-])(' + '|'.join(sorted(linked_names(), key=len, reverse=True)) + r')\b(?!\.)')


def page_id(stem):
    return 'page_' + stem.replace('-', '_')


def slug(heading):
    """The anchor that a heading has where pages are read as they stand."""
    return re.sub(r'[^\w -]', '', heading.lower()).replace(' ', '-')


# ---- Headers ----

def unquoted(text):
    """Angle brackets are text and names are links; what stands in double quotes Doxygen takes literally by itself."""
    text = re.sub(r'\bdocs/([\w-]+)\.md\b', lambda found: f'@ref {page_id(found[1])}', text)
    return NAME.sub(r'#\1', text.replace('<', r'\<').replace('>', r'\>'))


def comment(text):
    body = []
    parts = re.split(r'(^ \*\n(?: \* {5,}.*\n)+)', text, flags=re.M)  # what is indented behind an empty line is verbatim
    for index, part in enumerate(parts):
        if index % 2 == 1:
            body.append(part)
            continue
        opening = re.match(r'/\*\*<?', part)
        head = opening[0] if opening else ''
        quotes = part[len(head):].split('"')
        body.append(head + '"'.join(piece if number % 2 else unquoted(piece) for number, piece in enumerate(quotes)))
    return ''.join(body)


def one_each(found):
    """A comment behind several members is about each of them; Doxygen would give it to the last one."""
    blank, kind, names, about = found.groups()
    return blank + ' '.join(f'{kind} {name}; {about}' for name in names.split(', '))


def header(text):
    text = re.sub(r'^( +)(\w+) (\w+(?:, \w+)+);\s*(/\*\*<.*\*/)$', one_each, text, flags=re.M)
    return re.sub(r'/\*\*.*?\*/', lambda found: comment(found[0]), text, flags=re.S)


# ---- Pages ----

def link(target, stem):
    """Where a page's link leads in the reference."""
    if example := re.fullmatch(r'\.\./examples/(\w+)\.(c|cpp|h)', target):
        return f'{example[1]}_8{example[2]}-example.html'
    if target.rstrip('/') == '../include/kvo_hws':
        return 'files.html'
    if target.startswith('../examples'):
        return 'examples.html'
    if included := re.fullmatch(r'\.\./include/kvo_hws/(\w+)\.h', target):
        return f'@ref kvo_hws/{included[1]}.h'
    if page := re.fullmatch(r'([\w-]+)\.md(?:#(.*))?', target):
        return f'@ref {page_id(page[1])}' + (f'-{page[2]}' if page[2] else '')
    return f'@ref {page_id(stem)}-{target[1:]}' if target.startswith('#') else target


def code(span):
    name = span.strip('`').removesuffix('()')
    if NAME.fullmatch(name):
        return f'[{span.strip("`")}](@ref {name})'
    # A single quote would end the listing.
    return f'`{span}`' if "'" in span else span


def prose(line, stem):
    pieces = re.split(r'(`[^`]+`)', line)
    for index, piece in enumerate(pieces):
        inside_link = piece != pieces[0] and pieces[index - 1].endswith('[')
        if index % 2 == 1:
            pieces[index] = piece if inside_link else code(piece)
        else:
            piece = re.sub(r'\]\(([^)]+)\)', lambda found: f']({link(found[1], stem)})', piece)
            piece = re.sub(r'\\(?!\|)', r'\\\\', piece)
            pieces[index] = piece.replace('<', '&lt;').replace('"', '&quot;')
    return ''.join(pieces)


def heading(line, stem):
    marks, words = line.split(' ', 1)
    label = page_id(stem) if marks == '#' else f'{page_id(stem)}-{slug(words)}'
    return f'{marks} {words} {{#{label}}}'


def page(text, stem):
    lines = []
    in_code = False
    for line in text.split('\n'):
        fence = line.startswith('```')
        if fence:
            in_code = not in_code
            lines.append('```{.' + (line[3:] or 'txt') + '}' if in_code else line)
        elif in_code:
            lines.append(line)
        elif re.fullmatch('<!--.*-->', line):
            lines.append('')  # what it tells is for those who run the page
        elif line.startswith('#') and '{#' not in line:
            lines.append(heading(line, stem))
        else:
            lines.append(prose(line, stem))
    return '\n'.join(lines)


def main(name):
    text = Path(name).read_text()
    sys.stdout.write(header(text) if name.endswith('.h') else page(text, Path(name).stem))


if __name__ == '__main__':
    main(sys.argv[1])
