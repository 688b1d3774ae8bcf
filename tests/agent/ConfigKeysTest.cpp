#include "agent/config/ConfigKeys.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "agent/config/ConfigFile.h"
#include "tests/agent/ConfigReference.h"

namespace test {
namespace {

using pimbsr::agent::closest;
using pimbsr::agent::ConfigKey;
using pimbsr::agent::configKeys;
using pimbsr::agent::configSections;
using pimbsr::agent::KeyType;
using pimbsr::agent::readConfig;
using pimbsr::agent::unknownKeyText;
using pimbsr::agent::validText;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// A file in which a key has a value, with all other needed keys.
std::string fileWith(ConfigKey const& key, std::string const& value) {
  std::string name(key.name == "HANDLE" ? "\"Pim::Bsr::Sm\"" : key.name);
  std::string line = name + " = " + value + "\n";
  std::string section(key.section);
  if (section == "interface.NAME") return "[interface.eth0]\n" + line;
  if (section == "access-list.NAME") return "[access-list.a]\n" + line;
  if (section == "access-list.NAME.rules") {
    return "[[access-list.a.rules]]\naction = \"permit\"\n" + line;
  }
  if (section.starts_with("candidate-")) return "[[" + section + "]]\ninterface = \"eth0\"\n" + line;
  return "[" + section + "]\n" + line;
}

std::string nameOf(testing::TestParamInfo<ConfigKey> const& info) {
  std::string name = std::string(info.param.section) + "_" + std::string(info.param.name);
  std::replace_if(
      name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
  return name;
}

class NumberKey : public testing::TestWithParam<ConfigKey> {
 protected:
  void expectRejected(std::string const& value) {
    auto reading = readConfig(fileWith(GetParam(), value), "file");
    ASSERT_THAT(reading.errors, SizeIs(1)) << value;
    EXPECT_THAT(reading.errors[0].text, HasSubstr("read " + value + "; valid is " + validText(GetParam())));
  }
};

std::vector<ConfigKey> numbers() {
  std::vector<ConfigKey> found;
  for (ConfigKey const& key : configKeys()) {
    if (key.type == KeyType::integer) found.push_back(key);
  }
  return found;
}

TEST_P(NumberKey, TakesTheEndsOfItsRangeAndNothingBeyond) {
  ConfigKey const& key = GetParam();
  for (Zet::U64 value : {key.least, key.most}) {
    EXPECT_THAT(readConfig(fileWith(key, std::to_string(value)), "file").errors, IsEmpty()) << value;
  }
  expectRejected(std::to_string(key.most + 1));
  expectRejected(key.least == 0 ? "-1" : std::to_string(key.least - 1));
  expectRejected("9223372036854775807");
  expectRejected("-9223372036854775808");
}

INSTANTIATE_TEST_SUITE_P(Each, NumberKey, testing::ValuesIn(numbers()), nameOf);

class DefaultOfKey : public testing::TestWithParam<ConfigKey> {};

/// Whether the table describes the default of a key.
bool isDescribed(ConfigKey const& key) {
  return key.name == "seq" || key.name == "address" || key.name == "mask" || key.name == "HANDLE";
}

std::vector<ConfigKey> withDefaults() {
  std::vector<ConfigKey> found;
  for (ConfigKey const& key : configKeys()) {
    if (!key.fallback.empty() && !isDescribed(key)) found.push_back(key);
  }
  return found;
}

TEST_P(DefaultOfKey, IsWhatCountsWithoutIt) {
  ConfigKey const& key = GetParam();
  std::string value(key.fallback.substr(0, key.fallback.find(", or ")));
  std::string with = fileWith(key, value);
  std::size_t at = with.find(std::string(key.name) + " = " + value);
  std::string without = with.substr(0, at) + with.substr(at + key.name.size() + 3 + value.size());
  auto said = readConfig(with, "with");
  auto unsaid = readConfig(without, "without");
  EXPECT_THAT(said.errors, IsEmpty());
  EXPECT_THAT(unsaid.errors, IsEmpty()) << without;
  bool isList = value == "[]";
  if (isList && key.name != "rules") {
    // An empty list is one that is there: it takes the place of all groups.
    said.settings.router.borders.clear();
    said.settings.router.candidateBsrs = unsaid.settings.router.candidateBsrs;
    said.settings.router.candidateRps = unsaid.settings.router.candidateRps;
  }
  EXPECT_EQ(said.settings, unsaid.settings);
}

INSTANTIATE_TEST_SUITE_P(Each, DefaultOfKey, testing::ValuesIn(withDefaults()), nameOf);

TEST(ConfigKeysTest, EveryKeyIsInOneTableOnce) {
  std::set<std::pair<std::string_view, std::string_view>> seen;
  for (ConfigKey const& key : configKeys()) {
    EXPECT_TRUE(seen.insert({key.section, key.name}).second) << key.name;
    auto sections = configSections();
    EXPECT_TRUE(std::any_of(sections.begin(), sections.end(), [&](auto const& section) {
      return section.name == key.section;
    })) << key.section;
    EXPECT_FALSE(key.sentence.empty()) << key.name;
  }
}

using pimbsr::agent::ConfigValue;
using Values = std::vector<ConfigValue const*>;

bool isOperatorsWord(std::string_view name) {
  return std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isupper(c) != 0; });
}

/// The values of a key in some tables, the items of a list each; a word in capitals stands for each key.
Values valuesOf(Values const& tables, std::string_view name) {
  Values found;
  for (ConfigValue const* table : tables) {
    for (pimbsr::agent::ConfigEntry const& entry : table->entries) {
      if (entry.key != name && !isOperatorsWord(name)) continue;
      found.push_back(&entry.value);
      for (ConfigValue const& item : entry.value.items) found.push_back(&item);
    }
  }
  return found;
}

bool hasKey(ConfigValue const& file, ConfigKey const& key) {
  Values tables{&file};
  std::istringstream path{std::string(key.section)};
  for (std::string part; std::getline(path, part, '.');) tables = valuesOf(tables, part);
  return !valuesOf(tables, key.name).empty();
}

TEST(ConfigKeysTest, TheFuzzerStartsFromASoundFileThatNamesEachKey) {
  std::ostringstream text;
  text << std::ifstream(PIMBSR_SOURCE_DIR "/fuzz/corpus/config/everything.toml", std::ios::binary).rdbuf();
  EXPECT_TRUE(readConfig(text.str(), "everything.toml").isSound());
  ConfigValue const file = pimbsr::agent::parseConfigText(text.str()).root;
  for (ConfigKey const& key : configKeys()) EXPECT_TRUE(hasKey(file, key)) << key.section << ' ' << key.name;
}

TEST(ConfigKeysTest, AMistypedNameIsSuggested) {
  std::string_view const names[] = {"priority", "interval", "interface"};
  EXPECT_EQ(closest("prioritty", names), "priority");
  EXPECT_EQ(closest("intervall", names), "interval");
  EXPECT_EQ(closest("Interface", names), "interface");
  EXPECT_EQ(closest("colour", names), "");
  EXPECT_EQ(closest("", names), "");
  EXPECT_EQ(closest(std::string(100000, 'p'), names), "");
}

TEST(ConfigKeysTest, AnUnknownNameIsAnsweredWithAllThatAreValid) {
  EXPECT_EQ(unknownKeyText("timers", "bstimeout"), "no such key; did you mean bs-timeout?");
  EXPECT_EQ(unknownKeyText("timers", "colour"), "no such key; valid here are bs-timeout, sz-timeout");
  EXPECT_EQ(unknownKeyText("state", "colour"), "no such key; valid here is directory");
  EXPECT_EQ(
      unknownKeyText("", "colour"),
      "no such key; valid here are interface, candidate-bsr, candidate-rp, filter, access-list, timers, "
      "checks, limits, corrections, control, state, trace");
}

TEST(ConfigKeysTest, ReferencePageIsThatOfTheTable) {
  std::string path = PIMBSR_SOURCE_DIR "/docs/configuration.md";
  if (std::getenv("PIMBSR_REWRITE") != nullptr) std::ofstream(path, std::ios::binary) << configReference();
  std::ostringstream page;
  page << std::ifstream(path, std::ios::binary).rdbuf();
  EXPECT_EQ(page.str(), configReference())
      << "read the difference; PIMBSR_REWRITE=1 in the environment takes it over";
}

// The table against what a setter takes ---------------------------------------------------------------

ConfigKey const& keyOf(std::string_view section, std::string_view name) {
  auto matches = [&](ConfigKey const& key) { return key.section == section && key.name == name; };
  auto found = std::find_if(configKeys().begin(), configKeys().end(), matches);
  EXPECT_NE(found, configKeys().end()) << section << '.' << name;
  return *found;
}

TEST(ConfigKeysTest, RangesAreThoseOfTheConfiguration) {
  using pimbsr::host::Configuration;
  struct Row {
    char const* section;
    char const* name;
    void (*set)(Configuration& configuration, Zet::U64 value);
  };
  static auto bsr = [](Configuration & c) -> auto& {
    return c.candidateBsrs["eth0"].groups[Lanet::IpGenPrefix::parse("224.0.0.0/4")];
  };
  Row const rows[] = {
      {"timers", "bs-timeout", [](auto& c, auto value) { c.bsTimeout = value; }},
      {"timers", "sz-timeout", [](auto& c, auto value) { c.szTimeout = value; }},
      {"candidate-bsr", "hash-mask-length", [](auto& c, auto value) { bsr(c).hashMaskLen = value; }},
      {"candidate-bsr", "bs-period", [](auto& c, auto value) { bsr(c).bsPeriod = value; }},
      {"candidate-rp", "c-rp-adv-period",
       [](auto& c, auto value) { c.candidateRps["eth0"].cRpAdvPeriod = value; }}};
  for (auto const& [section, name, set] : rows) {
    ConfigKey const& key = keyOf(section, name);
    auto errors = [&](Zet::U64 value) {
      Configuration configuration;
      set(configuration, value);
      return check(configuration);
    };
    EXPECT_THAT(errors(key.least), IsEmpty()) << name;
    EXPECT_THAT(errors(key.most), IsEmpty()) << name;
    std::vector<Zet::U64> beyond = {key.most + 1};
    if (key.least != 0) beyond.push_back(key.least - 1);
    for (Zet::U64 value : beyond) EXPECT_THAT(errors(value), SizeIs(1)) << name;
  }
}

}  // namespace
}  // namespace test
