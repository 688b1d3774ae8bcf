#include "agent/queues/UnicastQueues.h"

#include <functional>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "tests/agent/QueueLab.h"

namespace test {
namespace {

namespace agent = pimbsr::agent;
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

/// A Candidate-RP-Advertisement.
std::vector<U8> packetOf(IpAddr source, U32 number) {
  return numberedPacket({.source = source, .destination = here, .ttl = 64}, 0x28, number);
}

class UnicastQueuesTest : public QueueLab {
 protected:
  void SetUp() override {
    QueueLab::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    openQueues();
    send(candidate(0), 0);  // the first packet waits until the link address of 10.0.1.254 is known
    for (int i = 0; i < 50 && taken.empty(); ++i) run(0.1);
    ASSERT_THAT(taken, ElementsAre(0));
    taken.clear();
    queues->clearCounts();
  }
  void TearDown() override { queues = nullptr; }

  void openQueues() {
    Inside inside(*near);
    ip("route add default dev near");
    auto deliver = [this](agent::Received const& received) {
      taken.push_back(numberOf(received.packet));
      if (onPacket) onPacket();
    };
    auto senders = [this] {
      ++walks;
      return known;
    };
    queues = std::make_unique<UnicastQueues>(loop, deliver, senders);
  }
  void send(IpAddr source, U32 number) {
    ASSERT_TRUE(sender->send(packetOf(source, number))) << sender->lastError();
  }
  /// Makes these the senders of accepted advertisements.
  void accept(std::vector<IpAddr> const& addresses) {
    known = addresses;
    queues->sendersChanged();
    for (int i = 0; i < 100 && !queues->isSettled(); ++i) run(0.05);
    EXPECT_TRUE(queues->isSettled());
  }

  std::function<void()> onPacket;
  std::unique_ptr<UnicastQueues> queues;
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

TEST_F(UnicastQueuesTest, FailedStepIsRepeated) {
  known = {candidate(1)};
  runWithoutFiles(0.3, [this] { queues->sendersChanged(); });
  EXPECT_FALSE(queues->counts().contains(QueueKind::advertiser));
  run(2 * UnicastQueues::retryTime);
  EXPECT_TRUE(queues->isSettled());
  EXPECT_EQ(queues->counts()[QueueKind::advertiser].queues, 1u);
}

/// Sends numbered packets of many senders as fast as they are taken; no more wait than a buffer holds.
void sendNumbered(PimSocket& sender, SharedProgress const& progress) {
  for (U32 number = 0; !progress->isOver;) {
    if (number - progress->taken > 250) continue;
    sender.send(packetOf(candidate(number % 40), number));
    ++number;
  }
}

TEST_F(UnicastQueuesTest, EachPacketIsTakenOnceWhileSendersChange) {
  SharedProgress progress;
  onPacket = [&progress] { ++progress->taken; };
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
    Meanwhile sending([&] { sendNumbered(*sender, progress); });
    change.startIn(0);
    run(4);
    change.stop();
    progress->isOver = true;
  }
  accept({});
  run(0.2);
  std::size_t const packets = expectTakenOnce();
  EXPECT_GT(changes, 100);
  EXPECT_GT(packets, 5000u);
  auto counts = queues->counts();
  for (auto const& [kind, count] : counts) EXPECT_EQ(count.lost, 0u) << static_cast<int>(kind);
  EXPECT_GT(counts[QueueKind::advertiser].received, packets / 20);
}

}  // namespace
}  // namespace test
