"""Writes C++ from checked declarations: names and tables. Behaviour is in the runtime's templates."""

import re
from string import Template

from check import NOTIFYING
from names import by_ref, commas, cpp, upper
from rows import rows


def range_of(a):
    return f"Zet::Range<{cpp(a.type)}>{{{commas(a.range)}}}"


def indent(lines):
    return ["  " + line if line else line for line in lines]


class Body:
    """A class under way: its public and private lines, its handlers, and its definitions outside."""

    def __init__(self, name):
        self.name = name  # inside the namespace: PimBsrSm::ZetCrp
        self.public, self.private, self.source, self.handlers = [], [], [], {}

    def add(self, text, **names):
        """Lines of C++ with $names. "- " marks a private line. "signature => statement", or a signature with
        indented statements under it, is a function that is defined in the source."""
        lines = [line for line in Template(text).substitute(names).split("\n") if line.strip()]
        while lines:
            signature, is_defined, statement = lines.pop(0).partition(" =>")
            if is_defined:
                statements = [statement.strip()] if statement else []
                while lines and lines[0].startswith("  "):
                    statements.append(lines.pop(0)[2:])
                self.define(signature, *statements)
            elif signature.startswith("- "):
                self.private.append(signature[2:])
            else:
                self.public.append(signature)

    def define(self, signature, *statements, inits=""):
        """A member function, declared in the class and defined in the source."""
        self.public.append(signature + ";")
        result, function = re.fullmatch(r"(?:([^(]+) )?([~\w]+\(.*)", signature).groups(default="")
        function = function.replace(" override", "").replace(" = nullptr", "")
        result = result.removeprefix("static ")
        result = f"{self.name}::{result}" if result.endswith("Iterator") else result
        head = f"{result} {self.name}::{function}{inits}".strip()
        self.source += [f"{head} {{", *indent(statements), "}", ""] if statements else [f"{head} {{}}", ""]

    def handler(self, name, key, origin):
        """A function whose body is written by hand, which names its parameter, and what runs it."""
        if name:
            line = f"void {name}({f'{cpp(key)} const&' if key else ''});"
            self.handlers.setdefault(line, []).append(origin)

    def block(self, head, doc):
        """The lines of the whole class."""
        hand = [line for handler, origins in self.handlers.items()
                for line in (f"/// Runs {commas(dict.fromkeys(origins))}.", handler)]
        private = ["", " private:", *indent(self.private)] if self.private else []
        public = [f"/// {doc}", f"class PIMBSR_API {head} {{", " public:", *indent(self.public + hand)]
        return [*public, *private, "};"]


# Attributes: the accessors and storage of each kind.

