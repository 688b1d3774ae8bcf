"""The site that scripts/docs builds: without a warning, with each page, installed header and example, and
with all that it links to.

Usage: site_test.py OUT [TEST...]: the folder for the site."""

import html
import os
import pathlib
import re
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", ROOT / "CHANGELOG.md", ROOT / "examples/README.md",
         *(ROOT / "docs").glob("*.md")]
EXAMPLES = [path for path in (ROOT / "examples").rglob("*")
            if path.is_file() and path.suffix in (".cpp", ".h", ".txt", ".toml", ".sim", ".py")]
HEADERS = subprocess.run(["cmake", f"-DZET={ROOT}", "-P", ROOT / "cmake/Face.cmake"], capture_output=True,
                         text=True, check=True).stdout.split()


def text_of(page):
    """The text of an HTML page, without tags, blanks and line numbers."""
    text = re.sub(r'<a id="l\d+".*?</span>|<[^>]*>', "", page.read_text(encoding="utf-8"))
    return re.sub(r"\s", "", html.unescape(text))


class SiteTest(unittest.TestCase):
    out = pathlib.Path()

    @classmethod
    def setUpClass(cls):
        done = subprocess.run([ROOT / "scripts/docs"], env=dict(os.environ, DOCS_OUT=str(cls.out)),
                              capture_output=True, text=True, check=False)
        if done.returncode:
            raise AssertionError(done.stdout + done.stderr)
        cls.said = done.stdout
        cls.texts = {page.name: text_of(page) for page in cls.out.glob("*.html")}

    def test_the_first_page_is_printed_and_is_the_readme(self):
        self.assertEqual(self.said.splitlines()[-1], str(self.out / "index.html"))
        self.assertIn("BootstrapRouter", self.texts["index.html"])

    def test_each_page_is_there_by_its_first_heading(self):
        for page in PAGES:
            with self.subTest(page.name):
                heading = page.read_text(encoding="utf-8").splitlines()[0].lstrip("# ")
                words = re.sub(r"[\s`]", "", heading)
                self.assertTrue(any(words in text for text in self.texts.values()))

    def test_each_example_is_there_line_by_line(self):
        self.assertIn("embed.cpp", [path.name for path in EXAMPLES])
        shown = [text for name, text in self.texts.items() if name.endswith("-example.html")]
        for path in EXAMPLES:
            lines = [re.sub(r"\s", "", line) for line in path.read_text(encoding="utf-8").splitlines()]
            with self.subTest(path.name):
                self.assertTrue(any(all(line in text for line in lines) for text in shown))

    def test_the_installed_headers_have_a_page_and_no_others(self):
        headers = {str(pathlib.Path(path).relative_to(ROOT)) for path in HEADERS}
        self.assertIn("host/Router.h", headers)
        titles = {html.unescape(title) for page in self.out.glob("*.html") for title in
                  re.findall(r"<title>pimbsr: ([^<]*\.h) File Reference", page.read_text(encoding="utf-8"))}
        self.assertEqual(titles, headers)

    def test_each_local_link_and_image_has_its_file(self):
        links = {(page.name, link) for page in self.out.glob("*.html")
                 for link in re.findall(r'\b(?:src|href|data)="([^"#]+)', page.read_text(encoding="utf-8"))
                 if ":" not in link}
        missing = [pair for pair in links if not (self.out / html.unescape(pair[1])).exists()]
        self.assertEqual(sorted(missing), [])
        self.assertIn(("index.html", "see.png"), links)


if __name__ == "__main__":
    SiteTest.out = pathlib.Path(sys.argv[1]).resolve()
    del sys.argv[1]
    unittest.main()
