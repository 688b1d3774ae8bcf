"""The examples of docs/language.md: what is generated from them compiles and has each line of C++ that the
page shows, and each word of the grammar is in one of them.

Usage: language_test.py ZET CXX [TEST...]: the folder of the tree's generated sources, and the compiler."""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
ZETC = ROOT / "runtime" / "zetc"
PAGE = ROOT / "docs" / "language.md"
# Where the generator reads a word: by itself, or as one of a tuple or of the keys of a dictionary.
ALONE = (r'\b(?:accept|quoted)\((?:p, |parser, )?"(\w+)"\)', r'(?:peek\(\)\.text|if name) == "(\w+)"')
ONE_OF = (r"^(?:CLASSES|PLAIN|BY_KEY|REACTORS) = \(([^)]*)\)", r"word(?:\.text)? in \(([^)]*)\)",
          r"peek\(\)\.text (?:not )?in \(([^)]*)\)")
KEYS_OF = (r"^(?:OPTIONS|TEXTS) = (\{[^}]*\})", r" does = .*(\{[^}]*\})",
           r"STATEMENTS(?: \|= |\.update)(.*)$")


def blocks():
    """(language, text) of each fenced block."""
    return re.findall(r"^```(\w+)\n(.*?)^```$", PAGE.read_text(encoding="utf-8"), re.M | re.S)


def declarations():
    """The text of each example by its path, which is its first line."""
    found = {}
    for language, text in blocks():
        if language == "zet":
            path = re.match(r"# (\S+\.zet)\n", text)
            found[path[1]] = text
    return found


def words_of_the_grammar():
    """All words that a declaration can have, from the generator's sources."""
    text = "\n".join(path.read_text(encoding="utf-8") for path in ZETC.glob("*.py"))
    found = {word for pattern in ALONE for word in re.findall(pattern, text)}
    for pattern, word in [(p, r'"(\w+)"') for p in ONE_OF] + [(p, r'"?(\w+)"?[:=]') for p in KEYS_OF]:
        found |= {name for table in re.findall(pattern, text, re.M) for name in re.findall(word, table)}
    return found


def plain(line):
    """A line of C++ without its comment and the blanks around it."""
    return re.sub(r"\s*///?<? .*", "", line).strip() or line.strip()


class LanguageTest(unittest.TestCase):
    zet, compiler = "", ""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        for path, text in declarations().items():
            (cls.folder / path).parent.mkdir(exist_ok=True)
            (cls.folder / path).write_text(text, encoding="utf-8")
        command = [sys.executable, "-B", ZETC, "--root", cls.folder, "--out", cls.folder, *declarations()]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        if done.returncode:
            raise AssertionError(done.stderr)

    def made(self):
        return {path: path.read_text(encoding="utf-8") for path in sorted(self.folder.glob("*/*.h"))}

    def test_each_shown_line_of_cpp_is_generated(self):
        made = {plain(line) for text in self.made().values() for line in text.split("\n")}
        cpp = "".join(text for language, text in blocks() if language == "cpp")
        shown = [plain(line) for line in cpp.splitlines()]
        self.assertGreater(len(shown), 20)
        self.assertEqual([line for line in shown if line not in made], [])

    def test_each_word_of_the_grammar_has_an_example_and_a_production(self):
        words = words_of_the_grammar()
        self.assertGreater(len(words), 60)
        self.assertLessEqual({"use", "entity", "watch", "reflected", "key", "library", "view", "defaulted",
                              "yes", "reasons", "part", "raw", "const", "replay", "config"}, words)
        text = re.sub(r'"[^"]*"|#.*', "", "\n".join(declarations().values()))
        examples = set(re.findall(r"\w+", text))
        self.assertEqual(sorted(words - examples), [])
        grammar = next(text for language, text in blocks() if text.startswith("file "))
        self.assertEqual(sorted(words - set(re.findall(r'"(\w+)"', grammar))), [])

    def test_each_word_of_the_productions_is_read(self):
        grammar = next(text for language, text in blocks() if text.startswith("file "))
        self.assertEqual(sorted(set(re.findall(r'"(\w+)"', grammar)) - words_of_the_grammar()), [])

    def test_what_is_generated_compiles(self):
        sources = []
        for path in declarations():
            header = (self.folder / path).with_suffix(".h")
            header.write_text(f'#pragma once\n\n#include "{path}.h"\n', encoding="utf-8")
            sources += [f'#include "{path}.cpp"\n']
        every = self.folder / "every.cpp"
        every.write_text("".join(sources), encoding="utf-8")
        # As in cmake/Flags.cmake: clang warns of typed attachments that hide constant ones.
        warnings = ["-Wall", "-Wextra", "-Wno-missing-field-initializers", "-Wno-overloaded-virtual"]
        folders = [word for folder in (self.folder, ROOT, self.zet) for word in ("-I", folder)]
        command = [self.compiler, "-std=c++20", "-fsyntax-only", *warnings, *folders, every]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(done.stderr, "")


if __name__ == "__main__":
    LanguageTest.zet, LanguageTest.compiler = sys.argv[1:3]
    del sys.argv[1:3]
    unittest.main()
