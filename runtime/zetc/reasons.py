"""Catalogue of drop reasons: reads and checks its declaration; emits the enumeration, the names and the page.

`reasons DropReason "..." { part "heading" "..." reason "sentence" ... }`: a reason is an enumerator, its
stable name is the enumerator in kebab case, and its sentence says what was wrong with the packet."""

import re

import parse
from parse import ZetError


class Catalogue:
    def __init__(self, name, namespace, place, doc):
        self.name, self.namespace, self.place, self.doc = name, namespace, place, doc
        self.parts = []

    @property
    def reasons(self):
        return [reason for part in self.parts for reason in part.reasons]


class Part:
    """Reasons of one origin, a table of the page."""

    def __init__(self, heading, doc):
        self.heading, self.doc = heading, doc
        self.reasons = []


class Reason:
    def __init__(self, name, place, sentence):
        self.name, self.place, self.sentence = name, place, sentence
        self.called = re.sub(r"(?=[A-Z])", "-", name).lower()


# Grammar

def read_reasons(p):
    place = p.peek().place
    made = Catalogue(p.name("the name of the enumeration"), p.namespace, place, p.sentence())
    p.symbol("{")
    while not p.accept("}"):
        if p.accept("part"):
            heading = p.need("string", "the heading of the part in double quotes").text[1:-1]
            made.parts.append(Part(heading, p.sentence()))
        elif made.parts:
            place = p.peek().place
            name = p.name("part, or the name of a reason")
            made.parts[-1].reasons.append(Reason(name, place, p.sentence()))
        else:
            p.fail("part")
    check(made)
    return made


def check(made):
    seen = {}
    for reason in made.reasons:
        first = seen.setdefault(reason.name, reason)
        if first is not reason:
            text = f"{reason.name} is declared already at {first.place}"
            raise ZetError(reason.place, text, "another name")
        if not reason.sentence.endswith("."):
            raise ZetError(reason.place, f"the text of {reason.name} is no sentence", "a period at its end")


parse.STATEMENTS |= {"reasons": read_reasons}


# Emission

def header(made):
    lines = [f"/// {made.doc}".replace('\\"', '"'), f"enum class {made.name} : Zet::U8 {{",
             "  none,  ///< nothing is dropped"]
    for part in made.parts:
        lines.append(f"  // {part.heading}")
        lines += [f"  {reason.name},  ///< {reason.sentence}".replace('\\"', '"') for reason in part.reasons]
    return lines + [
        "};", "",
        "/// The stable name of a reason, in kebab case; empty for none.",
        f"PIMBSR_API std::string_view name({made.name} reason);",
        "/// One sentence that says what was wrong; empty for none.",
        f"PIMBSR_API std::string_view sentence({made.name} reason);",
        "/// All reasons but none, in the order of their numbers, which run from 1 without a gap.",
        f"PIMBSR_API std::span<{made.name} const> all{made.name}s();", ""]


def source(made):
    count = len(made.reasons)
    rows = [f'    {{"{r.called}", "{r.sentence}"}},' for r in made.reasons]
    return [
        "namespace {", "", "struct Row {", "  std::string_view name;", "  std::string_view sentence;", "};",
        "",
        f"constexpr Row rows[{count + 1}] = {{", '    {"", ""},', *rows, "};", "",
        f"constexpr auto all = [] {{", f"  std::array<{made.name}, {count}> found{{}};",
        f"  for (Zet::U8 i = 0; i < {count}; ++i) found[i] = static_cast<{made.name}>(i + 1);",
        "  return found;", "}();", "",
        f"Row const& row({made.name} reason) {{",
        "  auto index = static_cast<std::size_t>(reason);",
        '  ZET_ASSERT(index < std::size(rows), "drop reason has a row");', "  return rows[index];", "}", "",
        "}  // namespace", "",
        f"std::string_view name({made.name} reason) {{ return row(reason).name; }}",
        f"std::string_view sentence({made.name} reason) {{ return row(reason).sentence; }}",
        f"std::span<{made.name} const> all{made.name}s() {{ return all; }}", ""]


def page(made):
    """The reference page, in Markdown."""
    doc = made.doc.replace('\\"', '"')
    lines = ["# Drop reasons", "", doc, ""]
    for part in made.parts:
        lines += [f"## {part.heading}", "", part.doc, "", "| reason | meaning |", "|---|---|"]
        lines += [f"| `{r.called}` | {r.sentence} |".replace('\\"', '"') for r in part.reasons] + [""]
    return "\n".join(lines).rstrip() + "\n"


def emit_file(file, in_namespaces):
    """Header, source and page, by the ending of their files."""
    made = next(d for d in file.others if isinstance(d, Catalogue))
    from_ = f"// Made from {file.path}.zet."
    head = [from_, "#pragma once", "", "#include <span>", "#include <string_view>", "",
            '#include "runtime/Export.h"', '#include "runtime/Types.h"', ""]
    code = [from_, f'#include "{file.path}.h"', "", "#include <array>", "#include <cstddef>",
            "#include <iterator>", "", '#include "runtime/Assert.h"', ""]
    return {".zet.h": in_namespaces([("", head), (made.namespace, header(made))]),
            ".zet.cpp": in_namespaces([("", code), (made.namespace, source(made))]),
            ".md": page(made)}


def is_declared_in(file):
    return any(isinstance(d, Catalogue) for d in file.others)
