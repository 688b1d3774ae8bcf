"""Each error of the generator has a fixture in errors.txt: a title, declarations, the text of the error.

Usage: errors_test.py [--rewrite]. With --rewrite the texts are written anew; read the difference before it
is committed."""

import ast
import pathlib
import re
import sys
import traceback
import unittest

import support

import bounded  # noqa: E402  found by support
import check
import config
import parse
import reasons
import view

FIXTURES = support.HERE / "errors.txt"
RAISING = {"fail", "need", "name", "symbol", "sentence", "handler", "start", "quoted", "ZetError"}


def fixtures():
    """(title, declarations, expected text) of each fixture."""
    text = FIXTURES.read_text(encoding="utf-8")
    found = re.findall(r"^== (.*)\n((?:.*\n)*?)----\n((?:(?!== ).*\n)*)", text, re.M)
    return [(title, text, expected.strip()) for title, text, expected in found]


def error_of(text):
    """The text of the error in the declarations, and the lines of the generator through which it went."""
    try:
        files = [parse.parse("fixture", text)]
        check.Model(files)
        config.Tables(files)
        view.Views(files)
    except parse.ZetError as error:
        frames = traceback.extract_tb(error.__traceback__)
        return str(error), {(pathlib.Path(f.filename).name, f.lineno) for f in frames}
    return "no error", set()


def places_of_errors():
    """(file, first line, last line) of each call in the generator that can raise an error."""
    for module in (parse, bounded, check, config, reasons, view):
        for node in ast.walk(ast.parse(pathlib.Path(module.__file__).read_text(encoding="utf-8"))):
            if isinstance(node, ast.Call):
                called = getattr(node.func, "attr", None) or getattr(node.func, "id", None)
                if called in RAISING:
                    yield pathlib.Path(module.__file__).name, node.lineno, node.end_lineno


class ErrorsTest(unittest.TestCase):
    def test_each_fixture_raises_its_text(self):
        for title, text, expected in fixtures():
            with self.subTest(title):
                self.assertEqual(error_of(text)[0], expected)

    def test_each_text_has_a_place_and_says_what_would_be_valid(self):
        for title, _, expected in fixtures():
            with self.subTest(title):
                self.assertRegex(expected, r"^fixture\.zet:\d+:\d+: .+; .+ would be valid$")

    def test_each_error_has_a_fixture(self):
        passed = set().union(*(error_of(text)[1] for _, text, _ in fixtures()))
        missing = {f"{file}:{first}" for file, first, last in places_of_errors()
                   if not any((file, line) in passed for line in range(first, last + 1))}
        self.assertEqual(sorted(missing), [])

    def test_titles_are_not_used_twice(self):
        titles = [title for title, _, _ in fixtures()]
        self.assertEqual(len(titles), len(set(titles)))
        self.assertGreater(len(titles), 60)


if __name__ == "__main__":
    if "--rewrite" in sys.argv:
        written = [f"== {title}\n{text}----\n{error_of(text)[0]}\n" for title, text, _ in fixtures()]
        FIXTURES.write_text("".join(written), encoding="utf-8")
    else:
        unittest.main()
