#!/usr/bin/env python3
"""Finds phrases that are not plain English in comments, documentation, messages of the tools and names of tests.

The phrases and what to write instead are in scripts/phrases.txt. Code, log texts, wire texts, text between backticks, code blocks
of a page, and quoted text in comments of C and C++ are not searched."""

import argparse
import io
import pathlib
import re
import subprocess
import sys
import tokenize

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = pathlib.Path(__file__).with_name("phrases.txt")
C = {".c", ".cpp", ".h", ".hpp"}
HASH_COMMENTS = {".sh", ".cmake", ".toml", ".bash", ".zsh", ".fish", ".yml", ".script", ".dict", ".in", ".list", ".map", ".service",
                 ".postrm", ".prerm", ".lintian-overrides"}
HASH_COMMENT_NAMES = {"CMakeLists.txt", ".ci/run", ".clang-tidy", ".clang-format", ".gitattributes", "Doxyfile", "_kvo",
                      "packaging/debian/rules"}
# Manual pages and files of the packages, which contain only prose and markup.
PROSE = {".1", ".3", ".5", ".Debian"}
PROSE_NAMES = {"packaging/debian/control"}
# Strings of these folders are help and messages for people; those of the library are log texts and wire texts.
MESSAGES = ("tools/", "python/kvo_hws/")
ALLOWED = "phrases: allow"
# Python 3.12 and later divide an f-string into tokens.
FSTRING_TEXT = getattr(tokenize, "FSTRING_MIDDLE", None)
# Stands for everything that is not prose, so that no phrase is found across it.
CODE = "\0"

C_TOKEN = re.compile(
    r'(?P<comment>//[^\n]*(?:\\\n[^\n]*)*|/\*.*?\*/)|R"(?P<tag>[^(\s]*)\((?P<raw>.*?)\)(?P=tag)"'
    r'|"(?P<string>(?:\\.|[^"\\\n])*)"|\'(?:\\.|[^\'\\\n])+\'(?!\w)', re.DOTALL)
C_TEST_NAME = re.compile(r"\b(?:TYPED_)?TEST(?:_[FP])?\(\s*\w+,\s*(\w+)\s*\)")
SNAKE_CASE = re.compile(r"[A-Za-z0-9]+(?:_[A-Za-z0-9]+){2,}")


def blank(text):
    """The text as CODE, with its lines kept."""
    return re.sub(r"[^\n]", CODE, text)


def keep(masked, text, begin, end, words=lambda text: text):
    masked[begin:end] = words(text[begin:end])


def without(pattern):
    """A function that replaces what a pattern matches by blanks of the same length."""
    return lambda text: re.sub(pattern, lambda found: " " * len(found[0]), text, flags=re.MULTILINE)


COMMENT_MARKS = without(r"^\s*(?:///?<?|/\*\*?<?|\*/|\*|#+)|\*/$|//[/!]?<?")
ESCAPES = without(r"\\[nt\"]")
# What continues a string on the next line, so that a sentence is seen whole.
STRING_SEAM = re.compile(r'"(\s*)"')


def names_to_words(text):
    return text.replace("_", " ")


def code_spans(text):
    """Prose in which `code` is CODE."""
    return re.sub(r"`[^`]*`", lambda found: blank(found[0]), text)


def quoted_texts(text):
    """A comment of C or C++ in which a "quoted text", which is mostly a log text or a reply, is CODE."""
    return re.sub(r'"[^"]*"', lambda found: blank(found[0]), text)


def prose_of_c(path, text):
    masked = list(blank(text))
    is_test = path.startswith(("tests/", "fuzz/"))
    for found in C_TOKEN.finditer(text):
        if found["comment"]:
            keep(masked, text, *found.span("comment"), lambda comment: quoted_texts(code_spans(COMMENT_MARKS(comment))))
        for group in ("string", "raw"):
            if not found[group]:
                continue
            if path.startswith(MESSAGES) and " " in found[group]:
                keep(masked, text, *found.span(group), ESCAPES)
            elif is_test and SNAKE_CASE.fullmatch(found[group]):
                keep(masked, text, *found.span(group), names_to_words)
    for found in C_TEST_NAME.finditer(text):
        keep(masked, text, *found.span(1), names_to_words)
    for found in STRING_SEAM.finditer(text):
        if masked[found.start() - 1] != CODE and masked[found.end() % len(masked)] != CODE:
            keep(masked, text, *found.span(), without(r'"'))
    return "".join(masked)


