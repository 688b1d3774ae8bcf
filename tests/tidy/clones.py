"""No run of 60 tokens or more is in the product's sources twice.

Usage: clones.py [ROOT]. sim_c++ (Debian: similarity-tester) finds runs that are alike if all names are taken
for one. Of those this keeps the ones whose tokens are the same, names too: tables and lists of declarations
are alike by nature, copied code is the same. Comments, includes and using declarations don't count, and
neither do declarations that end in `override;`: the language has each class repeat those of its base, as
SimJson and SimText of cli/sim repeat those of sim::Report. Bodies of overrides count."""

import difflib
import pathlib
import re
import shutil
import subprocess
import sys

import tidy

MIN_TOKENS = 60

TOKEN = re.compile(r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|[A-Za-z_]\w*|\d[\w.\']*|::|->|\S')
LEFT_OUT = re.compile(r"//[^\n]*|/\*.*?\*/|^[ \t]*#[^\n]*|^using [^;]*;|^namespace [^{]*\{", re.S | re.M)
OVERRIDES = re.compile(r"(?<=[;{}])[^;{}]*\boverride;")
RUN = re.compile(r"^(.+): line (\d+)-(\d+) *\|(.+): line (\d+)-(\d+) *\[\d+\]$", re.M)


def tokens(root, path, first, last):
    """The tokens of some lines of a file."""
    text = (root / path).read_text()
    for left_out in (LEFT_OUT, OVERRIDES):
        text = left_out.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)
    return TOKEN.findall("\n".join(text.split("\n")[first - 1:last]))


def same_tokens(one, other):
    """The length of the longest run of tokens that both have."""
    return difflib.SequenceMatcher(None, one, other, autojunk=False).find_longest_match().size


def sources(root):
    return [path for path in tidy.tree_files(root) if path.endswith(tidy.CPP) and tidy.module_of(path)]


def clones(root):
    """(path, line, text) for each clone."""
    words = ["sim_c++", "-r", str(MIN_TOKENS), "-n", "-i"]
    names = "".join(f"{path}\n" for path in sources(root))
    if not names:
        return
    done = subprocess.run(words, cwd=root, input=names, capture_output=True, text=True, check=True)
    for match in RUN.finditer(done.stdout):
        one, other = (match[1], int(match[2]), int(match[3])), (match[4], int(match[5]), int(match[6]))
        size = same_tokens(tokens(root, *one), tokens(root, *other))
        if size >= MIN_TOKENS:
            yield one[0], one[1], f"{size} tokens are those of {other[0]}:{other[1]}"


if __name__ == "__main__":
    if not shutil.which("sim_c++"):
        print("skipped: no sim_c++; run scripts/setup")
        sys.exit(77)
    start = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else pathlib.Path(__file__).resolve().parents[2]
    found = [f"{path}:{line}: {text}" for path, line, text in clones(start)]
    print("\n".join(found) or "no clones")
    sys.exit(bool(found))
