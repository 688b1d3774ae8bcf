#pragma once

#include <concepts>
#include <functional>
#include <limits>
#include <string_view>
#include <type_traits>

#include "runtime/EnumText.h"
#include "runtime/Export.h"
#include "runtime/String8.h"
#include "runtime/Types.h"

namespace Zet {

/// The text form of values: what valueToStrep writes, strepToValue and readStrep read back. A reader moves
/// `cur` past what it has read and raises RangeException, with the column in its text, if the text isn't what
/// it needs.
using StrepPos = String8::IteratorConst;

/// Moves `cur` past blanks, tabs and line ends, if there are any.
PIMBSR_API void skipWhiteSpace(StrepPos& cur, StrepPos end);

/// Reads a token; a blank in `token` means optional white space.
PIMBSR_API void needString(StrepPos& cur, StrepPos end, char const* token);

/// Reads a string in single quotes, in which a backslash escapes a quote or a backslash.
PIMBSR_API String8 readQuoted(StrepPos& cur, StrepPos end);

/// Reads decimal digits, with a sign before them if any; raises on what 64 bits cannot hold.
PIMBSR_API S64 readInteger(StrepPos& cur, StrepPos end);
/// The same of a number without a minus sign; raises on one that has it.
PIMBSR_API U64 readUnsigned(StrepPos& cur, StrepPos end);

/// Reads "True" or "False".
PIMBSR_API bool readBool(StrepPos& cur, StrepPos end);

/// Reads a decimal number with fraction and exponent if any, or "inf" or "nan".
PIMBSR_API double readDouble(StrepPos& cur, StrepPos end);

/// "True" or "False". For bool alone, since every pointer would convert to it.
String8 valueToStrep(std::same_as<bool> auto value) { return value ? "True" : "False"; }
/// Decimal digits.
PIMBSR_API String8 valueToStrep(U8 value);
/// Decimal digits.
PIMBSR_API String8 valueToStrep(U16 value);
/// Decimal digits.
PIMBSR_API String8 valueToStrep(U32 value);
/// Decimal digits.
PIMBSR_API String8 valueToStrep(U64 value);
/// Decimal digits, after a minus sign if negative.
PIMBSR_API String8 valueToStrep(S32 value);
/// Decimal digits, after a minus sign if negative.
PIMBSR_API String8 valueToStrep(S64 value);
/// The shortest decimal form that reads back as the same number.
PIMBSR_API String8 valueToStrep(double value);
/// In single quotes.
PIMBSR_API String8 valueToStrep(String8 const& value);

/// Raises that `value` isn't one that a number of `bits` bits holds.
[[noreturn]] PIMBSR_API void throwIntegerTooWide(String8 const& value, int bits, bool isSigned);

/// Reads a whole number of type T; raises on one that T doesn't hold.
template <std::integral T>
T readNumber(StrepPos& cur, StrepPos end) {
  auto number = [&] {
    if constexpr (std::is_signed_v<T>) {
      return readInteger(cur, end);
    } else {
      return readUnsigned(cur, end);
    }
  }();
  if (number < std::numeric_limits<T>::min() || number > std::numeric_limits<T>::max()) {
    throwIntegerTooWide(valueToStrep(number), int{sizeof(T)} * 8, std::is_signed_v<T>);
  }
  return static_cast<T>(number);
}

/// Reads a value of type T: a bool, number, string, enumeration with text, or a class that is constructed
/// from a position and an end.
template <class T>
T readStrep(StrepPos& cur, StrepPos end) {
  if constexpr (std::same_as<T, bool>) {
    return readBool(cur, end);
  } else if constexpr (std::floating_point<T>) {
    return static_cast<T>(readDouble(cur, end));
  } else if constexpr (std::integral<T>) {
    return readNumber<T>(cur, end);
  } else if constexpr (std::derived_from<T, String8>) {
    return T(readQuoted(cur, end));
  } else if constexpr (TextEnum<T>) {
    return static_cast<T>(enumInstance(enumText(T{}), readQuoted(cur, end)));
  } else {
    return T(cur, end);
  }
}

/// Raises, if `cur` isn't the end of `text`, that what follows there is no part of the value.
PIMBSR_API void needEnd(StrepPos cur, String8 const& text);

/// Reads a value that is the whole of `text`.
template <class T>
T strepToValue(String8 const& text) {
  StrepPos cur = text.begin();
  T value = readStrep<T>(cur, text.end());
  needEnd(cur, text);
  return value;
}

/// Called where a RangeException has been caught: raises it again with the name of the attribute that was
/// being read.
[[noreturn]] PIMBSR_API void rethrowFromDeserializeAttr(String8 const& attributeName);

/// Reads the value of the attribute `name`; false if there is no such attribute.
using AttrReader = std::function<bool(String8 const& name, StrepPos& cur, StrepPos end)>;

/// Reads "Value('typeName', ** {'name': value, ...})", with attributes in any order. `typeName` is the full
/// name.
PIMBSR_API void readStructured(StrepPos& cur, StrepPos end, char const* typeName, AttrReader const& readAttr);

/// Builds the text that readStructured reads.
class PIMBSR_API StructuredText {
 public:
  /// Begins a value without attributes, of the type with that full name.
  explicit StructuredText(char const* typeName);
  /// Appends an attribute, given the text form of its value.
  StructuredText& attr(char const* name, String8 const& value);
  /// The whole text; more attributes may follow and change it.
  String8 text() const;

 private:
  String8 text_;
  bool isFirst_ = true;
};

}  // namespace Zet
