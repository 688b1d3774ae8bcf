"""Rows of the reflection table: a function for each operation that an attribute knows."""

import re
from string import Template

from check import NOTIFYING
from names import commas, cpp, upper

O, CONST_O, KEY = "Zet::PtrInterface& o", "Zet::PtrInterface const& o", "Zet::String8 const& key"
OPERATIONS = {"read": (CONST_O, KEY), "write": (O, KEY, "Zet::String8 const& value"), "del": (O, KEY),
              "walk": (CONST_O, "Zet::MemberVisitor& visitor"), "member": (CONST_O, KEY),
              "call": (O, "std::span<Zet::Argument const> arguments"),
              "constCall": (CONST_O, "std::span<Zet::Argument const> arguments")}
KINDS = {"ctor": "constructor", "key": "constructor", "const": "constant"}
LOOK, SELF = "static_cast<$self const&>(o).${name}", "static_cast<$self&>(o).${name}"
READ = {"read": f"return Zet::strep({LOOK}($index));"}
MEMBER = {"member": f"return Zet::mutableOf({LOOK}($index));"}
DEL, WRITE = {"del": f"{SELF}Del($index);"}, {"write": f"{SELF}Is($value);"}
WALK = {"walk": f"for (auto at = {LOOK}Iterator(); at; ++at) "
                "visitor.onMember(Zet::strep(at.key()), Zet::strep($walked), $object);"}
ARRAY = READ | MEMBER | {"walk": f"for (Zet::U32 i = 0; i < {LOOK.replace('${name}', '$count')}(); ++i) "
                                 f"visitor.onMember(Zet::strep(i), Zet::strep({LOOK}(i)), {LOOK}(i).ptr());"}
BY_KIND = {"ctor": READ, "key": READ, "const": READ, "value": READ | WRITE, "counter": READ | WRITE,
           "pointer": READ | DEL | MEMBER, "single": READ | DEL | MEMBER, "queue": WALK, "array": ARRAY,
           "members": READ | DEL | WALK | MEMBER, "pointers": READ | DEL | WALK | MEMBER, "method": {},
           "values": READ | DEL | WALK | {"write": f"{SELF}Is($index, $value);"}}


def operations(model, made, a, key):
    """The body of each operation that an attribute knows."""
    known = dict(BY_KIND[a.kind]) if not a.type.raw else {}
    if a.kind == "members" and not model.parameters(a, made):
        known["write"] = f"{SELF}Is($index);"
    if a.reflected:
        known["write"] = ("auto& s = static_cast<$self&>(o); auto v = $value; if (v == s.$name()) return; "
                          f"s.${{name}}Is(v); s.{a.reflected}();")
    if a.kind == "method" and not any(t.raw for _, t in a.parameters):
        given = (f"Zet::ArgumentAs<{cpp(t)}>::get(arguments[{i}])" for i, (_, t) in enumerate(a.parameters))
        call = f"{LOOK if a.const_method else SELF}({commas(given)})"
        call = f"{call}; return Zet::String8();" if a.type.name == "void" else f"return Zet::strep({call});"
        op = "constCall" if a.const_method else "call"
        known[op] = f"Zet::checkArguments(arguments, {len(a.parameters)}); {call}"
    walked = {"values": ("at->value", "nullptr"), "pointers": ("at->value", "at->value.ptr()")}
    walked, object_ = walked.get(a.kind, ("at.ptr()", "at.ptr().ptr()"))
    names = {"self": made.name, "name": a.name, "walked": walked, "object": object_,
             "count": a.count or a.name + "Count",
             "value": f"Zet::strepToValue<{cpp(a.type)}>(value)",
             "index": f"Zet::strepToValue<{cpp(key) if key else 'Zet::U32'}>(key)"
                      if key or a.kind == "array" else ""}
    return {op: Template(body).substitute(names) for op, body in known.items()}


def log_form(model, made, a, key):
    """How the attribute log carries an attribute, as an expression; "" if it doesn't."""
    if not model.is_logged(made) or a.kind not in NOTIFYING:
        return ""
    name, self, t, k = a.name, f"&{made.name}::{a.name}", cpp(a.type), cpp(key) if key else ""
    target = a.type.name
    parameters = model.parameters(a, made) if a.kind in ("single", "members") else []
    more = [f"&{target}::{p.name}" for p in parameters]
    given = {"value": [self, f"{self}Is"], "counter": [self, f"{self}Is"],
             "values": [t, k, f"{self}_", f"{self}Is", f"{self}Del"],
             "pointer": [target, f"{self}_", f"{self}Is", f"{self}Del"],
             "single": [target, f"{self}_", f"{self}Is", f"{self}Del", *more],
             "members": [target, k, f"{self}_", f"{self}Is", f"{self}Del", *more]}[a.kind]
    form = "value" if a.kind == "counter" else a.kind
    return f"Zet::NboAttrLog::formOf<Zet::NboAttrLog::{form}Form<{commas(given)}>>()"


