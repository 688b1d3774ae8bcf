#include <gmock/gmock.h>

#include "tests/sim/SimSupport.h"
#include "wire/Wire.h"

namespace pimbsr::sim {
namespace {

using test::row;
using test::Script;
using test::TapRecorder;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// A link with three routers, which send nothing in the first seconds.
constexpr char const* lan =
    "link lan prefix 192.0.2.0/24\n"
    "router r1\ninterface r1 lan 192.0.2.1\n"
    "router r2\ninterface r2 lan 192.0.2.2\n"
    "router r3\ninterface r3 lan 192.0.2.3\n";

/// A message that all of them receive and drop: none has a route to its BSR.
constexpr char const* strange = "inject lan bsm from 192.0.2.9 bsr 203.0.113.1\n";

Kinds const heard = drops | repeats | received | losses;

TEST(LinkTest, AMulticastPacketReachesAllOthersAfterTheDelay) {
  Script script(lan, 1, heard);
  script.simulation.execute(strange);
  EXPECT_THAT(script.play("run 0.0005"), IsEmpty());
  EXPECT_THAT(script.play("run 0.0005"), ElementsAre("0.001 r1 bsm from 192.0.2.9 no-rpf-neighbor",
                                                     "0.001 r2 bsm from 192.0.2.9 no-rpf-neighbor",
                                                     "0.001 r3 bsm from 192.0.2.9 no-rpf-neighbor"));
}

TEST(LinkTest, OwnPacketsAreNotHeard) {
  Script script(row(2), 1, received);
  std::vector<std::string> lines = script.play("run 6");
  EXPECT_THAT(lines, Contains(HasSubstr("r1 hello from 10.1.0.2")));
  EXPECT_THAT(lines, Not(Contains(HasSubstr("r1 hello from 10.1.0.1"))));
}

TEST(LinkTest, LossOfAHundredPercentLetsNothingThrough) {
  Script script(std::string(lan) + "faults loss 100%\n" + strange, 1, heard);
  script.simulation.execute("run 0.1");
  EXPECT_EQ(script.diary.count("loss: lost"), 3);
  EXPECT_EQ(script.diary.count("bsm"), 0);
}

TEST(LinkTest, DuplicationOfAHundredPercentDeliversTwice) {
  Script script(std::string(lan) + "faults duplicate 100%\n" + strange, 1, heard);
  script.simulation.execute("run 0.1");
  EXPECT_EQ(script.diary.count("r2 bsm"), 2);
}

TEST(LinkTest, FaultsNoneTakesThemAway) {
  Script script(std::string(lan) + "faults loss 100%\nfaults none on lan\n" + strange, 1, heard);
  script.simulation.execute("run 0.1");
  EXPECT_EQ(script.diary.count("bsm"), 3);
}

TEST(LinkTest, HalfTheLossLosesAboutHalf) {
  Script script(std::string(lan) + "faults loss 50%", 1, heard);
  for (int i = 0; i < 200; ++i) script.simulation.execute(strange);
  script.simulation.execute("run 0.1");
  EXPECT_GT(script.diary.count("bsm"), 240);
  EXPECT_LT(script.diary.count("bsm"), 360);
  EXPECT_EQ(script.diary.count("bsm") + script.diary.count("loss"), 600);
}

/// The sources of what r1 heard, in order.
std::vector<int> arrivals(Script const& script) {
  std::vector<int> order;
  for (std::string const& line : script.diary.lines) {
    std::size_t at = line.find("r1 bsm from 192.0.2.");
    if (at != line.npos) order.push_back(std::stoi(line.substr(at + 20)));
  }
  return order;
}

void sendTwenty(Script& script) {
  for (int i = 0; i < 20; ++i) {
    script.simulation.execute(fmt::format("inject lan bsm from 192.0.2.{} bsr 203.0.113.1", 100 + i));
  }
  script.simulation.execute("run 0.2");
}

TEST(LinkTest, JitterDelaysAndKeepsTheOrder) {
  Script script(
      std::string("link lan prefix 192.0.2.0/24 jitter 20ms\nrouter r1\ninterface r1 lan 192.0.2.1"), 1,
      heard);
  sendTwenty(script);
  std::vector<int> order = arrivals(script);
  EXPECT_EQ(order.size(), 20u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_NE(script.diary.lines.front().substr(0, 6), script.diary.lines.back().substr(0, 6));
}

TEST(LinkTest, ReorderingLetsPacketsOvertake) {
  Script script(std::string(lan) + "faults reorder 50%", 1, heard);
  sendTwenty(script);
  std::vector<int> order = arrivals(script);
  EXPECT_EQ(order.size(), 20u);
  EXPECT_FALSE(std::is_sorted(order.begin(), order.end()));
}

TEST(LinkTest, WhatExceedsTheMtuIsTooBig) {
  std::string groups;
  for (int i = 0; i < 20; ++i) groups += fmt::format(" group 239.{}.0.0/16 rp 10.9.9.9", i);
  Script script("link lan prefix 192.0.2.0/24 mtu 300\nrouter r1\ninterface r1 lan 192.0.2.1", 1, heard);
  script.simulation.execute(strange + std::string("\ninject lan bsm from 192.0.2.9 bsr 203.0.113.1") +
                            groups + "\nrun 1");
  EXPECT_EQ(script.diary.count("lan loss: too big"), 1);
  EXPECT_EQ(script.diary.count("r1 bsm"), 1);
}

TEST(LinkTest, EngineKeepsBelowTheMtuByItself) {
  std::string text = row(2, "mtu 300") + "candidate-bsr r1 global\ncandidate-rp r1";
  for (int i = 0; i < 30; ++i) text += fmt::format(" 239.{}.0.0/16", i);
  Script script(text, 1, heard);
  TapRecorder tap;
  script.simulation.network().tapAdd(&tap);
  script.simulation.execute("run 200");
  EXPECT_EQ(script.diary.count("too big"), 0);
  std::size_t longest = 0;
  for (auto const& packet : tap.packets) longest = std::max(longest, packet.bytes.size());
  EXPECT_GT(longest, 200u);
  EXPECT_EQ(script.rpSet(1).size(), script.rpSet(0).size());
  EXPECT_THAT(script.rpSet(1), HasSubstr("239.29.0.0/16 10.0.0.1"));
}

// Unicast ---------------------------------------------------------------------------------------------

TEST(UnicastTest, APacketGoesHopByHopWithItsTimeToLiveCountedDown) {
  Script script(row(4) + "candidate-bsr r4 global\nrun 6", 1, heard);
  TapRecorder tap;
  script.simulation.network().tapAdd(&tap);
  script.simulation.execute("inject l1 crp-adv from 10.1.0.99 to 10.0.0.4 group 239.1.0.0/16\nrun 0.5");
  EXPECT_THAT(script.diary.lines, Contains("6.004 r4 adv from 10.1.0.99 accepted"));
  std::vector<std::pair<U32, int>> hops;
  for (auto const& packet : tap.packets) {
    if (kindOf(packet.bytes) != PacketKind::crpAdv) continue;
    EXPECT_TRUE(wire::parseIpv4(packet.bytes));
    hops.emplace_back(packet.link, packet.bytes[8]);
  }
  EXPECT_THAT(hops, ElementsAre(std::pair(0, 64), std::pair(0, 63), std::pair(1, 62), std::pair(2, 61)));
}

TEST(UnicastTest, TimeToLiveEndsAPacket) {
  Script script(row(3) + "candidate-bsr r3 global\nrun 1", 1, losses);
  std::vector<U8> packet;
  ASSERT_TRUE(wire::encodeIpv4({.source = Lanet::IpAddr::fromHost(0x0a010063),
                                .destination = Lanet::IpAddr::fromHost(0x0a000003),
                                .ttl = 1},
                               Bytes(), packet));
  script.simulation.network().inject(0, packet);
  EXPECT_THAT(script.play("run 0.5"), ElementsAre("1.001 r1 loss: time to live over"));
}

TEST(UnicastTest, WithoutARouteAPacketIsLost) {
  Script script(row(2), 1, losses);
  EXPECT_THAT(script.play("inject l1 crp-adv from 10.1.0.99 to 203.0.113.1\nrun 0.5"),
              ElementsAre("0.001 r1 loss: no route"));
}

TEST(UnicastTest, AStaticRouteLeadsToTheRouterThatHasTheAddress) {
  Script script(row(3) + "route r1 203.0.113.0/24 via 10.1.0.2\nroute r2 203.0.113.0/24 via 10.2.0.99\nrun 1",
                1, losses);
  EXPECT_THAT(script.play("inject l1 crp-adv from 10.1.0.99 to 203.0.113.1\nrun 0.5"),
              ElementsAre("1.002 l2 loss: no receiver"));
  script.simulation.execute("no route r2 203.0.113.0/24");
  EXPECT_THAT(script.play("inject l1 crp-adv from 10.1.0.99 to 203.0.113.1\nrun 0.5"),
              ElementsAre("1.502 r2 loss: no route"));
}

/// r1 and r4 joined over r2 and over r3; r4 is the BSR.
std::string diamond() {
  std::string text;
  for (int i = 1; i <= 4; ++i) text += fmt::format("router r{0} loopback 10.0.0.{0}\n", i);
  for (auto [a, b] : {std::pair(1, 2), {1, 3}, {2, 4}, {3, 4}}) {
    text += fmt::format("link l{0}{1} prefix 10.{0}.{1}.0/24\n", a, b);
    text += fmt::format("interface r{0} l{0}{1} 10.{0}.{1}.{0}\n", a, b);
    text += fmt::format("interface r{1} l{0}{1} 10.{0}.{1}.{1}\n", a, b);
  }
  return text + "candidate-bsr r4 global\n";
}

TEST(UnicastTest, RoutesTakeTheLowestOfEqualNeighborsAndGoRoundABrokenLink) {
  Script script(diamond() + "run 10\n", 1, drops | repeats);
  TapRecorder tap;
  script.simulation.network().tapAdd(&tap);
  auto advTravels = [&] {
    tap.packets.clear();
    script.simulation.execute("inject l12 crp-adv from 10.1.2.99 to 10.0.0.4\nrun 0.1");
    std::string links;
    for (auto const& packet : tap.packets) {
      if (kindOf(packet.bytes) != PacketKind::crpAdv) continue;
      links += script.simulation.network().link(packet.link).options.name + " ";
    }
    return links;
  };
  // It arrives at r1, since that is the first router on the link.
  EXPECT_EQ(advTravels(), "l12 l12 l24 ");
  script.simulation.execute("down l24\nrun 2");
  EXPECT_EQ(advTravels(), "l12 l13 l34 ");
  script.simulation.execute("up l24\nrun 2");
  EXPECT_EQ(advTravels(), "l12 l12 l24 ");
}

TEST(UnicastTest, RoutingNoticesAChangeAfterTheConvergenceTime) {
  Script script(diamond() + "converge 10s\nrun 100\ndown l24\nrun 9", 1, losses);
  EXPECT_THAT(script.play("inject l12 crp-adv from 10.1.2.99 to 10.0.0.4\nrun 0.1"),
              ElementsAre("109.002 l24 loss: link down"));
  EXPECT_THAT(script.play("run 1\ninject l12 crp-adv from 10.1.2.99 to 10.0.0.4\nrun 0.1"), IsEmpty());
}

// Life ------------------------------------------------------------------------------------------------

TEST(LifeTest, AStoppedRouterSendsAGoodbyeAndACrashedOneIsMissedLater) {
  Script script(row(3) + "run 20", 1, neighbors);
  EXPECT_THAT(script.play("stop r3\nrun 1"), Contains("20.001 r2 neighbor 10.2.0.3 down"));
  EXPECT_THAT(script.play("crash r1\nrun 60"), Not(Contains(HasSubstr("10.1.0.1 down"))));
  EXPECT_THAT(script.play("run 60"), Contains(HasSubstr("r2 neighbor 10.1.0.1 down")));
  EXPECT_EQ(script.node(0).router(), nullptr);
}

TEST(LifeTest, AStoppedBsrIsHeardBeforeRoutingForgetsIt) {
  Script script(row(2) + "candidate-bsr r1 global\ncandidate-bsr r2 global priority 20\nrun 20", 1, states);
  // A candidate that receives the priority 0 of the elected BSR becomes Pending at once.
  EXPECT_THAT(script.play("stop r1\nrun 0.5"), ElementsAre("20.001 r2 state 2"));
}

TEST(LifeTest, AStartedRouterHasItsConfigurationAgainAndNothingElse) {
  Script script(row(2) + "candidate-bsr r1 global priority 7\ncandidate-rp r1 239.1.0.0/16\nrun 100");
  EXPECT_EQ(script.rpSet(1), "239.1.0.0/16 10.0.0.1");
  script.simulation.execute("crash r1\nrun 1\nstart r1");
  EXPECT_EQ(script.bsr(0), "");
  EXPECT_EQ(script.rpSet(0), "");
  script.simulation.execute("run 100");
  EXPECT_EQ(script.bsr(0), "10.0.0.1");
  EXPECT_EQ(script.rpSet(1), "239.1.0.0/16 10.0.0.1");
}

TEST(LifeTest, WhatIsConfiguredWhileARouterIsStoppedCountsFromItsStart) {
  Script script(row(2) + "stop r1\ncandidate-bsr r1 global\nrun 50");
  EXPECT_EQ(script.bsr(1), "");
  script.simulation.execute("start r1\nrun 50");
  EXPECT_EQ(script.bsr(1), "10.0.0.1");
}

TEST(LifeTest, LinksDownTakeTheirInterfacesAndNeighborsAway) {
  Script script(row(2) + "run 20");
  EXPECT_EQ(script.neighbors(0, 0), 1u);
  script.simulation.execute("down l1");
  EXPECT_EQ(script.neighbors(0, 0), 0u);
  EXPECT_FALSE(script.node(0).router()->pimStatus()->pimIntf(Lanet::IntfId("eth0")));
  script.simulation.execute("up l1\nrun 20");
  EXPECT_EQ(script.neighbors(0, 0), 1u);
}

TEST(LifeTest, APartitionCutsEveryLinkToTheOthersAndHealJoinsThemAgain) {
  Script script(diamond());
  auto downs = [&] {
    std::string names;
    for (U32 i = 0; i < 4; ++i) {
      Link const& link = script.simulation.network().link(i);
      if (!link.up) names += link.options.name + " ";
    }
    return names;
  };
  script.simulation.execute("partition r1 r2");
  EXPECT_EQ(downs(), "l13 l24 ");
  script.simulation.execute("heal");
  EXPECT_EQ(downs(), "");
}

TEST(ClockTest, SkewAndDriftMoveARoutersClockOnly) {
  Script script("router r1 skew 5s drift 10%\nrouter r2\nrun 100");
  EXPECT_DOUBLE_EQ(script.node(0).localTime(100), Zet::Context::firstTime + 115);
  EXPECT_DOUBLE_EQ(script.node(0).networkTime(script.node(0).localTime(100)), 100);
  EXPECT_DOUBLE_EQ(script.node(1).localTime(100), Zet::Context::firstTime + 100);
}

TEST(ClockTest, AClockThatRunsFastGivesABsrUpEarly) {
  std::string text = "link lan prefix 192.0.2.0/24\n";
  for (auto const* router : {"r1", "r2", "r3 drift 30%"}) text += fmt::format("router {}\n", router);
  for (int i = 1; i <= 3; ++i) text += fmt::format("interface r{0} lan 192.0.2.{0}\n", i);
  Script script(text + "candidate-bsr r1 global\nrun 100\ncrash r1\nrun 100");
  EXPECT_EQ(script.bsr(1), "192.0.2.1");
  EXPECT_EQ(script.bsr(2), "");
}

TEST(CountTest, PacketsAreCountedByLinkAndKind) {
  Script script(row(3) + "candidate-bsr r1 global\nrun 100");
  PacketCounts const& end = script.node(2).interfaces()[0].sent;
  PacketCounts const& middle = script.node(1).interfaces()[1].sent;
  EXPECT_GE(end[static_cast<int>(PacketKind::hello)], 4u);
  EXPECT_GE(middle[static_cast<int>(PacketKind::bootstrap)], 2u);
  EXPECT_EQ(middle[static_cast<int>(PacketKind::crpAdv)], 0u);
  script.simulation.execute("show r2 packets");
  EXPECT_EQ(script.node(1).interfaces()[1].sent, PacketCounts{});
  EXPECT_NE(script.node(2).interfaces()[0].sent, PacketCounts{});
}

TEST(EngineTest, NothingIsCaughtInsideTheEngineInALongRunWithFaults) {
  Script script(diamond() +
                "candidate-bsr r1 global priority 100\ncandidate-bsr r2 239.1.0.0/16\n"
                "candidate-rp r3 global\ncandidate-rp r2 239.1.0.0/16 239.1.2.0/24\n"
                "faults loss 20% duplicate 10% reorder 10%\n"
                "at 500 partition r1 r2\nat 900 heal\nat 1000 crash r4\nat 1200 start r4\nrun 2000");
  EXPECT_EQ(script.simulation.network().exceptions(), 0u);
  EXPECT_EQ(script.bsr(3), "10.0.0.1");
}

}  // namespace
}  // namespace pimbsr::sim
