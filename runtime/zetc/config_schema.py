"""JSON Schema of a configuration: the members that its declared tables have in JSON."""

# Texts with a form of their own; each is a pattern of the type that the members of an answer have.
NETWORK = {"Prefix": "Prefix", "Address": "Address"}


def of_key(tables, table, made, texts):
    """What the JSON of a key is; `texts` has the schemas of addresses and prefixes."""
    kind = made.type.text
    if kind == "Flag":
        return {"type": "boolean"}
    if kind == "Action":
        return {"enum": ["permit", "deny"]}
    if kind in NETWORK:
        return texts[NETWORK[kind]]
    if kind == "GroupRanges":
        return {"type": "array", "items": texts["Prefix"]}
    if kind in ("ListNames", "AddressLists"):
        return {"type": "array", "items": {"type": "string"}}
    if kind == "Rules":
        (rule,) = [one for one in tables.all.values() if one.parent and tables.parent(one) is table]
        return {"type": "array", "items": of_table(tables, rule, texts)}
    if kind in ("U32", "U64"):
        low, high = made.range or (0, tables.largest)
        return {"type": "integer", "minimum": low, "maximum": high}
    return {"type": "string"}


def described(made, schema):
    return {"description": made.doc.replace('\\"', '"'), **schema}


def members(tables, table, texts):
    return {made.name: described(made, of_key(tables, table, made, texts))
            for made, _ in tables.members(table)}


def of_table(tables, table, texts):
    """A table of rules is the list of these; one whose keys are the operator's has a number by name."""
    keys = [made for made, _ in tables.members(table)]
    if [made.type.text for made in keys] == ["Rules"]:
        return of_key(tables, table, keys[0], texts)
    if [made.called.isupper() for made in keys] == [True]:
        return {"type": "object", "additionalProperties": of_key(tables, table, keys[0], texts)}
    return {"type": "object", "properties": members(tables, table, texts)}


def of_all(tables, texts):
    """The object of a whole configuration. A table without a member has its keys in the object itself."""
    properties = {}
    for table in (one for one in tables.all.values() if one.header and not one.parent):
        if not table.shown:
            properties |= members(tables, table, texts)
            continue
        value = of_table(tables, table, texts)
        if table.header.startswith("[["):
            value = {"type": "array", "items": value}
        elif ".NAME]" in table.header:
            value = {"type": "object", "additionalProperties": value}
        properties[table.shown] = described(table, value)
    return {"type": "object", "properties": properties}
