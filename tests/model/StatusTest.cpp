#include "model/Status.h"

#include <string>
#include <vector>

#include "runtime/Exceptions.h"
#include "tests/support/Messages.h"
#include "tests/support/RangeError.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using Bsr::BsrCandidateState;
using Lanet::AddressFamily;
using testing_support::rangeError;
using Zet::Ptr;
using Texts = std::vector<std::string>;

template <class Key>
std::string keyed(char const* attribute, Key const& key) {
  return std::string(attribute) + " " + std::string(key.stringValue().view());
}

/// Notes everything that Status notifies.
class StatusWatch : public Bsr::Status::NotifieeConst {
 public:
  void onAf() override { heard.emplace_back("af"); }
  void onBsTimeout() override { heard.emplace_back("bsTimeout"); }
  void onSzTimeout() override { heard.emplace_back("szTimeout"); }
  void onBsBorder(Lanet::IpGenPrefix const& key) override { heard.push_back(keyed("bsBorder", key)); }
  void onZoneGroup(Lanet::IpGenPrefix const& key) override { heard.push_back(keyed("zoneGroup", key)); }
  void onZoneAcl(Zet::String8 const& key) override { heard.push_back("zoneAcl " + std::string(key.view())); }
  void onBootstrapRouter(Lanet::IpGenPrefix const& key) override {
    heard.push_back(keyed("bootstrapRouter", key));
  }
  void onCbsr(Lanet::IpGenPrefix const& key) override { heard.push_back(keyed("cbsr", key)); }
  void onCrp(Lanet::IpGenAddr const& key) override { heard.push_back(keyed("crp", key)); }
  void onCrpPermit(Lanet::IpGenPrefix const& key) override { heard.push_back(keyed("crpPermit", key)); }
  void onCrpStatus(Lanet::IpGenPrefix const& key) override { heard.push_back(keyed("crpStatus", key)); }
  void onCounters() override { heard.emplace_back("counters"); }
  Texts heard;
};

class StatusTree : public ModelTest {
 protected:
  StatusTree() { watch->notifierIs(status); }
  /// What was notified since the last call.
  Texts heard() { return std::exchange(watch->heard, {}); }

  Ptr<Bsr::Status> status = Bsr::statusFactory("bsr");
  Ptr<StatusWatch> watch = Zet::make<StatusWatch>();
  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
};

// Defaults --------------------------------------------------------------------------------------------

TEST_F(StatusTree, NewStatusIsEmptyAndOfNoFamily) {
  EXPECT_EQ(status->name(), "bsr");
  EXPECT_EQ(status->af(), AddressFamily::unset);
  EXPECT_EQ(status->bsTimeout(), 0u);
  EXPECT_EQ(status->szTimeout(), 0u);
  EXPECT_EQ(status->bsBorderCount() + status->zoneGroupCount() + status->zoneAclCount(), 0u);
  EXPECT_EQ(status->bootstrapRouterCount() + status->cbsrCount() + status->crpCount(), 0u);
  EXPECT_EQ(status->crpPermitCount() + status->crpStatusCount(), 0u);
  EXPECT_FALSE(status->counters());
  EXPECT_FALSE(status->isNondestructing());
}

TEST_F(StatusTree, NewBsrCandidateKnowsNothingButItsZone) {
  auto candidate = status->cbsrIs(zone);
  EXPECT_EQ(candidate->zone(), zone);
  EXPECT_EQ(candidate->fwkKey(), zone);
  EXPECT_TRUE(candidate->address().isEmpty());
  EXPECT_TRUE(candidate->intfId().isEmpty());
  EXPECT_EQ(candidate->priority(), 256);
  EXPECT_EQ(candidate->hashMaskLen(), 128u);
  EXPECT_EQ(candidate->bsPeriod(), 0u);
  EXPECT_FALSE(candidate->elected());
  EXPECT_EQ(candidate->state(), BsrCandidateState::noInfoBsr);
}

