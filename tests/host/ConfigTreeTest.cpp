#include "host/ConfigTree.h"
#include "host/RouterParts.h"

#include <gmock/gmock.h>

#include "host/Router.h"
#include "tests/host/ConfigSupport.h"
#include "tests/support/RecordingPort.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using pimbsr::host::ConfigTree;
using pimbsr::host::Configuration;
using pimbsr::host::Router;
using testing::ElementsAre;
using testing::IsEmpty;
using Zet::Ptr;

/// A router that follows a configuration, with an address on eth0 and another on eth1.
class ConfiguredRouter : public testing::Test {
 protected:
  ConfiguredRouter() { start(); }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  void start(Ptr<Bsr::Status> const& status = nullptr) {
    router = std::make_unique<Router>(context, port,
                                      pimbsr::host::RouterOptions{.config = tree.config(),
                                                                  .clearConfig = tree.clearConfig(),
                                                                  .accessLists = tree.accessLists(),
                                                                  .status = status});
    for (char const* name : {"eth0", "eth1"}) router->interfaceIs(intf(name), 1500, {});
  }
  void apply() { ASSERT_THAT(tree.apply(context, wanted), IsEmpty()); }
  Ptr<Bsr::Status> status() const { return router->status(); }
  std::vector<std::string> zones() const {
    std::vector<std::string> found;
    for (auto at = status()->cbsrIterator(); at; ++at) found.emplace_back(at->zone().stringValue().view());
    std::sort(found.begin(), found.end());
    return found;
  }
  std::vector<std::string> permits() const {
    std::vector<std::string> found;
    for (auto at = status()->crpPermitIterator(); at; ++at) found.emplace_back(at.key().stringValue().view());
    std::sort(found.begin(), found.end());
    return found;
  }

  TestContext context;
  RecordingPort port;
  ConfigTree tree;
  Configuration wanted;
  std::unique_ptr<Router> router;
};

TEST_F(ConfiguredRouter, TimersComeFromTheConfiguration) {
  EXPECT_EQ(status()->bsTimeout(), 130u);
  wanted.bsTimeout = 60;
  wanted.szTimeout = 700;
  apply();
  EXPECT_EQ(status()->bsTimeout(), 60u);
  EXPECT_EQ(status()->szTimeout(), 700u);
}

TEST_F(ConfiguredRouter, CandidateBsrTakesTheAddressOfItsInterface) {
  wanted.candidateBsrs["eth0"].groups[prefix("224.0.0.0/4")] = {
      .priority = 7, .hashMaskLen = 8, .bsPeriod = 90};
  apply();
  Ptr<Bsr::BsrCandidate> candidate = status()->cbsr(prefix("224.0.0.0/4"));
  ASSERT_TRUE(candidate);
  EXPECT_EQ(candidate->address(), addr("192.0.2.9"));
  EXPECT_EQ(candidate->priority(), 7u);
  EXPECT_EQ(candidate->hashMaskLen(), 8u);
  EXPECT_EQ(candidate->bsPeriod(), 90u);
  port.addresses["eth0"] = "192.0.2.19";
  router->handleAddressChange(intf("eth0"));
  EXPECT_EQ(candidate->address(), addr("192.0.2.19"));
  router->interfaceDel(intf("eth0"));
  EXPECT_THAT(zones(), ElementsAre("224.0.0.0/4"));
  port.addresses.erase("eth0");
  router->handleAddressChange(intf("eth0"));
  EXPECT_THAT(zones(), IsEmpty());
}

TEST_F(ConfiguredRouter, InterfaceWithoutPimMayLendItsAddress) {
  wanted.candidateBsrs["loopback"].groups[prefix("224.0.0.0/4")] = {};
  apply();
  EXPECT_THAT(zones(), IsEmpty());
  port.addresses["loopback"] = "10.0.0.1";
  router->handleAddressChange(intf("loopback"));
  EXPECT_EQ(status()->cbsr(prefix("224.0.0.0/4"))->address(), addr("10.0.0.1"));
}

TEST_F(ConfiguredRouter, ListStandsForTheRangesThatItPermits) {
  wanted.accessLists["scopes"] = permitting({"239.1.0.0/16", "239.2.0.0/16"});
  wanted.candidateBsrs["eth0"].lists["scopes"] = {};
  apply();
  EXPECT_THAT(zones(), ElementsAre("239.1.0.0/16", "239.2.0.0/16"));
  wanted.accessLists["scopes"] = permitting({"239.2.0.0/16", "239.4.0.0/16"});
  apply();
  EXPECT_THAT(zones(), ElementsAre("239.2.0.0/16", "239.4.0.0/16"));
  wanted.candidateBsrs.clear();
  wanted.accessLists.clear();
  apply();
  EXPECT_THAT(zones(), IsEmpty());
  EXPECT_EQ(tree.accessLists()->aclCount(), 0u);
}

