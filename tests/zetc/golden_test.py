"""What the generator makes of sample declarations, word for word.

Usage: golden_test.py [--rewrite]. With --rewrite the golden files are made anew; read the difference before
it is committed."""

import pathlib
import sys
import tempfile
import unittest

import support

GOLDEN = support.HERE / "golden"
SAMPLES = ("Lamp", "Dimmer", "House", "Settings", "Darkness", "Bill", "Percent", "Scale")


def generated():
    """Name and text of all that is made of the samples."""
    with tempfile.TemporaryDirectory() as out:
        done = support.run(support.HERE, out, *(f"golden/{name}.zet" for name in SAMPLES))
        if done.returncode != 0:
            raise RuntimeError(done.stderr)
        paths = sorted(p for p in pathlib.Path(out).rglob("*") if p.is_file())
        return {p.name: p.read_text(encoding="utf-8") for p in paths}


class Golden(unittest.TestCase):
    maxDiff = None

    def test_output_is_as_it_was(self):
        made = generated()
        golden = {p.stem: p.read_text(encoding="utf-8") for p in GOLDEN.glob("*.golden")}
        self.assertEqual(sorted(made), sorted(golden))
        for name, text in made.items():
            with self.subTest(name):
                self.assertMultiLineEqual(text, golden[name])


if __name__ == "__main__":
    if "--rewrite" in sys.argv:
        for stale in GOLDEN.glob("*.golden"):
            stale.unlink()
        for file, content in generated().items():
            (GOLDEN / (file + ".golden")).write_text(content, encoding="utf-8")
    else:
        unittest.main()