TEST_F(StatusTree, NewElectedBsrKnowsNothingButItsZone) {
  auto elected = status->bootstrapRouterIs(zone);
  EXPECT_EQ(elected->zone(), zone);
  EXPECT_EQ(elected->fwkKey(), zone);
  EXPECT_TRUE(elected->ipAddr().isEmpty());
  EXPECT_EQ(elected->priority(), 256);
  EXPECT_EQ(elected->hashMaskLen(), 128u);
  EXPECT_EQ(elected->setupTime(), 0.0);
  EXPECT_EQ(elected->upTime(), 0.0);
  EXPECT_EQ(elected->expiryTime(), 0.0);
  EXPECT_EQ(elected->expires(), 0.0);
}

TEST_F(StatusTree, NewRpCandidateAdvertisesEveryMinuteForNoRange) {
  auto candidate = status->crpIs(addr("10.0.0.1"));
  EXPECT_EQ(candidate->address(), addr("10.0.0.1"));
  EXPECT_EQ(candidate->fwkKey(), addr("10.0.0.1"));
  EXPECT_TRUE(candidate->intfId().isEmpty());
  EXPECT_EQ(candidate->interval(), Bsr::CrpAdvInterval(60));
  EXPECT_EQ(candidate->prefixSetCount(), 0u);
  EXPECT_EQ(candidate->prefixOptionsCount(), 0u);
  EXPECT_FALSE(candidate->prefixSet(zone));
}

TEST_F(StatusTree, NewGroupOptionsHaveTheUnknownPriority) {
  auto options = status->crpIs(addr("10.0.0.1"))->prefixOptionsIs(zone);
  EXPECT_EQ(options->prefix(), zone);
  EXPECT_EQ(options->priority(), Routing::Pim::RpPriority(256));
}

TEST_F(StatusTree, NewRpSetOfAZoneHasNoSetYetAndIsNamedAfterTheZone) {
  auto rpSet = status->crpStatusIs(zone);
  EXPECT_EQ(rpSet->zone(), zone);
  EXPECT_EQ(rpSet->fwkKey(), zone);
  EXPECT_EQ(rpSet->name(), "239.0.0.0/8");
  EXPECT_FALSE(rpSet->status());
}

TEST_F(StatusTree, NewBorderHasNoInterfaceAndIsNamedAfterItsPrefix) {
  auto border = status->bsBorderIs(zone);
  EXPECT_EQ(border->prefix(), zone);
  EXPECT_EQ(border->fwkKey(), zone);
  EXPECT_EQ(border->name(), "239.0.0.0/8");
  EXPECT_EQ(border->intfIdCount(), 0u);
  EXPECT_FALSE(border->intfId(intf("eth0")));
}

TEST_F(StatusTree, NewAdvertisementSetIsEmpty) {
  auto set = Bsr::rpCandidatePrefixSetFactory(zone);
  EXPECT_EQ(set->zone(), zone);
  EXPECT_EQ(set->prefixSetCount(), 0u);
  set->prefixSetIs(prefix("239.1.0.0/16"), true);
  EXPECT_TRUE(set->prefixSet(prefix("239.1.0.0/16")));
  EXPECT_FALSE(set->prefixSet(zone));
}

TEST_F(StatusTree, FactoriesMakeEntitiesByTheirConstructorArguments) {
  EXPECT_EQ(Bsr::bsrCandidateFactory(zone)->zone(), zone);
  EXPECT_EQ(Bsr::electedBsrStatusFactory(zone)->zone(), zone);
  EXPECT_EQ(Bsr::rpCandidateFactory(addr("10.0.0.1"))->address(), addr("10.0.0.1"));
  EXPECT_EQ(Bsr::pimBsrBorderFactory("border", zone)->name(), "border");
  EXPECT_EQ(Bsr::pimBsrBorderFactory("border", zone)->prefix(), zone);
  EXPECT_EQ(Bsr::pimBsrRpCandidateStatusFactory("rps", zone)->name(), "rps");
  EXPECT_EQ(Bsr::pimBsrRpCandidateStatusFactory("rps", zone)->zone(), zone);
}

