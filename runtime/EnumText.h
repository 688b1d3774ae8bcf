#pragma once

#include <concepts>
#include <ostream>
#include <span>
#include <type_traits>

#include "runtime/Export.h"
#include "runtime/String8.h"
#include "runtime/Types.h"

namespace Zet {

struct ZetType;
template <class C>
class GenericIfOf;

/// The texts of an enumeration that numbers its names from 0.
struct EnumText {
  char const* typeName;                ///< bare name of the type
  std::span<char const* const> names;  ///< by number
  char const* space;                   ///< the namespaces around it, without :: at the end
  char const* sentence;                ///< what it says
};

/// The descriptor of an enumeration: its names as constant attributes. `text` must live as long as the
/// program.
PIMBSR_API ZetType const& enumType(EnumText const& text);

/// The name of `number`, or "Type(number)" if it has none.
PIMBSR_API String8 enumStringValue(EnumText const& text, U32 number);

/// The number itself; raises RangeException with the bare name of the type if no name has it.
PIMBSR_API U32 enumInstance(EnumText const& text, U32 number);
/// The number of a name, whose case counts; raises the same if there is none.
PIMBSR_API U32 enumInstance(EnumText const& text, String8 const& name);

/// An enumeration whose texts were declared by ZET_ENUM_TEXT.
template <class T>
concept TextEnum = std::is_enum_v<T> && requires(T value) {
  { enumText(value) } -> std::same_as<EnumText const&>;
};

}  // namespace Zet

/// Declares, beside the enumeration `Type`, its text functions: the name, the quoted text form, streaming of
/// the bare name, TypeInstance from a number or a name, and the descriptor with named access. The source that
/// holds its names defines enumText(Type).
#define ZET_ENUM_TEXT(Type)                                                                            \
  PIMBSR_API ::Zet::EnumText const& enumText(Type);                                                    \
  inline ::Zet::String8 stringValue(Type value) {                                                      \
    return ::Zet::enumStringValue(enumText(value), static_cast<::Zet::U32>(value));                    \
  }                                                                                                    \
  inline ::Zet::String8 valueToStrep(Type value) { return "'" + stringValue(value) + "'"; }            \
  inline std::ostream& operator<<(std::ostream& out, Type value) { return out << stringValue(value); } \
  inline Type Type##Instance(::Zet::U32 number) {                                                      \
    return static_cast<Type>(::Zet::enumInstance(enumText(Type{}), number));                           \
  }                                                                                                    \
  inline Type Type##Instance(::Zet::String8 const& name) {                                             \
    return static_cast<Type>(::Zet::enumInstance(enumText(Type{}), name));                             \
  }                                                                                                    \
  inline ::Zet::ZetType const& _fwkType(Type value) { return ::Zet::enumType(enumText(value)); }       \
  inline ::Zet::ZetType const& fwkType(Type value) { return _fwkType(value); }                         \
  using Type##GenericIf_ = ::Zet::GenericIfOf<Type>;
