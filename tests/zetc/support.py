"""The generator as these tests reach it."""

import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
ZETC = HERE.parents[1] / "runtime" / "zetc"
sys.path.insert(0, str(ZETC))


def run(root, out, *files):
    """The finished process of one run of the generator."""
    command = [sys.executable, "-B", ZETC, "--root", root, "--out", out, *files]
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False)
