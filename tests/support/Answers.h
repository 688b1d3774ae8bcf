#pragma once

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

namespace test {

/// Keeps an answer for tests/view/schema_test.py, as a line of <schema>.jsonl in the folder
/// PIMBSR_ANSWERS; does nothing without that.
inline void keepAnswer(std::string const& schema, nlohmann::ordered_json const& answer) {
  char const* folder = std::getenv("PIMBSR_ANSWERS");
  if (folder == nullptr) return;
  std::ofstream(std::string(folder) + "/" + schema + ".jsonl", std::ios::app) << answer.dump() << '\n';
}

}  // namespace test
