"""Writes C++ from checked declarations: names, tables and a reference page. Behaviour is in the runtime's templates."""

from check import HEARD, INDEXED, TIMER

OBJECT = "Zet::PtrInterface"


def upper(name):
    return name[0].upper() + name[1:]


def cpp(t):
    """A declared type as it is stored."""
    name = t.name + (" const" if t.const else "")
    return f"{name}*" if t.raw else f"Zet::Ptr<{name}>" if t.pointer else name


def by_ref(t):
    return cpp(t) if t.raw else f"{cpp(t)} const&"


def quoted(text):
    return '"' + text.strip('"') + '"'


class Writer:
    """Lines of one file, with the namespace that is open."""

    def __init__(self):
        self.lines = []
        self.space = ""

    def add(self, *lines):
        self.lines += lines

    def open(self, space):
        if space != self.space:
            if self.space:
                self.add(f"}}  // namespace {self.space}", "")
            if space:
                self.add(f"namespace {space} {{", "")
            self.space = space

    def text(self):
        self.open("")
        return "\n".join(self.lines) + "\n"


class Scope:
    """A class body under way: its public part, its private part and its definitions outside."""

    def __init__(self, qualified, model, made):
        self.qualified = qualified  # inside the namespace: PimBsrSm::ZetCrp
        self.model = model
        self.made = made
        self.public, self.private, self.source, self.handlers = [], [], [], []

    def declare(self, result, call, body, suffix="", const=False, override=False):
        """A member function, declared in the class and defined in the source."""
        tail = (" const" if const else "") + (" override" if override else "")
        self.public.append(f"{result}{call}{tail};" if result == "" else f"{result} {call}{tail};")
        spaced = f"{result} " if result else ""
        self.source += [f"{spaced}{self.qualified}::{strip_defaults(call)}{' const' if const else ''}{suffix} {{", *body, "}", ""]

    def handler(self, name, parameters=""):
        """A function whose body is written by hand."""
        line = f"void {name}({parameters});"
        if name and line not in self.handlers:
            self.handlers.append(line)


def strip_defaults(call):
    return call.replace(" = nullptr", "")


def result_in(scope, t):
    """A nested type named in a result needs its class in front."""
    return t.replace("@", scope.qualified + "::")


# Attributes ------------------------------------------------------------------------------------------------------


