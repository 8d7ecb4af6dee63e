"""Manual pages of section 3 for the C++ interface: one for each group of its headers, with the classes of the group."""
import itertools
import re
import textwrap

import headers
from headers import describe, text_of, write_blocks
from mdoc import Page

NAMESPACE = 'kvo::'
WIDTH = 67  # of a declaration: man(1) shows text in 78 columns, and indents these lines by 11


# ---- Declarations ----

def tidied(text):
    """A declaration as the headers have it, without the blanks that Doxygen adds or removes, and without "= default"."""
    text = text.replace('< ', '<').replace(' >', '>').replace('&noexcept', '& noexcept')
    text = re.sub(r'(\w)=(\w)', r'\1 = \2', text)
    return re.sub(r'\s*=\s*delete$', ' = delete', re.sub(r'\s*=\s*default$', '', text))


def template_of(element):
    found = element.find('templateparamlist')
    words = [' '.join(filter(None, (text_of(each.find('type')), text_of(each.find('declname'))))) for each in found or []]
    return f"template <{', '.join(words)}>" if words else ''


def declaration(member):
    # A member of a class is declared in it.
    name = member.findtext('name') if not member.get('id').startswith('group') else name_of(member)
    kind = tidied(text_of(member.find('type')))
    if member.get('kind') == 'typedef':
        return f'using {name} = {kind};'
    blank = '' if not kind or kind.endswith(('*', '&')) else ' '
    arguments = tidied(member.findtext('argsstring') or '')
    if member.get('kind') == 'variable':
        initial = text_of(member.find('initializer'))
        arguments += f' {initial}' if initial.startswith('=') else initial
    words = [template_of(member), 'explicit' if member.get('explicit') == 'yes' else '', 'static' if member.get('static') == 'yes' else '',
             'friend' if member.get('kind') == 'friend' else '', f'{kind}{blank}{name}{arguments};']
    return ' '.join(filter(None, words))


def wrapped(line, indentation):
    return textwrap.wrap(line, WIDTH, initial_indent=indentation, subsequent_indent=indentation + ' ' * 8, break_long_words=False,
                         break_on_hyphens=False)


def class_line(record):
    bases = ', '.join(f"{base.get('prot')} {tidied(text_of(base))}" for base in record.iterfind('basecompoundref'))
    return f"{record.get('kind')} {name_of(record)}" + (f' : {bases}' if bases else '')


def members(record):
    """The public members in the order of the header."""
    found = [member for member in record.iter('memberdef') if member.get('prot') == 'public']
    return sorted(found, key=lambda member: int(member.find('location').get('line')))


def class_declaration(record):
    lines = [template_of(record)] if template_of(record) else []
    lines.append(class_line(record) + ' {')
    for member in members(record):
        if member.get('kind') == 'enum':
            lines.append(f"    {enumeration_line(member, member.findtext('name'))};")
        else:
            lines += wrapped(declaration(member), ' ' * 4)
    return '\n'.join([*lines, '};']).replace('{\n}', '{}')


def enumeration_line(member, name):
    return f"enum {'class ' if member.get('strong') == 'yes' else ''}{name}"


def name_of(element):
    """The name with its namespace."""
    return tidied(element.findtext('qualifiedname') or element.findtext('compoundname'))


# ---- Descriptions ----

def description_of(member):
    return text_of(member.find('briefdescription')), text_of(member.find('detaileddescription'))


def write_functions(page, found):
    """Writes declarations and descriptions. Overloads with the same comment have one description."""
    for _, alike in itertools.groupby(found, description_of):
        alike = list(alike)
        page.literal('\n'.join(line for member in alike for line in wrapped(declaration(member), '')))
        describe(page, alike[0])


def write_enumeration(page, member):
    page.subsection(enumeration_line(member, name_of(member)))
    describe(page, member)
    headers.write_members(page, member.iterfind('enumvalue'), lambda constant: ' ' * bool(text_of(constant.find('initializer')))
                          + text_of(constant.find('initializer')))


