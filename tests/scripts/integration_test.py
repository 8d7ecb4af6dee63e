#!/usr/bin/env python3
""".ci/run with scripts that only record their calls: which steps run, and what a failed step causes.

    integration_test.py ROOT
"""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # do not write into the source tree

from stubs import Stubs

ROOT = pathlib.Path(sys.argv.pop(1))


class Integration(unittest.TestCase):
    def setUp(self):
        self.project = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        # Simulates a user without root rights, and sudo.
        self.stubs = Stubs(self.enterContext(tempfile.TemporaryDirectory()), id="echo 1000", sudo='exec "$@"')
        for script in ("test.sh", "scripts/lint.sh", "scripts/build_matrix.sh", "scripts/package.sh", "scripts/coverage.sh",
                       "tests/packages/clean_root.sh"):
            self.write_script(script)
        (self.project / ".ci").mkdir()
        shutil.copy(ROOT / ".ci/run", self.project / ".ci/run")
        shutil.copy(ROOT / "scripts/common.sh", self.project / "scripts/common.sh")

    def write_script(self, script, then="true"):
        path = self.project / script
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(f'#!/bin/sh\necho "{script} $*" >>"{self.project}/calls"\n{then}\n')
        path.chmod(0o755)

    def integrate(self):
        ended = subprocess.run([self.project / ".ci/run"], env=self.stubs.environment(), capture_output=True, text=True, timeout=60, check=False)
        self.calls = [call.strip() for call in (self.project / "calls").read_text().splitlines()]
        return ended

    def test_the_tests_come_first_and_run_with_require_all(self):
        ended = self.integrate()
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertEqual(self.calls[0], "test.sh --require-all")
        self.assertIn("sudo tests/packages/clean_root.sh", self.stubs.calls())
        for script in ("scripts/lint.sh", "scripts/build_matrix.sh", "scripts/package.sh", "tests/packages/clean_root.sh",
                       "scripts/coverage.sh"):
            self.assertTrue([call for call in self.calls if call.startswith(script)], script)

    def test_a_failed_step_fails_the_run_and_the_other_steps_still_run(self):
        for script, name in {"test.sh": "tests", "scripts/lint.sh": "lint", "scripts/build_matrix.sh": "gcc",
                             "scripts/package.sh": "packages", "tests/packages/clean_root.sh": "packages",
                             "scripts/coverage.sh": "coverage"}.items():
            with self.subTest(script=script):
                self.write_script(script, "exit 3")
                ended = self.integrate()
                self.write_script(script)
                self.assertEqual(ended.returncode, 1)
                self.assertRegex(ended.stdout.rpartition("all steps:")[2], rf" s  {name} +FAILED \(status 3\)\n")
                self.assertEqual(self.calls[-1].split()[0], "scripts/coverage.sh")

    def test_the_end_repeats_the_last_lines_of_a_failed_step(self):
        self.write_script("scripts/lint.sh", "echo what lint found; echo on the error output >&2; exit 3")
        end = self.integrate().stdout.partition("the last lines of ")[2]
        self.assertRegex(end, r"^lint:\nwhat lint found\non the error output\n=== the last lines of tidy:\n")

    def test_a_bare_system_that_cannot_be_made_is_skipped_and_reported(self):
        self.write_script("tests/packages/clean_root.sh", "echo skipped: no mounts; exit 77")
        ended = self.integrate()
        self.assertEqual(ended.returncode, 0)
        self.assertIn("skipped: no mounts", ended.stdout)
        self.assertRegex(ended.stdout.rpartition("all steps:")[2], r" s  packages +skipped\n")

    def test_the_end_repeats_the_summary_of_ctest(self):
        self.write_script("test.sh", "echo '1 of 7 tests were skipped:'; echo 'release:  7 tests, 0 failed, 1 skipped'")
        last = self.integrate().stdout.rpartition("all steps:")[2]
        self.assertIn("1 of 7 tests were skipped:\nrelease:  7 tests, 0 failed, 1 skipped\n", last)


if __name__ == "__main__":
    unittest.main()
