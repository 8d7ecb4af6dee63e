"""Makes the reference's search match anywhere in a name. Doxygen's own search matches only the start of a name, and almost all
names of the library start with KVO_HWS_."""
import re

# Code of search.js and its replacement.
ONE_FILE_FOR_ALL_LETTERS = ('indexSectionsWithContent[this.searchIndex].indexOf(idxChar)', '0')
ANYWHERE = ('rowMatchName.substr(0, search.length)==search', 'rowMatchName.indexOf(search)!=-1')


def rows(file):
    """The rows of an index, one per name."""
    return [line.rstrip(',\n') for line in file.read_text().split('\n') if line.startswith("  ['")]


def words(row):
    """The text that the search compares with the input."""
    return row.partition("',")[0].removeprefix("  ['").rpartition('_')[0]


def places(row):
    """The targets of a row."""
    return re.findall(r"'(\.\./[^']*)'", row)


def without_parts(found):
    """Removes rows that are a part of other rows. Doxygen 1.9.8 and later have a row for each word of a heading, with the words after
    it, and the row of the whole heading contains all of them."""
    known = {}
    for row in found:
        for place in places(row):
            known.setdefault(place, set()).add(words(row))
    return [row for row in found if any(all(words(row) == whole or words(row) not in whole for whole in known[place]) for place in places(row))]


def order(file):
    return int(file.stem.rpartition('_')[2], 16)


def find_anywhere(folder):
    """Changes the search in @p folder. Doxygen writes an index for each kind of name and each first letter."""
    program = folder / 'search.js'
    text = program.read_text()
    for doxygens, ours in (ONE_FILE_FOR_ALL_LETTERS, ANYWHERE):
        if text.count(doxygens) != 1:
            raise SystemExit(f'search.py: {program} does not contain {doxygens} exactly once; this version of Doxygen is not supported')
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
            file.with_suffix('.html').unlink(missing_ok=True)  # later versions do not write it
