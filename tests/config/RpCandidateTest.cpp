// Candidate RPs from configuration.

#include <string>
#include <utility>
#include <vector>

#include "tests/support/ConfigEngine.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

class RpConfig : public ConfigTest {
 protected:
  RpConfig() {
    engine.rules("list", {"permit 239.1.0.0/16", "permit 239.3.0.0/16"});
    engine.start();
  }
  void up() { engine.address("eth0", "10.0.0.1"); }
  void down() { engine.address("eth0", "0.0.0.0"); }
  Zet::Ptr<Bsr::RpCandidateConfig> entry() { return engine.rp("eth0"); }
  void range(char const* text) { entry()->groupRangeIs(prefix(text), true); }
  void noRange(char const* text) { entry()->groupRangeDel(prefix(text)); }
  void list(char const* name) { entry()->aclIs(name, true); }
  void option(char const* text, Zet::U32 priority) {
    entry()->groupRangeOptionsIs(prefix(text))->priorityIs(priority);
  }
  void listOption(char const* name, Zet::U32 priority) { entry()->aclOptionsIs(name)->priorityIs(priority); }
  Zet::U32 count(char const* text) const { return engine.rpCount("eth0", text); }
};

// The address -----------------------------------------------------------------------------------------

TEST_F(RpConfig, WithoutAnAddressNothingIsWrittenAndTheFirstOneBringsAll) {
  range("239.9.0.0/16");
  option("239.9.0.0/16", 7);
  list("list");
  listOption("list", 8);
  entry()->advIntervalIs(30);
  EXPECT_EQ(engine.crp(), "");
  EXPECT_EQ(engine.groups("list"), "none");
  EXPECT_TRUE(tracedOnce("New RP candidate configured for interface eth0"));
  EXPECT_EQ(context.traced("Deferred C-RP initialization since IP address for interface eth0 is not set"), 2);
  up();
  EXPECT_EQ(engine.crp(),
            "10.0.0.1 eth0 30: 239.1.0.0/16 239.3.0.0/16 239.9.0.0/16 | "
            "239.1.0.0/16=8 239.3.0.0/16=8 239.9.0.0/16=7");
  for (char const* text : {"239.1.0.0/16", "239.3.0.0/16", "239.9.0.0/16"})
    EXPECT_EQ(count(text), 1u) << text;
  EXPECT_TRUE(tracedOnce("Interface eth0 assigned IP 10.0.0.1 for the first time."));
}

TEST_F(RpConfig, ALostAddressTakesTheCandidateAllCountsAndTheUseOfListsAndTheNextOneRebuilds) {
  up();
  range("239.1.0.0/16");
  list("list");
  listOption("list", 8);
  std::string before = engine.crp();
  down();
  EXPECT_EQ(engine.crp(), "");
  EXPECT_EQ(count("239.1.0.0/16"), 0u);
  EXPECT_EQ(engine.groups("list"), "none");
  EXPECT_TRUE(tracedOnce("C-RP Interface eth0 IP unset"));
  EXPECT_TRUE(tracedOnce("Deleted C-RP refcount object for interface eth0"));
  EXPECT_TRUE(tracedOnce("Deleted interface eth0from BsrConfigAcl object for acl list"));
  EXPECT_TRUE(tracedOnce("Deleted candidate RP 10.0.0.1"));
  up();
  EXPECT_EQ(engine.crp(), before);
  EXPECT_EQ(count("239.1.0.0/16"), 2u);
  EXPECT_TRUE(tracedOnce("C-RP Interface eth0 assigned IP 10.0.0.1"));
}

TEST_F(RpConfig, AnotherAddressGivesTheSameRangesAndPrioritiesUnderANewKey) {
  up();
  range("239.9.0.0/16");
  option("239.9.0.0/16", 7);
  list("list");
  engine.address("eth0", "10.0.0.2");
  EXPECT_EQ(engine.crp(), "10.0.0.2 eth0 60: 239.1.0.0/16 239.3.0.0/16 239.9.0.0/16 | 239.9.0.0/16=7");
  EXPECT_FALSE(engine.status->crp(addr("10.0.0.1")));
  EXPECT_EQ(count("239.9.0.0/16"), 1u);
}

