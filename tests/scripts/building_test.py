#!/usr/bin/env python3
"""./demo.sh and ./test.sh in a small project with presets of the same names: progress, logs, skipped tests, and what a second
run does not repeat.

    building_test.py ROOT
"""

import os
import pathlib
import pty
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(sys.argv.pop(1))
PRESETS = """{ "version": 6,
  "configurePresets": [ { "name": "release", "generator": "Ninja", "binaryDir": "${sourceDir}/build/release" } ],
  "buildPresets": [ { "name": "release", "configurePreset": "release" } ],
  "testPresets": [ { "name": "release", "configurePreset": "release" } ] }"""
PROJECT = """cmake_minimum_required(VERSION 3.25)
project(small LANGUAGES NONE)
file(APPEND ${CMAKE_BINARY_DIR}/configured x)
file(GLOB pages CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/*.md)
file(CONFIGURE OUTPUT bin/kvosim @ONLY CONTENT "#!/bin/sh
while [ \\$1 != -- ]; do shift; done; shift; exec \\"\\$@\\"
")
file(CHMOD ${CMAKE_BINARY_DIR}/bin/kvosim PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
foreach(step RANGE 1 20)
  add_custom_command(OUTPUT step${step} COMMAND ${CMAKE_COMMAND} -E touch step${step})
  list(APPEND steps step${step})
endforeach()
add_custom_target(all_steps ALL DEPENDS ${steps})
enable_testing()
add_test(NAME passes COMMAND ${CMAKE_COMMAND} -E echo "all is well")
"""


def skipped(name, text, expression="^skipped: "):
    return (f'add_test(NAME {name} COMMAND ${{CMAKE_COMMAND}} -E echo "{text}")\n'
            f'set_tests_properties({name} PROPERTIES SKIP_REGULAR_EXPRESSION "{expression}")\n')


MISSING_TOOL = skipped("needs_a_tool", "skipped: missing tool: abidw")
OF_GOOGLETEST = skipped("not_as_root", "/a/file_test.cpp:12: Skipped\nroot can do it\n\n[  SKIPPED ] x", r"\\[  SKIPPED \\]")
OF_PYTEST = 'add_test(NAME half COMMAND ${CMAKE_COMMAND} -E echo "SKIPPED [1] test_a.py:7: only as root")\n'
BROKEN_BUILD = "add_custom_target(broken ALL COMMAND ${CMAKE_COMMAND} -E cat no-such-file)\n"
FAILING_TEST = "add_test(NAME fails COMMAND ${CMAKE_COMMAND} -E cat no-such-file)\n"


