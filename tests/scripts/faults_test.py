#!/usr/bin/env python3
"""scripts/faults.sh: which faults it finds in sources, and how it judges them in a small project with tests.

    faults_test.py ROOT
"""

import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True  # do not write into the source tree

ROOT = pathlib.Path(sys.argv.pop(1))
sys.path.insert(0, str(ROOT / "scripts"))

import fault_places
import plant_faults

FOUND = {  # a line, and the faults that can be planted in it
    "if (a < b) {": ["relation: if (a <= b) {"],
    "while (a >= b && c != d) {": ["relation: while (a > b && c != d) {", "relation.2: while (a >= b && c == d) {"],
    "auto y = table[2] + 0x0Fu;": ["constant: auto y = table[3] + 0x0Fu;", "constant.2: auto y = table[2] + 0x10u;"],
    "constexpr auto kPause = 1s;": ["constant: constexpr auto kPause = 0s;"],
    "bool ready = false;": ["constant: bool ready = true;"],
    "count_ += more;": ["statement: (removed)"],
    "++count;": ["statement: (removed)"],
    "agent.session->close(fd);  // at last": ["statement: (removed)"],
    "return found;": ["return: return {};"],
    "return a == b;": ["relation: return a != b;", "return: return !(a == b);"],
    "return a ? b : c;": ["return: return !(a) ? b : c;"],
    "const kvo_hws::Lock lock(serverChange);": ["lock: (removed)"],
    "std::lock_guard<std::mutex> guard(mutex);": ["lock: (removed)"],
    "const NoCancellation wholeLine;": ["lock: (removed)"],
    'auto *name = "wxyz";': ['text: auto *name = "wxzz";'],
    r'auto *form = "%08X\n a";': [r'text: auto *form = "%08X\n b";'],
}
# Text that is not code, or where a fault would make no difference.
NOT_FOUND = [
    "// if (a < b) { return 1; }",
    "/* a = 1; */",
    "#if A < 1",
    "#define TWO \\\n    2",
    'static_assert(sizeof(A) == 8, "packed");',
    'extern "C" int f(int a);',
    "using Names = std::array<int, 3>;",
    "template <class T, int N = 3>",
    "char text[64];",
    "std::vector<std::array<char, 64>> all;",
    "int f(int a);",
    "friend bool operator==(const A &a, const A &b);",
    "A(const A &) = delete;",
    'auto *pattern = R"(a < 1)";',
    r'auto *ends = "\r\n%u";',
    '[[deprecated("since 2")]] void f();',
    "void log(const char *form, ...) __attribute__((format(printf, 1, 2)));",
    "auto order = a <=> b;",
]


class Places(unittest.TestCase):
    def found(self, source):
        return [place for place in fault_places.places_in("a.cpp", source)]

    def test_a_line_has_the_expected_faults(self):
        for line, expected in FOUND.items():
            with self.subTest(line=line):
                places = self.found(f"void f()\n{{\n    {line}\n}}\n")
                self.assertEqual({place.line for place in places}, {3})
                self.assertEqual([str(place).split(" -> ")[1] for place in places], [each.split(": ", 1)[1] for each in expected])
                self.assertEqual([place.name for place in places], ["a.cpp:3:" + each.split(": ")[0] for each in expected])

    def test_text_that_is_not_code_has_no_faults(self):
        for text in NOT_FOUND:
            with self.subTest(text=text):
                self.assertEqual(self.found(f"{text}\n"), [])

    def test_a_text_or_comment_of_several_lines_does_not_shift_line_numbers(self):
        places = self.found('/* 1\n 2 */\nauto *a = R"(3\n4)";\n#define B \\\n    5\nint c = 6;\n')
        self.assertEqual([str(place) for place in places], ["a.cpp:7: constant: int c = 6; -> int c = 7;"])

    def test_a_fault_changes_only_its_place(self):
        source = 'if (a < b && c < 1) { f("xy"); }  // 1 < 2'
        for place in self.found(source):
            with self.subTest(place=str(place)):
                self.assertEqual(place.before, source)
                self.assertTrue(place.after.endswith("  // 1 < 2"))
                self.assertLessEqual(sum(a != b for a, b in zip(place.after.replace("<=", "<"), source)), 1)

    def test_declarations_and_parts_of_statements_are_not_removed(self):
        for text in ("int a = b;", "Request request(fd);", "const auto &a = b;", "return f(1);", "f(1); g(2);", "f([] {\na(); });",
                     "f(1,\n  a);", "a =\n    f(1);"):
            with self.subTest(text=text):
                self.assertNotIn("statement", [place.kind for place in self.found(f"{{\n{text}\n}}\n")])

    def test_the_seed_determines_the_order_of_faults(self):
        source = "".join(f"int a{number} = {number} + (b{number} < 1);\nf{number}(a);\n" for number in range(40))
        drawn = [[place.name for place in fault_places.drawn(self.found(source), seed)] for seed in (1, 1, 2)]
        self.assertEqual(drawn[0], drawn[1])
        self.assertNotEqual(drawn[0], drawn[2])
        self.assertEqual(sorted(drawn[0]), sorted(place.name for place in self.found(source)))
        self.assertGreater(len({name.split(":")[2] for name in drawn[0][:20]}), 2)

    def test_the_library_has_faults_of_every_kind(self):
        folders = "runtime service codecs requests usbevents config agent".split()
        self.assertEqual({place.kind for place in fault_places.places_below(ROOT, folders)}, set(fault_places.KINDS))


