"""Reads declaration files: text to a tree of classes and attributes. Knows the grammar and nothing of C++."""

import re
from dataclasses import dataclass, field


class ZetError(Exception):
    """A fault in a declaration file, with its place and what would be valid."""

    def __init__(self, place, text):
        super().__init__(f"{place}: {text}")


@dataclass
class Place:
    file: str
    line: int
    column: int

    def __str__(self):
        return f"{self.file}:{self.line}:{self.column}"


@dataclass
class Token:
    kind: str  # name, number, string, symbol, end
    text: str
    place: Place


@dataclass
class Type:
    """A declared type: a qualified name, as a value or as a counted or raw pointer to an object."""

    name: str
    const: bool = False
    pointer: bool = False
    raw: bool = False
    place: Place = None


@dataclass
class Attribute:
    kind: str  # ctor key value counter const pointer single members values pointers queue array method
    name: str
    place: Place
    type: Type = None
    key: Type = None
    start: str = ""
    unit: str = ""
    range: tuple = None
    runs: str = ""
    reflected: str = ""
    named: bool = False
    count: str = ""
    parameters: list = field(default_factory=list)
    const_method: bool = False
    doc: str = ""


@dataclass
class On:
    """One notification of a watched object and what it does."""

    attribute: str
    place: Place
    runs: str = ""
    syncs: str = ""


@dataclass
class Reactor:
    """A nested reactor. A watch has its handlers in the class around it, any other has its own."""

    kind: str  # watch, reactor, reactors
    name: str
    place: Place
    type: Type = None
    ons: list = field(default_factory=list)
    replay: list = field(default_factory=list)
    init: str = ""
    end: str = ""
    attributes: list = field(default_factory=list)
    reactors: list = field(default_factory=list)
    parent: object = None
    doc: str = ""


@dataclass
class Class:
    kind: str  # entity, machine, record
    name: str
    namespace: str
    file: str
    place: Place
    base: str = ""
    doc: str = ""
    construct: str = ""
    end: str = ""
    holds: list = field(default_factory=list)
    attributes: list = field(default_factory=list)
    reactors: list = field(default_factory=list)

    @property
    def qualified(self):
        return f"{self.namespace}::{self.name}"


@dataclass
class File:
    path: str  # without .zet, from the root: model/Status
    uses: list = field(default_factory=list)
    later: list = field(default_factory=list)
    classes: list = field(default_factory=list)


TOKEN = re.compile(
    r"(?P<space>[ \t\r\n]+|\#[^\n]*)"
    r"|(?P<string>\"(?:[^\"\\\n]|\\.)*\")"
    r"|(?P<number>-?\d+(?:\.\d+)?)"
    r"|(?P<name>[A-Za-z_]\w*(?:::\w+)*)"
    r"|(?P<symbol>[{}():=,*/.])")

CLASS_KINDS = ("entity", "machine", "record")
PLAIN_KINDS = ("ctor", "key", "value", "counter", "const", "pointer", "single", "members", "queue", "array")
KEYED_KINDS = ("values", "pointers")
REACTOR_KINDS = ("watch", "reactor", "reactors")


def tokens_of(path, text):
    found, at, line, start = [], 0, 1, 0
    while at < len(text):
        match = TOKEN.match(text, at)
        place = Place(path, line, at - start + 1)
        if not match:
            raise ZetError(place, f"unexpected {text[at]!r}; a name, number, string or one of {{ }} ( ) : = , * would be valid")
        if match.lastgroup != "space":
            found.append(Token(match.lastgroup, match.group(), place))
        newlines = match.group().count("\n")
        if newlines:
            line += newlines
            start = match.start() + match.group().rfind("\n") + 1
        at = match.end()
    found.append(Token("end", "the end of the file", Place(path, line, at - start + 1)))
    return found


