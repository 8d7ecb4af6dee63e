"""Manual pages of section 3, one for each family of functions, from the XML that Doxygen writes for the public headers. This module
writes the pages of the C interface; classes.py writes those of the C++ interface with the functions here."""
import re
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass

from markdown import MANUAL_PAGES
from mdoc import Page, Span, plain

# Other packages may have pages of these names. "man" still finds ours by the names at the top of the family's page.
TOO_COMMON = {'LOG', 'DEBUG', 'cmds', 'xmalloc'}


@dataclass(frozen=True)
class Family:
    """A group of the headers."""
    name: str
    title: str
    header: str
    element: ElementTree.Element

    @property
    def of_classes(self):
        """Whether it belongs to the C++ interface."""
        return self.header.endswith('.hpp')

    def members(self, *kinds):
        return [member for member in self.element.iter('memberdef') if member.get('kind') in kinds]

    def functions(self):
        return self.members('function')

    def names(self):
        return [member.findtext('name') for member in self.members('function', 'variable')]


def read_families(folder):
    families = []
    for path in sorted(folder.glob('group__*.xml')):
        group = ElementTree.parse(path).getroot().find('compounddef')
        # A group has no place of its own. It may have only functions or only classes.
        inside = [*group.iter('memberdef'), *(read_compound(folder, inner.get('refid')) for inner in group.iterfind('innerclass'))]
        location = next(element.find('location').get('file') for element in inside if element.find('location') is not None)
        families.append(Family(group.findtext('compoundname'), group.findtext('title'), location.split('include/')[-1], group))
    return families


def read_compound(folder, identifier):
    return ElementTree.parse(folder / f'{identifier}.xml').getroot().find('compounddef')


def read_records(folder):
    """Public structures and classes by their identifier."""
    compounds = [read_compound(folder, path.stem) for kind in ('struct', 'class') for path in folder.glob(f'{kind}*.xml')]
    return {compound.get('id'): compound for compound in compounds if compound.get('prot') == 'public'}


def read_file(folder, header):
    """Doxygen's XML for a header."""
    stem, kind = header.split('/')[-1].split('.')
    return read_compound(folder, f"{stem.replace('_', '__')}_8{kind}")


# ---- Text ----

FONTS = {'ref': 'B', 'computeroutput': 'B', 'bold': 'B', 'emphasis': 'I', 'ulink': ''}
BLOCKS = ('itemizedlist', 'orderedlist', 'parameterlist', 'simplesect', 'programlisting', 'verbatim', 'preformatted')


def spans(element, font=''):
    """The text in an element, without its blocks."""
    result = [Span(element.text or '', font)]
    for child in element:
        result += child_spans(child, font)
    return [span for span in result if span.text]


def child_spans(child, font):
    inside = []
    if child.tag not in BLOCKS:
        # A page of docs/ is shown by the name of its manual page or its file.
        page = re.match('page_([a-z_]+?)(_1|$)', child.get('refid')) if child.tag == 'ref' else None
        file = f"{page[1].replace('_', '-')}.md" if page else ''
        inside = [Span(MANUAL_PAGES.get(file, f'docs/{file}'), 'I')] if file else spans(child, FONTS.get(child.tag, font))
    return [*inside, Span(child.tail or '', font)]


def write_block(page, block):
    if block.tag == 'itemizedlist':
        page.bullets([sum((spans(para) for para in item.iter('para')), []) for item in block.iter('listitem')])
    elif block.tag in ('verbatim', 'preformatted', 'programlisting'):
        page.literal(listing(block))


def write_paragraph(page, para, write):
    """Writes the text of a paragraph and the blocks in it."""
    text = [Span(para.text or '')]

    def end():
        if any(span.text.strip() for span in text):
            page.paragraph([span for span in text if span.text])
        text.clear()
    for child in para:
        if child.tag in BLOCKS:
            end()
            write(page, child)
        text += child_spans(child, '')
    end()


def write_blocks(page, description, write=write_block):
    for para in description.iterfind('para') if description is not None else []:
        write_paragraph(page, para, write)


