#include <sstream>
#include <string>
#include <vector>

#include "tests/support/CrpEngine.h"
#include "tests/support/RangeError.h"

namespace test {
namespace {

using Lanet::AddressFamily;
using Routing::Pim::Bsr::PimCrpMsgStatus;
using Routing::Pim::Packet::CrpAdvMessage;
using Slosh::Fib::RouteType;
using Zet::Ptr;

/// What a reader of the exchange point sees: each change in order, and all fields at each raise.
class Reader : public PimCrpMsgStatus::NotifieeConst {
 public:
  void onBsrIp() override { changes.push_back("bsrIp"); }
  void onRp() override { changes.push_back("rp"); }
  void onPriority() override { changes.push_back("priority"); }
  void onHoldTime() override { changes.push_back("holdTime"); }
  void onRxCrpMsg() override { changes.push_back("rxCrpMsg"); }
  void onGroupInfo() override { changes.push_back("groupInfo"); }
  void onReadCount() override {
    changes.push_back("readCount");
    Ptr<PimCrpMsgStatus const> s = notifier();
    std::ostringstream out;
    out << s->groupInfo()->prefix() << '+' << int{s->groupInfo()->groupFlags().value} << ' ' << s->rp() << '/'
        << s->holdTime() << '/' << s->priority() << " at " << s->bsrIp();
    read.push_back(out.str());
  }

  std::vector<std::string> changes;
  std::vector<std::string> read;
};

std::string counted(Bsr::PimBsrCounters const& c) {
  std::ostringstream out;
  auto show = [&out](char const* name, Zet::U32 value) {
    if (value != 0) out << (out.tellp() == 0 ? "" : " ") << name << ' ' << value;
  };
  show("rx", c.rx());
  show("rxError", c.rxError());
  show("rxSuccess", c.rxSuccess());
  show("rxCrpAdv", c.rxCrpAdv());
  show("rxCrpAdvSuccess", c.rxCrpAdvSuccess());
  show("rxCrpAdvError", c.rxCrpAdvError());
  show("tx", c.tx());
  show("txSuccess", c.txSuccess());
  show("txError", c.txError());
  show("rxFilter", c.errCounters().rxFilter);
  show("rxInvalid", c.errCounters().rxInvalid);
  return out.str();
}

char const* const acceptedOnce = "rx 1 rxSuccess 1 rxCrpAdv 1 rxCrpAdvSuccess 1";
char const* const filteredOnce = "rx 1 rxError 1 rxCrpAdv 1 rxCrpAdvError 1 rxFilter 1";

/// The gate alone, with a reader in the root machine's place.
class CrpGate : public ModelTest {
 protected:
  CrpGate() { reader->notifierIs(engine.crpMsgStatus); }
  std::string counters() const { return counted(*engine.status->counters()); }
  /// Writes an advertisement as a candidate-RP machine does.
  Ptr<CrpAdvMessage> send(Adv const& given) {
    Ptr<CrpAdvMessage> message = make(given);
    engine.crpMsgStatus->txCrpMsgIs(message);
    engine.crpMsgStatus->writeCountInc(1);
    return message;
  }