VALUE = """
$t $name() const { return ${name}_; }
${virtual}void ${name}Is($t const& value) { Zet::setValue(${name}_, value, $bounds$change); }
- $t ${name}_{$start};"""
ITERATORS = """
${Name}Iterator ${name}Iterator() const => return ${name}_.iterator();
${Name}Iterator ${name}Iterator($key const& from) const => return ${name}_.iteratorFrom(from);
Zet::U32 $count() const { return ${name}_.size(); }"""
DEL_ALL = """
void ${name}DelAll() => Zet::delAll(${name}_, [this]($key const& member) { ${name}Del(member); });"""
VALUES = """
using ${Name}Iterator = Zet::ValueMap<$t, $key>::Iterator;
$t $name($key const& key) const => return Zet::memberValue(${name}_, key);
void ${name}Is($key const& key, $t const& value) =>
  $null
  Zet::setMember(${name}_, key, value, $change);
$t ${name}Del($key const& key) => return Zet::delMember(${name}_, key, $change);""" + DEL_ALL + """
void new$Name($key const& key, $t const& value) =>
  ${name}_.insert(Zet::make<Zet::ValueMember<$t, $key>>(key, value));
- Zet::ValueMap<$t, $key> ${name}_;""" + ITERATORS
ACCESSORS = {
    "ctor": """
$t $name() const $override{ return ${name}_; }
- $t ${name}_;""",
    "key": """
$ref $name() const $override{ return fwkKey(); }""",
    "value": VALUE,
    "counter": VALUE + """
void ${name}Inc($t n) { ${name}Is(${name}_ + n); }""",
    "const": """
static constexpr $t $name() { return $start; }""",
    "pointer": """
$ptr $name() const { return ${name}_; }
void ${name}Is($ptr const& value) => Zet::setValue(${name}_, value, $change);
void ${name}Del() { ${name}Is(nullptr); }
- $ptr ${name}_;""",
    "single": """
$ptr $name() const => return ${name}_;
$ptr ${name}Is($given) => return Zet::getOrMake(${name}_, $test, $make, $change);
void ${name}Del() => Zet::delSingle(${name}_, $change);
$ptr new$Name($given) =>
  ${name}_ = Zet::make<$type>($arguments);
  return ${name}_;
- $ptr ${name}_;""",
    "members": """
using ${Name}Iterator = Zet::HashMap<$type, $key>::Iterator;
$ptr $name($key const& key) const => return ${name}_.find(key);
$ptr ${name}Is($given) => return Zet::getOrMake(${name}_, key, $test, $make, $change);
void ${name}Del($key const& key) => Zet::delObject(${name}_, key, $change);""" + DEL_ALL + """
$ptr new$Name($given) =>
  $ptr made = Zet::make<$type>($arguments);
  ${name}_.insert(made);
  return made;
- Zet::HashMap<$type, $key> ${name}_;""" + ITERATORS,
    "values": VALUES,
    "pointers": VALUES,
    "queue": """
using ${Name}Iterator = Zet::LinkQueue<$type>::Iterator;
Zet::U32 ${name}Enq($ptr const& member) { return ${name}_.enq(member); }
$ptr ${name}First() const { return ${name}_.first(); }
${Name}Iterator ${name}Iterator() const { return ${name}_.iterator(); }
Zet::U32 $count() const { return ${name}_.size(); }
- Zet::LinkQueue<$type> ${name}_;""",
    "array": """
$ptr $name(Zet::U32 index) const => return index < ${name}_.size() ? ${name}_[index] : $ptr();
void ${name}Is(Zet::U32 index, $ptr const& value) =>
  if (index >= ${name}_.size()) ${name}_.resize(index + 1);
  ${name}_[index] = value;
void ${name}DelAll() => ${name}_.clear();
Zet::U32 $count() const { return static_cast<Zet::U32>(${name}_.size()); }
- Zet::DynArray<$ptr> ${name}_;""",
    "method": """
$static$t $name($parameters)$const;""",
}


