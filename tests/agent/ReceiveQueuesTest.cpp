#include "agent/queues/ReceiveQueues.h"

#include <netinet/in.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "tests/agent/QueueLab.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
using agent::LoopTimer;
using agent::PimSocket;
using agent::QueueKind;
using agent::ReceiveQueues;
using Lanet::IpAddr;
using Lanet::Prefix;
using testing::ElementsAre;
using testing::IsEmpty;
using Zet::U32;
using Zet::U8;

constexpr U8 hello = 0x20;
constexpr U8 bootstrap = 0x24;

IpAddr address(U32 last) { return IpAddr::fromHost(0x0a000100 + last); }  // 10.0.1.0 and on
IpAddr stranger(U32 number) { return IpAddr::fromHost(0x0a000200 + number); }
IpAddr foreigner(U32 number) { return IpAddr::fromHost(0xc0000200 + number); }

std::vector<IpAddr> addressesFrom(U32 first, U32 count) {
  std::vector<IpAddr> addresses;
  for (U32 i = 0; i < count; ++i) addresses.push_back(address(first + i));
  return addresses;
}

std::vector<U8> packetOf(IpAddr source, U8 type, U32 number) {
  return numberedPacket({.source = source, .destination = IpAddr::fromHost(0xe000000d), .ttl = 1}, type,
                        number);
}

class ReceiveQueuesTest : public QueueLab {
 protected:
  void SetUp() override {
    QueueLab::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    Inside inside(*near);
    queues = openQueues();
  }
  void TearDown() override { queues = nullptr; }

  std::unique_ptr<ReceiveQueues> openQueues() {
    auto deliver = [this](std::span<U8 const> packet) {
      taken.push_back(numberOf(packet));
      return !onPacket || onPacket(taken.back());
    };
    auto neighbors = [this] {
      ++walks;
      return known;
    };
    return std::make_unique<ReceiveQueues>(loop, "near", 9, std::vector{subnet}, budget, deliver, neighbors);
  }

  void send(IpAddr source, U8 type, U32 number) {
    ASSERT_TRUE(sender->send(packetOf(source, type, number))) << sender->lastError();
  }

  void settle() {
    for (int i = 0; i < 100 && !queues->isSettled(); ++i) run(0.05);
    EXPECT_TRUE(queues->isSettled());
  }
  /// Makes these the known neighbors.
  void meet(std::vector<IpAddr> const& addresses) {
    known = addresses;
    queues->neighborsChanged();
    settle();
  }

  Prefix const subnet = Prefix::parse("10.0.0.0/23");
  Prefix const wideSubnet = Prefix::parse("10.0.0.0/16");
  agent::NeighborQueueBudget budget;
  std::function<bool(U32)> onPacket;
  std::unique_ptr<ReceiveQueues> queues;
};

TEST_F(ReceiveQueuesTest, PacketsAreServedInTheOrderOfTheirArrival) {
  meet({address(1), address(2)});
  std::vector<U32> expected;
  for (U32 i = 0; i < 300; ++i) {
    IpAddr const sources[] = {address(1), address(2), address(3), address(1), foreigner(1), stranger(i)};
    send(sources[i % 6], i % 4 == 0 ? hello : bootstrap, i);
    expected.push_back(i);
  }
  run(0.3);
  EXPECT_EQ(taken, expected);
}

TEST_F(ReceiveQueuesTest, EachSenderHasTheQueueOfItsKind) {
  meet({address(1)});
  send(address(1), hello, 1);
  send(address(1), bootstrap, 2);
  send(address(2), hello, 3);
  send(address(2), bootstrap, 4);
  send(foreigner(1), hello, 5);
  run(0.1);
  auto counts = queues->counts();
  EXPECT_EQ(counts[QueueKind::neighbor], (agent::QueueCounts{.queues = 1, .received = 2}));
  EXPECT_EQ(counts[QueueKind::hello], (agent::QueueCounts{.queues = 1, .received = 1}));
  EXPECT_EQ(counts[QueueKind::other], (agent::QueueCounts{.queues = 1, .received = 2}));
  EXPECT_FALSE(counts.contains(QueueKind::shared));
}

/// More packets than any receive buffer holds, while nothing is read.
constexpr U32 floodSize = 6000;