TEST_F(ConfiguredRouter, RulesThatAreNoLongerReferencedAreDropped) {
  wanted.accessLists["scopes"] = permitting({"239.1.0.0/16", "239.2.0.0/16"});
  apply();
  wanted.accessLists["scopes"] = permitting({"239.2.0.0/16"});
  apply();
  EXPECT_EQ(tree.accessLists()->acl("scopes")->ipRuleByIdCount(), 1u);
}

TEST_F(ConfiguredRouter, RangeThatMovesIsReleasedBeforeItIsClaimed) {
  wanted.candidateBsrs["eth1"].groups[prefix("239.1.0.0/16")] = {};
  apply();
  wanted.candidateBsrs["eth0"] = std::move(wanted.candidateBsrs["eth1"]);
  wanted.candidateBsrs.erase("eth1");
  apply();
  EXPECT_EQ(status()->cbsr(prefix("239.1.0.0/16"))->intfId(), intf("eth0"));
}

TEST_F(ConfiguredRouter, CandidateRpFollowsItsRangesAndPriorities) {
  auto& eth0 = wanted.candidateRps["eth0"];
  eth0.ranges.groups = {{prefix("239.1.0.0/16"), 10}, {prefix("239.2.0.0/16"), std::nullopt}};
  eth0.cRpAdvPeriod = 90;
  apply();
  Ptr<Bsr::RpCandidate> crp = status()->crp(addr("192.0.2.9"));
  ASSERT_TRUE(crp);
  EXPECT_EQ(crp->interval().value(), 90u);
  EXPECT_EQ(crp->prefixSetCount(), 2u);
  EXPECT_EQ(crp->prefixOptions(prefix("239.1.0.0/16"))->priority().value(), 10u);
  EXPECT_FALSE(crp->prefixOptions(prefix("239.2.0.0/16")));
  eth0.ranges.groups = {{prefix("239.2.0.0/16"), 20}};
  apply();
  EXPECT_EQ(crp->prefixSetCount(), 1u);
  EXPECT_FALSE(crp->prefixOptions(prefix("239.1.0.0/16")));
  EXPECT_EQ(crp->prefixOptions(prefix("239.2.0.0/16"))->priority().value(), 20u);
  eth0.ranges.groups.clear();
  apply();
  EXPECT_FALSE(status()->crp(addr("192.0.2.9")));
  wanted.candidateRps.clear();
  apply();
}

TEST_F(ConfiguredRouter, CandidateRpByListGivesTheListsPriority) {
  wanted.accessLists["ranges"] = permitting({"239.1.0.0/16"});
  wanted.candidateRps["eth0"].ranges.lists["ranges"] = 30;
  apply();
  Ptr<Bsr::RpCandidate> crp = status()->crp(addr("192.0.2.9"));
  ASSERT_TRUE(crp);
  EXPECT_EQ(crp->prefixOptions(prefix("239.1.0.0/16"))->priority().value(), 30u);
  wanted.candidateRps["eth0"].ranges.lists.clear();
  apply();
  EXPECT_FALSE(status()->crp(addr("192.0.2.9")));
}

TEST_F(ConfiguredRouter, BordersComeAndGo) {
  wanted.accessLists["scopes"] = permitting({"239.2.0.0/16"});
  wanted.borders["eth1"].groups[prefix("239.1.0.0/16")] = {};
  wanted.borders["eth1"].lists["scopes"] = {};
  apply();
  EXPECT_TRUE(status()->bsBorder(prefix("239.1.0.0/16"))->intfId(intf("eth1")));
  EXPECT_TRUE(status()->bsBorder(prefix("239.2.0.0/16"))->intfId(intf("eth1")));
  wanted.borders.clear();
  apply();
  EXPECT_EQ(status()->bsBorderCount(), 0u);
}

TEST_F(ConfiguredRouter, SendersArePermittedByLists) {
  EXPECT_THAT(permits(), ElementsAre("0.0.0.0/0"));
  wanted.accessLists["senders"] = permitting({"10.0.0.0/8"});
  wanted.senderLists = {"senders"};
  apply();
  EXPECT_THAT(permits(), ElementsAre("10.0.0.0/8"));
  wanted.senderLists.clear();
  apply();
  EXPECT_THAT(permits(), ElementsAre("0.0.0.0/0"));
}

