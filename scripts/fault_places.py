"""Finds the places of C and C++ sources where a fault of one line can be planted.

A place changes one line in one way that depends on that line alone. So its name stays the same as long as the line keeps its number.
The sources are read as tokens and are not parsed: the compiler rejects changes that are not valid code.
"""

from __future__ import annotations

import dataclasses
import pathlib
import random
import re
from collections.abc import Iterable, Iterator

# The kinds and their weights in the random choice. A missing lock is rarely noticed by a test that runs once.
KINDS = {
    "relation": 4,   # a comparison off by one, or reversed
    "constant": 4,   # a number off by one, true for false
    "statement": 4,  # a call, assignment or count left out
    "return": 4,     # another value returned
    "text": 3,       # one character of a text changed
    "lock": 1,       # a guard left out
}
RELATIONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
SUFFIXES = (".c", ".cpp", ".h", ".hpp")

TOKEN = re.compile(r"""
    (?P<comment>//(?:\\\n|[^\n])*|/\*.*?\*/)
  | (?P<raw>\b(?:u8|[uUL])?R"(?P<mark>[^()\\\s]*)\(.*?\)(?P=mark)")
  | (?P<text>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
  | (?P<letter>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
  | (?P<number>(?:0[xX][0-9a-fA-F']+|\.?[0-9](?:'?[0-9.])*(?:[eE][-+]?[0-9]+)?)\w*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<sign><=>|->\*|<<=|>>=|\.\.\.|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|\[\[|\]\]|[^\s\w])
  | (?P<line>\n)
""", re.VERBOSE | re.DOTALL)

# First words of lines that only declare something or assert what is always true.
NOT_CODE = {"using", "namespace", "template", "extern", "static_assert", "_Static_assert", "typedef", "class", "struct", "union",
            "friend", "asm", "__asm__"}
# First words of statements that are not expressions.
NOT_EXPRESSIONS = NOT_CODE | {
    "return", "if", "else", "for", "while", "do", "switch", "case", "default", "break", "continue", "goto", "throw", "delete", "try",
    "catch", "const", "constexpr", "static", "auto", "enum", "virtual", "inline", "public", "private", "protected", "explicit",
    "operator", "co_return", "static_cast", "requires", "concept"}
# Tokens after the first name of an expression, but not of a declaration.
EXPRESSES = {"(", "[", ")", "=", "++", "--", "+=", "-=", "*=", "/=", "|=", "&=", "^=", "%=", "<<=", ">>=", "<<"}
GUARD = re.compile(r"(?:const\s+)?(?:\w+::)*(?:lock_guard|scoped_lock|unique_lock|shared_lock|NoCancellation|\w*Lock)(?:<[^;]*>)?"
                   r"\s+\w+(?:\(.*\)|\{.*\})?;")


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    line: int  # from 1
    start: int  # in its line, from 0
    end: int


@dataclasses.dataclass(frozen=True)
class Place:
    """A fault: its line before and after. The name is FILE:LINE:KIND, followed by .2 and so on for further faults of a line."""

    file: str
    line: int
    kind: str
    number: int
    before: str
    after: str

    @property
    def name(self) -> str:
        return f"{self.file}:{self.line}:{self.word}"

    @property
    def word(self) -> str:
        return self.kind if self.number == 1 else f"{self.kind}.{self.number}"

    def __str__(self) -> str:
        after = "(removed)" if self.kind in ("statement", "lock") else self.after.strip()
        return f"{self.file}:{self.line}: {self.word}: {self.before.strip()} -> {after}"


def tokens_of(source: str) -> Iterator[Token]:
    """The tokens without comments and preprocessor directives."""
    line, line_start, position = 1, 0, 0
    begins = True  # only spaces so far on this line
    while position < len(source):
        if begins and source[position] == "#":
            end = re.compile(r"(?:/\*.*?\*/|\\\n|[^\n])*", re.DOTALL).match(source, position)
            assert end is not None
            skipped, position = end.group(), end.end()
            line += skipped.count("\n")
            continue
        found = TOKEN.match(source, position)
        if found is None:
            position += 1  # a space
            continue
        kind, text = str(found.lastgroup if found.lastgroup != "mark" else "raw"), found.group()
        if kind == "line":
            begins = True
        elif kind != "comment":
            begins = False
            if "\n" not in text:
                yield Token(kind, text, line, position - line_start, found.end() - line_start)
            else:
                yield Token("raw", "", line, position - line_start, position - line_start)
        if "\n" in text:
            line += text.count("\n")
            line_start = position + text.rindex("\n") + 1
        position = found.end()


