#pragma once

#include <span>
#include <type_traits>
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
  method,       ///< a member function
  reactor,      ///< one nested reactor
  field         ///< a part of a value
};
/// The name of a kind, that of its enumerator.
PIMBSR_API char const* kindName(AttributeKind kind);

/// An argument of a call by name: text of a value, or an object.
struct Argument {
  String8 text;              ///< of a value; unused for an object
  Ptr<PtrInterface> object;  ///< null for a value, or where null is given
};

namespace NboAttrLog {
struct RowForm;
}

/// Receives a walk over a collection: each member's key as text, and the member's value as text or the
/// member.
class PIMBSR_API MemberVisitor {
 public:
  virtual ~MemberVisitor() = default;
  /// Takes one member. `object` is null for a plain value; `value` is then its text, else that of the object.
  virtual void onMember(String8 const& key, String8 const& value, PtrInterface const* object) = 0;
};

/// One attribute of a declared class. A null function is an operation that the attribute doesn't support.
struct AttributeRow {
  AttributeId id;             ///< its number in the type
  char const* name;           ///< as declared
  AttributeKind kind;         ///< what it is
  char const* type = "";      ///< of the value or member
  char const* keyType = "";   ///< empty if the attribute isn't indexed
  char const* maker = "";     ///< parameters of the maker of an owned object, apart from its key
  char const* start = "";     ///< start value as declared; empty is the type's own
  char const* unit = "";      ///< empty if it has none
  char const* range = "";     ///< the text raised for a value out of range; empty if there is no range
  char const* sentence = "";  ///< what it says; may be empty

  /// The text of the value, or of the one under a key; a key's text is ignored if there is no index.
  String8 (*read)(PtrInterface const& object, String8 const& key) = nullptr;
  /// Reads a value from its text and gives it to the setter; of owned objects, makes the one under the key.
  void (*write)(PtrInterface& object, String8 const& key, String8 const& value) = nullptr;
  /// Removes what is under a key, or the only object.
  void (*del)(PtrInterface& object, String8 const& key) = nullptr;
  /// Shows each member to a visitor.
  void (*walk)(PtrInterface const& object, MemberVisitor& visitor) = nullptr;
  /// The object itself, or the one under a key; null if there is none.
  Ptr<PtrInterface> (*member)(PtrInterface const& object, String8 const& key) = nullptr;
  /// Calls the member function; the text of its result, empty for none.
  String8 (*call)(PtrInterface& object, std::span<Argument const> arguments) = nullptr;
  /// A call that changes nothing and so may be made on a constant object.
  String8 (*constCall)(PtrInterface const& object, std::span<Argument const> arguments) = nullptr;
  /// How the attribute log carries the attribute; null for one that it doesn't carry.
  NboAttrLog::RowForm const* log = nullptr;

  /// Whether it takes a key or an index.
  bool isIndexed() const { return keyType[0] != '\0'; }
};

/// Number of the attribute fwkKey, the same in all keyed entities.
inline constexpr AttributeId attrFwkKey = 1 << 20;

/// Descriptor of a type: its name, its base's descriptor, and its own attributes in declared order; of a
/// value type its fields, of an enumeration its names.
struct ZetType {
  char const* name;                    ///< qualified by namespaces
  char const* kind;                    ///< "entity", "machine", "record", "value", "enumeration", or empty
  ZetType const* base;                 ///< null for none
  std::span<AttributeRow const> rows;  ///< its own attributes, without those of the base
  char const* sentence = "";           ///< what it says; may be empty

  /// The attribute of that name, own ones first; null if there is none.
  PIMBSR_API AttributeRow const* row(String8 const& attribute) const;
  /// The attribute of that number, likewise.
  PIMBSR_API AttributeRow const* row(AttributeId id) const;
  /// Whether it is that type or derived from it.
  PIMBSR_API bool isA(ZetType const& other) const;
};

/// The descriptor of a class, value type or enumeration.
template <class T>
ZetType const& descriptorOf() {
  if constexpr (std::is_enum_v<T>) {
    return _fwkType(T{});
  } else {
    return T::_fwkType();
  }
}

/// All known types, in order of their names.
PIMBSR_API std::vector<ZetType const*> zetTypes();
/// The declared type of that name, or null.
PIMBSR_API ZetType const* zetType(String8 const& name);
/// Makes a type known to zetTypes(); generated code calls it once for each type.
PIMBSR_API bool zetTypeIs(ZetType const& type);

/// What may be done with an attribute by name.
enum class AttributeOp : U8 {
  read,   ///< gives the value as text
  write,  ///< gives a value, as text, to the setter
  del,    ///< removes what is under a key, or the only object
  walk,   ///< shows each member to a visitor
  call,   ///< calls a member function
  update  ///< a write that an attribute log carries
};
/// The name of an operation, that of its enumerator.
PIMBSR_API char const* opName(AttributeOp op);

/// What an operation is given and gives back.
struct AttributeOpArgs {
  String8 key;                       ///< index into a collection
  bool hasKey = false;               ///< whether `key` is given; it may be empty then
  String8 value;                     ///< to write; on return, what was read or what a call gave
  std::vector<Argument> arguments;   ///< of a call
  MemberVisitor* visitor = nullptr;  ///< of a walk, which needs one
};

/// Named access to the attributes of the objects of one type.
class PIMBSR_API GenericIf {
 public:
  /// Refers to the descriptor, which must outlive it.
  explicit GenericIf(ZetType const& type) : type_(type) {}