class AttributeEmitter:
    """The accessors, storage and row of each attribute of one class."""

    def __init__(self, scope, heard):
        self.s = scope
        self.made = scope.made
        self.model = scope.model
        self.heard = heard  # whether the class has notifiees

    def change(self, a, key=False):
        """What follows a stored change: the class's own handler, then the notifiees."""
        calls = []
        if a.runs:
            calls.append(f"{a.runs}({'changed' if key else ''});")
            self.s.handler(a.runs, f"{self.key_type(a)} const& key" if key else "")
        if self.heard and a.kind in HEARD:
            on = f"&NotifieeConst::on{upper(a.name)}"
            calls.append(f"Zet::notify<{on}>(*this, attr{upper(a.name)}{', changed' if key else ''});")
        parameter = f"{self.key_type(a)} const&{' changed' if calls else ''}" if key else ""
        capture = "this" if calls else ""
        return f"[{capture}]({parameter}) {{ {' '.join(calls)} }}"

    def key_type(self, a):
        return cpp(self.model.key(self.model.target(a, self.made)).type) if a.kind == "members" else cpp(a.key)

    def emit(self, a):
        self.s.public.append(f"/// {a.doc}")
        getattr(self, "emit_" + a.kind)(a)

    def start(self, a):
        if self.model.attribute(self.made, a.start) and a.start:
            return a.start + "()"
        return a.start

    def store(self, t, a, start=None):
        self.s.private.append(f"{t} {a.name}_{{{start if start is not None else self.start(a)}}};")

    def emit_ctor(self, a):
        named = a.name == "name" and self.made.kind == "entity"
        self.s.public.append(f"{cpp(a.type)} {a.name}() const {'override ' if named else ''}{{ return {a.name}_; }}")
        self.s.private.append(f"{cpp(a.type)} {a.name}_;")

    def emit_key(self, a):
        self.s.public.append(f"{by_ref(a.type)} {a.name}() const {{ return fwkKey(); }}")
        if self.made.kind == "entity" and not self.model.attribute(self.made, "name"):
            self.s.public.append("Zet::Name name() const override { return Zet::nameOf(fwkKey()); }")

    def emit_value(self, a):
        t, name = cpp(a.type), a.name
        bounds = f"Zet::Range<{t}>{{{a.range[0]}, {a.range[1]}, {a.range[2]}}}, " if a.range else ""
        self.s.public.append(f"{t} {name}() const {{ return {name}_; }}")
        self.s.public.append(f"void {name}Is({t} const& value) {{ Zet::setValue({name}_, value, {bounds}{self.change(a)}); }}")
        if a.reflected:
            self.s.handler(a.reflected)
        self.store(t, a)

    def emit_counter(self, a):
        self.emit_value(a)
        self.s.public.append(f"void {a.name}Inc({cpp(a.type)} n) {{ {a.name}Is({a.name}_ + n); }}")

    def emit_const(self, a):
        self.s.public.append(f"static constexpr {cpp(a.type)} {a.name}() {{ return {a.start}; }}")

    def emit_pointer(self, a):
        t = f"Zet::Ptr<{a.type.name}{' const' if a.type.const else ''}>"
        self.s.public.append(f"{t} {a.name}() const {{ return {a.name}_; }}")
        self.s.declare("void", f"{a.name}Is({t} const& value)", [f"  Zet::setValue({a.name}_, value, {self.change(a)});"])
        self.s.public.append(f"void {a.name}Del() {{ {a.name}Is(nullptr); }}")
        self.s.private.append(f"{t} {a.name}_;")

    def arguments(self, a):
        """Of the members' constructor: (declared, passed) without the key, the back pointer and a derived name."""
        target = self.model.target(a, self.made)
        plain = [c for c in self.model.constructor(target) if not c.type.raw and not (a.kind == "members" and c.kind == "key")]
        if a.named:
            plain = [c for c in plain if c.name != "name"]
        return target, plain

    def passed(self, a, target):
        words = {"raw": "this", "named": "Zet::nameOf(key)"}
        given = []
        for c in self.model.constructor(target):
            if c.kind == "key" and a.kind == "members":
                given.append("key")
            elif c.type.raw:
                given.append(words["raw"])
            else:
                given.append(words["named"] if a.named and c.name == "name" else c.name)
        if target.kind == "machine" and self.made.kind == "machine":
            given.append("zetFwkActivity_")
        return ", ".join(given)

    def emit_single(self, a):
        target, plain = self.arguments(a)
        t, name, Name = f"Zet::Ptr<{a.type.name}>", a.name, upper(a.name)
        given = ", ".join(f"{by_ref(c.type)} {c.name}" for c in plain)
        names = ", ".join(c.name for c in plain)
        checks = [f"    Zet::checkSameArgument(\"{c.name}\", {name}_->{c.name}(), {c.name});" for c in plain]
        self.s.declare(t, f"{name}()", [f"  return {name}_;"], const=True)
        self.s.declare(t, f"{name}Is({given})", [f"  if ({name}_) {{", *checks, f"    return {name}_;", "  }",
                       f"  {t} made = new{Name}({names});", f"  {self.change(a)}();", "  return made;"])
        self.s.declare("void", f"{name}Del()", [f"  if ({name}_) {name}Unset();"])
        self.s.declare(t, f"new{Name}({given})", [f"  {name}_ = Zet::make<{a.type.name}>({self.passed(a, target)});", f"  return {name}_;"])
        self.s.private += [f"void {name}Unset();", f"{t} {name}_;"]
        self.s.source += [f"void {self.s.qualified}::{name}Unset() {{", f"  {t} gone = std::move({name}_);", f"  {self.change(a)}();", "}", ""]

    def emit_members(self, a):
        target, plain = self.arguments(a)
        key, t, name, Name = self.key_type(a), f"Zet::Ptr<{a.type.name}>", a.name, upper(a.name)
        given = "".join(f", {by_ref(c.type)} {c.name}" for c in plain)
        names = "".join(f", {c.name}" for c in plain)
        checks = [f"    Zet::checkSameArgument(\"{c.name}\", found->{c.name}(), {c.name});" for c in plain]
        map_ = f"Zet::HashMap<{a.type.name}, {key}>"
        self.s.public.append(f"using {Name}Iterator = {map_}::Iterator;")
        self.s.declare(t, f"{name}({key} const& key)", [f"  return {name}_.find(key);"], const=True)
        self.s.declare(t, f"{name}Is({key} const& key{given})", [f"  if ({t} found = {name}_.find(key); found) {{", *checks, "    return found;", "  }",
                       f"  {t} made = new{Name}(key{names});", f"  {self.change(a, True)}(key);", "  return made;"])
        self.s.declare("void", f"{name}Del({key} const& key)", [f"  Zet::delObject({name}_, key, {self.change(a, True)});"])
        self.s.declare("void", f"{name}DelAll()", [f"  Zet::delAll({name}_, [this]({key} const& member) {{ {name}Del(member); }});"])
        self.s.declare(t, f"new{Name}({key} const& key{given})", [f"  {t} made = Zet::make<{a.type.name}>({self.passed(a, target)});", f"  {name}_.insert(made);", "  return made;"])
        self.walks(a, key, map_)

    def walks(self, a, key, map_):
        name, Name = a.name, upper(a.name)
        self.s.declare(f"{Name}Iterator" if False else "@", f"{name}Iterator()", [f"  return {name}_.iterator();"], const=True)
        self.s.public[-1] = f"{Name}Iterator {name}Iterator() const;"
        self.s.source[-4] = f"{self.s.qualified}::{Name}Iterator {self.s.qualified}::{name}Iterator() const {{"
        self.s.public.append(f"{Name}Iterator {name}Iterator({key} const& from) const;")
        self.s.source += [f"{self.s.qualified}::{Name}Iterator {self.s.qualified}::{name}Iterator({key} const& from) const {{", f"  return {name}_.iteratorFrom(from);", "}", ""]
        self.s.public.append(f"Zet::U32 {a.count or name + 'Count'}() const {{ return {name}_.size(); }}")
        self.s.private.append(f"{map_} {name}_;")

    def emit_values(self, a):
        key, v, name, Name = cpp(a.key), cpp(a.type), a.name, upper(a.name)
        map_ = f"Zet::ValueMap<{v}, {key}>"
        self.s.public.append(f"using {Name}Iterator = {map_}::Iterator;")
        self.s.declare(v, f"{name}({key} const& key)", [f"  return Zet::memberValue({name}_, key);"], const=True)
        self.s.declare("void", f"{name}Is({key} const& key, {v} const& value)", self.set_member(a))
        self.s.declare(v, f"{name}Del({key} const& key)", [f"  return Zet::delMember({name}_, key, {self.change(a, True)});"])
        self.s.declare("void", f"{name}DelAll()", [f"  Zet::delAll({name}_, [this]({key} const& member) {{ {name}Del(member); }});"])
        self.s.declare("void", f"new{Name}({key} const& key, {v} const& value)", [f"  {name}_.insert(Zet::make<Zet::ValueMember<{v}, {key}>>(key, value));"])
        self.walks(a, key, map_)

    def set_member(self, a):
        return [f"  Zet::setMember({a.name}_, key, value, {self.change(a, True)});"]

    def emit_pointers(self, a):
        a.type.pointer = True
        self.emit_values(a)
        at = self.s.source.index(f"  Zet::setMember({a.name}_, key, value, {self.change(a, True)});")
        self.s.source.insert(at, f"  if (!value) return void({a.name}Del(key));")

    def emit_queue(self, a):
        t, name, Name = f"Zet::LinkQueue<{a.type.name}>", a.name, upper(a.name)
        self.s.public += [f"using {Name}Iterator = {t}::Iterator;", f"Zet::U32 {name}Enq(Zet::Ptr<{a.type.name}> const& member) {{ return {name}_.enq(member); }}",
                          f"Zet::Ptr<{a.type.name}> {name}First() const {{ return {name}_.first(); }}",
                          f"{Name}Iterator {name}Iterator() const {{ return {name}_.iterator(); }}",
                          f"Zet::U32 {name}Count() const {{ return {name}_.size(); }}"]
        self.s.private.append(f"{t} {name}_;")

    def emit_array(self, a):
        t, name = f"Zet::Ptr<{a.type.name}>", a.name
        self.s.declare(t, f"{name}(Zet::U32 index)", [f"  return index < {name}_.size() ? {name}_[index] : {t}();"], const=True)
        self.s.declare("void", f"{name}Is(Zet::U32 index, {t} const& value)",
                       [f"  if (index >= {name}_.size()) {name}_.resize(index + 1);", f"  {name}_[index] = value;"])
        self.s.declare("void", f"{name}DelAll()", [f"  {name}_.clear();"])
        self.s.public.append(f"Zet::U32 {name}Count() const {{ return static_cast<Zet::U32>({name}_.size()); }}")
        self.s.private.append(f"Zet::DynArray<{t}> {name}_;")

    def emit_method(self, a):
        given = ", ".join(f"{by_ref(t)} {n}" for n, t in a.parameters)
        self.s.public.append(f"{cpp(a.type)} {a.name}({given}){' const' if a.const_method else ''};")

    # Rows of the reflection table --------------------------------------------------------------------------

    def row(self, a):
        kind = {"ctor": "constructor", "key": "constructor", "const": "constant"}.get(a.kind, a.kind)
        key = self.key_type(a) if a.kind in INDEXED else "Zet::U32" if a.kind in ("queue", "array") else ""
        bounds = a.range[2] if a.range else '""'
        head = f"{{attr{upper(a.name)}, \"{a.name}\", Zet::AttributeKind::{kind}, \"{a.type.name}\", \"{key}\", {quoted(a.start)}, \"{a.unit}\", {bounds}, {quoted(a.doc)}"
        return [head + ",", *[f"     {self.function(a, op)}," for op in ("read", "write", "del", "walk", "member")], f"     {self.function(a, 'call')}}},"]

    def function(self, a, op):
        body = getattr(self, "row_" + op)(a)
        const = "" if op in ("write", "del", "call") else " const"
        more = {"read": ", Zet::String8 const& key", "del": ", Zet::String8 const& key", "member": ", Zet::String8 const& key",
                "write": ", Zet::String8 const& key, Zet::String8 const& value", "walk": ", Zet::MemberVisitor& visitor",
                "call": ", std::span<Zet::Argument const> arguments"}[op]
        result = {"read": " -> Zet::String8", "member": f" -> Zet::Ptr<{OBJECT}>", "call": " -> Zet::String8"}.get(op, "")
        if not body:
            return "nullptr"
        return f"[]([[maybe_unused]] {OBJECT}{const}& o{more.replace(', ', ', [[maybe_unused]] ')}){result} {{ {body} }}"

    def self_(self, const=True):
        return f"static_cast<{self.made.name}{' const' if const else ''}&>(o)"

    def key_of(self, a):
        return f"Zet::strepToValue<{self.key_type(a)}>(key)"

    def row_read(self, a):
        if a.kind in ("ctor", "key", "value", "counter", "const", "pointer", "single") and not a.type.raw:
            return f"return Zet::strep({self.self_()}.{a.name}());"
        return f"return Zet::strep({self.self_()}.{a.name}({self.key_of(a)}));" if a.kind in INDEXED else ""

    def row_write(self, a):
        if a.kind in ("value", "counter"):
            set_ = f"s.{a.name}Is(v);" + (f" s.{a.reflected}();" if a.reflected else "")
            test = f"if (v == s.{a.name}()) return; " if a.reflected else ""
            return f"auto& s = {self.self_(False)}; auto v = Zet::strepToValue<{cpp(a.type)}>(value); {test}{set_}"
        if a.kind == "values" and not a.type.pointer:
            return f"{self.self_(False)}.{a.name}Is({self.key_of(a)}, Zet::strepToValue<{cpp(a.type)}>(value));"
        if a.kind == "members" and not self.arguments(a)[1]:
            return f"{self.self_(False)}.{a.name}Is({self.key_of(a)});"
        return ""

    def row_del(self, a):
        if a.kind in INDEXED:
            return f"{self.self_(False)}.{a.name}Del({self.key_of(a)});"
        return f"{self.self_(False)}.{a.name}Del();" if a.kind in ("single", "pointer") else ""

    def row_walk(self, a):
        if a.kind not in INDEXED + ("queue",):
            return ""
        key = "Zet::strep(at.key())"
        value = "Zet::strep(at->value), nullptr" if a.kind == "values" else "Zet::strep(at->value), at->value.ptr()" if a.kind == "pointers" else "Zet::strep(at.ptr()), at.ptr().ptr()"
        return f"for (auto at = {self.self_()}.{a.name}Iterator(); at; ++at) visitor.onMember({key}, {value});"

    def row_member(self, a):
        if a.kind in ("pointer", "single"):
            return f"return Zet::mutableOf({self.self_()}.{a.name}());"
        return f"return Zet::mutableOf({self.self_()}.{a.name}({self.key_of(a)}));" if a.kind in ("members", "pointers") else ""

    def row_call(self, a):
        if a.kind != "method" or any(t.raw for _, t in a.parameters):
            return ""
        given = ", ".join(f"Zet::ArgumentAs<{cpp(t)}>::get(arguments[{i}])" for i, (_, t) in enumerate(a.parameters))
        call = f"{self.self_(False)}.{a.name}({given})"
        run = f"{call}; return Zet::String8();" if a.type.name == "void" else f"return Zet::strep({call});"
        return f"Zet::checkArguments(arguments, {len(a.parameters)}); {run}"


