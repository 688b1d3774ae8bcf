#include "runtime/EnumText.h"

#include "runtime/Exceptions.h"

namespace Zet {

// A number without a name has a text too, since a peer's message may carry it into a trace.
String8 enumStringValue(EnumText const& text, U32 number) {
  if (number < text.names.size()) return text.names[number];
  return format("%s(%d)", text.typeName, static_cast<S32>(number));
}

U32 enumInstance(EnumText const& text, U32 number) {
  if (number >= text.names.size()) throwRangeException(text.typeName);
  return number;
}

U32 enumInstance(EnumText const& text, String8 const& name) {
  for (U32 number = 0; number < text.names.size(); ++number) {
    if (name == text.names[number]) return number;
  }
  throwRangeException(text.typeName);
}

}  // namespace Zet
