#include "agent/config/ConfigKeys.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "agent/config/Settings.keys.h"
#include "host/Configuration.keys.h"
#include "host/Corrections.keys.h"
#include "host/IngressSettings.keys.h"
#include "host/NearestNames.h"
#include "runtime/Assert.h"

namespace pimbsr::agent {

using Zet::U64;

// The declared tables ---------------------------------------------------------------------------------

/// Calls call(rows of a table) for each table, in the order of the reference page.
template <class Call>
static void forEachTable(Call const& call) {
  auto callAll = [&](auto... keys) { (call(keys), ...); };
  callAll(file::InterfaceKeys(), file::CandidateBsrKeys(), file::CandidateRpKeys(), host::FilterListsKeys(),
          file::AccessListKeys(), file::AccessRuleKeys(), file::TimersKeys(), host::ChecksKeys(),
          host::LimitsKeys(), host::CorrectionsKeys(), file::ControlKeys(), file::StateKeys(),
          file::TraceKeys());
}

static std::vector<ConfigSection> allSections() {
  std::vector<ConfigSection> sections;
  forEachTable([&](auto keys) { sections.push_back(keys.sectionRow); });
  return sections;
}

static std::vector<ConfigKey> allKeys() {
  std::vector<ConfigKey> rows;
  forEachTable([&](auto keys) { keys.forEach([&](ConfigKey const& key, auto) { rows.push_back(key); }); });
  return rows;
}

std::span<ConfigSection const> configSections() {
  static std::vector<ConfigSection> const sections = allSections();
  return sections;
}

std::span<ConfigKey const> configKeys() {
  static std::vector<ConfigKey> const keys = allKeys();
  return keys;
}

// Descriptions ----------------------------------------------------------------------------------------

namespace {

/// The descriptions of a type of keys other than whole numbers.
struct TypeText {
  KeyType type;
  std::string_view valid;  ///< of a key's value
  std::string_view item;   ///< of an item of its list; empty if it is no list
};

}  // namespace

static constexpr TypeText typeTexts[] = {
    {KeyType::boolean, "true or false", ""},
    {KeyType::interfaceName, "an interface's name of 1 to 15 bytes, such as \"eth0\"", ""},
    {KeyType::groupRanges, "a list of group ranges, [\"239.1.0.0/16\"]",
     "a group range such as \"239.1.0.0/16\""},
    {KeyType::listNames, "a list of names of access lists, [\"inner\"]",
     "a name of 1 to 64 letters, digits, '-', '_', '.' and ':'"},
    {KeyType::prefix, "an IPv4 prefix such as \"10.1.0.0/16\"", ""},
    {KeyType::address, "an IPv4 address such as \"10.1.2.3\"", ""},
    {KeyType::action, "\"permit\" or \"deny\"", ""},
    {KeyType::path, "an absolute path without control characters, or \"\" for none", ""},
    {KeyType::socketPath,
     "an absolute path of at most 107 bytes without control characters, or \"\" for none", ""},
    {KeyType::groupName, "a group's name of 1 to 32 letters, digits, '-', '_' and '.', or \"\" for none", ""},
    {KeyType::rules, "a list of rules, [{action = \"permit\", prefix = \"239.1.0.0/16\"}]",
     "a rule such as {action = \"permit\", prefix = \"239.1.0.0/16\"}"},
};

static TypeText const& textOf(KeyType type) {
  auto matches = [&](TypeText const& text) { return text.type == type; };
  auto found = std::find_if(std::begin(typeTexts), std::end(typeTexts), matches);
  ZET_ASSERT(found != std::end(typeTexts), "every type but whole numbers has a description");
  return *found;
}

std::string validText(ConfigKey const& key) {
  if (key.type != KeyType::integer) return std::string(textOf(key.type).valid);
  return fmt::format("a whole number{} from {} to {}", key.unit == "s" ? " of seconds" : "", key.least,
                     key.most);
}

std::string validItemText(ConfigKey const& key) {
  bool isList = key.type != KeyType::integer && !textOf(key.type).item.empty();
  return isList ? std::string(textOf(key.type).item) : validText(key);
}

std::string_view closest(std::string_view name, std::span<std::string_view const> names) {
  static constexpr std::size_t maxLength = 64;
  if (name.size() > maxLength) return {};
  std::string_view best;
  std::size_t smallest = std::max<std::size_t>(1, name.size() / 3) + 1;
  for (std::string_view other : names) {
    std::size_t far = host::editDistance(name, other);
    if (far < smallest) {
      smallest = far;
      best = other;
    }
  }
  return best;
}

/// The valid names in a table, without repetition: its keys, or for the file itself the first words of
/// tables.
static std::vector<std::string_view> namesIn(std::string_view section) {
  std::vector<std::string_view> names;
  auto add = [&](std::string_view name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  };
  if (section.empty()) {
    for (ConfigSection const& one : configSections()) add(one.name.substr(0, one.name.find('.')));
  }
  for (ConfigKey const& key : configKeys()) {
    if (key.section == section) add(key.name);
  }
  return names;
}

std::string unknownKeyText(std::string_view section, std::string_view name) {
  std::vector<std::string_view> names = namesIn(section);
  if (std::string_view meant = closest(name, names); !meant.empty()) {
    return fmt::format("no such key; did you mean {}?", meant);
  }
  return fmt::format("no such key; valid here {} {}", names.size() == 1 ? "is" : "are",
                     fmt::join(names, ", "));
}

}  // namespace pimbsr::agent
