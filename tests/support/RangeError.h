#pragma once

#include <sstream>
#include <string>

#include "runtime/Exceptions.h"
#include "runtime/Strep.h"

namespace testing_support {

/// The text of the RangeException that `action` raises.
template <class Action>
std::string rangeError(Action action) {
  try {
    action();
  } catch (Zet::RangeException const& e) {
    return e.what();
  }
  return "no RangeException";
}

/// The text of the RangeException that reading a T from `text` raises.
template <class T>
std::string rangeErrorOf(Zet::String8 const& text) {
  return rangeError([&] { Zet::strepToValue<T>(text); });
}

/// What streaming writes.
template <class T>
std::string streamed(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

}  // namespace testing_support
