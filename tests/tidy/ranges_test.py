"""A bound that is declared is found where it is repeated, and nothing else."""

import unittest

import ranges

DECLARED = {"host/A.zet": "key a : U64 = 60 unit s range 10 13652", "model/B.zet": "attribute b range 0 4096",
            "model/C.zet": "attribute c range 3 700"}


class RangesTest(unittest.TestCase):
    def found(self, line, path="sim/A.cpp"):
        return [text.split(" is ")[0] for _, _, text in ranges.check({**DECLARED, path: line})]

    def test_bounds_are_those_of_declarations_and_of_widths(self):
        self.assertEqual({700, 13652, 65535, 4294967295}, ranges.bounds(DECLARED))

    def test_a_planted_bound_is_found_in_code_texts_and_comments(self):
        for line, bound in [("line.number(key, 10, 13652);", "13652"), ("/// 10 to 13652 seconds", "13652"),
                            ('"from 3 to 700\\n(default 5)"', "700"),
                            ("value <= 4294967295.0", "4294967295"),
                            ('parse("224.0.0.0/4")', "224.0.0.0/4"), ("0xe000000d", "0xe000000d")]:
            with self.subTest(line):
                self.assertEqual([bound], self.found(line))

    def test_a_planted_group_is_found_in_declarations_and_scripts_too(self):
        for line, path in [('key groups otherwise "[\\"224.0.0.0/4\\"], or []"', "agent/config/A.zet"),
                           ('const ALL = "224.0.0.0/4";', "web/src/a.js"),
                           ('field zone = "224.0.0.0/4"', "view/A.zet")]:
            with self.subTest(path):
                self.assertEqual(["224.0.0.0/4"], self.found(line, path))
        for line, path in [("a zone; 224.0.0.0/4 is the global one", "view/A.zet"), ("13652", "web/src/a.js"),
                           ("range 10 13652", "agent/config/A.zet"), ('"224.0.0.0/4"', "tests/web/a.js")]:
            self.assertEqual([], self.found(line, path), path)

    def test_other_numbers_stay(self):
        for line in ["10", "1700", "7000", "239.700.1.2", "700.1.1.0", "4096", "0x700", "x700", "700u8"]:
            self.assertEqual([], self.found(line), line)

    def test_only_sources_of_the_edges_are_held_to_it(self):
        for path in ["model/A.h", "tests/sim/A.cpp", "sim/A.zet", "docs/a.md"]:
            self.assertEqual([], self.found("13652", path), path)

    def test_an_allowance_has_a_reason_and_is_used(self):
        self.assertTrue(all(ranges.ALLOWED.values()))
        unused = "255 isn't there: remove it from ALLOWED of tests/tidy/ranges.py"
        self.assertEqual([("wire/Wire.h", 0, unused)], list(ranges.check({"wire/Wire.h": "65535"})))


if __name__ == "__main__":
    unittest.main()
