// Candidate BSRs from configuration.

#include <string>
#include <vector>

#include "tests/support/ConfigEngine.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

class BsrConfig : public ConfigTest {
 protected:
  BsrConfig() {
    engine.rules("list", {"permit 239.1.0.0/16", "permit 239.3.0.0/16"});
    engine.start();
  }
  Zet::Ptr<Bsr::BsrCandidateConfig> entry() { return engine.config->bsrCandidateConfigIs(intf("eth0")); }
  void up() { engine.address("eth0", "10.0.0.1"); }
  void down() { engine.address("eth0", "0.0.0.0"); }
};

// The address -----------------------------------------------------------------------------------------

TEST_F(BsrConfig, WithoutAnAddressNothingIsWrittenAndTheFirstOneBringsAll) {
  engine.bsrGroup("eth0", "239.9.0.0/16", 7, 20)->intervalIs(30);
  engine.bsrList("eth0", "list", 8, 21)->intervalIs(31);
  EXPECT_EQ(engine.cbsr(), "");
  EXPECT_EQ(engine.claims(), "");
  EXPECT_TRUE(tracedOnce("New BSR candidate configured for interface eth0"));
  EXPECT_TRUE(tracedOnce("Interface eth0 assigned IP 0.0.0.0 for the first time."));
  EXPECT_EQ(context.traced("Deferred initialization since IP address for interface eth0 is not set"), 2);
  up();
  EXPECT_EQ(engine.cbsr(),
            "239.1.0.0/16 eth0 10.0.0.1 8/21/31; 239.3.0.0/16 eth0 10.0.0.1 8/21/31; "
            "239.9.0.0/16 eth0 10.0.0.1 7/20/30");
  EXPECT_EQ(engine.claims(), "239.9.0.0/16 eth0; list eth0");
}

TEST_F(BsrConfig, EachStepOfACandidateIsTraced) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16");
  for (char const* text : {"Interface eth0 assigned IP 10.0.0.1 for the first time.",
                           "239.9.0.0/16 forms zone with interface eth0",
                           "Created refcount object for interface eth0", "Created CBSR zone 239.9.0.0/16",
                           "Created candidate BSR for zone 239.9.0.0/16 with IP 10.0.0.1, Priority=64, "
                           "HashMaskLen=30, Interval=60",
                           "PrefixCounter for prefix 239.9.0.0/16 is 1"}) {
    EXPECT_TRUE(tracedOnce(text)) << text;
  }
  engine.bsrList("eth0", "list");
  for (char const* text :
       {"Acl list forms zone with interface eth0", "Created BsrConfigAcl object for acl list",
        "Added interface eth0 to BsrConfigAcl object for acl list", "Created zone 239.1.0.0/16 CBSR set"}) {
    EXPECT_TRUE(tracedOnce(text)) << text;
  }
}

TEST_F(BsrConfig, ALostAddressTakesEntriesAndLeavesCountsAndTheNextOneWritesThemBack) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16");
  engine.bsrList("eth0", "list");
  std::string before = engine.cbsr();
  down();
  EXPECT_EQ(engine.cbsr(), "");
  EXPECT_EQ(engine.bsrCount("eth0", "239.9.0.0/16"), 1u);
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 1u);
  EXPECT_EQ(engine.claims(), "239.9.0.0/16 eth0; list eth0");
  EXPECT_EQ(context.traced("Interface eth0 IP unset"), 3);
  up();
  EXPECT_EQ(engine.cbsr(), before);
  EXPECT_EQ(engine.bsrCount("eth0", "239.9.0.0/16"), 1u);
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 1u);
}

TEST_F(BsrConfig, ASecondUnsetEventWritesAGroupBackWithoutAddressAndNoListsEntry) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16");
  engine.bsrList("eth0", "list");
  down();
  engine.machine->bsrCandidateConfig(intf("eth0"))->handleIpAddress();
  EXPECT_EQ(engine.cbsr(), "239.9.0.0/16 eth0 0.0.0.0 64/30/60");
  EXPECT_EQ(context.traced("Interface eth0 IP already unset. Nothing to do."), 2);
  EXPECT_TRUE(tracedOnce("Interface eth0 assigned IP 0.0.0.0"));
}

