"""Copied code is found, code that is only alike isn't."""

import pathlib
import shutil
import sys
import tempfile
import unittest

import clones

LINE = "  total += weight * entry.value() - other.value(entry.key());\n"


def function(name, lines):
    return f"void {name}() {{\n{lines}}}\n"


class ClonesTest(unittest.TestCase):
    def found(self, files):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in files.items():
                path = pathlib.Path(folder) / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            return [(path, line) for path, line, _ in clones.clones(pathlib.Path(folder))]

    def test_copied_code_is_found_in_two_files_and_in_one(self):
        a, b = function("a", LINE * 5), function("b", LINE * 5)
        self.assertEqual([("model/A.cpp", 1)], self.found({"model/A.cpp": a, "wire/B.cpp": b}))
        self.assertEqual(1, len(self.found({"model/A.cpp": a + "int between = 1;\n" + b})))

    def test_code_that_is_alike_but_for_names_stays(self):
        other = LINE.replace("total", "sum").replace("entry", "member").replace("other", "map")
        files = {"model/A.cpp": function("a", LINE * 5), "wire/B.cpp": function("b", other * 5)}
        self.assertEqual([], self.found(files))

    def test_short_runs_and_comments_stay(self):
        files = {"model/A.cpp": function("a", LINE * 2), "wire/B.cpp": function("b", LINE * 2)}
        self.assertEqual([], self.found(files))
        comment = "// total weight entry value other key\n" * 20
        self.assertEqual([], self.found({"model/A.cpp": comment, "wire/B.cpp": comment}))

    def test_tests_are_left_out(self):
        copy = function("a", LINE * 5)
        self.assertEqual([], self.found({"tests/model/A.cpp": copy, "tests/wire/B.cpp": copy}))
        self.assertEqual([], self.found({"tests/model/A.cpp": copy, "wire/B.cpp": copy}))

    def test_declarations_of_overrides_stay_and_their_bodies_do_not(self):
        declared = "".join(f"  // an event\n  void on{n}(Node const& node, int value) override;\n"
                           for n in "ABCDEFGH")
        body = f"  void onBody() override {{\n{LINE * 5}  }}\n"
        for members, found in [(declared, 0), (declared.replace(" override", ""), 1), (declared + body, 1)]:
            files = {f"cli/{name}.h": f"class {name} : Base {{\n{members}}};\n" for name in "AB"}
            self.assertEqual(found, len(self.found(files)), members)


if __name__ == "__main__":
    if not shutil.which("sim_c++"):
        print("skipped: no sim_c++; run scripts/setup")
        sys.exit(77)
    unittest.main()
