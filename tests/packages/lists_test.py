#!/usr/bin/env python3
"""Each file that "cmake --install" installs is in the list of exactly one package; each package has a list; the symbols file has the
names of exports.map."""
import argparse
import fnmatch
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DEBIAN = ROOT / 'packaging/debian'
OF_PYTHON = 'usr/lib/python3'  # installed by the Python build


def packages():
    return re.findall(r'^Package: (\S+)$', (DEBIAN / 'control').read_text(), re.M)


def install_lists():
    """(package, pattern of installed files) of all packages, without files taken from the source tree."""
    for file in sorted(DEBIAN.glob('*.install')):
        for line in file.read_text().splitlines():
            pattern = line.split()[0]
            if pattern.startswith('usr/'):
                yield file.stem, pattern


def installed(options):
    """The files with the paths that the packages' build uses."""
    with tempfile.TemporaryDirectory() as prefix:
        subprocess.run([options.cmake, '--install', options.build, '--prefix', prefix], check=True, stdout=subprocess.DEVNULL)
        files = [str(path.relative_to(prefix)) for path in Path(prefix).rglob('*') if not path.is_dir()]
    for name in sorted(files):
        for here, there in options.moved:
            if name.startswith(here + '/'):
                name = there + name.removeprefix(here)
                break
        yield 'usr/' + name


def in_list(name, pattern):
    return fnmatch.fnmatch(name, pattern) or fnmatch.fnmatch(name, pattern + '/*')


def list_faults(options):
    lists = list(install_lists())
    names = list(installed(options))
    for name in names:
        owners = sorted({package for package, pattern in lists if in_list(name, pattern)})
        if len(owners) != 1:
            yield f'{name} is in {owners or "no package"}'
    for package, pattern in lists:
        manuals = pattern.startswith(('usr/share/man', 'usr/share/doc'))  # not built in every build folder
        if not manuals and not pattern.startswith(OF_PYTHON) and not any(in_list(name, pattern) for name in names):
            yield f'{package} lists {pattern}, which is not installed'
    print(f'{len(names)} installed files compared with {len(lists)} patterns')


def package_faults():
    named = packages()
    for name in named:
        if not (DEBIAN / f'{name}.install').exists():
            yield f'{name} has no list of files'
    for file in DEBIAN.glob('*.*'):
        owner = file.name.partition('.')[0]
        if owner not in named:
            yield f'{file.name} belongs to no package in control'
    for file in DEBIAN.glob('*.install'):
        for line in file.read_text().splitlines():
            source = line.split()[0]
            if not source.startswith('usr/') and not any(ROOT.glob(source)):
                yield f'{file.name}: {source} does not exist'


def write_symbols(exported):
    """Adds new exported names with the next version; listed names keep the version that introduced them."""
    file = DEBIAN / 'libkvo-hws0.symbols'
    version = re.search(r'KVO_HWS_VERSION_STRING "(\S+)"', (ROOT / 'include/kvo_hws/version.h').read_text())[1]
    head = [line for line in file.read_text().splitlines() if not line.startswith(' ')]
    listed = {line.split('@')[0].strip(): line for line in file.read_text().splitlines() if line.startswith(' ')}
    rows = [listed.get(name, f' {name}@Base {version}') for name in sorted(exported)]
    file.write_text('\n'.join(head + rows) + '\n')


def symbol_faults():
    exported = set(re.findall(r'^ +(\w+);', (ROOT / 'library/exports.map').read_text(), re.M))
    if os.environ.get('KVO_WRITE_SYMBOLS'):
        write_symbols(exported)
    listed = set(re.findall(r'^ (\w+)@Base ', (DEBIAN / 'libkvo-hws0.symbols').read_text(), re.M))
    for name in sorted(exported - listed):
        yield f'{name} is exported but not in libkvo-hws0.symbols'
    for name in sorted(listed - exported):
        yield f'{name} is in libkvo-hws0.symbols but not exported'


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('--build', required=True)
    parser.add_argument('--cmake', required=True)
    parser.add_argument('--moved', nargs=2, action='append', default=[], metavar=('HERE', 'THERE'),
                        help='a folder that the packages\' build installs elsewhere')
    options = parser.parse_args()
    sys.exit('\n'.join([*package_faults(), *symbol_faults(), *list_faults(options)]) or 0)


if __name__ == '__main__':
    main()
