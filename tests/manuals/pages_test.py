#!/usr/bin/env python3
"""The manual pages are complete: mandoc reports nothing, each name of the library has a page, and each command and key is described.
Usage: pages_test.py PROJECT FOLDER KVOCTL KVOSIM."""
import json
import re
import shutil
import subprocess
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / 'docs/reference'))
from filter import as_used  # noqa: E402 (in another folder)
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
    families = {page: re.findall(r'^\.Nm ([\w:]+)', page.read_text(), re.M) for page in folder.glob('kvo_hws*.3')
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


def classes_and_members(project):
    """The classes and enumerations of the headers, and the members of classes that are functions: kvo::Address, kvo::Address::parse."""
    for header in sorted((project / 'include/kvo_hws').glob('*.hpp')):
        text = re.sub(r'/\*\* @cond internal \*/.*?/\*\* @endcond \*/', '', as_used(header.read_text()), flags=re.S)
        for kind, name, body in re.findall(r'^(class|struct|enum class) (?:\[\[nodiscard\]\] )?(\w+)\b(?! *[<;])(.*?)^};', text, re.M | re.S):
            yield f'kvo::{name}'
            public = body.partition('\nprivate:\n')[0] if kind == 'class' else ''
            for member in re.findall(r'^    (?:\[\[nodiscard\]\] )?(?! |friend|explicit)[\w:<> ]+ [&*]*(\w+)\(', public, re.M):
                if member != name:
                    yield f'kvo::{name}::{member}'


def check_classes(project, folder):
    """Each name of the C++ interface leads to the page of its group, which has the name. The page of a member is found by a link."""
    names = sorted(set(classes_and_members(project)))
    assert {'kvo::Address', 'kvo::Address::parse', 'kvo::Errc', 'kvo::Result'} <= set(names), names
    for name in names:
        page = folder / (folder / f'{name}.3').read_text().removeprefix('.so man3/').strip()
        # A member is declared in its class and has its own heading.
        wanted = f'.Ss {name.removeprefix("kvo::")}\n' if name.count('::') == 2 else f'.Nm {name}'
        assert wanted in page.read_text(), f'{page} lacks {name}'
    page = shown(folder / 'kvo_cpp_address.3')
    assert 'static Result<Address> parse(std::string_view text) noexcept;' in page and 'Errc::invalid_address' in page
    assert 'number_' not in page and 'not_an_address' not in page, 'a private name has a description'
    page = shown(folder / 'kvo_cpp_usb_events.3')
    assert 'static Result<UsbEvents> activate(Handler handler);' in page and 'template' not in page, 'not as programs use it'
    page = shown(folder / 'kvo_hws.3')
    assert 'kvo_cpp_result(3) Results and errors in C++. In <kvo_hws/result.hpp>.' in page
    return len(names)


def check_width(pages):
    """No line of a synopsis of C++ is wider than a terminal of 80 columns."""
    for page in pages:
        if page.name.startswith('kvo_cpp_'):
            text = re.sub('.\b', '', output_of('mandoc', '-Tutf8', '-Owidth=78', page))
            synopsis, found, _ = text.partition('\nDESCRIPTION\n')
            assert found, f'{page.name} has no description'
            wide = [line for line in synopsis.splitlines() if len(line) > 80]
            assert not wide, f'{page.name} is wider than 80 columns:\n' + '\n'.join(wide)


def check_search(folder):
    """man(1) of man-db finds names with colons."""
    for name in ('kvo::Address', 'kvo::Address::parse'):
        text = output_of('man', '-M', folder, '--pager=cat', '3', name)
        assert 'addresses in C++' in ' '.join(re.sub('.\b', '', text).split()), f'man {name} shows {text[:200]}'


def main(project, folder, kvoctl, kvosim):
    project, folder = Path(project), Path(folder)
    pages = [page for page in folder.glob('man*/*') if not page.read_text().startswith('.so')]
    lint(pages)
    check_width(pages)
    names = check_library(project, folder / 'man3')
    classes = check_classes(project, folder / 'man3')
    if shutil.which('man'):
        check_search(folder)
    else:
        print('man is not installed; whether it finds the names of the C++ interface was not checked')
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
    print(f'{len(pages)} pages, {names} names of the library, {classes} of the C++ interface')


if __name__ == '__main__':
    main(*sys.argv[1:])
