"""Finds what a declaration refers to, and reports what does not fit together."""

import bounded
from parse import ZetError

TIMER = "Kiv::TimerWheel"
INDEXED = ("members", "values", "pointers")
NOTIFYING = ("value", "counter", "pointer", "single") + INDEXED


class Model:
    """All declared classes of a run, and the questions that emission asks of them."""

    def __init__(self, files):
        self.files = files
        self.bounded = bounded.all_of(files)
        self.classes = {}
        for made in (c for file in files for c in file.classes):
            one = self.classes.setdefault(made.qualified, made)
            if one is not made:
                raise ZetError(made.place, f"{made.name} is declared already at {one.place}", "another name")
        for made in self.classes.values():
            self.check_class(made)

    # Questions

    def find(self, name, namespace, among=None):
        """The class that a name means inside a namespace, or None. `among` are others than the classes."""
        among = self.classes if among is None else among
        found = among.get(f"{namespace}::{name}" if namespace else name)
        return found if found or not namespace else self.find(name, namespace.rpartition("::")[0], among)

    def facts(self, a, made):
        """Default, range and unit of an attribute, those of its type where it declares none. The range is
        least, most and text, or empty."""
        of_type = self.find(a.type.name, made.namespace, self.bounded)
        if not of_type:
            return a.start, a.range, a.unit
        start = a.start or (of_type.start if a.kind in ("value", "counter") else "")
        return start, a.range or (of_type.low, of_type.high, of_type.text), a.unit or of_type.unit

    def base(self, made):
        return self.find(made.base, made.namespace) if made.base else None

    def attributes(self, made):
        """Own attributes after those of the base."""
        return (self.attributes(self.base(made)) if made.base else []) + made.attributes

    def attribute(self, made, name):
        return next((a for a in self.attributes(made) if a.name == name), None)

    def constructor(self, made):
        """Constructor attributes in declared order."""
        return [a for a in made.attributes if a.kind in ("ctor", "key")]

    def key(self, made):
        return next((a for a in made.attributes if a.kind == "key"), None)

    def target(self, a, made):
        """The class of the members of an attribute."""
        return self.find(a.type.name, made.namespace)

    def key_type(self, a, made):
        """The type of the index into an attribute, or None."""
        return self.key(self.target(a, made)).type if a.kind == "members" else a.key

    def parameters(self, a, made):
        """The constructor attributes that the maker of an owned object is given: not its key in a collection,
        nor a name taken from that, nor a raw pointer back."""
        return [c for c in self.constructor(self.target(a, made)) if not c.type.raw
                and not (a.kind == "members" and c.kind == "key") and not (a.named and c.name == "name")]

    def watched(self, reactor, made):
        """The type that a nested reactor watches."""
        return reactor.type or self.attribute(made, reactor.name).type

    def is_logged(self, made):
        """Whether the attribute log carries a class: an entity that holds nothing but values and such
        entities."""
        logged = (self.can_log(a, made) for a in made.attributes)
        return made.kind == "entity" and not made.holds and all(logged)

    def can_log(self, a, made):
        if a.kind == "method":
            return True
        if a.kind in ("single", "members", "pointer"):
            target = self.target(a, made)
            return bool(target) and not a.type.const and self.is_logged(target) and (
                not self.constructor(target) if a.kind == "pointer" else
                not any(p.type.pointer or p.type.raw for p in self.parameters(a, made)))
        return a.kind in ("ctor", "key", "value", "counter", "const", "values") and not (
            a.type.pointer or a.type.raw)

    def reflected(self, made):
        """Attributes that have a handler which runs where they are written by name."""
        return [a for a in made.attributes if a.reflected]

    def reactor_rows(self, made):
        """Nested reactors that are attributes of their machine: those that don't watch another attribute,
        timers last."""
        return sorted((r for r in made.reactors if r.type), key=lambda r: r.kind == "watch")

    # Errors

    def check_class(self, made):
        if made.base and not self.base(made):
            raise ZetError(made.place, f"base {made.base} is not declared", f"a declared {made.kind}")
        seen = {}
        for a in self.attributes(made):
            if a.name in seen:
                raise ZetError(a.place, f"{a.name} is declared already at {seen[a.name]}", "another name")
            seen[a.name] = a.place
        for a in made.attributes:
            self.check_attribute(a, made)
        if sum(a.kind == "key" for a in made.attributes) > 1:
            raise ZetError(made.place, f"{made.name} has more than one key", "one")
        if made.kind != "machine" and (made.reactors or made.construct):
            place = made.reactors[0].place if made.reactors else made.place
            raise ZetError(place, f"{made.kind} {made.name} can't react", "a machine")
        for r in made.reactors:
            self.check_reactor(r, made, made.reactors)

    def check_attribute(self, a, made):
        if a.kind in ("single", "members"):
            target = self.target(a, made)
            if not target:
                raise ZetError(a.type.place, f"{a.type.name} is not declared", "a declared class")
            if a.kind == "members" and not self.key(target):
                raise ZetError(a.type.place, f"{target.name} has no key", "'single', or a key there,")
        if a.type.pointer and a.kind in ("value", "counter", "const", "values"):
            raise ZetError(a.place, f"{a.kind} {a.name} can't be a pointer", "'pointer' or 'pointers'")
        if a.kind == "const" and not a.start:
            raise ZetError(a.place, f"constant {a.name} has no value", "'= value'")
        if a.range and a.kind not in ("value", "counter"):
            raise ZetError(a.place, f"{a.kind} {a.name} can't have a range", "a value")
        if a.named and a.kind != "members":
            raise ZetError(a.place, f"{a.kind} {a.name} can't be named by its key", "'members'")
        if (a.runs or a.reflected) and made.kind != "machine":
            raise ZetError(a.place, f"{made.kind} {made.name} has no handlers", "a machine")

    def check_reactor(self, r, made, around):
        """`around` are the reactors of which a watch may sync one; another reactor syncs its own."""
        if r.kind == "watch" and not r.type and not self.attribute(made, r.name):
            raise ZetError(r.place, f"{r.name} is no attribute of {made.name}", "one, or ': Type',")
        if r.kind != "watch" and not r.type:
            raise ZetError(r.place, f"{r.name} watches no type", "': Type'")
        watched = self.watched(r, made)
        target = self.find(watched.name, made.namespace)
        if watched.name != TIMER and (not target or target.kind == "record"):
            valid = f"a declared entity or machine, or {TIMER},"
            raise ZetError(watched.place, f"{watched.name} can't be watched", valid)
        if r.kind == "reactors" and not (target and self.key(target)):
            raise ZetError(watched.place, f"{watched.name} has no key", "'reactor', or a key there,")
        for a in r.attributes:
            self.check_attribute(a, made)
        for on in r.ons:
            self.check_on(on, target, around if r.kind == "watch" else r.reactors)
        for name in r.replay:
            self.check_replay(name, r, target)
        for nested in r.reactors:
            self.check_reactor(nested, made, [])

    def check_on(self, on, target, synced):
        if not target:
            if on.attribute != "time" or on.syncs:
                raise ZetError(on.place, "a timer notifies of nothing but 'time'", "'on time runs handler'")
            return
        notified = [a.name for a in self.attributes(target) if a.kind in NOTIFYING]
        if on.attribute not in notified:
            valid = ", ".join(notified) or "nothing"
            raise ZetError(on.place, f"{target.name} doesn't notify of {on.attribute}", valid)
        names = [s.name for s in synced]
        if on.syncs and on.syncs not in names:
            valid = ", ".join(names) or "none yet"
            raise ZetError(on.place, f"{on.syncs} is no nested reactor here", valid)

    def check_replay(self, name, r, target):
        if name not in [on.attribute for on in r.ons]:
            raise ZetError(r.place, f"replay of {name}, which isn't heard", f"'on {name}'")
        if target and self.attribute(target, name).kind in INDEXED:
            raise ZetError(r.place, f"replay of {name}, which has keys", "'syncs'")
