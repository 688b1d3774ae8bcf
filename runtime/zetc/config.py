"""Keys of the configuration file: reads and checks their declarations.

A `config` is a table of the file, `keys` are a list that tables include, and a `text` is one that several
keys share."""

import re

import parse
from parse import ZetError

commas = ", ".join
# What a key takes: the enumerator of KeyType, and the C++ type of its member.
NUMBERS = {"U32": ("integer", "Zet::U32"), "U64": ("integer", "Zet::U64")}
TEXTS = ("InterfaceName", "GroupRanges", "ListNames", "Prefix", "Address", "Action", "Path", "SocketPath",
         "GroupName", "Rules")
# Access lists that are read over addresses, for a struct that knows nothing of the file.
ADDRESS_LISTS = "AddressLists"
TYPES = NUMBERS | {"Flag": ("boolean", "bool")} | {t: (t[0].lower() + t[1:], t) for t in TEXTS} | {
    ADDRESS_LISTS: ("listNames", "std::set<std::string>")}
LISTS = ("GroupRanges", "ListNames", ADDRESS_LISTS, "Rules")
# What address lists may permit to be unwise: nothing at all, or groups alone.
PERMITTED = ("none", "groups")
LARGEST = 2 ** 32 - 1


class Key:
    def __init__(self, name, place):
        self.name, self.place, self.doc = name, place, ""
        self.called = re.sub(r"(?=[A-Z])", "-", name).lower()  # in the file
        self.type = self.start = self.library = self.otherwise = self.range = self.unwise = None
        self.unit = self.former = ""
        self.needed = self.restart = False
        self.unwise_lists = {}  # reason by what they permit


class Include:
    """The keys of another declaration, at this place."""

    def __init__(self, name, place):
        self.name, self.place = name, place


class Table:
    """A `config`, or the list of keys of a `keys`, which has no header."""

    def __init__(self, name, namespace, place):
        self.name, self.namespace, self.place, self.doc = name, namespace, place, ""
        self.qualified = f"{namespace}::{name}"
        self.header = self.owner = self.parent = ""
        self.shown = ""  # its member in the JSON of a configuration; empty if its keys are members
        self.parts = []  # Key, Include

    @property
    def keys(self):
        return [p for p in self.parts if isinstance(p, Key)]

    @property
    def includes(self):
        return [p for p in self.parts if isinstance(p, Include)]


class Text:
    def __init__(self, name, place, text):
        self.name, self.place, self.text = name, place, text


# Grammar

def read_text(p):
    place = p.peek().place
    return Text(p.name("the name of the text"), place, p.sentence())


def read_keys(p):
    table = begin(p)
    table.doc = p.sentence()
    return body(p, table)


def read_config(p):
    table = begin(p)
    if p.accept("of"):
        table.owner = p.name("the name of declared keys")
    if p.accept("in"):
        table.parent = p.name("the name of a config")
    table.header = quoted(p, "the header of the table in double quotes")
    if p.accept("member"):
        table.shown = quoted(p, "the name of a member in double quotes")
    table.doc = p.sentence()
    return body(p, table)


def begin(p):
    place, name = p.peek().place, p.name("the name of the struct")
    if not p.namespace:
        raise ZetError(place, f"{name} has no namespace", "a line 'namespace A::B' before it")
    return Table(name, p.namespace, place)


def body(p, table):
    p.symbol("{")
    while not p.accept("}"):
        place = p.peek().place
        if p.accept("keys"):
            table.parts.append(Include(p.name("the name of declared keys"), place))
        elif p.accept("key"):
            table.parts.append(key(p))
        else:
            p.fail("key, keys or '}'")
    return table


def reason(p):
    """A text in quotes on as many lines as end in a blank, so that the sentence after it is not a part."""
    text = quoted(p, "a reason or its name")
    return text + reason(p) if text.endswith(" ") else text


def quoted(p, what):
    return p.need("string", what).text[1:-1]


def key(p):
    place = p.peek().place
    made = Key(p.name("the name of the member"), place)
    p.symbol(":")
    made.type = p.peek()
    p.name("a type")
    while p.peek().kind != "string":
        option(p, made)
    made.doc = p.strings() + ("; a change needs a restart." if made.restart else "")
    return made


