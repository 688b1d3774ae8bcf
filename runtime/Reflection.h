#pragma once

#include <span>
#include <vector>

#include "runtime/Activity.h"
#include "runtime/Exceptions.h"
#include "runtime/Ptr.h"
#include "runtime/Strep.h"
#include "runtime/String8.h"

namespace Zet {

/// What an attribute is, and with that which operations it knows.
enum class AttributeKind : U8 {
  constructor,  ///< set by the constructor, read only
  value,        ///< read and written
  counter,      ///< a value that can be raised
  constant,     ///< read only, the same for every object
  pointer,      ///< a counted pointer
  single,       ///< one object owned by this one
  members,      ///< objects owned by this one, by key
  values,       ///< plain values, by key
  pointers,     ///< counted pointers, by key
  queue,        ///< counted pointers in order of a number
  array,        ///< counted pointers by index
  reactors,     ///< nested reactors, by key
  method        ///< a member function
};
PIMBSR_API char const* kindName(AttributeKind kind);

/// An argument of a call by name: text of a value, or an object.
struct Argument {
  String8 text;
  Ptr<PtrInterface> object;
};

/// Receives a walk over a collection: each member's key as text, and the member's value as text or the
/// member.
class PIMBSR_API MemberVisitor {
 public:
  virtual ~MemberVisitor() = default;
  virtual void onMember(String8 const& key, String8 const& value, PtrInterface const* object) = 0;
};

/// One attribute of a declared class. A null function is an operation that the attribute doesn't support.
struct AttributeRow {
  AttributeId id;
  char const* name;
  AttributeKind kind;
  char const* type = "";     ///< of the value or member
  char const* keyType = "";  ///< empty if the attribute isn't indexed
  char const* start = "";    ///< start value as declared; empty is the type's own
  char const* unit = "";     ///< empty if it has none
  char const* range = "";    ///< the text raised for a value out of range; empty if there is no range
  char const* sentence = "";

  String8 (*read)(PtrInterface const& object, String8 const& key) = nullptr;
  void (*write)(PtrInterface& object, String8 const& key, String8 const& value) = nullptr;
  void (*del)(PtrInterface& object, String8 const& key) = nullptr;
  void (*walk)(PtrInterface const& object, MemberVisitor& visitor) = nullptr;
  Ptr<PtrInterface> (*member)(PtrInterface const& object, String8 const& key) = nullptr;
  String8 (*call)(PtrInterface& object, std::span<Argument const> arguments) = nullptr;

  bool isIndexed() const { return keyType[0] != '\0'; }
};

/// Descriptor of a declared class: its name, its base's descriptor, and its own attributes in declared order.
struct ZetType {
  char const* name;     ///< qualified by namespaces
  char const* kind;     ///< "entity", "machine", "record", or empty
  ZetType const* base;  ///< null for none
  std::span<AttributeRow const> rows;

  /// The attribute of that name or number, own ones first; null if there is none.
  PIMBSR_API AttributeRow const* row(String8 const& attribute) const;
  PIMBSR_API AttributeRow const* row(AttributeId id) const;
  PIMBSR_API bool isA(ZetType const& other) const;
};

/// All declared types, in order of their names.
PIMBSR_API std::vector<ZetType const*> zetTypes();
/// The declared type of that name, or null.
PIMBSR_API ZetType const* zetType(String8 const& name);
/// Makes a type known to zetTypes(); generated code calls it once for each type.
PIMBSR_API bool zetTypeIs(ZetType const& type);

enum class AttributeOp : U8 { read, write, del, walk, call, update };
PIMBSR_API char const* opName(AttributeOp op);

/// What an operation is given and gives back.
struct AttributeOpArgs {
  String8 key;  ///< index into a collection
  bool hasKey = false;
  String8 value;  ///< to write; on return, what was read or what a call gave
  std::vector<Argument> arguments;
  MemberVisitor* visitor = nullptr;
};

/// Named access to the attributes of the objects of one type.
class PIMBSR_API GenericIf {
 public:
  explicit GenericIf(ZetType const& type) : type_(type) {}

