#include "agent/account/Traffic.h"
#include "tests/agent/ObservedRouter.h"

namespace test {
namespace {

using pimbsr::agent::InterfaceCounts;
using pimbsr::agent::PacketCounts;
using pimbsr::host::MessageKind;

class TrafficTest : public ObservedRouter {
 protected:
  PacketCounts on(std::string const& name, MessageKind kind) const {
    auto at = traffic.byInterface().find(name);
    if (at == traffic.byInterface().end() || !at->second.contains(kind)) return {};
    return at->second.at(kind);
  }
};

TEST_F(TrafficTest, PacketsAreCountedByInterfaceAndKind) {
  helloFromNeighbor();
  receive("eth1", helloFrom("198.51.100.1", 8));
  receive(packetOf(Bsm{.groups = {{"239.1.0.0/16", {{"10.0.0.2"}}}}}));
  receive(brokenPacket());
  EXPECT_EQ(on("eth0", MessageKind::hello), (PacketCounts{.received = 1}));
  EXPECT_EQ(on("eth1", MessageKind::hello), (PacketCounts{.received = 1}));
  EXPECT_EQ(on("eth0", MessageKind::bootstrap), (PacketCounts{.received = 1}));
  EXPECT_EQ(on("eth0", MessageKind::malformed), (PacketCounts{.received = 1, .dropped = 1}));
}

TEST_F(TrafficTest, DroppedMessageIsReceivedToo) {
  receive(packetOf(Bsm{.source = "192.0.2.9"}));
  EXPECT_EQ(on("eth0", MessageKind::bootstrap), (PacketCounts{.received = 1, .dropped = 1}));
}

TEST_F(TrafficTest, MessageAcceptedInPartIsNotDropped) {
  traffic.noteReceived("eth0", {.kind = MessageKind::crpAdv, .reason = "range-full", .droppedRanges = 1});
  EXPECT_EQ(on("eth0", MessageKind::crpAdv), (PacketCounts{.received = 1}));
}

TEST_F(TrafficTest, SentPacketsAreKnownByTheirBytes) {
  traffic.noteSent("eth0", helloFrom("192.0.2.9", 1), true);
  traffic.noteSent("eth0", packetOf(Bsm{}), true);
  traffic.noteSent("eth0", packetOf(Bsm{}), false);
  traffic.noteSent("", packetOf(Adv{}), true);
  EXPECT_EQ(on("eth0", MessageKind::hello), (PacketCounts{.sent = 1}));
  EXPECT_EQ(on("eth0", MessageKind::bootstrap), (PacketCounts{.sent = 1, .sendFailed = 1}));
  EXPECT_EQ(on("", MessageKind::crpAdv), (PacketCounts{.sent = 1}));
}

TEST_F(TrafficTest, WhatIsNoPimPacketIsNotReadBeyondItsEnd) {
  for (std::vector<Zet::U8> const& bytes : {std::vector<Zet::U8>{}, {0x45}, std::vector<Zet::U8>(20, 0x45)}) {
    EXPECT_EQ(pimbsr::agent::kindOfSent(bytes), MessageKind::notPim) << bytes.size();
  }
  std::vector<Zet::U8> join(21, 0x45);
  join[20] = 0x23;
  EXPECT_EQ(pimbsr::agent::kindOfSent(join), MessageKind::other);
}

TEST_F(TrafficTest, ClearSetsAllBack) {
  helloFromNeighbor();
  traffic.clear();
  EXPECT_TRUE(traffic.byInterface().empty());
  helloFromNeighbor();
  EXPECT_EQ(on("eth0", MessageKind::hello), (PacketCounts{.received = 1}));
}

}  // namespace
}  // namespace test
