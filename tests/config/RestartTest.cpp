// A start over a Status that a former run left: what the configuration no longer explains goes, and what only
// an access list explains goes and comes back.

#include <string>
#include <vector>

#include "runtime/Trace.h"
#include "tests/support/ConfigEngine.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

/// Notes which keys of the scrubbed collections come and go.
class ScrubWatch : public Bsr::Status::NotifieeConst {
 public:
  void onBsBorder(Lanet::IpGenPrefix const& key) override {
    note("border", key, !!notifier()->bsBorder(key));
  }
  void onCbsr(Lanet::IpGenPrefix const& key) override { note("cbsr", key, !!notifier()->cbsr(key)); }
  void onCrp(Lanet::IpGenAddr const& key) override { note("crp", key, !!notifier()->crp(key)); }
  void onCrpPermit(Lanet::IpGenPrefix const& key) override {
    note("permit", key, notifier()->crpPermit(key));
  }
  Texts heard;

 private:
  template <class Key>
  void note(std::string const& what, Key const& key, bool exists) {
    heard.push_back((exists ? "+" : "-") + what + " " + std::string(key.stringValue().view()));
  }
};

class Restart : public ConfigTest {
 protected:
  Restart() {
    engine.address("eth0", "10.0.0.1");
    watch->notifierIs(engine.status);
  }
  /// What a new start notifies.
  Texts restart() {
    engine.stop();
    engine.status->zoneGroupDelAll();
    engine.status->zoneAclDelAll();
    watch->heard.clear();
    forget();
    engine.start();
    return watch->heard;
  }
  /// Puts entries into Status without a machine, as a former run may have left them.
  void leaveCandidate(std::string const& zone, std::string const& intfName) {
    engine.status->cbsrIs(prefix(zone))->intfIdIs(intf(intfName));
  }
  void leaveRp(std::string const& address, std::string const& intfName, Texts const& ranges) {
    auto crp = engine.status->crpIs(addr(address));
    crp->intfIdIs(intf(intfName));
    for (std::string const& range : ranges) crp->prefixSetIs(prefix(range), true);
  }
  void leaveBorder(std::string const& range, std::string const& intfName) {
    engine.status->bsBorderIs(prefix(range))->intfIdIs(intf(intfName), true);
  }

  Zet::Ptr<ScrubWatch> watch = Zet::make<ScrubWatch>();
};

TEST_F(Restart, OverAnEmptyStatusNeitherBuildsRecordsNorScrubs) {
  Zet::TraceHandle::handle("Pim::Bsr::Config").levelIs(9, true);
  engine.rules("list", {"permit 239.1.0.0/16"});
  engine.bsrList("eth0", "list", 256, 30);
  engine.start();
  EXPECT_EQ(engine.groups("list"), "none");
  for (Zet::TraceLine const& line : context.traces) {
    EXPECT_EQ(line.text.find("doBuildBsrConfigAcl"), std::string::npos);
    EXPECT_EQ(line.text.find("doRemoveExtraStatusEntries"), std::string::npos);
  }
}

TEST_F(Restart, BuildsARecordForEachListNamedButNotForOptions) {
  engine.status->crpPermitIs(prefix("0.0.0.0/0"), true);
  engine.border("eth1")->bsrBorderAclIs("a", true);
  engine.bsrList("eth0", "b", 256, 30);
  engine.rp("eth0")->aclIs("c", true);
  engine.rp("eth0")->aclOptionsIs("d");
  engine.config->crpFilterAclIs("e", true);
  engine.start();
  for (char const* list : {"a", "b", "c", "e"}) EXPECT_EQ(engine.groups(list), "") << list;
  EXPECT_EQ(engine.groups("d"), "none");
}

TEST_F(Restart, OnePermitEntryIsEnoughToScrubAll) {
  engine.status->crpPermitIs(prefix("0.0.0.0/0"), true);
  EXPECT_EQ(restart(), (Texts{"-permit 0.0.0.0/0", "+permit 0.0.0.0/0"}));
  EXPECT_TRUE(tracedOnce("Deleting CRP Permit Prefix 0.0.0.0/0 from status"));
}

TEST_F(Restart, WhatOnlyAListExplainsGoesAndComesBack) {
  engine.rules("list", {"permit 239.1.0.0/16"});
  engine.bsrList("eth0", "list");
  engine.rp("eth0")->aclIs("list", true);
  engine.border("eth0")->bsrBorderAclIs("list", true);
  engine.start();
  std::string before = engine.all();
  EXPECT_EQ(restart(),
            (Texts{"-border 239.1.0.0/16", "-cbsr 239.1.0.0/16", "-crp 10.0.0.1", "-permit 0.0.0.0/0",
                   "+permit 0.0.0.0/0", "+border 239.1.0.0/16", "+crp 10.0.0.1", "+cbsr 239.1.0.0/16"}));
  EXPECT_EQ(engine.all(), before);
  EXPECT_TRUE(tracedOnce("Deleted Interface eth0 from prefix 239.1.0.0/16 in status"));
  EXPECT_TRUE(tracedOnce("Deleting prefix 239.1.0.0/16 from status"));
  EXPECT_TRUE(tracedOnce("Deleting zone 239.1.0.0/16 from CBSR status"));
  EXPECT_TRUE(tracedOnce("Deleting CRP 10.0.0.1 from status"));
}