TEST_F(ReceiveQueuesTest, FloodFromStrangersLosesNothingOfNeighborsAndNoHelloOfANewOne) {
  meet({address(1), address(2)});
  for (U32 i = 0; i < floodSize; ++i) send(i % 2 == 0 ? stranger(i) : foreigner(i), bootstrap, 1000 + i);
  for (U32 i = 0; i < floodSize; ++i) send(foreigner(i), hello, 1000 + i);
  for (U32 i = 1; i <= 3; ++i) send(address(i), i == 3 ? hello : bootstrap, i);
  run(0.5);
  std::erase_if(taken, [](U32 number) { return number >= 1000; });
  EXPECT_THAT(taken, ElementsAre(1, 2, 3));
  auto counts = queues->counts();
  EXPECT_EQ(counts[QueueKind::neighbor].lost, 0u);
  EXPECT_EQ(counts[QueueKind::hello].lost, 0u);
  EXPECT_GT(counts[QueueKind::other].lost, 0u);
  EXPECT_GE(counts[QueueKind::other].received + counts[QueueKind::other].lost, 2 * floodSize);
}

TEST_F(ReceiveQueuesTest, FloodInTheNameOfANeighborLosesNothingOfOthers) {
  meet({address(1), address(2)});
  for (U32 i = 0; i < 2 * floodSize; ++i) send(address(1), bootstrap, 1000 + i);
  send(address(2), bootstrap, 2);
  send(address(3), hello, 3);
  send(address(4), bootstrap, 4);
  run(0.5);
  std::erase_if(taken, [](U32 number) { return number >= 1000; });
  EXPECT_THAT(taken, ElementsAre(2, 3, 4));
  auto counts = queues->counts();
  EXPECT_GT(counts[QueueKind::neighbor].lost, 0u);
  EXPECT_EQ(counts[QueueKind::neighbor].received + counts[QueueKind::neighbor].lost, 2 * floodSize + 1);
  EXPECT_EQ(counts[QueueKind::hello].lost + counts[QueueKind::other].lost, 0u);
}

TEST_F(ReceiveQueuesTest, LossesAreKeptWhenTheQueueOfANeighborCloses) {
  meet({address(1)});
  for (U32 i = 0; i < 2 * floodSize; ++i) send(address(1), bootstrap, i);
  auto before = queues->counts()[QueueKind::neighbor];
  meet({});
  auto after = queues->counts()[QueueKind::neighbor];
  EXPECT_GT(before.lost, 0u);
  EXPECT_EQ(after.lost, before.lost);
  EXPECT_EQ(after.queues, 0u);
  EXPECT_EQ(after.received + after.lost, 2 * floodSize);
  EXPECT_EQ(taken.size(), after.received);
  queues->clearCounts();
  EXPECT_EQ(queues->counts()[QueueKind::neighbor], agent::QueueCounts());
}

TEST_F(ReceiveQueuesTest, QueueBeyondItsBudgetRestsWhileOthersAreServed) {
  meet({address(1), address(2)});
  onPacket = [](U32 number) { return number < 1000; };
  for (U32 i = 0; i < 300; ++i) send(address(1), bootstrap, 1000 + i);
  for (U32 i = 0; i < 100; ++i) send(address(2), bootstrap, i);
  run(0.1);
  auto excess = std::count_if(taken.begin(), taken.end(), [](U32 number) { return number >= 1000; });
  EXPECT_EQ(taken.size() - static_cast<std::size_t>(excess), 100u);
  EXPECT_GE(excess, 2) << "it is asked again after a rest";
  EXPECT_LE(excess, 12) << "one packet for each 10 ms";
  onPacket = nullptr;
  run(0.1);
  EXPECT_EQ(taken.size(), 400u) << "what waits is served once the budget allows it";
}

TEST_F(ReceiveQueuesTest, TimersAreServedBetweenPacketsThatTakeLong) {
  meet({address(1)});
  std::size_t before = 0, most = 0;
  onPacket = [](U32) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return true;
  };
  agent::LoopTimer tick(loop, [&] {
    most = std::max(most, taken.size() - std::exchange(before, taken.size()));
    tick.startIn(0.001);
  });
  tick.startIn(0.001);
  for (U32 i = 0; i < 200; ++i) send(address(1), bootstrap, i);
  run(0.5);
  EXPECT_EQ(taken.size(), 200u);
  EXPECT_LE(most, 4u) << "packets of 1 ms in one turn of 2 ms";
}

