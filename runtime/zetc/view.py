"""Views, which are what can be shown: reads their declarations and checks them. Knows nothing of C++."""

from collections import namedtuple

import parse
from parse import ZetError

# An item of a choice: its enumerator, its name in JSON, and how tables show it.
Item = namedtuple("Item", "name called shown doc place")
# Where the fields of another view belong to a view too.
Include = namedtuple("Include", "name place")
NUMBERS = {"U8": 255, "U16": 65535, "U32": 4294967295, "U64": 18446744073709551615}
VALUES = ("Text", "Bool", *NUMBERS, "Seconds", "Address", "Prefix", "Json", "Tables")
# Stored as a JSON object: any one, and all tables of the configuration file.
OBJECTS = ("Json", "Tables")
UNITS = {"s": "seconds", "bits": "bits"}
# What a table shows: for null, for true and for false.
TEXTS = {"else": "otherwise", "yes": "yes", "no": "no"}


class Choice:
    """Names of which a field has one. They belong to an enumeration, which is made unless `of` names one."""

    def __init__(self, name, place):
        self.name, self.place, self.of, self.doc, self.items = name, place, "", "", []


class Field:
    """A member of the JSON object, and a column of the table if it has a head."""

    def __init__(self, name, place):
        self.name, self.place, self.doc = name, place, ""
        self.type = self.collection = ""  # collection: list or map
        self.others = []  # further choices whose names it may have: (name, place)
        self.null = self.optional = self.defaulted = self.alone = False
        self.unit = self.column = self.otherwise = self.shown = self.yes = self.no = ""
        self.filled = ""  # the member of a source that has its value, as in C++


class View:
    def __init__(self, name, place):
        self.name, self.place = name, place
        self.schema = self.doc = ""
        self.fields, self.columns = [], []  # columns: (name, place), in their order where it is another
        self.filled = []  # the fields of its own that a source fills

    def members(self):
        return [f for f in self.fields if not f.alone]

    def shown(self):
        """The fields that are columns, in the order of the table."""
        named = {f.name: f for f in self.fields}
        return [named[n] for n, _ in self.columns] if self.columns else [f for f in self.fields if f.column]


# Grammar


def choice(parser):
    place = parser.peek().place
    made = Choice(parser.name("the name of the choice"), place)
    made.of = parser.name("the name of an enumeration") if parser.accept("of") else ""
    made.doc = parser.sentence()
    parser.symbol("{")
    while not parser.accept("}"):
        place, name = parser.peek().place, parser.name("the name of an item")
        called = quoted(parser, "called") or name
        shown = quoted(parser, "shown") or called
        made.items.append(Item(name, called, shown, parser.sentence(), place))
    return made


def quoted(parser, word):
    """The text that follows a word; empty if the word isn't there."""
    return parser.need("string", "a text in double quotes").text[1:-1] if parser.accept(word) else ""


def view(parser):
    place = parser.peek().place
    made = View(parser.name("the name of the view"), place)
    made.schema = quoted(parser, "schema")
    made.doc = parser.sentence()
    parser.symbol("{")
    while not parser.accept("}"):
        if parser.accept("field"):
            made.fields.append(field(parser))
        elif parser.accept("column"):
            made.fields.append(lone_column(parser))
        elif parser.accept("columns"):
            made.columns = columns(parser)
        elif parser.accept("include"):
            place = parser.peek().place
            made.fields.append(Include(parser.name("the name of a view"), place))
        else:
            parser.fail("field, column, columns, include or }")
    return made


def columns(parser):
    place = parser.peek().place
    found = [(parser.name("the name of a column"), place)]
    while parser.peek().text not in ("field", "column", "}"):
        place = parser.peek().place
        found.append((parser.name("the name of a column"), place))
    return found


def lone_column(parser):
    """A column that is no member of the JSON object."""
    place = parser.peek().place
    made = Field(parser.name("the name of a column"), place)
    made.alone = True
    made.column = parser.need("string", "the head of the column in double quotes").text
    made.shown = parser.name("a function") if parser.accept("shown") else parser.fail("'shown'")
    made.doc = parser.sentence()
    return made


def field(parser):
    place = parser.peek().place
    made = Field(parser.name("the name of a field"), place)
    parser.symbol(":")
    if parser.peek().text in ("list", "map"):
        made.collection = parser.take().text
    made.type_place, made.type = parser.peek().place, parser.name("a type")
    while parser.peek().kind != "string":
        option(parser, made)
    made.doc = parser.strings()
    return made


