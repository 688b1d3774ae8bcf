#include "model/Config.h"

#include <string>
#include <utility>
#include <vector>

#include "model/MessageCounters.h"
#include "tests/support/Messages.h"
#include "tests/support/RangeError.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using Bsr::CrpAdvInterval;
using Routing::Pim::RpPriority;
using testing_support::rangeError;
using Zet::Ptr;
using Texts = std::vector<std::string>;

/// Notes what Config notifies.
class ConfigWatch : public Bsr::Config::NotifieeConst {
 public:
  void onHoldTime() override { heard.push_back("holdTime " + std::to_string(notifier()->holdTime())); }
  void onSzTimeout() override { heard.push_back("szTimeout " + std::to_string(notifier()->szTimeout())); }
  void onCrpFilterAcl(Zet::String8 const& key) override { note("crpFilterAcl", key); }
  void onIntfConfig(Zet::Name const& key) override { note("intfConfig", key); }
  void onRpCandidateConfig(Lanet::IntfId const& key) override {
    note("rpCandidateConfig", key.stringValue());
  }
  void onBsrCandidateConfig(Lanet::IntfId const& key) override {
    note("bsrCandidateConfig", key.stringValue());
  }
  Texts heard;

 private:
  void note(std::string const& what, Zet::String8 const& key) {
    heard.push_back(what + " " + std::string(key.view()));
  }
};

class ConfigTree : public ModelTest {
 protected:
  ConfigTree() { watch->notifierIs(config); }
  /// What was notified since the last call.
  Texts heard() { return std::exchange(watch->heard, {}); }

  Ptr<Bsr::Config> config = Bsr::configFactory("bsr");
  Ptr<ConfigWatch> watch = Zet::make<ConfigWatch>();
  Lanet::IpGenPrefix const range = prefix("239.0.0.0/8");
};

// Defaults --------------------------------------------------------------------------------------------

TEST_F(ConfigTree, NewConfigHasTheDefaultsOfItsConstants) {
  EXPECT_EQ(config->name(), "bsr");
  EXPECT_EQ(config->holdTime(), 130u);
  EXPECT_EQ(config->szTimeout(), 1300u);
  EXPECT_EQ(Bsr::Config::holdTimeDefault(), 130u);
  EXPECT_EQ(Bsr::Config::szTimeoutDefault(), 1300u);
  EXPECT_EQ(config->rpCandidateConfigCount() + config->intfConfigCount(), 0u);
  EXPECT_EQ(config->bsrCandidateConfigCount() + config->crpFilterAclCount(), 0u);
}

template <class Entry>
void expectFreshEntry(Ptr<Entry> const& entry) {
  EXPECT_EQ(entry->priority(), 256);
  EXPECT_EQ(entry->hashMaskLen(), 128u);
  EXPECT_EQ(entry->interval(), 60u);
  EXPECT_EQ(Entry::priorityDefault(), 64);
  EXPECT_EQ(Entry::priorityUnknown(), 256);
  EXPECT_EQ(Entry::hashMaskLenDefault(), 30u);
  EXPECT_EQ(Entry::hashMaskLenUnknown(), 128u);
  EXPECT_EQ(Entry::minInterval(), 10u);
  EXPECT_EQ(Entry::intervalDefault(), 60u);
}

TEST_F(ConfigTree, NewGroupOfACandidateBsrStartsAtTheUnknownValues) {
  auto candidate = config->bsrCandidateConfigIs(intf("eth0"));
  EXPECT_EQ(candidate->groupIs(range)->prefix(), range);
  expectFreshEntry(candidate->group(range));
}

TEST_F(ConfigTree, NewAccessListOfACandidateBsrStartsAtTheUnknownValues) {
  auto candidate = config->bsrCandidateConfigIs(intf("eth0"));
  EXPECT_EQ(candidate->aclIs("list")->aclName(), "list");
  expectFreshEntry(candidate->acl("list"));
}

TEST_F(ConfigTree, NewCandidateRpAdvertisesEveryMinuteInSparseMode) {
  auto candidate = config->rpCandidateConfigIs(intf("eth0"));
  EXPECT_EQ(candidate->advInterval(), CrpAdvInterval(60));
  EXPECT_EQ(static_cast<Zet::U32>(candidate->mode()), 1u);
  EXPECT_EQ(candidate->groupRangeCount() + candidate->aclCount(), 0u);
  EXPECT_EQ(candidate->groupRangeOptionsIs(range)->priority(), RpPriority(256));
  EXPECT_EQ(candidate->aclOptionsIs("list")->priority(), RpPriority(256));
}

