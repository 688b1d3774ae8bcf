#include "pim/NeighborTable.h"

#include <random>

#include "tests/support/Messages.h"
#include "tests/support/TestContext.h"

namespace test {
namespace {

using Lanet::IpGenAddr;
using pimbsr::pim::LinkNeighbors;
using pimbsr::pim::NeighborTable;

class NeighborTableTest : public ModelTest {
 protected:
  Zet::Ptr<Routing::Pim::Status> pim = Routing::Pim::statusFactory("pim");
  Zet::Ptr<Routing::Pim::Intf> eth0 = pim->pimIntfIs(intf("eth0"));
  Zet::Ptr<NeighborTable> table = Zet::make<NeighborTable>(pim);
  Zet::Ptr<LinkNeighbors> link = table->link(intf("eth0"));
};

TEST_F(NeighborTableTest, OwnerOfAnAddressIsItsPrimaryNeighborBeforeOneThatListsIt) {
  eth0->neighborIs(addr("192.0.2.1"))->secondaryIs(addr("192.0.2.50"), true);
  eth0->neighborIs(addr("192.0.2.2"))->secondaryIs(addr("192.0.2.1"), true);
  struct Case {
    char const* intf;
    char const* address;
    char const* owner;
  };
  for (Case const& c : {Case{"eth0", "192.0.2.1", "192.0.2.1"},
                        {"eth0", "192.0.2.50", "192.0.2.1"},
                        {"eth0", "192.0.2.51", ""},
                        {"eth0", "", ""},
                        {"eth1", "192.0.2.1", ""}}) {
    EXPECT_EQ(table->owner(intf(c.intf), addr(c.address)), addr(c.owner)) << c.intf << ' ' << c.address;
  }
}

TEST_F(NeighborTableTest, NeighborThatIsDeletedOwnsNothing) {
  eth0->neighborIs(addr("192.0.2.1"))->secondaryIs(addr("192.0.2.50"), true);
  eth0->neighborDel(addr("192.0.2.1"));
  EXPECT_TRUE(link->owner(addr("192.0.2.1")).isEmpty());
  EXPECT_TRUE(link->owner(addr("192.0.2.50")).isEmpty());
  EXPECT_EQ(link->addressCount(), 0u);
}

TEST_F(NeighborTableTest, NeighborsThatWereThereBeforeTheTableAreInIt) {
  auto neighbor = eth0->neighborIs(addr("192.0.2.1"));
  neighbor->hasDrPriorityIs(true);
  neighbor->drPriorityIs(7);
  neighbor->secondaryIs(addr("192.0.2.50"), true);
  NeighborTable late(pim);
  EXPECT_EQ(late.owner(intf("eth0"), addr("192.0.2.50")), addr("192.0.2.1"));
  EXPECT_EQ(late.link(intf("eth0"))->electDr(addr("192.0.2.9"), 6), addr("192.0.2.1"));
  EXPECT_EQ(late.link(intf("eth0"))->electDr(addr("192.0.2.9"), 8), addr("192.0.2.9"));
}

TEST_F(NeighborTableTest, InterfaceThatIsDeletedHasNoLinkAndOneThatComesBackStartsEmpty) {
  eth0->neighborIs(addr("192.0.2.1"));
  pim->pimIntfDel(intf("eth0"));
  EXPECT_FALSE(table->link(intf("eth0")));
  eth0 = pim->pimIntfIs(intf("eth0"));
  EXPECT_EQ(table->link(intf("eth0"))->addressCount(), 0u);
  EXPECT_EQ(table->link(intf("eth0"))->notifier(), eth0);
}

TEST_F(NeighborTableTest, AddressThatTwoNeighborsListHasAnotherOwnerForEach) {
  for (char const* primary : {"192.0.2.1", "192.0.2.2"})
    eth0->neighborIs(addr(primary))->secondaryIs(addr("192.0.2.50"), true);
  EXPECT_EQ(link->otherOwner(addr("192.0.2.50"), addr("192.0.2.1")), addr("192.0.2.2"));
  EXPECT_EQ(link->otherOwner(addr("192.0.2.50"), addr("192.0.2.2")), addr("192.0.2.1"));
  eth0->neighbor(addr("192.0.2.1"))->secondaryDel(addr("192.0.2.50"));
  EXPECT_TRUE(link->otherOwner(addr("192.0.2.50"), addr("192.0.2.2")).isEmpty());
}

// Against a walk of the status ------------------------------------------------------------------------

/// The answers of a walk over all neighbors, as plainly as can be.
class Walk {
 public:
  explicit Walk(Routing::Pim::Intf const& intf) : intf_(intf) {}

  bool owns(IpGenAddr const& owner, IpGenAddr const& address) const {
    auto neighbor = intf_.neighbor(owner);
    return neighbor && (owner == address || neighbor->secondary(address));
  }
  bool isOwned(IpGenAddr const& address) const {
    for (auto at = intf_.neighborIterator(); at; ++at) {
      if (owns(at->address(), address)) return true;
    }
    return false;
  }
  Zet::U64 addressCount() const {
    Zet::U64 count = 0;
    for (auto at = intf_.neighborIterator(); at; ++at) count += 1 + at->secondaryCount();
    return count;
  }
  IpGenAddr dr(IpGenAddr const& own, Zet::U32 priority) const {
    bool byPriority = true;
    for (auto at = intf_.neighborIterator(); at; ++at) byPriority = byPriority && at->hasDrPriority();
    std::pair<Zet::U32, IpGenAddr> best(byPriority && !own.isEmpty() ? priority : 0, own);
    for (auto at = intf_.neighborIterator(); at; ++at)
      best = std::max(best, {byPriority ? at->drPriority() : 0, at->address()});
    return best.second;
  }

 private:
  Routing::Pim::Intf const& intf_;
};

TEST_F(NeighborTableTest, AnswersAsAWalkDoesAfterEachOfThousandsOfRandomChanges) {
  std::minstd_rand random(1);
  auto below = [&](int bound) { return static_cast<int>(random() >> 8) % bound; };
  auto some = [&](int bound) { return addr("192.0.2." + std::to_string(1 + below(bound))); };
  Walk walk(*eth0);
  for (int i = 0; i < 5000; ++i) {
    auto neighbor = eth0->neighborIs(some(8));
    switch (below(5)) {
      case 0:
        eth0->neighborDel(neighbor->address());
        break;
      case 1:
        neighbor->hasDrPriorityIs(below(4) != 0);
        break;
      case 2:
        neighbor->drPriorityIs(static_cast<Zet::U32>(below(4)));
        break;
      case 3:
        neighbor->secondaryDel(some(20));
        break;
      default:
        neighbor->secondaryIs(some(20), true);
    }
    IpGenAddr asked = some(20);
    IpGenAddr owner = link->owner(asked);
    ASSERT_EQ(!owner.isEmpty(), walk.isOwned(asked)) << i;
    ASSERT_TRUE(owner.isEmpty() || walk.owns(owner, asked)) << i;
    ASSERT_EQ(link->addressCount(), walk.addressCount()) << i;
    for (char const* own : {"192.0.2.4", ""}) ASSERT_EQ(link->electDr(addr(own), 2), walk.dr(addr(own), 2));
  }
}

}  // namespace
}  // namespace test