def listing(element):
    if element.tag != 'programlisting':
        return ''.join(element.itertext()).strip('\n')
    lines = []
    for line in element.iter('codeline'):
        for blank in line.iter('sp'):
            blank.text = ' '
        lines.append(''.join(line.itertext()))
    return '\n'.join(lines)


def arguments_and_result(page, member):
    items = []
    for parameter in member.iterfind('detaileddescription//parameterlist/parameteritem'):
        names = ', '.join(name.text for name in parameter.iter('parametername'))
        text = spans(parameter.find('parameterdescription/para'))
        items.append(([Span(names, 'I')], lambda text=text: page.paragraph(text)))
    for result in member.iterfind("detaileddescription//simplesect[@kind='return']"):
        texts = [spans(para) for para in result.iter('para')]
        items.append((plain('Returns'), lambda texts=texts: [page.paragraph(text) for text in texts]))
    if items:
        page.tagged(items, 'Returns')


def describe(page, member):
    """Writes a description in its order; all arguments and the result come where the first of them is."""
    write_blocks(page, member.find('briefdescription'))
    described = []

    def write(page, block):
        if block.tag not in ('parameterlist', 'simplesect'):
            write_block(page, block)
        elif not described:
            described.append(block)
            arguments_and_result(page, member)
    write_blocks(page, member.find('detaileddescription'), write)


# ---- Declarations ----

def text_of(element):
    return ' '.join(''.join(element.itertext()).split()) if element is not None else ''


def parameters(member):
    result = []
    for parameter in member.iterfind('param'):
        kind, name = text_of(parameter.find('type')), text_of(parameter.find('declname'))
        if '(*' in kind:
            result.append(f"{kind.split('(*')[0]}(*{name}{kind.split('(*')[1]}")
        elif kind:
            result.append(f"{kind}{'' if kind.endswith('*') or not name else ' '}{name}{text_of(parameter.find('array'))}")
    return result or ['void']


def declare(page, member):
    if member.get('kind') == 'function':
        page.macro('Ft', text_of(member.find('type')))
        page.macro('Fn', member.findtext('name'), *parameters(member))
    elif member.get('kind') == 'variable':
        kind = text_of(member.find('type'))
        page.macro('Vt', f"extern {kind}{'' if kind.endswith('*') else ' '}{member.findtext('name')}{member.findtext('argsstring') or ''};")


def type_definition(member):
    definition, arguments = text_of(member.find('definition')), member.findtext('argsstring') or ''
    # The definition of a pointer to a function contains its arguments.
    return definition.replace('(* ', '(*').replace(') (', ')(').removesuffix(arguments) + arguments + ';'


def is_nameless(member):
    """Whether it is a union without a name: Doxygen names it @1; from 1.9.8 on it has an empty name."""
    name = member.findtext('name') or ''
    return not name or name.startswith('@')


def type_of(member):
    """The type of a member. Doxygen gives a nameless union in a record a name with an @; from 1.9.8 on, the name of the record."""
    record = (member.findtext('qualifiedname') or '').rpartition('::')[0]
    return re.sub(rf'^(union|struct) (\S*@\d+|{re.escape(record)})$', r'\1', text_of(member.find('type')))


def write_members(page, members, value=lambda member: ''):
    """Writes members of a record or constants of an enumeration."""
    items = []
    for member in members:
        name = member.findtext('name')
        array = member.findtext('argsstring') or ''
        kind = type_of(member)
        declaration = f"{kind}{'' if not kind or kind.endswith('*') else ' '}{name}{array}{value(member)}"
        def write(member=member):
            write_blocks(page, member.find('briefdescription'))
            write_blocks(page, member.find('detaileddescription'))
        items.append(([Span(declaration, 'B')], write))
    page.tagged(items)


def write_records(page, family, records):
    for inner in family.element.iterfind('innerclass'):
        record = records[inner.get('refid')]
        page.subsection(f"struct {inner.text}")
        describe(page, record)
        write_members(page, [member for member in record.iter('memberdef') if not is_nameless(member)])


