#!/usr/bin/env python3
"""Every script prints its help and refuses unknown arguments before it installs or builds anything.

    words_test.py ROOT
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # do not write into the source tree

from stubs import Stubs

ROOT = pathlib.Path(sys.argv.pop(1))
SCRIPTS = ["demo.sh", "test.sh", "tests/packages/clean_root.sh", ".ci/run"]
SCRIPTS += sorted(f"scripts/{path.name}" for path in (ROOT / "scripts").glob("*.sh")
                  if path.name not in ("common.sh", "bare_root.sh"))

# Arguments that are wrong only after others, by script; every script is also tested with a single wrong argument.
WRONG = {
    "demo.sh": [["no-such-word"], ["--no-such-word"]],
    "test.sh": [["release", "no-such-word"], ["--require-all", "no-such-word"], ["--require-al"]],
    "scripts/bench.sh": [["lists", "no-such-word"], ["--seconds", "no-such-word"], ["--seconds", "5", "no-such-word"]],
    "scripts/faults.sh": [["10", "no-such-word"], ["--list", "--no-such-word"], ["--seed=no-such-word"], ["--only=no-such-word"],
                          ["-jno-such-word"], ["--only=service/request.cpp:1", "10"], ["1", "/usr"], ["../.."]],
    "scripts/fuzz.sh": [["1", "no-such-word"], ["minimise", "no-such-word"]],
    "scripts/lint.sh": [["phrases", "no-such-word"], ["tidy", "no-such-word"], ["tidy", "service", "no-such-word"]],
    "scripts/package.sh": [["--check", "no-such-word"]],
    "scripts/setup.sh": [["build", "no-such-word"]],
    "scripts/soak.sh": [["1", "no-such-word"], ["--seed", "no-such-word"], ["prove", "no-such-word"]],
    "tests/packages/clean_root.sh": [[".", "no-such-word"]],
}


class Words(unittest.TestCase):
    def setUp(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        loud = "echo this must not be called >&2; exit 99"
        programs = ["apt_get", "apt", "sudo", "dpkg", "cmake", "ninja", "ctest", "debootstrap", "dpkg_buildpackage", "unshare"]
        self.stubs = Stubs(folder, **dict.fromkeys(programs, loud))

    def run_script(self, script, *words):
        ended = subprocess.run([ROOT / script, *words], env=self.stubs.environment(), cwd="/", stdin=subprocess.DEVNULL,
                               capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(self.stubs.calls(), [], f"{script} {words}")
        return ended

    def test_help_shows_the_usage_of_the_script(self):
        for script in SCRIPTS:
            for word in ("-h", "--help"):
                with self.subTest(script=script, word=word):
                    ended = self.run_script(script, word)
                    self.assertEqual((ended.returncode, ended.stderr), (0, ""))
                    self.assertRegex(ended.stdout, rf"(?m)^Usage: (\./)?{script}\b")
                    self.assertGreater(len(ended.stdout.splitlines()), 1)

    def test_an_unknown_argument_is_refused_and_named(self):
        for script in SCRIPTS:
            for words in [["no-such-word"], *WRONG.get(script, [])]:
                with self.subTest(script=script, words=words):
                    ended = self.run_script(script, *words)
                    self.assertEqual((ended.returncode, ended.stdout), (2, ""), ended.stderr)
                    self.assertEqual(len(ended.stderr.splitlines()), 1, ended.stderr)
                    self.assertIn(f"{pathlib.Path(script).name}: ", ended.stderr)
                    # For an option with a bad value the message names the option.
                    self.assertTrue(any(word in ended.stderr for word in (words[-1], *words[-2:-1])), ended.stderr)

    def test_an_empty_argument_is_refused(self):
        for script in SCRIPTS:
            with self.subTest(script=script):
                ended = self.run_script(script, "")
                self.assertEqual((ended.returncode, ended.stdout), (2, ""), ended.stderr)
                self.assertIn('""', ended.stderr)

    def test_a_refusal_names_the_command_for_help(self):
        for script, command in {"test.sh": "./test.sh", "scripts/setup.sh": "scripts/setup.sh"}.items():
            self.assertIn(f'"{command} -h" explains', self.run_script(script, "no-such-word").stderr)

    def test_a_folder_of_packages_is_relative_to_the_callers_folder(self):
        script = ROOT / "tests/packages/clean_root.sh"
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (folder / "found").mkdir()
        stubs = Stubs(self.enterContext(tempfile.TemporaryDirectory()), id="echo 0", debootstrap="", unshare="")
        for name, status, text in (("found", 77, f"no packages in {folder.resolve()}/found "), ("scripts", 2, "is not a folder here")):
            ended = subprocess.run([script, name], env=stubs.environment(), cwd=folder, capture_output=True, text=True, timeout=60,
                                   check=False)
            self.assertEqual(ended.returncode, status, ended.stderr)
            self.assertIn(text, ended.stdout + ended.stderr)

    def test_a_refusal_lists_the_known_arguments(self):
        for script, word in {"test.sh": "asan", "scripts/setup.sh": "manuals", "scripts/bench.sh": "lists",
                             "scripts/package.sh": "--check", "scripts/fuzz.sh": "minimise", "scripts/soak.sh": "prove"}.items():
            with self.subTest(script=script):
                words = ["nonsense"]
                self.assertIn(word, self.run_script(script, *words).stderr)

    def test_the_subjects_and_options_exist_in_the_programs(self):
        subjects = "exchange lists reading writing usb agent plant tap recording loading cpp requests".split()
        for subject in subjects:
            self.assertIn(f'{{"{subject}", ', (ROOT / "bench/main.cpp").read_text())
        self.assertEqual((ROOT / "bench/main.cpp").read_text().count(", bench::measure"), len(subjects))
        soak = (ROOT / "tests/soak/soak.cpp").read_text()
        for option in ("--seed", "--json", "--warm-up", "--patience", "--session"):
            self.assertIn(f'("{option}", ', soak)


if __name__ == "__main__":
    unittest.main()
