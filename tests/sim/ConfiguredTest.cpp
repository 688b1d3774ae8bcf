// What a router is configured to do, as it follows from its statements, and its status tree beside that.
#include "sim/trial/Configured.h"

#include <gmock/gmock.h>

#include "sim/trial/StatusChecks.h"
#include "tests/sim/SimSupport.h"
#include "tests/support/Messages.h"

namespace test {
namespace {

using namespace pimbsr;
using Lanet::IpGenPrefix;
using sim::Configured;
using sim::Findings;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// Access lists ----------------------------------------------------------------------------------------

struct ListCase {
  char const* name;
  char const* rules;
  std::vector<char const*> permitted;
};

class PermittedTest : public testing::TestWithParam<ListCase> {};

TEST_P(PermittedTest, TheFirstRuleThatMatchesDecides) {
  Script script(fmt::format("router r1 loopback 10.0.0.1\naccess-list r1 list {}\n", GetParam().rules));
  std::vector<IpGenPrefix> expected;
  for (char const* text : GetParam().permitted) expected.push_back(prefix(text));
  host::AccessList const& list = script.node(0).config().accessLists.at("list");
  EXPECT_EQ(sim::permittedBy(list, Lanet::allGroups().v4Prefix()), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, PermittedTest,
    testing::Values(
        ListCase{"Nothing", "", {}}, ListCase{"OnePrefix", "permit 239.1.0.0/16", {"239.1.0.0/16"}},
        ListCase{"AllGroups", "permit 0.0.0.0/0", {"224.0.0.0/4"}},
        ListCase{"NoGroups", "permit 10.0.0.0/8", {}},
        ListCase{"AHalfIsCutOut", "deny 239.3.0.0/16 permit 239.2.0.0/15", {"239.2.0.0/16"}},
        ListCase{"ADenyAfterThePermitIsLate", "permit 239.2.0.0/15 deny 239.3.0.0/16", {"239.2.0.0/15"}},
        ListCase{"NeighborsAreOne", "permit 239.3.0.0/16 permit 239.2.0.0/16", {"239.2.0.0/15"}},
        ListCase{"NeighborsOfTwoPairsAreTwo",
                 "permit 239.1.0.0/16 permit 239.2.0.0/16",
                 {"239.1.0.0/16", "239.2.0.0/16"}},
        ListCase{"APartOfADeny", "deny 239.0.0.0/8 permit 239.1.0.0/16 permit 238.0.0.0/8", {"238.0.0.0/8"}},
        ListCase{"AHoleOfAHole",
                 "permit 239.0.1.0/24 deny 239.0.0.0/23 permit 239.0.0.0/22",
                 {"239.0.1.0/24", "239.0.2.0/23"}}),
    [](auto const& info) { return info.param.name; });

// A router --------------------------------------------------------------------------------------------

/// r1 has candidates, borders and permits, by themselves and by lists.
class ConfiguredTest : public testing::Test {
 protected:
  Configured configured() const { return Configured(script.node(0)); }
  Findings check() const { return sim::checkConfigured(script.node(0), configured()); }
  Zet::Ptr<Routing::Pim::Bsr::Status> status() const { return script.node(0).router()->status(); }

  Script script{
      "link l1 prefix 10.1.0.0/24\nrouter r1 loopback 172.16.0.1\ninterface r1 l1 10.1.0.1\n"
      "candidate-bsr r1 global address 10.1.0.1 priority 7\n"
      "access-list r1 zones permit 239.128.0.0/16\ncandidate-bsr r1 list zones address 172.16.0.1\n"
      "candidate-rp r1 239.1.0.0/16 address 172.16.0.1 priority 3 c-rp-adv-period 20\n"
      "access-list r1 ranges permit 239.2.0.0/16\n"
      "candidate-rp r1 list ranges address 172.16.0.1 priority 4 c-rp-adv-period 40\n"
      "border r1 l1 239.3.0.0/16\naccess-list r1 scopes permit 239.4.0.0/16\nborder r1 l1 list scopes\n"
      "permit r1 10.0.0.0/9\npermit r1 10.128.0.0/9\naccess-list r1 senders permit 172.16.0.0/24\n"
      "permit r1 list senders\nrun 100\n"};
};

TEST_F(ConfiguredTest, ListsCountAsWhatTheyPermit) {
  Configured all = configured();
  ASSERT_THAT(all.candidateBsrs, SizeIs(2));
  EXPECT_EQ(all.candidateBsrs.at(prefix("224.0.0.0/4")).priority, 7);
  EXPECT_EQ(all.candidateBsrs.at(prefix("239.128.0.0/16")).address, addr("172.16.0.1"));
  ASSERT_THAT(all.candidateRps, SizeIs(2));
  EXPECT_EQ(all.candidateRps.at({prefix("239.2.0.0/16"), addr("172.16.0.1")}).priority, 4u);
  EXPECT_EQ(all.candidateRps.at({prefix("239.1.0.0/16"), addr("172.16.0.1")}).cRpAdvPeriod, 40)
      << "the period is that of the address";
  EXPECT_TRUE(sim::isBorder(script.node(0), prefix("239.3.0.0/16"), 0));
  EXPECT_TRUE(sim::isBorder(script.node(0), prefix("239.4.0.0/16"), 0));
  EXPECT_FALSE(sim::isBorder(script.node(0), prefix("239.5.0.0/16"), 0));
  EXPECT_THAT(all.permits, ElementsAre(prefix("10.0.0.0/8"), prefix("172.16.0.0/24")));
  EXPECT_TRUE(all.permitsSender(addr("10.200.0.1")));
  EXPECT_FALSE(all.permitsSender(addr("11.0.0.1")));
}

TEST_F(ConfiguredTest, ACandidateWithoutAnAddressIsNone) {
  script.play("address r1 l1 none\n");
  EXPECT_FALSE(configured().candidateBsrs.contains(prefix("224.0.0.0/4")));
  EXPECT_TRUE(configured().candidateBsrs.contains(prefix("239.128.0.0/16")));
  EXPECT_THAT(check(), IsEmpty());
}

TEST_F(ConfiguredTest, AListThatIsMissingPermitsNothing) {
  script.play("no access-list r1 zones\nno access-list r1 ranges\n");
  EXPECT_THAT(configured().candidateBsrs, SizeIs(1));
  EXPECT_THAT(configured().candidateRps, SizeIs(1));
  EXPECT_THAT(check(), IsEmpty());
}

TEST_F(ConfiguredTest, TheStatusTreeHasWhatIsConfigured) { EXPECT_THAT(check(), IsEmpty()); }

TEST_F(ConfiguredTest, EachDifferenceOfTheStatusTreeIsFound) {
  status()->cbsr(prefix("239.128.0.0/16"))->priorityIs(9);
  EXPECT_THAT(check(), Contains("r1 has not its candidate BSR 172.16.0.1 on loopback for zone 239.128.0.0/16 "
                                "with priority 64, hash mask length 30 and BS_Period 60 s"));
  status()->crp(addr("172.16.0.1"))->prefixSetIs(prefix("239.77.0.0/16"), true);
  EXPECT_THAT(check(), Contains(HasSubstr("r1 has candidate RP 172.16.0.1 on loopback for 239.77.0.0/16")));
  status()->crpIs(addr("10.9.9.9"));
  EXPECT_THAT(check(), Contains("r1 has candidate RP 10.9.9.9 without ranges, which is not configured"));
  status()->crpPermitDel(prefix("10.0.0.0/8"));
  EXPECT_THAT(check(), Contains("r1 has not its permit of 10.0.0.0/8"));
  status()->bsBorderIs(prefix("239.9.0.0/16"));
  EXPECT_THAT(check(), Contains("r1 has border of 239.9.0.0/16 without interfaces, which is not configured"));
  status()->bsBorder(prefix("239.4.0.0/16"))->intfIdDelAll();
  EXPECT_THAT(check(), Contains("r1 has not its border of 239.4.0.0/16 at eth0"));
  status()->bsTimeoutIs(7);
  EXPECT_THAT(check(), Contains("r1 has BS_Timeout 7 s and SZ_Timeout 1300 s, which is not configured"));
}

TEST_F(ConfiguredTest, SzTimeoutIsTenBsTimeoutsAtLeast) {
  script.play("timers r1 bs-timeout 200 sz-timeout 300\n");
  EXPECT_EQ(status()->szTimeout(), 2000u);
  EXPECT_THAT(check(), IsEmpty());
}

// Counters --------------------------------------------------------------------------------------------

struct CounterCase {
  char const* name;
  void (*plant)(Routing::Pim::Bsr::PimBsrCounters&);
  char const* finding;
};

class CountersTest : public testing::TestWithParam<CounterCase> {};

TEST_P(CountersTest, ASumThatDoesNotHoldIsFound) {
  Script script(
      "link l1 prefix 10.1.0.0/24\nrouter r1\nrouter r2\ninterface r1 l1 10.1.0.1\n"
      "interface r2 l1 10.1.0.2\ncandidate-bsr r1 global\ncandidate-rp r2 239.1.0.0/16\nrun 100\n");
  for (Zet::U32 router : {0, 1}) EXPECT_THAT(sim::checkCounters(script.node(router)), IsEmpty());
  GetParam().plant(*script.node(1).router()->status()->counters());
  EXPECT_THAT(sim::checkCounters(script.node(1)), Contains(HasSubstr(GetParam().finding)));
}

using Counters = Routing::Pim::Bsr::PimBsrCounters;
INSTANTIATE_TEST_SUITE_P(
    Sums, CountersTest,
    testing::Values(
        CounterCase{"Received", [](Counters& c) { c.rxInc(1); }, " messages received, "},
        CounterCase{"Accepted", [](Counters& c) { c.rxSuccessInc(1); }, " messages accepted of both kinds, "},
        CounterCase{"Dropped", [](Counters& c) { c.rxErrorInc(1); }, " drops, "},
        CounterCase{"Bootstrap", [](Counters& c) { c.rxBsmInc(1); }, " Bootstrap Messages received, "},
        CounterCase{"Advertisements", [](Counters& c) { c.rxCrpAdvInc(1); }, " advertisements received, "},
        CounterCase{"Sent", [](Counters& c) { c.txInc(1000); }, " messages sent to others, "},
        CounterCase{"BothKinds", [](Counters& c) { c.rxIs(1000); }, " messages received of both kinds, "}),
    [](auto const& info) { return info.param.name; });

}  // namespace
}  // namespace test
