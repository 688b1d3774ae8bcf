"""Writes the page that lists every declared class with its attributes."""

from check import TIMER

# What a value is at first where its declaration says nothing; of another type it is empty.
INITIAL = {"bool": "`false`", "double": "`0.0`", "Lanet::IpAddr": "`0.0.0.0`"} | dict.fromkeys(
    ("U8", "U16", "U32", "U64", "GroupFlags"), "`0`")


def reference_row(name, kind, type_, start="", range_="", unit="", doc=""):
    return f"| `{name}` | {kind} | {type_} | {start} | {range_} | {unit} | {doc} |"


def typed(name, key):
    """A type, with that of the key by which a path names one of its values."""
    return f"`{name}`" + (f" by `{key.name}`" if key else "")


def reference_rows(model, made):
    """A line for each attribute of a class, in the order of their numbers."""
    for a in made.attributes:
        shown = typed(a.type.name, model.key_type(a, made))
        start, range_, unit = model.facts(a, made)
        initial = INITIAL.get(a.type.name, "empty") if a.kind in ("value", "counter") else ""
        start = f"`{start}`" if start else initial
        yield reference_row(a.name, a.kind, shown, start, " to ".join(range_[:2]), unit, a.doc)
        if a.reflected:
            doc = f"What follows a write of {a.name} by name"
            yield reference_row(a.reflected, "method", "`void`", doc=doc)
    for r in model.reactor_rows(made):
        unit = "s" if r.type.name == TIMER else ""
        target = model.find(r.type.name, made.namespace) if r.kind == "reactors" else None
        shown = typed(r.type.name, model.key(target).type if target else None)
        yield reference_row(r.name, r.kind, shown, unit=unit, doc=r.doc)


def emit_reference(model):
    """One page that lists every class with its attributes."""
    lines = ["# The model", "", "Every declared class and its attributes, made from the declarations. All "
             "entities have `isNondestructing`", "too, those with a key `fwkKey`, and all machines "
             "`zetFwkActivity`.", ""]
    for made in sorted(model.classes.values(), key=lambda c: c.qualified):
        lines += [f"## {made.qualified}", "", f"{made.kind.capitalize()}. {made.doc}", ""]
        rows_ = list(reference_rows(model, made))
        if rows_:
            lines += ["| attribute | kind | type | default | range | unit | meaning |",
                      "|---|---|---|---|---|---|---|", *rows_, ""]
    return "\n".join(lines)