TEST_F(ReceiveQueuesTest, NeighborsBeyondTheBoundShareAQueueAndStrangersHaveNoPartInIt) {
  std::vector<IpAddr> neighbors = addressesFrom(0, 100);
  meet(neighbors);
  EXPECT_EQ(budget.left, 256u - 64u);
  for (U32 i = 0; i < floodSize; ++i) send(foreigner(i), bootstrap, 1000);
  for (U32 i = 0; i < 101; ++i) send(address(i), hello, i);
  run(0.5);
  std::erase(taken, 1000u);
  EXPECT_EQ(taken.size(), 101u);
  auto counts = queues->counts();
  EXPECT_EQ(counts[QueueKind::neighbor], (agent::QueueCounts{.queues = 64, .received = 64}));
  EXPECT_EQ(counts[QueueKind::shared], (agent::QueueCounts{.queues = 1, .received = 36}));
  EXPECT_EQ(counts[QueueKind::hello].received, 1u);
  meet({});
  EXPECT_EQ(budget.left, 256u);
  meet(neighbors);
  queues = nullptr;
  EXPECT_EQ(budget.left, 256u);
}

TEST_F(ReceiveQueuesTest, AddressThatCanHaveNoQueueOfItsOwnSharesOne) {
  meet({IpAddr::parse("10.0.1.255"), address(1)});
  auto counts = queues->counts();
  EXPECT_EQ(counts[QueueKind::neighbor].queues, 1u);
  EXPECT_EQ(counts[QueueKind::shared].queues, 1u);
}

TEST_F(ReceiveQueuesTest, NeighborsThatShareMoveToQueuesThatNeighborsOfTheInterfaceLeave) {
  meet(addressesFrom(1, 65));
  EXPECT_EQ(budget.left, 256u - 64u);
  meet(addressesFrom(31, 35));
  EXPECT_EQ(budget.left, 256u - 35u);
  for (U32 i = 31; i <= 65; ++i) send(address(i), bootstrap, i);
  run(0.2);
  EXPECT_EQ(taken.size(), 35u);
  auto counts = queues->counts();
  EXPECT_EQ(counts[QueueKind::neighbor], (agent::QueueCounts{.queues = 35, .received = 35}));
  EXPECT_EQ(counts[QueueKind::shared].received, 0u);
}

TEST_F(ReceiveQueuesTest, NeighborsThatShareMoveToQueuesThatAnotherInterfaceLeaves) {
  budget.left = 3;
  Inside inside(*near);
  auto others = openQueues();
  known = addressesFrom(101, 2);
  others->neighborsChanged();
  run(0.3);
  meet(addressesFrom(1, 3));
  EXPECT_EQ(queues->counts()[QueueKind::neighbor].queues, 1u);
  run(2 * ReceiveQueues::retryTime);
  EXPECT_EQ(queues->counts()[QueueKind::neighbor].queues, 1u) << "all places are in use";
  others = nullptr;
  run(2 * ReceiveQueues::retryTime);
  EXPECT_EQ(queues->counts()[QueueKind::neighbor].queues, 3u);
  EXPECT_EQ(budget.left, 0u);
}

TEST_F(ReceiveQueuesTest, FailedStepIsRepeated) {
  known = {address(1)};
  runWithoutFiles(0.3, [this] { queues->neighborsChanged(); });
  EXPECT_EQ(walks, 1);
  EXPECT_EQ(queues->counts().count(QueueKind::neighbor), 0u);
  EXPECT_EQ(queues->counts().count(QueueKind::shared), 0u);
  run(2 * ReceiveQueues::retryTime);
  send(address(1), bootstrap, 1);
  run(0.1);
  EXPECT_EQ(queues->counts()[QueueKind::neighbor], (agent::QueueCounts{.queues = 1, .received = 1}));
  EXPECT_EQ(walks, 1);
}

TEST_F(ReceiveQueuesTest, ManyChangesWithinOneStepWalkTheNeighborsOnce) {
  known = addressesFrom(1, 20);
  for (int i = 0; i < 1000; ++i) queues->neighborsChanged();
  EXPECT_EQ(walks, 0);
  settle();
  EXPECT_EQ(walks, 1);
  EXPECT_EQ(queues->counts()[QueueKind::neighbor].queues, 20u);
  run(0.3);
  EXPECT_EQ(walks, 1) << "without a change there is no walk";
}

