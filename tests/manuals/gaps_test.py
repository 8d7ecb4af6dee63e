#!/usr/bin/env python3
"""The build of the manuals reports and refuses each public name without a comment: function, variable, type, member, enumerator,
macro, class; and each name of the C++ interface that would have no manual page. Usage: gaps_test.py PROJECT FOLDER KVOCTL KVOSIM."""
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
CPP_GAPS = '''
#define UNDOCUMENTED_CPP_MACRO 1
inline void undocumented_function() {}
class UndocumentedClass {};
enum class UndocumentedEnum {};
using UndocumentedAlias = int;
/** A class. */
class DocumentedClass {
public:
    DocumentedClass(int undocumented_constructor);
    void undocumented_method();
    void deleted_method() = delete;
    static void undocumented_static();
    /** Kinds. */
    enum class Kinds { undocumented_kind };
    friend bool operator==(DocumentedClass a, DocumentedClass b);
    using undocumented_type = int;

private:
    void private_method();
    struct PrivateRecord {
        int private_member;
    };
};
/** A record. */
struct DocumentedRecord {
    int undocumented_value;
};
/** @} */

class UndocumentedUngrouped {};
class WithMembers {
public:
    /** A method. */
    void documented();
};
/** A class in no group. */
class UngroupedClass {};
/** A function in no group. */
inline void ungrouped_function() {}
'''
CPP_NAMES = ['undocumented_function', 'UndocumentedClass', 'UndocumentedUngrouped', 'WithMembers', 'UndocumentedEnum', 'UndocumentedAlias', 'undocumented_constructor',
             'undocumented_method', 'undocumented_static', 'undocumented_kind', 'operator==', 'undocumented_type', 'undocumented_value',
             'UNDOCUMENTED_CPP_MACRO']
UNGROUPED = ['kvo::UngroupedClass', 'kvo::ungrouped_function']


def insert(header, place, gaps):
    text = header.read_text()
    assert text.count(place) == 1, f'{header} does not contain {place!r} once'
    header.write_text(text.replace(place, gaps))


def build(project, folder, *tools):
    """Builds the manuals with the undocumented names in a header, which must fail. Returns the error output."""
    shutil.rmtree(folder, ignore_errors=True)
    headers = folder / 'include/kvo_hws'
    shutil.copytree(project / 'include/kvo_hws', headers)
    end = '\n/** @} */\n\nKVO_HWS_END_DECLS'
    insert(headers / 'usbevents.h', end, GAPS + end)
    end = '\n}  // namespace kvo\n'
    insert(headers / 'address.hpp', '\n/** @} */\n' + end, CPP_GAPS + end)
    run = subprocess.run([sys.executable, project / 'docs/reference/build_manuals.py', '--version', '0', '--headers', headers,
                          '--output', folder / 'output', *tools], stderr=subprocess.PIPE, text=True, check=False)
    assert run.returncode != 0, 'the build succeeds'
    return run.stderr


def main(project, folder, kvoctl, kvosim):
    complaints = build(Path(project), Path(folder), '--kvoctl', kvoctl, '--kvosim', kvosim)
    for name in NAMES + CPP_NAMES:
        assert re.search(rf'{re.escape(name)}(?!\w).* is not documented', complaints), f'{name} is not reported in:\n{complaints}'
    for name in UNGROUPED:
        assert f'{name} is not in a group' in complaints, f'{name} is not reported in:\n{complaints}'
    for name in ('rivate', 'detail', 'deleted_method'):
        assert name not in complaints, f'{name} is reported in:\n{complaints}'
    print(f'{len(NAMES + CPP_NAMES)} names without a comment and {len(UNGROUPED)} without a page, all refused')


if __name__ == '__main__':
    main(*sys.argv[1:])
