#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "sim/EventQueue.h"
#include "sim/PacketPool.h"
#include "sim/Random.h"
#include "sim/Wakeups.h"

namespace pimbsr::sim {
namespace {

TEST(EventQueueTest, EventsComeByTimeAndThenAsTheyWerePutIn) {
  EventQueue<int> queue;
  EXPECT_EQ(queue.nextTime(), Kiv::never);
  queue.push(2.0, 1);
  queue.push(1.0, 2);
  queue.push(2.0, 3);
  queue.push(1.0, 4);
  queue.push(0.5, 5);
  std::vector<int> order;
  while (!queue.empty()) order.push_back(queue.pop());
  EXPECT_EQ(order, (std::vector{5, 2, 4, 1, 3}));
}

TEST(EventQueueTest, WhatIsPutInMeanwhileTakesItsPlace) {
  EventQueue<int> queue;
  queue.push(1.0, 1);
  queue.push(3.0, 3);
  EXPECT_EQ(queue.pop(), 1);
  queue.push(2.0, 2);
  queue.push(3.0, 4);
  EXPECT_EQ(queue.nextTime(), 2.0);
  EXPECT_EQ(queue.size(), 3u);
  EXPECT_EQ(queue.pop(), 2);
  EXPECT_EQ(queue.pop(), 3);
  EXPECT_EQ(queue.pop(), 4);
}

TEST(WakeupsTest, TheFirstOfManyIsAlwaysTheFirstOfASortedSet) {
  constexpr U32 nodes = 50;
  Wakeups wakeups;
  std::vector<double> times(nodes, Kiv::never);
  Rng rng(3);
  for (int i = 0; i < 5000; ++i) {
    U32 node = rng.below(nodes);
    double time = rng.hits(0.2) ? Kiv::never : rng.below(20);
    wakeups.wakeupIs(node, time);
    times[node] = time;
    auto first = std::min_element(times.begin(), times.end());
    ASSERT_EQ(wakeups.nextTime(), *first);
    if (*first == Kiv::never) continue;
    ASSERT_EQ(wakeups.nextNode(), first - times.begin());
  }
}

TEST(PacketPoolTest, ABufferIsUsedAgainOnceItIsReleased) {
  PacketPool pool;
  std::vector<U8> const one = {1, 2, 3};
  std::vector<U8> const two = {4};
  PacketPool::Handle first = pool.add(one);
  PacketPool::Handle second = pool.add(two);
  EXPECT_NE(first, second);
  pool.hold(first);
  pool.release(first);
  EXPECT_TRUE(std::ranges::equal(pool.bytes(first), one));
  pool.release(first);
  EXPECT_EQ(pool.held(), 1u);
  EXPECT_EQ(pool.add(two), first);
  EXPECT_TRUE(std::ranges::equal(pool.bytes(first), two));
}

TEST(RngTest, SeedsGiveTheSameNumbersEverywhere) {
  Rng rng(1);
  // The generator is the standard's, whose 10000th number is fixed; what is made of it is our own.
  std::mt19937_64 reference(spread(1));
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(rng.fraction(), static_cast<double>(reference() >> 11) / 9007199254740992.0);
  }
}

TEST(RngTest, CertaintyDrawsNothing) {
  Rng a(7);
  Rng b(7);
  EXPECT_FALSE(a.hits(0));
  EXPECT_TRUE(a.hits(1));
  EXPECT_EQ(a.fraction(), b.fraction());
}

TEST(RouterRngTest, NumbersDependOnSeedRouterAndNetwork) {
  std::set<int> firsts;
  for (U64 network : {1, 2}) {
    for (U32 node : {0, 1}) {
      for (unsigned seed : {5, 6}) {
        RouterRng rng(network, node);
        rng.seed(seed);
        int number = rng.next();
        EXPECT_GE(number, 0);
        firsts.insert(number);
        rng.seed(seed);
        EXPECT_EQ(rng.next(), number);
      }
    }
  }
  EXPECT_EQ(firsts.size(), 8u);
}

}  // namespace
}  // namespace pimbsr::sim
