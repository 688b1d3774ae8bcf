"""Prints a page with an anchor at each heading, and with links to these: doxygen makes none of the headings.
A link to an example is one to its page of the site.

Usage: docs-anchors.py PAGE. The name of the page is a part of each anchor, since doxygen wants each once."""

import pathlib
import re
import sys


def anchor(page, heading):
    words = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
    return f"{pathlib.Path(page).stem.lower()}_{words}"


def linked(line, page):
    def replaced(match):
        target, heading = match.groups()
        return f"](#{anchor(target or page, heading)})"
    return re.sub(r"\]\(([^)\s:#]*)#([^)\s]+)\)", replaced, line)


def to_examples(line):
    def replaced(match):
        name = match[1] if "." in match[1] else f"{match[1]}/{match[1]}.cpp"  # of a folder its program
        return f"]({name.replace('/', '_2').replace('.', '_8')}-example.html)"
    return re.sub(r"\]\((?:\.\./)?examples/((?!README)[^)\s]+)\)", replaced, line)


def main(path):
    is_code = False
    for line in path.read_text(encoding="utf-8").split("\n"):
        heading = re.fullmatch(r"(#+) (.*)", line)
        if line.startswith("```"):
            is_code = not is_code
        elif heading and not is_code:
            line += f" {{#{anchor(path, heading[2])}}}"
        elif not is_code:
            line = to_examples(linked(line, path))
        print(line)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