TEST_F(ConfiguredRouter, ListOfGroupsThatBecomesOneOfSendersClosesTheFilterAtOnce) {
  wanted.accessLists["list"] = permitting({"10.0.0.0/8", "239.1.0.0/16"});
  wanted.candidateRps["eth0"].ranges.lists["list"] = 10;
  wanted.candidateBsrs["eth1"].lists["list"] = {};
  wanted.borders["eth0"].lists["list"] = {};
  apply();
  EXPECT_THAT(permits(), ElementsAre("0.0.0.0/0"));
  EXPECT_THAT(zones(), ElementsAre("239.1.0.0/16"));
  wanted.senderLists = {"list"};
  apply();
  EXPECT_THAT(permits(), ElementsAre("10.0.0.0/8", "239.1.0.0/16"));
  EXPECT_THAT(zones(), IsEmpty()) << "a list of senders gives no group ranges, as after a start";
  EXPECT_EQ(status()->crpCount(), 0u);
  EXPECT_EQ(status()->bsBorderCount(), 0u);
  wanted.senderLists.clear();
  apply();
  EXPECT_THAT(permits(), ElementsAre("0.0.0.0/0"));
  EXPECT_THAT(zones(), ElementsAre("239.1.0.0/16"));
  EXPECT_EQ(status()->crpCount(), 1u);
  EXPECT_TRUE(status()->bsBorder(prefix("239.1.0.0/16")));
}

TEST_F(ConfiguredRouter, ZoneOfARangeStaysWhenAListOfAnotherInterfaceThatPermittedItGoes) {
  wanted.candidateBsrs["eth0"].groups[prefix("239.1.0.0/16")] = {};
  wanted.accessLists["scopes"] = permitting({"239.1.0.0/16", "239.3.0.0/16"});
  wanted.candidateBsrs["eth1"].lists["scopes"] = {};
  EXPECT_EQ(tree.apply(context, wanted).size(), 1u) << "one interface may claim a zone";
  wanted.accessLists["scopes"] = permitting({"239.3.0.0/16"});
  apply();
  wanted.candidateBsrs.erase("eth1");
  wanted.accessLists.clear();
  apply();
  EXPECT_THAT(zones(), ElementsAre("239.1.0.0/16"));
}

/// What the lists of a role permit, as the status tree has it.
struct ListRole {
  char const* name;
  char const* permitted;
  void (*use)(Configuration& wanted);
  std::vector<std::string> (*held)(Bsr::Status& status);
  std::vector<std::string> without;  ///< what is held while the list permits nothing
};

template <class Iterator>
std::vector<std::string> keysOf(Iterator at) {
  std::vector<std::string> found;
  for (; at; ++at) found.emplace_back(at.key().stringValue().view());
  return found;
}

std::vector<std::string> rangesOfCrps(Bsr::Status& status) {
  std::vector<std::string> found;
  for (auto at = status.crpIterator(); at; ++at) {
    for (std::string const& range : keysOf(at->prefixSetIterator())) found.push_back(range);
  }
  return found;
}

ListRole const listRoles[] = {
    {"CandidateBsr",
     "239.1.0.0/16",
     [](auto& wanted) { wanted.candidateBsrs["eth0"].lists["later"] = {}; },
     [](auto& status) { return keysOf(status.cbsrIterator()); },
     {}},
    {"CandidateRp",
     "239.1.0.0/16",
     [](auto& wanted) { wanted.candidateRps["eth0"].ranges.lists["later"] = 10; },
     rangesOfCrps,
     {}},
    {"Border",
     "239.1.0.0/16",
     [](auto& wanted) { wanted.borders["eth0"].lists["later"] = {}; },
     [](auto& status) { return keysOf(status.bsBorderIterator()); },
     {}},
    {"Senders",
     "10.0.0.0/8",
     [](auto& wanted) { wanted.senderLists = {"later"}; },
     [](auto& status) { return keysOf(status.crpPermitIterator()); },
     {"0.0.0.0/0"}},
};

class NamedList : public ConfiguredRouter, public testing::WithParamInterface<ListRole> {
 protected:
  std::vector<std::string> held() const { return GetParam().held(*status()); }
};

TEST_P(NamedList, IsTakenUpWhenItIsMadeAndLetGoWhenItIsRemoved) {
  GetParam().use(wanted);
  apply();
  EXPECT_EQ(held(), GetParam().without) << "named, and not there yet";
  wanted.accessLists["later"] = permitting({GetParam().permitted});
  apply();
  EXPECT_THAT(held(), ElementsAre(GetParam().permitted));
  wanted.accessLists.clear();
  apply();
  EXPECT_EQ(held(), GetParam().without) << "removed, and still named";
  EXPECT_EQ(tree.accessLists()->aclCount(), 0u);
  wanted.accessLists["later"] = permitting({GetParam().permitted});
  apply();
  EXPECT_THAT(held(), ElementsAre(GetParam().permitted)) << "made again";
  wanted = {};
  apply();
  EXPECT_EQ(held(), GetParam().without) << "removed together with its use";
}

