#include "tests/agent/ConfigReference.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/config/ConfigKeys.h"
#include "runtime/Assert.h"

namespace test {

using pimbsr::agent::ConfigKey;
using pimbsr::agent::configKeys;
using pimbsr::agent::ConfigSection;
using pimbsr::agent::configSections;
using pimbsr::agent::KeyType;

/// The values that a type of keys other than whole numbers takes.
struct PageText {
  KeyType type;
  std::string_view text;
};

static constexpr PageText pageTexts[] = {
    {KeyType::boolean, "`true`, `false`"},
    {KeyType::interfaceName, "name of an interface"},
    {KeyType::groupRanges, "list of group ranges"},
    {KeyType::listNames, "list of access lists"},
    {KeyType::prefix, "IPv4 prefix"},
    {KeyType::address, "IPv4 address"},
    {KeyType::action, "`\"permit\"`, `\"deny\"`"},
    {KeyType::path, "absolute path"},
    {KeyType::socketPath, "absolute path of at most 107 bytes"},
    {KeyType::groupName, "name of a group of users"},
    {KeyType::rules, "list of tables"},
};

static std::string_view pageTextOf(KeyType type) {
  auto matches = [&](PageText const& row) { return row.type == type; };
  auto found = std::find_if(std::begin(pageTexts), std::end(pageTexts), matches);
  ZET_ASSERT(found != std::end(pageTexts), "every type but whole numbers is described on the page");
  return found->text;
}

static std::string rangeText(ConfigKey const& key) {
  if (key.type != KeyType::integer) return std::string(pageTextOf(key.type));
  return fmt::format("{} to {}", key.least, key.most);
}

static constexpr char const* referenceHead = R"(# The configuration file

`pimbsr run --config FILE` reads it, `pimbsr check FILE` says what is wrong or unwise in it, and
`pimbsr reload` applies what has changed. It is written in TOML (version 1.0), in UTF-8, and has at most
1 MiB, with at most 512 dots in a line. Every key may be left out unless it is said to be needed; without
any, no interface speaks PIM and this router is no candidate for anything. Times are whole seconds.
[An example](../examples/pimbsr.toml) is a place to begin.

A file with an error changes nothing. Every error is reported with its line and column, what was read, and
what would be valid. A key by a name that it had in a former version is an error that names the new one;
`pimbsr check --rewrite FILE` renames such keys in the file and leaves all else as it is.
)";

std::string configReference() {
  std::string page = referenceHead;
  for (ConfigSection const& section : configSections()) {
    page += fmt::format(
        "\n## `{}`\n\n{}\n\n| key | valid | unit | default | what it does |\n|---|---|---|---|---|\n",
        section.header, section.sentence);
    for (ConfigKey const& key : configKeys()) {
      if (key.section != section.name) continue;
      page += fmt::format("| `{}` | {} | {} | {} | {} |\n", key.name, rangeText(key), key.unit,
                          key.fallback.empty() ? "needed" : key.fallback, key.sentence);
    }
  }
  return page;
}

}  // namespace test