  CrpEngine engine;
  Ptr<Reader> reader = Zet::make<Reader>();
};

class OpenCrpGate : public CrpGate {
 protected:
  OpenCrpGate() {
    engine.permit("203.0.113.0/24");
    engine.openGate();
  }
};

// Opening ---------------------------------------------------------------------------------------------

TEST_F(CrpGate, OpensWithTheGlobalZoneThePermitTrieAndItsBuilder) {
  engine.permit("203.0.113.0/24");
  engine.openGate();
  EXPECT_TRUE(engine.crpGate->initialized());
  EXPECT_EQ(engine.crpGate->globalZone(), prefix("224.0.0.0/4"));
  EXPECT_EQ(engine.crpGate->crpPermitTrie()->name(), "CrpPermitTrie");
  EXPECT_EQ(engine.crpGate->crpPermitTrie()->af(), AddressFamily::ipv4);
  EXPECT_TRUE(engine.crpGate->crpPermitTrie()->route(prefix("203.0.113.0/24")));
  EXPECT_EQ(engine.crpGate->crpPermitTrieBuilder()->crpPermitTrie(), engine.crpGate->crpPermitTrie());
  EXPECT_EQ(engine.crpGate->counters(), engine.status->counters());
  EXPECT_EQ(counters(), "");
}

TEST_F(CrpGate, OpensWithoutAGlobalZoneWhereTheFamilyIsUnset) {
  engine.status->afIs(AddressFamily::unset);
  engine.openGate();
  EXPECT_TRUE(engine.crpGate->initialized());
  EXPECT_TRUE(engine.crpGate->globalZone().isEmpty());
  EXPECT_EQ(engine.crpGate->crpPermitTrie()->af(), AddressFamily::unset);
}

TEST_F(CrpGate, DoesNotReadAMessageThatWaitsWhenItIsMade) {
  engine.permit("203.0.113.0/24");
  engine.crpMsgInfo->messageIs(make(Adv{}));
  engine.openGate();
  EXPECT_EQ(counters(), "");
  engine.crpMsgInfo->countInc(1);
  EXPECT_EQ(counters(), "");
  EXPECT_TRUE(reader->changes.empty());
}

TEST_F(CrpGate, LeavesTheCountersUnchangedWhenItOpens) {
  engine.status->counters()->rxIs(7);
  engine.openGate();
  EXPECT_EQ(engine.status->counters()->rx(), 7u);
}

TEST_F(CrpGate, AFreshExchangePointReadsPriority256AndHoldtime150) {
  EXPECT_EQ(engine.crpMsgStatus->priority().value(), 256u);
  EXPECT_EQ(engine.crpMsgStatus->holdTime().value(), 150u);
  EXPECT_TRUE(engine.crpMsgStatus->bsrIp().isEmpty());
  EXPECT_TRUE(engine.crpMsgStatus->rp().isEmpty());
  EXPECT_FALSE(engine.crpMsgStatus->groupInfo());
  EXPECT_FALSE(engine.crpMsgStatus->rxCrpMsg());
  EXPECT_FALSE(engine.crpMsgStatus->txCrpMsg());
  EXPECT_EQ(engine.crpMsgStatus->readCount(), 0u);
  EXPECT_EQ(engine.crpMsgStatus->writeCount(), 0u);
}

TEST_F(CrpGate, AnEmptyPermitTrieDropsEveryAdvertisement) {
  engine.openGate();
  engine.receive(Adv{});
  EXPECT_EQ(counters(), filteredOnce);
  EXPECT_TRUE(reader->changes.empty());
}

// Receive ---------------------------------------------------------------------------------------------

TEST_F(OpenCrpGate, PublishesTheFieldsInOrderThenTheGroupAndTheRaise) {
  auto message = engine.receive({.groups = {{"239.1.0.0/16", bidirFlag}},
                                 .rp = "203.0.113.9",
                                 .holdtime = 200,
                                 .priority = 7,
                                 .bsr = "10.0.0.9"});
  EXPECT_EQ(reader->changes, (std::vector<std::string>{"bsrIp", "rp", "priority", "holdTime", "rxCrpMsg",
                                                       "groupInfo", "readCount"}));
  EXPECT_EQ(reader->read, std::vector<std::string>{"239.1.0.0/16+128 203.0.113.9/200/7 at 10.0.0.9"});
  EXPECT_EQ(engine.crpMsgStatus->rxCrpMsg(), message);
  EXPECT_EQ(engine.crpMsgStatus->readCount(), 1u);
  EXPECT_EQ(counters(), acceptedOnce);
  EXPECT_EQ(context.tracedAs("RX - Accepted CrpAdv from 203.0.113.1"), "Pim::Bsr::IO 4 CrpMessageSm");
}

TEST_F(OpenCrpGate, ThreeGroupsAreReadOneByOneInTheirOrderAndSucceedOnce) {
  auto message =
      engine.receive({.groups = {{"239.1.0.0/16"}, {"239.2.0.0/16", scopedFlag}, {"224.0.0.0/4"}}});
  std::vector<std::string> expected;
  for (auto group = message->groupData()->groupInfoIterator(); group; ++group) {
    expected.push_back(std::string(group->prefix().stringValue().view()) + "+" +
                       std::to_string(group->groupFlags().value) + " 203.0.113.1/150/0 at 10.0.0.1");
  }
  ASSERT_EQ(expected.size(), 3u);
  EXPECT_EQ(reader->read, expected);
  EXPECT_EQ(engine.crpMsgStatus->readCount(), 3u);
  EXPECT_EQ(counters(), acceptedOnce);
}

TEST_F(OpenCrpGate, NoGroupsMeanTheGlobalZone) {
  Ptr<CrpAdvMessage> without = make(Adv{.groups = {}});
  Ptr<CrpAdvMessage> withNull = make(Adv{.groups = {}});
  withNull->groupDataIs(nullptr);
  for (Ptr<CrpAdvMessage> const& message : {without, withNull}) engine.receive(message);
  std::string const global = "224.0.0.0/4+0 203.0.113.1/150/0 at 10.0.0.1";
  EXPECT_EQ(reader->read, (std::vector<std::string>{global, global}));
  EXPECT_EQ(engine.crpMsgStatus->readCount(), 2u);
  EXPECT_EQ(counters(), "rx 2 rxSuccess 2 rxCrpAdv 2 rxCrpAdvSuccess 2");
  EXPECT_EQ(context.traced("RX - Received CRP Advertisement with 0 groups. Assuming 224.0.0.0/4"), 2);
}

TEST_F(OpenCrpGate, OnlyASenderThatThePermitTrieCoversIsHeard) {
  engine.permit("198.51.100.7/32");
  engine.permit("192.0.2.0/24", false);
  struct {
    char const* source;
    bool heard;
  } const cases[] = {
      {"203.0.113.0", true},  {"203.0.113.255", true}, {"203.0.114.0", false},
      {"198.51.100.7", true}, {"198.51.100.8", false}, {"192.0.2.1", false},
  };
  for (auto const& c : cases) {
    reader->read.clear();
    engine.receive({.source = c.source});
    EXPECT_EQ(reader->read.size(), c.heard ? 1u : 0u) << c.source;
  }
  EXPECT_EQ(engine.errors().rxFilter, 3u);
}

TEST_F(OpenCrpGate, TheSenderAndNotTheRpDecides) {
  engine.receive({.rp = "192.0.2.99", .source = "203.0.113.1"});
  EXPECT_EQ(counters(), acceptedOnce);
  engine.receive({.rp = "203.0.113.1", .source = "192.0.2.99"});
  EXPECT_EQ(engine.errors().rxFilter, 1u);
}

TEST_F(OpenCrpGate, ASenderWithoutAddressIsDropped) {
  Ptr<CrpAdvMessage> message = make(Adv{});
  message->srcAddrIs(Lanet::IpGenAddr());
  engine.permit("0.0.0.0/0");
  engine.receive(message);
  EXPECT_EQ(counters(), filteredOnce);
}

TEST_F(OpenCrpGate, ADroppedAdvertisementCountsAndTracesAndLeavesTheExchangePoint) {
  auto first = engine.receive(Adv{});
  reader->changes.clear();
  engine.receive({.groups = {{"239.0.0.0/8"}},
                  .rp = "192.0.2.9",
                  .holdtime = 3,
                  .priority = 9,
                  .bsr = "10.0.0.2",
                  .source = "192.0.2.9"});
  EXPECT_TRUE(reader->changes.empty());
  EXPECT_EQ(engine.crpMsgStatus->rxCrpMsg(), first);
  EXPECT_EQ(engine.crpMsgStatus->rp(), addr("203.0.113.1"));
  EXPECT_EQ(counters(), "rx 2 rxError 1 rxSuccess 1 rxCrpAdv 2 rxCrpAdvSuccess 1 rxCrpAdvError 1 rxFilter 1");
  EXPECT_EQ(context.tracedAs("RX - Dropping CRP Adv since Crp Adv Message from 192.0.2.9 is not permitted"),
            "Pim::Bsr::IO 1 CrpMessageSm");
}

TEST_F(OpenCrpGate, TheFilterCountLeavesTheOtherErrorCounts) {
  engine.status->counters()->errCountersIs([] {
    Bsr::PimBsrErrorCounters errors;
    errors.rxInvalid = 5;
    errors.rxUnicastBsm = 6;
    return errors;
  }());
  engine.receive({.source = "192.0.2.9"});
  EXPECT_EQ(engine.errors().rxFilter, 1u);
  EXPECT_EQ(engine.errors().rxInvalid, 5u);
  EXPECT_EQ(engine.errors().rxUnicastBsm, 6u);
}

TEST_F(OpenCrpGate, TheSameRecordTwiceInARowIsSeenOnceAndAgainAfterAnother) {
  Ptr<CrpAdvMessage> one = make(Adv{});
  Ptr<CrpAdvMessage> other = make(Adv{});
  engine.receive(one);
  engine.receive(one);
  EXPECT_EQ(counters(), acceptedOnce);
  engine.receive(other);
  engine.receive(one);
  EXPECT_EQ(counters(), "rx 3 rxSuccess 3 rxCrpAdv 3 rxCrpAdvSuccess 3");
}

TEST_F(OpenCrpGate, ReadsTheMessageAtItsWriteAndNotAtTheRaise) {
  engine.crpMsgInfo->messageIs(make(Adv{}));
  EXPECT_EQ(counters(), acceptedOnce);
  engine.crpMsgInfo->countInc(1);
  EXPECT_EQ(counters(), acceptedOnce);
}

TEST_F(OpenCrpGate, AMessageOfAnotherKindOrNoneIsNotCounted) {
  engine.crpMsgInfo->messageIs(make(Bsm{}));
  engine.crpMsgInfo->messageIs(nullptr);
  EXPECT_EQ(counters(), "");
  EXPECT_TRUE(reader->changes.empty());
}

TEST_F(OpenCrpGate, AHoldtimeAbove40958RaisesOutOfTheHandlerAfterTheFirstCounters) {
  engine.receive({.holdtime = 40958});
  EXPECT_EQ(reader->read.size(), 1u);
  auto accepted = engine.crpMsgStatus->rxCrpMsg();
  engine.receive({.groups = {{"239.1.0.0/16"}}, .rp = "203.0.113.9", .holdtime = 40959, .priority = 3});
  expectedExceptions = 1;
  EXPECT_EQ(reader->read.size(), 1u);
  EXPECT_EQ(counters(), "rx 2 rxSuccess 1 rxCrpAdv 2 rxCrpAdvSuccess 1");
  EXPECT_EQ(engine.crpMsgStatus->rp(), addr("203.0.113.9"));
  EXPECT_EQ(engine.crpMsgStatus->priority().value(), 3u);
  EXPECT_EQ(engine.crpMsgStatus->holdTime().value(), 40958u);
  EXPECT_EQ(engine.crpMsgStatus->rxCrpMsg(), accepted);
  EXPECT_EQ(
      testing_support::rangeError([&] { engine.crpGate->handleV4CRPAdv(make(Adv{.holdtime = 65535})); }),
      "CrpHoldTime::value < 0 or > 40958 not allowed");
}

TEST_F(OpenCrpGate, CountsWhereStatusHoldsItsCountersNow) {
  auto former = engine.status->counters();
  engine.status->countersDel();
  engine.status->countersIs("second");
  engine.receive(Adv{});
  EXPECT_EQ(counters(), acceptedOnce);
  EXPECT_EQ(counted(*former), "");
}

TEST_F(OpenCrpGate, AfterItsEndNothingIsReadOrSent) {
  engine.crpGate = nullptr;
  engine.receive(Adv{});
  send(Adv{});
  EXPECT_EQ(counters(), "");
  EXPECT_TRUE(engine.outbox->sent.empty());
}

// Transmit --------------------------------------------------------------------------------------------

TEST_F(OpenCrpGate, GivesARemoteAdvertisementToTheManagerAndLetsItChooseTheInterface) {
  engine.manager->txMessageInfo()->intfIdIs(intf("eth7"));
  auto message = send(Adv{});
  ASSERT_EQ(engine.outbox->sent.size(), 1u);
  EXPECT_EQ(engine.outbox->sent[0].intf, "");
  EXPECT_EQ(engine.outbox->sent[0].message, message);
  EXPECT_EQ(counters(), "tx 1 txSuccess 1");
  EXPECT_TRUE(reader->read.empty());
}

TEST_F(OpenCrpGate, AMessageThatTheManagerDidNotSendCountsAsAnError) {
  engine.outbox->fails = true;
  send(Adv{});
  EXPECT_EQ(counters(), "tx 1 txError 1");
  EXPECT_EQ(context.traced("TX - Error sending CRP Advertisement"), 1);
  engine.outbox->fails = false;
  send(Adv{});
  EXPECT_EQ(counters(), "tx 2 txSuccess 1 txError 1");
  EXPECT_EQ(context.traced("TX - Error sending CRP Advertisement"), 1);
}

TEST_F(OpenCrpGate, TakesItsOwnAdvertisementIntoTheReceivePath) {
  engine.addRoute("10.0.0.1/32", RouteType::local);
  auto message = send(Adv{.groups = {{"239.1.0.0/16"}, {"239.2.0.0/16"}}});
  EXPECT_TRUE(engine.outbox->sent.empty());
  EXPECT_EQ(reader->read.size(), 2u);
  EXPECT_EQ(engine.crpMsgStatus->rxCrpMsg(), message);
  EXPECT_EQ(counters(), "rx 1 rxSuccess 1 rxCrpAdv 1 rxCrpAdvSuccess 1 txSuccess 1");
  EXPECT_EQ(context.traced("TX - Sending CRP Advertisement locally"), 1);
}

TEST_F(OpenCrpGate, ItsOwnAdvertisementIsFilteredLikeAnyOther) {
  engine.addRoute("10.0.0.1/32", RouteType::local);
  send(Adv{.source = "192.0.2.1"});
  EXPECT_EQ(counters(), std::string("rx 1 rxError 1 rxCrpAdv 1 rxCrpAdvError 1 txSuccess 1 rxFilter 1"));
  EXPECT_TRUE(reader->read.empty());
}

TEST_F(OpenCrpGate, ItsOwnAdvertisementWithALongHoldtimeRaisesAfterItCountedAsSent) {
  engine.addRoute("10.0.0.1/32", RouteType::local);
  send(Adv{.holdtime = 49149});
  expectedExceptions = 1;
  EXPECT_EQ(counters(), "rx 1 rxCrpAdv 1 txSuccess 1");
}

TEST_F(OpenCrpGate, SendsNothingBeforeItIsInitialized) {
  engine.crpGate->initializedIs(false);
  send(Adv{});
  engine.receive(Adv{});
  EXPECT_EQ(counters(), "");
  EXPECT_TRUE(engine.outbox->sent.empty());
  EXPECT_EQ(context.traced("Uninitialized. Not Sending"), 1);
}

TEST_F(OpenCrpGate, AMessageWrittenWithoutARaiseStaysUnsent) {
  engine.crpMsgStatus->txCrpMsgIs(make(Adv{}));
  EXPECT_TRUE(engine.outbox->sent.empty());
}

// Local addresses -------------------------------------------------------------------------------------

TEST_F(OpenCrpGate, AnAddressIsLocalIfTheBestRouteToItHasTheLocalType) {
  engine.addRoute("10.0.0.0/8", RouteType::local);
  engine.addRoute("10.1.0.0/16", RouteType::connected);
  engine.addRoute("10.1.0.1/32", RouteType::local);
  engine.addRoute("10.2.0.0/16", RouteType::remote);
  Slosh::Fib::Route odd;
  odd.metric = 1;
  engine.routes->routeIs(Lanet::Prefix::parse("10.3.0.0/16"), odd);
  struct {
    char const* address;
    bool local;
  } const cases[] = {
      {"10.9.9.9", true},  {"10.1.0.1", true},  {"10.1.0.2", false},
      {"10.2.0.1", false}, {"10.3.0.1", false}, {"192.0.2.1", false},
  };
  for (auto const& c : cases) EXPECT_EQ(engine.crpGate->isLocalHost(addr(c.address)), c.local) << c.address;
  engine.addRoute("0.0.0.0/0", RouteType::local);
  EXPECT_TRUE(engine.crpGate->isLocalHost(addr("192.0.2.1")));
}

TEST_F(OpenCrpGate, AFamilyBeyondTheKnownOnesHasNoLocalAddresses) {
  engine.addRoute("0.0.0.0/0", RouteType::local);
  engine.status->afIs(static_cast<AddressFamily>(3));
  EXPECT_FALSE(engine.crpGate->isLocalHost(addr("10.0.0.1")));
}

using OpenCrpGateDeathTest = OpenCrpGate;

TEST_F(OpenCrpGateDeathTest, AnAdvertisementInAnyOtherFamilyThanIpv4EndsTheProcess) {
  for (Zet::U32 family : {0u, 2u, 3u}) {
    EXPECT_DEATH(
        {
          engine.status->afIs(static_cast<AddressFamily>(family));
          engine.receive(Adv{});
        },
        "0 && \"IPV6 not implemented\"");
  }
}

TEST_F(OpenCrpGateDeathTest, SendingInAnUnsetOrAnIpv6FamilyEndsTheProcess) {
  EXPECT_DEATH(
      {
        engine.status->afIs(AddressFamily::unset);
        send(Adv{});
      },
      "0 && \"Address Family unknown\"");
  EXPECT_DEATH(
      {
        engine.status->afIs(AddressFamily::ipv6);
        send(Adv{});
      },
      "0 && \"IPV6 not supported\"");
}

}  // namespace
}  // namespace test
