// The machine itself: how it comes up, what it copies, what it clears, and how it goes.

#include "config/ConfigSm.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "config/SourceAddress.h"
#include "runtime/Trace.h"
#include "tests/support/ConfigEngine.h"
#include "tests/support/RangeError.h"

namespace test {
namespace {

using testing_support::rangeError;
using Zet::Ptr;
using Texts = std::vector<std::string>;

class ConfigSmTest : public ConfigTest {};

// Construction ----------------------------------------------------------------------------------------

TEST_F(ConfigSmTest, OnceMadeItIsInitializedAndKnowsItsTwoPrefixes) {
  engine.start();
  EXPECT_TRUE(engine.machine->initialized());
  EXPECT_EQ(engine.machine->zeroPfx(), prefix("0.0.0.0/0"));
  EXPECT_EQ(engine.machine->globalOrNonScopedZone(), prefix("224.0.0.0/4"));
}

TEST_F(ConfigSmTest, ASecondInitializationDoesNothing) {
  engine.start();
  engine.status->crpPermitDelAll();
  engine.machine->handleInitialized();
  EXPECT_EQ(engine.permits(), "");
}

TEST_F(ConfigSmTest, WhatExistsAtTheStartIsTakenOver) {
  engine.address("eth0", "10.0.0.1");
  engine.rules("list", {"permit 239.1.0.0/16"});
  engine.bsrList("eth0", "list");
  engine.rp("eth0")->groupRangeIs(prefix("239.0.0.0/8"), true);
  engine.border("eth1")->bsrBorderAclIs("list", true);
  engine.start();
  EXPECT_EQ(engine.cbsr(), "239.1.0.0/16 eth0 10.0.0.1 64/30/60");
  EXPECT_EQ(engine.crp(), "10.0.0.1 eth0 60: 239.0.0.0/8 | ");
  EXPECT_EQ(engine.borders(), "239.1.0.0/16: eth1");
  EXPECT_EQ(engine.permits(), "0.0.0.0/0");
}

TEST_F(ConfigSmTest, BeginsWithTheTimeoutsThenTheFilterThenBordersThenCandidateRpsThenCandidateBsrs) {
  engine.address("eth0", "10.0.0.1");
  engine.rules("list", {"permit 10.0.0.0/8"});
  engine.config->crpFilterAclIs("list", true);
  engine.bsrGroup("eth0", "239.1.0.0/16");
  engine.rp("eth0")->groupRangeIs(prefix("239.2.0.0/16"), true);
  engine.border("eth0")->bsrBorderGrpIs(prefix("239.3.0.0/16"), true);
  engine.start();
  Texts expected{"BSR Hold Time is 130",
                 "Scoped Zone timeout is 1300 secs",
                 "Created BsrConfigAcl object for acl list",
                 "Created group 239.3.0.0/16 BSR Border set",
                 "Created C-RP 10.0.0.1",
                 "Created CBSR zone 239.1.0.0/16"};
  Texts seen;
  for (std::string const& text : context.tracedBy("ConfigSm")) {
    if (std::find(expected.begin(), expected.end(), text) != expected.end()) seen.push_back(text);
  }
  EXPECT_EQ(seen, expected);
}

TEST_F(ConfigSmTest, TracesUnderTheHandleOfTheConfiguration) {
  engine.start();
  EXPECT_EQ(context.tracedAs("BSR Hold Time is 130"), "Pim::Bsr::Config 8 ConfigSm");
}

TEST_F(ConfigSmTest, EntryOfAHandlerIsTracedAtLevel9WithItsSignature) {
  Zet::TraceHandle::handle("Pim::Bsr::Config").levelIs(9, true);
  engine.start();
  ASSERT_FALSE(context.traces.empty());
  int entries = 0;
  for (Zet::TraceLine const& line : context.traces) {
    entries += line.level == 9 && line.text.find("ConfigSm::handleInitialized()") != std::string::npos;
  }
  EXPECT_EQ(entries, 1);
}

TEST_F(ConfigSmTest, WithoutAccessListsARoleMayNameOneAllTheSame) {
  engine.lists = nullptr;
  engine.address("eth0", "10.0.0.1");
  engine.bsrList("eth0", "list");
  engine.config->crpFilterAclIs("filter", true);
  engine.start();
  EXPECT_EQ(engine.groups("list"), "");
  EXPECT_EQ(engine.senders("filter"), "");
  EXPECT_EQ(engine.cbsr(), "");
  engine.machine->handleAclConfig();
  EXPECT_FALSE(engine.machine->zetIpAclConfig());
}

TEST_F(ConfigSmTest, RejectsNullArgumentsButAnAbsentDirectoryOfLists) {
  auto make = [&](auto config, auto clear, auto status, auto counters, auto sources) {
    return rangeError([&] { Bsr::configSmFactory(config, clear, status, counters, sources, nullptr); });
  };
  Ptr<Bsr::Config> noConfig;
  Ptr<Bsr::ClearConfig> noClear;
  Ptr<Bsr::Status> noStatus;
  Ptr<Routing::Pim::Slosh::MessageCounters> noCounters;
  Ptr<Ip::SourceIntf::SourceIntfSm> noSources;
  auto& e = engine;
  EXPECT_EQ(make(noConfig, e.clear, e.status, e.counters, e.sources), "null ValidPtr");
  EXPECT_EQ(make(e.config, noClear, e.status, e.counters, e.sources), "null ValidPtr");
  EXPECT_EQ(make(e.config, e.clear, noStatus, e.counters, e.sources), "null ValidPtr");
  EXPECT_EQ(make(e.config, e.clear, e.status, noCounters, e.sources), "null ValidPtr");
  EXPECT_EQ(make(e.config, e.clear, e.status, e.counters, noSources), "null ValidPtr");
  EXPECT_EQ(make(e.config, e.clear, e.status, e.counters, e.sources), "no RangeException");
}

using ConfigSmDeathTest = ConfigSmTest;

TEST_F(ConfigSmDeathTest, AnyFamilyButIpv4EndsTheProcess) {
  engine.status->afIs(Lanet::AddressFamily::unset);
  EXPECT_DEATH(engine.start(), "IPV6 or Unknown Address Family not supported");
  engine.status->afIs(Lanet::AddressFamily::ipv6);
  EXPECT_DEATH(engine.start(), "IPV6 or Unknown Address Family not supported");
}

TEST_F(ConfigSmDeathTest, ASourceAddressIsUnsetOrZeroOrSetAndNeverIpv6) {
  using Bsr::SourceAddress;
  EXPECT_EQ(Bsr::kindOf(Lanet::IpGenAddr()), SourceAddress::unset);
  EXPECT_EQ(Bsr::kindOf(addr("0.0.0.0")), SourceAddress::zero);
  EXPECT_EQ(Bsr::kindOf(addr("10.0.0.1")), SourceAddress::set);
  EXPECT_DEATH(Bsr::kindOf(addr("::1")), "IPV6 not supported");
}

// Timeouts --------------------------------------------------------------------------------------------

TEST_F(ConfigSmTest, TheBsTimeoutIsCopied) {
  engine.start();
  EXPECT_EQ(engine.status->bsTimeout(), 130u);
  engine.config->holdTimeIs(200);
  EXPECT_EQ(engine.status->bsTimeout(), 200u);
  EXPECT_TRUE(tracedOnce("BSR Hold Time is 200"));
}

TEST_F(ConfigSmTest, ASzTimeoutOfTenBsTimeoutsIsStoredAndOneLessIsRaisedToThat) {
  engine.start();
  engine.config->szTimeoutIs(1301);
  EXPECT_EQ(engine.status->szTimeout(), 1301u);
  engine.config->szTimeoutIs(1300);
  EXPECT_EQ(engine.status->szTimeout(), 1300u);
  forget();
  engine.config->szTimeoutIs(1299);
  EXPECT_EQ(engine.status->szTimeout(), 1300u);
  EXPECT_TRUE(tracedOnce("Scoped Zone timeout 1299 secs too low. Setting it to 1300 secs in status"));
}

TEST_F(ConfigSmTest, ABsTimeoutThatExceedsTheSzTimeoutDoesNotChangeIt) {
  engine.start();
  engine.config->holdTimeIs(500);
  EXPECT_EQ(engine.status->bsTimeout(), 500u);
  EXPECT_EQ(engine.status->szTimeout(), 1300u);
  engine.config->szTimeoutIs(1301);
  EXPECT_EQ(engine.status->szTimeout(), 5000u);
}

TEST_F(ConfigSmTest, TheFloorOfTheSzTimeoutWrapsAt32Bits) {
  engine.config->holdTimeIs(429496730);
  engine.start();
  EXPECT_EQ(engine.status->szTimeout(), 1300u);  // the floor wrapped to 4
  EXPECT_TRUE(tracedOnce("Scoped Zone timeout is 1300 secs"));
}

TEST_F(ConfigSmTest, ARejectedValueIsNotNotifiedAtOnceButReadWhenTheAttributeIsNext) {
  engine.start();
  EXPECT_NE(rangeError([&] { engine.config->holdTimeIs(5); }), "no RangeException");
  EXPECT_EQ(engine.status->bsTimeout(), 130u);
  engine.config->szTimeoutIs(120);
  EXPECT_EQ(engine.status->szTimeout(), 120u);  // the floor is ten times the rejected BS_Timeout
}

// Counters --------------------------------------------------------------------------------------------

TEST_F(ConfigSmTest, AnyChangeOfTheClearCountClearsPimsMessageCountersAlone) {
  engine.status->countersIs("bsr")->rxIs(3);
  engine.start();
  for (Zet::U32 count : {1u, 5u, 2u}) {
    engine.counters->rxIs(4, 7);
    engine.clear->countersCountIs(count);
    EXPECT_EQ(engine.counters->rx(4), 0u) << count;
  }
  engine.counters->rxIs(4, 7);
  engine.clear->countersCountIs(2);
  EXPECT_EQ(engine.counters->rx(4), 7u);
  EXPECT_EQ(engine.status->counters()->rx(), 3u);
}

// End -------------------------------------------------------------------------------------------------

class DownTest : public ConfigSmTest {
 protected:
  DownTest() {
    engine.address("eth0", "10.0.0.1");
    engine.rules("list", {"permit 239.1.0.0/16"});
    engine.rules("filter", {"permit 10.0.0.0/8"});
    engine.config->crpFilterAclIs("filter", true);
    engine.bsrList("eth0", "list");
    engine.bsrGroup("eth0", "239.2.0.0/16");
    engine.rp("eth0")->aclIs("list", true);
    engine.border("eth0")->bsrBorderAclIs("list", true);
    engine.start();
  }
};

TEST_F(DownTest, ItsEndLeavesStatusAsItIsAndUndoesNothing) {
  std::string before = engine.all();
  forget();
  engine.stop();
  EXPECT_EQ(engine.all(), before);
  EXPECT_EQ(context.tracedBy("ConfigSm"), Texts());
}

TEST_F(DownTest, OnceGoneItHearsOfNothingMore) {
  std::string before = engine.all();
  engine.stop();
  engine.config->holdTimeIs(20);
  engine.config->bsrCandidateConfigDelAll();
  engine.config->rpCandidateConfigDelAll();
  engine.config->intfConfigDelAll();
  engine.config->crpFilterAclDelAll();
  engine.rules("list", {});
  engine.address("eth0", "10.0.0.2");
  engine.lists->aclDelAll();
  EXPECT_EQ(engine.all(), before);
}

/// Notes what the machine's own collections notify.
class MachineWatch : public Bsr::ConfigSm::NotifieeConst {
 public:
  explicit MachineWatch(Ptr<Bsr::BsrConfigAcl> const& record) : record_(record) {}
  void onBsrConfigAcl(Zet::String8 const& key) override { note("record " + std::string(key.view())); }
  void onBorderPfxRefCount(Lanet::IntfId const&) override { note("borders"); }
  void onCbsrPfxRefCount(Lanet::IntfId const&) override { note("candidate BSRs"); }
  void onCrpPfxRefCount(Lanet::IntfId const&) override { note("candidate RPs"); }
  Texts heard;

 private:
  /// Each change is noted with the number of reactors that still watch a record.
  void note(std::string const& what) {
    heard.push_back(what + ", watchers " + std::to_string(record_->zetNotifiees().size()));
  }

  Ptr<Bsr::BsrConfigAcl> record_;
};

TEST_F(DownTest, TheReactorsGoFirstThenTheRecordsThenTheCountsByRole) {
  Ptr<Bsr::BsrConfigAcl> record = engine.machine->bsrConfigAcl("list");
  auto watch = Zet::make<MachineWatch>(record);
  watch->isWeakReferenceIs(true);
  watch->notifierIs(engine.machine);
  EXPECT_EQ(record->zetNotifiees().size(), 1u);
  engine.stop();
  ASSERT_EQ(watch->heard.size(), 5u);
  Texts records(watch->heard.begin(), watch->heard.begin() + 2);
  EXPECT_THAT(records, testing::UnorderedElementsAre("record list, watchers 0", "record filter, watchers 0"));
  EXPECT_EQ(Texts(watch->heard.begin() + 2, watch->heard.end()),
            (Texts{"borders, watchers 0", "candidate BSRs, watchers 0", "candidate RPs, watchers 0"}));
}

}  // namespace
}  // namespace test