TEST_P(NamedList, MayBeRemovedBeforeItsUseIs) {
  GetParam().use(wanted);
  wanted.accessLists["later"] = permitting({GetParam().permitted});
  apply();
  wanted.accessLists.clear();
  apply();
  wanted = {};
  apply();
  EXPECT_EQ(held(), GetParam().without);
}

INSTANTIATE_TEST_SUITE_P(OfEachRole, NamedList, testing::ValuesIn(listRoles),
                         [](auto const& one) { return std::string(one.param.name); });

TEST_F(ConfiguredRouter, ListThatIsNotThereYetMovesToAnotherInterface) {
  wanted.candidateBsrs["eth0"].lists["later"] = {};
  apply();
  wanted.candidateBsrs["eth1"] = std::move(wanted.candidateBsrs["eth0"]);
  wanted.candidateBsrs.erase("eth0");
  wanted.accessLists["later"] = permitting({"239.1.0.0/16"});
  apply();
  EXPECT_EQ(status()->cbsr(prefix("239.1.0.0/16"))->intfId(), intf("eth1"));
}

TEST_F(ConfiguredRouter, InvalidConfigurationChangesNothing) {
  wanted.candidateBsrs["eth0"].groups[prefix("224.0.0.0/4")] = {};
  apply();
  Configuration before = wanted;
  wanted.bsTimeout = 1;
  wanted.candidateBsrs.clear();
  EXPECT_EQ(tree.apply(context, wanted).size(), 1u);
  EXPECT_THAT(zones(), ElementsAre("224.0.0.0/4"));
  EXPECT_EQ(tree.applied(), before);
}

TEST_F(ConfiguredRouter, RuleThatCannotBeCopiedChangesNothing) {
  wanted.candidateBsrs["eth0"].groups[prefix("224.0.0.0/4")] = {};
  apply();
  wanted.candidateBsrs.clear();
  EXPECT_THROW(wanted.accessLists["odd"][10].filter.tniIs(1 << 24), Zet::RangeException);
  EXPECT_EQ(tree.apply(context, wanted).size(), 1u);
  EXPECT_THAT(zones(), ElementsAre("224.0.0.0/4"));
}

TEST_F(ConfiguredRouter, EntryThatAnotherWriterDeletedIsNoError) {
  wanted.candidateBsrs["eth0"].groups[prefix("224.0.0.0/4")] = {};
  apply();
  {
    Zet::Context::Scope scope(context);
    tree.config()->bsrCandidateConfigDel(intf("eth0"));
  }
  wanted.candidateBsrs.clear();
  apply();
  EXPECT_THAT(zones(), IsEmpty());
}

TEST_F(ConfiguredRouter, SameConfigurationAgainChangesNothing) {
  wanted.accessLists["scopes"] = permitting({"239.1.0.0/16"});
  wanted.candidateBsrs["eth0"].lists["scopes"] = {};
  wanted.candidateRps["eth0"].ranges.groups[prefix("239.2.0.0/16")] = 10;
  apply();
  context.traces.clear();
  apply();
  EXPECT_TRUE(context.traces.empty());
}

TEST_F(ConfiguredRouter, StatusIsKeptOverARestartAndWhatIsConfiguredNoMoreGoes) {
  wanted.candidateBsrs["eth0"].groups = {{prefix("224.0.0.0/4"), {}}, {prefix("239.1.0.0/16"), {}}};
  apply();
  Ptr<Bsr::Status> kept = status();
  Ptr<Bsr::BsrCandidate> candidate = kept->cbsr(prefix("224.0.0.0/4"));
  router = nullptr;
  wanted.candidateBsrs["eth1"].groups[prefix("239.1.0.0/16")] = {};
  wanted.candidateBsrs["eth0"].groups.erase(prefix("239.1.0.0/16"));
  apply();
  start(kept);
  EXPECT_EQ(status()->cbsr(prefix("224.0.0.0/4")), candidate);
  EXPECT_EQ(status()->cbsr(prefix("239.1.0.0/16"))->intfId(), intf("eth1"));
}

TEST_F(ConfiguredRouter, ClearingIsAskedForByTheConfiguration) {
  partsOf(*router).messageCounters->rxIs(4, 17);
  Zet::Context::Scope scope(context);
  tree.clearConfig()->countersCountIs(1);
  EXPECT_EQ(partsOf(*router).messageCounters->rx(4), 0u);
}

using ConfiguredRouterDeath = ConfiguredRouter;

TEST_F(ConfiguredRouterDeath, CandidaciesAreNotWrittenPastTheConfiguration) {
  EXPECT_DEATH(router->candidateBsrIs(prefix("224.0.0.0/4"), {}), "!parts_->configSm");
}

}  // namespace
}  // namespace test
