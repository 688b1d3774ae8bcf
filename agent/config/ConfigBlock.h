#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/config/ConfigKeys.h"
#include "agent/config/ConfigText.h"
#include "agent/config/KeyTypes.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

using Zet::U32;
using Zet::U64;

/// Whether an interface, or an access list, may have this name.
bool isInterfaceName(std::string_view name);
bool isListName(std::string_view name);

/// The findings of the reader of a file. The lists outlive it.
struct ConfigNotes {
  std::vector<ConfigFinding>& errors;
  std::vector<ConfigFinding>& remarks;  ///< valid values that are read other than written
  std::vector<ConfigRename>& renames;   ///< keys by a former name, each an error too
};

/// One table of the file and its keys. Each key is validated against its row when it is read; an invalid one
/// is reported as an error with its path, and its value is not used.
class ConfigBlock {
 public:
  /// Reports each key that the section doesn't have. A value that is no table is reported, and has no keys.
  /// `path` is its name in errors. The value outlives the block.
  ConfigBlock(ConfigValue const& value, ConfigSection const& section, std::string const& path,
              ConfigNotes notes);

  TextPlace at() const { return at_; }
  std::string const& path() const { return path_; }
  /// Whether a key is there, valid or not.
  bool has(ConfigKey const& key) const { return find(key) != nullptr; }
  /// Whether a key is there with a number that is valid.
  bool hasNumber(ConfigKey const& key) const;
  /// Where the value of a key is, or this block if the key isn't there.
  TextPlace placeOf(ConfigKey const& key) const;

  /// Writes a value only if its key is there and valid.
  void take(ConfigKey const& key, U64& number);
  void take(ConfigKey const& key, U32& number);
  void take(ConfigKey const& key, std::optional<U32>& number);
  void take(ConfigKey const& key, bool& flag);
  /// A key that is needed and isn't there is reported.
  void take(ConfigKey const& key, std::string& text);
  void take(ConfigKey const& key, file::Action& action);
  void take(ConfigKey const& key, file::Prefix& prefix);
  void take(ConfigKey const& key, file::Address& address);
  /// Items that aren't valid are left out.
  void take(ConfigKey const& key, file::GroupRanges& ranges);
  void take(ConfigKey const& key, file::ListNames& names);
  /// The values of a list; those that are no tables are reported by the blocks made of them.
  void take(ConfigKey const& key, file::Rules& rules);

  /// Reports an error of a key.
  void addError(TextPlace at, ConfigKey const& key, std::string const& text);

 private:
  void checkKeys(std::string_view section);
  void rejectUnknown(std::string_view section, ConfigEntry const& entry);
  void rejectFormer(ConfigKey const& key, ConfigEntry const& entry);
  ConfigValue const* find(ConfigKey const& key) const;
  std::string pathOf(ConfigKey const& key) const { return path_ + "." + std::string(key.name); }
  std::optional<U64> number(ConfigKey const& key);
  /// The text of a key if it is there and has the form of the key.
  std::optional<std::string> text(ConfigKey const& key);
  std::optional<Lanet::IpGenPrefix> prefixOf(ConfigKey const& key, ConfigValue const& read);
  /// The items of a list that are texts with the form of the key.
  std::vector<ConfigValue const*> textsOf(ConfigKey const& key);
  std::vector<ConfigValue> const* itemsOf(ConfigKey const& key);
  void reject(ConfigKey const& key, ConfigValue const& read);
  void rejectItem(ConfigKey const& key, ConfigValue const& read);

  ConfigValue const* table_;  ///< null if the value is none
  std::string path_;
  TextPlace at_;
  ConfigNotes notes_;
};

}  // namespace pimbsr::agent