# Nested reactors -------------------------------------------------------------------------------------------------


class ReactorEmitter:
    """The nested reactors of a machine or of another reactor, and the functions that keep them."""

    def __init__(self, scope, holder):
        self.s = scope
        self.holder = holder  # Class or Reactor
        self.model, self.made = scope.model, scope.made
        self.in_machine = scope.qualified == self.made.name

    def watched(self, r):
        t = self.model.watched(r, self.made)
        return t, (None if t.name == TIMER else self.model.find(t.name, self.made.namespace))

    def base(self, r):
        t, target = self.watched(r)
        notifiee = f"{t.name}::{'NotifieeConst' if t.const or not target else 'Notifiee'}"
        if r.kind == "reactors":
            return f"Zet::Keyed<{cpp(self.model.key(target).type)}, {notifiee}>"
        return notifiee

    def object(self, r):
        t, target = self.watched(r)
        return f"Zet::Ptr<{t.name}{' const' if t.const or not target else ''}>"

    def source_of(self, r):
        """The expression and attribute that a nested reactor follows, if something syncs it."""
        for w in self.holder.reactors if self.in_machine else [self.holder]:
            for on in w.ons:
                if on.syncs == r.name and (w.kind == "watch") == self.in_machine:
                    return (f"zet{upper(w.name)}_->notifier()" if self.in_machine else "notifier()"), on.attribute
        return None, None

    def emit(self):
        for r in self.holder.reactors:
            self.emit_class(r)
            getattr(self, "keep_" + ("many" if r.kind == "reactors" else "one"))(r)
        self.emit_life()

    def emit_class(self, r):
        inner = Scope(f"{self.s.qualified}::Zet{upper(r.name)}", self.model, self.made)
        base, owner = self.base(r), self.s.qualified.rpartition("::")[2]
        key = f", {cpp(self.model.key(self.watched(r)[1]).type)} const& key" if r.kind == "reactors" else ""
        inner.source += [f"{inner.qualified}::Zet{upper(r.name)}({owner}* owner{key}) : {base.split('::')[-1] + '(' if False else ''}{'Keyed(key), ' if key else ''}owner_(owner) {{}}", ""]
        # A reactor keeps the one around it alive, since what it calls may end them both; the machine outlives all.
        held = "owner_" if self.in_machine else "owner_.ptr()"
        machine = "owner_" if self.in_machine else f"owner_->{self.machine_name()}()"
        inner.public += [f"Zet{upper(r.name)}({owner}* owner{key});", f"{owner}* owner() const {{ return {held}; }}"]
        inner.declare(f"{self.made.name}*", f"{self.machine_name()}()", [f"  return {machine};"], const=True)
        attributes = AttributeEmitter(inner, heard=False)
        for a in r.attributes:
            attributes.emit(a)
        target = self.s if r.kind == "watch" else inner
        nested = ReactorEmitter(inner, r)
        nested.in_machine = False
        nested.emit()
        for on in r.ons:
            self.emit_on(on, r, inner, target)
        self.emit_start(r, inner)
        for name in (r.init, r.end):
            inner.handler(name)
        self.s.public += [f"/// {r.doc}" if r.doc else f"/// Reacts to {self.watched(r)[0].name}.",
                          f"class PIMBSR_API Zet{upper(r.name)} final : public {base} {{", " public:",
                          *indent(inner.public + inner.handlers), " private:", *indent([f"{owner}* owner_;" if self.in_machine else f"Zet::Ptr<{owner}> owner_;"] + inner.private), "};"]
        self.s.source += inner.source

    def machine_name(self):
        return self.made.name[0].lower() + self.made.name[1:]

    def emit_on(self, on, r, inner, target):
        t, watched = self.watched(r)
        attribute = None if t.name == TIMER else self.model.attribute(watched, on.attribute)
        keyed = attribute is not None and attribute.kind in INDEXED
        key = AttributeEmitter(Scope("", self.model, watched), False).key_type(attribute) if keyed else ""
        to = "owner_->" if r.kind == "watch" else ""
        calls = [f"  {to}{on.runs}({'key' if keyed else ''});"] if on.runs else []
        calls += [f"  {to}{on.syncs}Sync({'key' if keyed else ''});"] if on.syncs else []
        target.handler(on.runs, f"{key} const& key" if keyed else "") if on.runs else None
        given = f"{key} const& key" if keyed else ""
        inner.declare("void", f"on{upper(on.attribute)}({given})", ["  if (zetMarkedForDeletion()) return;", *calls], override=True)
        if keyed and on.syncs:
            inner.declare("void", f"on{upper(on.attribute)}ZetImmediate()", ["  if (zetMarkedForDeletion()) return;", f"  {to}{on.syncs}SyncAll();"], override=True)

    def emit_start(self, r, inner):
        base = self.base(r).rpartition("::")[0] + "::" + self.base(r).rpartition("::")[2]
        parent = base if r.kind != "reactors" else "Keyed"
        syncs = [on for on in r.ons if on.syncs and r.kind != "watch"]
        body = [f"  {parent}::notifierIs(object);"]
        body += [f"  on{upper(name)}();" for name in r.replay]
        body += [f"  {r.init}();"] if r.init else []
        body += [f"  {on.syncs}SyncAll();" for on in syncs]
        inner.declare("void", f"zetStart({self.object(r)} const& object)", body)
        end = [f"  if (!zetMarkedForDeletion()) {r.end}();"] if r.end else []
        end += [f"  {n.name}DelAll();" if n.kind == "reactors" else f"  {n.name}Del();" for n in r.reactors]
        inner.declare("void", "zetEnd()", [*end, "  zetDoZombieReactors(true);", f"  {parent}::notifierIs(nullptr);"])

    def keep_many(self, r):
        name, Name = r.name, upper(r.name)
        _, target = self.watched(r)
        key, t, object_ = cpp(self.model.key(target).type), f"Zet::Ptr<Zet{Name}>", self.object(r)
        q = self.s.qualified
        self.s.public += [f"using {Name}Iterator = Zet::HashMap<Zet{Name}, {key}>::Iterator;", f"Zet::Ptr<Zet{Name}> {name}({key} const& key) const {{ return {name}_.find(key); }}",
                          f"{Name}Iterator {name}Iterator() const {{ return {name}_.iterator(); }}", f"Zet::U32 {name}Count() const {{ return {name}_.size(); }}"]
        self.s.declare("void", f"{name}Is({object_} const& {name})",
                       [f"  if (!{name}) Zet::throwNullReactor(\"{self.made.qualified}{q[len(self.made.name):]}\", \"{name}\");",
                        f"  {t} found = {name}_.find({name}->fwkKey());", f"  if (found && found->notifier().ptr() == {name}.ptr()) return;",
                        f"  if (found) {name}Del({name}->fwkKey());", f"  {t} made = Zet::make<Zet{Name}>(this, {name}->fwkKey());",
                        f"  {name}_.insert(made);", f"  made->zetStart({name});"])
        self.s.declare("void", f"{name}Del({key} const& key)", [f"  if ({t} gone = {name}_.remove(key); gone) gone->zetEnd();"])
        self.s.declare("void", f"{name}DelAll()", [f"  Zet::delAll({name}_, [this]({key} const& member) {{ {name}Del(member); }});"])
        expression, attribute = self.source_of(r)
        if attribute:
            self.s.declare("void", f"{name}Sync({key} const& key)", [f"  {object_} member = {expression}->{attribute}(key);", "  if (member) {", f"    {name}Is(member);", "  } else {", f"    {name}Del(key);", "  }"])
            self.s.declare("void", f"{name}SyncAll()", [f"  for (auto at = {name}_.iterator(); at; ++at) {name}Sync({key}(at.key()));", f"  for (auto at = {expression}->{attribute}Iterator(); at; ++at) {name}Sync({key}(at.key()));"])
        self.s.private.append(f"Zet::HashMap<Zet{Name}, {key}> {name}_;")

    def keep_one(self, r):
        name, Name = r.name, upper(r.name)
        t, object_ = f"Zet::Ptr<Zet{Name}>", self.object(r)
        self.s.public.append(f"Zet{Name}* zet{Name}() const {{ return zet{Name}_.ptr(); }}")
        self.s.private.append(f"{t} zet{Name}_;")
        if r.kind == "watch" and not r.type:
            return
        self.s.declare(object_, f"{name}()", [f"  return zet{Name}_ ? zet{Name}_->notifier() : {object_}();"], const=True)
        self.s.declare("void", f"{name}Is({object_} const& object)",
                       [f"  if ({name}() == object) return;", f"  {name}Del();", "  if (!object) return;", f"  zet{Name}_ = Zet::make<Zet{Name}>(this);",
                        f"  {t} made = zet{Name}_;", "  made->zetStart(object);"])
        self.s.declare("void", f"{name}Del()", [f"  {t} gone = std::move(zet{Name}_);", "  if (gone) gone->zetEnd();"])
        expression, attribute = self.source_of(r)
        if attribute:
            self.s.declare("void", f"{name}Sync()", [f"  {name}Is({expression}->{attribute}());"])
            self.s.declare("void", f"{name}SyncAll()", [f"  {name}Sync();"])

    def emit_life(self):
        """What a holder of reactors passes on to them."""
        if not self.holder.reactors and not self.in_machine:
            return
        for call, base in (("zetDoZombieReactors", "zetMarkedForDeletionIs(on)"), ("hasNotificationActiveIs", "")):
            body = ["  if (on == zetMarkedForDeletion()) return;", "  zetMarkedForDeletionIs(on);"] if base else ["  PtrInterface::hasNotificationActiveIs(on);"]
            for r in self.holder.reactors:
                many = r.kind == "reactors"
                body.append(f"  for (auto at = {r.name}_.iterator(); at; ++at) at->{call}(on);" if many else f"  if (zet{upper(r.name)}_) zet{upper(r.name)}_->{call}(on);")
            self.s.declare("void", f"{call}(bool on)", body, override=not (self.in_machine and base))


