#include "cli/base/Table.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

namespace pimbsr::cli {

/// Whether a cell is a number or a time such as "12.5 s" or "3h 05m"; an empty one and "-" are of any kind.
static bool isNumber(std::string const& cell) {
  if (cell.empty() || cell == "-") return true;
  bool isAddress = std::count(cell.begin(), cell.end(), '.') > 1;
  bool begins = std::string_view("-.0123456789").find(cell.front()) != std::string_view::npos;
  return !isAddress && begins && cell.find_first_not_of("0123456789.-dhms ") == cell.npos;
}

Table::Table(std::vector<std::string> head) : numeric_(head.size(), true) {
  rows_.push_back(std::move(head));
}

void Table::add(std::vector<std::string> row) {
  for (std::size_t i = 0; i < row.size(); ++i) numeric_[i] = numeric_[i] && isNumber(row[i]);
  rows_.push_back(std::move(row));
}

void Table::write(std::ostream& out, std::size_t indent) const {
  std::vector<std::size_t> widths(numeric_.size());
  for (auto const& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (auto const& row : rows_) {
    std::string line(indent, ' ');
    for (std::size_t i = 0; i < row.size(); ++i) {
      std::string_view gap = i == 0 ? "" : "  ";
      line += numeric_[i] ? fmt::format("{}{:>{}}", gap, row[i], widths[i])
                          : fmt::format("{}{:<{}}", gap, row[i], widths[i]);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  }
}

}  // namespace pimbsr::cli