TEST_F(RpConfig, WhatIsAddedWhileTheAddressIsLostWaitsForTheNextOne) {
  up();
  range("239.8.0.0/16");
  down();
  range("239.9.0.0/16");
  option("239.9.0.0/16", 7);
  list("list");
  listOption("list", 8);
  EXPECT_EQ(engine.crp(), "");
  EXPECT_EQ(count("239.9.0.0/16"), 0u);
  EXPECT_EQ(engine.groups("list"), "none");
  engine.rules("list", {"permit 239.1.0.0/16", "permit 239.4.0.0/16"});
  EXPECT_EQ(engine.crp(), "") << "a rule adds nothing either";
  up();
  EXPECT_EQ(engine.crp(),
            "10.0.0.1 eth0 60: 239.1.0.0/16 239.4.0.0/16 239.8.0.0/16 239.9.0.0/16 | "
            "239.1.0.0/16=8 239.4.0.0/16=8 239.9.0.0/16=7");
  EXPECT_EQ(count("239.9.0.0/16"), 1u);
}

TEST_F(RpConfig, ARangeThatGoesWhileTheAddressIsLostWrapsItsCountUntilTheNextAddress) {
  up();
  range("239.8.0.0/16");
  range("239.9.0.0/16");
  down();
  noRange("239.9.0.0/16");
  EXPECT_EQ(count("239.9.0.0/16"), 0xffffffffu);
  EXPECT_EQ(engine.crp(), "");
  up();
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.8.0.0/16 | ");
  EXPECT_EQ(count("239.9.0.0/16"), 0u);
}

TEST_F(RpConfig, TwoInterfacesAreTwoCandidatesWithCountsOfTheirOwn) {
  up();
  engine.address("eth1", "10.0.1.1");
  range("239.9.0.0/16");
  engine.rp("eth1")->groupRangeIs(prefix("239.9.0.0/16"), true);
  engine.rp("eth1")->aclIs("list", true);
  EXPECT_EQ(engine.crp(),
            "10.0.0.1 eth0 60: 239.9.0.0/16 | ; 10.0.1.1 eth1 60: 239.1.0.0/16 239.3.0.0/16 239.9.0.0/16 | ");
  noRange("239.9.0.0/16");
  EXPECT_EQ(engine.crp(), "10.0.1.1 eth1 60: 239.1.0.0/16 239.3.0.0/16 239.9.0.0/16 | ");
  EXPECT_EQ(engine.rpCount("eth1", "239.9.0.0/16"), 1u);
  EXPECT_EQ(engine.claims(), "");
}

TEST_F(RpConfig, TwoInterfacesWithoutTheirAddressesHaveNoEntryAndEachRegainsItsOwn) {
  up();
  engine.address("eth1", "10.0.1.1");
  range("239.8.0.0/16");
  engine.rp("eth1")->groupRangeIs(prefix("239.8.0.0/16"), true);
  down();
  engine.address("eth1", "0.0.0.0");
  range("239.7.0.0/16");
  engine.rp("eth1")->groupRangeIs(prefix("239.9.0.0/16"), true);
  EXPECT_EQ(engine.crp(), "");
  up();
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.7.0.0/16 239.8.0.0/16 | ");
  engine.address("eth1", "10.0.1.1");
  EXPECT_EQ(engine.crp(),
            "10.0.0.1 eth0 60: 239.7.0.0/16 239.8.0.0/16 | ; 10.0.1.1 eth1 60: 239.8.0.0/16 239.9.0.0/16 | ");
  EXPECT_EQ(engine.rpCount("eth1", "239.9.0.0/16"), 1u);
}

// Ranges and lists ------------------------------------------------------------------------------------

