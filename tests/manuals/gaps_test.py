#!/usr/bin/env python3
"""The build of the manuals reports and refuses each public name without a comment: function, variable, type, member, enumerator,
macro. Usage: gaps_test.py PROJECT FOLDER KVOCTL KVOSIM."""
import re
import shutil
import subprocess
import sys
from pathlib import Path

GAPS = '''
KVO_HWS_API int undocumentedFunction(int value) KVO_HWS_NOEXCEPT;
extern KVO_HWS_API int undocumentedVariable;
typedef int UndocumentedType;
#define UNDOCUMENTED_MACRO 1
/** A record. */
typedef struct Documented {
    int undocumentedMember;
} Documented;
/** Kinds. */
enum Kinds { UNDOCUMENTED_KIND = 1 };
'''
NAMES = ['undocumentedFunction', 'undocumentedVariable', 'UndocumentedType', 'UNDOCUMENTED_MACRO', 'undocumentedMember',
         'UNDOCUMENTED_KIND']


def build(project, folder, *tools):
    """Builds the manuals with the undocumented names in a header, which must fail. Returns the error output."""
    shutil.rmtree(folder, ignore_errors=True)
    headers = folder / 'include/kvo_hws'
    shutil.copytree(project / 'include/kvo_hws', headers)
    header = headers / 'usbevents.h'
    header.write_text(header.read_text().replace('/** @} */\n\nKVO_HWS_END_DECLS', f'{GAPS}\n/** @}} */\n\nKVO_HWS_END_DECLS'))
    assert GAPS in header.read_text()
    run = subprocess.run([sys.executable, project / 'docs/reference/build_manuals.py', '--version', '0', '--headers', headers,
                          '--output', folder / 'output', *tools], stderr=subprocess.PIPE, text=True, check=False)
    assert run.returncode != 0, 'the build succeeds'
    return run.stderr


def main(project, folder, kvoctl, kvosim):
    complaints = build(Path(project), Path(folder), '--kvoctl', kvoctl, '--kvosim', kvosim)
    for name in NAMES:
        assert re.search(rf'{name}\b.* is not documented', complaints), f'{name} is not reported in:\n{complaints}'
    print(f'{len(NAMES)} names without a comment, all refused')


if __name__ == '__main__':
    main(*sys.argv[1:])