// Plain values ----------------------------------------------------------------------------------------

TEST_F(StatusTree, APlainValueNotifiesAChangeOnceAndAnEqualValueNever) {
  status->bsTimeoutIs(130);
  status->szTimeoutIs(1300);
  status->afIs(AddressFamily::ipv4);
  EXPECT_EQ(heard(), (Texts{"bsTimeout", "szTimeout", "af"}));
  status->bsTimeoutIs(130);
  status->szTimeoutIs(1300);
  status->afIs(AddressFamily::ipv4);
  EXPECT_EQ(heard(), Texts());
  EXPECT_EQ(status->bsTimeout(), 130u);
  EXPECT_EQ(status->szTimeout(), 1300u);
}

TEST_F(StatusTree, NothingIsRangeChecked) {
  status->bsTimeoutIs(~Zet::U32{0});
  status->cbsrIs(zone)->priorityIs(65535);
  status->cbsrIs(zone)->hashMaskLenIs(4000);
  EXPECT_EQ(status->bsTimeout(), ~Zet::U32{0});
  EXPECT_EQ(status->cbsr(zone)->priority(), 65535);
  EXPECT_EQ(status->cbsr(zone)->hashMaskLen(), 4000u);
}

// Collections of entities -----------------------------------------------------------------------------

TEST_F(StatusTree, AnExistingCandidateIsReturnedUntouchedAndIsNotNotified) {
  auto made = status->cbsrIs(zone);
  EXPECT_EQ(heard(), Texts{"cbsr 239.0.0.0/8"});
  made->priorityIs(7);
  EXPECT_EQ(status->cbsrIs(zone), made);
  EXPECT_EQ(made->priority(), 7);
  EXPECT_EQ(status->cbsr(zone), made);
  EXPECT_EQ(heard(), Texts());
}

TEST_F(StatusTree, EveryEntityCollectionNotifiesMembersMadeAndRemovedAndNothingElse) {
  Lanet::IpGenAddr rp = addr("10.0.0.1");
  for (int i = 0; i < 2; ++i) {
    status->bsBorderIs(zone);
    status->bootstrapRouterIs(zone);
    status->cbsrIs(zone);
    status->crpIs(rp);
    status->crpStatusIs(zone);
  }
  Texts each{"bsBorder 239.0.0.0/8", "bootstrapRouter 239.0.0.0/8", "cbsr 239.0.0.0/8", "crp 10.0.0.1",
             "crpStatus 239.0.0.0/8"};
  EXPECT_EQ(heard(), each);
  for (int i = 0; i < 2; ++i) {
    status->bsBorderDel(zone);
    status->bootstrapRouterDel(zone);
    status->cbsrDel(zone);
    status->crpDel(rp);
    status->crpStatusDel(zone);
  }
  EXPECT_EQ(heard(), each);
}

TEST_F(StatusTree, AnAbsentKeyReadsNull) {
  EXPECT_FALSE(status->bsBorder(zone));
  EXPECT_FALSE(status->bootstrapRouter(zone));
  EXPECT_FALSE(status->cbsr(zone));
  EXPECT_FALSE(status->crp(addr("10.0.0.1")));
  EXPECT_FALSE(status->crpStatus(zone));
}

TEST_F(StatusTree, AMemberMadeByNewIsLinkedAndIsNotNotified) {
  auto made = status->newCbsr(zone);
  EXPECT_EQ(status->cbsr(zone), made);
  EXPECT_EQ(heard(), Texts());
}

TEST_F(StatusTree, DelAllRemovesTheMembersOneByOneEachNotified) {
  status->cbsrIs(prefix("239.1.0.0/16"));
  status->cbsrIs(prefix("239.2.0.0/16"));
  status->cbsrIs(prefix("239.3.0.0/16"));
  Texts made = heard();
  status->cbsrDelAll();
  Texts removed = heard();
  std::sort(made.begin(), made.end());
  std::sort(removed.begin(), removed.end());
  EXPECT_EQ(removed, made);
  EXPECT_EQ(status->cbsrCount(), 0u);
}