class Building(unittest.TestCase):
    def setUp(self):
        self.project = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.project / "scripts").mkdir()
        for name in ("demo.sh", "test.sh", "scripts/common.sh", "scripts/test_report.py"):
            shutil.copy(ROOT / name, self.project / name)
        (self.project / "scripts/setup.sh").write_text("#!/bin/sh\n")
        (self.project / "scripts/setup.sh").chmod(0o755)
        (self.project / "CMakePresets.json").write_text(PRESETS)
        self.write_project()

    def write_project(self, *more):
        (self.project / "CMakeLists.txt").write_text(PROJECT + "".join(more))

    def run_tests(self, *words, **options):
        return subprocess.run([self.project / "test.sh", *words, "release"], timeout=100, check=False, text=True,
                              **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options})

    def run_demo(self, *words):
        return subprocess.run([self.project / "demo.sh", *words], timeout=100, check=False, text=True, capture_output=True)

    def test_the_demo_builds_with_manuals_and_runs_a_command(self):
        (self.project / "examples").mkdir()
        ended = self.run_demo("echo", "hello", "there")
        self.assertEqual((ended.returncode, ended.stdout), (0, "hello there\n"), ended.stderr)
        self.assertIn("building; a full build takes about", ended.stderr)
        self.assertRegex((self.project / "build/demo/CMakeCache.txt").read_text(), "KVO_BUILD_MANUALS:[A-Z]+=ON")
        again = self.run_demo("echo", "hello", "there")
        self.assertEqual((again.returncode, again.stdout, again.stderr), (0, "hello there\n", ""))
        self.assertEqual((self.project / "build/demo/configured").read_text(), "x")

    def test_a_demo_that_fails_to_build_runs_nothing(self):
        self.write_project(BROKEN_BUILD)
        ended = self.run_demo("echo", "hello")
        self.assertEqual((ended.returncode, ended.stdout), (1, ""))
        self.assertIn("demo.sh: not built; the whole log: build/demo/build.log", ended.stderr)

    def test_progress_is_one_line_for_each_tenth_without_a_terminal(self):
        ended = self.run_tests()
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertIn("the log: build/release/build.log", ended.stderr)
        self.assertRegex(ended.stderr, r"takes about \d+ min on 2 cores")
        self.assertEqual([line.split()[1] for line in ended.stderr.splitlines() if " % built" in line],
                         [str(tenth) for tenth in range(10, 101, 10)])
        self.assertIn("0 of 1 tests were skipped", ended.stdout)

    def test_progress_stays_one_line_on_a_terminal(self):
        terminal, inside = pty.openpty()
        ended = self.run_tests(stderr=inside)
        os.close(inside)
        shown = os.read(terminal, 100000).decode()
        os.close(terminal)
        self.assertEqual(ended.returncode, 0, shown)
        self.assertRegex(shown, "\r\x1b\\[K\\[20/2[0-9]\\]")
        self.assertTrue(shown.endswith("\r\x1b[K"), shown)
        self.assertEqual(shown.count("\n"), 1, shown)  # after the announcement

    def test_a_second_run_neither_configures_nor_builds(self):
        self.run_tests()
        ended = self.run_tests()
        self.assertEqual((ended.returncode, ended.stderr), (0, ""))
        self.assertEqual((self.project / "build/release/configured").read_text(), "x")

    def test_a_change_of_the_presets_configures_again(self):
        self.run_tests()
        (self.project / "CMakePresets.json").write_text(PRESETS.replace('"Ninja",', '"Ninja", "cacheVariables": { "A": "B" },'))
        self.run_tests()
        self.assertEqual((self.project / "build/release/configured").read_text(), "xx")

    def test_a_failed_build_shows_the_end_of_its_log(self):
        self.write_project(BROKEN_BUILD)
        ended = self.run_tests()
        self.assertEqual(ended.returncode, 1)
        self.assertIn("FAILED: CMakeFiles/broken", ended.stderr)
        self.assertIn("the whole log: build/release/build.log", ended.stderr)

    def test_a_failed_configuration_shows_the_end_of_its_log(self):
        self.write_project("message(FATAL_ERROR no-such-compiler)\n")
        ended = self.run_tests()
        self.assertEqual(ended.returncode, 1)
        self.assertIn("no-such-compiler", ended.stderr)

    def test_skipped_tests_are_counted_with_their_reasons(self):
        self.write_project(MISSING_TOOL, OF_GOOGLETEST, OF_PYTEST)
        ended = self.run_tests()
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertIn("3 of 4 tests were skipped:\n", ended.stdout)
        for reason, test in {"missing tool: abidw": "needs_a_tool", "root can do it": "not_as_root", "only as root": "half"}.items():
            self.assertIn(f"  1  {reason}\n        release: {test}\n", ended.stdout)

    def test_require_all_fails_for_a_missing_tool(self):
        self.write_project(MISSING_TOOL)
        ended = self.run_tests("--require-all")
        self.assertEqual(ended.returncode, 1)
        self.assertIn("1 tests need something that is not installed here", ended.stderr)

    def test_require_all_accepts_other_reasons(self):
        self.write_project(OF_GOOGLETEST, OF_PYTEST)
        self.assertEqual(self.run_tests("--require-all").returncode, 0)

    def test_a_failed_test_fails_the_run_and_skipped_tests_are_still_listed(self):
        self.write_project(FAILING_TEST, OF_GOOGLETEST)
        ended = self.run_tests()
        self.assertEqual(ended.returncode, 1)
        self.assertIn("1 of 3 tests were skipped", ended.stdout)

    def test_the_report_ends_with_the_failed_tests_and_their_output(self):
        self.write_project(FAILING_TEST, OF_GOOGLETEST)
        report = self.run_tests().stdout.rpartition("tests were skipped")[2]
        self.assertRegex(report, r"\nfailed: release: (\w+)\n(    .*\n)+1 of 3 tests failed: release: \1\nrelease:  3 tests, 1 failed, 1 skipped\n$")


if __name__ == "__main__":
    unittest.main()
