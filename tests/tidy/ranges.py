"""Ranges are written once: a bound that a declaration has is no number of another source of the edges.

A range is declared by a key of the configuration file or by an attribute of the model (*.zet). The code that
reads, writes, describes or sends such a value takes the bound from there. Bounds up to 128 and powers of two
are too usual for this: nothing shows what such a number means. The modules below the edges hold the ranges
of their own attributes. The range of all groups and the group of all PIM routers are looked for in the
declarations and the scripts of the page too, which have numbers of their own."""

import re

EDGES = ("agent/", "cli/", "host/", "pim/", "sim/", "view/", "wire/")
PAGE = "web/"
MIN_BOUND = 128
# What every value on the wire has that is no declared range: the largest of 16 and 32 bits.
WIDTHS = {65535, 2 ** 32 - 1}
# 224.0.0.0/4 and 224.0.0.13 as text, also within another one, or number; model/Lanet.h has both.
GROUPS = r'(?<=")224\.0\.0\.(?:0/4|13)(?=\\?")|0xe00000(?:00|0d)\b'
RANGE = re.compile(r"\brange (\d+) (\d+)")

# (file, number): why it is a number of its own there.
ALLOWED = {
    ("wire/Wire.h", "65535"): "defines maxPacketLength",
    ("wire/Wire.h", "255"): "defines maxRpCount and maxPrefixCount",
    ("agent/queues/PacketFilter.cpp", "255"): "the reach of a jump of a filter, whose offset has 8 bits",
    ("agent/config/Settings.zet", "224.0.0.0/4"): "a default as an operator writes it, for the documents and "
                                                  "help; ConfigFile.cpp takes it from allGroups",
    ("web/src/addresses.js", "224.0.0.0/4"): "the page gets zones as text and shares no source with C++; its "
                                             "other scripts import GLOBAL_ZONE",
    ("host/Corrections.cpp", "255"): "a text that describes what the engine does",
    ("host/Corrections.cpp", "40958"): "the same",
    ("sim/ScenarioParser.cpp", "65535"): "a text that describes the wire format",
}


def bounds(texts):
    """The bounds that the declarations have; texts: text by path."""
    found = set(WIDTHS)
    for path, text in texts.items():
        if path.endswith(".zet") and not path.startswith("tests/"):
            found |= {int(bound) for match in RANGE.finditer(text) for bound in match.groups()}
    return {bound for bound in found if bound > MIN_BOUND and bound & (bound - 1)}


def repeated(texts):
    """Each bound in a source of the edges and each of GROUPS in any of their files: (path, line, text)."""
    numbers = "|".join(str(bound) for bound in sorted(bounds(texts)))
    groups = re.compile(GROUPS)
    every = re.compile(rf"(?<![\w.])(?:{numbers})(?!\w|\.\d+\.\d)|{GROUPS}")
    for path, text in texts.items():
        if path.startswith(EDGES) and path.endswith((".h", ".cpp")):
            pattern = every
        elif path.startswith((*EDGES, PAGE)) and path.endswith((".zet", ".js")):
            pattern = groups
        else:
            continue
        for number, line in enumerate(text.split("\n"), 1):
            yield from ((path, number, match[0]) for match in pattern.finditer(line))


def check(texts):
    """(path, line, what is wrong) of a tree; texts: text by path."""
    used = set()
    for path, line, bound in repeated(texts):
        if (path, bound) in ALLOWED:
            used.add((path, bound))
        else:
            yield path, line, f"{bound} is the bound of a declared range: use its name"
    for path, bound in sorted(set(ALLOWED) - used):
        if path in texts:
            yield path, 0, f"{bound} isn't there: remove it from ALLOWED of tests/tidy/ranges.py"
