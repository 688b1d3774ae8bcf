#include "agent/queues/UnicastQueues.h"

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>

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
using agent::QueueCounts;
using agent::QueueKind;
using agent::UnicastQueues;
using Lanet::IpAddr;
using testing::ElementsAre;
using Zet::U32;
using Zet::U8;

IpAddr const here = IpAddr::parse("10.0.1.254");
IpAddr candidate(U32 number) { return IpAddr::fromHost(0x0a090000 + number); }  // 10.9.0.0 and on

std::vector<IpAddr> candidatesFrom(U32 first, U32 count) {
  std::vector<IpAddr> addresses;
  for (U32 i = 0; i < count; ++i) addresses.push_back(candidate(first + i));
  return addresses;
}

/// An advertisement with a number of four bytes after its header.
std::vector<U8> packetOf(IpAddr source, U32 number) {
  std::vector<U8> payload = {0x28, 0, 0, 0, 0, 0, 0, 0};
  std::memcpy(payload.data() + 4, &number, sizeof number);
  std::vector<U8> bytes;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4({.source = source, .destination = here, .ttl = 64}, payload, bytes));
  return bytes;
}

U32 numberOf(std::span<U8 const> packet) {
  U32 number = 0;
  std::memcpy(&number, packet.data() + 24, sizeof number);
  return number;
}

/// Two systems on one link: what the far one sends to 10.0.1.254 goes to the queues of the near one.
class UnicastQueuesTest : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    near = std::make_unique<NetworkNamespace>();
    far = std::make_unique<NetworkNamespace>();
    {
      Inside inside(*far);
      ipAll({"link add name far index 8 type veth peer name near index 9 netns " + near->path(),
             "link set far up", "address add 10.0.1.253/24 dev far"});
    }
    Inside inside(*near);
    ipAll({"link set near up", "address add 10.0.1.254/24 dev near", "route add default dev near"});
    for (char const* name : {"all", "near"}) setting("ipv4/conf/" + std::string(name) + "/rp_filter", "0");
    awaitRunning("near");
    auto deliver = [this](agent::Received const& received) {
      taken.push_back(numberOf(received.packet));
      if (onPacket) onPacket();
    };
    auto senders = [this] {
      ++walks;
      return known;
    };
    queues = std::make_unique<UnicastQueues>(loop, deliver, senders);
    Inside outside(*far);
    sender = std::make_unique<PimSocket>("far", 8);
    send(candidate(0), 0);  // the first packet waits until the link address of 10.0.1.254 is known
    for (int i = 0; i < 50 && taken.empty(); ++i) run(0.1);
    ASSERT_THAT(taken, ElementsAre(0));
    taken.clear();
    queues->clearCounts();
  }
  void TearDown() override { queues = nullptr; }

  void send(IpAddr source, U32 number) {
    ASSERT_TRUE(sender->send(packetOf(source, number))) << sender->lastError();
  }
  void run(double seconds) {
    Inside inside(*near);
    LoopTimer end(loop, [this] { loop.stop(); });
    end.startIn(seconds);
    loop.run();
  }
  /// Makes these the senders of accepted advertisements.
  void accept(std::vector<IpAddr> const& addresses) {
    known = addresses;
    queues->sendersChanged();
    for (int i = 0; i < 100 && !queues->isSettled(); ++i) run(0.05);
    EXPECT_TRUE(queues->isSettled());
  }

  Loop loop;
  std::vector<IpAddr> known;  ///< senders of accepted advertisements
  int walks = 0;              ///< of these
  std::vector<U32> taken;
  std::function<void()> onPacket;
  std::unique_ptr<NetworkNamespace> near;
  std::unique_ptr<NetworkNamespace> far;
  std::unique_ptr<UnicastQueues> queues;
  std::unique_ptr<PimSocket> sender;
};

TEST_F(UnicastQueuesTest, KnownSendersHaveAQueueAndPacketsOfBothAreServedInTheOrderOfTheirArrival) {
  accept({candidate(1), candidate(2)});
  std::vector<U32> expected;
  for (U32 i = 0; i < 300; ++i) {
    send(candidate(i % 4), i);
    expected.push_back(i);
  }
  run(0.3);
  EXPECT_EQ(taken, expected);
  auto counts = queues->counts();
  EXPECT_EQ(counts[QueueKind::advertiser], (QueueCounts{.queues = 1, .received = 150}));
  EXPECT_EQ(counts[QueueKind::unicast], (QueueCounts{.queues = 1, .received = 150}));
}

TEST_F(UnicastQueuesTest, FloodFromOthersLosesNothingOfKnownSenders) {
  constexpr U32 floodSize = 6000;  // more than a receive buffer holds
  accept({candidate(1), candidate(2)});
  for (U32 i = 0; i < floodSize; ++i) send(candidate(1000 + i), 1000 + i);
  for (U32 i = 1; i <= 3; ++i) send(candidate(i), i);
  run(0.5);
  std::erase_if(taken, [](U32 number) { return number >= 1000; });
  EXPECT_THAT(taken, ElementsAre(1, 2));
  auto counts = queues->counts();
  EXPECT_EQ(counts[QueueKind::advertiser], (QueueCounts{.queues = 1, .received = 2}));
  EXPECT_GT(counts[QueueKind::unicast].lost, 0u);
  EXPECT_GE(counts[QueueKind::unicast].received + counts[QueueKind::unicast].lost, floodSize + 1);
}

