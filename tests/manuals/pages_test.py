#!/usr/bin/env python3
"""The manual pages are complete: mandoc reports nothing, each name of the library has a page, and each command and key is described.
Usage: pages_test.py PROJECT FOLDER KVOCTL KVOSIM."""
import json
import re
import subprocess
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / 'docs/reference'))
from headers import TOO_COMMON  # noqa: E402 (in another folder)


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def shown(page):
    """The formatted page as one line."""
    text = output_of('mandoc', '-Tutf8', '-Owidth=900', page)
    return ' '.join(re.sub('.\b', '', text).split())


def lint(pages):
    """Fails for any message of mandoc, including style, except for references to pages that are not installed on this machine."""
    run = subprocess.run(['mandoc', '-Tlint', '-Wstyle', *pages], stdout=subprocess.PIPE, text=True, check=False)
    remarks = [line for line in run.stdout.splitlines() if 'referenced manual not found' not in line]
    assert not remarks, '\n'.join(remarks)


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
    headers = ''.join(header.read_text() for header in (project / 'include/kvo_hws').glob('*.h'))
    inline = re.findall(r'^static inline .*?(\w+)\(', headers, re.M)
    assert inline, 'no inline function in the headers'
    families = {page: re.findall(r'^\.Nm (\w+)', page.read_text(), re.M) for page in folder.glob('kvo_hws*.3')
                if not page.read_text().startswith('.so')}
    for name in exported + inline:
        homes = [page.name for page, names in families.items() if name in names]
        assert len(homes) == 1, f'{name} is described in {homes or "no page"}'
        link = folder / f'{name}.3'
        if name in TOO_COMMON:
            assert not link.exists(), f'{link} has a name that other software uses too'
        else:
            assert link.read_text() == f'.so man3/{homes[0]}\n', f'{link} leads to another page'
    page = shown(folder / 'kvo_hws_panel.3')
    assert 'setBacklightBrightnessV2=<level> <mode> <station>' in page and '-6 its backlight is not active' in page
    return len(exported + inline)


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
    recording = shown(folder / 'man5/kvo-recording.5')
    for text in ('start time', 'offset ask number', '\\n, \\r, \\t', 'removeUSBdevice*192.0.2.1*text1xxxxxx*1-1.2*\\n'):
        assert text in recording, f'kvo-recording(5) lacks {text}'
    print(f'{len(pages)} pages, {names} names of the library')


if __name__ == '__main__':
    main(*sys.argv[1:])