TEST_F(RpConfig, EachStepOfARangeIsTraced) {
  up();
  range("239.9.0.0/16");
  noRange("239.9.0.0/16");
  Texts traced = context.tracedBy("ConfigSm");
  Texts expected{"Created C-RP 10.0.0.1",
                 "Created C-RP refcount object for interface eth0",
                 "Added Prefix 239.9.0.0/16 to C-RP 10.0.0.1",
                 "C-RP PrefixCounter for prefix 239.9.0.0/16 is 1",
                 "C-RP PrefixCounter for prefix 239.9.0.0/16 is 0",
                 "Deleted C-RP refcount object for interface eth0",
                 "Deleted prefix 239.9.0.0/16 from prefixSet",
                 "Deleted candidate RP 10.0.0.1 since it doest serve any group"};
  ASSERT_GE(traced.size(), expected.size());
  EXPECT_EQ(Texts(traced.end() - static_cast<int>(expected.size()), traced.end()), expected);
}

TEST_F(RpConfig, TheLastRangeTakesTheCandidate) {
  up();
  range("239.8.0.0/16");
  range("239.9.0.0/16");
  noRange("239.8.0.0/16");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.9.0.0/16 | ");
  entry()->groupRangeIs(prefix("239.9.0.0/16"), false);  // false counts as none
  EXPECT_EQ(engine.crp(), "");
  EXPECT_FALSE(engine.machine->rpCandidateConfig(intf("eth0"))->crp());
}

TEST_F(RpConfig, AListThatPermitsNothingMakesNoCandidateUntilItsFirstRule) {
  up();
  engine.rules("empty", {});
  list("empty");
  EXPECT_EQ(engine.crp(), "");
  EXPECT_TRUE(engine.machine->bsrConfigAcl("empty")->crpIntf(intf("eth0")));
  engine.rule("empty", 10, "permit 239.5.0.0/16");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.5.0.0/16 | 239.5.0.0/16=256");
  engine.delRule("empty", 10);
  EXPECT_EQ(engine.crp(), "");
  EXPECT_TRUE(tracedOnce("Removing prefix 239.5.0.0/16 from C-RP 10.0.0.1"));
  EXPECT_TRUE(tracedOnce("Deleted prefix 239.5.0.0/16 from C-RP 10.0.0.1"));
}

TEST_F(RpConfig, AListOfACandidateIsTraced) {
  up();
  list("list");
  EXPECT_TRUE(tracedOnce("Added interface eth0 to BsrConfigAcl's C-RP object for acl list"));
  EXPECT_TRUE(tracedOnce("Created C-RP with IP 10.0.0.1 advInterval=60"));
  EXPECT_TRUE(tracedOnce("Address prefix 239.1.0.0/16 as part of Acllist to C-RP 10.0.0.1"));
}

TEST_F(RpConfig, WithoutItsRangesACandidateUsesTheRangesOfItsList) {
  up();
  range("239.9.0.0/16");
  list("list");
  noRange("239.9.0.0/16");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 | ");
  entry()->aclDel("list");
  EXPECT_EQ(engine.crp(), "");
  EXPECT_EQ(engine.groups("list"), "none");
}

TEST_F(RpConfig, ARangeAndAListThatPermitsItCountTwoAndTheRangeMayGo) {
  up();
  range("239.1.0.0/16");
  list("list");
  EXPECT_EQ(count("239.1.0.0/16"), 2u);
  noRange("239.1.0.0/16");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 | ");
  EXPECT_EQ(count("239.1.0.0/16"), 1u);
}

TEST_F(RpConfig, TheIntervalReachesTheCandidateAlone) {
  up();
  range("239.9.0.0/16");
  option("239.9.0.0/16", 7);
  auto candidate = engine.status->crp(addr("10.0.0.1"));
  entry()->advIntervalIs(90);
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 90: 239.9.0.0/16 | 239.9.0.0/16=7");
  EXPECT_EQ(engine.status->crp(addr("10.0.0.1")), candidate);
  EXPECT_TRUE(tracedOnce("Advertisement interface for Candidate C-RP 10.0.0.1 changed to 90"));
}

// Priorities ------------------------------------------------------------------------------------------

