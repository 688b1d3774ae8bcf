#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "runtime/Export.h"

namespace Zet {

/// Base of everything that the model raises. what() is the literal text of the failure.
class PIMBSR_API Exception : public std::exception {
 public:
  /// Copies the text.
  explicit Exception(std::string_view text) : text_(text) {}
  /// The text; good while the exception lives.
  char const* what() const noexcept override { return text_.c_str(); }

 private:
  std::string text_;
};

/// A value out of range, or a null where an object is required.
class PIMBSR_API RangeException : public Exception {
  using Exception::Exception;
};

/// A broken invariant of the model.
class PIMBSR_API InternalException : public Exception {
  using Exception::Exception;
};

/// A name or key that is taken by an object made with other arguments.
class PIMBSR_API NameInUseException : public Exception {
  using Exception::Exception;
};

/// Reflection: an object of another type than the descriptor's.
class PIMBSR_API TypeException : public Exception {
  using Exception::Exception;
};

/// Reflection: an argument that the operation doesn't know.
class PIMBSR_API UnknownArgException : public Exception {
  using Exception::Exception;
};

/// Reflection: an attribute that the type doesn't have.
class PIMBSR_API UnknownAttrException : public Exception {
  using Exception::Exception;
};

/// Reflection: an index given to an attribute that has none.
class PIMBSR_API BadIndexAttrException : public Exception {
  using Exception::Exception;
};

/// Reflection: an operation that the attribute's kind doesn't support.
class PIMBSR_API OpNotSupportedException : public Exception {
  using Exception::Exception;
};

/// Raises RangeException with that text.
[[noreturn]] PIMBSR_API void throwRangeException(std::string_view text);
/// Raises InternalException with that text.
[[noreturn]] PIMBSR_API void throwInternalException(std::string_view text);
/// Raises NameInUseException with that text.
[[noreturn]] PIMBSR_API void throwNameInUseException(std::string_view text);
/// Raises TypeException that an object isn't of the expected type, given by its name.
[[noreturn]] PIMBSR_API void throwTypeException(std::string_view expected);
/// Raises UnknownArgException with what is wrong about an argument.
[[noreturn]] PIMBSR_API void throwUnknownArgException(std::string_view argument);
/// Raises UnknownAttrException with an attribute's name, or its number as text.
[[noreturn]] PIMBSR_API void throwUnknownAttrException(std::string_view attribute);
/// Raises BadIndexAttrException that the attribute, given by its name, takes no index.
[[noreturn]] PIMBSR_API void throwBadIndexAttrException(std::string_view attribute);
/// Raises OpNotSupportedException. `isConst` says that the object is constant; else the attribute's kind
/// doesn't support the operation.
[[noreturn]] PIMBSR_API void throwOpNotSupportedException(std::string_view attribute, std::string_view op,
                                                          bool isConst);

}  // namespace Zet
