#!/usr/bin/env python3
"""Writes the packages' changelog, and with it their version, from CHANGELOG.md and the version in version.h."""
import argparse
import datetime
import email.utils
import re
import sys
import textwrap
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
MAINTAINER = re.search(r'^Maintainer: (.*)$', (ROOT / 'packaging/debian/control').read_text(), re.M)[1]


def project_version():
    return re.search(r'^#define KVO_HWS_VERSION_STRING "(\S+)"', (ROOT / 'include/kvo_hws/version.h').read_text(), re.M)[1]


def sections():
    """(name, date or None, lines) of each version, newest first."""
    parts = re.split(r'^## \[(.*?)\](?: - (\d{4}-\d\d-\d\d))?\n', (ROOT / 'CHANGELOG.md').read_text(), flags=re.M)[1:]
    return [(name, date, text.strip().splitlines()) for name, date, text in zip(parts[::3], parts[1::3], parts[2::3])]


def package_version(version, day, history):
    """A release has only its version. A package built later sorts after the release, one built earlier sorts before it."""
    if not any(name == version for name, date, _ in history if date):
        return f'{version}~{day:%Y%m%d}'
    unreleased = any(lines for name, _, lines in history if name == 'Unreleased')
    return f'{version}+{day:%Y%m%d}' if unreleased else version


def changes(lines):
    """The entries of a version, with headings such as "Added"; no line is longer than 80 characters."""
    text = '\n'.join(lines)
    for kind in re.split(r'^### ', text, flags=re.M)[1:]:
        title, _, points = kind.partition('\n')
        yield f'  [ {title.strip()} ]'
        for point in re.split(r'^- ', points, flags=re.M)[1:]:
            yield from textwrap.wrap(' '.join(point.split()), 78, initial_indent='  * ', subsequent_indent='    ',
                                     break_long_words=False, break_on_hyphens=False)


def entries(day):
    first = True
    for name, date, lines in sections():
        if not lines:
            continue
        moment = day if first else datetime.datetime.fromisoformat(date).replace(tzinfo=datetime.timezone.utc)
        version = package_version(project_version(), day, sections()) if first else name
        points = '\n'.join(changes(lines))
        yield f'kvo-hws ({version}) bookworm; urgency=medium\n\n{points}\n\n -- {MAINTAINER}  {email.utils.format_datetime(moment)}\n'
        first = False


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('--date', type=int, required=True, help='the date of the newest entry, in seconds since 1970')
    options = parser.parse_args()
    day = datetime.datetime.fromtimestamp(options.date, datetime.timezone.utc)
    sys.stdout.write('\n'.join(entries(day)))


if __name__ == '__main__':
    main()
