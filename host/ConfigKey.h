#pragma once

#include <string_view>

#include "runtime/Types.h"

namespace pimbsr::host {

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
  std::string_view member{};  ///< of a configuration in JSON; empty if its keys are members themselves
};

/// A value that is legal and unwise.
struct UnwiseValue {
  Zet::U64 value = 0;       ///< of a flag 0 for false
  std::string_view reason;  ///< why; empty if no value is unwise
};

/// Why access lists are unwise that are read over addresses, by what they permit together.
struct UnwiseLists {
  std::string_view none;    ///< nothing; empty if that isn't unwise
  std::string_view groups;  ///< group addresses alone, which no sender has; empty if that isn't unwise
};

/// A key of the file, as it is declared. All texts are literals.
struct ConfigKey {
  std::string_view section;         ///< name of its table; empty in a list of keys that tables include
  std::string_view name;            ///< in the file; "HANDLE" is any trace handle
  std::string_view member;          ///< in JSON
  KeyType type = KeyType::integer;  ///< what it takes
  std::string_view unit;            ///< of an integer; may be empty
  Zet::U64 least = 0;               ///< the lowest legal integer
  Zet::U64 most = 0;                ///< the highest legal integer
  std::string_view fallback;        ///< its default as TOML, or a description; empty if the key is needed
  std::string_view sentence;        ///< what it does
  std::string_view former;          ///< name that it had before, which is rejected; may be empty
  bool needsRestart = false;        ///< whether a change is applied at the next start only
  UnwiseValue unwise = {};          ///< a legal value to warn of
  UnwiseLists unwiseLists = {};     ///< of a key that takes lists of addresses
};

}  // namespace pimbsr::host
