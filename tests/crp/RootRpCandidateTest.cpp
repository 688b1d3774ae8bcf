#include <string>
#include <vector>

#include "tests/support/CrpEngine.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

char const* const globalZone = "224.0.0.0/4";
char const* const us = "203.0.113.1";

/// Our advertisement to the global zone's BSR.
std::string adv(std::string const& address, int priority, int holdtime, std::string const& rest) {
  return address + " > 10.0.0.1 rp " + address + " priority " + std::to_string(priority) + " holdtime " +
         std::to_string(holdtime) + " count " + rest;
}

/// A root machine in a network whose global zone has the BSR 10.0.0.1.
class RootRpCandidate : public CrpTest {
 protected:
  RootRpCandidate() { engine.electOther(globalZone, "10.0.0.1"); }
  Zet::U32 machines() const { return engine.root->rpCandidateSmCount(); }
};

TEST_F(RootRpCandidate, TwoRangesOfOnePriorityShareAMachineWhichGoesWithTheSecond) {
  engine.addCrp(us);
  engine.addRange(us, "239.1.0.0/16");
  auto machine = engine.advertiser(us);
  engine.addRange(us, "239.2.0.0/16");
  EXPECT_EQ(machines(), 1u);
  EXPECT_EQ(engine.advertiser(us), machine);
  engine.delRange(us, "239.1.0.0/16");
  EXPECT_EQ(machines(), 1u);
  EXPECT_TRUE(engine.takeAdvs().empty());
  engine.delRange(us, "239.2.0.0/16");
  EXPECT_EQ(machines(), 0u);
  EXPECT_EQ(engine.takeAdvs(), Texts{adv(us, 10, 0, "2: 239.1.0.0/16 239.2.0.0/16")});
  EXPECT_EQ(context.tracedAs("RpCandidateSm 203.0.113.1,10 deleted"), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_EQ(context.traced("Created RpcandidateSm with options 203.0.113.1,10"), 2);
}

TEST_F(RootRpCandidate, RemovingARangeEndsOnlyTheMachineOfItsAddressAndPriority) {
  for (char const* address : {"203.0.113.1", "203.0.113.2"}) {
    engine.addCrp(address);
    engine.addRange(address, "239.1.0.0/16", 10);
    engine.addRange(address, "239.2.0.0/16", 20);
  }
  engine.delRange("203.0.113.2", "239.2.0.0/16");
  EXPECT_EQ(engine.takeAdvs(), Texts{adv("203.0.113.2", 20, 0, "1: 239.2.0.0/16")});
  EXPECT_EQ(machines(), 3u);
  EXPECT_FALSE(engine.advertiser("203.0.113.2", 20));
}

TEST_F(RootRpCandidate, ARemovedCandidateWithdrawsOnceAtEachPriorityAndLeavesTheOthers) {
  for (char const* address : {"203.0.113.1", "203.0.113.2"}) {
    engine.addCrp(address);
    engine.addRange(address, "239.1.0.0/16", 10);
    engine.addRange(address, "239.2.0.0/16", 20);
    engine.addRange(address, "239.3.0.0/16", 20);
  }
  engine.status->crpDel(addr("203.0.113.1"));
  EXPECT_EQ(engine.takeAdvs(),
            (Texts{adv(us, 10, 0, "1: 239.1.0.0/16"), adv(us, 20, 0, "2: 239.2.0.0/16 239.3.0.0/16")}));
  EXPECT_EQ(machines(), 2u);
  EXPECT_TRUE(engine.advertiser("203.0.113.2", 10));
  EXPECT_TRUE(engine.advertiser("203.0.113.2", 20));
  EXPECT_EQ(context.tracedAs("Deleted CRP SM 203.0.113.1 with priority 10"), "Pim::Bsr::Sm 8 PimBsrSm");
  EXPECT_EQ(context.traced("Deleted CRP SM 203.0.113.1 with priority 20"), 1);
  EXPECT_EQ(context.tracedPrefix("RpCandidateSm 203.0.113.1"), 0);
}

TEST_F(RootRpCandidate, ARemovedCandidateWithoutABsrWithdrawsNowhere) {
  engine.addCrp(us);
  engine.addRange(us, "239.1.0.0/16");
  engine.status->bootstrapRouterDel(prefix(globalZone));
  engine.status->crpDel(addr(us));
  EXPECT_EQ(machines(), 0u);
  EXPECT_TRUE(engine.takeAdvs().empty());
}

TEST_F(RootRpCandidate, AChangedPriorityLeavesTheOldMachineAliveAndSilent) {
  context.randoms.assign(100, 0);
  engine.addCrp(us);
  engine.addRange(us, "239.1.0.0/16", 10);
  engine.runTo(1);
  engine.takeAdvs();
  engine.addRange(us, "239.1.0.0/16", 20);
  EXPECT_TRUE(engine.advertiser(us, 10));
  EXPECT_TRUE(engine.advertiser(us, 20));
  EXPECT_TRUE(engine.takeAdvs().empty());
  engine.runTo(61);
  EXPECT_EQ(engine.takeAdvs(), Texts(2, adv(us, 20, 180, "1: 239.1.0.0/16")));
  engine.delRange(us, "239.1.0.0/16");
  EXPECT_EQ(engine.takeAdvs(), Texts{adv(us, 20, 0, "1: 239.1.0.0/16")});
  EXPECT_TRUE(engine.advertiser(us, 10));
  engine.status->crpDel(addr(us));
  EXPECT_TRUE(engine.takeAdvs().empty());
  EXPECT_EQ(machines(), 0u);
}

TEST_F(RootRpCandidate, APriorityChangedBackFindsTheOldMachine) {
  engine.addCrp(us);
  engine.addRange(us, "239.1.0.0/16", 10);
  auto former = engine.advertiser(us, 10);
  engine.addRange(us, "239.1.0.0/16", 20);
  engine.addRange(us, "239.1.0.0/16", 10);
  EXPECT_EQ(engine.advertiser(us, 10), former);
  EXPECT_EQ(engine.advSets(us, 10), "224.0.0.0/4: 239.1.0.0/16");
  EXPECT_EQ(engine.advSets(us, 20), "224.0.0.0/4:");
}

TEST_F(RootRpCandidate, AnUnknownPriorityMakesNoMachineAndEndsNone) {
  engine.addCrp(us);
  engine.addRange(us, "239.1.0.0/16", 256);
  EXPECT_EQ(machines(), 0u);
  engine.addRange(us, "239.1.0.0/16", 10);
  engine.addRange(us, "239.1.0.0/16", 256);
  EXPECT_EQ(machines(), 1u);
  engine.delRange(us, "239.1.0.0/16");
  EXPECT_EQ(machines(), 1u);
  EXPECT_TRUE(engine.takeAdvs().empty());
}

TEST_F(RootRpCandidate, AnOptionWithoutItsRangeInTheSetKeepsTheMachine) {
  engine.addCrp(us);
  engine.addRange(us, "239.1.0.0/16", 10);
  engine.status->crp(addr(us))->prefixOptionsIs(prefix("239.2.0.0/16"))->priorityIs(10);
  engine.delRange(us, "239.1.0.0/16");
  EXPECT_EQ(machines(), 1u);
  EXPECT_TRUE(engine.takeAdvs().empty());
}

TEST_F(RootRpCandidate, WithoutAnAddressFamilyOptionsMakeNoMachineAndTheirEndSendsNothing) {
  engine.addCrp(us);
  engine.status->afIs(Lanet::AddressFamily::unset);
  engine.addRange(us, "239.1.0.0/16", 10);
  EXPECT_EQ(machines(), 0u);
  engine.delRange(us, "239.1.0.0/16");
  engine.status->crpDel(addr(us));
  EXPECT_TRUE(engine.takeAdvs().empty());
}

TEST_F(RootRpCandidate, ItsEndSendsNothing) {
  engine.addCrp(us);
  engine.addRange(us, "239.1.0.0/16");
  engine.stop();
  EXPECT_TRUE(engine.takeAdvs().empty());
  EXPECT_EQ(engine.wheel->armed(), 0u);
}

TEST_F(RootRpCandidate, ARestartTakesOverTheExistingCandidates) {
  engine.addCrp(us);
  engine.addRange(us, "239.1.0.0/16", 10);
  engine.addRange(us, "239.2.0.0/16", 20);
  engine.stop();
  engine.start();
  EXPECT_EQ(engine.advSets(us, 10), "224.0.0.0/4: 239.1.0.0/16");
  EXPECT_EQ(engine.advSets(us, 20), "224.0.0.0/4: 239.2.0.0/16");
}

}  // namespace
}  // namespace test
