#include "view/Comparison.h"

#include <gtest/gtest.h>

namespace pimbsr::view {
namespace {

Lanet::IpGenPrefix prefix(char const* text) { return Lanet::IpGenPrefix::parse(text); }

/// An agent with a neighbor that follows the zone of all groups.
AgentState agentOf(char const* name, char const* digest, char const* bsr = "10.0.0.1") {
  AgentState agent{.name = name};
  BsrZone zone;
  zone.zone = prefix("224.0.0.0/4");
  zone.bsr = KnownBsr{.address = Lanet::IpGenAddr::parse(bsr), .priority = 10, .expiresIn = 100};
  zone.digest = digest;
  agent.bsr.zones = {zone};
  agent.neighbors.neighbors.resize(1);
  return agent;
}

AgentState withBorder(AgentState agent, char const* range) {
  agent.borders.borders = {{.interface = "eth0", .blocked = {prefix(range)}}};
  return agent;
}

AgentState withDrop(AgentState agent, char const* reason, char const* zone = "224.0.0.0/4") {
  Drop drop;
  drop.reason = reason;
  drop.interface = "eth1";
  drop.zone = zone;
  agent.drops.drops = {drop};
  return agent;
}

AgentState heard(AgentState agent, double expiresIn) {
  agent.bsr.zones[0].bsr->expiresIn = expiresIn;
  return agent;
}

AgentState elected(AgentState agent) {
  agent.bsr.zones[0].bsr->own = true;
  agent.bsr.zones[0].bsr->expiresIn.reset();
  return agent;
}

AgentState withoutBsr(AgentState agent) {
  agent.bsr.zones[0].bsr.reset();
  return agent;
}

AgentState withoutNeighbor(AgentState agent) {
  agent.neighbors.neighbors.clear();
  return agent;
}

TEST(ComparisonTest, EqualDigestsAgree) {
  Comparison compared = compare({agentOf("r1", "11111111"), agentOf("r2", "11111111")});
  EXPECT_TRUE(compared.agree);
  ASSERT_EQ(compared.zones.size(), 1u);
  for (ComparedRouter const& router : compared.zones[0].routers) {
    EXPECT_EQ(router.group, "A");
    EXPECT_EQ(router.why, "");
  }
}

TEST(ComparisonTest, MostAgentsAreGroupA) {
  Comparison compared =
      compare({agentOf("r1", "22222222"), agentOf("r2", "11111111"), agentOf("r3", "11111111")});
  EXPECT_FALSE(compared.agree);
  EXPECT_EQ(compared.zones[0].routers[0].group, "B");
  EXPECT_EQ(compared.zones[0].routers[1].group, "A");
}

TEST(ComparisonTest, OfEqualGroupsThatOfTheBsrIsA) {
  Comparison compared = compare({agentOf("r1", "22222222"), elected(agentOf("r2", "11111111"))});
  EXPECT_EQ(compared.zones[0].routers[0].group, "B");
  EXPECT_EQ(compared.zones[0].routers[1].group, "A");
}

TEST(ComparisonTest, AgentsWithoutBsrAreNotGroupA) {
  Comparison compared = compare({withoutBsr(agentOf("r1", "22222222")), withoutBsr(agentOf("r2", "22222222")),
                                 agentOf("r3", "11111111")});
  EXPECT_EQ(compared.zones[0].routers[0].group, "B");
  EXPECT_EQ(compared.zones[0].routers[2].group, "A");
}

TEST(ComparisonTest, CauseOfADifferenceIsNamed) {
  AgentState const other = agentOf("r3", "22222222");
  AgentState const otherBsr = agentOf("r3", "22222222", "10.0.0.9");
  struct Case {
    AgentState third;
    char const* why;
  };
  Case const cases[] = {
      {otherBsr, "another BSR"},
      {withBorder(otherBsr, "224.0.0.0/4"), "another BSR: a border of 224.0.0.0/4 on eth0"},
      {withBorder(otherBsr, "239.1.0.0/16"), "another BSR"},
      {withoutNeighbor(otherBsr), "another BSR: no neighbor"},
      {withoutNeighbor(withoutBsr(other)), "no BSR: no neighbor"},
      {withDrop(withoutBsr(other), "no-rpf-neighbor"), "no BSR: a filter: eth1 drops as no-rpf-neighbor"},
      {withDrop(withoutBsr(other), "no-rpf-neighbor", "239.1.0.0/16"), "no BSR"},
      {withDrop(withoutBsr(other), "own-address"), "no BSR"},
      {withDrop(withoutBsr(other), "bsr-filter"), "no BSR: a filter: eth1 drops as bsr-filter"},
      {withDrop(other, "rp-quota"), "a filter: eth1 drops as rp-quota"},
      {heard(other, 40), "an older message: the BSR was heard 60.0 s before r1 heard it"},
      {heard(other, 99), "other RPs"},
      {withoutNeighbor({.name = "r3"}), "does not follow it: no neighbor"},
  };
  for (Case const& c : cases) {
    Comparison compared = compare({agentOf("r1", "11111111"), agentOf("r2", "11111111"), c.third});
    EXPECT_EQ(compared.zones[0].routers[2].why, c.why);
    EXPECT_EQ(compared.zones[0].routers[2].group, "B") << c.why;
    EXPECT_FALSE(compared.agree) << c.why;
  }
}

TEST(ComparisonTest, MessageOfAFollowerIsOlderThanTheBsrsOwn) {
  Comparison compared = compare({elected(agentOf("r1", "11111111")), agentOf("r2", "22222222")});
  EXPECT_EQ(compared.zones[0].routers[1].why, "an older message: r1 is the BSR");
}

TEST(ComparisonTest, BorderOfTheOtherSideIsNamedWithItsRouter) {
  Comparison compared =
      compare({withBorder(agentOf("r1", "11111111"), "224.0.0.0/4"), agentOf("r2", "22222222", "10.0.0.9")});
  EXPECT_EQ(compared.zones[0].routers[1].why, "another BSR: a border of 224.0.0.0/4 on eth0 of r1");
}

TEST(ComparisonTest, SilentAgentsAreApart) {
  Comparison compared = compare({agentOf("r1", "11111111"), {.name = "r2", .error = "not there"}});
  EXPECT_FALSE(compared.agree);
  ASSERT_EQ(compared.silent.size(), 1u);
  EXPECT_EQ(compared.silent[0].router, "r2");
  EXPECT_EQ(compared.zones[0].routers.size(), 1u);
  EXPECT_TRUE(compared.zones[0].agree);
}

}  // namespace
}  // namespace pimbsr::view