class Line:
    """The tokens of a line and their context."""

    def __init__(self, text: str, tokens: list[Token], before: Token | None):
        self.text = text
        self.tokens = tokens
        self.before = before  # the last token of the lines before it

    def replaced(self, start: int, end: int, by: str) -> str:
        return self.text[:start] + by + self.text[end:]

    def code(self) -> str:
        """The line without comment and indentation."""
        return self.text[self.tokens[0].start:self.tokens[-1].end]

    def is_whole_statement(self) -> bool:
        if self.tokens[-1].text != ";" or sum(token.text == ";" for token in self.tokens) != 1:
            return False
        if self.before is not None and self.before.text not in (";", "{", "}", ":", ")"):
            return False
        signs = [token.text for token in self.tokens]
        return all(signs.count(opening) == signs.count(closing) for opening, closing in (("(", ")"), ("{", "}"), ("[", "]")))


def is_relation(line: Line, token: Token) -> bool:
    """Whether this is a bracket of a template, which has no space on one side."""
    around = line.text[token.start - 1:token.start] + line.text[token.end:token.end + 1]
    return token.text in RELATIONS and not (token.text in ("<", ">") and around.strip())


def relations(line: Line) -> Iterator[str]:
    for index, token in enumerate(line.tokens):
        if is_relation(line, token) and (index == 0 or line.tokens[index - 1].text != "operator"):
            yield line.replaced(token.start, token.end, RELATIONS[token.text])


def changed_number(text: str) -> str | None:
    """The next number in the same notation; 0 for 1. None for floating point."""
    found = re.fullmatch(r"(?P<prefix>0[xX]|0(?=[0-7])|)(?P<digits>[0-9a-fA-F']+)(?P<suffix>(?:[uUlLzZ]|h|min|[mun]?s)*)", text)
    if found is None:
        return None
    prefix, digits = found["prefix"], found["digits"].replace("'", "")
    base, form = {"": (10, "d"), "0": (8, "o")}.get(prefix, (16, "X"))
    try:
        value = int(digits, base)
    except ValueError:
        return None
    changed = 1 - value if value < 2 else value + 1
    return f"{prefix}{changed:0{len(digits) if base == 16 else 1}{form}}{found['suffix']}"


def is_bound(line: Line, index: int) -> bool:
    """Whether a number is the size in the declaration of an array: char text[64]."""
    tokens = line.tokens
    return index >= 3 and tokens[index - 1].text == "[" and tokens[index - 2].kind == "word" and \
        (tokens[index - 3].kind == "word" or tokens[index - 3].text in ("*", "&", ">"))


def constants(line: Line) -> Iterator[str]:
    in_template = 0
    for index, token in enumerate(line.tokens):
        if token.text == "<" and line.text[token.start - 1:token.start].strip():
            in_template += 1
        elif token.text in (">", ">>") and in_template:
            in_template = max(0, in_template - len(token.text))
        if in_template:
            continue
        if token.text in ("true", "false"):
            yield line.replaced(token.start, token.end, "false" if token.text == "true" else "true")
        elif token.kind == "number" and not is_bound(line, index):
            changed = changed_number(token.text)
            if changed is not None:
                yield line.replaced(token.start, token.end, changed)


def statements(line: Line) -> Iterator[str]:
    first, tokens = line.tokens[0], line.tokens
    if not line.is_whole_statement() or first.text in NOT_EXPRESSIONS or line.code().endswith(("= delete;", "= default;")):
        return
    index = 0
    while tokens[index].text in ("*", "++", "--", "(", "::"):
        index += 1
    if tokens[index].kind != "word":
        return
    while index + 2 < len(tokens) and tokens[index + 1].text in (".", "->", "::") and tokens[index + 2].kind == "word":
        index += 2
    follows = tokens[index + 1].text
    if follows in EXPRESSES or (follows == ";" and first.text in ("++", "--")):
        yield line.replaced(first.start, tokens[-1].end, ";")


def returns(line: Line) -> Iterator[str]:
    tokens = line.tokens
    start = next((index for index, token in enumerate(tokens) if token.text == "return"), None)
    if start is None or tokens[-1].text not in (";", "}") or sum(token.text == "return" for token in tokens) != 1:
        return
    end = next((index for index in range(start, len(tokens)) if tokens[index].text == ";"), None)
    if end is None or end <= start + 1:
        return
    value = tokens[start + 1:end]
    text = line.text[value[0].start:value[-1].end]
    # Numbers and the like are faults of kind "constant" already, and *this has no replacement.
    if value[-1].kind in ("number", "raw") and len(value) < 3 or text in ("true", "false", "nullptr", "{}", "*this", '""'):
        return
    depth, top = 0, []
    for token in value:
        depth -= token.text in (")", "}", "]")
        if depth == 0:
            top.append(token)
        depth += token.text in ("(", "{", "[")
    question = next((token for token in top if token.text == "?"), None)
    if question is not None:
        condition = line.text[value[0].start:question.start].rstrip()
        changed = f"!({condition}) {line.text[question.start:value[-1].end]}"
    elif text.startswith("!") or any(is_relation(line, token) or token.text in ("&&", "||") for token in top):
        changed = f"!({text})"
    else:
        changed = "{}"
    yield line.replaced(value[0].start, value[-1].end, changed)


