#include "pim/IoManager.h"

#include "tests/support/CrpEngine.h"
#include "tests/support/RecordingPort.h"
#include "wire/Wire.h"

namespace test {
namespace {

using Routing::Pim::Packet::Message;
using Zet::Ptr;

class IoManagerTest : public ModelTest {
 protected:
  /// Hands a message to the manager as the gates do; returns whether the manager counted it as sent.
  bool send(Ptr<Message> const& message, std::string const& intfName = "eth0") {
    auto info = io->manager()->txMessageInfo();
    Zet::U32 before = io->manager()->txPamCounter()->txCount();
    info->intfIdIs(intf(intfName));
    info->messageIs(message);
    info->countInc(1);
    Zet::U32 rise = io->manager()->txPamCounter()->txCount() - before;
    EXPECT_LE(rise, 1u);
    return rise == 1;
  }
  pimbsr::wire::Ipv4Packet last() const {
    auto ip = pimbsr::wire::parseIpv4(port.sent.back().bytes);
    EXPECT_TRUE(ip);
    return *ip;
  }

  RecordingPort port;
  Ptr<pimbsr::pim::IoManager> io = Zet::make<pimbsr::pim::IoManager>(pimbsr::pim::makePamManager(), port);
};

TEST_F(IoManagerTest, BootstrapMessageLeavesFromThePrimaryAddressToAllPimRoutersWhateverItSays) {
  EXPECT_TRUE(send(make(Bsm{.source = "203.0.113.7", .destination = "192.0.2.7"}), "eth1"));
  ASSERT_EQ(port.sent.size(), 1u);
  EXPECT_EQ(port.sent[0].intf, "eth1");
  EXPECT_EQ(last().source, addr("198.51.100.9").v4Addr());
  EXPECT_EQ(last().destination, addr("224.0.0.13").v4Addr());
  EXPECT_EQ(last().ttl, 1);
}

TEST_F(IoManagerTest, AdvertisementLeavesWithTheAddressesOfItsRecordAndATtlForManyHops) {
  EXPECT_TRUE(send(make(Adv{.bsr = "10.0.0.1", .source = "203.0.113.1"}), ""));
  ASSERT_EQ(port.sent.size(), 1u);
  EXPECT_EQ(port.sent[0].intf, "");
  EXPECT_EQ(last().source, addr("203.0.113.1").v4Addr());
  EXPECT_EQ(last().destination, addr("10.0.0.1").v4Addr());
  EXPECT_EQ(last().ttl, 64);
}

TEST_F(IoManagerTest, OnlyWhatLeftIsCounted) {
  EXPECT_FALSE(send(make(Bsm{}), "unnumbered")) << "no address to send from";
  EXPECT_FALSE(send(make(Bsm{.bsr = "224.0.0.1"}))) << "no BSR address";
  EXPECT_FALSE(send(make(Adv{.rp = "224.0.0.1"}))) << "no RP address";
  EXPECT_FALSE(send(Zet::make<Message>())) << "neither kind of message";
  EXPECT_FALSE(send(nullptr));
  EXPECT_TRUE(port.sent.empty());
  port.fails = true;
  EXPECT_FALSE(send(make(Bsm{})));
  EXPECT_FALSE(send(make(Adv{})));
  port.fails = false;
  EXPECT_TRUE(send(make(Bsm{})));
  EXPECT_TRUE(send(make(Adv{})));
}

TEST_F(IoManagerTest, EachRaiseSendsAndAMessageWithoutARaiseStays) {
  auto message = make(Bsm{});
  EXPECT_TRUE(send(message));
  EXPECT_TRUE(send(message));
  io->manager()->txMessageInfo()->messageIs(make(Bsm{}));
  EXPECT_EQ(port.sent.size(), 2u);
}

}  // namespace
}  // namespace test
