"""Whole numbers with a range: reads and checks their declarations; emits what makes a type of each.

`bounded Ttl : U32 = 64 range 1 255 "Ttl::value < 1 or > 255 not allowed" unit hops "..."`: an attribute of
the type has this default, range and unit unless its own declaration says otherwise."""

import parse
from parse import ZetError

NUMBERS = ("U8", "U16", "U32")


class Bounded:
    def __init__(self, name, namespace, place):
        self.name, self.namespace, self.place = name, namespace, place
        self.qualified = f"{namespace}::{name}"
        self.type, self.start, self.low, self.high, self.text, self.unit, self.doc = (None, *[""] * 6)


# Grammar

def read_bounded(p):
    place = p.peek().place
    made = Bounded(p.name("the name of the type"), p.namespace, place)
    p.symbol(":")
    made.type = p.need("name", "a type of numbers")
    p.symbol("=")
    made.start = p.need("number", "the number that it starts with").text
    if not p.accept("range"):
        p.fail("'range'")
    made.low = p.need("number", "the least number").text
    made.high = p.need("number", "the greatest number").text
    made.text = p.need("string", "the text of the range").text
    made.unit = p.name("a unit") if p.accept("unit") else ""
    made.doc = p.sentence()
    check(made)
    return made


def check(made):
    if made.type.text not in NUMBERS:
        raise ZetError(made.type.place, f"{made.type.text} can't have a range", ", ".join(NUMBERS))
    numbers = [made.low, made.start, made.high]
    if not all(n.isdigit() for n in numbers) or sorted(numbers, key=int) != numbers:
        raise ZetError(made.place, f"{made.name} doesn't start in its range",
                       "whole numbers, none below the least and none above the greatest,")


parse.STATEMENTS |= {"bounded": read_bounded}


def all_of(files):
    """The types by their qualified names."""
    found = {}
    for made in (d for file in files for d in file.others if isinstance(d, Bounded)):
        one = found.setdefault(made.qualified, made)
        if one is not made:
            raise ZetError(made.place, f"{made.name} is declared already at {one.place}", "another name")
    return found


# Emission

def range_struct(made):
    return [f"/// Range of {made.name}.", f"struct {made.name}Range {{",
            f"  using Rep = Zet::{made.type.text};",
            f"  static constexpr Zet::S64 low = {made.low}, high = {made.high};",
            f"  static constexpr Rep initial = {made.start};",
            f"  static constexpr char const* rangeError = {made.text};",
            f"  static constexpr char const* name = \"{made.qualified}\";",
            f"  static constexpr char const* unit = \"{made.unit}\";",
            f"  static constexpr char const* sentence = \"{made.doc}\";",
            "  /// Defined by hand, where the type is complete.",
            "  static PIMBSR_API Zet::ZetType const& fwkType();", "};", ""]


def emit_file(file, in_namespaces):
    """Header and source, by the ending of their files."""
    head = [f"// Made from {file.path}.zet.", "#pragma once", "", '#include "runtime/Export.h"',
            '#include "runtime/Types.h"', ""]
    lots = [("", head), ("Zet", ["struct ZetType;", ""])]
    lots += [(made.namespace, range_struct(made)) for made in file.others]
    source = [f"// Made from {file.path}.zet.", f'#include "{file.path}.h"']
    return {".zet.h": in_namespaces(lots), ".zet.cpp": in_namespaces([("", source)])}


def is_declared_in(file):
    return any(isinstance(d, Bounded) for d in file.others)
