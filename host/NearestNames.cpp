#include "host/NearestNames.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace pimbsr::host {

std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = std::exchange(row[j + 1], std::min({row[j] + 1, row[j + 1] + 1, changed}));
    }
  }
  return row[b.size()];
}

std::vector<std::string_view> nearestNames(std::string_view name, std::vector<std::string_view> const& names,
                                           std::size_t max) {
  static constexpr std::size_t maxLength = 64;
  if (name.size() > maxLength) return {};
  std::vector<std::pair<std::size_t, std::string_view>> ranked;
  ranked.reserve(names.size());
  for (std::string_view other : names) ranked.emplace_back(editDistance(name, other), other);
  auto isNearer = [](auto const& a, auto const& b) { return a.first < b.first; };
  std::stable_sort(ranked.begin(), ranked.end(), isNearer);
  std::vector<std::string_view> nearest;
  for (std::size_t i = 0; i < std::min(max, ranked.size()); ++i) nearest.push_back(ranked[i].second);
  return nearest;
}

}  // namespace pimbsr::host