def locks(line: Line) -> Iterator[str]:
    if GUARD.fullmatch(line.code()):
        yield line.replaced(line.tokens[0].start, line.tokens[-1].end, ";")


# Parts of a text that are not plain characters: escapes, and printf's conversions, which the compiler checks.
NO_LETTER = re.compile(r"\\x[0-9a-fA-F]+|\\[0-7]{1,3}|\\.|%[-+ #0]*[0-9*]*(?:\.[0-9*]+)?(?:hh|h|ll|l|z|j|t)?[a-zA-Z%]")


def texts(line: Line) -> Iterator[str]:
    for token in line.tokens:
        if token.kind not in ("text", "letter"):
            continue
        taken = [range(found.start(), found.end()) for found in NO_LETTER.finditer(token.text)]
        quote = token.text.index(token.text[-1])  # after a prefix u8 or L
        letters = [place for place in range(quote + 1, len(token.text) - 1) if token.text[place].isascii()
                   and token.text[place].isalnum() and not any(place in span for span in taken)]
        if not letters:
            continue
        place = letters[len(letters) // 2]
        letter = token.text[place]
        other = {"z": "y", "Z": "Y", "9": "8", "f": "e", "F": "E"}.get(letter) or chr(ord(letter) + 1)
        yield line.replaced(token.start + place, token.start + place + 1, other)


FINDERS = {"relation": relations, "constant": constants, "statement": statements, "return": returns, "text": texts, "lock": locks}


def counting(tokens: Iterable[Token]) -> Iterator[tuple[Token, bool]]:
    """Each token, and whether it is code: not part of a declaration in NOT_CODE or of an attribute."""
    begins, skipping, attribute = True, False, 0
    in_list = False  # of __attribute__((...)), whose parentheses are counted
    for token in tokens:
        skipping = skipping or (begins and token.text in NOT_CODE)
        if token.text == "__attribute__":
            in_list = True
        attribute += token.text == "[[" or (in_list and token.text == "(")
        yield token, not (skipping or attribute or in_list)
        attribute -= token.text == "]]" and attribute > 0 or (in_list and token.text == ")")
        in_list = in_list and (attribute > 0 or token.text == "__attribute__")
        skipping = skipping and token.text not in (";", "{")
        begins = token.text in (";", "{", "}", ":")


def lines_of(source: str) -> Iterator[tuple[int, Line]]:
    """The lines that have code, by number."""
    texts_of_lines = source.split("\n")
    lines: dict[int, Line] = {}
    previous: Token | None = None
    last_line = 0
    for token, counts in counting(tokens_of(source)):
        if token.line != last_line:
            before, last_line = previous, token.line
        if counts:
            lines.setdefault(token.line, Line(texts_of_lines[token.line - 1], [], before)).tokens.append(token)
        previous = token
    yield from lines.items()


def places_in(file: str, source: str) -> Iterator[Place]:
    for number, line in lines_of(source):
        for kind, find in FINDERS.items():
            for count, after in enumerate(find(line), start=1):
                yield Place(file, number, kind, count, line.text, after)


def places_below(root: pathlib.Path, paths: Iterable[str]) -> list[Place]:
    """All places in these files and folders, ordered by file and line."""
    files: set[str] = set()
    for path in paths:
        found = [root / path] if (root / path).is_file() else (root / path).rglob("*")
        files.update(str(file.relative_to(root)) for file in found if file.suffix in SUFFIXES and file.is_file())
    return [place for file in sorted(files) for place in places_in(file, (root / file).read_text())]


def drawn(places: Iterable[Place], seed: int) -> Iterator[Place]:
    """All places in this seed's random order."""
    numbers = random.Random(seed)
    by_kind: dict[str, list[Place]] = {}
    for place in places:
        by_kind.setdefault(place.kind, []).append(place)
    kinds = sorted(by_kind)
    for kind in kinds:
        numbers.shuffle(by_kind[kind])
    while kinds:
        kind = numbers.choices(kinds, [KINDS[kind] for kind in kinds])[0]
        yield by_kind[kind].pop()
        if not by_kind[kind]:
            kinds.remove(kind)