  /// The type whose objects it takes, those of derived types included.
  ZetType const& type() const { return type_; }
  /// An attribute's name; "unknown" for an id that isn't one.
  String8 attributeString(AttributeId id) const;
  /// Carries out one operation. Raises: UnknownAttrException for an id that isn't one; TypeException for an
  /// object of another type; BadIndexAttrException for an index where there is none; OpNotSupportedException
  /// for an operation that the kind doesn't support; UnknownArgException for a missing index or wrong
  /// arguments; the exceptions of the setter itself.
  void attributeOp(PtrInterface& object, AttributeId id, AttributeOp op, AttributeOpArgs& args) const;
  /// The same on a constant object: it can be read and walked, and methods that change nothing can be called.
  /// A change that the attribute's kind supports raises "attempting to modify a const instance", and an
  /// update of a mirrored object "write-update from readonly proxy: " with the attribute's name.
  void attributeOp(PtrInterface const& object, AttributeId id, AttributeOp op, AttributeOpArgs& args) const;

  /// The text of an attribute, given by its name. Raises what attributeOp() raises.
  String8 read(PtrInterface const& object, String8 const& attribute) const;
  /// The same of what is under a key, given as text; raises RangeException for text that is no key.
  String8 read(PtrInterface const& object, String8 const& attribute, String8 const& key) const;
  /// Writes an attribute, given by its name, from text. Raises what attributeOp() raises, and RangeException
  /// for text that is no value.
  void write(PtrInterface& object, String8 const& attribute, String8 const& value) const;
  /// The same of what is under a key, given as text.
  void write(PtrInterface& object, String8 const& attribute, String8 const& key, String8 const& value) const;

 private:
  AttributeRow const& rowFor(PtrInterface const& object, AttributeId id) const;
  AttributeRow const& named(String8 const& attribute) const;

  ZetType const& type_;
};

/// Carries a value where named access wants an object.
template <class T>
class ValueObject final : public PtrInterface {
 public:
  /// Copies the value.
  explicit ValueObject(T const& given) : value(given) {}
  ZetType const& fwkType() const override { return descriptorOf<T>(); }
  T value;  ///< what an operation reads and writes
};

/// The named access of one class, value type or enumeration. The fields of a value are read and written in
/// the value itself; enumerations have names only, which any value reads.
template <class C>
class GenericIfOf : public GenericIf {
 public:
  GenericIfOf() : GenericIf(descriptorOf<C>()) {}

  /// The same of an object.
  using GenericIf::read;
  /// The same of an object.
  using GenericIf::write;
  /// The text of a value's field, or of the number that an enumeration's name has.
  String8 read(C const& value, String8 const& attribute) const requires(!std::is_base_of_v<PtrInterface, C>) {
    return GenericIf::read(*make<ValueObject<C>>(value), attribute);
  }
  /// Writes a field of the value from text; after an exception the value is as before.
  void write(C& value, String8 const& attribute, String8 const& text) const
      requires(!std::is_base_of_v<PtrInterface, C>) {
    Ptr<ValueObject<C>> object = make<ValueObject<C>>(value);
    GenericIf::write(*object, attribute, text);
    value = object->value;
  }
};

/// Bits that say more of an attribute to an IntrospectionReactor; a value above 0x3f raises RangeException.
class PIMBSR_API ZetAttrIntrospectionFlags {
 public:
  static constexpr U32 writable = 0x01,  ///< it can be written
      indexed = 0x02,                    ///< it takes a key or an index
      owned = 0x04,                      ///< its objects are owned by the one that has it
      ranged = 0x08,                     ///< its values have a range
      walkable = 0x10,                   ///< it is a collection that can be walked
      callable = 0x20;                   ///< it is a member function that can be called
  /// Takes the sum of the bits that apply; 0 is none.
  explicit ZetAttrIntrospectionFlags(U32 value);
  /// The sum of the bits.
  U32 value() const { return value_; }

 private:
  U32 value_;
};

/// Is filled with the declared model, unit by unit: each namespace once, in order of their names, with its
/// types in that order, each with its attributes as declared.
class PIMBSR_API IntrospectionReactor {
 public:
  virtual ~IntrospectionReactor() = default;
  /// A namespace begins, given by its full name.
  virtual void handleNameSpace(String8 const&) {}
  /// A type of the namespace begins.
  virtual void handleType(ZetType const&) {}
  /// A constant attribute, which belongs to no instance.
  virtual void defNoninstantiatingAttr(AttributeRow const&) {}
  /// An attribute of the type begins, a constant one included.
  virtual void handleAttr(AttributeRow const&, ZetAttrIntrospectionFlags) {}
  /// The end of an attribute.
  virtual void handleAttrContextExit(AttributeRow const&) {}
  /// The end of a type or of a namespace.
  virtual void handleScopeExit() {}
};
/// Fills a reactor with all types of zetTypes(). Exceptions of its handlers end that and get out.
PIMBSR_API void introspect(IntrospectionReactor& reactor);

/// Text of anything that an attribute can hold; an object is shown by its type and key.
template <class T>
String8 strep(T const& value) {
  return valueToStrep(value);
}
/// "Entity('type', 'name')", with an empty name for what isn't an entity; "None" for null.
PIMBSR_API String8 strepOfObject(PtrInterface const* object);
/// The same of a counted pointer.
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
  /// Reads the text; raises RangeException for text that is no T.
  static T get(Argument const& argument) { return strepToValue<T>(argument.text); }
};
/// Takes an argument of a call as an object.
template <class T>
struct ArgumentAs<Ptr<T>> {
  /// The object, which may be null; one that isn't a T raises TypeException.
  static Ptr<T> get(Argument const& argument) {
    T* object = dynamic_cast<T*>(argument.object.ptr());
    if (object == nullptr && argument.object) throwTypeException(T::_fwkType().name);
    return object;
  }
};

}  // namespace Zet