class Parser:
    def __init__(self, path, text):
        self.tokens = tokens_of(path + ".zet", text)
        self.at = 0
        self.file = File(path)
        self.namespace = ""

    # Token by token ------------------------------------------------------------------------------------------

    def peek(self):
        return self.tokens[self.at]

    def take(self):
        self.at += 1
        return self.tokens[self.at - 1]

    def fail(self, valid):
        token = self.peek()
        raise ZetError(token.place, f"unexpected {token.text}; {valid} would be valid")

    def need(self, kind, valid):
        if self.peek().kind != kind:
            self.fail(valid)
        return self.take()

    def symbol(self, text):
        if self.peek().text != text or self.peek().kind != "symbol":
            self.fail(f"'{text}'")
        return self.take()

    def accept(self, text):
        if self.peek().text == text and self.peek().kind != "string":
            self.at += 1
            return True
        return False

    def name(self, what):
        return self.need("name", what)

    def string(self):
        parts = [self.need("string", "a sentence in double quotes").text[1:-1]]
        while self.peek().kind == "string":
            parts.append(self.take().text[1:-1])
        return "".join(parts)

    # Grammar -------------------------------------------------------------------------------------------------

    def parse(self):
        while self.peek().kind != "end":
            word = self.peek().text
            if word in ("use", "later"):
                self.take()
                (self.file.uses if word == "use" else self.file.later).append(self.path())
            elif word == "namespace":
                self.take()
                self.namespace = self.name("a namespace").text
            elif word in CLASS_KINDS:
                self.file.classes.append(self.class_())
            else:
                self.fail("use, later, namespace, " + ", ".join(CLASS_KINDS))
        return self.file

    def path(self):
        parts = [self.name("a path such as model/Status").text]
        while self.accept("/"):
            parts.append(self.name("a path such as model/Status").text)
        return "/".join(parts)

    def class_(self):
        kind = self.take().text
        name = self.name("the name of the class")
        if not self.namespace:
            raise ZetError(name.place, f"{name.text} has no namespace; a line 'namespace A::B' before it would be valid")
        made = Class(kind, name.text, self.namespace, self.file.path, name.place)
        if self.accept(":"):
            made.base = self.name("the name of the base class").text
        made.doc = self.string()
        self.symbol("{")
        while not self.accept("}"):
            self.class_part(made)
        return made

    def class_part(self, made):
        word = self.peek().text
        if word in REACTOR_KINDS:
            made.reactors.append(self.reactor(None))
        elif word in ("construct", "end"):
            self.take()
            setattr(made, word, self.name("the name of a handler").text)
        elif word == "hold":
            self.take()
            name = self.name("the name of a member").text
            self.symbol(":")
            made.holds.append((name, self.type_()))
        else:
            made.attributes.append(self.attribute())

    def attribute(self):
        word = self.peek().text
        if word == "method":
            return self.method()
        if word not in PLAIN_KINDS + KEYED_KINDS:
            self.fail(", ".join(PLAIN_KINDS + KEYED_KINDS + REACTOR_KINDS) + ", method, construct, end, hold")
        kind = self.take().text
        name = self.name("the name of an attribute")
        made = Attribute(kind, name.text, name.place)
        self.symbol(":")
        made.type = self.type_()
        if kind in KEYED_KINDS:
            if not self.accept("by"):
                self.fail("'by' and the type of the key")
            made.key = self.type_()
        self.options(made)
        made.doc = self.string()
        return made

    def options(self, made):
        while self.peek().kind != "string":
            if self.accept("="):
                made.start = self.start()
            elif self.accept("unit"):
                made.unit = self.name("a unit").text
            elif self.accept("range"):
                made.range = (self.start(), self.start(), self.need("string", "the text of the range").text)
            elif self.accept("runs"):
                made.runs = self.name("the name of a handler").text
            elif self.accept("reflected"):
                made.reflected = self.name("the name of a handler").text
            elif self.accept("named"):
                made.named = True
            elif self.accept("count"):
                made.count = self.name("the name of the function that counts the members").text
            else:
                self.fail("=, unit, range, runs, reflected, named, count or a sentence in double quotes")

    def start(self):
        if self.peek().kind not in ("number", "name", "string"):
            self.fail("a number, a name or a string")
        return self.take().text

    def type_(self):
        raw = self.accept("raw")
        name = self.name("a type")
        made = Type(name.text, raw=raw, place=name.place)
        made.const = self.accept("const")
        made.pointer = self.accept("*")
        return made

    def method(self):
        self.take()
        name = self.name("the name of a method")
        made = Attribute("method", name.text, name.place)
        self.symbol("(")
        while not self.accept(")"):
            parameter = self.name("the name of a parameter").text
            self.symbol(":")
            made.parameters.append((parameter, self.type_()))
            if self.peek().text != ")":
                self.symbol(",")
        made.const_method = self.accept("const")
        made.type = self.type_() if self.accept(":") else Type("void", place=name.place)
        made.doc = self.string()
        return made

    def reactor(self, parent):
        kind = self.take().text
        name = self.name("the name of what is watched")
        made = Reactor(kind, name.text, name.place, parent=parent)
        if self.accept(":"):
            made.type = self.type_()
        if self.peek().kind == "string":
            made.doc = self.string()
        self.symbol("{")
        while not self.accept("}"):
            self.reactor_part(made)
        return made

    def reactor_part(self, made):
        word = self.peek().text
        if word == "on":
            self.take()
            made.ons.append(self.on())
        elif word == "replay":
            self.take()
            made.replay.append(self.name("an attribute to replay").text)
            while self.accept(","):
                made.replay.append(self.name("an attribute to replay").text)
        elif word in ("init", "end"):
            self.take()
            setattr(made, word, self.name("the name of a handler").text)
        elif word in REACTOR_KINDS:
            made.reactors.append(self.reactor(made))
        elif word in ("value", "method", "pointer"):
            made.attributes.append(self.attribute())
        else:
            self.fail("on, replay, init, end, value, pointer, method, " + ", ".join(REACTOR_KINDS))

    def on(self):
        name = self.name("an attribute of the watched object")
        made = On(name.text, name.place)
        while True:
            if self.accept("runs"):
                made.runs = self.name("the name of a handler").text
            elif self.accept("syncs"):
                made.syncs = self.name("the name of a nested reactor").text
            else:
                break
        if not made.runs and not made.syncs:
            self.fail("'runs' and a handler, or 'syncs' and a nested reactor,")
        return made


def parse(path, text):
    return Parser(path, text).parse()
