"""Reads declaration files: text to a tree of classes and attributes. Knows the grammar and nothing of C++."""

import re
from collections import namedtuple


class ZetError(Exception):
    """An error in a declaration file, with its place (file:line:column) and what would be valid."""

    def __init__(self, place, text, valid):
        super().__init__(f"{place}: {text}; {valid} would be valid")


# kind: name, number, string, symbol, end
Token = namedtuple("Token", "kind text place")
# A declared type: a qualified name, as a value or as a counted or raw pointer to an object.
Type = namedtuple("Type", "name place const pointer raw", defaults=[False, False, False])
# One notification of a watched object and what it does: a handler that runs, a nested reactor that is synced.
On = namedtuple("On", "attribute place runs syncs")


class Attribute:
    def __init__(self, kind, name, place):
        self.kind = kind  # one of PLAIN, one of BY_KEY, or method
        self.name, self.place, self.doc = name, place, ""
        self.type = self.key = None
        self.start = self.unit = self.runs = self.reflected = self.count = ""
        self.range = ()  # least, most, text in quotes
        self.named = self.const_method = self.static_method = False
        self.parameters = []  # of a method: (name, Type)


class Reactor:
    """A nested reactor. A watch has its handlers in the class around it, any other has its own."""

    def __init__(self, kind, name, place):
        self.kind = kind  # watch, reactor, reactors
        self.name, self.place, self.doc = name, place, ""
        self.type = None
        self.init = self.end = ""
        self.ons, self.replay, self.attributes, self.reactors = [], [], [], []


class Class:
    def __init__(self, kind, name, namespace, place):
        self.kind = kind  # entity, machine, record
        self.name, self.namespace, self.place, self.doc = name, namespace, place, ""
        self.qualified = f"{namespace}::{name}"
        self.base = self.construct = self.end = ""
        self.holds = []  # (name, Type)
        self.attributes, self.reactors = [], []
        self.virtual_setters = False


class File:
    def __init__(self, path):
        self.path = path  # without .zet, from the root: model/Status
        self.uses, self.later, self.classes = [], [], []
        self.others = []  # what STATEMENTS read


TOKEN = re.compile(
    r"(?P<space>[ \t\r\n]+|\#[^\n]*)"
    r"|(?P<string>\"(?:[^\"\\\n]|\\.)*\")"
    r"|(?P<number>-?\d+(?:\.\d+)?)"
    r"|(?P<name>[A-Za-z_]\w*(?:::\w+)*)"
    r"|(?P<symbol>[{}():=,*/])")

CLASSES = ("entity", "machine", "record")
PLAIN = ("ctor", "key", "value", "counter", "const", "pointer", "single", "members", "queue", "array")
BY_KEY = ("values", "pointers")
REACTORS = ("watch", "reactor", "reactors")
STATEMENTS = {}  # by first word: functions of other modules that read a declaration from a parser
OPTIONS = {"unit": "a unit", "runs": "the name of a handler", "reflected": "the name of a handler",
           "count": "the name of the function that counts the members"}


def tokens_of(path, text):
    def place(at):
        return f"{path}:{text.count(chr(10), 0, at) + 1}:{at - text.rfind(chr(10), 0, at)}"

    found, at = [], 0
    while at < len(text):
        match = TOKEN.match(text, at)
        if not match:
            valid = "a name, number, string or one of { } ( ) : = , * /"
            raise ZetError(place(at), f"unexpected {text[at]!r}", valid)
        if match.lastgroup != "space":
            found.append(Token(match.lastgroup, match.group(), place(at)))
        at = match.end()
    return found + [Token("end", "the end of the file", place(at))]