def option(parser, made):
    word = parser.peek().text
    if word in ("optional", "defaulted"):
        setattr(made, parser.take().text, True)
    elif parser.accept("or"):
        alternative(parser, made)
    elif parser.accept("unit"):
        made.unit = parser.name("a unit")
    elif parser.accept("column"):
        made.column = parser.need("string", "the head of the column in double quotes").text
    elif word in TEXTS:
        setattr(made, TEXTS[word], quoted(parser, word))
    elif parser.accept("shown"):
        made.shown = parser.name("a function")
    elif word == "from":
        made.filled = quoted(parser, "from")
    else:
        valid = "or null, optional, defaulted, unit, column, shown, else, yes, no, from or a sentence"
        parser.fail(valid)


def alternative(parser, made):
    place = parser.peek().place
    name = parser.name("null or the name of a choice")
    if name == "null":
        made.null = True
    else:
        made.others.append((name, place))


# What does not fit together


class Views:
    """All views and choices of a run, and what emission asks of them."""

    def __init__(self, files):
        self.views, self.choices = {}, {}
        everything = [(file, one) for file in files for one in file.others if is_shown(one)]
        unique([one for _, one in everything])
        for _, made in everything:
            (self.choices if isinstance(made, Choice) else self.views)[made.name] = made
        for file, made in everything:
            if isinstance(made, View):
                later = [one.name for one in file.others[file.others.index(made):]]
                made.filled = [part for part in made.fields if isinstance(part, Field) and part.filled]
                made.fields = [one for part in made.fields for one in self.included(part, later)]
            unique(made.items if isinstance(made, Choice) else made.fields)
            if isinstance(made, View):
                self.check(made, later)

    def included(self, part, later):
        """The fields of a part of a view."""
        if isinstance(part, Field):
            return [part]
        if part.name not in self.views or part.name in later:
            raise ZetError(part.place, f"{part.name} is no view that is declared before", "such a view")
        return self.views[part.name].fields

    def check(self, made, later):
        for one in made.members():
            self.check_type(one, later)
            self.check_field(one)
        heads = {f.name for f in made.fields if f.column}
        for name, place in made.columns:
            if name not in heads:
                valid = ", ".join(sorted(heads)) or "none"
                raise ZetError(place, f"{name} is no column of {made.name}", valid)
        if made.columns and len(made.columns) != len(heads):
            missing = sorted(heads - {name for name, _ in made.columns})
            raise ZetError(made.columns[0][1], "columns lacks " + ", ".join(missing), "each column once")

    def check_type(self, one, later):
        """A view is declared before the fields that have it."""
        if one.type not in (*VALUES, *self.choices, *self.views):
            valid = ", ".join(VALUES) + " or a declared view or choice"
            raise ZetError(one.type_place, f"{one.type} is no type of a field", valid)
        if one.type in later:
            raise ZetError(one.type_place, f"{one.type} is declared later", "a view declared before")
        for name, place in one.others:
            if name not in self.choices or one.type not in self.choices:
                raise ZetError(place, f"{one.name} can't be {name} too", "null, or a choice after a choice,")

    def check_field(self, one):
        if one.collection and one.null:
            raise ZetError(one.place, f"{one.collection} {one.name} can't be null", "an empty one")
        if one.unit and (one.unit not in UNITS or one.type not in NUMBERS):
            raise ZetError(one.place, f"{one.name} can't have the unit {one.unit}",
                           f"a number with one of {', '.join(UNITS)}")
        if (one.yes or one.no) and one.type != "Bool":
            raise ZetError(one.place, f"{one.name} is neither true nor false", "Bool")
        if (one.otherwise or one.shown or one.yes or one.no) and not one.column:
            raise ZetError(one.place, f"{one.name} is in no table", "'column' and its head")
        is_deep = one.type in self.views or one.type in OBJECTS or one.collection == "map"
        if one.column and is_deep and not one.shown:
            raise ZetError(one.place, f"{one.name} is no text", "'shown' and a function")


def is_shown(declared):
    return isinstance(declared, (Choice, View))


def unique(named):
    seen = {}
    for one in named:
        if one.name in seen:
            raise ZetError(one.place, f"{one.name} is declared already at {seen[one.name]}", "another name")
        seen[one.name] = one.place


parse.STATEMENTS.update(choice=choice, view=view)