TEST_F(ConfigTree, EntriesOfAnInterfaceAreNamedAfterIt) {
  EXPECT_EQ(config->bsrCandidateConfigIs(intf("eth0"))->name(), "eth0");
  EXPECT_EQ(config->bsrCandidateConfig(intf("eth0"))->intfId(), intf("eth0"));
  EXPECT_EQ(config->rpCandidateConfigIs(intf("eth1"))->name(), "eth1");
  EXPECT_EQ(config->rpCandidateConfig(intf("eth1"))->intfId(), intf("eth1"));
  EXPECT_EQ(config->intfConfigIs("eth2")->name(), "eth2");
  EXPECT_EQ(config->intfConfig("eth2")->fwkKey(), "eth2");
}

TEST_F(ConfigTree, FactoriesMakeEntitiesByTheirConstructorArguments) {
  EXPECT_EQ(Bsr::intfConfigFactory("eth0")->name(), "eth0");
  EXPECT_EQ(Bsr::IntfConfig::IntfConfigIs("eth1")->name(), "eth1");
  EXPECT_EQ(Bsr::bsrCandidateConfigFactory("a", intf("eth0"))->name(), "a");
  EXPECT_EQ(Bsr::bsrCandidateGroupFactory(range)->prefix(), range);
  EXPECT_EQ(Bsr::bsrCandidateAclFactory("list")->aclName(), "list");
  EXPECT_EQ(Bsr::rpCandidateConfigFactory("b", intf("eth0"))->intfId(), intf("eth0"));
  EXPECT_EQ(Bsr::rpCandidateGroupEntryOptionsFactory(range)->prefix(), range);
  EXPECT_EQ(Bsr::rpCandidateAclEntryOptionsFactory("list")->aclName(), "list");
  EXPECT_EQ(Bsr::clearConfigFactory("clear")->countersCount(), 0u);
}

// Ranges ----------------------------------------------------------------------------------------------

TEST_F(ConfigTree, BsTimeoutIsFrom12To1073741823) {
  config->holdTimeIs(12);
  config->holdTimeIs(1073741823);
  char const* rejected = "Config::holdTime < 12 or > 1073741823 not allowed";
  EXPECT_EQ(rangeError([&] { config->holdTimeIs(11); }), rejected);
  EXPECT_EQ(rangeError([&] { config->holdTimeIs(1073741824); }), rejected);
  EXPECT_EQ(heard(), (Texts{"holdTime 12", "holdTime 1073741823"}));
}

TEST_F(ConfigTree, SzTimeoutIsFrom120To4294967295) {
  config->szTimeoutIs(120);
  config->szTimeoutIs(4294967295);
  EXPECT_EQ(rangeError([&] { config->szTimeoutIs(119); }),
            "Config::szTimeout < 120 or > 0xFFFFFFFF not allowed");
  EXPECT_EQ(heard(), (Texts{"szTimeout 120", "szTimeout 4294967295"}));
}

template <class Entry>
void expectRanges(Ptr<Entry> const& entry, std::string const& name) {
  entry->priorityIs(0);
  entry->priorityIs(256);
  EXPECT_EQ(rangeError([&] { entry->priorityIs(257); }), name + "::priority < 0 or > 256 not allowed");
  entry->hashMaskLenIs(0);
  entry->hashMaskLenIs(128);
  EXPECT_EQ(rangeError([&] { entry->hashMaskLenIs(129); }), name + "::hashMaskLen < 0 or > 128 not allowed");
  entry->intervalIs(10);
  entry->intervalIs(536870906);
  std::string rejected = name + "::interval < " + name + "::minInterval or > 536870906 not allowed";
  EXPECT_EQ(rangeError([&] { entry->intervalIs(9); }), rejected);
  EXPECT_EQ(rangeError([&] { entry->intervalIs(536870907); }), rejected);
}

TEST_F(ConfigTree, AGroupOfACandidateBsrRejectsByItsOwnName) {
  expectRanges(Bsr::bsrCandidateGroupFactory(range), "BsrCandidateGroup");
}

TEST_F(ConfigTree, AnAccessListOfACandidateBsrRejectsByItsOwnName) {
  expectRanges(Bsr::bsrCandidateAclFactory("list"), "BsrCandidateAcl");
}