def prose_of_python(path, text):
    masked = list(blank(text))
    lines = [0]
    for line in text.splitlines(keepends=True):
        lines.append(lines[-1] + len(line))
    before = None
    for token in tokenize.generate_tokens(io.StringIO(text).readline):
        begin, end = (lines[row - 1] + column for row, column in (token.start, token.end))
        if token.type == tokenize.COMMENT:
            keep(masked, text, begin, end, lambda comment: code_spans(COMMENT_MARKS(comment)))
        elif token.type == tokenize.STRING:
            is_docstring = before in (tokenize.INDENT, tokenize.NEWLINE, tokenize.NL, None)
            if is_docstring or (path.startswith(MESSAGES) and " " in token.string):
                keep(masked, text, begin, end, lambda string: code_spans(string))
        elif token.type == FSTRING_TEXT and path.startswith(MESSAGES):
            keep(masked, text, begin, end)
        elif token.type == tokenize.NAME and token.string.startswith("test_"):
            keep(masked, text, begin, end, names_to_words)
        if token.type not in (tokenize.COMMENT,):
            before = token.type
    return "".join(masked)


def prose_of_hash_comments(_, text):
    masked = list(blank(text))
    for found in re.finditer(r"(?:^|(?<=\s))#(?!!).*", text, re.MULTILINE):
        keep(masked, text, *found.span(), lambda comment: code_spans(COMMENT_MARKS(comment)))
    return "".join(masked)


def prose_of_markdown(_, text):
    text = re.sub(r"^ *(```+)[^\n]*\n.*?^ *\1 *$", lambda found: blank(found[0]), text, flags=re.MULTILINE | re.DOTALL)
    text = re.sub(r"<!--.*?-->", lambda found: found[0] if ALLOWED in found[0] else blank(found[0]), text, flags=re.DOTALL)
    text = re.sub(r"\]\([^)\n]*\)", lambda found: blank(found[0]), text)
    return COMMENT_MARKS(code_spans(text))


def prose_of_text(_, text):
    """Without a line of a manual page that shows a command or includes a section."""
    return re.sub(r"^(?:\.Dl|@).*$", lambda found: blank(found[0]), code_spans(text), flags=re.MULTILINE)


def reader_of(path):
    """The function that leaves of a file what is prose; None where a file has none."""
    name = pathlib.PurePosixPath(path)
    if name.suffix in C or name.suffixes[-2:] == [".c", ".in"]:
        return prose_of_c
    if name.suffix == ".py":
        return prose_of_python
    if name.suffix == ".md":
        return prose_of_markdown
    if name.suffix in HASH_COMMENTS or not HASH_COMMENT_NAMES.isdisjoint({name.name, path}):
        return prose_of_hash_comments
    if name.suffix in PROSE or path in PROSE_NAMES:
        return prose_of_text
    return None


def phrases(path=LIST):
    """Each phrase of the list as a compiled pattern, with what to write instead."""
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        phrase, arrow, replacement = line.partition(" => ")
        if not arrow:
            sys.exit(f"{path}:{number}: expected \"PHRASE => REPLACEMENTS\"")
        try:
            yield re.compile(r"\b(?:%s)\b" % phrase.replace(" ", r"\s+"), re.IGNORECASE), replacement
        except re.error as error:
            sys.exit(f"{path}:{number}: not a regular expression: {error}")


def findings(path, text, patterns):
    """(line, phrase, replacement) for each phrase that is in the prose of a file."""
    reader = reader_of(path)
    if reader is None:
        return
    prose, lines = reader(path, text), text.splitlines()
    for pattern, replacement in patterns:
        for found in pattern.finditer(prose):
            line = prose.count("\n", 0, found.start()) + 1
            if ALLOWED not in "".join(lines[max(line - 2, 0):line]):
                yield line, " ".join(found[0].split()), replacement


def tracked_files():
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z"], check=True, capture_output=True, text=True).stdout
    return [path for path in listed.split("\0") if path and (ROOT / path).is_file()]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("paths", nargs="*", metavar="PATH", help="files or folders to search; all files of the project unless given")
    options = parser.parse_args()
    wanted = [pathlib.Path(path).resolve().relative_to(ROOT).as_posix() for path in options.paths]
    files = [path for path in tracked_files()
             if not wanted or any(path == want or path.startswith(want + "/") or want == "." for want in wanted)]
    patterns, count = list(phrases()), 0
    for path in files:
        try:
            text = (ROOT / path).read_text(encoding="utf-8")
        except UnicodeDecodeError:
            continue
        for line, phrase, replacement in sorted(findings(path, text, patterns)):
            print(f"{path}:{line}: \"{phrase}\": write {replacement}")
            count += 1
    if count:
        print(f"{count} phrases to replace; the list is scripts/phrases.txt", file=sys.stderr)
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