def write_class(page, record):
    page.subsection(class_line(record))
    describe(page, record)
    values = [member for member in members(record) if member.get('kind') == 'variable']
    if values:
        headers.write_members(page, values)
    rest = [member for member in members(record) if member.get('kind') != 'variable' and not headers.is_deleted(member)]
    for name, alike in itertools.groupby(rest, name_of):
        alike = list(alike)
        if alike[0].get('kind') == 'enum':
            write_enumeration(page, alike[0])
        else:
            page.subsection(name.removeprefix(NAMESPACE))
            write_functions(page, alike)


# ---- Pages ----

def records_of(element, records):
    """The classes in a group, each followed by the classes in it."""
    for inner in element.iterfind('innerclass'):
        if inner.get('prot') == 'public':
            yield records[inner.get('refid')]
            yield from records_of(records[inner.get('refid')], records)


def names_of(family, records):
    """The names that the page describes. A specialization has the name of its template."""
    found = [name_of(each) for each in (*records_of(family.element, records), *family.members('enum', 'typedef', 'function', 'variable'))]
    return list(dict.fromkeys(name for name in found if not name.endswith('>')))


def names_of_members(family, records):
    for record in records_of(family.element, records):
        for member in members(record):
            name = member.findtext('name')
            if member.get('kind') in ('function', 'typedef') and re.fullmatch(r'\w+', name) and not name_of(record).endswith(('::' + name, '>')):
                yield name_of(member)


def write_family(family, families, records, header_text):
    page = Page(family.name, 3)
    page.section_heading('NAME')
    names = [family.name, *names_of(family, records)]
    for number, name in enumerate(names, 1):
        page.lines.append(f'.Nm {name}' + (' ,' if number < len(names) else ''))
    page.macro('Nd', headers.in_a_sentence(family.title))
    page.section_heading('SYNOPSIS')
    page.macro('In', family.header)
    inside = list(records_of(family.element, records))
    functions = family.members('typedef', 'variable', 'function')
    lines = [f'{enumeration_line(member, name_of(member))};' for member in family.members('enum')]
    lines += [line for member in functions for line in wrapped(declaration(member), '')]
    for text in (['\n'.join(lines)] if lines else []) + [class_declaration(record) for record in inside]:
        page.literal(text)
    page.section_heading('DESCRIPTION')
    write_blocks(page, family.element.find('briefdescription'))
    write_blocks(page, family.element.find('detaileddescription'))
    for member in family.members('enum'):
        write_enumeration(page, member)
    for record in inside:
        write_class(page, record)
    for name, alike in itertools.groupby(functions, name_of):
        page.subsection(name)
        write_functions(page, list(alike))
    headers.write_notes(page, family, header_text)
    mentioned = {ref.get('refid') for element in (family.element, *inside) for ref in element.iterfind('.//type/ref')}
    headers.write_see_also(page, family, families, mentioned, ('kvo_cpp_result', 3))
    return page


def faults(folder, families, records):
    """Classes without a comment, which Doxygen does not report; and public names that no page describes, because they are in no group."""
    for record in records.values():
        if not headers.is_described(record):
            yield f"{record.findtext('compoundname')} ({record.get('kind')}) is not documented."
    namespace = headers.read_compound(folder, 'namespacekvo')
    grouped = {inner.get('refid') for family in families for inner in family.element.iterfind('innerclass')}
    for inner in namespace.iterfind('innerclass'):
        if inner.get('refid') not in grouped:
            yield f'{inner.text} is not in a group (@defgroup), so it has no manual page.'
    for member in namespace.iter('memberdef'):
        if not member.get('id').startswith('group'):
            yield f'{name_of(member)} is not in a group (@defgroup), so it has no manual page.'


def family_pages(folder, families, records):
    """The pages of the C++ interface, and the names that link to each of them: kvo::Station, kvo::Station::mcp_address."""
    pages = [write_family(family, families, records, headers.read_file(folder, family.header)) for family in families]
    links = {name: family.name for family in families for name in (*names_of(family, records), *names_of_members(family, records))}
    return pages, links
