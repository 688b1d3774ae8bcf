#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace pimbsr::cli {

/// Rows of cells, written in columns as wide as their widest cell. Columns of numbers and of times are
/// aligned to the right, all others to the left.
class Table {
 public:
  explicit Table(std::vector<std::string> head);

  /// Adds a row with as many cells as the head has, or fewer.
  void add(std::vector<std::string> row);
  /// Whether it has nothing but its head.
  bool empty() const { return rows_.size() == 1; }
  /// Writes the head and the rows, each with so many spaces before it.
  void write(std::ostream& out, std::size_t indent = 0) const;

 private:
  std::vector<std::vector<std::string>> rows_;
  std::vector<bool> numeric_;
};

}  // namespace pimbsr::cli