def test_of(name, folder="", *, stems=(), seconds=1.0, cases=()):
    return plant_faults.Test(name, [name], "/", folder, set(stems), list(cases), seconds)


class Order(unittest.TestCase):
    def test_the_nearest_tests_come_first_and_then_long_ones(self):
        tests = plant_faults.Tests(pathlib.Path("/nowhere"), 1)
        expected = [test_of("own", "service", stems=["readers"], seconds=9), test_of("quick", "service", seconds=1),
                    test_of("slow", "service", seconds=2), test_of("long", "agent", stems=["readers"], seconds=7),
                    test_of("short", "codecs", seconds=1), test_of("example", seconds=0.5),
                    test_of("of_a_tool", "tools/kvosim", seconds=8)]
        tests.tests = expected[::-1]
        self.assertEqual([test.name for test in tests.nearest_first("service/readers.cpp")], [test.name for test in expected])
        self.assertEqual(tests.nearest_first("tools/kvosim/plant.cpp")[0].name, "of_a_tool")

    def test_the_nearest_tests_of_a_header_are_those_of_the_cpp_interface(self):
        tests = plant_faults.Tests(pathlib.Path("/nowhere"), 1)
        tests.tests = [test_of("short", "service", seconds=1), test_of("of_headers", "cpp/calls", seconds=2), test_of("example", seconds=9)]
        self.assertEqual(tests.nearest_first("include/kvo_hws/detail/call.hpp")[0].name, "of_headers")

    def test_the_cpp_headers_have_faults(self):
        found = {place.file for place in fault_places.places_below(ROOT, ["include"])}
        self.assertLessEqual({"include/kvo_hws/address.hpp", "include/kvo_hws/station.hpp"}, found)

    def test_a_long_program_is_run_in_shares_with_each_case_once(self):
        taken = {f"Some.case_{number}": 400 * number for number in range(1, 11)}
        output = "".join(f"[ RUN      ] {name}\n[       OK ] {name} ({time} ms)\n" for name, time in taken.items())
        outcome = plant_faults.Outcome(test_of("some_test", cases=taken), True, sum(taken.values()) / 1000, output)
        shares = list(plant_faults.shares_of(outcome))
        self.assertEqual(sorted(case for share in shares for case in share.cases), sorted(taken))
        self.assertGreater(len(shares), 5)
        for share in shares:
            self.assertTrue(share.seconds <= plant_faults.SHARE_SECONDS or len(share.cases) == 1, share)
            self.assertEqual(share.words[-1], "--gtest_filter=" + ":".join(share.cases))

    def test_a_short_program_is_run_as_a_whole(self):
        outcome = plant_faults.Outcome(test_of("some_test", cases=["A.b", "A.c"]), True, 0.5, "[       OK ] A.b (1 ms)\n")
        self.assertEqual([share.words for share in plant_faults.shares_of(outcome)], [["some_test", "--gtest_fail_fast"]])


class Scripted:
    """Tests that fail a given number of times and then pass."""

    def __init__(self, *names, **failures):
        self.tests = [test_of(name) for name in names]
        self.failures = failures
        self.ran = []

    def nearest_first(self, _file):
        return list(self.tests)

    def run(self, tests):
        outcomes = []
        for test in tests:
            self.ran.append(test.name)
            self.failures[test.name] = self.failures.get(test.name, 0) - 1
            outcomes.append(plant_faults.Outcome(test, self.failures[test.name] < 0, 0.1, ""))
            if not outcomes[-1].passed:
                break
        return outcomes


