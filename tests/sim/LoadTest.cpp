#include "sim/Load.h"

#include <gmock/gmock.h>

#include "tests/sim/SimSupport.h"

namespace pimbsr::sim {
namespace {

using test::Script;
using testing::ElementsAre;

/// A packet of one kind, as far as its kind is read: an IPv4 header for PIM, and the type.
std::vector<U8> packetOf(PacketKind kind) {
  std::vector<U8> packet(24);
  packet[0] = 0x45;
  packet[9] = 103;
  constexpr U8 types[] = {0x20, 0x24, 0x28, 0x23};
  packet[20] = types[static_cast<std::size_t>(kind)];
  return packet;
}

U64 sumOf(LoadBins const& bins, PacketKind kind) {
  U64 sum = 0;
  for (PacketCounts const& bin : bins) sum += bin[static_cast<std::size_t>(kind)];
  return sum;
}

TEST(LoadMeterTest, PacketCountsOnceInItsBinAndKind) {
  LoadMeter meter(false);
  meter.onPacket(0, 0, packetOf(PacketKind::hello));
  meter.onPacket(1, 0.999, packetOf(PacketKind::bootstrap));
  meter.onPacket(1, 1, packetOf(PacketKind::crpAdv));
  meter.onPacket(1, 2.5, packetOf(PacketKind::other));
  meter.end(4, 3);
  EXPECT_EQ(meter.binLength(), 1);
  EXPECT_THAT(meter.bins(), ElementsAre(PacketCounts{1, 1, 0, 0}, PacketCounts{0, 0, 1, 0},
                                        PacketCounts{0, 0, 0, 1}, PacketCounts{}, PacketCounts{}));
  ASSERT_EQ(meter.links().size(), 3u);
  EXPECT_EQ(meter.links()[0].total, (PacketCounts{1, 0, 0, 0}));
  EXPECT_EQ(meter.links()[1].total, (PacketCounts{0, 1, 1, 1}));
  EXPECT_EQ(meter.links()[2].total, PacketCounts{});
  EXPECT_TRUE(meter.links()[1].bins.empty());
}

TEST(LoadMeterTest, BinsOfEachLinkAreKeptOnRequest) {
  LoadMeter meter(true);
  meter.onPacket(1, 1, packetOf(PacketKind::hello));
  meter.end(1.5, 2);
  EXPECT_THAT(meter.links()[0].bins, ElementsAre(PacketCounts{}, PacketCounts{}));
  EXPECT_THAT(meter.links()[1].bins, ElementsAre(PacketCounts{}, PacketCounts{1, 0, 0, 0}));
}

TEST(LoadMeterTest, BinsAreAtMost360AndLoseNoPacket) {
  struct Case {
    double end;
    double length;
    std::size_t count;
  };
  for (auto const& [end, length, count] : {Case{0, 1, 1},
                                           {359.9, 1, 360},
                                           {360, 2, 181},
                                           {719.9, 2, 360},
                                           {720, 4, 181},
                                           {5000, 16, 313},
                                           {1e6, 4096, 245}}) {
    LoadMeter meter(true);
    for (double time : {0.0, end / 3, end / 2, end}) meter.onPacket(0, time, packetOf(PacketKind::hello));
    meter.end(end, 1);
    EXPECT_EQ(meter.binLength(), length) << end;
    EXPECT_EQ(meter.bins().size(), count) << end;
    EXPECT_EQ(sumOf(meter.bins(), PacketKind::hello), 4u) << end;
    EXPECT_EQ(meter.links()[0].bins, meter.bins()) << end;
    EXPECT_EQ(meter.bins()[static_cast<std::size_t>(end / 2 / length)][0] > 0, true) << end;
  }
}

TEST(LoadMeterTest, MeterCountsWhatRoutersSendAndWhatIsInjected) {
  LoadMeter meter(false);
  Script script;
  script.simulation.network().tapAdd(&meter);
  test::TapRecorder other;
  script.simulation.network().tapAdd(&other);
  script.simulation.execute(test::row(2) +
                            "candidate-bsr r1 global\nrun 100\ninject l1 hello from 10.1.0.9\nrun 1");
  meter.end(101, 1);
  PacketCounts counted{};
  for (test::Tapped const& packet : other.packets) ++counted[static_cast<std::size_t>(kindOf(packet.bytes))];
  EXPECT_EQ(meter.links()[0].total, counted);
  EXPECT_GT(counted[static_cast<std::size_t>(PacketKind::hello)], 6u);
  EXPECT_GT(counted[static_cast<std::size_t>(PacketKind::bootstrap)], 1u);
}

}  // namespace
}  // namespace pimbsr::sim
