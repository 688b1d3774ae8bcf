// The filter of Candidate-RP-Advertisements.

#include <string>

#include "tests/support/ConfigEngine.h"
#include "tests/support/RangeError.h"

namespace test {
namespace {

using testing_support::rangeError;

class Filter : public ConfigTest {
 protected:
  void filter(char const* list) { engine.config->crpFilterAclIs(list, true); }
  void unfilter(char const* list) { engine.config->crpFilterAclDel(list); }
};

TEST_F(Filter, WithoutListsEverybodyIsPermitted) {
  engine.start();
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  EXPECT_EQ(engine.filterCount("0.0.0.0/0"), 0u);
}

TEST_F(Filter, AListThatPermitsSomethingClosesTheFilter) {
  engine.rules("a", {"permit 10.0.0.0/8", "permit 192.0.2.0/24"});
  engine.start();
  filter("a");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8; 192.0.2.0/24");
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 1u);
  EXPECT_TRUE(engine.machine->bsrConfigAcl("a")->usedByCrpAdvAclFilter());
  EXPECT_TRUE(tracedOnce("Added new prefix 10.0.0.0/8 into filter acl prefix counter"));
  EXPECT_TRUE(tracedOnce("Added prefix 10.0.0.0/8 to BsrConfigAcl object unicast prefix set for acl a"));
}

TEST_F(Filter, AListIsCountedOnceWhenItIsLoadedAndNotAgainWhenItIsAdded) {
  engine.rules("a", {"permit 10.0.0.0/8"});
  filter("a");
  engine.start();
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 1u);
  unfilter("a");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 0u);
}

TEST_F(Filter, OfTwoListsThatShareARangeTheOtherKeepsItWithCountOne) {
  engine.rules("a", {"permit 10.0.0.0/8"});
  engine.rules("b", {"permit 10.0.0.0/8"});
  engine.start();
  filter("a");
  filter("b");
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 2u);
  forget();
  unfilter("a");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 1u);
  EXPECT_TRUE(tracedOnce("Filter ACL PrefixCounter for prefix 10.0.0.0/8 is 1"));
  EXPECT_TRUE(tracedOnce("Deleted BsrConfigAcl object for acl a"));
  unfilter("b");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  EXPECT_TRUE(tracedOnce("Deleted refcount for prefix 10.0.0.0/8"));
  EXPECT_TRUE(tracedOnce("Deleted prefix 10.0.0.0/8 from status"));
}

TEST_F(Filter, AListThatPermitsNothingLeavesItOpen) {
  engine.start();
  filter("missing");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  engine.rules("missing", {"permit 10.0.0.0/8"});
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
}

TEST_F(Filter, IsOpenAlsoIfTheListsOfItsBeginningPermitNothing) {
  filter("missing");
  engine.start();
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  engine.rules("missing", {"permit 10.0.0.0/8"});
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
}

TEST_F(Filter, FollowsTheRulesOfItsListsAndOpensWithTheLastRange) {
  engine.rules("a", {"permit 10.0.0.0/8"});
  engine.start();
  filter("a");
  forget();
  engine.rule("a", 20, "permit 192.0.2.0/24");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8; 192.0.2.0/24");
  EXPECT_TRUE(tracedOnce("Permit Rule Added to ACL a: Adding 192.0.2.0/24 to bsrConfigAcl unicast set"));
  EXPECT_TRUE(tracedOnce("Adding prefix 10.0.0.0/8 to prefix list to be deleted."));
  engine.delRule("a", 10);
  EXPECT_EQ(engine.permits(), "192.0.2.0/24");
  EXPECT_TRUE(tracedOnce("Deleting prefix 10.0.0.0/8 from acl a"));
  engine.delRule("a", 20);
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
}

TEST_F(Filter, ARemovedListOpensItUntilTheListComesBack) {
  engine.rules("a", {"permit 10.0.0.0/8"});
  engine.start();
  filter("a");
  engine.lists->aclDel("a");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  EXPECT_EQ(engine.senders("a"), "");
  engine.rules("a", {"permit 192.0.2.0/24"});
  EXPECT_EQ(engine.permits(), "192.0.2.0/24");
}

TEST_F(Filter, AListThatPermitsAllButTheLastAddressIsNoOpenFilter) {
  engine.rules("a", {"permit 0.0.0.0/0"});
  engine.start();
  filter("a");
  EXPECT_EQ(engine.status->crpPermitCount(), 32u);
  EXPECT_FALSE(engine.status->crpPermit(prefix("0.0.0.0/0")));
  EXPECT_TRUE(engine.status->crpPermit(prefix("255.255.255.254/32")));
}

TEST_F(Filter, AFilterHeldAsFalseCountsAsNone) {
  engine.rules("a", {"permit 10.0.0.0/8"});
  engine.config->crpFilterAclIs("a", false);
  engine.start();
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  filter("a");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
  engine.config->crpFilterAclIs("a", false);
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
}

// A list that has another role ------------------------------------------------------------------------

class SharedFilter : public Filter {
 protected:
  SharedFilter() {
    engine.rules("a", {"permit 239.1.0.0/16", "permit 10.0.0.0/8"});
    engine.address("eth0", "10.0.0.1");
    engine.bsrList("eth0", "a");
    engine.start();
  }
};