class Judging(unittest.TestCase):
    def judged(self, tests):
        place = fault_places.Place("a.c", 1, "constant", 1, "1", "0")
        return plant_faults.Planting(None, tests)._test(place)

    def test_a_test_that_fails_only_once_kills_no_fault_and_the_next_tests_run(self):
        tests = Scripted("first", "unsteady", "last", unsteady=1)
        verdict = self.judged(tests)
        self.assertEqual(tests.ran, ["first", "unsteady", "unsteady", "last"])
        self.assertEqual((verdict.word, verdict.detail), ("survived", "(failed only once: unsteady)"))
        verdict = self.judged(Scripted("first", "unsteady", "last", unsteady=1, last=9))
        self.assertEqual((verdict.word, verdict.detail), ("killed", "by last"))


PRESETS = """{ "version": 6, "configurePresets": [ { "name": "debug", "generator": "Ninja", "binaryDir": "${sourceDir}/build/debug",
  "cacheVariables": { "CMAKE_BUILD_TYPE": "Debug", "CMAKE_EXPORT_COMPILE_COMMANDS": "ON" } } ] }"""
PROJECT = """cmake_minimum_required(VERSION 3.25)
project(small LANGUAGES C)
add_library(part SHARED part/part.c)
add_executable(part_test tests/part_test.c)
target_link_libraries(part_test PRIVATE part)
enable_testing()
add_test(NAME adds COMMAND part_test)
add_test(NAME Part.steps COMMAND part_test --gtest_filter=Part.steps --gtest_also_run_disabled_tests)
"""
# The tests notice a fault in line 4 and miss one in line 9. A fault in line 14 makes no difference with optimization, one in line
# 16 not even without. Without the count in line 22 the loop never ends.
PART = """\
int limit = 0;
int add(int a, int b)
{
    return a + b + 0;
}

int unseen(int a)
{
    return a + 3;
}

int same(int a)
{
    a += 1;
    a = 7;
    return 2 > 1 ? a * 0 : 1;
}

int steps(int a)
{
    while (a < 3) {
        a++;
    }
    return a;
}
"""
# Handles calls as a GoogleTest program, and calls without arguments.
TEST = """#include <stdio.h>
#include <string.h>
int add(int a, int b);
int steps(int a);
int main(int count, char **words)
{
    if (count == 1) {
        return add(2, 3) == 5 ? 0 : 1;
    }
    for (int word = 1; word < count; ++word) {
        if (strstr(words[word], "disabled")) {
            return 2;
        }
    }
    puts("[ RUN      ] Part.steps");
    fflush(stdout);
    if (steps(1) == 3) {
        return 0;
    }
    puts("[  FAILED  ] Part.steps, where");
    return 1;
}
"""


