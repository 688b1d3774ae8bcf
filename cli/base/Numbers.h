#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace pimbsr::cli {

/// The whole text as a number; nothing if it is none, has more after it, or is out of the type's range.
template <class Number>
std::optional<Number> numberOf(std::string_view text) {
  Number number{};
  char const* end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

}  // namespace pimbsr::cli
