#!/usr/bin/env python3
"""Prepares a source for Doxygen. Headers and pages are written for people, and Doxygen would misread some of their text.
Doxygen runs this with a file's name and reads its output, line by line."""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
HEADERS = ROOT / 'include/kvo_hws'


def as_used(text):
    """A header as programs use it: kvo::Station instead of BasicStation<void> (detail/late.hpp says why it is a template)."""
    def without(pattern, text):
        return re.sub(pattern, lambda found: '\n' * found[0].count('\n'), text, flags=re.M)

    text = without(r'^(?:/\*\* [^/]*\*/\n)?using (\w+) = Basic\1<void>;\n', text)
    text = without(r'^template <class Use(?: = void)?>\n(?=class Basic|(?:\[\[nodiscard\]\] )?detail::Late<)', text)
    text = without(r'^    template <class (?:Event = \w*Event|Command = AgentCommand)>\n', text)  # for the same reason
    text = without(r'^    template <class T>\n    using Result = detail::Late<.*\n', text)
    text = re.sub(r'^(\[\[nodiscard\]\] )?detail::Late<Use, (.*)> (?=\w+\()', r'\1inline \2 ', text, flags=re.M)
    return re.sub(r'\bBasic(?=[A-Z]\w)', '', text)


def linked_names():
    """The exported names, the headers' inline functions and the enumerators: every mention of them becomes a link."""
    exported = re.findall(r'^\s+(\w+);$', (ROOT / 'library/exports.map').read_text(), re.M)
    headers = ''.join(path.read_text() for path in HEADERS.glob('*.h'))
    enumerators = re.findall(r'^\s+([A-Z][A-Z_0-9]+) = ', headers, re.M)
    inline = re.findall(r'^static inline .*?(\w+)\(', headers, re.M)
    # A name that is an ordinary word is usually meant as a word.
    return {name for name in exported + inline + enumerators if re.search('[A-Z_]', name) and len(name) > 5}


def cpp_names():
    """The classes, enumerations, types and functions of namespace kvo."""
    text = as_used(''.join(path.read_text() for path in HEADERS.glob('*.hpp')))
    text = re.sub(r'/\*\* @cond internal \*/.*?/\*\* @endcond \*/', '', text, flags=re.S)
    types = re.findall(r'^(?:class|struct|enum class|using) (?:\[\[nodiscard\]\] )?(\w+)\b(?!::)', text, re.M)
    functions = re.findall(r'^(?:\[\[nodiscard\]\] )?(?:inline|constexpr) .*?(\w+)\(', text, re.M)
    return types + functions


NAME = re.compile(r'(?<![\w#:.-])(' + '|'.join(sorted(linked_names(), key=len, reverse=True)) + r')\b(?!\.)')
CPP_NAME = re.compile(rf'(?:kvo::)?((?:{"|".join(sorted(set(cpp_names())))})(?:::\w+)?)')


def page_id(stem):
    return 'page_' + stem.replace('-', '_')


def slug(heading):
    """The anchor of a heading where Markdown is shown directly."""
    return re.sub(r'[^\w -]', '', heading.lower()).replace(' ', '-')


# ---- Headers ----

def unquoted(text):
    """Escapes angle brackets and links names. Doxygen already takes text in double quotes and in backquotes literally."""
    text = re.sub(r'\bdocs/([\w-]+)\.md\b', lambda found: f'@ref {page_id(found[1])}', text)
    return NAME.sub(r'#\1', text.replace('<', r'\<').replace('>', r'\>'))


def comment(text):
    body = []
    parts = re.split(r'(^ *\*\n(?: *\* {5,}.*\n)+)', text, flags=re.M)  # indented text after an empty line is verbatim
    for index, part in enumerate(parts):
        if index % 2 == 1:
            body.append(part)
            continue
        opening = re.match(r'/\*\*<?', part)
        head = opening[0] if opening else ''
        pieces = re.split(r'("[^"]*"|`[^`]+`)', part[len(head):])
        body.append(head + ''.join(piece if number % 2 else unquoted(piece) for number, piece in enumerate(pieces)))
    return ''.join(body)


def one_each(found):
    """Repeats a comment after several members for each of them; Doxygen would give it only to the last one."""
    blank, kind, names, about = found.groups()
    return blank + ' '.join(f'{kind} {name}; {about}' for name in names.split(', '))


def header(text):
    text = re.sub(r'^( +)(\w+) (\w+(?:, \w+)+);\s*(/\*\*<.*\*/)$', one_each, text, flags=re.M)
    return re.sub(r'/\*\*.*?\*/', lambda found: comment(found[0]), text, flags=re.S)


# ---- Pages ----

# Doxygen would link words of other listings, such as "failed", to enumerators with these names.
LANGUAGES = ('c', 'cpp', 'python')


def link(target, stem):
    """The target of a page's link in the reference."""
    if example := re.fullmatch(r'\.\./examples/([\w/]+)\.(c|cpp|hpp)', target):
        return f'{example[1].replace("/", "_2")}_8{example[2]}-example.html'
    if target.rstrip('/') == '../include/kvo_hws':
        return 'files.html'
    if target.startswith('../examples'):
        return 'examples.html'
    if included := re.fullmatch(r'\.\./include/kvo_hws/(\w+\.hp*)', target):
        return f'@ref kvo_hws/{included[1]}'
    if page := re.fullmatch(r'([\w-]+)\.md(?:#(.*))?', target):
        return f'@ref {page_id(page[1])}' + (f'-{page[2]}' if page[2] else '')
    return f'@ref {page_id(stem)}-{target[1:]}' if target.startswith('#') else target


def code(span):
    name = span.strip('`').removesuffix('()')
    if NAME.fullmatch(name):
        return f'[{span.strip("`")}](@ref {name})'
    if found := CPP_NAME.fullmatch(name):
        return f'[{span.strip("`")}](@ref kvo::{found[1]})'
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
            lines.append(f'```{{.{line[3:] if line[3:] in LANGUAGES else "unparsed"}}}' if in_code else line)
        elif in_code:
            lines.append(line)
        elif re.fullmatch('<!--.*-->', line):
            lines.append('')  # for the tests that run the page
        elif line.startswith('#') and '{#' not in line:
            lines.append(heading(line, stem))
        else:
            lines.append(prose(line, stem))
    return '\n'.join(lines)


def main(name):
    text = Path(name).read_text()
    sys.stdout.write(header(as_used(text)) if name.endswith(('.h', '.hpp')) else page(text, Path(name).stem))


if __name__ == '__main__':
    main(sys.argv[1])
