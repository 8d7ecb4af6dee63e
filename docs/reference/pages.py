"""The manual pages of man/: mdoc, in which a line that begins with "@" includes text from another source."""
from pathlib import Path

import headers
import markdown
import tools
from mdoc import Page, Span, plain, wrapped

ROOT = Path(__file__).resolve().parents[2]


class Sources:
    """The sources that lines with "@" can name."""

    def __init__(self, programs, families, xml):
        self.tools = {name: tools.read(program) for name, program in programs.items()}
        self.families = families
        self.xml = xml


def name_line(page, sources, name, section, *about):
    del sources
    page.name, page.section = name, int(section)
    page.section_heading('NAME')
    page.macro('Nm', name)
    page.macro('Nd', *about)


def section_line(page, sources, file, *heading):
    del sources
    text = (ROOT / 'docs' / file).read_text()
    markdown.write(page, markdown.section(markdown.blocks(text), ' '.join(heading)))


def keys_line(page, sources, file, *heading):
    """Writes the first and the last column of the tables under a heading that describe the JSON of a command."""
    del sources
    found = markdown.section(markdown.blocks((ROOT / 'docs' / file).read_text()), ' '.join(heading))
    rows = [row for block in found if block.kind == 'table' and block.rows[0][-1] == 'JSON' for row in block.rows[1:]]
    page.tagged([(markdown.spans(row[0]), lambda row=row: page.paragraph(markdown.spans(row[-1]))) for row in rows if row[-1] != 'done'])


def commands_line(page, sources, tool, *described):
    tools.write_commands(page, sources.tools[tool], described)


def options_line(page, sources, tool):
    tools.write_global_options(page, sources.tools[tool])


def examples_line(page, sources, tool):
    footer = sources.tools[tool]['footer']
    tools.write_footer(page, footer.split('\n\n')[0])


def header_line(page, sources, header):
    compound = headers.read_file(sources.xml, header)
    headers.write_blocks(page, compound.find('briefdescription'))
    headers.write_blocks(page, compound.find('detaileddescription'))


def families_line(page, sources, language):
    items = []
    for family in sources.families:
        if family.of_classes != (language == 'C++'):
            continue
        text = [*plain(f'{family.title}. In '), Span(f'<{family.header}>', 'B'), *plain('.')]
        items.append(([Span(f'{family.name}(3)', 'B')], lambda text=text: page.paragraph(text)))
    page.tagged(items)


def listing_line(page, sources, file, language):
    """Writes the first listing of a page in a language."""
    del sources
    text = (ROOT / file).read_text()
    page.literal(text.split(f'```{language}\n')[1].split('\n```')[0])


def see_line(page, sources, *others):
    del sources
    page.see_also([(name, int(section)) for name, section in (other.rsplit('.', 1) for other in others)])


LINES = {'@name': name_line, '@section': section_line, '@commands': commands_line, '@options': options_line,
         '@examples': examples_line, '@header': header_line, '@families': families_line, '@listing': listing_line,
         '@see': see_line, '@keys': keys_line}


def read(file, sources):
    page = Page('', 0)
    for line in file.read_text().rstrip('\n').split('\n'):
        word, *arguments = line.split(' ')
        if word in LINES:
            LINES[word](page, sources, *arguments)
        elif line.startswith('.'):
            page.lines.append(line)
        else:
            page.lines += wrapped(line)
    return page
