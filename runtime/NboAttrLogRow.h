#pragma once

#include <tuple>

#include "runtime/HashMap.h"
#include "runtime/NboAttrLog.h"

/// What the attribute log does with one attribute, for every kind that it carries: written once, as templates
/// over the members of the class that has the attribute.
namespace Zet::NboAttrLog {

class FlowOut;
class Sa;

/// How an attribute is carried.
enum class Shape : U8 {
  value,    ///< one value
  values,   ///< plain values by key
  single,   ///< one owned object
  pointer,  ///< a pointer to an object, which is copied too
  members   ///< owned objects by key
};

/// An adapter with its reference.
struct Attached {
  Ptr<PtrInterface> held;  ///< counts the adapter
  Sa* sa = nullptr;        ///< the adapter itself; null for none
};

/// Receives a walk over the keys of a collection.
class PIMBSR_API KeyVisitor {
 public:
  virtual ~KeyVisitor() = default;
  /// Takes one key by its address, which is good for this call alone.
  virtual void onKey(void const* key) = 0;
};

/// The functions of one attribute; those that its shape doesn't need are null. A key is given by its address.
struct RowForm {
  Shape shape;  ///< how the attribute is carried
  /// Writes the present value.
  void (*put)(PtrInterface const& object, Out& out) = nullptr;
  /// Reads a value and gives it to the setter, whose exceptions it raises.
  void (*take)(PtrInterface& object, In& in) = nullptr;
  /// Calls back for each key of the collection.
  void (*walk)(PtrInterface const& object, KeyVisitor& visitor) = nullptr;
  /// Writes a key.
  void (*putKey)(void const* key, Out& out) = nullptr;
  /// Reads over a key.
  void (*skipKey)(In& in) = nullptr;
  /// Writes the plain value under a key; false if there is none.
  bool (*putMember)(PtrInterface const& object, void const* key, Out& out) = nullptr;
  /// Reads a key and its value.
  void (*takeMember)(PtrInterface& object, In& in) = nullptr;
  /// Removes what is under the key that it reads; without keys, the only object.
  void (*takeDel)(PtrInterface& object, In& in) = nullptr;
  /// The object under a key, or null.
  PtrInterface const* (*child)(PtrInterface const& object, void const* key) = nullptr;
  /// Writes what the maker of a child is given, apart from its key.
  void (*putMake)(PtrInterface const& child, Out& out) = nullptr;
  /// Reads key and arguments and gets or makes the child; with `anew` it replaces one that exists.
  Ptr<PtrInterface> (*takeMake)(PtrInterface& object, In& in, bool anew) = nullptr;
  /// For a pointer: sets it to a child that takeMake gave.
  void (*set)(PtrInterface& object, PtrInterface& child) = nullptr;
  /// Makes the adapter of a child.
  Attached (*adapt)(FlowOut& flow, PtrInterface const& child) = nullptr;
};

/// The form that Make gives, made once.
template <auto Make>
RowForm const* formOf() {
  static RowForm const form = Make();
  return &form;
}

/// Calls `call` for each attribute of a type that the log carries, those of its base first.
template <class Call>
void forLogged(ZetType const& type, Call const& call) {
  if (type.base != nullptr) forLogged(*type.base, call);
  for (AttributeRow const& row : type.rows) {
    if (row.log != nullptr) call(row);
  }
}

// From here on: what descriptors build their forms of. The runtime and the sources made from declarations
// alone name it, so that it is no part of the face.
/// \cond

/// The class and the result of a pointer to a member.
template <class M>
struct MemberOf;
template <class C, class T>
struct MemberOf<T C::*> {
  using Class = C;
  using Type = T;
};
template <class C, class T, class... P>
struct MemberOf<T (C::*)(P...)> {
  using Class = C;
  using Arguments = std::tuple<std::decay_t<P>...>;
};
template <class C, class T>
struct MemberOf<T (C::*)() const> {
  using Class = C;
  using Type = std::decay_t<T>;
};

/// The class that has a member.
template <auto M>
using ClassOf = typename MemberOf<decltype(M)>::Class;
/// What a data member holds, or an accessor gives.
template <auto M>
using TypeOf = typename MemberOf<decltype(M)>::Type;

/// The object as the class that its row is of, which isn't tested.
template <class C>
C const& as(PtrInterface const& object) {
  return static_cast<C const&>(object);
}
/// The same of an object that may change.
template <class C>
C& as(PtrInterface& object) {
  return static_cast<C&>(object);
}

/// Whether T is one number, of which all bytes are read before its range is tested.
template <class T>
constexpr bool isNumber() {
  if constexpr (OwnForm<T>) {
    return false;
  } else if constexpr (FieldedValue<T>) {
    return std::tuple_size_v<decltype(T::zetFields())> == 1;
  } else {
    return std::is_arithmetic_v<T> || std::is_enum_v<T>;
  }
}

/// Reads what no original has out of its range, such as a key: MalformedException, with the fixed text.
template <class T>
T getSound(In& in) {
  try {
    return get<T>(in);
  } catch (RangeException const& e) {
    throwMalformed(e.what());
  }
}

/// Reads a value that others follow. Where one that is no value ends is known of a number alone; so others
/// are malformed, and nothing is read from their middle on.
template <class T>
T getNext(In& in) {
  if constexpr (isNumber<T>()) {
    return get<T>(in);
  } else {
    return getSound<T>(in);
  }
}

/// The arguments of a maker, read in order.
template <class Tuple>
struct ArgumentsOf;
template <class... P>
struct ArgumentsOf<std::tuple<P...>> {
  static std::tuple<P...> get(In& in) { return std::tuple<P...>{getSound<P>(in)...}; }
};

/// Makes the adapter of an object of class Child.
template <class Child>
Attached adaptChild(FlowOut& flow, PtrInterface const& child) {
  auto made = make<typename Child::ZetNboAttrLogSa>(flow, as<Child>(child));
  return {made, made.ptr()};
}

/// Makes a child, in place of one that was made with other arguments or that is to be replaced.
template <class C, auto Make, class Del>
Ptr<PtrInterface> makeChild(C& object, In& in, bool anew, Del const& del) {
  auto arguments = ArgumentsOf<typename MemberOf<decltype(Make)>::Arguments>::get(in);
  auto call = [&](auto const&... a) -> Ptr<PtrInterface> { return (object.*Make)(a...); };
  if (anew) std::apply([&](auto const&... a) { del(a...); }, arguments);
  try {
    return std::apply(call, arguments);
  } catch (NameInUseException const&) {
    std::apply([&](auto const&... a) { del(a...); }, arguments);
    return std::apply(call, arguments);
  }
}

/// The form of a plain value.
template <auto Get, auto Set>
RowForm valueForm() {
  using C = ClassOf<Get>;
  RowForm form{Shape::value};
  form.put = [](PtrInterface const& o, Out& out) { NboAttrLog::put(out, TypeOf<Get>((as<C>(o).*Get)())); };
  form.take = [](PtrInterface& o, In& in) { (as<C>(o).*Set)(getNext<TypeOf<Get>>(in)); };
  return form;
}

/// Adds what all collections by key have.
template <class K, auto Map, auto Del>
void addKeys(RowForm& form) {
  using C = ClassOf<Map>;
  form.walk = [](PtrInterface const& o, KeyVisitor& visitor) {
    for (auto at = (as<C>(o).*Map).iterator(); at; ++at) visitor.onKey(&at.key());
  };
  form.putKey = [](void const* key, Out& out) { NboAttrLog::put(out, *static_cast<K const*>(key)); };
  form.skipKey = [](In& in) { getSound<K>(in); };
  form.takeDel = [](PtrInterface& o, In& in) { (as<C>(o).*Del)(getSound<K>(in)); };
}

/// The form of plain values V by key K.
template <class V, class K, auto Map, auto Set, auto Del>
RowForm valuesForm() {
  using C = ClassOf<Map>;
  RowForm form{Shape::values};
  addKeys<K, Map, Del>(form);
  form.putMember = [](PtrInterface const& o, void const* key, Out& out) {
    auto* member = (as<C>(o).*Map).find(*static_cast<K const*>(key));
    if (member != nullptr) NboAttrLog::put(out, member->value);
    return member != nullptr;
  };
  form.takeMember = [](PtrInterface& o, In& in) {
    K const key = getSound<K>(in);
    (as<C>(o).*Set)(key, getNext<V>(in));
  };
  return form;
}

/// Adds what all owners of objects T have.
template <class T, auto... Parameters>
void addChild(RowForm& form) {
  form.putMake = []([[maybe_unused]] PtrInterface const& child, [[maybe_unused]] Out& out) {
    (NboAttrLog::put(out, TypeOf<Parameters>((as<T>(child).*Parameters)())), ...);
  };
  form.adapt = adaptChild<T>;
}

/// The form of owned objects T by key K. Parameters are the accessors of what the maker is given, apart from
/// the key.
template <class T, class K, auto Map, auto Make, auto Del, auto... Parameters>
RowForm membersForm() {
  using C = ClassOf<Map>;
  RowForm form{Shape::members};
  addKeys<K, Map, Del>(form);
  addChild<T, Parameters...>(form);
  form.child = [](PtrInterface const& o, void const* key) -> PtrInterface const* {
    return (as<C>(o).*Map).find(*static_cast<K const*>(key));
  };
  form.takeMake = [](PtrInterface& o, In& in, bool anew) {
    C& object = as<C>(o);
    return makeChild<C, Make>(object, in, anew, [&](K const& key, auto const&...) { (object.*Del)(key); });
  };
  return form;
}

/// The form of one owned object; Parameters as for members.
template <class T, auto Held, auto Make, auto Del, auto... Parameters>
RowForm singleForm() {
  using C = ClassOf<Held>;
  RowForm form{Shape::single};
  addChild<T, Parameters...>(form);
  form.child = [](PtrInterface const& o, void const*) -> PtrInterface const* {
    return (as<C>(o).*Held).ptr();
  };
  form.takeMake = [](PtrInterface& o, In& in, bool anew) {
    C& object = as<C>(o);
    return makeChild<C, Make>(object, in, anew, [&](auto const&...) { (object.*Del)(); });
  };
  form.takeDel = [](PtrInterface& o, In&) { (as<C>(o).*Del)(); };
  return form;
}

/// The form of a pointer to a T that needs no arguments to be made.
template <class T, auto Held, auto Set, auto Del>
RowForm pointerForm() {
  using C = ClassOf<Held>;
  RowForm form{Shape::pointer};
  addChild<T>(form);
  form.child = [](PtrInterface const& o, void const*) -> PtrInterface const* {
    return (as<C>(o).*Held).ptr();
  };
  form.takeMake = [](PtrInterface& o, In&, bool anew) -> Ptr<PtrInterface> {
    Ptr<T> held = as<C>(o).*Held;
    return held && !anew ? held : make<T>();
  };
  form.set = [](PtrInterface& o, PtrInterface& child) { (as<C>(o).*Set)(&as<T>(child)); };
  form.takeDel = [](PtrInterface& o, In&) { (as<C>(o).*Del)(); };
  return form;
}

/// \endcond

}  // namespace Zet::NboAttrLog
