#pragma once

#include <span>
#include <string>
#include <string_view>

#include "runtime/Types.h"

namespace pimbsr::agent {

/// What a key of the configuration file takes.
enum class KeyType {
  integer,        ///< within a range
  boolean,        ///< true or false
  interfaceName,  ///< a name that an interface may have
  groupRanges,    ///< a list of IPv4 prefixes of groups
  listNames,      ///< a list of names of access lists
  prefix,         ///< an IPv4 prefix
  address,        ///< an IPv4 address, or a mask written like one
  action,         ///< "permit" or "deny"
  path,           ///< an absolute path, or ""
  socketPath,     ///< an absolute path that a Unix socket can have, or ""
  groupName,      ///< a name that a group of users may have, or ""
  rules,          ///< a list of tables
};

/// A table of the file.
struct ConfigSection {
  std::string_view name;      ///< such as "interface.NAME"; the words in capitals are the operator's
  std::string_view header;    ///< as it is written in the file
  std::string_view sentence;  ///< what it is for
};

/// A key of the file.
struct ConfigKey {
  std::string_view section;  ///< name of its table
  std::string_view name;     ///< or "HANDLE", for any trace handle
  KeyType type = KeyType::integer;
  std::string_view unit;         ///< of an integer; may be empty
  Zet::U64 least = 0, most = 0;  ///< of an integer
  std::string_view fallback;     ///< its default as TOML, or in words; empty if the key must be there
  std::string_view sentence;     ///< what it does
};

/// All tables, in the order of the reference page.
std::span<ConfigSection const> configSections();
/// All keys, by table in that order. What stands here is all that there is to know of a key's range.
std::span<ConfigKey const> configKeys();
/// A key that must be there.
ConfigKey const& configKey(std::string_view section, std::string_view name);

/// What a key takes, in words: "a whole number from 0 to 255".
std::string validText(ConfigKey const& key);
/// What the list of a key may hold, in words; what the key takes if that is no list.
std::string validItemText(ConfigKey const& key);
/// What the list of a key may hold, in words; what the key takes if that is no list.
std::string validItemText(ConfigKey const& key);
/// What to say of a key that a table doesn't have: the key that was meant, if one is close, or all it has.
std::string unknownKeyText(std::string_view section, std::string_view name);
/// The one of `names` that was probably meant, or empty.
std::string_view closest(std::string_view name, std::span<std::string_view const> names);

/// The reference page of the file in Markdown.
std::string configReference();

}  // namespace pimbsr::agent