def option(p, made):
    word = p.peek()
    if p.accept("="):
        made.start = p.start()
    elif word.text in ("needed", "restart"):
        setattr(made, p.take().text, True)
    elif word.text in ("called", "former", "otherwise"):
        p.take()
        setattr(made, word.text, quoted(p, "a text in double quotes"))
    elif p.accept("library"):
        made.library = p.start()
    elif p.accept("unit"):
        made.unit = p.start().strip('"')
    elif p.accept("range"):
        made.range = (number(p), number(p))
    elif p.accept("unwise"):
        if p.peek().text in PERMITTED:
            permitted = p.take().text
            made.unwise_lists[permitted] = reason(p)
            return
        made.unwise = (p.start(), p.take() if p.peek().kind == "name" else reason(p))
    else:
        p.fail("=, library, unit, range, called, former, otherwise, needed, restart, unwise or a sentence in "
               "double quotes")


def number(p):
    return int(p.need("number", "a number").text)


parse.STATEMENTS |= {"config": read_config, "keys": read_keys, "text": read_text}


# Checks

class Tables:
    """All declared tables of a run, and what they include."""

    largest = LARGEST

    def __init__(self, files):
        declared = [d for file in files for d in file.others]
        self.texts = {t.name: t for t in declared if isinstance(t, Text)}
        self.all = {}
        for table in (d for d in declared if isinstance(d, Table)):
            one = self.all.setdefault(table.qualified, table)
            if one is not table:
                text = f"{table.name} is declared already at {one.place}"
                raise ZetError(table.place, text, "another name")
        for table in self.all.values():
            self.check(table)

    def find(self, name, place, namespace):
        around = namespace
        while around and f"{around}::{name}" not in self.all:
            around = around.rpartition("::")[0]
        if not around:
            raise ZetError(place, f"{name} is not declared", "the name of a config or of keys")
        return self.all[f"{around}::{name}"]

    def owner(self, table):
        """The table whose struct has the members."""
        return self.find(table.owner, table.place, table.namespace) if table.owner else table

    def parent(self, table):
        return self.find(table.parent, table.place, table.namespace)

    def section(self, table):
        """What the file calls the table: "interface.NAME"."""
        if not table.parent:
            return table.header.strip("[]")
        return f"{self.section(self.parent(table))}.{table.header.split()[0]}"

    def included(self, table):
        return [self.find(i.name, i.place, table.namespace) for i in table.includes]

    def members(self, table):
        """(key, table whose struct has it) in the order of the reference page."""
        for part in table.parts:
            if isinstance(part, Key):
                yield part, self.owner(table)
            else:
                yield from self.members(self.find(part.name, part.place, table.namespace))

    def reason(self, made):
        """Why the unwise value is; empty without one."""
        text = made.unwise[1] if made.unwise else ""
        return text if isinstance(text, str) else self.texts[text.text].text

    def check(self, table):
        seen = {}
        if table.parent:
            self.parent(table)
        for made, _ in self.members(table):
            first = seen.setdefault(made.called, made)
            if first is not made:
                text = f"{made.called} is declared already at {first.place}"
                raise ZetError(made.place, text, "another name")
        for made in table.keys:
            self.check_key(made)

    def check_key(self, made):
        kind = made.type.text
        if kind not in TYPES:
            raise ZetError(made.type.place, f"{kind} is no type of a key", commas(TYPES))
        if made.range and kind not in NUMBERS:
            raise ZetError(made.place, f"{made.name} of type {kind} can't have a range", "U32 or U64")
        if made.unwise_lists and kind != ADDRESS_LISTS:
            raise ZetError(made.place, f"{made.name} of type {kind} permits nothing", ADDRESS_LISTS)
        low, high = made.range or (0, LARGEST)
        values = [v for v in (made.start, made.library, made.unwise and made.unwise[0]) if v is not None]
        for value in values if kind in NUMBERS else []:
            if not value.isdigit() or not low <= int(value) <= high:
                raise ZetError(made.place, f"{made.name} can't be {value}", f"a number from {low} to {high}")
        if kind == "Flag" and (made.start is None or set(values) - {"true", "false"}):
            raise ZetError(made.place, f"{made.name} of type Flag has no default", "'= true' or '= false'")
        if kind not in LISTS and not (made.start or made.otherwise or made.needed):
            raise ZetError(made.place, f"{made.name} has no default", "'= value', otherwise or needed")
        name = made.unwise and made.unwise[1]
        if name and not isinstance(name, str) and name.text not in self.texts:
            raise ZetError(name.place, f"{name.text} is no declared text", commas(self.texts) or "text NAME")


def is_declared_in(file):
    return any(isinstance(d, (Table, Text)) for d in file.others)