TEST_F(RpConfig, AnOptionAloneNeitherMakesACandidateNorKeepsIt) {
  up();
  option("239.9.0.0/16", 7);
  EXPECT_EQ(engine.crp(), "");
  range("239.8.0.0/16");
  option("239.9.0.0/16", 8);
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.8.0.0/16 | 239.9.0.0/16=8");
  noRange("239.8.0.0/16");
  EXPECT_EQ(engine.crp(), "");
}

TEST_F(RpConfig, AnUnsetOptionWritesNothingAndASetOneFollows) {
  up();
  range("239.9.0.0/16");
  entry()->groupRangeOptionsIs(prefix("239.9.0.0/16"));
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.9.0.0/16 | ");
  option("239.9.0.0/16", 7);
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.9.0.0/16 | 239.9.0.0/16=7");
  option("239.9.0.0/16", 256);
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.9.0.0/16 | 239.9.0.0/16=256");
}

TEST_F(RpConfig, OptionsPresentAtTheStartOfAnInterfaceAreWrittenTheListsLast) {
  range("239.1.0.0/16");
  option("239.1.0.0/16", 7);
  list("list");
  listOption("list", 8);
  forget();
  up();
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 | 239.1.0.0/16=8 239.3.0.0/16=8");
  EXPECT_TRUE(tracedOnce("Created priority 7 to prefix 239.1.0.0/16 to C-RP 10.0.0.1"));
}

TEST_F(RpConfig, OfAGroupsOptionAndAListsOptionTheLastWriterWins) {
  up();
  range("239.1.0.0/16");
  list("list");
  listOption("list", 8);
  option("239.1.0.0/16", 7);
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 | 239.1.0.0/16=7 239.3.0.0/16=8");
  listOption("list", 9);
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 | 239.1.0.0/16=9 239.3.0.0/16=9");
  EXPECT_EQ(context.tracedPrefix("Priority for Candidate RP in ACL list"), 2);
}

TEST_F(RpConfig, WithoutTheGroupsOptionARangeTakesThatOfAListThatServesItToo) {
  up();
  range("239.1.0.0/16");
  list("list");
  listOption("list", 8);
  option("239.1.0.0/16", 7);
  entry()->groupRangeOptionsDel(prefix("239.1.0.0/16"));
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 | 239.1.0.0/16=8 239.3.0.0/16=8");
  EXPECT_TRUE(tracedOnce(
      "Created prefix 239.1.0.0/16 with priority 8 to C-RP 10.0.0.1 because this prefix appears in "
      "ACL rules."));
}

TEST_F(RpConfig, WithoutTheGroupsOptionARangeThatNoListServesKeepsItsPriority) {
  up();
  range("239.9.0.0/16");
  option("239.9.0.0/16", 7);
  entry()->groupRangeOptionsDel(prefix("239.9.0.0/16"));
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.9.0.0/16 | 239.9.0.0/16=7");
}

TEST_F(RpConfig, AnOptionOfARangeThatIsNotServedGoesWithIt) {
  up();
  range("239.8.0.0/16");
  option("239.9.0.0/16", 7);
  entry()->groupRangeOptionsDel(prefix("239.9.0.0/16"));
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.8.0.0/16 | ");
  EXPECT_TRUE(tracedOnce("Deleted priority of prefix 239.9.0.0/16 from prefixOptions"));
}

TEST_F(RpConfig, WithoutTheListsOptionItsRangesTakeThatOfAnotherListOrOfTheirGroup) {
  up();
  engine.rules("other", {"permit 239.1.0.0/16"});
  range("239.3.0.0/16");
  list("list");
  list("other");
  option("239.3.0.0/16", 5);
  listOption("other", 6);
  listOption("list", 8);
  entry()->aclOptionsDel("list");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 | 239.1.0.0/16=6 239.3.0.0/16=5");
  std::string why = " to C-RP 10.0.0.1 because this prefix appears in other ACL rules or in group range.";
  EXPECT_TRUE(tracedOnce("Created prefix 239.1.0.0/16 with priority 6" + why));
  EXPECT_TRUE(tracedOnce("Created prefix 239.3.0.0/16 with priority 5" + why));
}

