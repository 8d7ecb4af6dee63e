"""Writes manual pages in mdoc, the language that mandoc(1) and man-db read."""
import os
import re
import time
from dataclasses import dataclass, field

WIDTH = 78  # bytes of a text line


@dataclass(frozen=True)
class Span:
    """A piece of text: '' plain, 'B' bold (to type or to call), 'I' italic (a placeholder)."""
    text: str
    font: str = ''


def plain(text):
    return [Span(text)]


def escaped(text, literal=False):
    text = text.replace('\\', '\\e')
    if literal:
        for character, name in (('-', '\\-'), ("'", '\\(aq'), ('`', '\\(ga'), ('^', '\\(ha'), ('~', '\\(ti')):
            text = text.replace(character, name)
    return ''.join(character if ord(character) < 128 else f'\\[u{ord(character):04X}]' for character in text)


def at_line_start(line):
    """Escapes a full stop or an apostrophe at the start of a line, which would make the line a macro."""
    return '\\&' + line if line.startswith(('.', "'")) else line


def inline(spans):
    pieces = []
    for span in spans:
        text = escaped(span.text, bool(span.font))
        if not span.font:
            text = re.sub(r'\b(\w+)\(\)', r'\\fB\1\\fR()', text).replace('--', '\\-\\-')  # a function's name; an option's dashes
        pieces.append(f'\\f{span.font}{text}\\fR' if span.font and text else text)
    return re.sub(r'\s+', ' ', ''.join(pieces)).strip()


def wrapped(text):
    """Lines of text; each sentence starts a new line, and no line is long."""
    lines = []
    for sentence in re.split(r'(?<=[.!?]) (?=[^a-z])|(?<=[.!?][)"]) (?=[^a-z])', text):
        line = ''
        for word in sentence.split(' '):
            if line and len(line) + 1 + len(word) > WIDTH:
                lines.append(line)
                line = ''
            line += (' ' if line else '') + word
        lines.append(line)
    return [line for line in lines if line]


def text_lines(spans):
    return [at_line_start(line) for line in wrapped(inline(spans))]


def argument(text):
    """One argument of a macro."""
    text = escaped(text, literal=True).replace('"', '\\(dq')
    return f'"{text}"' if ' ' in text or not text else text


@dataclass
class Page:
    """A manual page, written from top to bottom."""
    name: str
    section: int
    lines: list = field(default_factory=list)

    def macro(self, name, *arguments):
        self.lines.append(' '.join([f'.{name}', *map(argument, arguments)]))

    def section_heading(self, title):
        self.macro('Sh', title)

    def subsection(self, title):
        self.macro('Ss', title)

    def paragraph(self, spans):
        if not re.match(r'\.(Sh|Ss|It|Pp)\b', self.lines[-1] if self.lines else '.Sh'):
            self.lines.append('.Pp')
        self.paragraph_lines(spans)

    def paragraph_lines(self, spans):
        """Adds text to the current paragraph."""
        self.lines += text_lines(spans)

    def literal(self, text):
        self.lines += ['.Bd -literal -offset indent'] + [at_line_start(escaped(line, True)) for line in text.split('\n')] + ['.Ed']

    def tagged(self, items, width='Ds'):
        """Writes items; each is a tag (spans) and a function that writes the rest."""
        self.lines.append(f'.Bl -tag -width {width}')
        for tag, write in items:
            self.lines.append('.It ' + (inline(tag).replace('"', '\\(dq') if tag else '\\&'))
            write()
        self.lines.append('.El')

    def bullets(self, items):
        self.lines.append('.Bl -bullet')
        for spans in items:
            self.lines.append('.It')
            self.lines += text_lines(spans)
        self.lines.append('.El')

    def see_also(self, pages):
        """Writes the SEE ALSO section; pages are (name, section)."""
        self.section_heading('SEE ALSO')
        ordered = sorted(set(pages) - {(self.name, self.section)}, key=lambda page: (page[1], page[0].lower()))
        for number, (name, section) in enumerate(ordered, 1):
            self.lines.append(f'.Xr {name} {section}' + (' ,' if number < len(ordered) else ''))

    def text(self, version):
        date = time.gmtime(int(os.environ.get('SOURCE_DATE_EPOCH', time.time())))
        head = [time.strftime('.Dd %B ', date) + f'{date.tm_mday}, {date.tm_year}', f'.Dt {self.name.upper()} {self.section}',
                f'.Os "libkvo_hws {version}"']
        return '\n'.join(head + self.lines) + '\n'
