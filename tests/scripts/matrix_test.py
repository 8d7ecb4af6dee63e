#!/usr/bin/env python3
"""scripts/build_matrix.sh with compilers and a CMake that only record their calls: what is built, from which sources, and what is
reported about builds with missing compilers.

    matrix_test.py ROOT
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # do not write into the source tree

from stubs import Stubs

ROOT = pathlib.Path(sys.argv.pop(1))
DEFAULTS = ("gcc", "g++", "clang", "clang++")


class Matrix(unittest.TestCase):
    def setUp(self):
        self.project = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.addCleanup(subprocess.run, ["chmod", "-R", "u+w", self.project], check=True)
        (self.project / "scripts").mkdir()
        for name in ("build_matrix.sh", "common.sh"):
            shutil.copy(ROOT / "scripts" / name, self.project / "scripts" / name)
        (self.project / "scripts/setup.sh").write_text("#!/bin/sh\n")
        (self.project / "scripts/setup.sh").chmod(0o755)
        (self.project / "build").mkdir()
        (self.project / "build/old").touch()
        # The system's programs without its compilers.
        self.system = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        for program in pathlib.Path("/usr/bin").iterdir():
            if not re.match(r"(gcc|g\+\+|clang)", program.name):
                (self.system / program.name).symlink_to(program)

    def build(self, *words, compilers=DEFAULTS, gcc="14", clang="19"):
        with tempfile.TemporaryDirectory() as folder:
            stubs = Stubs(folder, cmake="", **dict.fromkeys((name.replace("-", "_") for name in compilers), ""),
                          dpkg_query=f'case $4 in g++) echo 4:{gcc}.2.0-1 ;; clang) echo 1:{clang}.0-63 ;; esac')
            return subprocess.run([self.project / "scripts/build_matrix.sh", *words], timeout=100, check=False, text=True,
                                  env=os.environ | {"PATH": f"{folder}:{self.system}"}, capture_output=True)

    def sources(self):
        folder = self.project / "build/matrix/source"
        return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())

    def test_all_with_the_compilers_of_this_debian_reports_what_is_left_out(self):
        ended = self.build("--all", compilers=(*DEFAULTS, "gcc-14", "g++-14", "clang-19", "clang++-19"))
        self.assertEqual(ended.returncode, 0, ended.stdout + ended.stderr)
        self.assertRegex(ended.stdout, "left out because their compilers belong to another Debian and are not installed: gcc-12:None .* clang-14:None ")
        self.assertTrue(ended.stdout.endswith("14 built, 0 failed, 0 not built, 10 left out\n"), ended.stdout)

    def test_all_without_a_compiler_of_this_debian_fails(self):
        ended = self.build("--all", compilers=(*DEFAULTS, "gcc-14", "g++-14"))
        self.assertEqual(ended.returncode, 1, ended.stdout)
        self.assertRegex(ended.stdout, "NOT BUILT because their compilers are not installed: clang-19:None ")

    def test_all_uses_the_compilers_of_an_unknown_debian(self):
        ended = self.build("--all", gcc="15", clang="21")
        self.assertEqual(ended.returncode, 1, ended.stdout)
        self.assertRegex(ended.stdout, "NOT BUILT because their compilers are not installed: gcc-15:None .* clang-21:None ")

    def test_a_build_that_is_named_cannot_be_left_out(self):
        ended = self.build("gcc:Release", "gcc-12:Release")
        self.assertEqual(ended.returncode, 1, ended.stdout)
        self.assertIn("NOT BUILT because their compilers are not installed: gcc-12:Release\n", ended.stdout)

    def test_without_git_the_present_files_are_built(self):
        (self.project / "new").touch()
        ended = self.build()
        self.assertEqual(ended.returncode, 0, ended.stdout + ended.stderr)
        self.assertEqual(self.sources(), ["new", "scripts/build_matrix.sh", "scripts/common.sh", "scripts/setup.sh"])

    def test_with_git_the_last_commit_is_built(self):
        git = ["git", "-C", self.project, "-c", "user.name=a", "-c", "user.email=a@b"]
        for words in (["init", "-q"], ["add", "scripts"], ["commit", "-q", "-m", "all"]):
            subprocess.run([*git, *words], check=True)
        (self.project / "new").touch()
        ended = self.build()
        self.assertEqual(ended.returncode, 0, ended.stdout + ended.stderr)
        self.assertEqual(self.sources(), ["scripts/build_matrix.sh", "scripts/common.sh", "scripts/setup.sh"])


if __name__ == "__main__":
    unittest.main()
