#include "runtime/Exceptions.h"

namespace Zet {

// The throws are kept out of line, so that setters inlined into their callers stay small.
void throwRangeException(std::string_view text) { throw RangeException(text); }

void throwInternalException(std::string_view text) { throw InternalException(text); }

void throwNameInUseException(std::string_view text) { throw NameInUseException(text); }

// What follows takes names and makes the text here, so that an error reads the same wherever it is found.
void throwTypeException(std::string_view expected) {
  throw TypeException("not an object of type " + std::string(expected));
}

void throwUnknownArgException(std::string_view argument) {
  throw UnknownArgException("unknown argument: " + std::string(argument));
}

void throwUnknownAttrException(std::string_view attribute) {
  throw UnknownAttrException("unknown attribute: " + std::string(attribute));
}

void throwBadIndexAttrException(std::string_view attribute) {
  throw BadIndexAttrException("attribute " + std::string(attribute) + " takes no index");
}

void throwOpNotSupportedException(std::string_view attribute, std::string_view op, bool isConst) {
  if (isConst) throw OpNotSupportedException("attempting to modify a const instance");
  throw OpNotSupportedException("attribute " + std::string(attribute) + " does not support " +
                                std::string(op));
}

}  // namespace Zet
