"""Keys of the configuration file: emits structs and rows of facts.

The struct goes into FILE.zet.h, which needs nothing else; the rows, with all texts, into FILE.keys.h."""

from config import ADDRESS_LISTS, LARGEST, LISTS, NUMBERS, PERMITTED, TEXTS, TYPES, Table, commas


def doc(text, indent=""):
    return f"{indent}/// {text}".replace('\\"', '"')


def member(made, value):
    """The declaration of a member; a number without a default may be absent."""
    kind, cpp = made.type.text, TYPES[made.type.text][1]
    if kind in NUMBERS and value is None:
        return f"std::optional<{cpp}> {made.name};"
    plain = kind in NUMBERS or kind == "Flag" or (kind in TEXTS and cpp.endswith(("Path", "Name")))
    return f"{cpp} {made.name}{f' = {value}' if value is not None and plain else ''};"


def struct(tables, table):
    """The lines of the struct of a table, with the members of the tables that are `of` it."""
    owned = [t for t in tables.all.values() if t.owner and tables.owner(t) is table]
    bases = commas(t.qualified for t in tables.included(table))
    lines = [doc(table.doc), f"struct {table.name}{f' : {bases}' if bases else ''} {{"]
    for made in table.keys + [k for t in owned for k in t.keys]:
        lines += [doc(made.doc, "  "), "  " + member(made, made.library or made.start)]
    gap = [""] if len(lines) > 2 else []
    lines += [*gap, f"  bool operator==({table.name} const&) const = default;", "};", ""]
    for one in owned:
        lines += [doc(f"Sets what {one.header} is where the configuration file doesn't say it."),
                  f"constexpr void default{one.name}Is({table.name}& to) {{",
                  *(f"  to.{made.name} = {made.start};" for made in one.keys), "}", ""]
    return lines


def unwise_lists(made):
    return commas(f'.{permitted} = "{text}"' for permitted in PERMITTED
                  if (text := made.unwise_lists.get(permitted)))


def row(tables, table, made):
    low, high = made.range or (0, LARGEST)
    is_number, is_unwise = made.type.text in NUMBERS, made.unwise is not None
    fallback = made.otherwise or made.start or ("[]" if made.type.text in LISTS and not made.needed else "")
    if made.start and made.start.startswith('"') and not made.otherwise:
        fallback = made.start.replace('"', '\\"')
    fields = {"section": f'"{tables.section(table)}"' if table.header else "", "name": f'"{made.called}"',
              "member": f'"{made.name}"', "type": f"host::KeyType::{TYPES[made.type.text][0]}",
              "unit": f'"{made.unit}"' if made.unit else "", "least": str(low) if is_number else "",
              "most": str(high) if is_number else "", "fallback": f'"{fallback}"',
              "sentence": f'"{made.doc}"',
              "former": f'"{made.former}"' if made.former else "", "needsRestart": "true" * made.restart,
              "unwise": f'{{{made.unwise[0]}, "{tables.reason(made)}"}}' if is_unwise else "",
              "unwiseLists": f"{{{unwise_lists(made)}}}" if made.unwise_lists else ""}
    written = commas(f".{field} = {value}" for field, value in fields.items() if value)
    return [doc(f"The key {made.called}.", "  "),
            f"  static constexpr host::ConfigKey {made.name}{{{written}}};"]


def rows(tables, table):
    """The lines of the rows of a table."""
    lines = [doc(f"The keys of {table.header or table.name}."), f"struct {table.name}Keys {{"]
    if table.header:
        texts = (tables.section(table), table.header, table.doc, *([table.shown] if table.shown else []))
        facts = commas(f'"{text}"' for text in texts)
        lines += [doc("The table itself.", "  "),
                  f"  static constexpr host::ConfigSection sectionRow{{{facts}}};"]
    members = list(tables.members(table))
    for made, _ in members:
        lines += row(tables, table, made)
    each = "Calls each(row, pointer to member) for each key, in the order of the reference page."
    lines += ["", doc(each, "  "), "  template <class Each>",
              "  static constexpr void forEach(Each const& each) {",
              *(f"    each({made.name}, &{owner.qualified}::{made.name});" for made, owner in members),
              "  }", "};", ""]
    return lines


def emit_file(tables, file, in_namespaces):
    """The structs, the rows and a source that compiles both, by the ending of their files."""
    made, declared = f"// Made from {file.path}.zet.", [d for d in file.others if isinstance(d, Table)]
    uses = [f'#include "{path}.h"' for path in file.uses]
    has_set = any(key.type.text == ADDRESS_LISTS for table in declared for key in table.keys)
    sets = ["#include <set>"] if has_set else []
    structs = [("", [made, "#pragma once", "", "#include <optional>", *sets, "#include <string>", "",
                     '#include "runtime/Types.h"', *uses, ""])]
    structs += [(t.namespace, struct(tables, t)) for t in declared if not t.owner]
    facts = [("", [made, "#pragma once", "", '#include "host/ConfigKey.h"', f'#include "{file.path}.h"', ""])]
    facts += [(t.namespace, rows(tables, t)) for t in declared if list(tables.members(t))]
    source = [("", [made, f'#include "{file.path}.keys.h"'])]
    return {ending: in_namespaces(lots)
            for ending, lots in ((".zet.h", structs), (".keys.h", facts), (".zet.cpp", source))}
