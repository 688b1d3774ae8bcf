#include <fmt/format.h>
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "agent/config/ConfigFile.h"
#include "agent/config/ConfigLint.h"
#include "agent/config/ConfigWriter.h"
#include "host/Configuration.keys.h"

namespace test {
namespace {

using pimbsr::agent::ConfigFinding;
using pimbsr::agent::ConfigReading;
using pimbsr::agent::lint;
using pimbsr::agent::readConfig;
using pimbsr::agent::writeJson;
using pimbsr::agent::writeToml;
using pimbsr::host::ConfigKey;
using pimbsr::host::FilterListsKeys;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

using Lists = std::set<std::string> pimbsr::host::FilterLists::*;

/// Calls each(key, member) for every declared key of [filter].
template <class Each>
void forEachKey(Each const& each) {
  int count = 0;
  FilterListsKeys::forEach([&](ConfigKey const& key, Lists lists) {
    SCOPED_TRACE(key.name);
    each(key, lists);
    ++count;
  });
  EXPECT_GE(count, 3);
}

std::string filterOf(ConfigKey const& key, char const* lists) {
  return fmt::format("[interface.eth0]\n[filter]\n{} = [{}]\n", key.name, lists);
}

std::vector<std::string> lintsOf(std::string const& text) {
  std::vector<std::string> texts;
  for (ConfigFinding const& finding : lint(readConfig(text, "f"))) texts.push_back(finding.text);
  return texts;
}

TEST(ConfigFilterTest, EachKeyIsReadAndWrittenByItsDeclaration) {
  forEachKey([](ConfigKey const& key, Lists lists) {
    ConfigReading reading = readConfig(filterOf(key, R"("b", "a")"), "f");
    EXPECT_THAT(reading.errors, SizeIs(0));
    EXPECT_THAT(reading.settings.router.*lists, ElementsAre("a", "b"));
    std::string const written = writeToml(reading.settings);
    EXPECT_THAT(written, HasSubstr(fmt::format("\n{} = [\"a\", \"b\"]\n", key.name)));
    EXPECT_EQ(readConfig(written, "f").settings, reading.settings);
    EXPECT_EQ(writeJson(reading.settings)[std::string(key.member)].dump(), R"(["a","b"])");
  });
}

TEST(ConfigFilterTest, EachKeyTakesAListOnce) {
  forEachKey([](ConfigKey const& key, Lists) {
    ConfigReading reading = readConfig(filterOf(key, R"("a", "a")"), "f");
    ASSERT_THAT(reading.errors, SizeIs(1));
    EXPECT_THAT(reading.errors.front().text, HasSubstr(fmt::format("filter.{}: a is in line 3", key.name)));
  });
}

TEST(ConfigFilterTest, EachKeyReferencesItsListsAndMissesThoseThatAreNotThere) {
  forEachKey([](ConfigKey const& key, Lists) {
    std::string const list = "[access-list.a]\nrules = [{action = \"permit\", prefix = \"10.0.0.0/8\"}]\n";
    EXPECT_THAT(lintsOf(filterOf(key, R"("a")") + list), SizeIs(0));
    EXPECT_THAT(lintsOf(filterOf(key, R"("b")") + list),
                Contains(HasSubstr(fmt::format("filter.{}: b: there is no such list yet", key.name))));
  });
}

TEST(ConfigFilterTest, EachKeyWarnsOfListsThatPermitNothingOrGroupsAlone) {
  forEachKey([](ConfigKey const& key, Lists) {
    auto lintsOfRule = [&](char const* rule) {
      return lintsOf(filterOf(key, R"("a")") + "[access-list.a]\nrules = [" + rule + "]\n");
    };
    std::string const place = fmt::format("filter.{}: ", key.name);
    ASSERT_NE(key.unwiseLists.none, "");
    EXPECT_THAT(lintsOfRule(R"({action = "deny"})"), ElementsAre(place + std::string(key.unwiseLists.none)));
    auto lints = lintsOfRule(R"({action = "permit", prefix = "239.1.0.0/16"})");
    if (key.unwiseLists.groups.empty()) {
      EXPECT_THAT(lints, SizeIs(0));
    } else {
      EXPECT_THAT(lints, Contains(place + std::string(key.unwiseLists.groups)));
    }
  });
}

}  // namespace
}  // namespace test
