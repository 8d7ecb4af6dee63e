#!/usr/bin/env python3
"""The manual pages are whole: mandoc finds no fault, each name of the library has its page, each command and key is there. Run as
pages_test.py PROJECT FOLDER KVOCTL KVOSIM."""
import json
import re
import subprocess
import sys
from pathlib import Path


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def shown(page):
    """A page as its reader sees it, in one line."""
    text = output_of('mandoc', '-Tutf8', '-Owidth=900', page)
    return ' '.join(re.sub('.\b', '', text).split())


def lint(pages):
    run = subprocess.run(['mandoc', '-Tlint', '-Wwarning', *pages], stdout=subprocess.PIPE, text=True, check=False)
    assert run.returncode == 0, run.stdout


def commands(command, words):
    words = [*words, command['name']]
    if not command['commands']:
        yield ' '.join(words), command
    for inner in command['commands']:
        yield from commands(inner, words)


def check_tool(program, page):
    text = shown(page)
    for words, command in commands(json.loads(output_of(program, 'complete', '--structure')), []):
        assert words in text, f'{page.name} lacks {words}'
        for option in command['options']:
            name = option['names'][-1]
            assert name == '--help' or name in text, f'{page.name} lacks {words} {name}'


def check_library(project, folder):
    exported = re.findall(r'^\s+(\w+);$', (project / 'library/exports.map').read_text(), re.M)
    families = {page: re.findall(r'^\.Nm (\w+)', page.read_text(), re.M) for page in folder.glob('kvo_hws*.3')
                if not page.read_text().startswith('.so')}
    for name in exported:
        homes = [page.name for page, names in families.items() if name in names]
        assert len(homes) == 1, f'{name} has its place in {homes or "no page"}'
        link = folder / f'{name}.3'
        if link.exists():
            assert link.read_text() == f'.so man3/{homes[0]}\n', f'{link} leads elsewhere'
    linked = [name for name in exported if name.startswith('KVO_HWS_')]
    assert len(linked) > 80 and all((folder / f'{name}.3').exists() for name in linked)
    page = shown(folder / 'kvo_hws_panel.3')
    assert 'setBacklightBrightnessV2=<level> <mode> <station>' in page and '-6 its backlight is not active' in page
    return len(exported)


def main(project, folder, kvoctl, kvosim):
    project, folder = Path(project), Path(folder)
    pages = [page for page in folder.glob('man*/*') if not page.read_text().startswith('.so')]
    lint(pages)
    names = check_library(project, folder / 'man3')
    check_tool(kvoctl, folder / 'man1/kvoctl.1')
    check_tool(kvosim, folder / 'man1/kvosim.1')
    plant = shown(folder / 'man5/kvo-plant.5')
    keys = [line.split('=')[0] for line in output_of(kvosim, 'complete', '--', 'station', 'x', '--set', '').splitlines()[1:]]
    assert len(keys) > 40 and all(f' {key}' in plant for key in keys), [key for key in keys if f' {key}' not in plant]
    configuration = shown(folder / 'man5/kvo_hws.conf.5')
    for key in ('InternalInterface', 'jdl_name', 'registry_path', 'backlight_brightness'):
        assert key in configuration, f'kvo_hws.conf(5) lacks {key}'
    print(f'{len(pages)} pages, {names} names of the library')


if __name__ == '__main__':
    main(*sys.argv[1:])