TEST_F(Restart, WhatAGroupRangeExplainsStaysUntouchedAndIsCountedAnew) {
  engine.bsrGroup("eth0", "239.1.0.0/16");
  engine.rp("eth0")->groupRangeIs(prefix("239.2.0.0/16"), true);
  engine.border("eth0")->bsrBorderGrpIs(prefix("239.3.0.0/16"), true);
  engine.start();
  std::string before = engine.all();
  EXPECT_EQ(restart(), (Texts{"-permit 0.0.0.0/0", "+permit 0.0.0.0/0"}));
  EXPECT_EQ(engine.all(), before);
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 1u);
  EXPECT_EQ(engine.rpCount("eth0", "239.2.0.0/16"), 1u);
  EXPECT_EQ(engine.borderCount("eth0", "239.3.0.0/16"), 1u);
}

TEST_F(Restart, ASurvivingFilterIsCountedAnewAndStays) {
  engine.rules("filter", {"permit 10.0.0.0/8"});
  engine.config->crpFilterAclIs("filter", true);
  engine.start();
  EXPECT_EQ(restart(), Texts());
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 1u);
}

TEST_F(Restart, AnInterfaceThatIsNoBorderAnyMoreGoesAndTheOthersStay) {
  for (char const* name : {"eth0", "eth1", "eth2"}) leaveBorder("239.1.0.0/16", name);
  engine.border("eth0")->bsrBorderGrpIs(prefix("239.1.0.0/16"), true);
  engine.border("eth1")->bsrBorderGrpIs(prefix("239.2.0.0/16"), true);
  engine.start();
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0; 239.2.0.0/16: eth1");
}

TEST_F(Restart, AGroupRangeHeldAsFalseExplainsNothing) {
  leaveBorder("239.1.0.0/16", "eth0");
  engine.border("eth0")->bsrBorderGrpIs(prefix("239.1.0.0/16"), false);
  engine.start();
  EXPECT_EQ(engine.borders(), "");
}

TEST_F(Restart, ACandidateBsrWhoseInterfaceHasNoEntryGoesEvenIfAnotherNamesTheZone) {
  leaveCandidate("239.1.0.0/16", "eth9");
  engine.bsrGroup("eth1", "239.1.0.0/16");  // eth1 has no address
  engine.start();
  EXPECT_EQ(engine.cbsr(), "");
}

TEST_F(Restart, ACandidateBsrOfAnInterfaceWithoutAddressStaysIfAGroupExplainsIt) {
  leaveCandidate("239.1.0.0/16", "eth1");
  engine.bsrGroup("eth1", "239.1.0.0/16");
  engine.start();
  EXPECT_EQ(engine.cbsr().substr(0, 17), "239.1.0.0/16 eth1");
  EXPECT_EQ(engine.bsrCount("eth1", "239.1.0.0/16"), 0u);
}

TEST_F(Restart, ACandidateRpIsKeptWholeForOneOfItsRangesStaleOnesIncluded) {
  leaveRp("10.0.0.1", "eth0", {"239.1.0.0/16", "239.2.0.0/16"});
  engine.rp("eth0")->groupRangeIs(prefix("239.1.0.0/16"), true);
  engine.start();
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.2.0.0/16 | ");
  EXPECT_EQ(engine.rpCount("eth0", "239.2.0.0/16"), 0u);
}

TEST_F(Restart, ACandidateRpWithoutAnyOfItsRangesGoes) {
  leaveRp("10.0.0.9", "eth0", {"239.1.0.0/16"});
  leaveRp("10.0.0.8", "eth9", {"239.2.0.0/16"});
  engine.rp("eth0")->groupRangeIs(prefix("239.2.0.0/16"), true);
  engine.start();
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.2.0.0/16 | ");
}

TEST_F(Restart, AnAddressThatChangedMeanwhileLeavesTheOldCandidateRpThatARangeExplains) {
  leaveRp("10.0.0.9", "eth0", {"239.1.0.0/16"});
  engine.rp("eth0")->groupRangeIs(prefix("239.1.0.0/16"), true);
  engine.start();
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 | ; 10.0.0.9 eth0 60: 239.1.0.0/16 | ");
}

