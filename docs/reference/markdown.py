"""Reads the part of Markdown that docs/ uses, and writes it as a manual page."""
import re
from dataclasses import dataclass

from mdoc import Span, plain


@dataclass
class Block:
    """A heading, paragraph, listing, list or table; the text is unchanged Markdown."""
    kind: str
    text: str = ''
    level: int = 0
    rows: tuple = ()


def cells(line):
    return [cell.strip().replace('\\|', '|') for cell in re.split(r'(?<!\\)\|', line.strip().strip('|'))]


def blocks(text):
    result = []
    lines = iter([*text.split('\n'), ''])
    gathered = []

    def end():
        if gathered:
            result.append(assembled(gathered))
            gathered.clear()
    for line in lines:
        if line.startswith('```'):
            end()
            listing = []
            while not (line := next(lines)).startswith('```'):
                listing.append(line)
            result.append(Block('listing', '\n'.join(listing)))
        elif found := re.match(r'(#+) (.*)', line):
            end()
            result.append(Block('heading', found[2], len(found[1])))
        elif not line.strip():
            end()
        else:
            gathered.append(line)
    return result


def assembled(lines):
    if lines[0].startswith('|'):
        rows = [cells(line) for line in lines]
        return Block('table', rows=(rows[0], *rows[2:]))
    if lines[0].startswith('- '):
        items = re.split(r'^- ', '\n'.join(lines), flags=re.M)[1:]
        return Block('bullets', rows=tuple(' '.join(item.split()) for item in items))
    return Block('paragraph', ' '.join(lines))


INLINE = re.compile(r'`([^`]+)`|\*\*([^*]+)\*\*|\*(\w[^*]*)\*|\[((?:`[^`]*`|[^\]])+)\]\(([^)]+)\)')

# Pages of docs/ that are also manual pages.
MANUAL_PAGES = {'compare.md': 'kvosim(1)', 'configuration.md': 'kvo_hws.conf(5)', 'kvoctl.md': 'kvoctl(1)', 'plant-file.md': 'kvo-plant(5)',
                'recording.md': 'kvo-recording(5)', 'replay.md': 'kvosim(1)', 'remote-side.md': 'kvosim(1)'}


def spans(text):
    result = []
    at = 0
    for found in INLINE.finditer(text):
        result.append(Span(text[at:found.start()]))
        code, bold, emphasised, link, target = found.groups()
        if link:
            link = MANUAL_PAGES.get(target, link) if link == target else link
            result += [Span(span.text, span.font or 'I') for span in spans(link)]
        else:
            result.append(Span(emphasised, 'I') if emphasised else Span(code or bold, 'B'))
        at = found.end()
    return [span for span in [*result, Span(text[at:])] if span.text]


def section(all_blocks, heading):
    """The blocks under a heading; with an empty heading, the page's text before its second heading."""
    start = next(index for index, block in enumerate(all_blocks)
                 if block.kind == 'heading' and (block.text == heading or not heading)) + 1
    level = all_blocks[start - 1].level if heading else 2
    end = next((index for index in range(start, len(all_blocks))
                if all_blocks[index].kind == 'heading' and all_blocks[index].level <= level), len(all_blocks))
    return all_blocks[start:end]


def capital(text):
    return text[:1].upper() + text[1:]


def row_writer(page, header, row):
    """Writes a row. The first cell is the tag, the second a paragraph; every further cell follows its column's name."""
    def write():
        if len(row) > 1 and row[1]:
            page.paragraph(spans(row[1]))
        rest = [[*plain(f'{capital(title)}: '), *spans(cell), *plain('.')] for title, cell in zip(header[2:], row[2:]) if cell]
        for text in rest:
            page.lines.append('.br')
            page.paragraph_lines(text)
    return write


def write(page, some_blocks):
    for block in some_blocks:
        if block.kind == 'heading':
            page.subsection(block.text)
        elif block.kind == 'paragraph':
            page.paragraph(spans(block.text))
        elif block.kind == 'listing':
            page.literal(block.text)
        elif block.kind == 'bullets':
            page.bullets([spans(item) for item in block.rows])
        else:
            header, *rows = block.rows
            page.tagged([(spans(row[0]), row_writer(page, header, row)) for row in rows])