TEST_F(BsrConfig, AnotherAddressIsRewrittenAndNothingElse) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16");
  engine.bsrList("eth0", "list");
  auto kept = engine.status->cbsr(prefix("239.1.0.0/16"));
  kept->priorityIs(99);  // as if another source had written it
  engine.address("eth0", "10.0.0.2");
  EXPECT_EQ(engine.cbsr(),
            "239.1.0.0/16 eth0 10.0.0.2 99/30/60; 239.3.0.0/16 eth0 10.0.0.2 64/30/60; "
            "239.9.0.0/16 eth0 10.0.0.2 64/30/60");
  EXPECT_EQ(engine.status->cbsr(prefix("239.1.0.0/16")), kept);
  EXPECT_EQ(context.traced("Interface eth0 assigned IP 10.0.0.2"), 3);
}

TEST_F(BsrConfig, ARangeThatStillWaitsHasNoEntryWhateverHappensToTheAddress) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16", 64, 128);
  engine.bsrList("eth0", "list", 256, 30);
  engine.address("eth0", "10.0.0.2");
  down();
  up();
  EXPECT_EQ(engine.cbsr(), "");
}

TEST_F(BsrConfig, ARangeThatComesWhileTheAddressIsLostIsWrittenWithoutAddress) {
  up();
  engine.bsrGroup("eth0", "239.8.0.0/16");
  down();
  engine.bsrGroup("eth0", "239.9.0.0/16");
  EXPECT_EQ(engine.cbsr(), "239.9.0.0/16 eth0 0.0.0.0 64/30/60");
  up();
  EXPECT_EQ(engine.cbsr(), "239.8.0.0/16 eth0 10.0.0.1 64/30/60; 239.9.0.0/16 eth0 10.0.0.1 64/30/60");
}

// Priority, hash mask length, interval ----------------------------------------------------------------

TEST_F(BsrConfig, AGroupWithoutHashMaskLengthWaitsWithoutClaimAndComesToLifeWithIt) {
  up();
  auto group = engine.bsrGroup("eth0", "239.9.0.0/16", 64, 128);
  EXPECT_EQ(engine.cbsr() + engine.claims(), "");
  EXPECT_EQ(context.traced("Skipping initialization since priority or hashmask lengths are not set"), 2);
  group->hashMaskLenIs(30);
  EXPECT_EQ(engine.cbsr(), "239.9.0.0/16 eth0 10.0.0.1 64/30/60");
  EXPECT_EQ(engine.claims(), "239.9.0.0/16 eth0");
}

TEST_F(BsrConfig, AnIntervalAloneNotifiesNoneAndAWaitingListHasNoRecord) {
  up();
  auto acl = engine.bsrList("eth0", "list", 256, 128);
  acl->intervalIs(30);
  EXPECT_EQ(engine.groups("list"), "none");
  acl->hashMaskLenIs(30);
  acl->priorityIs(5);
  EXPECT_EQ(engine.groups("list"), "239.1.0.0/16 239.3.0.0/16");
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 1u);
}

TEST_F(BsrConfig, AChangedValueOfAGroupIsWrittenAlone) {
  up();
  auto group = engine.bsrGroup("eth0", "239.9.0.0/16");
  group->priorityIs(9);
  group->hashMaskLenIs(8);
  group->intervalIs(77);
  EXPECT_EQ(engine.cbsr(), "239.9.0.0/16 eth0 10.0.0.1 9/8/77");
  std::string who = "Candidate BSR in Zone 239.9.0.0/16 with IP 10.0.0.1 changed to ";
  EXPECT_TRUE(tracedOnce("Priority for " + who + "9"));
  EXPECT_TRUE(tracedOnce("HashMaskLen for " + who + "8"));
  EXPECT_TRUE(tracedOnce("Interval for " + who + "77"));
  EXPECT_EQ(engine.bsrCount("eth0", "239.9.0.0/16"), 1u);
}

TEST_F(BsrConfig, AChangedValueOfAListIsWrittenToEachOfItsRanges) {
  up();
  auto acl = engine.bsrList("eth0", "list");
  acl->priorityIs(9);
  acl->hashMaskLenIs(8);
  acl->intervalIs(77);
  EXPECT_EQ(engine.cbsr(), "239.1.0.0/16 eth0 10.0.0.1 9/8/77; 239.3.0.0/16 eth0 10.0.0.1 9/8/77");
}

TEST_F(BsrConfig, AValueThatBecomesUnknownAgainIsWrittenAndEndsNothing) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16")->priorityIs(256);
  EXPECT_EQ(engine.cbsr(), "239.9.0.0/16 eth0 10.0.0.1 256/30/60");
}

