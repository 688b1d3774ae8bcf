#pragma once

#include <array>
#include <functional>
#include <tuple>
#include <type_traits>
#include <utility>

#include "runtime/Reflection.h"

/// The fields of a value type, listed once. From the list follow the rows of its descriptor and its form in
/// the attribute log.
namespace Zet {

/// One field. `get` is a data member or a function that reads; `set` is a function that writes, or null where
/// the data member itself is written or the field can't be written alone.
template <class Get, class Set>
struct Field {
  char const* name;      ///< as rows show it
  char const* sentence;  ///< what it says
  Get get;               ///< how it is read
  Set set = nullptr;     ///< how it is written; may be null

  /// Whether the field can be written alone.
  static constexpr bool isWritable =
      std::is_member_object_pointer_v<Get> || std::is_member_function_pointer_v<Set>;
};
/// A field with its own setter, or with null for one.
template <class Get, class Set>
Field(char const*, char const*, Get, Set) -> Field<Get, Set>;
/// A field without a setter of its own.
template <class Get>
Field(char const*, char const*, Get) -> Field<Get, std::nullptr_t>;

/// A value type with a list of its fields: zetFields() gives a tuple of them in declared order.
template <class T>
concept FieldedValue = requires {
  T::zetFields();
};

/// The type of a field's value: F is a Field of T.
template <class T, class F>
using FieldType = std::remove_cvref_t<std::invoke_result_t<decltype(F::get), T const&>>;

/// Writes a field. Raises what its setter raises.
template <class T, class F>
void setField(T& value, F const& field, FieldType<T, F> const& to) {
  if constexpr (std::is_member_object_pointer_v<decltype(F::get)>) {
    value.*field.get = to;
  } else {
    std::invoke(field.set, value, to);
  }
}

/// A type's name as rows show it.
template <class T>
char const* typeName() {
  if constexpr (std::is_same_v<T, U8>) {
    return "U8";
  } else if constexpr (std::is_same_v<T, U16>) {
    return "U16";
  } else if constexpr (std::is_same_v<T, U32>) {
    return "U32";
  } else if constexpr (std::is_same_v<T, U64>) {
    return "U64";
  } else if constexpr (std::is_same_v<T, String8>) {
    return "Zet::String8";
  } else {
    return descriptorOf<T>().name;
  }
}

/// The row of the field of T at place I of its list, from 0.
template <class T, std::size_t I>
AttributeRow fieldRow() {
  static constexpr auto field = std::get<I>(T::zetFields());
  using F = std::remove_const_t<decltype(field)>;
  AttributeRow row{.id = static_cast<AttributeId>(I),
                   .name = field.name,
                   .kind = AttributeKind::field,
                   .type = typeName<FieldType<T, F>>(),
                   .sentence = field.sentence};
  row.read = [](PtrInterface const& o, String8 const&) {
    return strep(FieldType<T, F>(std::invoke(field.get, static_cast<ValueObject<T> const&>(o).value)));
  };
  if constexpr (F::isWritable) {
    row.write = [](PtrInterface& o, String8 const&, String8 const& text) {
      setField(static_cast<ValueObject<T>&>(o).value, field, strepToValue<FieldType<T, F>>(text));
    };
  }
  return row;
}

/// The rows of all fields of T, and `more` after them.
template <class T, class... More>
auto fieldRows(More const&... more) {
  return []<std::size_t... I>(std::index_sequence<I...>, auto const&... added) {
    return std::array<AttributeRow, sizeof...(I) + sizeof...(added)>{fieldRow<T, I>()..., added...};
  }
  (std::make_index_sequence<std::tuple_size_v<decltype(T::zetFields())>>(), more...);
}

/// The descriptor of a value type with fields. T::_fwkType() calls it, in the one source that defines it.
template <class T, class... More>
ZetType const& valueType(char const* name, char const* sentence, More const&... more) {
  static auto const rows = fieldRows<T>(more...);
  static ZetType const type{name, "value", nullptr, rows, sentence};
  return type;
}

}  // namespace Zet