class Run(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        allowed = subprocess.run("bwrap --unshare-pid --unshare-net --ro-bind / / --proc /proc -- true".split(), capture_output=True,
                                 text=True, check=False)
        if allowed.returncode != 0:
            reason = f"skipped: nothing can be planted here: {allowed.stderr.strip()}"
            print(reason)
            raise unittest.SkipTest(reason)

    def setUp(self):
        self.project = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        files = {"CMakeLists.txt": PROJECT, "CMakePresets.json": PRESETS, "part/part.c": PART, "tests/part_test.c": TEST,
                 "scripts/setup.sh": "#!/bin/sh\n"}
        for name, text in files.items():
            (self.project / name).parent.mkdir(exist_ok=True)
            (self.project / name).write_text(text)
        (self.project / "scripts/setup.sh").chmod(0o755)
        for name in ("faults.sh", "common.sh", "plant_faults.py", "fault_places.py"):
            shutil.copy(ROOT / "scripts" / name, self.project / "scripts" / name)

    def plant(self, *words):
        return subprocess.run([self.project / "scripts/faults.sh", *words], timeout=200, check=False, text=True, capture_output=True)

    def report(self):
        return (self.project / "build/faults/report.txt").read_text()

    def test_faults_are_killed_or_survive_or_are_equivalent_or_hang(self):
        ended = self.plant("--only=part/part.c:4:constant", "--only=part/part.c:9:constant", "--only=part/part.c:14",
                           "--only=part/part.c:16:relation", "--only=part/part.c:21:relation", "--only=part/part.c:22:statement")
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertRegex(ended.stdout, r"part/part.c:4:constant: killed by adds, ")
        self.assertRegex(ended.stdout, r"part/part.c:9:constant: survived, ")
        self.assertRegex(ended.stdout, r"part/part.c:14:statement: equivalent \(the optimized object code does not change\), ")
        self.assertRegex(ended.stdout, r"part/part.c:16:relation: equivalent \(the object code does not change\), ")
        self.assertRegex(ended.stdout, r"part/part.c:21:relation: killed by Part.steps \(part_test\), ")
        self.assertRegex(ended.stdout, r"part/part.c:22:statement: killed by Part.steps \(part_test\), which takes longer than \d\d s, "
                                       r"\d\d\.")
        self.assertEqual(self.report(), ended.stdout[ended.stdout.index("7 planted: "):])
        self.assertIn("3 killed, 1 survived, 3 equivalent; 0 others did not compile\n", self.report())
        self.assertEqual(self.report().splitlines()[1:], ["part/part.c:9: constant: return a + 3; -> return a + 4;"])

        # Tests the survivor again after a test for it was written. The sources are unchanged.
        (self.project / "tests/part_test.c").write_text(TEST.replace("add(2, 3) == 5", "add(2, 3) == 5 && unseen(1) == 4")
                                                        .replace("int main", "int unseen(int a);\nint main", 1))
        ended = self.plant("--only=survivors")
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertIn("part/part.c:9:constant: killed by adds", ended.stdout)
        self.assertIn("1 planted: 1 killed, 0 survived", self.report())
        self.assertEqual((self.project / "part/part.c").read_text(), PART)
        self.assertEqual((self.project / "build/faults/source/part/part.c").read_text(), PART)

    def test_a_fault_that_does_not_compile_is_replaced_by_the_next_one(self):
        wide = "struct A { int a : 32; };\nstruct B { int b : 32; };\n"
        (self.project / "part/part.c").write_text(PART.replace("int limit = 0;\n", ""))
        (self.project / "part/odd.c").write_text(wide + "int odd(void) { return 1; }\n")
        (self.project / "CMakeLists.txt").write_text(PROJECT.replace("part/part.c", "part/part.c part/odd.c"))
        for seed in range(100):
            listed = self.plant("--list", f"--seed={seed}", "part/odd.c").stdout.splitlines()
            if "odd.c:3:" in listed[2]:
                break
        ended = self.plant("1", f"--seed={seed}", "part/odd.c")
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertIn("1 planted: 0 killed, 1 survived, 0 equivalent; 2 others did not compile\npart/odd.c:3: constant: ", self.report())

    def test_tests_that_fail_without_a_fault_end_the_run(self):
        self.assertIn("running 2 tests without a fault", self.plant("--only=part/part.c:4:constant").stdout)
        self.assertNotIn("running", self.plant("--only=part/part.c:4:constant").stdout)
        (self.project / "part/part.c").write_text(PART.replace("+ 0", "+ 1"))
        ended = self.plant("1", "part")
        self.assertEqual((ended.returncode, ended.stdout.count("planted")), (1, 0))
        self.assertIn("these tests fail even without a fault: adds", ended.stderr)

    def test_an_interrupted_run_reports_its_results_and_leaves_no_fault_and_no_process(self):
        words = [self.project / "scripts/faults.sh", "--only=part/part.c:4:constant", "--only=part/part.c:22:statement"]
        for ending in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(ending=ending), subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                                               text=True) as run:
                while "killed by adds" not in run.stdout.readline():
                    self.assertIsNone(run.poll())
                running = self.project / "build/faults/tmp"
                while not any(running.glob("*/")):
                    time.sleep(0.01)
                run.send_signal(ending)
                self.assertIn("1 planted: 1 killed", run.stdout.read())
                self.assertEqual(run.wait(), 130)
                self.assertEqual((self.project / "build/faults/source/part/part.c").read_text(), PART)
                self.assertEqual(list(running.iterdir()), [])

    def test_an_unknown_place_is_refused_and_named(self):
        for word in ("part/part.c:3", "part/part.c:4:lock", "part/none.c:1"):
            with self.subTest(word=word):
                ended = self.plant("--list", f"--only={word}")
                self.assertEqual((ended.returncode, ended.stdout), (1, ""))
                self.assertIn(f'no fault can be planted at "{word}"', ended.stderr)

    def test_a_path_without_code_is_refused(self):
        ended = self.plant("--list", "1", "CMakeLists.txt")
        self.assertEqual((ended.returncode, ended.stdout), (1, ""))
        self.assertIn("no fault can be planted in CMakeLists.txt", ended.stderr)

    def test_the_seed_determines_the_list(self):
        lists = [self.plant("--list", "5", f"--seed={seed}", "part").stdout for seed in (1, 1, 2)]
        self.assertEqual(len(lists[0].splitlines()), 5)
        self.assertEqual(lists[0], lists[1])
        self.assertNotEqual(lists[0], lists[2])
        self.assertFalse((self.project / "build/faults/source").exists())


if __name__ == "__main__":
    unittest.main()
