"""Makes C++ from declaration files: zetc --root DIR --out DIR FILE.zet ..."""

import argparse
import os
import sys

from check import Model
from emit import emit_file, emit_reference
from parse import ZetError, parse


def write(path, text):
    """Writes only what changed, so that nothing is rebuilt in vain."""
    if os.path.exists(path):
        with open(path, encoding="utf-8") as f:
            if f.read() == text:
                return
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


def main():
    arguments = argparse.ArgumentParser(prog="zetc", description=__doc__)
    arguments.add_argument("--root", required=True)
    arguments.add_argument("--out", required=True)
    arguments.add_argument("files", nargs="+")
    given = arguments.parse_args()
    files = []
    for name in sorted(given.files):
        path = os.path.relpath(name, given.root) if os.path.isabs(name) else name
        with open(os.path.join(given.root, path), encoding="utf-8") as f:
            files.append(parse(path.removesuffix(".zet"), f.read()))
    model = Model(files)
    for file in files:
        header, source = emit_file(model, file, os.path.exists)
        write(os.path.join(given.out, file.path + ".zet.h"), header)
        write(os.path.join(given.out, file.path + ".zet.cpp"), source)
    write(os.path.join(given.out, "reference.md"), emit_reference(model))


if __name__ == "__main__":
    try:
        main()
    except ZetError as error:
        sys.exit(f"zetc: {error}")
