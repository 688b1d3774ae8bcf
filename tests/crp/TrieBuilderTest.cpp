#include <string>
#include <vector>

#include "crp/PimBsrCrpPermitTrieBuilderSm.h"
#include "crp/PimBsrTrieBuilder.h"
#include "runtime/Trace.h"
#include "tests/support/Messages.h"
#include "tests/support/RangeError.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using Lanet::AddressFamily;
using Routing::TrieGen;
using Routing::Pim::Bsr::PimBsrCrpPermitTrieBuilderSm;
using Routing::Pim::Bsr::PimBsrTrieBuilderSm;
using testing_support::rangeError;
using Zet::Ptr;

/// Notes each zone that the trie's signal named.
class SignalWatch : public TrieGen::NotifieeConst {
 public:
  void onChangedRoute() override {
    if (auto zone = notifier()->changedRoute(); !zone.isEmpty())
      heard.emplace_back(zone.stringValue().view());
  }
  std::vector<std::string> heard;
};

class Builder : public ModelTest {
 protected:
  Builder() { watch->notifierIs(trie); }
  bool route(std::string const& text) const { return trie->route(prefix(text)); }
  /// What was signalled since the last call.
  std::vector<std::string> signals() { return std::exchange(watch->heard, {}); }
  Ptr<Routing::Pim::Bsr::Status> status = Routing::Pim::Bsr::statusFactory("bsr");
  Ptr<TrieGen> trie = Routing::trieGenFactory("trie", AddressFamily::ipv4);
  Ptr<SignalWatch> watch = Zet::make<SignalWatch>();
};

class ZoneTrieBuilder : public Builder {
 protected:
  void start() { builder = Routing::Pim::Bsr::pimBsrTrieBuilderSmFactory(status, trie); }
  Ptr<PimBsrTrieBuilderSm> builder;
};

