#include "host/RpMap.h"

#include <set>

#include "tests/support/Messages.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using pimbsr::host::RpAnswer;
using pimbsr::host::rpHash;
using pimbsr::host::RpMap;
using pimbsr::host::RpTieBreak;

class RpMapTest : public ModelTest {
 protected:
  void rp(char const* range, char const* address, Zet::U32 priority = 10, double expires = 100,
          Zet::U32 mask = 30) {
    auto made = set->crpSetIs(prefix(range))->rpIs(addr(address));
    made->priorityIs(priority);
    made->hashMaskLenIs(mask);
    made->expiresIs(expires);
  }
  RpAnswer lookup(char const* group, double now = 50) { return RpMap(set).lookup(addr(group).v4Addr(), now); }

  Zet::Ptr<Routing::Pim::RpCandidateStatus> set = Routing::Pim::rpCandidateStatusFactory("agent");
};

TEST_F(RpMapTest, LongestRangeWins) {
  rp("224.0.0.0/4", "10.0.0.1");
  rp("239.0.0.0/8", "10.0.0.2");
  RpAnswer answer = lookup("239.1.2.3");
  EXPECT_EQ(answer.rp, addr("10.0.0.2"));
  EXPECT_EQ(answer.range, prefix("239.0.0.0/8"));
  EXPECT_EQ(answer.tieBreak, RpTieBreak::onlyOne);
  EXPECT_EQ(answer.ranges, (std::vector{prefix("239.0.0.0/8"), prefix("224.0.0.0/4")}));
  EXPECT_EQ(lookup("225.0.0.1").rp, addr("10.0.0.1"));
}

TEST_F(RpMapTest, LowerPriorityNumberWins) {
  rp("224.0.0.0/4", "10.0.0.1", 5);
  rp("224.0.0.0/4", "10.0.0.2", 4);
  EXPECT_EQ(lookup("225.0.0.1").rp, addr("10.0.0.2"));
  EXPECT_EQ(lookup("225.0.0.1").tieBreak, RpTieBreak::priority);
}

TEST_F(RpMapTest, HashDecidesBetweenEqualPrioritiesAndSpreadsGroups) {
  rp("224.0.0.0/4", "10.0.0.1");
  rp("224.0.0.0/4", "10.0.0.2");
  int first = 0;
  for (Zet::U32 i = 0; i < 64; ++i) {
    Lanet::IpAddr group = Lanet::IpAddr::fromHost(0xe1000000 + 4 * i);
    RpAnswer answer = RpMap(set).lookup(group, 50);
    EXPECT_EQ(answer.tieBreak, RpTieBreak::hash);
    Zet::U32 one = rpHash(group, 30, addr("10.0.0.1").v4Addr());
    Zet::U32 two = rpHash(group, 30, addr("10.0.0.2").v4Addr());
    EXPECT_EQ(answer.rp, addr(one > two ? "10.0.0.1" : "10.0.0.2"));
    first += one > two;
  }
  EXPECT_GT(first, 10);
  EXPECT_LT(first, 54);
}

TEST_F(RpMapTest, GroupsThatShareTheMaskShareTheRp) {
  for (Zet::U32 low = 0; low < 4; ++low) {
    EXPECT_EQ(rpHash(Lanet::IpAddr::fromHost(0xe1020304 | low), 30, addr("10.0.0.1").v4Addr()),
              rpHash(Lanet::IpAddr::fromHost(0xe1020304), 30, addr("10.0.0.1").v4Addr()));
  }
  EXPECT_EQ(rpHash(addr("225.0.0.1").v4Addr(), 0, addr("10.0.0.1").v4Addr()),
            rpHash(addr("239.9.9.9").v4Addr(), 0, addr("10.0.0.1").v4Addr()));
}

// The hash is of 31 bits, and so the same for addresses that differ in their first bit alone.
TEST_F(RpMapTest, HighestAddressDecidesBetweenEqualHashes) {
  rp("224.0.0.0/4", "10.0.0.1");
  rp("224.0.0.0/4", "138.0.0.1");
  RpAnswer answer = lookup("225.0.0.1");
  EXPECT_EQ(answer.rp, addr("138.0.0.1"));
  EXPECT_EQ(answer.tieBreak, RpTieBreak::address);
}

TEST_F(RpMapTest, MaskLengthOfTheBsrDecidesWhichGroupsShareAnRp) {
  auto rpsOf64Groups = [this](char const* range, Zet::U32 mask) {
    std::set<Lanet::IpGenAddr> rps;
    for (char const* address : {"10.0.0.1", "10.0.0.2"}) rp(range, address, 10, 100, mask);
    std::string const base(range, 4);
    for (int i = 0; i < 64; ++i) rps.insert(lookup((base + "0.0." + std::to_string(i)).c_str()).rp);
    return rps.size();
  };
  EXPECT_EQ(rpsOf64Groups("225.0.0.0/8", 32), 2u);
  EXPECT_EQ(rpsOf64Groups("226.0.0.0/8", 26), 1u);
}

// By hand: (1103515245 * ((1103515245 * (group & mask) + 12345) xor rp) + 12345) mod 2^31.
TEST_F(RpMapTest, HashIsThatOfTheRfc) {
  EXPECT_EQ(rpHash(addr("225.1.2.3").v4Addr(), 30, addr("10.0.0.1").v4Addr()), 749967889u);
  EXPECT_EQ(rpHash(addr("239.255.0.1").v4Addr(), 32, addr("192.0.2.77").v4Addr()), 1508637256u);
  EXPECT_EQ(rpHash(addr("239.255.0.1").v4Addr(), 128, addr("192.0.2.77").v4Addr()), 1508637256u);
}

TEST_F(RpMapTest, ExpiredRpIsLeftOutAndARangeOfSuchIsPassedOver) {
  rp("224.0.0.0/4", "10.0.0.1", 9);
  rp("239.0.0.0/8", "10.0.0.2", 1, 50);
  EXPECT_EQ(lookup("239.1.1.1", 49).rp, addr("10.0.0.2"));
  EXPECT_EQ(lookup("239.1.1.1", 50).rp, addr("10.0.0.1"));
  EXPECT_EQ(lookup("239.1.1.1", 50).range, prefix("224.0.0.0/4"));
}

TEST_F(RpMapTest, GroupWithoutARangeHasNoRp) {
  rp("239.0.0.0/8", "10.0.0.2");
  RpAnswer answer = lookup("225.0.0.1");
  EXPECT_TRUE(answer.rp.isEmpty());
  EXPECT_TRUE(answer.range.isEmpty());
  EXPECT_EQ(answer.tieBreak, RpTieBreak::noRp);
}

TEST_F(RpMapTest, ChoicesAreInOrderOfPreference) {
  rp("224.0.0.0/4", "10.0.0.1", 7);
  rp("224.0.0.0/4", "10.0.0.2", 3);
  rp("224.0.0.0/4", "10.0.0.3", 5);
  RpAnswer answer = lookup("225.0.0.1");
  ASSERT_EQ(answer.choices.size(), 3u);
  EXPECT_EQ(answer.choices[0].address, addr("10.0.0.2"));
  EXPECT_EQ(answer.choices[1].address, addr("10.0.0.3"));
  EXPECT_EQ(answer.choices[2].address, addr("10.0.0.1"));
}

}  // namespace
}  // namespace test