def write_constants(page, family):
    for enumeration in family.members('enum'):
        page.subsection(f"enum {enumeration.findtext('name')}")
        describe(page, enumeration)
        write_members(page, enumeration.iterfind('enumvalue'), lambda constant: ' ' + text_of(constant.find('initializer')))


# ---- Pages ----

def pages_of_types(families):
    """The family whose page describes a type, by the type's identifier."""
    return {identifier: family.name for family in families for identifier in
            [*(inner.get('refid') for inner in family.element.iterfind('innerclass')),
             *(member.get('id') for member in family.members('typedef', 'enum'))]}


def in_a_sentence(title):
    return title if title.startswith(('USB', 'lib')) else title[0].lower() + title[1:]


def write_family(family, families, records, header_text):
    page = Page(family.name, 3)
    page.section_heading('NAME')
    names = [family.name, *family.names()]
    for number, name in enumerate(names, 1):
        page.lines.append(f'.Nm {name}' + (' ,' if number < len(names) else ''))
    page.macro('Nd', in_a_sentence(family.title))
    page.section_heading('SYNOPSIS')
    page.macro('In', family.header)
    for member in family.members('variable', 'function'):
        declare(page, member)
    page.section_heading('DESCRIPTION')
    write_blocks(page, family.element.find('briefdescription'))
    write_blocks(page, family.element.find('detaileddescription'))
    write_records(page, family, records)
    write_constants(page, family)
    for member in family.members('typedef', 'variable', 'function'):
        page.subsection(member.findtext('name'))
        if member.get('kind') == 'typedef':
            page.literal(type_definition(member))
        describe(page, member)
    write_notes(page, family, header_text)
    mentioned = {ref.get('refid') for member in family.members('function', 'variable') for ref in member.iterfind('.//type/ref')}
    write_see_also(page, family, families, mentioned, ('kvo_hws_result', 3))
    return page


def write_notes(page, family, header_text):
    """Writes what the header says about all its families."""
    if text_of(header_text.find('detaileddescription')):  # more than the first sentence, which says what the header is about
        page.section_heading('NOTES')
        page.paragraph([Span('The following applies to all of '), Span(f'<{family.header}>', 'B'), Span(':')])
        write_blocks(page, header_text.find('briefdescription'))
        write_blocks(page, header_text.find('detaileddescription'))


def write_see_also(page, family, families, mentioned, results):
    """Writes SEE ALSO with the other families of the header and the pages of the types in @p mentioned."""
    beside = [(other.name, 3) for other in families if other.header == family.header]
    pages = pages_of_types(families)
    types = [(pages[identifier], 3) for identifier in mentioned if identifier in pages]
    page.see_also([('kvo_hws', 3), ('kvoctl', 1), results, *beside, *types])


def is_described(element):
    return text_of(element.find('briefdescription')) or text_of(element.find('detaileddescription'))


def is_deleted(member):
    """Whether a class of the C++ interface declares that it does not have this function; the declaration needs no comment."""
    return re.search(r'=\s*delete$', member.findtext('argsstring') or '')


def faults(families, records):
    """Names without a comment that Doxygen does not report."""
    places = [(family.header, family.element) for family in families]
    places += [(record.findtext('compoundname'), record) for record in records.values()]
    for place, element in places:
        for constant in element.iter('enumvalue'):
            if not is_described(constant):
                yield f"{place}: {constant.findtext('name')} (enumerator) is not documented."
    for record in records.values():
        for member in record.iter('memberdef'):
            if member.get('prot') == 'public' and not (is_described(member) or is_nameless(member) or is_deleted(member)):
                yield f"{record.findtext('compoundname')}: {member.findtext('name')} is not documented."


def family_pages(folder, families, records):
    """The pages of the C interface, and the names that link to each of them."""
    pages = [write_family(family, families, records, read_file(folder, family.header)) for family in families]
    links = {name: family.name for family in families for name in family.names() if name not in TOO_COMMON}
    links |= {inner.text: family.name for family in families for inner in family.element.iterfind('innerclass')}
    return pages, links
