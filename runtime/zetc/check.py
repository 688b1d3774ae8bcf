"""Finds what a declaration refers to, and refuses what does not fit together."""

from parse import Attribute, Type, ZetError

TIMER = "Kiv::TimerWheel"


class Model:
    """All declared classes of a run, and the questions that emission asks of them."""

    def __init__(self, files):
        self.files = files
        self.classes = {}
        for file in files:
            for made in file.classes:
                self.add(made)
        for made in self.classes.values():
            self.check_class(made)

    def add(self, made):
        if made.qualified in self.classes:
            other = self.classes[made.qualified]
            raise ZetError(made.place, f"{made.name} is declared already at {other.place}; another name would be valid")
        self.classes[made.qualified] = made

    # Questions -----------------------------------------------------------------------------------------------

    def find(self, name, namespace):
        """The class that a name means inside a namespace, or None."""
        space = namespace
        while True:
            found = self.classes.get(f"{space}::{name}" if space else name)
            if found or not space:
                return found
            space = space.rpartition("::")[0]

    def base(self, made):
        return self.find(made.base, made.namespace) if made.base else None

    def attributes(self, made):
        """Own attributes behind those of the base."""
        base = self.base(made)
        return (self.attributes(base) if base else []) + made.attributes

    def attribute(self, made, name):
        return next((a for a in self.attributes(made) if a.name == name), None)

    def constructor(self, made):
        """Constructor attributes in declared order."""
        return [a for a in made.attributes if a.kind in ("ctor", "key")]

    def key(self, made):
        return next((a for a in made.attributes if a.kind == "key"), None)

    def target(self, attribute, made):
        """The class of the members of an attribute."""
        return self.find(attribute.type.name, made.namespace)

    def watched(self, reactor, made):
        """The type that a nested reactor watches."""
        if reactor.type:
            return reactor.type
        return self.attribute(made, reactor.name).type

    # Refusals ------------------------------------------------------------------------------------------------

    def check_class(self, made):
        if made.base and not self.base(made):
            raise ZetError(made.place, f"base {made.base} is not declared; a declared {made.kind} would be valid")
        seen = {}
        for a in self.attributes(made):
            if a.name in seen:
                raise ZetError(a.place, f"{a.name} is declared already at {seen[a.name]}; another name would be valid")
            seen[a.name] = a.place
            self.check_attribute(a, made)
        if sum(a.kind == "key" for a in made.attributes) > 1:
            raise ZetError(made.place, f"{made.name} has more than one key; one would be valid")
        if made.reactors and made.kind != "machine":
            raise ZetError(made.reactors[0].place, f"{made.kind} {made.name} can't react; a machine would be valid")
        for r in made.reactors:
            self.check_reactor(r, made, None)

    def check_attribute(self, a, made):
        if a.kind in ("single", "members"):
            target = self.target(a, made)
            if not target:
                raise ZetError(a.type.place, f"{a.type.name} is not declared; a class of a used file would be valid")
            if a.kind == "members" and not self.key(target):
                raise ZetError(a.type.place, f"{target.name} has no key; 'single', or a key there, would be valid")
        if a.kind == "const" and not a.start:
            raise ZetError(a.place, f"constant {a.name} has no value; '= value' would be valid")
        if a.range and a.kind not in ("value", "counter"):
            raise ZetError(a.place, f"{a.kind} {a.name} can't have a range; a value would be valid")
        if a.named and a.kind != "members":
            raise ZetError(a.place, f"{a.kind} {a.name} can't be named by its key; 'members' would be valid")
        if (a.runs or a.reflected) and made.kind != "machine":
            raise ZetError(a.place, f"{made.kind} {made.name} has no handlers; a machine would be valid")

    def check_reactor(self, r, made, around):
        if r.kind == "watch" and not r.type and not self.attribute(made, r.name):
            raise ZetError(r.place, f"{r.name} is no attribute of {made.name}; one, or ': Type', would be valid")
        if r.kind != "watch" and not r.type:
            raise ZetError(r.place, f"{r.name} watches no type; ': Type' would be valid")
        watched = self.watched(r, made)
        if watched.name != TIMER and not self.find(watched.name, made.namespace):
            raise ZetError(watched.place or r.place, f"{watched.name} is not declared; a declared class or {TIMER} would be valid")
        for on in r.ons:
            self.check_on(on, r, watched, made, around)
        for name in r.replay:
            if not any(on.attribute == name for on in r.ons):
                raise ZetError(r.place, f"replay of {name}, which isn't heard; 'on {name}' would be valid")
        for nested in r.reactors:
            self.check_reactor(nested, made, r)

    def check_on(self, on, r, watched, made, around):
        if watched.name == TIMER:
            if on.attribute != "time" or on.syncs:
                raise ZetError(on.place, "a timer tells of nothing but 'time'; 'on time runs handler' would be valid")
            return
        target = self.find(watched.name, made.namespace)
        heard = self.attribute(target, on.attribute)
        if not heard or heard.kind in ("ctor", "key", "const", "method"):
            names = ", ".join(a.name for a in self.attributes(target) if a.kind not in ("ctor", "key", "const", "method"))
            raise ZetError(on.place, f"{target.name} doesn't tell of {on.attribute}; {names} would be valid")
        if on.syncs:
            siblings = around.reactors if r.kind == "watch" and around else made.reactors if r.kind == "watch" else r.reactors
            if not any(s.name == on.syncs for s in siblings):
                names = ", ".join(s.name for s in siblings) or "none yet"
                raise ZetError(on.place, f"{on.syncs} is no nested reactor here; {names} would be valid")


INDEXED = ("members", "values", "pointers")
HEARD = ("value", "counter", "pointer", "single", "members", "values", "pointers")

__all__ = ["Attribute", "HEARD", "INDEXED", "Model", "TIMER", "Type"]
