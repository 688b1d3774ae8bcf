#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "model/DropReason.h"
#include "tests/support/Engine.h"

namespace test {
namespace {

using Routing::Pim::Packet::BootstrapMessage;
using Zet::Ptr;
using Texts = std::vector<std::string>;

std::string const accepted = "RX - Accepted BSM from 192.0.2.1";

class Gate : public EngineTest {
 protected:
  /// "arrived/dropped/accepted" of all messages and of Bootstrap Messages, then each drop reason that
  /// isn't 0.
  std::string counts() const {
    auto const& c = *engine.status->counters();
    std::ostringstream out;
    out << c.rx() << '/' << c.rxError() << '/' << c.rxSuccess() << " bsm " << c.rxBsm() << '/'
        << c.rxBsmError() << '/' << c.rxBsmSuccess();
    Bsr::PimBsrErrorCounters e = c.errCounters();
    std::pair<char const*, Zet::U32> const causes[] = {{"rxFilter", e.rxFilter},
                                                       {"rxNbrRpfCheck", e.rxNbrRpfCheck},
                                                       {"rxNoForwardBsm", e.rxNoForwardBsm},
                                                       {"rxUnicastBsm", e.rxUnicastBsm},
                                                       {"rxScopeMismatch", e.rxScopeMismatch},
                                                       {"rxInvalid", e.rxInvalid}};
    for (auto const& [name, n] : causes) {
      if (n != 0) out << ' ' << name << ' ' << n;
    }
    return out.str();
  }
  /// Whether the gate takes such a message now.
  bool takes(Bsm const& given, std::string const& intfName = "eth0") {
    Zet::U32 before = engine.status->counters()->rxSuccess();
    engine.receive(given, intfName);
    return engine.status->counters()->rxSuccess() == before + 1;
  }
  static Bsm noForward(std::vector<Group> const& groups = {}) { return {.groups = groups, .forward = false}; }
};

std::vector<Group> const scopedZone{{"239.0.0.0/8", {}, scopedFlag}};

// Accepted messages -----------------------------------------------------------------------------------

TEST_F(Gate, AMessageFromTheRpfNeighborIsAcceptedAndCountedOnceEverywhere) {
  auto message = engine.receive(Bsm{});
  EXPECT_EQ(counts(), "1/0/1 bsm 1/0/1");
  EXPECT_EQ(context.tracedAs(accepted), "Pim::Bsr::IO 4 BootstrapMessageSm");
  EXPECT_EQ(engine.bsmStatus->rxBsm(), message);
  EXPECT_EQ(engine.bsmStatus->iifIntfId(), intf("eth0"));
  engine.receive(Bsm{}, "eth1");
  EXPECT_EQ(counts(), "2/0/2 bsm 2/0/2");
  EXPECT_EQ(engine.bsmStatus->iifIntfId(), intf("eth1"));
}

TEST_F(Gate, TheFirstGroupIsPublishedAndNullForAMessageWithoutGroups) {
  auto message = engine.receive({.groups = {{"239.1.0.0/16"}, {"239.2.0.0/16"}}});
  EXPECT_EQ(engine.bsmStatus->firstGroup(), message->groupRpData()->groupDataFirst());
  engine.receive(Bsm{});
  EXPECT_FALSE(engine.bsmStatus->firstGroup());
  EXPECT_EQ(counts(), "2/0/2 bsm 2/0/2");
}

TEST_F(Gate, ARaiseOfTheCountIsAMessageEvenIfTheRecordIsTheSame) {
  auto message = engine.receive(Bsm{});
  engine.receive(message);
  EXPECT_EQ(counts(), "2/0/2 bsm 2/0/2");
  EXPECT_EQ(engine.gate->lastBsm(prefix("224.0.0.0/4")), message);
}

TEST_F(Gate, AMessageCountsAsAcceptedWhateverTheZonesMachineDidWithIt) {
  engine.receive({.bsr = "10.0.0.9", .priority = 200});
  engine.receive({.bsr = "10.0.0.1", .priority = 1});
  EXPECT_EQ(context.traced("Received Non Preferred BSM. Nothing to be done."), 1);
  EXPECT_EQ(counts(), "2/0/2 bsm 2/0/2");
  engine.receive({.bsr = "10.0.0.9", .priority = 200, .groups = {{"224.0.0.0/4", {{"203.0.113.1", 65535}}}}});
  EXPECT_EQ(counts(), "3/0/3 bsm 3/0/3");
  expectedExceptions = 1;  // that holdtime is above what an RP can have
}

// Drops -----------------------------------------------------------------------------------------------

struct DropCase {
  char const* name;
  Bsm message;
  char const* cause;
  char const* trace;
};

void PrintTo(DropCase const& given, std::ostream* out) { *out << given.name; }

/// Each drop on an interface that is a border of 239.0.0.0/8, 45.5 seconds after the start. The
/// BSR 10.0.0.66 has no RPF neighbor, and the one of 10.0.0.1 is 192.0.2.1.
DropCase const drops[] = {
    {"AnotherMulticastDestination",
     {.destination = "224.0.0.1"},
     "rxInvalid 1",
     "RX - Error - Do not know what we are dealing with here: 224.0.0.1"},
    {"AUnicastDestination",
     {.destination = "192.0.2.7"},
     "rxUnicastBsm 1",
     "RX - Error - Unicast BSM not supported."},
    {"AUnicastDestinationOfANoForwardMessage",
     {.forward = false, .destination = "192.0.2.7"},
     "rxUnicastBsm 1",
     "RX - Error - Unicast BSM not supported."},
    {"NoRpfNeighbor",
     {.bsr = "10.0.0.66"},
     "rxNbrRpfCheck 1",
     "RX - Error - Dropping BSM since BSM src 192.0.2.1 for BSR address 10.0.0.66 - RPF neighbor not "
     "available."},
    {"AnotherSourceThanTheRpfNeighbor",
     {.source = "192.0.2.2"},
     "rxNbrRpfCheck 1",
     "RX - Error - Dropping BSM since BSM src 192.0.2.2 is not from neighbor 192.0.2.1 for BSR address "
     "10.0.0.1"},
    {"NoForwardTooLateBeforeTheBorder",
     {.groups = {{"238.0.0.0/8", {}, scopedFlag}}, .forward = false},
     "rxNoForwardBsm 1",
     "RX - Error - Dropping BSM. We expect no-forward BSM only if quick refresh. lastBsm=NULL, TimeSince "
     "startup=45.5, bsPeriod=30"},
    {"OnABorderOfTheZone",
     {.groups = scopedZone},
     "rxFilter 1",
     "RX: Error - Dropping BSM since the interface eth0 the message arrived on is a BSR border for "
     "group239.0.0.0/8"},
    {"NoForwardOnABorderOfTheZone",
     {.groups = scopedZone, .forward = false},
     "rxFilter 1",
     "RX: Error - Dropping BSM since the interface eth0 the message arrived on is a BSR border for "
     "group239.0.0.0/8"},
    {"TheDestinationBeforeEverythingElse",
     {.bsr = "10.0.0.66", .groups = scopedZone, .destination = "239.255.255.255"},
     "rxInvalid 1",
     "RX - Error - Do not know what we are dealing with here: 239.255.255.255"},
    {"NoRpfNeighborBeforeTheBorder",
     {.bsr = "10.0.0.66", .groups = scopedZone},
     "rxNbrRpfCheck 1",
     "RX - Error - Dropping BSM since BSM src 192.0.2.1 for BSR address 10.0.0.66 - RPF neighbor not "
     "available."},
};

class GateDrop : public Gate, public testing::WithParamInterface<DropCase> {};

TEST_P(GateDrop, CountsAndTracesItsCauseAndLeavesTheRestAlone) {
  DropCase const& given = GetParam();
  engine.rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
  for (char const* zone : {"238.0.0.0/8", "239.0.0.0/8"}) engine.addBorder(zone, "eth0");
  engine.status->cbsrIs(prefix("238.0.0.0/8"))->bsPeriodIs(30);
  engine.runTo(45.5);
  engine.receive(make(given.message));
  EXPECT_EQ(counts(), std::string("1/1/0 bsm 1/1/0 ") + given.cause);
  EXPECT_EQ(context.tracedAs(given.trace), "Pim::Bsr::IO 1 BootstrapMessageSm");
  EXPECT_EQ(context.tracedPrefix("RX"), 1);
  EXPECT_FALSE(engine.bsmStatus->rxBsm());
  EXPECT_FALSE(engine.bsmStatus->firstGroup());
  EXPECT_TRUE(engine.bsmStatus->iifIntfId().isEmpty());
  EXPECT_EQ(engine.gate->lastBsmCount(), 0u);
  EXPECT_EQ(engine.root->nonCandidateSmCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Table, GateDrop, testing::ValuesIn(drops),
                         [](auto const& given) { return given.param.name; });

TEST_F(Gate, ADropLeavesWhatWasPublishedBeforeAsItWas) {
  auto first = engine.receive({.groups = {{"239.1.0.0/16"}}});
  auto second = engine.receive({.groups = {{"239.2.0.0/16"}}});
  engine.receive({.groups = scopedZone, .destination = "224.0.0.1"}, "eth1");
  EXPECT_EQ(engine.bsmStatus->rxBsm(), second);
  EXPECT_EQ(engine.bsmStatus->firstGroup()->prefix(), prefix("239.2.0.0/16"));
  EXPECT_EQ(engine.bsmStatus->iifIntfId(), intf("eth0"));
  EXPECT_EQ(engine.gate->lastBsm(prefix("224.0.0.0/4")), first);
  EXPECT_EQ(engine.gate->lastBsmCount(), 1u);
}

TEST_F(Gate, CausesAddUpOneByOne) {
  engine.receive({.destination = "224.0.0.1"});
  engine.receive({.destination = "192.0.2.7"});
  engine.receive({.destination = "224.0.0.2"});
  EXPECT_EQ(counts(), "3/3/0 bsm 3/3/0 rxUnicastBsm 1 rxInvalid 2");
}

TEST_F(Gate, AMessageOfAnotherKindIsNotCounted) {
  engine.bsmInfo->messageIs(Zet::make<Routing::Pim::Packet::CrpAdvMessage>());
  engine.bsmInfo->countInc(1);
  engine.bsmInfo->messageDel();
  engine.bsmInfo->countInc(1);
  EXPECT_EQ(counts(), "0/0/0 bsm 0/0/0");
  EXPECT_EQ(context.tracedPrefix("RX"), 0);
}

// The RPF check ---------------------------------------------------------------------------------------

/// Notes what it is asked.
class AskedRpfTable : public Routing::Pim::PimRpfTable {
 public:
  Routing::Pim::RpfLookupResult doLookup(Lanet::IpGenAddr const& address,
                                         Lanet::IpGenAddr const& second) override {
    asked.emplace_back(address, second);
    return {addr("192.0.2.1")};
  }
  std::vector<std::pair<Lanet::IpGenAddr, Lanet::IpGenAddr>> asked;
};

TEST_F(Gate, TheRpfTableIsAskedForTheBsrAloneAndOncePerMessage) {
  auto table = Zet::make<AskedRpfTable>();
  engine.gate =
      Bsr::bootstrapMessageSmFactory(engine.manager, engine.status, engine.bsmStatus, engine.bsmInfo, table);
  engine.receive(Bsm{});
  ASSERT_EQ(table->asked.size(), 1u);
  EXPECT_EQ(table->asked[0].first, addr("10.0.0.1"));
  EXPECT_TRUE(table->asked[0].second.isEmpty());
}

TEST_F(Gate, TheRpfTableIsNotAskedForAMessageThatHasAWrongDestinationOrIsNotToBeForwarded) {
  engine.receive({.destination = "224.0.0.1"});
  engine.receive(noForward());
  EXPECT_EQ(engine.rpf->lookups, 0);
  EXPECT_EQ(counts(), "2/1/1 bsm 2/1/1 rxInvalid 1");
}

TEST_F(Gate, TheSourceOfANoForwardMessageMayBeAnyone) {
  engine.rpf->neighbors[addr("10.0.0.1")] = addr("192.0.2.1");
  EXPECT_TRUE(takes({.forward = false, .source = "198.51.100.1"}));
}

// No-forward messages ---------------------------------------------------------------------------------

TEST_F(Gate, ANoForwardMessageIsTakenUntilExactlyThePeriodAfterTheStart) {
  engine.runTo(60);
  EXPECT_TRUE(takes(noForward()));
  engine.runTo(60.001);
  EXPECT_FALSE(takes(noForward(scopedZone)));
  EXPECT_EQ(counts(), "2/1/1 bsm 2/1/1 rxNoForwardBsm 1");
}

TEST_F(Gate, ThePeriodOfTheZonesOwnCandidateDecides) {
  engine.status->cbsrIs(prefix("239.0.0.0/8"))->bsPeriodIs(30);
  engine.runTo(30);
  EXPECT_TRUE(takes(noForward(scopedZone)));
  engine.runTo(45);
  EXPECT_FALSE(takes(noForward(scopedZone)));
  EXPECT_TRUE(takes(noForward())) << "the global zone has no candidate, and so 60 seconds";
}

TEST_F(Gate, ACandidateOfTheGlobalZoneThatHasAShorterPeriodEndsItsQuickRefreshEarlier) {
  engine.status->cbsrIs(prefix("224.0.0.0/4"))->bsPeriodIs(30);
  engine.runTo(45);
  EXPECT_FALSE(takes(noForward()));
  engine.status->cbsr(prefix("224.0.0.0/4"))->bsPeriodIs(45);
  EXPECT_TRUE(takes(noForward()));
}

TEST_F(Gate, ACandidateWithoutAPeriodTakesNoForwardMessagesInTheFirstInstantOnly) {
  engine.status->cbsrIs(prefix("239.0.0.0/8"));
  EXPECT_TRUE(takes(noForward(scopedZone)));
  engine.runTo(0.25);
  EXPECT_FALSE(takes(noForward(scopedZone)));
  EXPECT_EQ(context.traced(
                "RX - Error - Dropping BSM. We expect no-forward BSM only if quick refresh. lastBsm=NULL, "
                "TimeSince startup=0.25, bsPeriod=0"),
            1);
}

TEST_F(Gate, TheThirdNoForwardMessageInARowIsTheFirstDropped) {
  Lanet::IpGenPrefix const global = prefix("224.0.0.0/4");
  auto first = engine.receive(noForward());
  EXPECT_FALSE(engine.gate->lastBsm(global));
  engine.receive(noForward());
  EXPECT_EQ(engine.gate->lastBsm(global), first);
  EXPECT_EQ(counts(), "2/0/2 bsm 2/0/2");
  engine.receive(noForward());
  EXPECT_EQ(counts(), "3/1/2 bsm 3/1/2 rxNoForwardBsm 1");
  EXPECT_EQ(context.traced(
                "RX - Error - Dropping BSM. We expect no-forward BSM only if quick refresh. lastBsm=Set, "
                "TimeSince startup=0, bsPeriod=60"),
            1);
  EXPECT_EQ(engine.gate->lastBsm(global), first);
}

TEST_F(Gate, WhatIsKeptForAZoneIsTheMessageAcceptedBeforeOfWhateverZone) {
  auto global = engine.receive(Bsm{});
  EXPECT_TRUE(takes(noForward(scopedZone)));
  EXPECT_EQ(engine.gate->lastBsm(prefix("239.0.0.0/8")), global);
  EXPECT_FALSE(takes(noForward(scopedZone)))
      << "the zone's first acceptance had another zone's message before it";
  EXPECT_TRUE(takes(noForward())) << "the global zone has none kept yet";
  EXPECT_FALSE(takes(noForward()));
}

TEST_F(Gate, MessagesToBeForwardedEndTheQuickRefreshToo) {
  EXPECT_TRUE(takes(Bsm{}));
  EXPECT_TRUE(takes(Bsm{}));
  EXPECT_FALSE(takes(noForward()));
  EXPECT_TRUE(takes(Bsm{})) << "and themselves go on being taken";
}

TEST_F(Gate, AGateMadeAnewOverAPublishedMessageKeepsItAtItsFirstAcceptance) {
  auto before = engine.receive(Bsm{});
  engine.stop();
  engine.runTo(500);
  engine.start();
  EXPECT_TRUE(takes(noForward())) << "the time counts from the new start";
  EXPECT_EQ(engine.gate->lastBsm(prefix("224.0.0.0/4")), before);
  EXPECT_FALSE(takes(noForward()));
}

TEST_F(Gate, AKeptMessageIsOverwrittenByAnotherAndDeletedByNull) {
  auto& gate = *engine.gate;
  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  auto first = make(Bsm{});
  auto second = make(Bsm{});
  gate.lastBsmIs(zone, nullptr);
  EXPECT_EQ(gate.lastBsmCount(), 0u);
  gate.lastBsmIs(zone, first);
  gate.lastBsmIs(zone, second);
  EXPECT_EQ(gate.lastBsm(zone), second);
  EXPECT_EQ(gate.lastBsmCount(), 1u);
  gate.lastBsmIs(zone, nullptr);
  EXPECT_FALSE(gate.lastBsm(zone));
  EXPECT_EQ(gate.lastBsmCount(), 0u);
}

// Borders ---------------------------------------------------------------------------------------------

TEST_F(Gate, ABorderIsOneOfItsZoneAloneAndOnItsInterfaceAlone) {
  engine.addBorder("239.0.0.0/8", "eth0");
  EXPECT_FALSE(takes({.groups = scopedZone}));
  EXPECT_TRUE(takes({.groups = scopedZone}, "eth1"));
  EXPECT_TRUE(takes({.groups = {{"239.0.0.0/16", {}, scopedFlag}}}));
  EXPECT_TRUE(takes(Bsm{}));
}

TEST_F(Gate, ABorderEntryThatHoldsFalseFiltersNothing) {
  engine.addBorder("239.0.0.0/8", "eth0", false);
  EXPECT_TRUE(takes({.groups = scopedZone}));
  engine.addBorder("239.0.0.0/8", "eth0", true);
  EXPECT_FALSE(takes({.groups = scopedZone}));
}

TEST_F(Gate, TheFirstGroupsScopeFlagAloneDecidesWhoseBorderCounts) {
  engine.addBorder("239.0.0.0/8", "eth0");
  EXPECT_TRUE(takes({.groups = {{"239.0.0.0/8"}}})) << "unscoped: a message of the global zone";
  EXPECT_TRUE(takes({.groups = {{"239.0.0.0/8", {}, bidirFlag}}})) << "another flag";
  EXPECT_TRUE(takes({.groups = {{"225.0.0.0/8"}, {"239.0.0.0/8", {}, scopedFlag}}})) << "scoped second";
  EXPECT_FALSE(takes({.groups = {{"239.0.0.0/8", {}, scopedFlag | bidirFlag}, {"225.0.0.0/8"}}}));
}

TEST_F(Gate, ABorderOfTheGlobalZoneStopsMessagesWithoutAScopedFirstGroup) {
  engine.addBorder("224.0.0.0/4", "eth0");
  EXPECT_FALSE(takes(Bsm{}));
  EXPECT_FALSE(takes({.groups = {{"239.0.0.0/8"}}}));
  EXPECT_TRUE(takes({.groups = scopedZone}));
  EXPECT_EQ(context.traced(
                "RX: Error - Dropping BSM since the interface eth0 the message arrived on is a BSR border "
                "for group224.0.0.0/4"),
            2);
}

// The order of what a message does --------------------------------------------------------------------

class BsmStatusWatch : public Bsr::PimBsmStatus::NotifieeConst {
 public:
  explicit BsmStatusWatch(Texts& heard) : heard_(heard) {}
  void onIifIntfId() override { heard_.emplace_back("iifIntfId"); }
  void onFirstGroup() override { heard_.emplace_back("firstGroup"); }
  void onRxBsm() override { heard_.emplace_back("rxBsm"); }

 private:
  Texts& heard_;
};

class CountersWatch : public Bsr::PimBsrCounters::NotifieeConst {
 public:
  explicit CountersWatch(Texts& heard) : heard_(heard) {}
  void onRx() override { heard_.emplace_back("counted rx"); }
  void onRxError() override { heard_.emplace_back("counted rxError"); }
  void onRxSuccess() override { heard_.emplace_back("counted rxSuccess"); }
  void onRxBsm() override { heard_.emplace_back("counted rxBsm"); }
  void onRxBsmError() override { heard_.emplace_back("counted rxBsmError"); }
  void onRxBsmSuccess() override { heard_.emplace_back("counted rxBsmSuccess"); }
  void onTx() override { heard_.emplace_back("counted tx"); }
  void onTxError() override { heard_.emplace_back("counted txError"); }
  void onTxSuccess() override { heard_.emplace_back("counted txSuccess"); }
  void onErrCounters() override { heard_.emplace_back("counted errCounters"); }

 private:
  Texts& heard_;
};

class StatusWatch : public Bsr::Status::NotifieeConst {
 public:
  explicit StatusWatch(Texts& heard) : heard_(heard) {}
  void onBootstrapRouter(Lanet::IpGenPrefix const&) override { heard_.emplace_back("bootstrapRouter"); }

 private:
  Texts& heard_;
};

class GateOrder : public Gate {
 protected:
  GateOrder() {
    bsmStatusWatch->notifierIs(engine.bsmStatus);
    countersWatch->notifierIs(engine.status->counters());
    statusWatch->notifierIs(engine.status);
  }
  Texts heard;
  Ptr<BsmStatusWatch> bsmStatusWatch = Zet::make<BsmStatusWatch>(heard);
  Ptr<CountersWatch> countersWatch = Zet::make<CountersWatch>(heard);
  Ptr<StatusWatch> statusWatch = Zet::make<StatusWatch>(heard);
};

TEST_F(GateOrder, AnAcceptedMessageIsCountedAsSuchOnlyWhenItHasDoneAllItDoes) {
  engine.receive({.groups = {{"224.0.0.0/4"}}});
  EXPECT_EQ(heard, (Texts{"counted rx", "counted rxBsm", "iifIntfId", "firstGroup", "bootstrapRouter",
                          "rxBsm", "counted rxBsmSuccess", "counted rxSuccess"}));
}

TEST_F(GateOrder, ADroppedMessageIsCountedByOutcomeAndThenByCauseInOneChange) {
  engine.receive({.destination = "224.0.0.1"});
  EXPECT_EQ(heard, (Texts{"counted rx", "counted rxBsm", "counted rxError", "counted rxBsmError",
                          "counted errCounters"}));
}

/// Takes down what the gate keeps for the global zone at the moment of publication.
class KeptWatch : public Bsr::PimBsmStatus::NotifieeConst {
 public:
  explicit KeptWatch(Bsr::BootstrapMessageSm& gate) : gate_(gate) {}
  void onIifIntfId() override { kept = gate_.lastBsm(prefix("224.0.0.0/4")); }
  Ptr<BootstrapMessage> kept;

 private:
  Bsr::BootstrapMessageSm& gate_;
};

TEST_F(Gate, WhatIsKeptForTheZoneIsWrittenBeforeTheMessageIsPublished) {
  auto watch = Zet::make<KeptWatch>(*engine.gate);
  watch->notifierIs(engine.bsmStatus);
  auto first = engine.receive(Bsm{}, "eth0");
  EXPECT_FALSE(watch->kept);
  engine.receive(Bsm{}, "eth1");
  EXPECT_EQ(watch->kept, first);
}

// Reports of drops ------------------------------------------------------------------------------------

/// Notes each reported drop, and what the gate has counted by then.
struct Drops : pimbsr::DropListener {
  explicit Drops(std::function<std::string()> count) : counted(std::move(count)) {}
  void onDrop(pimbsr::DropReason reason) override {
    all.push_back(std::string(name(reason)) + ", " + counted());
  }
  std::function<std::string()> counted;
  Texts all;
};

TEST_F(Gate, ADropIsReportedOnceAndAfterItIsCounted) {
  Drops reported([this] { return counts(); });
  pimbsr::DropListener::Scope scope(reported);
  engine.receive(Bsm{});
  EXPECT_EQ(reported.all, Texts());
  engine.receive(Bsm{.source = "192.0.2.2"});
  EXPECT_EQ(reported.all, Texts({"not-rpf-neighbor, 2/1/1 bsm 2/1/1 rxNbrRpfCheck 1"}));
}

TEST_F(Gate, ADropIsReportedToTheInnermostListenerAlone) {
  engine.receive(Bsm{});
  Drops outer([] { return "outer"; }), inner([] { return "inner"; });
  pimbsr::DropListener::Scope scope(outer);
  {
    pimbsr::DropListener::Scope innermost(inner);
    engine.receive(Bsm{.source = "192.0.2.2"});
  }
  engine.receive(Bsm{.source = "192.0.2.2"});
  EXPECT_EQ(inner.all, Texts({"not-rpf-neighbor, inner"}));
  EXPECT_EQ(outer.all, Texts({"not-rpf-neighbor, outer"}));
}

}  // namespace
}  // namespace test
