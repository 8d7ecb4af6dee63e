#!/usr/bin/env python3
"""scripts/phrases.py: which texts are searched for phrases, and which are not.

    phrases_test.py ROOT
"""

import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # do not write into the source tree
ROOT = pathlib.Path(sys.argv.pop(1))
sys.path.insert(0, str(ROOT / "scripts"))

import phrases

# A phrase that is not in the list, so this file passes the check itself.
WORDS = "blue moon"

# (what is shown, file name, text, line of the finding or None)
CASES = [
    ("a comment in C++", "runtime/a.cpp", "int a;  // once in a blue moon\n", 1),
    ("a block comment", "include/a.h", "/** One\n *  blue moon. */\n", 2),
    ("a phrase that a line end divides", "include/a.h", "int a;\n/** Once in a blue\n *  moon. */\n", 2),
    ("any case", "runtime/a.cpp", "// Blue Moon\n", 1),
    ("not a part of a word", "runtime/a.cpp", "// blue moonlight\n", None),
    ("not an identifier", "runtime/a.cpp", "int blue_moon; call(blue, moon);\n", None),
    ("not a log text of the library", "runtime/a.cpp", 'log("once in a blue moon");\n', None),
    ("a message of a tool", "tools/a.cpp", 'print("once in a blue moon");\n', 1),
    ("a message of a tool in two strings", "tools/a.cpp", 'print("once in a blue "\n      "moon, or twice");\n', 1),
    ("not across code", "tools/a.cpp", "// blue\nint a;\n// moon\n", None),
    ("not a quotation of code in a comment", "runtime/a.cpp", "// the daemon sends `blue moon`\n", None),
    ("not a quoted text in a comment", "include/a.h", '/** Logs "once in a\n *  blue moon". */\n', None),
    ("the name of a test", "tests/a_test.cpp", "TEST(Moon, is_a_blue_moon)\n", 1),
    ("the name of a row in a test's table", "tests/a_test.cpp", '{"in_a_blue_moon", 1},\n', 1),
    ("not other strings of a test", "tests/a_test.cpp", '{"blue moon", 1},\n', None),
    ("a docstring", "python/a.py", 'def a():\n    """A blue moon."""\n', 2),
    ("a comment in Python", "python/a.py", "a = 1  # blue moon\n", 1),
    ("not a string in Python", "scripts/a.py", 'a = "blue moon"\n', None),
    ("a message of the Python module", "python/kvo_hws/a.py", 'a = "blue moon"\n', 1),
    ("the name of a test in Python", "python/a_test.py", "def test_a_blue_moon(): pass\n", 1),
    ("a comment in a shell script", "scripts/a.sh", "run  # blue moon\n", 1),
    ("not a command in a shell script", "scripts/a.sh", "echo blue moon\n", None),
    ("a comment in a CMake file", "tests/CMakeLists.txt", "# blue moon\n", 1),
    ("a comment in a script without a suffix", ".ci/run", "run  # blue moon\n", 1),
    ("a comment in a configuration of a tool", ".clang-tidy", "# blue moon\nChecks: all\n", 1),
    ("a comment in a template for C", "tests/a.c.in", "int a;  /* blue moon */\n", 1),
    ("a description of a package", "packaging/debian/control", " Once in a blue moon.\n", 1),
    ("a sentence of a manual page", "docs/reference/man/a.1", ".Sh DESCRIPTION\nOnce in a blue moon.\n", 2),
    ("not a command in a manual page", "docs/reference/man/a.1", ".Dl blue moon\n", None),
    ("a cell of a table of a page", "docs/a.md", "| a | a blue moon |\n", 1),
    ("prose of a page", "docs/a.md", "# Title\n\nOnce in a blue\nmoon.\n", 3),
    ("not a code block of a page", "docs/a.md", "```sh\nblue moon\n```\n", None),
    ("prose after a code block with a single backtick", "docs/a.md", "```sh\necho `\n```\nA blue moon `a`.\n", 4),
    ("not code in a line of a page", "docs/a.md", "The reply is `blue moon`.\n", None),
    ("not the target of a link", "docs/a.md", "[moon](blue moon.md)\n", None),
    ("not a line that allows it", "docs/a.md", "A blue moon. <!-- phrases: allow -->\n", None),
    ("not a file without prose", "a.svg", "blue moon\n", None),
]


class Phrases(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def patterns(self, text):
        path = self.folder / "phrases.txt"
        path.write_text(text)
        return list(phrases.phrases(path))

    def test_prose_is_searched_and_code_is_not(self):
        patterns = self.patterns(f"# a comment\n\n{WORDS} => rarely\n")
        for name, path, text, line in CASES:
            with self.subTest(name):
                found = list(phrases.findings(path, text, patterns))
                self.assertEqual([(at, replacement) for at, _, replacement in found], [(line, "rarely")] if line else [])

    def test_a_line_without_a_replacement_is_an_error(self):
        with self.assertRaisesRegex(SystemExit, "phrases.txt:1: expected \"PHRASE => REPLACEMENTS\""):
            self.patterns("blue moon\n")

    def test_a_phrase_that_is_not_a_regular_expression_is_an_error(self):
        with self.assertRaisesRegex(SystemExit, "phrases.txt:1: not a regular expression"):
            self.patterns("blue (moon => rarely\n")

    def test_each_phrase_of_the_list_can_be_read(self):
        self.assertTrue(list(phrases.phrases()))


if __name__ == "__main__":
    unittest.main()