TEST_F(ReceiveQueuesTest, ChangesThatComeFastAreMadeTogether) {
  for (U32 i = 0; i < 5000; ++i) {
    known = {address(i % 200)};
    queues->neighborsChanged();
  }
  EXPECT_EQ(queues->counts().count(QueueKind::neighbor), 0u) << "no socket for a change in itself";
  settle();
  send(address(4999 % 200), bootstrap, 1);
  run(0.1);
  EXPECT_EQ(queues->counts()[QueueKind::neighbor], (agent::QueueCounts{.queues = 1, .received = 1}));
}

/// Opens as other sockets do, but stays for a while between the creation and the filter.
class SlowSocket final : public agent::PimSocketBase {
 public:
  SlowSocket() {
    option(IPPROTO_IP, IP_PKTINFO, 0, "as it is at first");
    filterIs(agent::passUnicast());
  }
  void finish() { option(IPPROTO_IP, IP_PKTINFO, 1, "as it is in the end"); }
};

TEST_F(ReceiveQueuesTest, PacketThatCameBeforeItsSocketHadAFilterIsNotTaken) {
  Inside inside(*near);
  auto send = [&](U32 number) {
    pimbsr::wire::Ipv4Header header{
        .source = address(1), .destination = IpAddr::parse("10.0.1.254"), .ttl = 1};
    ASSERT_TRUE(sender->send(numberedPacket(header, bootstrap, number)));
  };
  auto socket = std::make_unique<SlowSocket>();
  send(1);
  ASSERT_TRUE(becomesReadable(socket->fd(), 5));
  socket->finish();
  agent::QueueSet set(loop, [this](agent::Received const& received) {
    taken.push_back(numberOf(received.packet));
    return agent::QueueSet::Taken::delivered;
  });
  set.add(QueueKind::unicast, std::move(socket));
  send(2);
  run(0.2);
  EXPECT_THAT(taken, ElementsAre(2));
  EXPECT_EQ(set.counts()[QueueKind::unicast].received, 1u);
}

/// Sends numbered packets of many senders as fast as they are taken; no more wait than a buffer holds.
U32 sendNumbered(PimSocket& sender, SharedProgress const& progress) {
  U32 number = 0;
  while (!progress->isOver) {
    if (number - progress->taken > 250) continue;
    U32 from = number % 41;
    IpAddr source = from == 40 ? stranger(1) : address(from);
    sender.send(packetOf(source, number % 3 == 0 ? hello : bootstrap, number));
    ++number;
  }
  return number;
}

TEST_F(ReceiveQueuesTest, EachPacketIsTakenOnceWhileNeighborsAndSubnetsChange) {
  SharedProgress progress;
  budget.left = 15;  // of forty; the others share a queue, and move when a place is free
  onPacket = [&progress](U32) {
    ++progress->taken;
    return true;
  };
  std::mt19937 random(7);
  std::set<IpAddr> present;
  int changes = 0;
  LoopTimer change(loop, [&] {
    for (int i = 0; i < 3; ++i, ++changes) {
      IpAddr one = address(static_cast<U32>(random() % 40));
      if (!present.insert(one).second) present.erase(one);
    }
    known.assign(present.begin(), present.end());
    queues->neighborsChanged();
    if (random() % 10 == 0) queues->subnetsAre({random() % 2 == 0 ? subnet : wideSubnet});
    change.startIn(0.02);
  });
  {
    Meanwhile sending([&] { sendNumbered(*sender, progress); });
    change.startIn(0);
    run(4);
    change.stop();
    progress->isOver = true;
  }
  meet({});
  run(0.2);
  std::size_t const packets = expectTakenOnce();
  EXPECT_GT(changes, 300);
  EXPECT_GT(packets, 5000u);
  auto counts = queues->counts();
  for (auto const& [kind, count] : counts) EXPECT_EQ(count.lost, 0u) << static_cast<int>(kind);
  EXPECT_GT(counts[QueueKind::neighbor].received, packets / 20);
  EXPECT_GT(counts[QueueKind::shared].received, packets / 100);
}

}  // namespace
}  // namespace test
