#include "agent/queues/ReceiveQueues.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "agent/base/Loop.h"
#include "tests/agent/NetworkLab.h"
#include "wire/Wire.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
using agent::Loop;
using agent::LoopTimer;
using agent::PimSocket;
using agent::QueueKind;
using agent::ReceiveQueues;
using Lanet::IpAddr;
using Lanet::Prefix;
using testing::ElementsAre;
using testing::IsEmpty;
using Zet::U32;
using Zet::U64;
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

/// A PIM packet with a number of four bytes after its header.
std::vector<U8> packetOf(IpAddr source, U8 type, U32 number) {
  std::vector<U8> payload = {type, 0, 0, 0, 0, 0, 0, 0};
  std::memcpy(payload.data() + 4, &number, sizeof number);
  std::vector<U8> bytes;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4(
      {.source = source, .destination = IpAddr::fromHost(0xe000000d), .ttl = 1}, payload, bytes));
  return bytes;
}

U32 numberOf(std::span<U8 const> packet) {
  U32 number = 0;
  std::memcpy(&number, packet.data() + 24, sizeof number);
  return number;
}

/// Two systems on one link: what the far one sends goes to the queues of the near one, 10.0.1.254/23.
class ReceiveQueuesTest : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    near = std::make_unique<NetworkNamespace>();
    far = std::make_unique<NetworkNamespace>();
    {
      Inside inside(*far);
      ipAll({"link add name far index 8 type veth peer name near index 9 netns " + near->path(),
             "link set far up", "address add 10.0.1.253/23 dev far"});
    }
    Inside inside(*near);
    ipAll({"link set near up", "address add 10.0.1.254/23 dev near"});
    for (char const* name : {"all", "near"}) setting("ipv4/conf/" + std::string(name) + "/rp_filter", "0");
    awaitRunning("near");
    queues = openQueues();
    Inside outside(*far);
    sender = std::make_unique<PimSocket>("far", 8);
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

  void run(double seconds) {
    Inside inside(*near);
    LoopTimer end(loop, [this] { loop.stop(); });
    end.startIn(seconds);
    loop.run();
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
  Loop loop;
  agent::NeighborQueueBudget budget;
  std::vector<IpAddr> known;  ///< addresses of neighbors
  int walks = 0;              ///< of these addresses
  std::vector<U32> taken;
  std::function<bool(U32)> onPacket;
  std::unique_ptr<NetworkNamespace> near;
  std::unique_ptr<NetworkNamespace> far;
  std::unique_ptr<ReceiveQueues> queues;
  std::unique_ptr<PimSocket> sender;
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

/// Lets this process open no file for a while; those that are open stay.
void openNoFileFor(double seconds, Loop& loop, std::function<void()> const& act) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = {.rlim_cur = 3, .rlim_max = before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  LoopTimer end(loop, [&loop] { loop.stop(); });
  end.startIn(seconds);
  act();
  loop.run();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST_F(ReceiveQueuesTest, QueueThatTheKernelRefusedIsTriedAgain) {
  Inside inside(*near);
  known = {address(1)};
  openNoFileFor(0.3, loop, [this] { queues->neighborsChanged(); });
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

/// A number that a child process sees, too.
struct Progress {
  std::atomic<U32> taken = 0;
  std::atomic<bool> isOver = false;
};

/// Sends numbered packets of many senders as fast as they are taken; no more wait than a buffer holds.
U32 sendNumbered(PimSocket& sender, Progress const& progress) {
  U32 number = 0;
  while (!progress.isOver) {
    if (number - progress.taken > 250) continue;
    U32 from = number % 41;
    IpAddr source = from == 40 ? stranger(1) : address(from);
    sender.send(packetOf(source, number % 3 == 0 ? hello : bootstrap, number));
    ++number;
  }
  return number;
}

TEST_F(ReceiveQueuesTest, EachPacketIsTakenOnceWhileNeighborsAndSubnetsChange) {
  void* room = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(room, MAP_FAILED);
  auto* progress = new (room) Progress;
  budget.left = 15;  // of forty; the others share a queue, and move when a place is free
  onPacket = [progress](U32) {
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
    Meanwhile sending([&] { sendNumbered(*sender, *progress); });
    change.startIn(0);
    run(4);
    change.stop();
    progress->isOver = true;
  }
  meet({});
  run(0.2);
  std::vector<int> copies(*std::max_element(taken.begin(), taken.end()) + 1);
  for (U32 number : taken) ++copies[number];
  EXPECT_GT(changes, 300);
  EXPECT_GT(copies.size(), 5000u);
  EXPECT_EQ(std::count(copies.begin(), copies.end(), 0), 0) << "of " << copies.size() << " were lost";
  EXPECT_EQ(std::count_if(copies.begin(), copies.end(), [](int n) { return n > 1; }), 0) << "were doubled";
  auto counts = queues->counts();
  for (auto const& [kind, count] : counts) EXPECT_EQ(count.lost, 0u) << static_cast<int>(kind);
  EXPECT_GT(counts[QueueKind::neighbor].received, copies.size() / 20);
  EXPECT_GT(counts[QueueKind::shared].received, copies.size() / 100);
  munmap(room, sizeof(Progress));
}

}  // namespace
}  // namespace test