# Classes ---------------------------------------------------------------------------------------------------------


def indent(lines):
    return ["  " + line if line and not line.startswith(" p") else " " + line if line else line for line in lines]


class ClassEmitter:
    def __init__(self, model, made):
        self.model, self.made = model, made
        self.s = Scope(made.name, model, made)
        self.key = model.key(made)
        self.heard = made.kind != "record"

    def base(self):
        plain = {"entity": "Zet::Entity", "machine": "Zet::Notifier", "record": OBJECT}[self.made.kind]
        base = self.made.base or plain
        return f"Zet::Keyed<{cpp(self.key.type)}, {base}>" if self.key else base

    def emit(self, header, source):
        made, s = self.made, self.s
        self.emit_constructor()
        s.public += ["static Zet::ZetType const& _fwkType();", "Zet::ZetType const& fwkType() const override { return _fwkType(); }", f"using GenericIf_ = Zet::GenericIfOf<{made.name}>;"]
        self.emit_ids()
        if self.heard:
            self.emit_notifiees()
        attributes = AttributeEmitter(s, self.heard)
        for a in made.attributes:
            attributes.emit(a)
        if made.kind == "machine":
            self.emit_machine()
        s.private += [f"{cpp(t)} {name}_;" for name, t in made.holds]
        self.emit_rows(attributes)
        header.open(made.namespace)
        source.open(made.namespace)
        final = "" if any(c.base == made.name for c in self.model.classes.values()) else ""
        header.add(f"/// {made.doc}", f"class PIMBSR_API {made.name}{final} : public {self.base()} {{", " public:", *indent(s.public + s.handlers), "", " private:", *indent(s.private), "};", "")
        source.add(*s.source)
        self.emit_factory(header, source)

    def parameters(self, default=True):
        given = []
        for c in self.model.constructor(self.made):
            valid = c.type.pointer and not c.type.raw
            given.append(f"Zet::ValidPtr<{c.type.name}{' const' if c.type.const else ''}> const& {c.name}" if valid else f"{by_ref(c.type)} {c.name}")
        if self.made.kind == "machine":
            given.append("Zet::Ptr<Zet::ActivityConfig> const& zetFwkActivity" + (" = nullptr" if default else ""))
        return ", ".join(given)

    def emit_constructor(self):
        made, s = self.made, self.s
        inits = [f"Keyed({self.key.name})"] if self.key else []
        inits += [f"{c.name}_({c.name})" for c in self.model.constructor(made) if c.kind == "ctor"]
        body = [f"  {test};" for a in made.attributes if a.range for test in [f"Zet::Range<{cpp(a.type)}>{{{a.range[0]}, {a.range[1]}, {a.range[2]}}}.check({a.name}_)"]]
        if made.kind == "machine":
            inits.append("zetFwkActivity_(zetFwkActivity ? zetFwkActivity : Zet::ActivityConfig::standard())")
            body += self.bind()
        s.public += [f"{'explicit ' if len(self.model.constructor(made)) == 1 else ''}{made.name}({self.parameters()});", f"~{made.name}() override;"]
        joined = " : " + ", ".join(inits) if inits else ""
        s.source += [f"{made.name}::{made.name}({self.parameters(False)}){joined} {{", *body, "}", ""]
        end = ["  zetDoZombieReactors(true);", "  zetUnbind();"] if made.kind == "machine" else []
        end += [f"  {made.end}();"] if made.end else []
        s.source += [f"{made.name}::~{made.name}() {{", *end, "}", ""]

    def bind(self):
        body = ["  ConstructionGuard guard(*this);"]
        for r in self.made.reactors:
            if r.kind == "watch" and not r.type:
                body.append(f"  zet{upper(r.name)}_ = Zet::make<Zet{upper(r.name)}>(this);")
                body.append(f"  zet{upper(r.name)}_->zetStart({r.name}_);")
        body += [f"  {self.made.construct}();"] if self.made.construct else []
        syncs = [on.syncs for r in self.made.reactors if r.kind == "watch" for on in r.ons if on.syncs]
        return body + [f"  {name}SyncAll();" for r in self.made.reactors for name in [r.name] if name in syncs]

    def emit_machine(self):
        made, s = self.made, self.s
        s.public += ["/// The activity that the machine runs on.", "Zet::Ptr<Zet::ActivityConfig> zetFwkActivity() const { return zetFwkActivity_; }",
                     "Zet::Ptr<Zet::ActivitySm> zetActivitySm() const { return Zet::zetActivitySmFor(zetFwkActivity_); }",
                     "void zetFwkActivityIs(Zet::Ptr<Zet::ActivityConfig> const& activity) { zetFwkActivity_ = activity; }"]
        s.private.append("Zet::Ptr<Zet::ActivityConfig> zetFwkActivity_;")
        ReactorEmitter(s, made).emit()
        ends = [f"  {r.name}DelAll();" if r.kind == "reactors" else f"  if (zet{upper(r.name)}_) zet{upper(r.name)}_->zetEnd();" for r in made.reactors]
        s.private.append("void zetUnbind();")
        s.source += [f"void {made.name}::zetUnbind() {{", *ends, "}", ""]
        for name in (made.construct, made.end):
            s.handler(name)

    def emit_ids(self):
        base = self.model.base(self.made)
        first = len(self.model.attributes(base)) if base else 0
        ids = [f"attr{upper(a.name)} = {first + i}" for i, a in enumerate(self.made.attributes)]
        # Overloads of one method share a number.
        seen, unique = set(), []
        for line in ids:
            name = line.split(" ")[0]
            if name not in seen:
                seen.add(name)
                unique.append(line)
        if unique:
            self.s.public += ["enum : Zet::AttributeId {", *[f"  {line}," for line in unique], "};"]

    def emit_notifiees(self):
        made, s = self.made, self.s
        on, cases, every = [], [], []
        for a in made.attributes:
            if a.kind not in HEARD:
                continue
            keyed = a.kind in INDEXED
            on.append(f"virtual void on{upper(a.name)}({AttributeEmitter(s, True).key_type(a) + ' const&' if keyed else ''}) {{}}")
            if keyed:
                on.append(f"virtual void on{upper(a.name)}ZetImmediate() {{}}")
            call = f"on{upper(a.name)}{'ZetImmediate' if keyed else ''}();"
            cases.append(f"  if (attribute == Zet::allAttributes || attribute == attr{upper(a.name)}) {call}")
        s.public += [f"/// Watches a constant {made.name}.", f"class PIMBSR_API NotifieeConst : public Zet::NotifieeConstOf<{made.name}> {{", " public:", *indent(on),
                     "", " protected:", "  void zetDispatch(Zet::AttributeId attribute) override;", "};",
                     f"/// Watches a {made.name} that it may write.", f"using Notifiee = Zet::NotifieeOf<{made.name}, NotifieeConst>;"]
        s.source += [f"void {made.name}::NotifieeConst::zetDispatch([[maybe_unused]] Zet::AttributeId attribute) {{", *cases, "}", ""]

    def emit_rows(self, attributes):
        made, s = self.made, self.s
        base = f"&{made.base}::_fwkType()" if made.base else "nullptr"
        seen, rows = set(), []
        for a in made.attributes:
            if a.name not in seen:
                rows += ["    " + line for line in attributes.row(a)]
            seen.add(a.name)
        table = ["  static Zet::AttributeRow const rows[] = {", *rows, "  };"] if rows else []
        span = "rows" if rows else "{}"
        s.source += [f"Zet::ZetType const& {made.name}::_fwkType() {{", *table,
                     f"  static Zet::ZetType const type{{\"{made.qualified}\", \"{made.kind}\", {base}, {span}}};", "  return type;", "}", "",
                     f"[[maybe_unused]] static bool const is{made.name}Known = Zet::zetTypeIs({made.name}::_fwkType());", ""]

    def emit_factory(self, header, source):
        made = self.made
        name = made.name[0].lower() + made.name[1:] + "Factory"
        header.add(f"/// Makes a {made.name}; the caller holds its first reference.", f"PIMBSR_API Zet::Ptr<{made.name}> {name}({self.parameters()});", "")
        passed = [c.name for c in self.model.constructor(made)] + (["zetFwkActivity"] if made.kind == "machine" else [])
        source.add(f"Zet::Ptr<{made.name}> {name}({self.parameters(False)}) {{", f"  return Zet::make<{made.name}>({', '.join(passed)});", "}", "")