class Attributes:
    """The accessors of the attributes of one class."""

    def __init__(self, model, made, body, heard):
        self.model, self.made, self.body = model, made, body
        self.heard = heard  # whether the class has notifiees
        self.is_class = body.name == made.name

    def emit(self, a):
        key, name = self.model.key_type(a, self.made), upper(a.name)
        self.body.public.append(f"/// {a.doc}")
        if a.runs:
            self.body.handler(a.runs, key, f"when {a.name} changes")
        if a.reflected:
            self.body.handler(a.reflected, None, f"when {a.name} is written by name")
        self.body.add(
            ACCESSORS[a.kind], name=a.name, Name=name, t=cpp(a.type), type=a.type.name,
            ref=(cpp if a.name == "name" else by_ref)(a.type), static="static " * a.static_method,
            ptr=f"Zet::Ptr<{a.type.name}{' const' if a.type.const else ''}>", key=cpp(key) if key else "",
            start=a.start + "()" if a.start and self.model.attribute(self.made, a.start) else a.start,
            bounds=f"{range_of(a)}, " if a.range else "", count=a.count or a.name + "Count",
            virtual="virtual " * (self.made.virtual_setters and self.is_class),
            null=f"if (!value) return void({a.name}Del(key));" if a.kind == "pointers" else "",
            override="override " * (a.name == "name" and self.made.kind == "entity"),
            parameters=commas(f"{by_ref(t)} {p}" for p, t in a.parameters), const=" const" * a.const_method,
            change=self.change(a, key), **(self.construction(a) if a.kind in ("single", "members") else {}))
        if a.kind == "key" and self.made.kind == "entity" and not self.model.attribute(self.made, "name"):
            self.body.add("Zet::Name name() const override { return Zet::nameOf(fwkKey()); }")

    def change(self, a, key):
        """What follows a stored change, for the runtime's templates: the class's own handler, then the
        notifiees."""
        changed = "changed" if key else ""
        calls = [f"{a.runs}({changed});"] if a.runs else []
        if self.heard and a.kind in NOTIFYING:
            on = f"&NotifieeConst::on{upper(a.name)}"
            calls.append(f"Zet::notify<{on}>(*this, attr{upper(a.name)}{', ' if key else ''}{changed});")
        parameter = f"{cpp(key)} const&{' changed' if calls else ''}" if key else ""
        return f"[{'this' if calls else ''}]({parameter}) {{{' '.join(['', *calls, ''] if calls else '')}}}"

    def construction(self, a):
        """How an owned object is made, and tested when it is found."""
        target, parameters = self.model.target(a, self.made), self.model.parameters(a, self.made)
        key = self.model.key_type(a, self.made)
        arguments = [c.name if c in parameters else "this" if c.type.raw else
                     "key" if c.kind == "key" else "Zet::nameOf(key)" for c in self.model.constructor(target)]
        arguments += ["zetFwkActivity()"] if target.kind == self.made.kind == "machine" else []
        tests = [f"Zet::checkSameArgument(\"{c.name}\", found.{c.name}(), {c.name});" for c in parameters]
        by_key, passed = ([f"{cpp(key)} const& key"], ["key"]) if key else ([], [])
        given = commas(by_key + [f"{by_ref(c.type)} {c.name}" for c in parameters])
        passed = commas(passed + [c.name for c in parameters])
        return {"given": given, "arguments": commas(arguments),
                "make": f"[&] {{ return new{upper(a.name)}({passed}); }}",
                "test": f"[&](auto& found) {{ {' '.join(tests)} }}" if tests else "[](auto&) {}"}


# Nested reactors: the functions of each, and those of the class that holds it.

REACTOR = """
$owner* owner() const { return $held; }
$machine* ${getter}() const => return $up;
- $holder owner_;"""
MANY = """
using ${Name}Iterator = Zet::HashMap<Zet$Name, $key>::Iterator;
Zet::Ptr<Zet$Name> $name($key const& key) const { return ${name}_.find(key); }
${Name}Iterator ${name}Iterator() const { return ${name}_.iterator(); }
Zet::U32 ${name}Count() const { return ${name}_.size(); }
void ${name}Is($object const& $name) =>
  if (!$name) Zet::throwNullReactor("$place", "$name");
  Zet::setReactor(${name}_, this, $name);
void ${name}Del($key const& key) => Zet::delReactor(${name}_, key);""" + DEL_ALL + """
- Zet::HashMap<Zet$Name, $key> ${name}_;"""
SYNC_MANY = """
void ${name}Sync($key const& key) =>
  auto from = $source->notifier();
  Zet::syncReactor(${name}_, this, key, from ? from->$followed(key) : nullptr);
void ${name}SyncAll() =>
  auto from = $source->notifier();
  if (!from) return ${name}DelAll();
  auto members = [&from] { return from->${followed}Iterator(); };
  Zet::syncReactors(${name}_, members, [this]($key const& key) { ${name}Sync(key); });"""
ONE = """
Zet$Name* zet$Name() const { return zet${Name}_.ptr(); }
- Zet::Ptr<Zet$Name> zet${Name}_;"""
ONE_OF_TYPE = ONE + """
$object $name() const => return zet${Name}_ ? zet${Name}_->notifier() : $object();
void ${name}Is($object const& object) => Zet::setReactor(zet${Name}_, this, object);
void ${name}Del() => Zet::delReactor(zet${Name}_);"""
SYNC_ONE = """
void ${name}Sync() =>
  auto from = $source->notifier();
  ${name}Is(from ? from->$followed() : nullptr);
void ${name}SyncAll() => ${name}Sync();"""