class Parser:
    def __init__(self, path, text):
        self.tokens = tokens_of(path + ".zet", text)
        self.at = 0
        self.file = File(path)
        self.namespace = ""

    # Token by token

    def peek(self):
        return self.tokens[self.at]

    def take(self):
        self.at += 1
        return self.tokens[self.at - 1]

    def fail(self, valid):
        raise ZetError(self.peek().place, f"unexpected {self.peek().text}", valid)

    def need(self, kind, valid):
        return self.take() if self.peek().kind == kind else self.fail(valid)

    def accept(self, text):
        found = self.peek().text == text and self.peek().kind in ("name", "symbol")
        self.at += found
        return found

    def symbol(self, text):
        if not self.accept(text):
            self.fail(f"'{text}'")

    def name(self, what):
        return self.need("name", what).text

    def handler(self):
        return self.name("the name of a handler")

    def strings(self):
        """Neighboring strings as one; empty if there is none."""
        return self.take().text[1:-1] + self.strings() if self.peek().kind == "string" else ""

    def sentence(self):
        return self.strings() or self.fail("a sentence in double quotes")

    # Grammar

    def parse(self):
        while self.peek().kind != "end":
            if self.accept("use"):
                self.file.uses.append(self.path())
            elif self.accept("later"):
                self.file.later.append(self.path())
            elif self.accept("namespace"):
                self.namespace = self.name("a namespace")
            elif self.peek().text in CLASSES:
                self.file.classes.append(self.class_())
            elif self.peek().text in STATEMENTS:
                self.file.others.append(STATEMENTS[self.take().text](self))
            else:
                self.fail(", ".join(("use", "later", "namespace", *CLASSES, *STATEMENTS)))
        return self.file

    def path(self):
        path = self.name("a path such as model/Status")
        return f"{path}/{self.path()}" if self.accept("/") else path

    def class_(self):
        kind, place = self.take().text, self.peek().place
        name = self.name("the name of the class")
        if not self.namespace:
            raise ZetError(place, f"{name} has no namespace", "a line 'namespace A::B' before it")
        made = Class(kind, name, self.namespace, place)
        if self.accept(":"):
            made.base = self.name("the name of the base class")
        made.virtual_setters = self.accept("virtual")
        made.doc = self.sentence()
        self.symbol("{")
        while not self.accept("}"):
            self.class_part(made)
        return made

    def class_part(self, made):
        if self.peek().text in REACTORS:
            made.reactors.append(self.reactor())
        elif self.peek().text in ("construct", "end"):
            setattr(made, self.take().text, self.handler())
        elif self.accept("hold"):
            name = self.name("the name of a member")
            self.symbol(":")
            made.holds.append((name, self.type_()))
        else:
            made.attributes.append(self.attribute())

    def attribute(self):
        if self.peek().text == "method":
            return self.method()
        if self.peek().text not in PLAIN + BY_KEY:
            self.fail(", ".join(PLAIN + BY_KEY + REACTORS) + ", method, construct, end, hold")
        kind, place = self.take().text, self.peek().place
        made = Attribute(kind, self.name("the name of an attribute"), place)
        self.symbol(":")
        made.type = self.type_()
        if kind in BY_KEY:
            made.type = made.type._replace(pointer=made.type.pointer or kind == "pointers")
            made.key = self.type_() if self.accept("by") else self.fail("'by' and the type of the key")
        while self.peek().kind != "string":
            self.option(made)
        made.doc = self.strings()
        return made

    def option(self, made):
        word = self.peek().text
        if self.accept("="):
            made.start = self.start()
        elif self.accept("range"):
            made.range = (self.start(), self.start(), self.need("string", "the text of the range").text)
        elif self.accept("named"):
            made.named = True
        elif word in OPTIONS:
            setattr(made, self.take().text, self.name(OPTIONS[word]))
        else:
            self.fail("=, range, named, " + ", ".join(OPTIONS) + " or a sentence in double quotes")

    def start(self):
        return self.take().text if self.peek().kind in ("number", "name", "string") else self.fail(
            "a number, a name or a string")

    def type_(self):
        raw, place = self.accept("raw"), self.peek().place
        name = self.name("a type")
        return Type(name, place, self.accept("const"), self.accept("*"), raw)

    def method(self):
        self.take()
        is_static, place = self.accept("static"), self.peek().place
        made = Attribute("method", self.name("the name of a method"), place)
        self.symbol("(")
        while not self.accept(")"):
            name = self.name("the name of a parameter")
            self.symbol(":")
            made.parameters.append((name, self.type_()))
            if self.peek().text != ")":
                self.symbol(",")
        made.const_method, made.static_method = self.accept("const"), is_static
        made.type = self.type_() if self.accept(":") else Type("void", place)
        made.doc = self.sentence()
        return made

    def reactor(self):
        kind, place = self.take().text, self.peek().place
        made = Reactor(kind, self.name("the name of what is watched"), place)
        if self.accept(":"):
            made.type = self.type_()
        made.doc = self.strings()
        self.symbol("{")
        while not self.accept("}"):
            self.reactor_part(made)
        return made

    def reactor_part(self, made):
        word = self.peek().text
        if self.accept("on"):
            made.ons.append(self.on())
        elif self.accept("replay"):
            made.replay.append(self.name("an attribute to replay"))
            while self.accept(","):
                made.replay.append(self.name("an attribute to replay"))
        elif word in ("init", "end"):
            setattr(made, self.take().text, self.handler())
        elif word in REACTORS:
            made.reactors.append(self.reactor())
        elif word in ("value", "method", "pointer"):
            made.attributes.append(self.attribute())
        else:
            self.fail("on, replay, init, end, value, pointer, method, " + ", ".join(REACTORS))

    def on(self):
        place = self.peek().place
        attribute, does = self.name("an attribute of the watched object"), {"runs": "", "syncs": ""}
        while (word := self.peek().text) in does:
            self.take()
            does[word] = self.name("the name of a " + ("handler" if word == "runs" else "nested reactor"))
        if not any(does.values()):
            self.fail("'runs' and a handler, or 'syncs' and a nested reactor,")
        return On(attribute, place, **does)


def parse(path, text):
    return Parser(path, text).parse()
