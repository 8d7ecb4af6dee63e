"""The commands and options of a tool for its manual page, as the tool describes them itself."""
import json
import re
import subprocess

from mdoc import Span, plain


PARSERS_OWN_GROUP = 'Subcommands'


def read(program):
    return json.loads(subprocess.run([program, 'complete', '--structure'], stdout=subprocess.PIPE, check=True).stdout)


def own_options(command):
    return [option for option in command['options'] if '--help' not in option['names'] and not option['positional']]


def synopsis(command):
    """The arguments after the command's words."""
    words = ['[OPTION...]'] if own_options(command) else []
    for option in command['options']:
        if option['positional']:
            name = option['names'][0] + ('...' if option['several'] else '')
            words.append(name if option['required'] else f'[{name}]')
    return ' '.join(words)


def value_of(option):
    if not option['value']:
        return ''
    name = option['type'] if option['type'] and option['type'].isupper() else 'VALUE'
    return ' ' + {'UINT': 'N', 'INT': 'N'}.get(name, name) + ('...' if option['several'] else '')


def write_options(page, options):
    items = []
    for option in options:
        font = 'I' if option['positional'] else 'B'
        tag = [Span(', '.join(option['names']), font), Span(value_of(option) if not option['positional'] else '', 'I')]
        needed = ' Must be given.' if option['required'] and not option['positional'] else ''
        meaning = option['meaning'].rstrip('.') + '.' + needed
        items.append((tag, lambda meaning=meaning: page.paragraph(plain(meaning))))
    if items:
        page.tagged(items)


def write_footer(page, footer):
    """Writes paragraphs unchanged, and indented lines such as examples as listings."""
    for part in re.split(r'\n\s*\n', footer.strip('\n')):
        lines = [line for line in part.split('\n') if line != 'Examples:' and not line.startswith('"kv')]
        if lines and lines[0].startswith('  '):
            page.literal('\n'.join(line.removeprefix('  ') for line in lines))
        elif lines:
            page.paragraph(plain(' '.join(lines)))


def write_command(page, command, words, described, of_family=''):
    """Writes a command. The text below the help of a whole family is written once, before its commands."""
    words = [*words, command['name']]
    if command['commands']:
        write_footer(page, command['footer'])
        for inner in command['commands']:
            write_command(page, inner, words, described, command['footer'])
        return
    arguments = synopsis(command)

    def write():
        page.paragraph(plain(command['meaning'].rstrip('.') + '.'))
        write_options(page, [option for option in command['options'] if '--help' not in option['names']
                             and not (option['required'] and option['names'][0] in described)])
        if command['footer'] != of_family:
            write_footer(page, command['footer'])
    page.tagged([([Span(' '.join(words), 'B'), Span((' ' + arguments) if arguments else '', 'I')], write)])


def write_commands(page, tool, described):
    """Writes the commands in the order of the tool's help; a family or a heading of the help is a subsection. The page describes the
    arguments in @p described elsewhere."""
    subsections = {}
    for command in tool['commands']:
        alone = command['commands'] or command['group'] == PARSERS_OWN_GROUP
        heading = f"{tool['name']} {command['name']}" if alone else command['group']
        subsections.setdefault(heading, []).append(command)
    for heading, commands in subsections.items():
        page.subsection(heading)
        for command in commands:
            if command['commands']:
                page.paragraph(plain(command['meaning'].rstrip('.') + '.'))
            write_command(page, command, [tool['name']], described)


def write_global_options(page, tool):
    write_options(page, [option for option in tool['options'] if not option['positional']])