TEST_F(BsrConfig, AChangedValueWhileTheAddressIsLostMakesNoEntry) {
  up();
  auto group = engine.bsrGroup("eth0", "239.9.0.0/16");
  auto list = engine.bsrList("eth0", "list");
  down();
  group->priorityIs(9);
  list->priorityIs(8);
  EXPECT_EQ(engine.cbsr(), "");
  up();
  EXPECT_EQ(engine.cbsr(),
            "239.1.0.0/16 eth0 10.0.0.1 8/30/60; 239.3.0.0/16 eth0 10.0.0.1 8/30/60; "
            "239.9.0.0/16 eth0 10.0.0.1 9/30/60");
}

// Several sources of one zone -------------------------------------------------------------------------

TEST_F(BsrConfig, AGroupAndAListOnOneInterfaceCountTwoForOneEntry) {
  up();
  engine.bsrGroup("eth0", "239.1.0.0/16", 5, 30);
  engine.bsrList("eth0", "list", 6, 30);
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 2u);
  EXPECT_EQ(engine.status->cbsrCount(), 2u);
  entry()->aclDel("list");
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 1u);
  // The list wrote last, and what it wrote stays.
  EXPECT_EQ(engine.cbsr(), "239.1.0.0/16 eth0 10.0.0.1 6/30/60");
  entry()->groupDel(prefix("239.1.0.0/16"));
  EXPECT_EQ(engine.cbsr(), "");
}

TEST_F(BsrConfig, SourcesOnTwoInterfacesCountEachForItselfAndTheFirstToGoTakesTheEntry) {
  up();
  engine.address("eth1", "10.0.1.1");
  engine.bsrGroup("eth0", "239.1.0.0/16", 5, 30);
  engine.bsrList("eth1", "list", 6, 31);
  EXPECT_EQ(engine.cbsr(), "239.1.0.0/16 eth1 10.0.1.1 6/31/60; 239.3.0.0/16 eth1 10.0.1.1 6/31/60");
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 1u);
  EXPECT_EQ(engine.bsrCount("eth1", "239.1.0.0/16"), 1u);
  entry()->groupDel(prefix("239.1.0.0/16"));
  EXPECT_EQ(engine.cbsr(), "239.3.0.0/16 eth1 10.0.1.1 6/31/60");
  EXPECT_EQ(engine.bsrCount("eth1", "239.1.0.0/16"), 1u);
}

// Claims ----------------------------------------------------------------------------------------------

using BsrConfigDeathTest = BsrConfig;

TEST_F(BsrConfigDeathTest, ASecondInterfaceThatClaimsARangeOrAListEndsTheProcess) {
  up();
  engine.address("eth1", "10.0.1.1");
  engine.bsrGroup("eth0", "239.9.0.0/16");
  engine.bsrList("eth0", "list");
  char const* claim = "intfId == zetBsrCandidateConfig\\(\\)->intfId\\(\\)";
  EXPECT_DEATH(engine.bsrGroup("eth1", "239.9.0.0/16"), claim);
  EXPECT_DEATH(engine.bsrList("eth1", "list"), claim);
}

TEST_F(BsrConfig, ARangeMovesIfItIsReleasedBeforeItIsClaimed) {
  up();
  engine.address("eth1", "10.0.1.1");
  engine.bsrGroup("eth0", "239.9.0.0/16");
  entry()->groupDel(prefix("239.9.0.0/16"));
  engine.bsrGroup("eth1", "239.9.0.0/16");
  EXPECT_EQ(engine.cbsr(), "239.9.0.0/16 eth1 10.0.1.1 64/30/60");
  EXPECT_EQ(engine.claims(), "239.9.0.0/16 eth1");
}

TEST_F(BsrConfig, TheInterfaceThatHoldsTheClaimMayInitializeAgainAndCountsOnceMore) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16");
  engine.machine->bsrCandidateConfig(intf("eth0"))->group(prefix("239.9.0.0/16"))->handleInitialize();
  EXPECT_TRUE(tracedOnce("Interface eth0 already BSR for zone. Asserting..."));
  EXPECT_EQ(engine.bsrCount("eth0", "239.9.0.0/16"), 2u);
}

TEST_F(BsrConfig, AnInterfaceThatGoesReleasesTheClaimsOfItsWaitingRangesToo) {
  up();
  engine.address("eth1", "10.0.1.1");
  engine.bsrGroup("eth0", "239.9.0.0/16");
  engine.bsrGroup("eth1", "239.9.0.0/16", 64, 128);  // waits, and so claims nothing
  engine.config->bsrCandidateConfigDel(intf("eth1"));
  EXPECT_EQ(engine.claims(), "");
  EXPECT_EQ(engine.cbsr(), "239.9.0.0/16 eth0 10.0.0.1 64/30/60");
}

