#pragma once

#include <span>
#include <string>
#include <string_view>

#include "host/ConfigKey.h"

namespace pimbsr::agent {

using host::ConfigKey;
using host::ConfigSection;
using host::KeyType;

/// All tables, in the order of the reference page.
std::span<ConfigSection const> configSections();
/// All keys, by table in that order.
std::span<ConfigKey const> configKeys();

/// Description of the valid values of a key: "a whole number from 0 to 9".
std::string validText(ConfigKey const& key);
/// Description of the valid items of a key's list; of the key's values if it takes no list.
std::string validItemText(ConfigKey const& key);
/// The error for a key that a table doesn't have: it suggests the closest key, or lists all.
std::string unknownKeyText(std::string_view section, std::string_view name);
/// The one of `names` with the smallest edit distance, or empty if none is close.
std::string_view closest(std::string_view name, std::span<std::string_view const> names);

}  // namespace pimbsr::agent
