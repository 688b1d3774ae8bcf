"""Writes what follows from checked views: C++ structs and their rows, a page, JSON Schemas. Behavior is in
view/Rows.h."""

import json

import config_schema
from emit import commas, in_namespaces, indent
from view import NUMBERS, OBJECTS, UNITS, Choice, is_shown

NAMESPACE = "pimbsr::view"
STORED = {"Text": "std::string", "Bool": "bool", "Seconds": "double", "Json": "Json",
          "Tables": "Json",
          "Address": "Lanet::IpGenAddr", "Prefix": "Lanet::IpGenPrefix", **{n: f"Zet::{n}" for n in NUMBERS}}
OCTET = r"(25[0-5]|2[0-4]\d|1?\d?\d)"
ADDRESS = rf"{OCTET}(\.{OCTET}){{3}}"
SCHEMAS = {"Text": {"type": "string"}, "Bool": {"type": "boolean"}, "Seconds": {"type": "number"},
           "Json": {"type": "object"}, "Address": {"type": "string", "pattern": f"^{ADDRESS}$"},
           "Prefix": {"type": "string", "pattern": rf"^{ADDRESS}/\d\d?$"},
           **{n: {"type": "integer", "minimum": 0, "maximum": most} for n, most in NUMBERS.items()}}
WORDS = {"Text": "text", "Bool": "true or false", "Seconds": "seconds", "Address": "address",
         "Prefix": "prefix", "Json": "object",
         "Tables": "[tables of the configuration file](configuration.md)",  **{n: "number" for n in NUMBERS}}

INTRODUCTION = [
    "The members of each JSON answer, made from the declarations in view/. The JSON Schema of an answer is",
    "installed in share/pimbsr/schema. An optional member is left out where there is nothing. Later versions",
    "may add members."]


def lower(name):
    return name[0].lower() + name[1:]


