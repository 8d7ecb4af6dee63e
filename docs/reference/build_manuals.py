#!/usr/bin/env python3
"""Builds the reference (HTML) and the manual pages from the public headers, docs/ and the tools' own description of their commands."""
import argparse
import os
import shutil
import subprocess
import sys
from pathlib import Path

sys.dont_write_bytecode = True  # keeps the source folder clean

import classes
import headers
from pages import Sources, read
from search import find_anywhere

ROOT = Path(__file__).resolve().parents[2]


def write_examples(file):
    """Writes a page for each example, introduced by its first comment."""
    blocks = []
    examples = ROOT / 'examples'
    for path in [*sorted(examples.glob('*.c*')), *sorted(examples.glob('*/*.[ch]pp'))]:
        first = path.read_text().split('\n')[0].removeprefix('//').removeprefix('/*').removesuffix('*/').strip()
        blocks.append(f'/** @example {path.relative_to(examples)}\n *  @details {first}\n */\n')
    file.write_text('\n'.join(blocks))


def link_list_of_families(html):
    """Corrects the link of mainpage.md: up to 1.9.4 Doxygen calls the page modules.html, later versions topics.html."""
    if not (html / 'modules.html').exists():
        index = html / 'index.html'
        index.write_text(index.read_text().replace('href="modules.html"', 'href="topics.html"'))


def build_reference(output, headers, version):
    """Runs Doxygen; returns False if it reports a problem, above all a public name without a comment."""
    for part in ('html', 'xml'):
        shutil.rmtree(output / part, ignore_errors=True)
    write_examples(output / 'examples.dox')
    variables = {'KVO_ROOT': ROOT, 'KVO_HEADERS': headers, 'KVO_OUTPUT': output, 'KVO_VERSION': version}
    environment = os.environ | {name: str(value) for name, value in variables.items()}
    whole = subprocess.run(['doxygen', ROOT / 'docs/reference/Doxyfile'], env=environment, check=False).returncode == 0
    find_anywhere(output / 'html/search')
    link_list_of_families(output / 'html')
    return whole


def write_pages(output, programs, version):
    """Writes the manual pages below man/; returns False if a name has no comment."""
    xml = output / 'xml'
    families, records = headers.read_families(xml), headers.read_records(xml)
    faults = [*headers.faults(families, records), *classes.faults(xml, families, records)]
    for fault in faults:
        print(fault, file=sys.stderr)
    pages, links = headers.family_pages(xml, [family for family in families if not family.of_classes], records)
    more_pages, more_links = classes.family_pages(xml, [family for family in families if family.of_classes], records)
    pages, links = pages + more_pages, links | more_links
    sources = Sources(programs, families, xml)
    pages += [read(file, sources) for file in sorted((ROOT / 'docs/reference/man').iterdir())]
    shutil.rmtree(output / 'man', ignore_errors=True)
    for page in pages:
        folder = output / f'man/man{page.section}'
        folder.mkdir(parents=True, exist_ok=True)
        (folder / f'{page.name}.{page.section}').write_text(page.text(version))
    for name, page in links.items():
        (output / f'man/man3/{name}.3').write_text(f'.so man3/{page}.3\n')
    return not faults


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('--output', type=Path, required=True, help='receives html/, xml/ and man/')
    parser.add_argument('--headers', type=Path, default=ROOT / 'include/kvo_hws', help='the public headers')
    parser.add_argument('--kvoctl', type=Path, help='the program, which describes its commands; without it no manual pages are built')
    parser.add_argument('--kvosim', type=Path, help='the same')
    parser.add_argument('--version', required=True, help='the version that the pages name')
    return parser.parse_args()


def main():
    options = arguments()
    output = options.output.resolve()
    output.mkdir(parents=True, exist_ok=True)
    whole = build_reference(output, options.headers.resolve(), options.version)
    programs = {'kvoctl': options.kvoctl, 'kvosim': options.kvosim}
    if all(programs.values()):
        whole = write_pages(output, programs, options.version) and whole
    if not whole:
        sys.exit('build_manuals.py: comments are missing or wrong, see above')


if __name__ == '__main__':
    main()
