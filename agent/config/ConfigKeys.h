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
/// A key that must be there.
ConfigKey const& configKey(std::string_view section, std::string_view name);

/// What a key takes, in words: "a whole number from 0 to 255".
std::string validText(ConfigKey const& key);
/// What the list of a key may hold, in words; what the key takes if that is no list.
std::string validItemText(ConfigKey const& key);
/// What to say of a key that a table doesn't have: the key that was meant, if one is close, or all it has.
std::string unknownKeyText(std::string_view section, std::string_view name);
/// The one of `names` that was probably meant, or empty.
std::string_view closest(std::string_view name, std::span<std::string_view const> names);

/// The reference page of the file in Markdown.
std::string configReference();

}  // namespace pimbsr::agent