class ViewEmitter:
    def __init__(self, views, tables):
        self.views, self.tables = views, tables

    # C++

    @staticmethod
    def is_declared_in(file):
        return any(map(is_shown, file.others))

    def emit_file(self, file):
        """The header and the source of one declaration file, by the end of the name."""
        made_from = f"// Made from {file.path}.zet."
        uses = [f"#include \"{path}.h\"" for path in file.uses]
        fields = [one for made in file.others if not isinstance(made, Choice) for one in made.members()]
        whole = ["#include <nlohmann/json.hpp>", ""] if any(one.type in OBJECTS for one in fields) else []
        header = [("", [made_from, "#pragma once", "", *whole, "#include \"view/View.h\"", *uses, ""])]
        source = [("", [made_from, f"#include \"{file.path}.h\"", "", "#include \"view/Rows.h\"", ""])]
        for made in file.others:
            emit = self.choice if isinstance(made, Choice) else self.view
            declared, defined = emit(made)
            header.append((NAMESPACE, declared))
            source.append((NAMESPACE, defined))
        return {".zet.h": in_namespaces(header), ".zet.cpp": in_namespaces(source)}

    def choice(self, made):
        of, table = made.of or made.name, lower(made.name) + "Items"
        declared = [] if made.of else [
            f"/// {made.doc}", f"enum class {made.name} : Zet::U8 {{",
            *indent([f"{i.name},  ///< {i.doc}" for i in made.items]), "};", ""]
        declared += [
            f"/// All of {of}, in order.",
            f"inline constexpr std::array<{of}, {len(made.items)}> {lower(made.name)}s = {{",
            *indent([f"{of}::{i.name}," for i in made.items]), "};",
            "/// The name of one in JSON.", f"std::string_view keyOf({of} value);",
            "/// The one of a name in JSON; throws ReadError for a name of none.",
            f"{of} {lower(made.name)}Of(std::string_view key);",
            "/// How tables show the one of a name; a name of none, from a later version, as it is.",
            f"std::string shown{made.name}(std::string_view key);", ""]
        rows = [f"{{{of}::{i.name}, \"{i.called}\", \"{i.shown}\"}}," for i in made.items]
        defined = [
            f"static constexpr ChoiceRow<{of}> {table}[] = {{", *indent(rows), "};",
            f"std::string_view keyOf({of} value) {{ return keyIn({table}, value); }}",
            f"{of} {lower(made.name)}Of(std::string_view key) {{ return valueIn({table}, key); }}",
            f"std::string shown{made.name}(std::string_view key) {{ return shownIn({table}, key); }}", ""]
        return declared, defined

    def stored(self, one):
        name = STORED.get(one.type) or ("std::string" if one.type in self.views.choices else one.type)
        if one.collection:
            return f"std::vector<{name}>" if one.collection == "list" else f"Map<{name}>"
        is_network = one.type in ("Address", "Prefix")  # where the unset value is the null one
        name = f"std::optional<{name}>" if one.null and not is_network else name
        return f"std::optional<{name}>" if one.optional else name

    def view(self, made):
        declared = [f"/// {made.doc}", f"struct {made.name} {{"]
        for one in made.members():
            declared.append(f"  {self.stored(one)} {one.name}{self.zero(one)};  ///< {one.doc}")
        declared += ["};", f"void writeJson({made.name} const& view, Json& json);",
                     "/// Throws nlohmann::json::exception or ReadError for what is no such object.",
                     f"void readJson(Json const& json, {made.name}& view);"]
        defined = [f"void writeJson({made.name} const& view, Json& json) {{", "  startObject(json);",
                   *indent([self.write(one) for one in made.members()]), "}",
                   f"void readJson(Json const& json, {made.name}& view) {{",
                   *indent([self.read(one) for one in made.members()]), "}"]
        if made.filled:
            declared += self.fillers(made)
        if made.shown():
            declared += self.declared_columns(made)
            defined += self.defined_columns(made)
        return declared + [""], defined + [""]

    @staticmethod
    def fillers(made):
        """Functions that fill a view from a source, and a source from a view if it has members alone."""
        lines = ["/// Fills the members that `from` has, of this view or of one that includes it.",
                 "template <class View, class From>",
                 f"void fill{made.name}(View& view, From const& from) {{",
                 *(f"  view.{one.name} = from.{one.filled};" for one in made.filled), "}"]
        if not all(one.filled.isidentifier() for one in made.filled):
            return lines
        return [*lines, "/// The reverse.", "template <class View, class To>",
                f"void restore{made.name}(View const& view, To& to) {{",
                *(f"  to.{one.filled} = view.{one.name};" for one in made.filled), "}"]

    def zero(self, one):
        """What initializes a member that would be undefined otherwise."""
        if one.collection or one.optional or one.null:
            return ""
        return " = false" if one.type == "Bool" else " = 0" if one.type in (*NUMBERS, "Seconds") else ""

    def keys(self, one):
        """The names in JSON that a field of choices may have."""
        choices = [self.views.choices[name] for name in (one.type, *(name for name, _ in one.others))]
        return [item.called for made in choices for item in made.items]

    def presence(self, one):
        return "Presence::" + ("ifAny" if one.optional else "defaulted" if one.defaulted else "always")

    def write(self, one):
        return f"writeMember(json, \"{one.name}\", view.{one.name}, {self.presence(one)});"

    def read(self, one):
        null = "true" if one.null else "false"
        return f"readMember(json, \"{one.name}\", view.{one.name}, {self.presence(one)}, {null});"

    def declared_columns(self, made):
        hand = [f"std::string {one.shown}({made.name} const& view);" for one in made.shown() if one.shown]
        head = ["template <>", f"Cells headOf<{made.name}>();"]
        return [*head, f"Cells cellsOf({made.name} const& view);", *hand]

    def defined_columns(self, made):
        heads = commas(one.column for one in made.shown())
        cells = [self.cell(one) + "," for one in made.shown()]
        head = ["template <>", f"Cells headOf<{made.name}>() {{", f"  return {{{heads}}};", "}"]
        return [*head, f"Cells cellsOf({made.name} const& view) {{", "  return {", *indent(indent(cells)),
                "  };", "}"]

    def cell(self, one):
        if one.shown:
            return f"{one.shown}(view)"
        if one.yes or one.no:
            return f"view.{one.name} ? \"{one.yes or 'yes'}\" : \"{one.no or 'no'}\""
        otherwise = one.otherwise or "-"
        if one.type in self.views.choices:
            return f"shown{one.type}(view.{one.name})"
        unit = f", \" {one.unit}\"" if one.unit else ""
        return f"cellOf(view.{one.name}, \"{otherwise}\"{unit})"

    # JSON Schemas: one for each view that is a whole answer

    def documents(self):
        """Name and text of what is made of all views together; nothing where there is none."""
        views = self.views.views.values()
        found = {f"schema/{made.schema}.json": self.schema(made) for made in views if made.schema}
        return {**found, "views.md": "\n".join(self.page(views)).rstrip() + "\n"} if views else {}

    def schema(self, made):
        needed = {}
        self.collect(made, needed)
        top = {"$schema": "https://json-schema.org/draft/2020-12/schema", "title": made.name}
        definitions = {one.name: self.object_schema(one) for one in needed.values() if one is not made}
        return json.dumps({**top, **self.object_schema(made), "$defs": definitions}, indent=2) + "\n"

    def collect(self, made, needed):
        needed[made.name] = made
        for one in made.members():
            inner = self.views.views.get(one.type)
            if inner and inner.name not in needed:
                self.collect(inner, needed)

    def object_schema(self, made):
        required = [one.name for one in made.members() if not one.optional]
        properties = {one.name: self.field_schema(one) for one in made.members()}
        return {"description": made.doc, "type": "object", "properties": properties, "required": required}

    def field_schema(self, one):
        if one.type in self.views.views:
            value = {"$ref": f"#/$defs/{one.type}"}
        elif one.type in self.views.choices:
            value = {"enum": self.keys(one)}
        elif one.type == "Tables":
            value = config_schema.of_all(self.tables, SCHEMAS)
        else:
            value = SCHEMAS[one.type]
        if one.collection == "list":
            value = {"type": "array", "items": value}
        elif one.collection == "map":
            value = {"type": "object", "additionalProperties": value}
        if one.null:
            value = {"anyOf": [value, {"type": "null"}]}
        return {"description": one.doc, **value}

    # Pages

    def page(self, views):
        """An index of the whole answers, and a table of members for each view."""
        lines = ["# What is shown", "", *INTRODUCTION, "", "| schema | answer |", "|---|---|"]
        lines += [f"| `{one.schema}` | [{one.name}](#{one.name.lower()}): {one.doc} |"
                  for one in views if one.schema] + [""]
        for made in views:
            lines += [f"## {made.name}", "", f"{made.doc}.", ""]
            lines += ["| member | type | meaning |", "|---|---|---|"]
            lines += [f"| `{one.name}` | {self.words(one)} | {one.doc} |" for one in made.members()] + [""]
        return lines

    def words(self, one):
        if one.type in self.views.views:
            name = f"[{one.type}](#{one.type.lower()})"
        elif one.type in self.views.choices:
            name = "one of " + commas(f"`{key}`" for key in self.keys(one))
        else:
            name = WORDS[one.type]
        if one.unit:
            name = UNITS[one.unit]
        collection = {"list": "list of: ", "map": "object of: "}.get(one.collection, "")
        return collection + name + (" or null" if one.null else "") + (", optional" if one.optional else "")