class Reactors:
    """The nested reactors of a machine or of another reactor, and the functions that keep them."""

    def __init__(self, model, made, holder, body):
        self.model, self.made, self.body = model, made, body
        self.holder = holder  # a Class or a Reactor
        self.in_machine = holder is made

    def emit(self):
        for r in self.holder.reactors:
            watched = self.model.watched(r, self.made)
            target = self.model.find(watched.name, self.made.namespace)  # None for a timer
            key = cpp(self.model.key(target).type) if r.kind == "reactors" else ""
            object_ = f"{watched.name}{' const' if watched.const or not target else ''}"
            names = {"name": r.name, "Name": upper(r.name), "key": key, "object": f"Zet::Ptr<{object_}>",
                     "place": f"{self.made.namespace}::{self.body.name}"} | self.source_of(r)
            self.emit_class(r, watched, target, names)
            keep, sync = (MANY, SYNC_MANY) if key else (ONE_OF_TYPE if r.type else ONE, SYNC_ONE)
            self.body.add(keep + sync if "source" in names else keep, **names)
        if self.holder.reactors:
            self.emit_nested()

    def source_of(self, r):
        """What a nested reactor follows, if something syncs it: the reactor around, and an attribute."""
        holders = [w for w in self.holder.reactors if w.kind == "watch"] if self.in_machine else [self.holder]
        found = next(((w, on) for w in holders for on in w.ons if on.syncs == r.name), None)
        if not found:
            return {}
        source = f"zet{upper(found[0].name)}_" if self.in_machine else "this"
        return {"source": source, "followed": found[1].attribute}

    def emit_class(self, r, watched, target, names):
        name, owner, key = f"Zet{upper(r.name)}", self.body.name.rpartition("::")[2], names["key"]
        inner, getter = Body(f"{self.body.name}::{name}"), self.made.name[0].lower() + self.made.name[1:]
        base = parent = f"{watched.name}::{'NotifieeConst' if watched.const or not target else 'Notifiee'}"
        if key:
            base, parent = f"Zet::Keyed<{key}, {base}>", "Keyed"
        inner.define(f"{name}({owner}* owner{f', {key} const& key' if key else ''})",
                     inits=f" : {'Keyed(key), ' if key else ''}owner_(owner)")
        # A reactor keeps the one around it alive, since what it calls may end both; the machine outlives all.
        holder, held, up = (f"{owner}*", "owner_", "owner_") if self.in_machine else (
            f"Zet::Ptr<{owner}>", "owner_.ptr()", f"owner_->{getter}()")
        names |= {"owner": owner, "holder": holder, "held": held, "up": up}
        inner.add(REACTOR, machine=self.made.name, getter=getter, **names)
        attributes = Attributes(self.model, self.made, inner, heard=False)
        for a in r.attributes:
            attributes.emit(a)
        Reactors(self.model, self.made, r, inner).emit()
        for on in r.ons:
            self.emit_on(on, r, target, inner)
        self.emit_notifier(r, watched, inner)
        self.emit_ends(r, "" if target else f"{parent}::", names["object"], inner)
        doc = r.doc or f"Reacts to {watched.name}."
        self.body.public += inner.block(f"{name} final : public {base}", doc)
        self.body.source += inner.source

    def emit_on(self, on, r, target, inner):
        key = self.model.key_type(self.model.attribute(target, on.attribute), target) if target else None
        up, given = "owner_->" if r.kind == "watch" else "", "key" if key else ""
        origin = f"when {r.name}.{on.attribute} changes" if target else f"when {r.name} expires"
        (self.body if up else inner).handler(on.runs, key, origin)
        calls = [f"{up}{on.runs}({given});"] if on.runs else []
        calls += [f"{up}{on.syncs}Sync({given});"] if on.syncs else []
        alive, call = "if (zetMarkedForDeletion()) return;", f"void on{upper(on.attribute)}"
        inner.define(f"{call}({f'{cpp(key)} const& key' if key else ''}) override", alive, *calls)
        if key and on.syncs:
            each = [f"if (auto from = notifier(); from) {{",
                    f"  for (auto at = from->{on.attribute}Iterator(); at; ++at) "
                    f"on{upper(on.attribute)}({cpp(key)}(at.key()));", "}"]
            inner.define(f"{call}ZetImmediate() override", alive, *(each if on.runs else []),
                         f"{up}{on.syncs}SyncAll();")

    def emit_notifier(self, r, watched, inner):
        """A reactor with nested ones lets them follow another object."""
        syncs = [f"{'owner_->' if r.kind == 'watch' else ''}{on.syncs}SyncAll();" for on in r.ons if on.syncs]
        if syncs:
            inner.define(f"void notifierIs(Zet::Ptr<{watched.name} const> const& object) override",
                         "attach(object.ptr());", "if (zetMarkedForDeletion()) return;", *syncs)

    def emit_ends(self, r, parent, object_, inner):
        """What is done when a reactor is bound and when it goes."""
        inner.handler(r.init, None, "once it is bound")
        inner.handler(r.end, None, "when its object goes, but not in a zombie")
        start = [f"on{upper(name)}();" for name in r.replay] + ([f"{r.init}();"] if r.init else [])
        start += [f"{on.syncs}SyncAll();" for on in r.ons if on.syncs and r.kind != "watch"]
        bind = f"{parent}notifierIs({{}});" if parent else "attach({});"
        given = "object" if parent else "object.ptr()"
        inner.define(f"void zetStart({object_} const& object)", bind.format(given), *start)
        end = [f"if (!zetMarkedForDeletion()) {r.end}();"] if r.end else []
        end += [f"{n.name}Del{'All' if n.kind == 'reactors' else ''}();" for n in r.reactors]
        inner.define("void zetEnd()", *end, "zetDoZombieReactors(true);", bind.format("nullptr"))

    def emit_nested(self):
        """Through this the runtime reaches the reactors of a holder."""
        each = [f"for (auto at = {r.name}_.iterator(); at; ++at) call(*at);" if r.kind == "reactors" else
                "if (zet{0}_) call(*zet{0}_);".format(upper(r.name)) for r in self.holder.reactors]
        self.body.define("void zetForNested(Zet::NestedCall const& call) override", *each)


