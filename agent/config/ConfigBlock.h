#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/config/ConfigKeys.h"
#include "agent/config/ConfigText.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

using Zet::U32;
using Zet::U64;

/// A text of a list, with its place.
struct PlacedText {
  TextPlace at;
  std::string text;
};

/// Whether an interface, or an access list, may have this name.
bool isInterfaceName(std::string_view name);
bool isListName(std::string_view name);

/// One table of the file and the keys that it may have: each is checked against its row in the table of keys
/// when it is asked for. What is wrong goes to `faults`, with the path of the key, and isn't given out.
class ConfigBlock {
 public:
  /// Tells of each key that the table doesn't know. A value that is no table is told, and has no keys. `path`
  /// is what to call it in faults. The value and the faults outlive the block.
  ConfigBlock(ConfigValue const& value, std::string_view section, std::string const& path,
              std::vector<ConfigFinding>& faults);

  TextPlace at() const { return at_; }
  std::string const& path() const { return path_; }
  /// The value of a key, or null; it counts for the caller to check.
  ConfigValue const* value(std::string_view name) const;
  /// Where the value of a key stands, or this block if the key isn't there.
  TextPlace placeOf(std::string_view name) const;

  /// The number of a key, if it is there and valid.
  std::optional<U64> number(std::string_view name);
  /// Writes a value only if its key is there and valid.
  void take(std::string_view name, U64& number);
  void take(std::string_view name, U32& number);
  void take(std::string_view name, bool& flag);
  void take(std::string_view name, std::string& text);
  /// The text of a key, if it is there and valid. A key that must be there and isn't is told.
  std::optional<PlacedText> text(std::string_view name);
  /// The texts of a list, less those that aren't valid; none if the key isn't there.
  std::vector<PlacedText> texts(std::string_view name);
  /// The tables of a list; those that are none are told by the blocks made of them.
  std::vector<ConfigValue const*> tables(std::string_view name);

  /// Tells that the value of a key, or one in its list, isn't valid.
  void refuse(std::string_view name, ConfigValue const& read);
  void refuseItem(std::string_view name, ConfigValue const& read);
  void fault(TextPlace at, std::string const& text) { faults_.push_back({at, text}); }

 private:
  void checkKeys(std::string_view section);
  std::string pathOf(std::string_view name) const { return path_ + "." + tomlKey(name); }
  ConfigKey const& key(std::string_view name) const { return configKey(section_, name); }

  ConfigValue const* table_;  ///< null if the value is none
  std::string_view section_;
  std::string path_;
  TextPlace at_;
  std::vector<ConfigFinding>& faults_;
};

}  // namespace pimbsr::agent
