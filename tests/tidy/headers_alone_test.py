"""A header that needs another one before it is found."""

import pathlib
import tempfile
import unittest

import headers_alone

COMMAND = ["g++", "-std=c++20", "-O0"]


class HeadersAloneTest(unittest.TestCase):
    def errors(self, files, cache=None):
        with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as objects:
            root = pathlib.Path(folder)
            for name, text in files.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text("#pragma once\n" + text)
            command = [*COMMAND, f"-I{folder}"]
            compiler = headers_alone.Compiler(command, pathlib.Path(objects), cache)
            found = headers_alone.errors(root, [], compiler)
            return [error.split("\n")[0] for error in found]

    def test_a_header_without_what_it_needs_is_found(self):
        pointer = "#include <memory>\nstruct B;\ninline B make(std::unique_ptr<B> b) { return *b; }\n"
        self.assertEqual(["a/Needs.h:1: doesn't compile alone", "a/Use.h:1: doesn't compile alone"],
                         self.errors({"a/Needs.h": "inline int twice(Number n) { return 2 * n; }\n",
                                      "a/Number.h": "using Number = int;\n",
                                      "a/Right.h": '#include "a/Number.h"\ninline Number n = 1;\n',
                                      "a/Use.h": pointer}))

    def test_a_cache_finds_the_same(self):
        with tempfile.TemporaryDirectory() as folder:
            cache = pathlib.Path(folder) / "cache"
            cache.write_text('#!/bin/sh\necho "$*" >>"$(dirname "$0")/calls"\nexec "$@"\n')
            cache.chmod(0o755)
            self.assertEqual(["a/Needs.h:1: doesn't compile alone"],
                             self.errors({"a/Needs.h": "inline int twice(Number n) { return 2 * n; }\n",
                                          "a/Number.h": "using Number = int;\n"}, str(cache)))
            calls = (pathlib.Path(folder) / "calls").read_text().splitlines()
            self.assertEqual(4, len(calls))  # both together, then one by one
            self.assertFalse([call for call in calls if "-fsyntax-only" in call])

    def test_headers_share_a_compilation_if_each_reaches_the_one_before(self):
        self.assertEqual(["a/Other.h:1: doesn't compile alone"],
                         self.errors({"a/First.h": "struct First {};\n",
                                      "a/Last.h": '#include "a/Middle.h"\ninline Middle last;\n',
                                      "a/Middle.h": '#include "a/First.h"\nstruct Middle : First {};\n',
                                      "a/Other.h": "inline First other;\n"}))
        texts = {"a": '#include "b"\n#include "c"\n', "b": '#include "d"\n', "c": "",
                 "d": '#include "made"\n', "e": '#include "d"\n', "made": '#include "f"\n', "f": ""}
        own = [name for name in texts if name != "made"]
        self.assertEqual([["f", "d", "b", "a"], ["e"], ["c"]], list(headers_alone.chains(own, texts)))

    def test_an_include_after_code_is_found(self):
        self.assertEqual(["a/Late.h:5: an include comes after code"],
                         self.errors({"a/First.h": "/* int a;\n#include */\n#if 1\n#include <map>\n#endif\n",
                                      "a/Late.h": "// int a;\nint b();\n#define C\n#include <map>\n"}))

    def test_a_library_header_must_be_reached(self):
        self.assertEqual(["a/A.h:1: reaches no <string>", "a/D.h:1: reaches no <map>"],
                         self.errors({"a/A.h": "inline std::string a;\n",
                                      "a/B.h": "#include <string>\ninline std::string b;\n",
                                      "a/C.h": '#include "a/B.h"\ninline std::string c;  // a std::map\n',
                                      "a/D.h": "inline std::map<int, int> d;\n"}))

    def test_the_options_of_a_database_are_paths_and_definitions(self):
        self.assertEqual(("g++", ["-DA=1", "-I/x", "-I/y"]), headers_alone.options([
            {"command": "g++ -DA=1 -Dlib_EXPORTS -I/x -isystem /y -O1 -o a.o -c a.cpp"},
            {"command": "g++ -DA=1 -I /x -c b.cpp"}]))


if __name__ == "__main__":
    unittest.main()
