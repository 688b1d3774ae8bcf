#include "agent/config/ConfigChanges.h"

#include <gmock/gmock.h>

#include <string>

#include "agent/config/ConfigFile.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;

std::string changesOf(std::string const& before, std::string const& after) {
  agent::ConfigReading from = agent::readConfig(before, "f");
  agent::ConfigReading to = agent::readConfig(after, "f");
  EXPECT_TRUE(from.isSound() && to.isSound());
  return agent::changesOf(from.settings, to.settings);
}

std::string rp(std::string const& intf, std::string const& terms) {
  return "[[candidate-rp]]\ninterface = \"" + intf + "\"\n" + terms + '\n';
}

struct Case {
  char const* name;
  std::string before;
  std::string after;
  std::string changes;
};

void PrintTo(Case const& tried, std::ostream* out) { *out << tried.name; }

class ConfigChangesTest : public testing::TestWithParam<Case> {};

TEST_P(ConfigChangesTest, EachChangeHasTheNamesOfTheFile) {
  EXPECT_EQ(changesOf(GetParam().before, GetParam().after), GetParam().changes);
}

std::string const timers = "[timers]\nbs-timeout = 200\n";
std::string const scoped = "groups = [\"239.1.0.0/16\"]\npriority = ";
std::string const list = "[access-list.a]\nrules = [{action = \"permit\", prefix = \"10.0.";

Case const cases[] = {
    {"Nothing", rp("lo", ""), rp("lo", ""), ""},
    {"FirstOfTwoCandidatesIsRemoved", rp("eth0", "priority = 1") + rp("lo", "priority = 2"),
     rp("lo", "priority = 2"), "candidate-rp eth0 is removed"},
    {"Priority", rp("lo", ""), rp("lo", "priority = 3"), "candidate-rp lo: priority is 3, was 192"},
    {"OneOfTwoTablesOfAnInterface", rp("lo", "") + rp("lo", scoped + "5"), rp("lo", scoped + "6"),
     "candidate-rp lo 224.0.0.0/4 is removed; candidate-rp lo 239.1.0.0/16: priority is 6, was 5"},
    {"Interface", "[interface.eth0]\n", "[interface.eth0]\nborder = [\"239.1.0.0/16\"]\n[interface.eth1]\n",
     "interface eth0: border is new: [\"239.1.0.0/16\"]; interface eth0: border-lists is new: []; interface "
     "eth0: exact-borders is new: false; interface eth1 is new"},
    {"Timer", "", timers, "timers: bs-timeout is 200, was 130"},
    {"Rule", list + "0.0/16\"}]\n", list + "1.0/24\"}]\n",
     "access-list a: rule 10 is {seq = 10, action = \"permit\", prefix = \"10.0.1.0/24\"}, was {seq = 10, "
     "action "
     "= \"permit\", prefix = \"10.0.0.0/16\"}"},
    {"Trace", "", "[trace]\n\"Pim::Bsr::Sm\" = 4\n", "trace: Pim::Bsr::Sm is new: 4"},
};

INSTANTIATE_TEST_SUITE_P(Cases, ConfigChangesTest, testing::ValuesIn(cases),
                         [](auto const& tried) { return tried.param.name; });

TEST(ConfigChangesBoundTest, ChangesBeyondTenAreCounted) {
  std::string many;
  for (int i = 0; i < 50; ++i) many += "[interface.eth" + std::to_string(i) + "]\n";
  EXPECT_THAT(changesOf("", many), testing::EndsWith("interface eth17 is new; 40 more"));
}

}  // namespace
}  // namespace test