TEST_F(RpConfig, AListsOptionWithoutASubstituteLeavesThePresentPriority) {
  up();
  list("list");
  listOption("list", 8);
  entry()->aclOptionsDel("list");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 | 239.1.0.0/16=8 239.3.0.0/16=8");
}

TEST_F(RpConfig, OptionsOfAListWithoutARecordDoNothing) {
  up();
  range("239.9.0.0/16");
  listOption("list", 8);
  entry()->aclOptionsDel("list");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.9.0.0/16 | ");
}

// Rules -----------------------------------------------------------------------------------------------

TEST_F(RpConfig, ANewRuleTakesTheOptionsOfItsList) {
  up();
  list("list");
  listOption("list", 8);
  engine.rule("list", 30, "permit 239.5.0.0/16");
  EXPECT_EQ(engine.crp(),
            "10.0.0.1 eth0 60: 239.1.0.0/16 239.3.0.0/16 239.5.0.0/16 | "
            "239.1.0.0/16=8 239.3.0.0/16=8 239.5.0.0/16=8");
  EXPECT_TRUE(tracedOnce("Writing to Status for C-RP with key  239.5.0.0/16"));
}

/// Names of lists, the first of which is before the second in the walk over the records.
std::pair<std::string, std::string> namesInWalkOrder() {
  Zet::ValueMap<bool, Zet::String8> names;
  for (char const* name : {"x", "y"}) {
    names.insert(Zet::make<Zet::ValueMember<bool, Zet::String8>>(Zet::String8(name), true));
  }
  auto at = names.iterator();
  std::string first(at.key().view());
  ++at;
  return {first, std::string(at.key().view())};
}

TEST_F(RpConfig, ANewRuleTakesTheOptionsOfTheFirstRecordOfAnyUserThatPermitsIt) {
  auto [first, second] = namesInWalkOrder();
  up();
  engine.rules(first, {"permit 239.5.0.0/16"});
  engine.rules(second, {});
  engine.border("eth9")->bsrBorderAclIs(first.c_str(), true);
  list(second.c_str());
  listOption(second.c_str(), 8);
  engine.rule(second, 10, "permit 239.5.0.0/16");
  // The border's list is first, and this candidate has no options under its name.
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.5.0.0/16 | 239.5.0.0/16=256");
  listOption(first.c_str(), 4);
  engine.rules(second, {});
  engine.rule(second, 10, "permit 239.5.0.0/16");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.5.0.0/16 | 239.5.0.0/16=4");
}

TEST_F(RpConfig, ARemovedListTakesItsRangesAndOptionsAndItsReturnBringsThemBack) {
  up();
  list("list");
  listOption("list", 8);
  engine.lists->aclDel("list");
  EXPECT_EQ(engine.crp(), "");
  EXPECT_TRUE(engine.machine->bsrConfigAcl("list")->crpIntf(intf("eth0")));
  engine.rules("list", {"permit 239.5.0.0/16"});
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.5.0.0/16 | 239.5.0.0/16=8");
}

// Removal ---------------------------------------------------------------------------------------------

TEST_F(RpConfig, ARemovedInterfaceTakesItsCandidateCountsAndLists) {
  up();
  range("239.9.0.0/16");
  list("list");
  engine.config->rpCandidateConfigDel(intf("eth0"));
  EXPECT_EQ(engine.crp(), "");
  EXPECT_EQ(count("239.9.0.0/16"), 0u);
  EXPECT_EQ(engine.groups("list"), "none");
  engine.address("eth0", "10.0.0.2");
  EXPECT_EQ(engine.crp(), "");
}

TEST_F(RpConfig, AListThatLeavesTheInterfaceLeavesItsOptionsOnTheCandidate) {
  up();
  range("239.9.0.0/16");
  list("list");
  listOption("list", 8);
  entry()->aclDel("list");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.9.0.0/16 | 239.1.0.0/16=8 239.3.0.0/16=8");
}

}  // namespace
}  // namespace test
