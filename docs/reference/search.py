"""Lets the reference's search find what is typed anywhere in a name. Doxygen's own finds names by how they begin, and nearly all of
the library's begin with KVO_HWS_."""
import re

# What search.js has, and what it has instead.
ONE_FILE_FOR_ALL_LETTERS = ('indexSectionsWithContent[this.searchIndex].indexOf(idxChar)', '0')
ANYWHERE = ('rowMatchName.substr(0, search.length)==search', 'rowMatchName.indexOf(search)!=-1')


def rows(file):
    """The names of an index, one a line."""
    return [line.rstrip(',\n') for line in file.read_text().split('\n') if line.startswith("  ['")]


def words(row):
    """What is compared with what is typed."""
    return row.partition("',")[0].removeprefix("  ['").rpartition('_')[0]


def places(row):
    """Where a row leads."""
    return re.findall(r"'(\.\./[^']*)'", row)


def without_parts(found):
    """The rows without those that are a part of others: Doxygen 1.9.8 and later have one for each word of a heading, with the words after
    it, and the heading as a whole has all of them."""
    known = {}
    for row in found:
        for place in places(row):
            known.setdefault(place, set()).add(words(row))
    return [row for row in found if any(all(words(row) == whole or words(row) not in whole for whole in known[place]) for place in places(row))]


def order(file):
    return int(file.stem.rpartition('_')[2], 16)


def find_anywhere(folder):
    """@p folder has the search of a reference that was just built: an index for each kind of name and each first letter."""
    program = folder / 'search.js'
    text = program.read_text()
    for doxygens, ours in (ONE_FILE_FOR_ALL_LETTERS, ANYWHERE):
        if text.count(doxygens) != 1:
            raise SystemExit(f'search.py: {program} is not as it was written for: where is {doxygens}?')
        text = text.replace(doxygens, ours)
    program.write_text(text)
    kinds = re.findall(r'^  \d+: "(\w+)",?$', (folder / 'searchdata.js').read_text().partition('indexSectionNames')[2]
                       .partition('};')[0], re.M)
    for kind in kinds:
        files = sorted(folder.glob(f'{kind}_*.js'), key=order)
        names = ',\n'.join(without_parts([row for file in files for row in rows(file)]))
        files[0].write_text(f'var searchData=\n[\n{names}\n];\n')
        for file in files[1:]:
            file.unlink()
            file.with_suffix('.html').unlink(missing_ok=True)  # later versions have none
