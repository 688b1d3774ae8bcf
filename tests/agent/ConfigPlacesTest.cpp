#include "agent/config/ConfigPlaces.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "tests/support/Messages.h"

namespace test {
namespace {

using pimbsr::agent::keyOf;
using pimbsr::host::ConfigPart;
using pimbsr::host::ConfigPlace;

TEST(ConfigPlacesTest, PlacesAreCalledByTheKeysOfTheFileAndByTheirDescription) {
  struct Row {
    ConfigPlace place;
    char const* text;
    char const* key;
  };
  Row const rows[] = {
      {ConfigPlace{.part = ConfigPart::interface, .name = "eth0"}, "interface eth0", "interface.eth0"},
      {ConfigPlace{.part = ConfigPart::interface, .name = "eth0.100"}, "interface eth0.100",
       "interface.\"eth0.100\""},
      {ConfigPlace{.part = ConfigPart::border, .name = "eth0"}, "border eth0", "interface.eth0"},
      {ConfigPlace{.part = ConfigPart::border, .name = "eth0"}.group(prefix("239.1.0.0/16")),
       "border eth0, group 239.1.0.0/16", "interface.eth0.border: 239.1.0.0/16"},
      {ConfigPlace{.part = ConfigPart::border, .name = "eth0.1"}.list("a"), "border eth0.1, access list a",
       "interface.\"eth0.1\".border-lists: a"},
      {ConfigPlace{.part = ConfigPart::candidateBsr, .name = "eth0"}, "candidate-bsr eth0", "candidate-bsr"},
      {ConfigPlace{.part = ConfigPart::candidateBsr, .name = "eth0"}.at("interface"),
       "candidate-bsr eth0, interface", "candidate-bsr.interface"},
      {ConfigPlace{.part = ConfigPart::candidateBsr, .name = "eth0"}.group(prefix("239.1.0.0/16")),
       "candidate-bsr eth0, group 239.1.0.0/16", "candidate-bsr.groups: 239.1.0.0/16"},
      {ConfigPlace{.part = ConfigPart::candidateBsr, .name = "eth0"}
           .group(prefix("239.1.0.0/16"))
           .at("hash-mask-length"),
       "candidate-bsr eth0, group 239.1.0.0/16, hash-mask-length", "candidate-bsr.hash-mask-length"},
      {ConfigPlace{.part = ConfigPart::candidateRp, .name = "eth0"}.list("a"),
       "candidate-rp eth0, access list a", "candidate-rp.lists: a"},
      {ConfigPlace{.part = ConfigPart::candidateRp, .name = "eth0"}.list("a").at("priority"),
       "candidate-rp eth0, access list a, priority", "candidate-rp.priority"},
      {ConfigPlace{.part = ConfigPart::candidateRp, .name = "eth0"}.at("c-rp-adv-period"),
       "candidate-rp eth0, c-rp-adv-period", "candidate-rp.c-rp-adv-period"},
      {ConfigPlace{.part = ConfigPart::filter, .name = "sender-lists"}.list("a"),
       "filter sender-lists, access list a", "filter.sender-lists: a"},
      {ConfigPlace{.part = ConfigPart::accessList, .name = "a"}, "access-list a", "access-list.a"},
      {ConfigPlace{.part = ConfigPart::accessList, .name = "a.b"}, "access-list a.b", "access-list.\"a.b\""},
      {ConfigPlace{.part = ConfigPart::accessList, .name = "a"}.rule(20), "access-list a, rule 20",
       "access-list.a.rules: seq 20"},
      {ConfigPlace{.part = ConfigPart::accessList, .name = "a"}.rule(20).at("tni"),
       "access-list a, rule 20, tni", "access-list.a.rules.tni"},
      {ConfigPlace{.part = ConfigPart::timers}.at("bs-timeout"), "bs-timeout", "timers.bs-timeout"},
      {ConfigPlace{.part = ConfigPart::timers}.at("sz-timeout"), "sz-timeout", "timers.sz-timeout"},
      {ConfigPlace{.part = ConfigPart::checks}.at("on-subnet"), "checks, on-subnet", "checks.on-subnet"},
      {ConfigPlace{.part = ConfigPart::limits}.at("rps"), "limits, rps", "limits.rps"},
  };
  for (auto const& [place, text, key] : rows) {
    EXPECT_EQ(keyOf(place), key);
    EXPECT_EQ(textOf(place), text);
  }
}

TEST(ConfigPlacesTest, PlacesAreOrderedByPartNameItemAndKey) {
  ConfigPlace const bsr{.part = ConfigPart::candidateBsr, .name = "eth0"};
  ConfigPlace const other{.part = ConfigPart::candidateBsr, .name = "eth1"};
  ConfigPlace const ordered[] = {bsr,
                                 bsr.at("a"),
                                 bsr.group(prefix("224.0.0.0/4")),
                                 bsr.list("a"),
                                 bsr.list("a").at("a"),
                                 bsr.list("b"),
                                 other,
                                 {.part = ConfigPart::candidateRp, .name = "eth0"}};
  EXPECT_TRUE(std::is_sorted(std::begin(ordered), std::end(ordered)));
  EXPECT_EQ(std::adjacent_find(std::begin(ordered), std::end(ordered)), std::end(ordered));
}

}  // namespace
}  // namespace test
