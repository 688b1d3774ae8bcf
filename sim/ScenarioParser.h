#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Scenario.h"
#include "sim/ScenarioError.h"

namespace pimbsr::sim {

struct ScenarioNames;

/// A statement as the manual has it.
struct StatementForm {
  std::string_view word;  ///< its first word
  std::string_view form;
  std::string_view sentence;
};

/// All statements, in the manual's order.
std::vector<StatementForm> statementForms();

/// Reads statements, one to a line, and checks them against those read before: a name must have been made,
/// and what has a range must be in it. Text may come in pieces; the names and the time go on.
class ScenarioParser {
 public:
  ScenarioParser();
  ~ScenarioParser();
  ScenarioParser(ScenarioParser const&) = delete;
  ScenarioParser& operator=(ScenarioParser const&) = delete;

  /// Reads text in which every line is empty, a comment that begins with '#', or a statement. `file` is named
  /// in errors. Throws ScenarioError for the first error; then no statement of the text has an effect.
  std::vector<Statement> parse(std::string_view text, std::string const& file);

 private:
  std::unique_ptr<ScenarioNames> names_;
};

}  // namespace pimbsr::sim
