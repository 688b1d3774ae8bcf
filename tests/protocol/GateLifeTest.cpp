// The gate's construction and end, the families it drops, and the messages that leave through it.

#include <string>
#include <vector>

#include "tests/support/Engine.h"
#include "tests/support/RangeError.h"

namespace test {
namespace {

using Lanet::AddressFamily;
using testing_support::rangeError;
using Zet::Ptr;
using Texts = std::vector<std::string>;

// Construction ----------------------------------------------------------------------------------------

/// The entities exist; the test makes the gate.
class GateLife : public ModelTest {
 protected:
  void startGate() {
    engine.gate = Bsr::bootstrapMessageSmFactory(engine.manager, engine.status, engine.bsmStatus,
                                                 engine.bsmInfo, engine.rpf);
  }
  Engine engine{Engine::Family::ipv4, false};
};

TEST_F(GateLife, AtItsStartItKnowsTheTimeAndTheGlobalZone) {
  engine.runTo(12.5);
  startGate();
  EXPECT_TRUE(engine.gate->initialized());
  EXPECT_EQ(engine.since(engine.gate->startupTime()), 12.5);
  EXPECT_EQ(engine.gate->globalZone(), prefix("224.0.0.0/4"));
  EXPECT_EQ(engine.gate->counters(), engine.status->counters());
  EXPECT_EQ(engine.gate->lastBsmCount(), 0u);
  EXPECT_EQ(Bsr::BootstrapMessageSm::bsPeriodDefault(), 60u);
}

class ClearedWatch : public Bsr::PimBsrCounters::NotifieeConst {
 public:
  void onRx() override { heard.emplace_back("rx"); }
  void onRxError() override { heard.emplace_back("rxError"); }
  void onRxSuccess() override { heard.emplace_back("rxSuccess"); }
  void onRxBsm() override { heard.emplace_back("rxBsm"); }
  void onRxBsmSuccess() override { heard.emplace_back("rxBsmSuccess"); }
  void onRxBsmError() override { heard.emplace_back("rxBsmError"); }
  void onRxCrpAdv() override { heard.emplace_back("rxCrpAdv"); }
  void onTx() override { heard.emplace_back("tx"); }
  void onTxError() override { heard.emplace_back("txError"); }
  void onTxSuccess() override { heard.emplace_back("txSuccess"); }
  void onErrCounters() override { heard.emplace_back("errCounters"); }
  Texts heard;
};

TEST_F(GateLife, AtItsStartItClearsTheCommonCountersInOrderAndLeavesTheOthers) {
  auto counters = engine.status->counters();
  counters->rxIs(1);
  counters->rxErrorIs(2);
  counters->rxSuccessIs(3);
  counters->rxBsmIs(4);
  counters->rxBsmSuccessIs(5);
  counters->rxBsmErrorIs(6);
  counters->rxCrpAdvIs(7);
  counters->rxCrpAdvSuccessIs(8);
  counters->rxCrpAdvErrorIs(9);
  counters->txIs(10);
  counters->txErrorIs(11);
  counters->txSuccessIs(12);
  Bsr::PimBsrErrorCounters errors;
  errors.rxScopeMismatch = 13;
  counters->errCountersIs(errors);
  auto watch = Zet::make<ClearedWatch>();
  watch->notifierIs(counters);
  startGate();
  EXPECT_EQ(watch->heard, (Texts{"rx", "rxError", "rxSuccess", "tx", "txError", "txSuccess", "errCounters"}));
  EXPECT_EQ(counters->rx() + counters->rxError() + counters->rxSuccess(), 0u);
  EXPECT_EQ(counters->tx() + counters->txError() + counters->txSuccess(), 0u);
  EXPECT_EQ(counters->errCounters(), Bsr::PimBsrErrorCounters());
  EXPECT_EQ(counters->rxBsm(), 4u);
  EXPECT_EQ(counters->rxBsmSuccess(), 5u);
  EXPECT_EQ(counters->rxBsmError(), 6u);
  EXPECT_EQ(counters->rxCrpAdv(), 7u);
  EXPECT_EQ(counters->rxCrpAdvSuccess(), 8u);
  EXPECT_EQ(counters->rxCrpAdvError(), 9u);
}

TEST_F(GateLife, ASecondInitializationDoesNothing) {
  startGate();
  engine.status->counters()->rxIs(5);
  engine.runTo(10);
  engine.gate->handleInitialize();
  EXPECT_EQ(engine.status->counters()->rx(), 5u);
  EXPECT_EQ(engine.since(engine.gate->startupTime()), 0.0);
}

TEST_F(GateLife, AMessageThatWaitedBeforeItsStartIsNotRead) {
  engine.receive(Bsm{});
  startGate();
  EXPECT_EQ(engine.status->counters()->rx(), 0u);
  EXPECT_EQ(engine.status->counters()->rxBsm(), 0u);
  EXPECT_FALSE(engine.bsmStatus->rxBsm());
}

TEST_F(GateLife, FollowsTheCountersOfStatus) {
  startGate();
  engine.status->countersDel();
  EXPECT_FALSE(engine.gate->counters());
  auto successor = engine.status->countersIs("successor");
  EXPECT_EQ(engine.gate->counters(), successor);
  engine.receive(Bsm{});
  EXPECT_EQ(successor->rxBsmSuccess(), 1u);
}

TEST_F(GateLife, RejectsNullArguments) {
  Ptr<Routing::Pim::IO::PamManager> noManager;
  Ptr<Bsr::Status> noStatus;
  Ptr<Bsr::PimBsmStatus> noBsmStatus;
  Ptr<Routing::Pim::IO::MessageInfo> noInfo;
  Ptr<Routing::Pim::PimRpfTable> noTable;
  auto const& e = engine;
  using Bsr::bootstrapMessageSmFactory;
  std::string const null = "null ValidPtr";
  EXPECT_EQ(
      rangeError([&] { bootstrapMessageSmFactory(noManager, e.status, e.bsmStatus, e.bsmInfo, e.rpf); }),
      null);
  EXPECT_EQ(
      rangeError([&] { bootstrapMessageSmFactory(e.manager, noStatus, e.bsmStatus, e.bsmInfo, e.rpf); }),
      null);
  EXPECT_EQ(
      rangeError([&] { bootstrapMessageSmFactory(e.manager, e.status, noBsmStatus, e.bsmInfo, e.rpf); }),
      null);
  EXPECT_EQ(rangeError([&] { bootstrapMessageSmFactory(e.manager, e.status, e.bsmStatus, noInfo, e.rpf); }),
            null);
  EXPECT_EQ(
      rangeError([&] { bootstrapMessageSmFactory(e.manager, e.status, e.bsmStatus, e.bsmInfo, noTable); }),
      null);
}

// End -------------------------------------------------------------------------------------------------

TEST_F(GateLife, AfterItsEndNothingIsReadOrSentAndWhatItKeptIsReleased) {
  startGate();
  auto kept = engine.receive(Bsm{});
  engine.receive(Bsm{});
  ASSERT_EQ(engine.gate->lastBsm(prefix("224.0.0.0/4")), kept);
  Zet::U32 references = kept->references();
  engine.gate = nullptr;
  EXPECT_EQ(kept->references(), references - 1);
  engine.receive(Bsm{});
  engine.bsmStatus->writeCountInc(1);
  EXPECT_EQ(engine.status->counters()->rx(), 2u);
  EXPECT_TRUE(engine.outbox->sent.empty());
}

// Families --------------------------------------------------------------------------------------------

TEST_F(GateLife, AFamilyThatComesAfterItsStartLeavesItWithoutAGlobalZoneForGood) {
  engine.status->afIs(AddressFamily::unset);
  startGate();
  EXPECT_TRUE(engine.gate->initialized());
  engine.status->afIs(AddressFamily::ipv4);
  EXPECT_TRUE(engine.gate->globalZone().isEmpty());
  engine.addBorder("224.0.0.0/4", "eth0");
  auto first = engine.receive(Bsm{});
  engine.receive(Bsm{});
  EXPECT_EQ(engine.status->counters()->rxSuccess(), 2u)
      << "the border is that of a zone the gate doesn't know";
  EXPECT_EQ(engine.gate->lastBsm(Lanet::IpGenPrefix()), first);
  EXPECT_FALSE(engine.gate->lastBsm(prefix("224.0.0.0/4")));
}

class GateDeath : public GateLife {
 protected:
  /// What the first message does to a gate of that family.
  void expectDeath(AddressFamily family, Ptr<Routing::Pim::Packet::Message> const& message) {
    engine.status->afIs(family);
    startGate();
    engine.bsmInfo->messageIs(message);
    EXPECT_DEATH(engine.bsmInfo->countInc(1), "IPV6 not implemented");
  }
};

TEST_F(GateDeath, OfIp6AtTheFirstMessage) { expectDeath(AddressFamily::ipv6, make(Bsm{})); }

TEST_F(GateDeath, OfNoFamilyAtTheFirstMessage) { expectDeath(AddressFamily::unset, make(Bsm{})); }

TEST_F(GateDeath, OfNoFamilyAtAMessageOfAnyKind) {
  expectDeath(AddressFamily::unset, Zet::make<Routing::Pim::Packet::CrpAdvMessage>());
}

// Transmit --------------------------------------------------------------------------------------------

class Transmit : public GateLife {
 protected:
  Transmit() { startGate(); }
  void send(Ptr<Routing::Pim::Packet::BootstrapMessage> const& message, std::string const& intfName) {
    engine.bsmStatus->oifIntfIdIs(intf(intfName));
    engine.bsmStatus->txBsmIs(message);
    engine.bsmStatus->writeCountInc(1);
  }
  std::string counts() const {
    auto const& c = *engine.status->counters();
    return std::to_string(c.tx()) + " given, " + std::to_string(c.txSuccess()) + " sent, " +
           std::to_string(c.txError()) + " failed";
  }
};

TEST_F(Transmit, AMessageGoesToTheManagerWithItsInterfaceAndIsCounted) {
  auto message = make(Bsm{});
  send(message, "eth7");
  ASSERT_EQ(engine.outbox->sent.size(), 1u);
  EXPECT_EQ(engine.outbox->sent[0].intf, "eth7");
  EXPECT_EQ(engine.outbox->sent[0].message, message);
  EXPECT_EQ(counts(), "1 given, 1 sent, 0 failed");
  EXPECT_EQ(engine.status->counters()->rx(), 0u);
}

TEST_F(Transmit, TheSameMessageMayLeaveAgain) {
  auto message = make(Bsm{});
  send(message, "eth7");
  send(message, "eth7");
  EXPECT_EQ(engine.outbox->sent.size(), 2u);
  EXPECT_EQ(counts(), "2 given, 2 sent, 0 failed");
}

TEST_F(Transmit, AMessageThatTheManagerDoesNotCountHasFailed) {
  engine.outbox->fails = true;
  send(make(Bsm{}), "eth7");
  EXPECT_EQ(counts(), "1 given, 0 sent, 1 failed");
  EXPECT_EQ(engine.outbox->sent.size(), 1u);
}

TEST_F(Transmit, AMessageWrittenWithoutARaiseIsNotSent) {
  engine.bsmStatus->oifIntfIdIs(intf("eth7"));
  engine.bsmStatus->txBsmIs(make(Bsm{}));
  EXPECT_TRUE(engine.outbox->sent.empty());
  EXPECT_EQ(counts(), "0 given, 0 sent, 0 failed");
}

TEST_F(Transmit, AGateThatIsNotInitializedSendsNothing) {
  engine.gate->initializedIs(false);
  send(make(Bsm{}), "eth7");
  EXPECT_TRUE(engine.outbox->sent.empty());
  EXPECT_EQ(counts(), "0 given, 0 sent, 0 failed");
}

/// Notes the order in which the manager's exchange point and the counters are written.
class TxInfoWatch : public Routing::Pim::IO::MessageInfo::NotifieeConst {
 public:
  TxInfoWatch(Texts& heard, Ptr<Bsr::PimBsrCounters> counters)
      : heard_(heard), counters_(std::move(counters)) {}
  void onIntfId() override { heard_.emplace_back("intfId"); }
  void onMessage() override { heard_.emplace_back("message"); }
  void onCount() override { heard_.push_back("count at tx " + std::to_string(counters_->tx())); }

 private:
  Texts& heard_;
  Ptr<Bsr::PimBsrCounters> counters_;
};

TEST_F(Transmit, TheManagerIsGivenTheFieldsFirstAndTheRaiseLastAndCountedAfterIt) {
  Texts heard;
  auto watch = Zet::make<TxInfoWatch>(heard, engine.status->counters());
  watch->notifierIs(engine.manager->txMessageInfo());
  send(make(Bsm{}), "eth7");
  EXPECT_EQ(heard, (Texts{"intfId", "message", "count at tx 0"}));
}

}  // namespace
}  // namespace test