TEST_F(StatusTree, AHeldMemberOutlivesItsRemoval) {
  auto held = status->cbsrIs(zone);
  held->priorityIs(7);
  status->cbsrDel(zone);
  EXPECT_EQ(held->priority(), 7);
  EXPECT_NE(status->cbsrIs(zone), held);
}

// Collections of values -------------------------------------------------------------------------------

TEST_F(StatusTree, AnotherInterfaceForAGroupReplacesTheFirstAndIsReportedOnce) {
  status->zoneGroupIs(zone, intf("eth0"));
  EXPECT_EQ(heard(), Texts{"zoneGroup 239.0.0.0/8"});
  status->zoneGroupIs(zone, intf("eth1"));
  EXPECT_EQ(heard(), Texts{"zoneGroup 239.0.0.0/8"});
  EXPECT_EQ(status->zoneGroup(zone), intf("eth1"));
  EXPECT_EQ(status->zoneGroupCount(), 1u);
  status->zoneGroupIs(zone, intf("eth1"));
  EXPECT_EQ(heard(), Texts());
}

TEST_F(StatusTree, AValueRemovedIsGivenBackAndAnAbsentKeyGivesTheDefault) {
  status->zoneGroupIs(zone, intf("eth0"));
  status->zoneAclIs("list", intf("eth1"));
  status->crpPermitIs(zone, true);
  heard();
  EXPECT_EQ(status->zoneGroupDel(zone), intf("eth0"));
  EXPECT_EQ(status->zoneAclDel("list"), intf("eth1"));
  EXPECT_TRUE(status->crpPermitDel(zone));
  EXPECT_EQ(heard(), (Texts{"zoneGroup 239.0.0.0/8", "zoneAcl list", "crpPermit 239.0.0.0/8"}));
  EXPECT_EQ(status->zoneGroupDel(zone), Lanet::IntfId());
  EXPECT_EQ(status->zoneAclDel("list"), Lanet::IntfId());
  EXPECT_FALSE(status->crpPermitDel(zone));
  EXPECT_EQ(heard(), Texts());
}

TEST_F(StatusTree, AnAbsentValueReadsAsTheDefault) {
  EXPECT_TRUE(status->zoneGroup(zone).isEmpty());
  EXPECT_TRUE(status->zoneAcl("list").isEmpty());
  EXPECT_FALSE(status->crpPermit(zone));
}

TEST_F(StatusTree, AValueEqualToTheDefaultIsAMemberNonetheless) {
  status->crpPermitIs(zone, false);
  EXPECT_EQ(heard(), Texts{"crpPermit 239.0.0.0/8"});
  EXPECT_EQ(status->crpPermitCount(), 1u);
  status->crpPermitIs(zone, false);
  EXPECT_EQ(heard(), Texts());
}

template <class Iterator>
static Texts keysFrom(Iterator at) {
  Texts keys;
  for (; at; ++at) keys.emplace_back(at.key().stringValue().view());
  return keys;
}

TEST_F(StatusTree, AWalkMayStartAtAKey) {
  for (char const* range : {"239.1.0.0/16", "239.2.0.0/16", "239.3.0.0/16"}) {
    status->zoneGroupIs(prefix(range), intf("eth0"));
    status->crpPermitIs(prefix(range), true);
  }
  Texts all = keysFrom(status->zoneGroupIterator());
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(keysFrom(status->crpPermitIterator()), all);
  Texts fromSecond(all.begin() + 1, all.end());
  EXPECT_EQ(keysFrom(status->zoneGroupIterator(prefix(all[1]))), fromSecond);
  EXPECT_EQ(keysFrom(status->crpPermitIterator(prefix(all[1]))), fromSecond);
}