TEST_F(ConfigTree, ThePriorityOfACandidateRpIsRejectedWhereTheValueIsMade) {
  auto options = Bsr::rpCandidateAclEntryOptionsFactory("list");
  options->priorityIs(0);
  options->priorityIs(256);
  EXPECT_EQ(rangeError([&] { options->priorityIs(257); }), "RpPriority::value < 0 or > 256 not allowed");
  EXPECT_EQ(options->priority(), RpPriority(256));
}

TEST_F(ConfigTree, ARejectedValueStaysAndIsNotNotifiedAndItsRepetitionIsNoChange) {
  char const* rejected = "Config::holdTime < 12 or > 1073741823 not allowed";
  EXPECT_EQ(rangeError([&] { config->holdTimeIs(5); }), rejected);
  EXPECT_EQ(config->holdTime(), 5u);
  config->holdTimeIs(5);
  EXPECT_EQ(heard(), Texts());
  config->holdTimeIs(130);
  EXPECT_EQ(heard(), Texts{"holdTime 130"});
}

// Collections -----------------------------------------------------------------------------------------

TEST_F(ConfigTree, EachCollectionReportsWhatCameAndWentByItsKey) {
  config->bsrCandidateConfigIs(intf("eth0"));
  config->rpCandidateConfigIs(intf("eth1"));
  config->intfConfigIs("eth2");
  config->crpFilterAclIs("list", true);
  Texts made{"bsrCandidateConfig eth0", "rpCandidateConfig eth1", "intfConfig eth2", "crpFilterAcl list"};
  EXPECT_EQ(heard(), made);
  config->bsrCandidateConfigDel(intf("eth0"));
  config->rpCandidateConfigDelAll();
  config->intfConfigDel("eth2");
  config->crpFilterAclDel("list");
  EXPECT_EQ(heard(), made);
  EXPECT_FALSE(config->bsrCandidateConfig(intf("eth0")));
  EXPECT_FALSE(config->crpFilterAcl("list"));
}

TEST_F(ConfigTree, AnExistingMemberIsReturnedUntouched) {
  auto group = config->bsrCandidateConfigIs(intf("eth0"))->groupIs(range);
  group->priorityIs(7);
  heard();
  EXPECT_EQ(config->bsrCandidateConfigIs(intf("eth0"))->groupIs(range), group);
  EXPECT_EQ(group->priority(), 7);
  EXPECT_EQ(heard(), Texts());
}

TEST_F(ConfigTree, AbsentMembersReadAsNullOrFalse) {
  auto candidate = config->rpCandidateConfigIs(intf("eth0"));
  EXPECT_FALSE(candidate->groupRange(range));
  EXPECT_FALSE(candidate->acl("list"));
  EXPECT_FALSE(candidate->groupRangeOptions(range));
  EXPECT_FALSE(candidate->aclOptions("list"));
  auto border = config->intfConfigIs("eth0");
  EXPECT_FALSE(border->bsrBorderGrp(range));
  EXPECT_FALSE(border->bsrBorderAcl("list"));
}

TEST_F(ConfigTree, RangesAreReportedByReflection) {
  Zet::AttributeRow const* row = Bsr::BsrCandidateGroup::_fwkType().row("interval");
  ASSERT_TRUE(row);
  EXPECT_STREQ(row->range,
               "BsrCandidateGroup::interval < BsrCandidateGroup::minInterval or > 536870906 not allowed");
  EXPECT_STREQ(row->unit, "s");
}

// PIM's message counters ------------------------------------------------------------------------------

TEST(MessageCounters, ClearingSetsEachCountToZeroAndKeepsItsEntry) {
  auto counters = Routing::Pim::Slosh::messageCountersFactory("pim");
  counters->rxIs(4, 7);
  counters->rxErrorIs(8, 2);
  counters->txIs(0, 9);
  Routing::Pim::IO::clearMessageCounters(counters);
  EXPECT_EQ(counters->rx(4) + counters->rxError(8) + counters->tx(0), 0u);
  EXPECT_EQ(counters->rxCount() + counters->rxErrorCount() + counters->txCount(), 3u);
}

TEST(MessageCounters, ANullTableIsRejected) {
  EXPECT_EQ(
      rangeError([] { Routing::Pim::IO::clearMessageCounters(Ptr<Routing::Pim::Slosh::MessageCounters>()); }),
      "null ValidPtr");
}

}  // namespace
}  // namespace test
