#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Types.h"

namespace pimbsr::agent {

/// A place in a text: line and column from 1, the column in characters; 0 for the text as a whole.
struct TextPlace {
  Zet::U32 line = 0;
  Zet::U32 column = 0;

  auto operator<=>(TextPlace const&) const = default;
};

/// One error, warning or remark on a text.
struct ConfigFinding {
  TextPlace at;
  std::string text;

  bool operator==(ConfigFinding const&) const = default;
};

/// A key that is written with its former name.
struct ConfigRename {
  TextPlace at;           ///< of the name
  std::string former;     ///< as it is written
  std::string_view name;  ///< what it is called now, a literal

  bool operator==(ConfigRename const&) const = default;
};

struct ConfigEntry;

/// A value of a TOML text with its place.
struct ConfigValue {
  enum class Sort { boolean, integer, text, list, table, other };

  Sort sort = Sort::table;
  TextPlace at;
  bool flag = false;                 ///< of a boolean
  std::int64_t number = 0;           ///< of an integer
  std::string text;                  ///< of a text, UTF-8; of `other` a description: "the date 2026-01-01"
  std::vector<ConfigValue> items;    ///< of a list
  std::vector<ConfigEntry> entries;  ///< of a table, in the order of the text
};

/// A key of a table with its place and value.
struct ConfigEntry {
  std::string key;
  TextPlace at;
  ConfigValue value;
};

/// A TOML text as values; without values if it has an error.
struct ParsedText {
  ConfigValue root;  ///< a table
  std::vector<ConfigFinding> errors;
};

/// Maximum length of a text, bytes.
inline constexpr std::size_t maxConfigTextLength = std::size_t{1} << 20;
/// Maximum depth of nested tables and lists, and of a dotted key: far more than any key needs.
inline constexpr int maxConfigTextDepth = 16;

/// Maximum number of dots in a line, in keys, texts and comments. A list of more than 170 prefixes takes
/// several lines; with more dots, nested keys could exhaust the stack of a build without optimization.
inline constexpr std::size_t maxDotsOfLine = 512;

/// Parses a TOML text of any bytes. Reports at most one error: too long, no UTF-8, too deep, or the first
/// syntax error; a repeated key is one.
ParsedText parseConfigText(std::string_view text);

/// A TOML text with its former keys renamed. All else stays: comments, order, white space. The renames, in
/// any order, have places of this text; a name that is written with escapes stays.
std::string renamedKeys(std::string_view text, std::vector<ConfigRename> renames);

/// A short description of a value: "5", "the text \"high\"", "a list".
std::string describe(ConfigValue const& value);
/// A text in double quotes with its control characters escaped; cut off after 60 characters.
std::string inQuotes(std::string_view text);

/// A key and a text as TOML writes them. The key is in quotes only if it must be.
std::string tomlKey(std::string_view key);
std::string tomlText(std::string_view text);

}  // namespace pimbsr::agent