TEST_F(UnicastQueuesTest, QueueOfKnownSendersIsOpenWhileThereAreAny) {
  EXPECT_FALSE(queues->counts().contains(QueueKind::advertiser));
  accept({candidate(1)});
  EXPECT_EQ(queues->counts()[QueueKind::advertiser].queues, 1u);
  accept({});
  EXPECT_EQ(queues->counts()[QueueKind::advertiser].queues, 0u);
  send(candidate(1), 1);
  run(0.1);
  EXPECT_THAT(taken, ElementsAre(1));
}

TEST_F(UnicastQueuesTest, SendersBeyondAFilterShareTheQueueOfAllOthers) {
  std::vector<IpAddr> const first = candidatesFrom(0, agent::maxFilterAddresses + 1);
  std::vector<IpAddr> const second = candidatesFrom(1000, agent::maxFilterAddresses);
  for (std::vector<IpAddr> const& senders : {first, second}) {
    accept(senders);
    queues->clearCounts();
    send(senders.front(), 1);
    send(senders[agent::maxFilterAddresses - 1], 2);
    send(candidate(agent::maxFilterAddresses), 3);
    run(0.1);
    auto counts = queues->counts();
    EXPECT_EQ(counts[QueueKind::advertiser].received, 2u);
    EXPECT_EQ(counts[QueueKind::unicast].received, 1u);
  }
  EXPECT_THAT(taken, ElementsAre(1, 2, 3, 1, 2, 3));
}

TEST_F(UnicastQueuesTest, ManyChangesWithinOneStepWalkTheSendersOnce) {
  known = candidatesFrom(1, 20);
  for (int i = 0; i < 1000; ++i) queues->sendersChanged();
  EXPECT_EQ(walks, 0);
  run(0.5);
  EXPECT_TRUE(queues->isSettled());
  EXPECT_EQ(walks, 1);
}

TEST_F(UnicastQueuesTest, QueueThatTheKernelRefusedIsTriedAgain) {
  Inside inside(*near);
  known = {candidate(1)};
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = {.rlim_cur = 3, .rlim_max = before.rlim_max};
  LoopTimer end(loop, [this] { loop.stop(); });
  end.startIn(0.3);
  queues->sendersChanged();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  loop.run();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_FALSE(queues->counts().contains(QueueKind::advertiser));
  run(2 * UnicastQueues::retryTime);
  EXPECT_TRUE(queues->isSettled());
  EXPECT_EQ(queues->counts()[QueueKind::advertiser].queues, 1u);
}

/// A number that a child process sees, too.
struct Progress {
  std::atomic<U32> taken = 0;
  std::atomic<bool> isOver = false;
};

/// Sends numbered packets of many senders as fast as they are taken; no more wait than a buffer holds.
void sendNumbered(PimSocket& sender, Progress const& progress) {
  for (U32 number = 0; !progress.isOver;) {
    if (number - progress.taken > 250) continue;
    sender.send(packetOf(candidate(number % 40), number));
    ++number;
  }
}

TEST_F(UnicastQueuesTest, EachPacketIsTakenOnceWhileSendersChange) {
  void* room = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(room, MAP_FAILED);
  auto* progress = new (room) Progress;
  onPacket = [progress] { ++progress->taken; };
  std::mt19937 random(7);
  std::set<IpAddr> present;
  int changes = 0;
  LoopTimer change(loop, [&] {
    for (int i = 0; i < 3; ++i, ++changes) {
      IpAddr one = candidate(static_cast<U32>(random() % 40));
      if (!present.insert(one).second) present.erase(one);
    }
    if (random() % 10 == 0) present.clear();
    known.assign(present.begin(), present.end());
    queues->sendersChanged();
    change.startIn(0.02);
  });
  {
    Meanwhile sending([&] { sendNumbered(*sender, *progress); });
    change.startIn(0);
    run(4);
    change.stop();
    progress->isOver = true;
  }
  accept({});
  run(0.2);
  std::vector<int> copies(*std::max_element(taken.begin(), taken.end()) + 1);
  for (U32 number : taken) ++copies[number];
  EXPECT_GT(changes, 100);
  EXPECT_GT(copies.size(), 5000u);
  EXPECT_EQ(std::count(copies.begin(), copies.end(), 0), 0) << "of " << copies.size() << " were lost";
  EXPECT_EQ(std::count_if(copies.begin(), copies.end(), [](int n) { return n > 1; }), 0) << "were doubled";
  auto counts = queues->counts();
  for (auto const& [kind, count] : counts) EXPECT_EQ(count.lost, 0u) << static_cast<int>(kind);
  EXPECT_GT(counts[QueueKind::advertiser].received, copies.size() / 20);
  munmap(room, sizeof(Progress));
}

}  // namespace
}  // namespace test
