"""What scripts/coverage-modules.py takes as reached, in a program that is compiled with gcov and run."""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "coverage-modules.py"
HEADER = """#pragma once
template <class T>
int signOf(T const& value) {
  if (value < T{}) return -1;
  return 1;
}
"""
SOURCE = """#include <cstdlib>
#include <string>
#include "m/sign.h"
#define ZET_ASSERT(condition, text) (static_cast<bool>(condition) ? void(0) : std::abort())

std::string joined(std::string const& one, bool isLong) {
  std::string text = one + ", " + one;
  if (isLong) text += one + text;
  static std::string const end = text + one;
  ZET_ASSERT(!text.empty(),
             "never empty");
  return text + end;
}

int unused(int value) {
  return value + 1;  // a comment may change
}

int caught(std::string const& text) {
  try {
    return std::stoi(text);
  } catch (std::exception const& error) {
    if (error.what() == text) return 1;
    return 2;
  }
}

int main() {
  switch (signOf(-1)) {
    case 7: return unused(1);
    default: break;
  }
  std::string const x = "x";
  bool isEmpty = joined(x, false).empty();
  return isEmpty || caught(x) != 2 || signOf(2.5) < 0;
}
"""
MISSING = [
    "m/main.cpp: branches 1: if (isLong) text += one + text;",
    "m/main.cpp: line: return value + 1;",
    "m/main.cpp: line: int unused(int value) {",
    "m/main.cpp: branches 1: if (error.what() == text) return 1;",
    "m/main.cpp: branches 1: switch (signOf(-1)) {",
    "m/main.cpp: line: case 7: return unused(1);",
    "m/main.cpp: branches 3: return isEmpty || caught(x) != 2 || signOf(2.5) < 0;",
]


class CoverageModulesTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        for name in ("m", "docs"):
            (self.root / name).mkdir()
        (self.root / "m/sign.h").write_text(HEADER, encoding="utf-8")
        self.compile(SOURCE)
        subprocess.run(["./program"], cwd=self.root, check=True)

    def compile(self, source):
        (self.root / "m/main.cpp").write_text(source, encoding="utf-8")
        command = ["g++", "-std=c++20", "--coverage", "-O0", "-I.", "m/main.cpp", "-o", "program"]
        subprocess.run(command, cwd=self.root, check=True)

    def run_script(self, *options):
        command = [sys.executable, "-B", SCRIPT, *options, self.root, self.root, "m"]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def list_is(self, lines, row="| `m` | 87.0 % | 57.1 % |"):
        listed = "\n".join([*lines, "other/x.cpp: line: return;"])
        text = f"# Coverage\n\n{row}\n\n```text\n{listed}\n```\n"
        (self.root / "docs/coverage.md").write_text(text, encoding="utf-8")

    def test_what_is_not_reached_is_in_the_list_or_an_error(self):
        self.list_is([])
        done = self.run_script()
        self.assertEqual(done.returncode, 1, done.stderr)
        found = re.findall(r"^not reached, and not in docs/coverage.md: (.*)$", done.stdout, re.M)
        self.assertEqual(sorted(found), sorted(MISSING))
        self.list_is(MISSING)
        self.assertEqual(self.run_script().returncode, 0)

    def test_what_is_listed_and_reached_is_an_error(self):
        self.list_is([*MISSING, "m/main.cpp: line: return text + end;"])
        done = self.run_script()
        self.assertEqual(done.returncode, 1)
        self.assertIn("in docs/coverage.md, and reached: m/main.cpp: line: return text + end;", done.stdout)

    def test_other_shares_than_those_shown_are_an_error(self):
        for row in ("| `m` | 87.0 % | 57.2 % |", "| `m` | 86.9 % | 57.1 % |", ""):
            self.list_is(MISSING, row)
            done = self.run_script()
            self.assertEqual(done.returncode, 1)
            self.assertIn("not the row of docs/coverage.md: | `m` | 87.0 % | 57.1 % |\n", done.stdout)

    def test_sums_are_printed_by_module(self):
        done = self.run_script("--sums")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertRegex(done.stdout, r"m +20/23 +87\.0 % +8/14 +57\.1 %")

    def test_fewer_branches_than_required_are_an_error(self):
        self.assertEqual(self.run_script("--sums", "--least", "57").returncode, 0)
        done = self.run_script("--sums", "--least", "95")
        self.assertEqual(done.returncode, 1)
        self.assertIn("a module has less than 95 % of its branches reached", done.stdout)

    def test_counts_of_another_build_are_an_error(self):
        self.compile(SOURCE.replace("if (isLong)", "while (isLong)"))
        done = self.run_script("--sums")
        self.assertEqual(done.returncode, 1)
        self.assertIn("is of another build", done.stderr)

    def test_source_that_was_changed_after_its_build_is_an_error(self):
        for name, text in (("m/main.cpp", SOURCE), ("m/sign.h", HEADER)):
            with self.subTest(name):
                (self.root / name).write_text(text[:len(text) // 2], encoding="utf-8")
                done = self.run_script("--sums")
                self.assertEqual(done.returncode, 1)
                self.assertEqual(done.stderr, f"{name} was changed after it was built: build it anew\n")
                (self.root / name).write_text(text, encoding="utf-8")
                self.compile(SOURCE)


if __name__ == "__main__":
    unittest.main()