TEST_F(Restart, ClaimsAreNotScrubbed) {
  engine.status->crpPermitIs(prefix("0.0.0.0/0"), true);
  engine.status->zoneGroupIs(prefix("239.1.0.0/16"), intf("eth9"));
  engine.start();
  EXPECT_EQ(engine.claims(), "239.1.0.0/16 eth9");
}

// A scrub of a machine that runs ----------------------------------------------------------------------

/// Here the users of lists are known, so that a list can explain an entry.
class LateScrub : public Restart {
 protected:
  LateScrub() {
    engine.rules("list", {"permit 239.1.0.0/16", "permit 239.3.0.0/16"});
    engine.rules("empty", {});
    engine.start();
  }
  void scrub() { engine.machine->doRemoveExtraStatusEntries(); }
};

TEST_F(LateScrub, KeepsTheBordersThatAListExplains) {
  engine.border("eth0")->bsrBorderAclIs("list", true);
  leaveBorder("239.1.0.0/16", "eth1");                   // has no entry
  leaveBorder("239.2.0.0/16", "eth0");                   // is not permitted by the list
  engine.border("eth2")->bsrBorderAclIs("later", true);  // has a list of its own
  leaveBorder("239.3.0.0/16", "eth2");
  scrub();
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth0; 239.3.0.0/16: eth0");
}

TEST_F(LateScrub, TakesABorderOfAListThatItsInterfaceDoesntUse) {
  engine.border("eth0")->bsrBorderAclIs("list", true);
  engine.machine->bsrConfigAcl("list")->borderIntfDel(intf("eth0"));
  scrub();
  EXPECT_EQ(engine.borders(), "");
}

TEST_F(LateScrub, KeepsTheCandidateBsrsThatAListExplains) {
  engine.bsrList("eth0", "list");
  std::string before = engine.cbsr();
  leaveCandidate("239.2.0.0/16", "eth0");  // is not permitted by the list
  scrub();
  EXPECT_EQ(engine.cbsr(), before);
  EXPECT_EQ(before, "239.1.0.0/16 eth0 10.0.0.1 64/30/60; 239.3.0.0/16 eth0 10.0.0.1 64/30/60");
}

TEST_F(LateScrub, TakesACandidateBsrOfAListThatStillWaitsAndHasNoRecord) {
  engine.bsrList("eth0", "list", 256, 30);
  leaveCandidate("239.1.0.0/16", "eth0");
  scrub();
  EXPECT_EQ(engine.cbsr(), "");
}

TEST_F(LateScrub, TakesACandidateBsrOfAListThatItsInterfaceDoesntUse) {
  engine.bsrList("eth0", "list");
  engine.machine->bsrConfigAcl("list")->cbsrIntfDel(intf("eth0"));
  scrub();
  EXPECT_EQ(engine.cbsr(), "");
}

TEST_F(LateScrub, KeepsACandidateRpThatHasAllRangesOfOneOfItsListsStaleOnesIncluded) {
  engine.rules("other", {"permit 239.7.0.0/16"});
  engine.rp("eth0")->aclIs("list", true);
  engine.rp("eth0")->aclIs("other", true);
  engine.status->crp(addr("10.0.0.1"))->prefixSetDel(prefix("239.7.0.0/16"));
  engine.status->crp(addr("10.0.0.1"))->prefixSetIs(prefix("239.2.0.0/16"), true);
  scrub();
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.2.0.0/16 239.3.0.0/16 | ");
}

TEST_F(LateScrub, TakesACandidateRpThatLacksOneRangeOfItsList) {
  engine.rp("eth0")->aclIs("list", true);
  engine.status->crp(addr("10.0.0.1"))->prefixSetDel(prefix("239.3.0.0/16"));
  scrub();
  EXPECT_EQ(engine.crp(), "");
  EXPECT_TRUE(tracedOnce("Deleting CRP 10.0.0.1 from status"));
}

TEST_F(LateScrub, AListThatPermitsNothingExplainsAnyCandidateRpOfAnInterfaceThatUsesIt) {
  engine.rp("eth0")->aclIs("empty", true);
  leaveRp("10.0.0.9", "eth0", {"239.8.0.0/16"});
  scrub();
  EXPECT_EQ(engine.crp(), "10.0.0.9 eth0 60: 239.8.0.0/16 | ");
}

TEST_F(LateScrub, AListThatPermitsNothingExplainsNoCandidateRpOfAnInterfaceWithoutAddress) {
  engine.rp("eth0")->aclIs("empty", true);
  engine.rp("eth1")->aclIs("empty", true);
  leaveRp("10.0.0.9", "eth1", {"239.8.0.0/16"});
  scrub();
  EXPECT_EQ(engine.crp(), "");
}

}  // namespace
}  // namespace test
