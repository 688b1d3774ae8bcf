"""Makes C++ from declaration files: zetc --root DIR --out DIR FILE.zet ..."""

import argparse
import os
import sys
from pathlib import Path

import bounded
import config
import config_emit
import reasons
from check import Model
from emit import emit_file, in_namespaces
from parse import ZetError, parse
from reference import emit_reference
from view import Views
from view_emit import ViewEmitter


def write(path, text):
    """Writes only what changed, so that nothing is rebuilt in vain."""
    if not path.exists() or path.read_text(encoding="utf-8") != text:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")


def main():
    arguments = argparse.ArgumentParser(prog="zetc", description=__doc__)
    arguments.add_argument("--root", required=True, type=Path, help="where the paths of declarations begin")
    arguments.add_argument("--out", required=True, type=Path)
    arguments.add_argument("files", nargs="+", help="declaration files, under root unless absolute")
    given = arguments.parse_args()
    paths = sorted(os.path.relpath(given.root / name, given.root) for name in given.files)
    files = [parse(path.removesuffix(".zet"), (given.root / path).read_text("utf-8")) for path in paths]
    model, tables = Model(files), config.Tables(files)
    views = ViewEmitter(Views(files), tables)
    for file in files:
        if config.is_declared_in(file):
            made = config_emit.emit_file(tables, file, in_namespaces)
        elif reasons.is_declared_in(file):
            made = reasons.emit_file(file, in_namespaces)
        elif bounded.is_declared_in(file):
            made = bounded.emit_file(file, in_namespaces)
        elif views.is_declared_in(file):
            made = views.emit_file(file)
        else:
            made = dict(zip((".zet.h", ".zet.cpp"), emit_file(model, file)))
        for kind, text in made.items():
            write(given.out / (file.path + kind), text)
    write(given.out / "reference.md", emit_reference(model))
    for name, text in views.documents().items():
        write(given.out / name, text)


if __name__ == "__main__":
    try:
        main()
    except ZetError as error:
        sys.exit(f"zetc: {error}")