def emit_file(model, file, exists):
    """The header and the source of one declaration file."""
    header, source = Writer(), Writer()
    includes = [f"#include \"{use}.h\"" for use in file.uses]
    header.add("// Made from " + file.path + ".zet.", "#pragma once", "", "#include \"runtime/Model.h\"", *includes, "")
    laters = [c for f in model.files if f.path in file.later for c in f.classes]
    source.add("// Made from " + file.path + ".zet.", "#include <utility>", "", f"#include \"{file.path}.h\"", *[f"#include \"{path}.h\"" for path in file.later], "")
    for c in laters + file.classes:
        header.open(c.namespace)
        header.add(f"class {c.name};", "")
    for made in file.classes:
        ClassEmitter(model, made).emit(header, source)
    return header.text(), source.text()


def emit_reference(model):
    """One page that lists every class with its attributes, from the same rows."""
    lines = ["# Reference of the model", ""]
    for made in sorted(model.classes.values(), key=lambda c: c.qualified):
        lines += [f"## {made.qualified}", "", f"{made.kind.capitalize()}. {made.doc}", "", "| attribute | kind | type | start | unit | meaning |", "|---|---|---|---|---|---|"]
        lines += [f"| `{a.name}` | {a.kind} | `{a.type.name}`{' by `' + a.key.name + '`' if a.key else ''} | {a.start} | {a.unit} | {a.doc} |" for a in made.attributes]
        lines.append("")
    return "\n".join(lines)
