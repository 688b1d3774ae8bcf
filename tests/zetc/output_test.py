"""When and what the generator writes."""

import os
import pathlib
import re
import shutil
import tempfile
import unittest

import support

LONG_AGO = 1_000_000_000


class Output(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root, self.out = pathlib.Path(folder.name) / "root", pathlib.Path(folder.name) / "out"
        (self.root / "golden").mkdir(parents=True)
        self.files = ["golden/Dimmer.zet", "golden/House.zet", "golden/Lamp.zet"]
        for name in self.files:
            shutil.copy(support.HERE / name, self.root / name)

    def generate(self, files=None, out=None):
        done = support.run(self.root, out or self.out, *(files or self.files))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return {str(p.relative_to(out or self.out)): p.read_text(encoding="utf-8")
                for p in (out or self.out).rglob("*") if p.is_file()}

    def written(self):
        """Runs again and returns which files were written."""
        for path in (p for p in self.out.rglob("*") if p.is_file()):
            os.utime(path, (LONG_AGO, LONG_AGO))
        self.generate()
        return sorted(str(p.relative_to(self.out)) for p in self.out.rglob("*")
                      if p.is_file() and p.stat().st_mtime != LONG_AGO)

    def test_two_files_for_each_declaration_and_one_page(self):
        self.assertEqual(sorted(self.generate()), [
            "golden/Dimmer.zet.cpp", "golden/Dimmer.zet.h", "golden/House.zet.cpp", "golden/House.zet.h",
            "golden/Lamp.zet.cpp", "golden/Lamp.zet.h", "reference.md"])

    def test_the_same_whatever_the_order_and_form_of_the_paths(self):
        first = self.generate()
        self.assertEqual(self.generate(self.files[::-1], self.out / "reversed"), first)
        absolute = [str(self.root / name) for name in self.files]
        self.assertEqual(self.generate(absolute, self.out / "absolute"), first)

    def test_what_is_unchanged_keeps_its_time(self):
        self.generate()
        self.assertEqual(self.written(), [])

    def test_only_what_changed_is_written(self):
        self.generate()
        house = self.root / "golden/House.zet"
        text = house.read_text(encoding="utf-8")
        house.write_text(text.replace("Owns dimmers.", "Has dimmers."), encoding="utf-8")
        self.assertEqual(self.written(), ["golden/House.zet.cpp", "golden/House.zet.h", "reference.md"])

    def test_a_comment_changes_nothing(self):
        self.generate()
        house = self.root / "golden/House.zet"
        house.write_text("# A remark.\n" + house.read_text(encoding="utf-8"), encoding="utf-8")
        self.assertEqual(self.written(), [])

    def test_a_value_adds_one_function_to_those_that_a_library_exports(self):
        """All others are inline, so cmake/symbols gains one name (docs/architecture.md)."""
        def functions():
            made = self.generate()
            return (set(re.findall(r"^(?:\w.* )?([\w:~]+)\(.*[{}]$", made["golden/Lamp.zet.cpp"], re.M)),
                    set(re.findall(r"^ +(\S.*\));$", made["golden/Lamp.zet.h"], re.M)))

        defined, declared = functions()
        lamp = self.root / "golden/Lamp.zet"
        watts, volts = "  value watts", '  value volts : U8 = 3 range 1 6 "bad volts" "Its voltage"\n'
        text = lamp.read_text(encoding="utf-8")
        lamp.write_text(text.replace(watts, volts + watts), encoding="utf-8")
        more_defined, more_declared = functions()
        self.assertIn("Bulb::ZetNboAttrLogSa::onWatts", defined)
        self.assertEqual({"Bulb::ZetNboAttrLogSa::onVolts"}, more_defined ^ defined)
        self.assertEqual(set(), more_declared ^ declared)

    def test_an_error_is_reported_with_its_place_and_nothing_is_written(self):
        (self.root / "golden/House.zet").write_text("namespace Sample\nmachine {", encoding="utf-8")
        done = support.run(self.root, self.out, *self.files)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, "zetc: golden/House.zet:2:9: unexpected {; "
                                      "the name of the class would be valid\n")
        self.assertFalse(self.out.exists())

    def test_the_generator_stays_small(self):
        lines = {p.stem: len(p.read_text(encoding="utf-8").splitlines()) for p in support.ZETC.glob("*.py")}
        engine = sum(lines.pop(name) for name in ("__main__", "check", "emit", "names", "parse", "rows"))
        self.assertLessEqual(engine, 1210)
        self.assertLessEqual(max(lines.values()), 330)



class ReasonsPage(unittest.TestCase):
    def test_page_of_the_drop_reasons_is_that_of_the_catalogue(self):
        root = support.HERE.parents[1]
        with tempfile.TemporaryDirectory() as out:
            done = support.run(root, out, "model/DropReason.zet")
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            made = (pathlib.Path(out) / "model/DropReason.md").read_text(encoding="utf-8")
        self.assertEqual(made, (root / "docs/drop-reasons.md").read_text(encoding="utf-8"))

if __name__ == "__main__":
    unittest.main()