# Classes

CLASS = """
static Zet::ZetType const& _fwkType();
Zet::ZetType const& fwkType() const override { return _fwkType(); }
using GenericIf_ = Zet::GenericIfOf<$name>;"""


class ClassEmitter:
    def __init__(self, model, made):
        self.model, self.made, self.body = model, made, Body(made.name)
        self.is_machine = made.kind == "machine"
        self.constructor, self.key = model.constructor(made), model.key(made)

    def emit(self):
        """The lines of the header and of the source."""
        made, body = self.made, self.body
        self.emit_ends()
        body.add(CLASS, name=made.name)
        self.emit_ids()
        if made.kind != "record":
            self.emit_notifiees()
        has_log = "true" if self.model.is_logged(made) else "false"
        body.public.append(f"static constexpr bool zetHasAttrLogInterface() {{ return {has_log}; }}")
        attributes = Attributes(self.model, made, body, heard=made.kind != "record")
        for a in made.attributes:
            attributes.emit(a)
        if self.is_machine:
            Reactors(self.model, made, made, body).emit()
        body.private += [f"{cpp(t)} {name}_;" for name, t in made.holds]
        self.emit_rows()
        bases = {"entity": "Zet::Entity", "machine": "Zet::Machine", "record": "Zet::PtrInterface"}
        base = made.base or bases[made.kind]
        base = f"Zet::Keyed<{cpp(self.key.type)}, {base}>" if self.key else base
        return self.with_factory(body.block(f"{made.name} : public {base}", made.doc))

    def parameters(self, default=""):
        """Of the constructor; a pointer that starts as nullptr may be null, any other may not."""
        given = [f"{by_ref(c.type).replace('Ptr<', 'Ptr<' if c.start else 'ValidPtr<')} {c.name}"
                 for c in self.constructor]
        activity = f"Zet::Ptr<Zet::ActivityConfig> const& zetFwkActivity{default}"
        return commas(given + [activity] * self.is_machine)

    def with_factory(self, block):
        t, name = self.made.name, self.made.name[0].lower() + self.made.name[1:] + "Factory"
        passed = commas([c.name for c in self.constructor] + ["zetFwkActivity"] * self.is_machine)
        declared = [*block, "", f"/// Makes a {t}; the caller holds its first reference.",
                    f"PIMBSR_API Zet::Ptr<{t}> {name}({self.parameters(' = nullptr')});", ""]
        return declared, self.body.source + [f"Zet::Ptr<{t}> {name}({self.parameters()}) {{",
                                             f"  return Zet::make<{t}>({passed});", "}", ""]

    def emit_ends(self):
        """Constructor and destructor."""
        made = self.made
        base = ([self.key.name] if self.key else []) + ["zetFwkActivity"] * self.is_machine
        inits = [f"{'Keyed' if self.key else 'Machine'}({commas(base)})"] if base else []
        inits += [f"{c.name}_({c.name})" for c in self.constructor if c.kind == "ctor"]
        start = [f"{range_of(a)}.check({a.name}_);" for a in made.attributes if a.range]
        end = [f"{made.end}();"] if made.end else []
        if made.kind == "entity":
            dels = {"members": "DelAll", "single": "Del"}
            end += [f"{a.name}{dels[a.kind]}();" for a in made.attributes if a.kind in dels]
        if self.is_machine:
            start += self.bind()
            end = ["zetDoZombieReactors(true);", "zetUnbind();"] + end
        joined = " : " + commas(inits) if inits else ""
        self.body.define(f"{made.name}({self.parameters(' = nullptr')})", *start, inits=joined)
        if len(self.constructor) == 1:
            self.body.public[-1] = "explicit " + self.body.public[-1]
        self.body.define(f"~{made.name}() override", *end)
        self.body.handler(made.construct, None, "in construction, once the watches are bound")
        self.body.handler(made.end, None, "in destruction, once the reactors have gone")

    def bind(self):
        """Binds the watches of attributes, starts the machine, then makes its reactors take over the present
        state. zetUnbind ends them all."""
        reactors, start, synced, ends = self.made.reactors, ["ConstructionGuard guard(*this);"], {}, []
        for r in reactors:
            one = f"zet{upper(r.name)}_"
            if r.kind == "watch" and not r.type:
                start.append(f"Zet::setReactor({one}, this, {r.name}_);")
                synced |= {on.syncs: f"if ({one}) " for on in r.ons}
            ends.append(f"{r.name}DelAll();" if r.kind == "reactors" else f"if ({one}) {one}->zetEnd();")
        self.body.define("void zetUnbind()", *ends)
        self.body.private.append(self.body.public.pop())
        start += [f"{self.made.construct}();"] if self.made.construct else []
        return start + [f"{synced[r.name]}{r.name}SyncAll();" for r in reactors if r.name in synced]

    def emit_ids(self):
        base = self.model.base(self.made)
        first = len(self.model.attributes(base)) if base else 0
        names = [a.name for a in self.made.attributes]
        names += [a.reflected for a in self.model.reflected(self.made)]
        names += [r.name for r in self.model.reactor_rows(self.made)]
        ids = [f"  attr{upper(name)} = {first + i}," for i, name in enumerate(names)]
        self.body.public += ["enum : Zet::AttributeId {", *ids, "};"] if ids else []

    def emit_notifiees(self):
        name, inner, cases = self.made.name, Body(f"{self.made.name}::NotifieeConst"), []
        for a in (a for a in self.made.attributes if a.kind in NOTIFYING):
            on, key = f"on{upper(a.name)}", self.model.key_type(a, self.made)
            inner.public.append(f"virtual void {on}({f'{cpp(key)} const&' if key else ''}) {{}}")
            inner.public += [f"virtual void {on}ZetImmediate() {{}}"] if key else []
            call = f"{on}{'ZetImmediate' if key else ''}();"
            cases.append(f"if (attribute == Zet::allAttributes || attribute == attr{upper(a.name)}) {call}")
        inner.define(f"void zetDispatch(Zet::AttributeId{' attribute' if cases else ''}) override", *cases)
        inner.private.append(inner.public.pop())
        head = f"NotifieeConst : public Zet::NotifieeConstOf<{name}>"
        self.body.public += [*inner.block(head, f"Watches a constant {name}."),
                             f"/// Watches a {name} that it may write.",
                             f"using Notifiee = Zet::NotifieeOf<{name}, NotifieeConst>;"]
        self.body.source += inner.source
        if self.model.is_logged(self.made):
            self.emit_log()

    def emit_log(self):
        """The adapter of the attribute log."""
        made, inner = self.made, Body(f"{self.made.name}::ZetNboAttrLogSa")
        inner.define(f"ZetNboAttrLogSa(Zet::NboAttrLog::FlowOut& flow, {made.name} const& object)",
                     inits=" : SaOf(flow, object)")
        for a in (a for a in made.attributes if a.kind in NOTIFYING):
            key, attribute = self.model.key_type(a, made), f"attr{upper(a.name)}"
            send = f"sendMember({attribute}, {'&key' if key else 'nullptr'});"
            if a.kind in ("value", "counter"):
                send = f"sendValue({attribute}, static_cast<{made.name} const*>(attached())->{a.name}());"
            inner.define(f"void on{upper(a.name)}({f'{cpp(key)} const& key' if key else ''}) override", send)
        apply, update = "Zet::NboAttrLog::deserializeAttr(object, update);", "Zet::NboAttrLog::Update& update"
        for const in ("", " const"):
            given = f"{made.name}{const}& object, {update}"
            inner.define(f"static void handleAttrDeserialization({given})", apply)
        head = "ZetNboAttrLogSa final : public Zet::NboAttrLog::SaOf<NotifieeConst>"
        doc = f"Sends the changes of a {made.name} to an attribute log, and applies those that arrive."
        self.body.public += inner.block(head, doc)
        self.body.source += inner.source

    def emit_rows(self):
        made = self.made
        lines = rows(self.model, made)
        table = ["  static Zet::AttributeRow const rows[] = {", *indent(indent(lines)), "  };"]
        table, own = (table, "rows") if lines else ([], "{}")
        bases = {"entity": "Zet::Entity", "machine": "Zet::Machine"}
        base = made.base or bases.get(made.kind)
        base = f"&{base}::_fwkType()" if base else "nullptr"
        more = f"{{\"{made.qualified}\", \"{made.kind}\", {base}, {own}, \"{made.doc}\"}}"
        known = f"[[maybe_unused]] static bool const is{made.name}Known"
        self.body.source += [f"Zet::ZetType const& {made.name}::_fwkType() {{", *table,
                             f"  static Zet::ZetType const type{more};", "  return type;", "}", "",
                             f"{known} = Zet::zetTypeIs({made.name}::_fwkType());", ""]


def in_namespaces(lots):
    """Lines, each lot in its namespace."""
    lines, open_ = [], ""
    for space, lot in [*lots, ("", [])]:
        if space != open_:
            lines += [f"}}  // namespace {open_}", ""] if open_ else []
            lines += [f"namespace {space} {{", ""] if space else []
            open_ = space
        lines += lot
    return "\n".join(lines).rstrip() + "\n"


def emit_file(model, file):
    """The header and the source of one declaration file."""
    made_from, uses = f"// Made from {file.path}.zet.", [f"#include \"{path}.h\"" for path in file.uses]
    header = [("", [made_from, "#pragma once", "", "#include \"runtime/Model.h\"", *uses, ""])]
    includes = [f"#include \"{path}.h\"" for path in (file.path, *file.later)]
    source = [("", [made_from, "#include <utility>", "", *includes, ""])]
    laters = [c for f in model.files if f.path in file.later for c in f.classes]
    header += [(c.namespace, [f"class {c.name};", ""]) for c in laters + file.classes]
    for made in file.classes:
        declared, defined = ClassEmitter(model, made).emit()
        header.append((made.namespace, declared))
        source.append((made.namespace, defined))
    return in_namespaces(header), in_namespaces(source)