// Rules -----------------------------------------------------------------------------------------------

TEST_F(BsrConfig, ARuleAddsACandidateWithTheListsValuesAndTakesIt) {
  up();
  engine.bsrList("eth0", "list", 6, 31);
  engine.rule("list", 30, "permit 239.5.0.0/16");
  EXPECT_EQ(engine.cbsr(),
            "239.1.0.0/16 eth0 10.0.0.1 6/31/60; 239.3.0.0/16 eth0 10.0.0.1 6/31/60; "
            "239.5.0.0/16 eth0 10.0.0.1 6/31/60");
  EXPECT_TRUE(tracedOnce("Created zone 239.5.0.0/16 for CBSR"));
  engine.bsrGroup("eth0", "239.3.0.0/16");
  engine.rules("list", {"permit 239.1.0.0/16"});
  EXPECT_TRUE(tracedOnce("Removing CBSR with key 239.5.0.0/16 for zone 239.5.0.0/16"));
  EXPECT_TRUE(tracedOnce("Deleted candidate BSR for zone 239.5.0.0/16"));
  EXPECT_EQ(engine.cbsr(), "239.1.0.0/16 eth0 10.0.0.1 6/31/60; 239.3.0.0/16 eth0 10.0.0.1 64/30/60");
  EXPECT_EQ(engine.bsrCount("eth0", "239.3.0.0/16"), 1u);
}

TEST_F(BsrConfig, ARuleWhileTheAddressIsLostMakesAnEntryWithoutAddress) {
  up();
  engine.bsrList("eth0", "list");
  down();
  engine.rule("list", 30, "permit 239.5.0.0/16");
  EXPECT_EQ(engine.cbsr(), "239.5.0.0/16 eth0 0.0.0.0 64/30/60");
}

TEST_F(BsrConfig, ARemovedListDeactivatesItsRangesKeepsItsUserAndReactivatesThem) {
  up();
  engine.bsrList("eth0", "list");
  engine.lists->aclDel("list");
  EXPECT_EQ(engine.cbsr(), "");
  EXPECT_TRUE(engine.machine->bsrConfigAcl("list")->cbsrIntf(intf("eth0")));
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 0u);
  engine.rules("list", {"permit 239.1.0.0/16"});
  EXPECT_EQ(engine.cbsr(), "239.1.0.0/16 eth0 10.0.0.1 64/30/60");
  EXPECT_EQ(engine.bsrCount("eth0", "239.1.0.0/16"), 1u);
}

// Removal ---------------------------------------------------------------------------------------------

TEST_F(BsrConfig, ARemovedInterfaceUndoesItsClaimsThenItsGroupsThenItsLists) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16");
  engine.bsrList("eth0", "list");
  forget();
  engine.config->bsrCandidateConfigDel(intf("eth0"));
  EXPECT_EQ(engine.cbsr() + engine.claims(), "");
  EXPECT_EQ(engine.groups("list"), "none");
  Texts expected{"Deleted candidate BSR for zone 239.9.0.0/16",
                 "Deleted candidate BSR for acl list",
                 "Deleted zoneGroup 239.9.0.0/16",
                 "PrefixCounter for prefix 239.9.0.0/16 is 0",
                 "Deleted refcount object for interface eth0",
                 "Deleted candidate BSR for zone 239.9.0.0/16",
                 "Deleted zoneAcl for acl list"};
  Texts traced = context.tracedBy("ConfigSm");
  ASSERT_GE(traced.size(), expected.size());
  EXPECT_EQ(Texts(traced.begin(), traced.begin() + static_cast<int>(expected.size())), expected);
  EXPECT_EQ(traced.back(), "Deleted BsrConfigAcl object for acl list");
}

TEST_F(BsrConfig, AWaitingInterfaceGoesWithoutATrace) {
  engine.bsrGroup("eth0", "239.9.0.0/16");
  forget();
  engine.config->bsrCandidateConfigDel(intf("eth0"));
  EXPECT_EQ(context.tracedBy("ConfigSm"), Texts());
}

TEST_F(BsrConfig, OnceRemovedItsAddressIsHeardNoMore) {
  up();
  engine.bsrGroup("eth0", "239.9.0.0/16");
  engine.config->bsrCandidateConfigDel(intf("eth0"));
  engine.address("eth0", "10.0.0.2");
  EXPECT_EQ(engine.cbsr(), "");
}

}  // namespace
}  // namespace test
