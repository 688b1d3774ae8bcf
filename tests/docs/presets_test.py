"""The presets of CMake set options that exist, and scripts and CONTRIBUTING.md name presets that exist."""

import json
import pathlib
import re
import subprocess
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PRESETS = json.loads((ROOT / "CMakePresets.json").read_text(encoding="utf-8"))
# A script or page that configures without a preset would have its own idea of what a build is.
USERS = [path for path in (ROOT / "scripts").iterdir() if path.is_file()] + [ROOT / "CONTRIBUTING.md"]


def names(kind):
    return [preset["name"] for preset in PRESETS[kind] if not preset.get("hidden")]


class PresetsTest(unittest.TestCase):
    def test_there_is_one_for_each_purpose(self):
        self.assertEqual(sorted(names("configurePresets")),
                         ["bench", "coverage", "fuzz", "release", "sanitize"])

    def test_cmake_reads_them(self):
        listed = subprocess.run(["cmake", "--list-presets=all"], cwd=ROOT, capture_output=True, text=True,
                                check=True).stdout
        for kind in ("configurePresets", "buildPresets", "testPresets"):
            for name in names(kind):
                self.assertIn(f'"{name}"', listed)

    def test_each_option_is_declared(self):
        files = [ROOT / "CMakeLists.txt", *(ROOT / "cmake").glob("*.cmake")]
        text = "\n".join(path.read_text(encoding="utf-8") for path in files)
        declared = set(re.findall(r"^(?:option|set)\((PIMBSR_\w+)", text, re.M))
        used = {name for preset in PRESETS["configurePresets"] for name in preset.get("cacheVariables", {})}
        self.assertGreater(len(used), 4)
        self.assertEqual({name for name in used - declared if not name.startswith("CMAKE_")}, set())

    def test_each_named_preset_exists(self):
        for path in USERS:
            for name in re.findall(r"cmake --preset (\S+)", path.read_text(encoding="utf-8")):
                with self.subTest(path.name):
                    self.assertIn(name, names("configurePresets"))

    def test_folders_are_those_of_the_page(self):
        page = (ROOT / "CONTRIBUTING.md").read_text(encoding="utf-8")
        rows = re.findall(r"^\| (\w+) \| `(build/\w+)` \|", page, re.M)
        folders = [(preset["name"], preset["binaryDir"].removeprefix("${sourceDir}/"))
                   for preset in PRESETS["configurePresets"] if "binaryDir" in preset]
        self.assertEqual(sorted(rows), sorted(folders))


if __name__ == "__main__":
    unittest.main()
