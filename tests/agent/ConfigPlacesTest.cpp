#include "agent/config/ConfigPlaces.h"

#include <gmock/gmock.h>

namespace test {
namespace {

using pimbsr::agent::keyOf;

TEST(ConfigPlacesTest, PlacesAreCalledByTheKeysOfTheFile) {
  struct Row {
    char const* place;
    char const* key;
  };
  Row const rows[] = {
      {"interface eth0", "interface.eth0"},
      {"interface eth0.100", "interface.\"eth0.100\""},
      {"border eth0", "interface.eth0"},
      {"border eth0, group 239.1.0.0/16", "interface.eth0.border: 239.1.0.0/16"},
      {"border eth0.1, access list a", "interface.\"eth0.1\".border-lists: a"},
      {"candidate-bsr eth0", "candidate-bsr"},
      {"candidate-bsr eth0, interface", "candidate-bsr.interface"},
      {"candidate-bsr eth0, group 239.1.0.0/16", "candidate-bsr.groups: 239.1.0.0/16"},
      {"candidate-bsr eth0, group 239.1.0.0/16, hash-mask-length", "candidate-bsr.hash-mask-length"},
      {"candidate-rp eth0, access list a", "candidate-rp.lists: a"},
      {"candidate-rp eth0, access list a, priority", "candidate-rp.priority"},
      {"candidate-rp eth0, interval", "candidate-rp.interval"},
      {"senders, access list a", "filter.sender-lists: a"},
      {"access-list a", "access-list.a"},
      {"access-list a.b", "access-list.\"a.b\""},
      {"access-list a, rule 20", "access-list.a.rules: seq 20"},
      {"access-list a, rule 20, tni", "access-list.a.rules.tni"},
      {"hold-time", "timers.hold-time"},
      {"zone-timeout", "timers.zone-timeout"},
      {"checks, on-subnet", "checks.on-subnet"},
      {"limits, rps", "limits.rps"},
  };
  for (auto const& [place, key] : rows) EXPECT_EQ(keyOf(place), key) << place;
}

}  // namespace
}  // namespace test
