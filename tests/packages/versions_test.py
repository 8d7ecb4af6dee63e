#!/usr/bin/env python3
"""Everything that reports a version reports the one of version.h, which is the first argument."""
import argparse
import datetime
import re
import runpy
import subprocess
import sys
import types
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
KINDS = ('Added', 'Changed', 'Deprecated', 'Removed', 'Fixed', 'Security')
DAY = datetime.datetime(2026, 11, 21, tzinfo=datetime.timezone.utc)
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / 'packaging'))
import changelog  # noqa: E402 (in another folder)


def found(file, pattern):
    match = re.search(pattern, Path(file).read_text(), re.M)
    return match[1] if match else None


def python_version():
    """The version that setup.py passes to setuptools, which need not be installed here."""
    passed = {}
    sys.modules['setuptools'] = types.SimpleNamespace(setup=lambda **arguments: passed.update(arguments))
    runpy.run_path(str(ROOT / 'python/setup.py'))
    return passed.get('version')


def versions(options):
    """(source, version) for everything that reports a version."""
    yield 'the packages', changelog.project_version()
    # The file's first number is the SONAME's; its second combines the version's first and second (cmake/Version.cmake).
    second, third = Path(options.library).resolve().name.removeprefix('libkvo_hws.so.0.').split('.')
    yield 'the library\'s file', f'{int(second) // 1000}.{int(second) % 1000}.{third}'
    yield 'pkg-config', found(options.pkg_config, r'^Version: (.*)$')
    yield 'the CMake package', found(options.cmake, r'^set\(PACKAGE_VERSION "(.*)"\)$')
    yield 'the Python module', python_version()
    for program in options.program:
        output = subprocess.run([program, '--version'], capture_output=True, text=True, check=True).stdout
        yield program, output.split()[1]
    for page in sorted(options.manuals.glob('man[15]/*')):
        yield page.name, found(page, r'^\.Os "libkvo_hws (\S+)"$')


def changelog_faults(version):
    """The newest release of CHANGELOG.md is this version or an earlier one, and the packages' version belongs to it."""
    released = [name for name, date, _ in changelog.sections() if date]
    as_numbers = [tuple(int(number) for number in name.split('.')) for name in released]
    if as_numbers != sorted(as_numbers, reverse=True):
        yield f'CHANGELOG.md: the releases are not in order: {released}'
    if as_numbers and as_numbers[0] > tuple(int(number) for number in version.split('.')):
        yield f'CHANGELOG.md: {released[0]} is released, but version.h still has {version}'
    package = changelog.package_version(version, DAY, changelog.sections())
    if re.split('[~+]', package)[0] != version:
        yield f'the packages would have the version {package}'
    top = next(changelog.entries(DAY)).split('\n')[0]
    if f'({package})' not in top:
        yield f'the packages\' changelog starts with {top}'


def form_faults():
    """CHANGELOG.md has the form that it claims, so that no change is read as part of another version."""
    text = (ROOT / 'CHANGELOG.md').read_text()
    headings = re.findall(r'^## .*$', text, re.M)
    if headings[:1] != ['## [Unreleased]']:
        yield 'CHANGELOG.md: the first version is not "## [Unreleased]"'
    for heading in headings[1:]:
        if not re.fullmatch(r'## \[\d+\.\d+\.\d+\] - \d{4}-\d\d-\d\d', heading):
            yield f'CHANGELOG.md: "{heading}" is not a version with a date'
    for kind in re.findall(r'^### (.*)$', text, re.M):
        if kind not in KINDS:
            yield f'CHANGELOG.md: "{kind}" is not one of {KINDS}'
    days = [date for _, date, _ in changelog.sections() if date]
    if days != sorted(days, reverse=True):
        yield f'CHANGELOG.md: the dates are not in order: {days}'


def package_version_faults():
    """Before, at and after a release."""
    released = ('0.2.0', '2026-11-20', ['### Added'])
    for history, expected in (
        ([('Unreleased', None, ['### Added'])], '0.2.0~20261121'),
        ([('Unreleased', None, []), released], '0.2.0'),
        ([('Unreleased', None, ['### Fixed']), released], '0.2.0+20261121'),
    ):
        package = changelog.package_version('0.2.0', DAY, history)
        if package != expected:
            yield f'the packages would have the version {package}, not {expected}'


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('version')
    parser.add_argument('--library', required=True)
    parser.add_argument('--pkg-config', required=True)
    parser.add_argument('--cmake', required=True)
    parser.add_argument('--manuals', type=Path, required=True)
    parser.add_argument('--program', action='append', default=[])
    options = parser.parse_args()
    reported = list(versions(options))
    faults = [f'{source} has the version {version}, not {options.version}' for source, version in reported if version != options.version]
    faults += [*changelog_faults(options.version), *form_faults(), *package_version_faults()]
    if not options.manuals.is_dir():
        print('the manual pages are not built here and not compared')
    print(f'{len(reported)} versions compared')
    sys.exit('\n'.join(faults) or 0)


if __name__ == '__main__':
    main()