def fields_of(id_, name, kind, texts, functions, log=""):
    """The lines of one row. A parameter that a function doesn't use has no name."""
    more = "".join(f", .{field} = \"{text}\"" for field, text in texts.items() if text)
    lines = [f"{{.id = {id_}, .name = \"{name}\", .kind = Zet::AttributeKind::{kind}{more}"]
    for op, body in ((op, functions[op]) for op in OPERATIONS if op in functions):
        split = (p.rpartition(" ") for p in OPERATIONS[op])
        given = (f"{t} {p}" if re.search(rf"\b{p}\b", body) else t for t, _, p in split)
        result = " -> Zet::Ptr<Zet::PtrInterface>" if op == "member" else ""
        lines.append(f" .{op} = []({commas(given)}){result} {{ {body} }}")
    lines += [f" .log = {log}"] if log else []
    return (",\n".join(lines) + "},").split("\n")


def row(model, made, a):
    """The lines of one attribute's row."""
    key = model.key_type(a, made)
    indexed = cpp(key) if key else "Zet::U32" if a.kind in ("queue", "array") else ""
    parameters = model.parameters(a, made) if a.kind in ("single", "members") else []
    start, range_, unit = model.facts(a, made)
    texts = {"type": a.type.name, "keyType": indexed,
             "maker": commas(f"{p.name} : {p.type.name}" for p in parameters),
             "start": start.strip('"'), "unit": unit,
             "range": range_[2].strip('"') if range_ else "", "sentence": a.doc}
    return fields_of(f"attr{upper(a.name)}", a.name, KINDS.get(a.kind, a.kind), texts,
                     operations(model, made, a, key), log_form(model, made, a, key))


def handler_row(made, a):
    """The lines of the handler that runs where an attribute is written by name."""
    call = Template(f"Zet::checkArguments(arguments, 0); {SELF}(); return Zet::String8();")
    sentence = f"What follows a write of {a.name} by name"
    return fields_of(f"attr{upper(a.reflected)}", a.reflected, "method",
                     {"type": "void", "sentence": sentence},
                     {"call": call.substitute(self=made.name, name=a.reflected)})


REACTOR = {"read": f"return Zet::strep({LOOK}());", "member": f"return Zet::mutableOf({LOOK}());"}
TIMER_READ = {"read": f"auto* t = {LOOK.replace('${name}', 'zet$Name')}(); "
                      "return t ? Zet::strep(t->timeMin()) : Zet::strepOfObject(nullptr);"}
REACTORS = {"read": f"return Zet::strep(Zet::watchedBy({LOOK}($index)));",
            "member": f"return Zet::mutableOf(Zet::watchedBy({LOOK}($index)));",
            "walk": f"for (auto at = {LOOK}Iterator(); at; ++at) visitor.onMember(Zet::strep(at.key()), "
                    "Zet::strep(at->notifier()), at->notifier().ptr());"}


def reactor_row(model, made, r):
    """The lines of a nested reactor: what it watches, or when a timer expires."""
    target = model.find(r.type.name, made.namespace)
    key = cpp(model.key(target).type) if r.kind == "reactors" else ""
    kind, functions = ("reactors", REACTORS) if key else ("reactor", REACTOR if target else TIMER_READ)
    names = {"self": made.name, "name": r.name, "Name": upper(r.name),
             "index": f"Zet::strepToValue<{key}>(key)"}
    texts = {"type": r.type.name if target else "double", "keyType": key, "unit": "" if target else "s",
             "sentence": r.doc}
    return fields_of(f"attr{upper(r.name)}", r.name, kind, texts,
                     {op: Template(body).substitute(names) for op, body in functions.items()})


def key_row(made, key):
    """The lines of fwkKey."""
    read = Template(f"return Zet::strep({LOOK}());").substitute(self=made.name, name="fwkKey")
    return fields_of("Zet::attrFwkKey", "fwkKey", "constructor",
                     {"type": key.type.name, "sentence": "Its key in the collection that holds it"},
                     {"read": read})


def rows(model, made):
    """The lines of all rows of a class, in order of their numbers."""
    found = [row(model, made, a) for a in made.attributes]
    found += [handler_row(made, a) for a in model.reflected(made)]
    found += [reactor_row(model, made, r) for r in model.reactor_rows(made)]
    if made.kind == "entity" and model.key(made):
        found.append(key_row(made, model.key(made)))
    return [line for lines in found for line in lines]