TEST_F(ZoneTrieBuilder, TakesOverTheZonesThatExistWhenItIsMadeCountingEachOnce) {
  status->bootstrapRouterIs(prefix("224.0.0.0/4"))->ipAddrIs(addr("10.0.0.1"));
  status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  start();
  EXPECT_TRUE(route("224.0.0.0/4"));
  EXPECT_TRUE(route("239.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 2u);
  EXPECT_EQ(signals().size(), 2u);  // the two routes; what the reactors find at their creation is no change
}

TEST_F(ZoneTrieBuilder, AnElectedBsrGivesARouteAndItsEndTakesItEachOneUpdate) {
  start();
  EXPECT_EQ(builder->trieUpdates(), 0u);
  status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  EXPECT_TRUE(route("239.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 1u);
  EXPECT_EQ(context.tracedAs("Added prefix 239.0.0.0/8 into trie"), "Pim::Bsr::Sm 8 PimBsrTrieBuilderSm");
  status->bootstrapRouterDel(prefix("239.0.0.0/8"));
  EXPECT_FALSE(route("239.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 2u);
  EXPECT_EQ(context.tracedAs("Deleted prefix 239.0.0.0/8 from trie"), "Pim::Bsr::Sm 8 PimBsrTrieBuilderSm");
}

TEST_F(ZoneTrieBuilder, AZoneThatComesAndGoesInTurnWakesTheTriesWatchersEachTime) {
  start();
  for (int i = 0; i < 3; ++i) {
    status->bootstrapRouterIs(prefix("239.0.0.0/8"));
    EXPECT_EQ(signals(), std::vector<std::string>{"239.0.0.0/8"}) << i;
    status->bootstrapRouterDel(prefix("239.0.0.0/8"));
    EXPECT_EQ(signals(), std::vector<std::string>{"239.0.0.0/8"}) << i;
  }
}

TEST_F(ZoneTrieBuilder, EntryOfTheHandlerIsTracedAtLevel9WithItsSignature) {
  Zet::TraceHandle::handle("Pim::Bsr::Sm").levelIs(9, true);
  start();
  context.traces.clear();
  status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  ASSERT_FALSE(context.traces.empty());
  EXPECT_EQ(context.traces.front().level, 9);
  EXPECT_NE(context.traces.front().text.find("PimBsrTrieBuilderSm::handleBsr(const"), std::string::npos)
      << context.traces.front().text;
}

TEST_F(ZoneTrieBuilder, TheWholeUpdateAddsOnly) {
  start();
  status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  trie->routeIs(prefix("238.0.0.0/8"), true);
  trie->routeDel(prefix("239.0.0.0/8"));
  builder->handleBsr();
  EXPECT_TRUE(route("239.0.0.0/8"));
  EXPECT_TRUE(route("238.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 2u);
}

TEST_F(ZoneTrieBuilder, OneBsrThatReplacesAnotherLeavesTheRoutesAndIsSignalledEachTime) {
  start();
  auto elected = status->bootstrapRouterIs(prefix("224.0.0.0/4"));
  status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  signals();
  for (char const* bsr : {"10.0.0.1", "10.0.0.2", "10.0.0.3"}) {
    elected->ipAddrIs(addr(bsr));
    EXPECT_EQ(signals(), std::vector<std::string>{"224.0.0.0/4"}) << bsr;
  }
  elected->ipAddrIs(addr("10.0.0.3"));
  EXPECT_TRUE(signals().empty());
  EXPECT_EQ(trie->routes(), 2u);
  EXPECT_EQ(builder->trieUpdates(), 2u);
}

TEST_F(ZoneTrieBuilder, SignalsABsrChangeOfAZoneThatExistedWhenItWasMade) {
  auto elected = status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  elected->ipAddrIs(addr("10.0.0.1"));
  start();
  signals();
  elected->ipAddrIs(addr("10.0.0.2"));
  EXPECT_EQ(signals(), std::vector<std::string>{"239.0.0.0/8"});
}

TEST_F(ZoneTrieBuilder, AnEntryThatWentSignalsNothingAndItsSuccessorDoes) {
  start();
  auto gone = status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  status->bootstrapRouterDel(prefix("239.0.0.0/8"));
  auto successor = status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  signals();
  gone->ipAddrIs(addr("10.0.0.1"));
  EXPECT_TRUE(signals().empty());
  successor->ipAddrIs(addr("10.0.0.2"));
  EXPECT_EQ(signals(), std::vector<std::string>{"239.0.0.0/8"});
}

TEST_F(ZoneTrieBuilder, ItsEndLeavesTheRoutesAndHearsNothingMore) {
  start();
  auto elected = status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  builder = nullptr;
  signals();
  EXPECT_TRUE(route("239.0.0.0/8"));
  elected->ipAddrIs(addr("10.0.0.1"));
  status->bootstrapRouterIs(prefix("238.0.0.0/8"));
  EXPECT_TRUE(signals().empty());
  EXPECT_EQ(trie->routes(), 1u);
}

TEST_F(ZoneTrieBuilder, RejectsNullArguments) {
  EXPECT_EQ(rangeError([&] {
              Routing::Pim::Bsr::pimBsrTrieBuilderSmFactory(Ptr<Routing::Pim::Bsr::Status>(), trie);
            }),
            "null ValidPtr");
  EXPECT_EQ(rangeError([&] { Routing::Pim::Bsr::pimBsrTrieBuilderSmFactory(status, Ptr<TrieGen>()); }),
            "null ValidPtr");
  start();
  EXPECT_EQ(rangeError([&] { builder->bsrIs(nullptr); }),
            "null _bsr parameter to mutator for Routing::Pim::Bsr::PimBsrTrieBuilderSm::bsr not allowed\"");
}

class PermitTrieBuilder : public Builder {
 protected:
  void start() { builder = Routing::Pim::Bsr::pimBsrCrpPermitTrieBuilderSmFactory(status, trie); }
  void permit(std::string const& range, bool value) { status->crpPermitIs(prefix(range), value); }
  Ptr<PimBsrCrpPermitTrieBuilderSm> builder;
};

TEST_F(PermitTrieBuilder, CountsEachRangeThatExistsWhenItIsMadeTwice) {
  permit("10.0.0.0/8", true);
  permit("192.0.2.0/24", true);
  start();
  EXPECT_TRUE(route("10.0.0.0/8"));
  EXPECT_TRUE(route("192.0.2.0/24"));
  EXPECT_EQ(builder->trieUpdates(), 4u);
  builder->handleCrpPermit();
  EXPECT_EQ(builder->trieUpdates(), 8u);
}

TEST_F(PermitTrieBuilder, ARangeHeldAsFalseWhenItIsMadeGivesNoRouteButCounts) {
  permit("10.0.0.0/8", false);
  start();
  EXPECT_FALSE(route("10.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 2u);
}

TEST_F(PermitTrieBuilder, APermittedRangeGivesARouteAndItsEndTakesItEachOneUpdate) {
  start();
  permit("10.0.0.0/8", true);
  EXPECT_TRUE(route("10.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 1u);
  EXPECT_EQ(context.tracedAs("Added prefix 10.0.0.0/8 into trie"),
            "Pim::Bsr::CrpPermitTrieBuilderSm 8 PimBsrCrpPermitTrieBuilderSm");
  permit("10.0.0.0/8", true);
  EXPECT_EQ(builder->trieUpdates(), 1u);
  status->crpPermitDel(prefix("10.0.0.0/8"));
  EXPECT_FALSE(route("10.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 2u);
  EXPECT_EQ(context.tracedAs("Deleted prefix 10.0.0.0/8 from trie"),
            "Pim::Bsr::CrpPermitTrieBuilderSm 8 PimBsrCrpPermitTrieBuilderSm");
}

TEST_F(PermitTrieBuilder, TheValueFalseRemovesTheRouteAlthoughTheKeyExists) {
  start();
  permit("10.0.0.0/8", true);
  permit("10.0.0.0/8", false);
  EXPECT_EQ(status->crpPermitCount(), 1u);
  EXPECT_FALSE(route("10.0.0.0/8"));
  EXPECT_EQ(builder->trieUpdates(), 2u);
  permit("172.16.0.0/12", false);
  EXPECT_FALSE(route("172.16.0.0/12"));
  EXPECT_EQ(builder->trieUpdates(), 3u);
  EXPECT_EQ(context.tracedAs("Deleted prefix 172.16.0.0/12 from trie"),
            "Pim::Bsr::CrpPermitTrieBuilderSm 8 PimBsrCrpPermitTrieBuilderSm");
}

TEST_F(PermitTrieBuilder, EntryOfTheHandlerIsTracedAtLevel9WithItsSignature) {
  Zet::TraceHandle::handle("Pim::Bsr::CrpPermitTrieBuilderSm").levelIs(9, true);
  start();
  context.traces.clear();
  permit("10.0.0.0/8", true);
  ASSERT_FALSE(context.traces.empty());
  EXPECT_EQ(context.traces.front().level, 9);
  EXPECT_NE(context.traces.front().text.find("PimBsrCrpPermitTrieBuilderSm::handleCrpPermit(const"),
            std::string::npos)
      << context.traces.front().text;
}

TEST_F(PermitTrieBuilder, ASenderThatNoRangeCoversMatchesTheEmptyPrefix) {
  start();
  permit("10.0.0.0/8", true);
  Lanet::IpGenPrefix covered(addr("10.1.2.3"));
  Lanet::IpGenPrefix outside(addr("192.0.2.1"));
  EXPECT_EQ(trie->longestMatch(covered), prefix("10.0.0.0/8"));
  EXPECT_TRUE(trie->longestMatch(outside).isEmpty());
  permit("0.0.0.0/0", true);
  EXPECT_EQ(trie->longestMatch(outside), prefix("0.0.0.0/0"));
}

TEST_F(PermitTrieBuilder, ItsEndLeavesTheRoutesAndHearsNothingMore) {
  start();
  permit("10.0.0.0/8", true);
  builder = nullptr;
  permit("10.0.0.0/8", false);
  permit("192.0.2.0/24", true);
  EXPECT_TRUE(route("10.0.0.0/8"));
  EXPECT_EQ(trie->routes(), 1u);
}

TEST_F(PermitTrieBuilder, RejectsNullArguments) {
  using Routing::Pim::Bsr::pimBsrCrpPermitTrieBuilderSmFactory;
  EXPECT_EQ(rangeError([&] { pimBsrCrpPermitTrieBuilderSmFactory(Ptr<Routing::Pim::Bsr::Status>(), trie); }),
            "null ValidPtr");
  EXPECT_EQ(rangeError([&] { pimBsrCrpPermitTrieBuilderSmFactory(status, Ptr<TrieGen>()); }),
            "null ValidPtr");
}

}  // namespace
}  // namespace test
