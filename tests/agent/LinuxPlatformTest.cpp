#include "agent/kernel/LinuxPlatform.h"

#include <gmock/gmock.h>

#include <memory>
#include <vector>

#include "agent/base/Loop.h"
#include "tests/agent/NetworkLab.h"
#include "wire/Wire.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
using agent::LinuxPlatform;
using agent::LoopTimer;
using agent::QueueKind;
using Lanet::IntfId;
using Lanet::IpAddr;
using Zet::U8;

class FakeListener final : public agent::PlatformListener {
 public:
  bool onPacket(std::string const&, std::span<U8 const>) override { return true; }
  void onDuplicateAddress(std::string const& intf, agent::OwnAddressUse const& use) override {
    uses.push_back(intf + ' ' + std::string(use.address.stringValue().view()));
    hardwareAddress = use.hardwareAddress;
    packets += use.packets;
  }
  void onKernelChange() override {}
  std::vector<IpAddr> neighborsOf(std::string const& intf) const override {
    asked.push_back(intf);
    return neighbors;
  }
  std::vector<IpAddr> advertisers() const override {
    ++askedForAdvertisers;
    return senders;
  }

  std::vector<std::string> uses;  ///< of own addresses by others
  std::string hardwareAddress;    ///< of the last of them
  Zet::U64 packets = 0;
  std::vector<IpAddr> neighbors;
  std::vector<IpAddr> senders;  ///< of accepted advertisements
  mutable int askedForAdvertisers = 0;
  mutable std::vector<std::string> asked;  ///< interfaces, in the order of the calls
};

std::vector<U8> packetTo(char const* destination, char const* source = "10.0.1.1") {
  std::vector<U8> bytes;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4(
      {.source = IpAddr::parse(source), .destination = IpAddr::parse(destination), .ttl = 1},
      std::vector<U8>{0x24, 0, 0, 0}, bytes));
  return bytes;
}

/// A system with the interface "near", 10.0.1.1/24.
class LinuxPlatformTest : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    network = std::make_unique<NetworkNamespace>();
    inside = std::make_unique<Inside>(*network);
    ipAll({"link add name near type veth peer name far address 02:00:00:00:00:09",
           "address add 10.0.1.1/24 dev near", "link set near up", "link set far up"});
    awaitRunning("near");
    platform = std::make_unique<LinuxPlatform>(loop, traffic, listener);
    platform->open(platform->kernel().links.at("near"));
  }

  void run(double seconds) {
    LoopTimer end(loop, [this] { loop.stop(); });
    end.startIn(seconds);
    loop.run();
  }

  std::unique_ptr<NetworkNamespace> network;
  std::unique_ptr<Inside> inside;
  agent::Loop loop;
  agent::Traffic traffic;
  FakeListener listener;
  std::unique_ptr<LinuxPlatform> platform;
};

TEST_F(LinuxPlatformTest, ManyChangesOfNeighborsWithinOneStepAskForTheirAddressesOnce) {
  listener.neighbors = {IpAddr::parse("10.0.1.2"), IpAddr::parse("10.0.1.3")};
  for (int i = 0; i < 1000; ++i) platform->neighborsChanged("near");
  platform->neighborsChanged("unknown");
  EXPECT_THAT(listener.asked, testing::IsEmpty());
  run(0.5);
  EXPECT_THAT(listener.asked, testing::ElementsAre("near"));
  EXPECT_EQ(platform->linkReports()["near"].queues[QueueKind::neighbor].queues, 2u);
}

TEST_F(LinuxPlatformTest, ManyChangesOfAdvertisersWithinOneStepAskForThemOnce) {
  listener.senders = {IpAddr::parse("10.9.0.1"), IpAddr::parse("10.9.0.2")};
  for (int i = 0; i < 1000; ++i) platform->advertisersChanged();
  EXPECT_EQ(listener.askedForAdvertisers, 0);
  run(0.5);
  EXPECT_EQ(listener.askedForAdvertisers, 1);
  EXPECT_EQ(platform->linkReports()[""].queues[QueueKind::advertiser].queues, 1u);
  EXPECT_EQ(platform->linkReports()[""].queues[QueueKind::unicast].queues, 1u);
}

TEST_F(LinuxPlatformTest, ClearedReportsHoldNoSendError) {
  ip("link set near down");
  EXPECT_FALSE(platform->send(IntfId("near"), packetTo("224.0.0.13")));
  EXPECT_FALSE(platform->send(IntfId(), packetTo("192.0.2.1")));
  EXPECT_EQ(platform->linkReports()["near"].sendError, "Network is unreachable");
  EXPECT_EQ(platform->linkReports()[""].sendError, "Network is unreachable");
  platform->clearReports();
  EXPECT_EQ(platform->linkReports()["near"].sendError, "");
  EXPECT_EQ(platform->linkReports()[""].sendError, "");
}

/// A system at the far end that has the same address: the kernel drops what it sends before PIM sockets.
TEST_F(LinuxPlatformTest, AddressThatAnotherSystemHasTooIsFound) {
  agent::PimSocket other("far", platform->kernel().links.at("far").index);
  ASSERT_TRUE(other.send(packetTo("224.0.0.13")));
  run(0.3);
  EXPECT_THAT(listener.uses, testing::ElementsAre("near 10.0.1.1"));
  EXPECT_EQ(listener.hardwareAddress, "02:00:00:00:00:09");
  EXPECT_EQ(listener.packets, 1u);
}

TEST_F(LinuxPlatformTest, PacketsOfItsOwnAndOfOtherAddressesAreNoDuplicate) {
  agent::PimSocket other("far", platform->kernel().links.at("far").index);
  ASSERT_TRUE(other.send(packetTo("224.0.0.13", "10.0.1.7")));
  ASSERT_TRUE(platform->send(IntfId("near"), packetTo("224.0.0.13")));
  run(0.3);
  EXPECT_THAT(listener.uses, testing::IsEmpty());
  platform->close("near");
  ASSERT_TRUE(other.send(packetTo("224.0.0.13")));
  run(0.3);
  EXPECT_THAT(listener.uses, testing::IsEmpty()) << "it is not open";
}

TEST_F(LinuxPlatformTest, FloodFromAnOwnAddressIsReadInASmallPart) {
  agent::PimSocket other("far", platform->kernel().links.at("far").index);
  for (int i = 0; i < 1000; ++i) other.send(packetTo("224.0.0.13"));
  run(0.5);
  EXPECT_THAT(listener.uses, testing::SizeIs(1));
  EXPECT_LE(listener.packets, 16u);
}

}  // namespace
}  // namespace test
