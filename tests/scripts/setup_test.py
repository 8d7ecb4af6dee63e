#!/usr/bin/env python3
"""Which packages scripts/setup.sh installs, on a simulated system that only records the calls.

    setup_test.py ROOT
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # do not write into the source tree

from stubs import Stubs

ROOT = pathlib.Path(sys.argv.pop(1))
NOTHING_INSTALLED = "exit 1"
ALL_INSTALLED = 'shift 3; for package; do echo "$package installed"; done'
ALL_BUT_FISH = ALL_INSTALLED.replace("echo", '[ "$package" = fish ] || echo')


class Setup(unittest.TestCase):
    def set_up(self, *purposes, installed=NOTHING_INSTALLED, lacking="", compiler="4:14.2.0-1", lists=True, user=0):
        with tempfile.TemporaryDirectory() as folder:
            stubs = Stubs(
                folder, apt_get="", dpkg_query=installed, id=f"echo {user}", sudo='exec "$@"',
                apt_cache=f'[ -n "$2" ] || {{ {"echo" if lists else "true"} " 500 http://debian bookworm/main Packages"; exit; }}\n'
                          f'version=1.0; case "$2" in g++) version={compiler} ;; {lacking or "none"}) version="(none)" ;; esac\n'
                          'printf "%s:\\n  Installed: (none)\\n  Candidate: %s\\n" "$2" "$version"')
            ended = subprocess.run([ROOT / "scripts/setup.sh", *purposes], env=stubs.environment(), capture_output=True, text=True,
                                   timeout=60, check=False)
            self.assertEqual((ended.returncode, ended.stdout), (0, ""), ended.stderr)
            calls = stubs.calls()
        self.reports = ended.stderr
        self.queries = sum(call.startswith("dpkg-query") for call in calls)
        self.apt_get = [call for call in calls if call.startswith("apt-get")]
        self.sudo = [call for call in calls if call.startswith("sudo")]
        return " ".join(self.apt_get[1:]).split()

    def test_missing_packages_are_installed_and_the_reason_is_printed(self):
        packages = self.set_up("lint")
        self.assertTrue({"g++", "clang", "clang-tidy"} <= set(packages))
        for reason in ("to build: cmake ", "for the tests: libgtest-dev ", "for lint: clang-tidy clang-format cppcheck"):
            self.assertIn(f"setup.sh: installing {reason}", self.reports)

    def test_building_needs_no_packages_for_tests(self):
        self.assertNotIn("libgtest-dev", self.set_up("build"))
        self.assertNotIn("clang", self.set_up("manuals"))

    def test_the_libraries_of_other_event_loops_are_installed_only_for_loops(self):
        others = {"libglib2.0-dev", "libuv1-dev", "qtbase5-dev", "xvfb"}
        self.assertTrue(others <= set(self.set_up("loops")))
        self.assertFalse(others & set(self.set_up("release", "asan", "tsan", "fuzz", "lint", "coverage", "package")))

    def test_a_complete_system_is_queried_once_and_not_changed(self):
        self.assertEqual(self.set_up("release", "fuzz", "manuals", installed=ALL_INSTALLED), [])
        self.assertEqual((self.queries, self.apt_get, self.reports), (1, [], ""))

    def test_package_names_depend_on_the_versions_of_the_system(self):
        self.assertIn("g++-14-multilib", self.set_up("m32"))
        self.assertIn("g++-12-multilib", self.set_up("m32", compiler="4:12.2.0-3"))
        self.assertFalse([package for package in self.set_up("release", "m32") if package.startswith("libclang-rt-1")])

    def test_an_unavailable_package_is_reported_and_left_out(self):
        packages = self.set_up("release", lacking="abigail-tools|fish")
        self.assertFalse({"abigail-tools", "fish"} & set(packages))
        self.assertIn("zsh", packages)
        self.assertIn("do not have abigail-tools (for the tests)", self.reports)
        self.assertIn("do not have fish (for release)", self.reports)

    def test_with_only_unavailable_packages_missing_root_is_not_needed(self):
        self.assertEqual(self.set_up("release", installed=ALL_BUT_FISH, lacking="fish", user=1000), [])
        self.assertEqual((self.apt_get, self.sudo), ([], []))
        self.assertEqual(self.reports, "setup.sh: this system's package sources do not have fish (for release)\n")

    def test_missing_package_lists_are_fetched_first(self):
        self.assertEqual(self.set_up("release", installed=ALL_BUT_FISH, lacking="fish", lists=False, user=1000), [])
        self.assertEqual(self.apt_get, ["apt-get update -qq"])
        self.assertEqual(self.sudo, ["sudo apt-get update -qq"])


if __name__ == "__main__":
    unittest.main()
