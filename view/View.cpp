#include "view/View.h"

#include <fmt/format.h>

#include <cmath>

namespace pimbsr::view {

std::string spanOf(double seconds) {
  if (seconds < 99.95) return fmt::format("{:.1f} s", seconds);
  long whole = std::lround(seconds);
  if (whole < 3600) return fmt::format("{}m {:02}s", whole / 60, whole % 60);
  if (whole < 86400) return fmt::format("{}h {:02}m", whole / 3600, whole / 60 % 60);
  return fmt::format("{}d {:02}h", whole / 86400, whole / 3600 % 24);
}

std::string cellOf(std::string const& text, std::string_view) { return text; }
std::string cellOf(bool value, std::string_view) { return value ? "yes" : "no"; }
std::string cellOf(double seconds, std::string_view otherwise) {
  return std::isfinite(seconds) ? spanOf(seconds) : std::string(otherwise);
}

}  // namespace pimbsr::view