  ZetType const& type() const { return type_; }
  /// An attribute's name; "unknown" for an id that isn't one.
  String8 attributeString(AttributeId id) const;
  /// Carries out one operation. Raises: UnknownAttrException for an id that isn't one; TypeException for an
  /// object of another type; BadIndexAttrException for an index where there is none; OpNotSupportedException
  /// for an operation that the kind doesn't support; UnknownArgException for a missing index or wrong
  /// arguments; the exceptions of the setter itself.
  void attributeOp(PtrInterface& object, AttributeId id, AttributeOp op, AttributeOpArgs& args) const;
  /// The same on a constant object, of which nothing can be changed: a change that the attribute's kind knows
  /// raises "attempting to modify a const instance", and an update of a mirrored object "write-update from
  /// readonly proxy: " with the attribute's name.
  void attributeOp(PtrInterface const& object, AttributeId id, AttributeOp op, AttributeOpArgs& args) const;

  String8 read(PtrInterface const& object, String8 const& attribute) const;
  String8 read(PtrInterface const& object, String8 const& attribute, String8 const& key) const;
  void write(PtrInterface& object, String8 const& attribute, String8 const& value) const;
  void write(PtrInterface& object, String8 const& attribute, String8 const& key, String8 const& value) const;

 private:
  AttributeRow const& rowFor(PtrInterface const& object, AttributeId id) const;
  AttributeRow const& named(String8 const& attribute) const;

  ZetType const& type_;
};

/// The named access of one class.
template <class C>
class GenericIfOf : public GenericIf {
 public:
  GenericIfOf() : GenericIf(C::_fwkType()) {}
};

/// Bits that say more of an attribute to an IntrospectionReactor; a value above 0x3f raises RangeException.
class PIMBSR_API ZetAttrIntrospectionFlags {
 public:
  static constexpr U32 writable = 0x01, indexed = 0x02, owned = 0x04, ranged = 0x08, walkable = 0x10,
                       callable = 0x20;
  explicit ZetAttrIntrospectionFlags(U32 value);
  U32 value() const { return value_; }

 private:
  U32 value_;
};

/// Is filled with the declared model, unit by unit: each namespace once, in order of their names, with its
/// types in that order, each with its attributes as declared.
class PIMBSR_API IntrospectionReactor {
 public:
  virtual ~IntrospectionReactor() = default;
  virtual void handleNameSpace(String8 const&) {}
  virtual void handleType(ZetType const&) {}
  /// A constant attribute, which belongs to no instance.
  virtual void defNoninstantiatingAttr(AttributeRow const&) {}
  virtual void handleAttr(AttributeRow const&, ZetAttrIntrospectionFlags) {}
  virtual void handleAttrContextExit(AttributeRow const&) {}
  /// The end of a type or of a namespace.
  virtual void handleScopeExit() {}
};
PIMBSR_API void introspect(IntrospectionReactor& reactor);

/// Text of anything that an attribute can hold; an object is shown by its type and key.
template <class T>
String8 strep(T const& value) {
  return valueToStrep(value);
}
PIMBSR_API String8 strepOfObject(PtrInterface const* object);
template <class T>
String8 strep(Ptr<T> const& object) {
  return strepOfObject(object.ptr());
}

/// A member as reflection hands it out.
template <class T>
Ptr<PtrInterface> mutableOf(Ptr<T> const& object) {
  return const_cast<std::remove_const_t<T>*>(object.ptr());
}

/// A call by name takes exactly so many arguments; another number raises UnknownArgException.
PIMBSR_API void checkArguments(std::span<Argument const> arguments, std::size_t wanted);

/// Reads an argument of a call as a value, or as an object of the right type.
template <class T>
struct ArgumentAs {
  static T get(Argument const& argument) { return strepToValue<T>(argument.text); }
};
template <class T>
struct ArgumentAs<Ptr<T>> {
  static Ptr<T> get(Argument const& argument) {
    T* object = dynamic_cast<T*>(argument.object.ptr());
    if (object == nullptr && argument.object) throwTypeException(T::_fwkType().name);
    return object;
  }
};

}  // namespace Zet