TEST_F(StatusTree, ABordersInterfacesAreValuesOfTheirOwn) {
  auto border = status->bsBorderIs(zone);
  border->intfIdIs(intf("eth0"), true);
  border->intfIdIs(intf("eth1"), false);
  EXPECT_TRUE(border->intfId(intf("eth0")));
  EXPECT_FALSE(border->intfId(intf("eth1")));
  EXPECT_EQ(border->intfIdCount(), 2u);
  EXPECT_TRUE(border->intfIdDel(intf("eth0")));
  EXPECT_FALSE(border->intfId(intf("eth0")));
}

// Single members --------------------------------------------------------------------------------------

TEST_F(StatusTree, CountersAreMadeOnceUnderTheirName) {
  auto counters = status->countersIs("bsr");
  EXPECT_EQ(counters->name(), "bsr");
  EXPECT_EQ(status->counters(), counters);
  EXPECT_EQ(heard(), Texts{"counters"});
  EXPECT_EQ(status->countersIs("bsr"), counters);
  EXPECT_EQ(heard(), Texts());
  status->countersDel();
  EXPECT_FALSE(status->counters());
  EXPECT_EQ(heard(), Texts{"counters"});
  status->countersDel();
  EXPECT_EQ(heard(), Texts());
}

TEST_F(StatusTree, CountersOfAnotherNameAreRejectedWhileTheFirstExist) {
  auto counters = status->countersIs("bsr");
  try {
    status->countersIs("other");
    FAIL() << "no exception";
  } catch (Zet::NameInUseException const& e) {
    EXPECT_STREQ(
        e.what(),
        "Reinstantiating the pointer interface where constructor parameter attribute _name has a different "
        "value of 'bsr'");
  }
  EXPECT_EQ(status->counters(), counters);
}

TEST_F(StatusTree, TheSetOfAZoneIsMadeOnceUnderTheEmptyName) {
  auto rpSet = status->crpStatusIs(zone);
  auto set = rpSet->statusIs("");
  EXPECT_EQ(set->name(), "");
  EXPECT_EQ(rpSet->statusIs(""), set);
  EXPECT_EQ(rpSet->status(), set);
  rpSet->statusDel();
  EXPECT_FALSE(rpSet->status());
}

// The end of Status -----------------------------------------------------------------------------------

TEST_F(StatusTree, ItsEndEmptiesTheCollectionsAndLeavesWhatIsHeldElsewhere) {
  auto border = status->bsBorderIs(zone);
  auto elected = status->bootstrapRouterIs(zone);
  auto candidate = status->cbsrIs(zone);
  auto crp = status->crpIs(addr("10.0.0.1"));
  auto rpSet = status->crpStatusIs(zone);
  auto counters = status->countersIs("bsr");
  std::vector<Zet::PtrInterface const*> members{border.ptr(), elected.ptr(), candidate.ptr(),
                                                crp.ptr(),    rpSet.ptr(),   counters.ptr()};
  for (Zet::PtrInterface const* member : members) EXPECT_EQ(member->references(), 2u);
  watch->notifierIs(Ptr<Bsr::Status const>());
  status = nullptr;
  for (Zet::PtrInterface const* member : members) EXPECT_EQ(member->references(), 1u);
}

TEST_F(StatusTree, ItsEndNotifiesAWeakWatcherOfEachMemberThatGoes) {
  watch->isWeakReferenceIs(true);
  status->bsBorderIs(zone);
  status->bootstrapRouterIs(zone);
  status->cbsrIs(zone);
  status->crpIs(addr("10.0.0.1"));
  status->crpStatusIs(zone);
  status->countersIs("bsr");
  Texts made = heard();
  status = nullptr;
  EXPECT_EQ(heard(), made);
  EXPECT_FALSE(watch->notifier());
}

TEST_F(StatusTree, ANullReferenceIsRejected) {
  EXPECT_EQ(rangeError([] { Zet::ValidPtr<Bsr::Status> valid((Ptr<Bsr::Status>())); }), "null ValidPtr");
}

}  // namespace
}  // namespace test
