"""Functions of the product that only tests call, or that have no use at all.

A name counts as used if a source of the product has it anywhere else than where a function of that name is
declared or defined. So this finds no overload, and no method, whose name something else has as well; types,
values and names of one letter are not read. Functions for embedders (PIMBSR_API), those that are marked as
internal for tests, and overrides, which a base class calls, are left out. A benchmark or fuzz target counts
as a use."""

import collections
import re

from graph import line_of

CHECKED = ("agent/", "cli/", "host/", "pim/", "sim/", "view/", "wire/")
USERS = CHECKED + ("bench/", "config/", "crp/", "examples/", "fuzz/", "model/", "protocol/", "runtime/")

# Why a name is there that tests alone use.
ALLOWED = {
    "accountCount": "a test bounds the memory of the ledger by it",
    "isStale": "a test waits for the end of a reading by it",
    "logSinkIs": "tests of the process read its log",
    "statementForms": "a test holds the table of docs/scenarios.md against the statements of the parser",
}

NOISE = re.compile(r'R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|//[^\n]*|/\*.*?\*/|^[ \t]*#[^\n]*', re.S | re.M)
# A function at namespace scope or of a class: what it returns, with its class in a source, and its name.
DECLARED = re.compile(
    r"^(  )?(?!return\b)[A-Za-z_][\w:<>,&*\[\] ]*?[&*> ](?:\w+::)*([a-z]\w*)\(", re.M)


def blanked(text):
    return NOISE.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def declarations(path, text):
    """(name, line, its text) of each function that is declared or defined; a source indents calls."""
    for match in DECLARED.finditer(text):
        if path.endswith(".h") or not match[1]:
            yield match[2], line_of(text, match.start()), text[match.start():text.find("\n", match.end())]


def check(texts):
    """(path, line, what is wrong); texts: text by path."""
    code = {path: blanked(text) if path.endswith((".h", ".cpp")) else text for path, text in texts.items()
            if path.endswith((".h", ".cpp", ".zet")) or path.startswith("runtime/zetc/")}
    uses, declared, in_tests = collections.Counter(), [], set()
    for path, text in code.items():
        words = re.findall(r"[A-Za-z_]\w*", text)
        if path.startswith("tests/"):
            in_tests.update(words)
        elif path.startswith(USERS):
            uses.update(words)
            for name, line, whole in declarations(path, text):
                uses[name] -= 1
                if path.endswith(".h") and path.startswith(CHECKED) and not re.search(
                        r"\boverride\b|PIMBSR_\w+|\bfriend\b|\boperator\b", whole):
                    declared.append((path, line, name))
    for path, line, name in declared:
        if uses[name] <= 0 and name not in ALLOWED:
            users = "only tests use it" if name in in_tests else "it has no use"
            yield path, line, f"{name}: {users}"
    for name in sorted(name for name in ALLOWED if uses[name] > 0):
        yield "tests/tidy/uses.py", 0, f"{name} is used: remove it from ALLOWED"