TEST_F(SharedFilter, AddsNothingUntilOneOfItsRulesChanges) {
  filter("a");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  EXPECT_TRUE(engine.machine->bsrConfigAcl("a")->usedByCrpAdvAclFilter());
  engine.rule("a", 30, "permit 192.0.2.0/24");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8; 192.0.2.0/24; 239.1.0.0/16");
}

TEST_F(SharedFilter, ItsGroupRangesDoNotChangeWhileItFilters) {
  filter("a");
  engine.rules("a", {"permit 239.2.0.0/16"});
  EXPECT_EQ(engine.groups("a"), "239.1.0.0/16");
  EXPECT_EQ(engine.cbsr(), "239.1.0.0/16 eth0 10.0.0.1 64/30/60");
  EXPECT_EQ(engine.permits(), "239.2.0.0/16");
}

TEST_F(SharedFilter, ItsSendersDoNotChangeOnceItFiltersNoMoreAndCountAgainWhenItDoes) {
  filter("a");
  engine.rules("a", {"permit 10.0.0.0/8"});
  unfilter("a");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  EXPECT_EQ(engine.senders("a"), "10.0.0.0/8");
  engine.rules("a", {"permit 239.3.0.0/16"});
  EXPECT_EQ(engine.senders("a"), "10.0.0.0/8");
  EXPECT_EQ(engine.groups("a"), "239.3.0.0/16");
  forget();
  filter("a");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 1u);
  EXPECT_TRUE(tracedOnce("Added prefix 10.0.0.0/8 to status"));
}

TEST_F(SharedFilter, ItsFormerSendersAreCountedBesideThoseOfAnotherList) {
  filter("a");
  engine.rules("a", {"permit 10.0.0.0/8"});
  unfilter("a");
  engine.rules("b", {"permit 10.0.0.0/8"});
  filter("b");
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 1u);
  filter("a");
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 2u);
  unfilter("b");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
}

// Counts ----------------------------------------------------------------------------------------------

TEST_F(Filter, ACountThatNeverWasWrapsBelowZeroAndItsPrefixStays) {
  engine.start();
  engine.machine->doFilterAclPrefixDeactivate(prefix("10.0.0.0/8"));
  EXPECT_EQ(engine.filterCount("10.0.0.0/8"), 0xffffffffu);
  engine.status->crpPermitIs(prefix("10.0.0.0/8"), true);
  engine.machine->doFilterAclPrefixDeactivate(prefix("10.0.0.0/8"));
  EXPECT_TRUE(engine.status->crpPermit(prefix("10.0.0.0/8")));
}

TEST_F(Filter, RemovingAListWithoutARecordDoesNothing) {
  engine.start();
  engine.machine->doFilterAclRemove("never");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
}

// Everybody as a range that counts. No rule yields it, since no list permits the last address.

TEST_F(Filter, ActivatingEverybodyDeletesWhatItWroteSinceItClosesTheFilterBeforeItCounts) {
  engine.start();
  engine.machine->doFilterAclPrefixActivate(prefix("0.0.0.0/0"));
  EXPECT_EQ(engine.status->crpPermitCount(), 0u);
  EXPECT_EQ(engine.filterCount("0.0.0.0/0"), 1u);
  engine.machine->doFilterAclPrefixDeactivate(prefix("0.0.0.0/0"));
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  EXPECT_EQ(engine.filterCount("0.0.0.0/0"), 0u);
}

TEST_F(Filter, EverybodyFromARecordThatIsAddedStaysWhileItIsCounted) {
  engine.rules("b", {"permit 10.0.0.0/8"});
  engine.start();
  engine.machine->bsrConfigAclIs("a")->prefixIs(prefix("0.0.0.0/0"), true);
  EXPECT_EQ(engine.filterCount("0.0.0.0/0"), 0u);  // the list is no filter yet
  filter("a");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
  EXPECT_EQ(engine.filterCount("0.0.0.0/0"), 1u);
  filter("b");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0; 10.0.0.0/8");
  unfilter("a");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
  EXPECT_EQ(engine.filterCount("0.0.0.0/0"), 0u);
}

// A rule that cannot be copied ------------------------------------------------------------------------

/// Writes a number that is rejected, and stays, into each rule of a list.
void spoilRules(Acl::AclConfig const& list) {
  for (auto at = list.ipRuleByIdIterator(); at; ++at) {
    EXPECT_EQ(rangeError([&] { at->value.filter.tniIs(16777216); }),
              "IpFilterBase::tni < 0 or > 16777215 not allowed");
  }
}

TEST_F(Filter, AListWithARuleOutOfRangeIsLeftByThatExceptionAndItsSendersDoNotChange) {
  engine.rules("a", {"permit 10.0.0.0/8"});
  engine.start();
  filter("a");
  spoilRules(*engine.lists->acl("a"));
  EXPECT_EQ(context.notificationExceptions(), 0u);
  engine.rule("a", 20, "permit 192.0.2.0/24");
  expectedExceptions = 1;
  EXPECT_EQ(context.notificationExceptions(), expectedExceptions);
  EXPECT_EQ(engine.senders("a"), "10.0.0.0/8");
  EXPECT_EQ(engine.permits(), "10.0.0.0/8");
  engine.delRule("a", 10);  // the rule out of range is read no more
  EXPECT_EQ(engine.permits(), "192.0.2.0/24");
}

}  // namespace
}  // namespace test
