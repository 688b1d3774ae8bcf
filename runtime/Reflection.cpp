#include "runtime/Reflection.h"

#include <map>
#include <memory>
#include <string>

#include "runtime/Entity.h"

namespace Zet {

// The names are in the order of the enumerators.
char const* kindName(AttributeKind kind) {
  static constexpr char const* names[] = {"constructor", "value",    "counter", "constant", "pointer",
                                          "single",      "members",  "values",  "pointers", "queue",
                                          "array",       "reactors", "method",  "reactor",  "field"};
  return names[static_cast<int>(kind)];
}

char const* opName(AttributeOp op) {
  static constexpr char const* names[] = {"read", "write", "del", "walk", "call", "update"};
  return names[static_cast<int>(op)];
}

AttributeRow const* ZetType::row(String8 const& attribute) const {
  for (AttributeRow const& r : rows) {
    if (attribute.view() == r.name) return &r;
  }
  return base != nullptr ? base->row(attribute) : nullptr;
}

AttributeRow const* ZetType::row(AttributeId id) const {
  // Numbers are given in declared order, so that most rows are where their number says.
  auto const place = rows.empty() ? 0 : static_cast<std::size_t>(id - rows.front().id);
  if (place < rows.size() && rows[place].id == id) return &rows[place];
  for (AttributeRow const& r : rows) {
    if (r.id == id) return &r;
  }
  return base != nullptr ? base->row(id) : nullptr;
}

bool ZetType::isA(ZetType const& other) const {
  return this == &other || (base != nullptr && base->isA(other));
}

// A function's static, since types register from static initializers, whose order isn't defined. No mutex:
// all of these run before main.
static std::map<std::string, ZetType const*, std::less<>>& typesByName() {
  static std::map<std::string, ZetType const*, std::less<>> types;
  return types;
}

// The first of two types with one name stays, since it may have been handed out already.
bool zetTypeIs(ZetType const& type) { return typesByName().emplace(type.name, &type).second; }

std::vector<ZetType const*> zetTypes() {
  std::vector<ZetType const*> all;
  for (auto const& [name, type] : typesByName()) all.push_back(type);
  return all;
}

ZetType const* zetType(String8 const& name) {
  auto at = typesByName().find(name.view());
  return at == typesByName().end() ? nullptr : at->second;
}

ZetType const& PtrInterface::fwkType() const {
  static constexpr ZetType none{"Zet::PtrInterface", "", nullptr, {}};
  return none;
}

String8 GenericIf::attributeString(AttributeId id) const {
  AttributeRow const* row = type_.row(id);
  return row != nullptr ? String8(row->name) : String8("unknown");
}

// The functions of a row cast the object to the class of the row, so that its type is checked here, once.
AttributeRow const& GenericIf::rowFor(PtrInterface const& object, AttributeId id) const {
  if (!object.fwkType().isA(type_)) throwTypeException(type_.name);
  AttributeRow const* row = type_.row(id);
  if (row == nullptr) throwUnknownAttrException(std::to_string(id));
  return *row;
}

AttributeRow const& GenericIf::named(String8 const& attribute) const {
  AttributeRow const* row = type_.row(attribute);
  if (row == nullptr) throwUnknownAttrException(attribute.view());
  return *row;
}

// A missing key is an error for reading, writing and removing alone: a walk and a call are of the whole.
static void checkIndex(AttributeRow const& row, AttributeOp op, AttributeOpArgs const& args) {
  if (args.hasKey && !row.isIndexed()) throwBadIndexAttrException(row.name);
  bool needsKey = op == AttributeOp::read || op == AttributeOp::write || op == AttributeOp::del;
  if (needsKey && row.isIndexed() && !args.hasKey) throwUnknownArgException("no key given");
}

/// Reads, walks and calls of what changes nothing; false for an operation that may change the object.
static bool lookOp(AttributeRow const& row, PtrInterface const& object, AttributeOp op,
                   AttributeOpArgs& args) {
  if (op == AttributeOp::read && row.kind == AttributeKind::constant && row.read == nullptr) {
    args.value = row.start;  // the same for all objects
    return true;
  }
  if (op == AttributeOp::read && row.read != nullptr) {
    args.value = row.read(object, args.key);
    return true;
  }
  if (op == AttributeOp::call && row.constCall != nullptr) {
    args.value = row.constCall(object, args.arguments);
    return true;
  }
  if (op != AttributeOp::walk || row.walk == nullptr) return false;
  if (args.visitor == nullptr) throwUnknownArgException("no visitor given");
  row.walk(object, *args.visitor);
  return true;
}

/// Whether the operation changes an object and the attribute's kind knows it.
static bool isKnownChange(AttributeRow const& row, AttributeOp op) {
  switch (op) {
    case AttributeOp::write:
    case AttributeOp::update:
      return row.write != nullptr;
    case AttributeOp::del:
      return row.del != nullptr;
    case AttributeOp::call:
      return row.call != nullptr;
    default:
      return false;
  }
}

void GenericIf::attributeOp(PtrInterface& object, AttributeId id, AttributeOp op,
                            AttributeOpArgs& args) const {
  AttributeRow const& row = rowFor(object, id);
  checkIndex(row, op, args);
  if (lookOp(row, object, op, args)) return;
  if (!isKnownChange(row, op)) throwOpNotSupportedException(row.name, opName(op), false);
  if (op == AttributeOp::del) return row.del(object, args.key);
  if (op != AttributeOp::call) return row.write(object, args.key, args.value);
  args.value = row.call(object, args.arguments);
}

void GenericIf::attributeOp(PtrInterface const& object, AttributeId id, AttributeOp op,
                            AttributeOpArgs& args) const {
  AttributeRow const& row = rowFor(object, id);
  checkIndex(row, op, args);
  if (lookOp(row, object, op, args)) return;
  // An update comes from an attribute log and not from a person: a constant copy is an error of the program.
  if (op == AttributeOp::update)
    throwInternalException("write-update from readonly proxy: " + std::string(row.name));
  throwOpNotSupportedException(row.name, opName(op), isKnownChange(row, op));
}

String8 GenericIf::read(PtrInterface const& object, String8 const& attribute) const {
  AttributeOpArgs args;
  attributeOp(object, named(attribute).id, AttributeOp::read, args);
  return args.value;
}

String8 GenericIf::read(PtrInterface const& object, String8 const& attribute, String8 const& key) const {
  AttributeOpArgs args{.key = key, .hasKey = true};
  attributeOp(object, named(attribute).id, AttributeOp::read, args);
  return args.value;
}

void GenericIf::write(PtrInterface& object, String8 const& attribute, String8 const& value) const {
  AttributeOpArgs args{.value = value};
  attributeOp(object, named(attribute).id, AttributeOp::write, args);
}

void GenericIf::write(PtrInterface& object, String8 const& attribute, String8 const& key,
                      String8 const& value) const {
  AttributeOpArgs args{.key = key, .hasKey = true, .value = value};
  attributeOp(object, named(attribute).id, AttributeOp::write, args);
}

ZetAttrIntrospectionFlags::ZetAttrIntrospectionFlags(U32 value) : value_(value) {
  if (value > 0x3f) throwRangeException("ZetAttrIntrospectionFlags::value > 0x3f not allowed");
}

static ZetAttrIntrospectionFlags flagsOf(AttributeRow const& row) {
  using Flags = ZetAttrIntrospectionFlags;
  U32 value = row.write != nullptr ? Flags::writable : 0;
  if (row.isIndexed()) value |= Flags::indexed;
  if (row.kind == AttributeKind::single || row.kind == AttributeKind::members) value |= Flags::owned;
  if (row.range[0] != '\0') value |= Flags::ranged;
  if (row.walk != nullptr) value |= Flags::walkable;
  if (row.call != nullptr || row.constCall != nullptr) value |= Flags::callable;
  return Flags(value);
}

static void introspectType(IntrospectionReactor& reactor, ZetType const& type) {
  reactor.handleType(type);
  for (AttributeRow const& row : type.rows) {
    if (row.kind == AttributeKind::constant) reactor.defNoninstantiatingAttr(row);
    reactor.handleAttr(row, flagsOf(row));
    reactor.handleAttrContextExit(row);
  }
  reactor.handleScopeExit();
}

// By name the types of a namespace may be apart, as A::B and A::D are with A::B::C between them.
void introspect(IntrospectionReactor& reactor) {
  std::map<std::string_view, std::vector<ZetType const*>> spaces;
  for (ZetType const* type : zetTypes()) {
    std::string_view name = type->name;
    spaces[name.substr(0, name.rfind("::"))].push_back(type);
  }
  for (auto const& [space, types] : spaces) {
    reactor.handleNameSpace(String8(space));
    for (ZetType const* type : types) introspectType(reactor, *type);
    reactor.handleScopeExit();
  }
}

void checkArguments(std::span<Argument const> arguments, std::size_t wanted) {
  if (arguments.size() == wanted) return;
  throwUnknownArgException(std::to_string(arguments.size()) + " given, " + std::to_string(wanted) +
                           " wanted");
}

namespace {

/// A descriptor that is made of the texts of an enumeration.
struct EnumDescriptor {
  explicit EnumDescriptor(EnumText const& text) : name(std::string(text.space) + "::" + text.typeName) {
    for (std::size_t i = 0; i < text.names.size(); ++i) numbers.push_back(std::to_string(i));
    for (std::size_t i = 0; i < text.names.size(); ++i) {
      rows.push_back({.id = static_cast<AttributeId>(i),
                      .name = text.names[i],
                      .kind = AttributeKind::constant,
                      .type = "U32",
                      .start = numbers[i].c_str()});
    }
    type = {name.c_str(), "enumeration", nullptr, rows, text.sentence};
  }
  std::string name;
  std::vector<std::string> numbers;
  std::vector<AttributeRow> rows;
  ZetType type;
};

}  // namespace

// Made while types register themselves, before main.
ZetType const& enumType(EnumText const& text) {
  static std::map<EnumText const*, std::unique_ptr<EnumDescriptor>> made;
  std::unique_ptr<EnumDescriptor>& one = made[&text];
  if (!one) one = std::make_unique<EnumDescriptor>(text);
  return one->type;
}

String8 strepOfObject(PtrInterface const* object) {
  if (object == nullptr) return "None";
  String8 name;
  if (auto const* entity = dynamic_cast<Entity const*>(object)) name = entity->name();
  return format("Entity('%s', %s)", object->fwkType().name, valueToStrep(name).charPtr());
}

}  // namespace Zet
