// What the structures of the bounds and the corrections cost, in visits as the meter counts them: a packet,
// or an RP of a message or of a sweep, costs O(log n) of what is kept.

#include <algorithm>
#include <bit>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "host/LastMessages.h"
#include "host/OwnMessages.h"
#include "host/RangePlaces.h"
#include "host/RateLimit.h"
#include "host/RpSweep.h"
#include "host/SenderLedger.h"
#include "runtime/Meter.h"
#include "tests/support/Engine.h"

namespace test {
namespace {

using namespace pimbsr::host;
using Lanet::IpAddr;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Lanet::Prefix;

static_assert(Zet::Meter::isOn, "this test is built with the meter");

constexpr char const* all = "224.0.0.0/4";

IpGenAddr address(U32 number) { return IpAddr::fromHost(0x0a000000 + number * 7919); }
IpGenPrefix range(U32 number) { return Prefix(IpAddr::fromHost(0xe1000000 + (number << 8)), 24); }

std::string textOf(IpGenPrefix const& prefix) { return std::string(prefix.stringValue().view()); }

U64 visitsOf(std::function<void()> const& operation) {
  U64 const before = Zet::Meter::visited;
  operation();
  return Zet::Meter::visited - before;
}

/// The most that one of some operations costs; numbers from 0 on.
U64 worstOf(U32 count, std::function<void(U32)> const& operation) {
  U64 worst = 0;
  for (U32 i = 0; i < count; ++i) worst = std::max(worst, visitsOf([&] { operation(i); }));
  return worst;
}

/// A router's engine that follows a BSR, and whose RP sets are written directly.
class Sets {
 public:
  Sets() {
    engine.receive(Bsm{.groups = {{"224.1.0.0/24", {{"203.0.113.1"}}}}});
    sets = engine.status->crpStatus(prefix(all))->status();
  }
  void fill(U32 ranges) {
    for (U32 i = 0; i < ranges; ++i) add(i);
  }
  void add(U32 number) { sets->crpSetIs(range(number))->rpIs(address(number))->expiresIs(Zet::now() + 150); }

  Engine engine;
  Zet::Ptr<Routing::Pim::RpCandidateStatus> sets;
};

// Operations ----------------------------------------------------------------------------------------------

/// Per RP: a message of n ranges, of each of which an RP is withdrawn once more.
U64 repeatedWithdrawal(U32 n) {
  pimbsr::CorrectionSwitch rangeFull, repeats;
  repeats.isOnIs(true);
  OwnMessages own{rangeFull, repeats};
  auto send = [&](Zet::U16 holdtime) {
    auto message = make(Bsm{});
    for (U32 i = 0; i < n; ++i) {
      auto group = Zet::make<Routing::Pim::Packet::BootstrapGroupData>(range(i));
      group->rpListIs(address(2 * i))->rpHoldtimeIs(150);
      if (holdtime == 0) group->rpListIs(address(2 * i + 1));
      message->groupRpData()->groupDataEnq(group);
    }
    return visitsOf([&] { own.correct(message); });
  };
  send(0);
  U64 const visits = send(150) / n;
  EXPECT_EQ(repeats.acts(), 1u);
  return visits;
}

/// A newcomer asks for a place in one of n full ranges.
U64 newcomerOfFullRange(U32 n) {
  Sets sets;
  IngressSettings const settings{.rpsPerRange = 1};
  RangePlaces places(*sets.engine.root, settings);
  IpGenPrefix const zone = prefix(all);
  sets.engine.status->cbsrIs(zone)->bsPeriodIs(60);
  sets.fill(n);
  auto ask = [&](U32 number) {
    auto set = sets.sets->crpSet(range(number));
    EXPECT_EQ(places.request({range(number), zone, address(n + number), 192, set}),
              pimbsr::DropReason::rangeFull);
  };
  for (U32 i = 0; i < n; ++i) ask(i);
  EXPECT_EQ(places.size(), n);
  return worstOf(n, ask);
}

/// A sender adds an RP while n are recorded and held. A few steps of the sweep are among it.
U64 additionOfSender(U32 n) {
  Sets sets;
  IngressSettings const settings{.rpsPerSender = 1'000'000, .rangesPerSender = 1'000'000};
  SenderLedger ledger(*sets.engine.root, settings);
  auto add = [&](U32 number) {
    IpGenAddr const sender = address(number % 16);
    IpGenAddr const rp = address(number);
    IpGenPrefix const its = range(number);
    SenderLedger::Addition const addition{sender, rp, its};
    ledger.prepare(addition, 1);
    EXPECT_EQ(ledger.check(addition), pimbsr::DropReason::none);
    ledger.record(addition);
  };
  sets.fill(n + 64);
  for (U32 i = 0; i < n; ++i) add(i);
  EXPECT_EQ(ledger.size(), n);
  return worstOf(64, [&](U32 i) { add(n + i); });
}

/// Per RP: a sweep over n RPs that have expired in what PIM reads, and that a zone holds.
U64 sweptRp(U32 n) {
  Sets sets;
  auto rpSet = Routing::Pim::rpCandidateStatusFactory("pim");
  auto sweep = Zet::make<RpSweep>(rpSet, sets.engine.status, sets.engine.wheel);
  sets.fill(n);
  for (U32 i = 0; i < n; ++i) rpSet->crpSetIs(range(i))->rpIs(address(i));
  U64 const visits = visitsOf([&] { sweep->removeUnheld(); });
  EXPECT_EQ(rpSet->crpSetCount(), n) << "what a zone holds stays";
  sweep->stop();
  return visits / n;
}

/// Per RP: the same where n zones hold its range.
U64 sweptRpOfManyZones(U32 n) {
  Sets sets;
  auto rpSet = Routing::Pim::rpCandidateStatusFactory("pim");
  auto sweep = Zet::make<RpSweep>(rpSet, sets.engine.status, sets.engine.wheel);
  for (U32 i = 0; i < n; ++i) {
    auto zone = sets.engine.status->crpStatusIs(Prefix(IpAddr::fromHost(0xef000000 + (i << 8)), 24));
    zone->statusIs("zone");
    zone->status()->crpSetIs(range(1))->rpIs(address(i));
    rpSet->crpSetIs(range(1))->rpIs(address(i));
  }
  U64 const visits = visitsOf([&] { sweep->removeUnheld(); });
  EXPECT_EQ(rpSet->crpSet(range(1))->rpCount(), n);
  sweep->stop();
  return visits / n;
}

/// A sender of advertisements is charged and renewed while n are known.
U64 renewalOfAdvertiser(U32 n) {
  Advertisers advertisers;
  for (U32 i = 0; i < n; ++i) advertisers.note(address(i), 150, 0);
  EXPECT_EQ(advertisers.size(), n);
  return worstOf(n, [&](U32 i) {
    advertisers.take(address(i), 1);
    advertisers.note(address(i), 150, 1);
  });
}

/// A neighbor is charged while n have a bucket.
U64 chargeOfNeighbor(U32 n) {
  AddressBuckets buckets;
  auto charge = [&](U32 i) { buckets.bucket(address(i), 0).take(1000, 0); };
  for (U32 i = 0; i < n; ++i) charge(i);
  return worstOf(n, charge);
}

/// A neighbor leaves and comes back while n have a bucket.
U64 returnOfNeighbor(U32 n) {
  AddressBuckets buckets;
  for (U32 i = 0; i < n; ++i) buckets.bucket(address(i), 0);
  return worstOf(n, [&](U32 i) {
    buckets.isPresentIs(address(i), false);
    buckets.isPresentIs(address(i), true);
  });
}

/// A message of one of n zones.
U64 messageOfZone(U32 n) {
  Engine engine;
  LastMessages last(*engine.root);
  auto note = [&](U32 i) {
    auto message = engine.receive(Bsm{.groups = {{textOf(range(i)), {}, scopedFlag}}});
    return visitsOf([&] { last.note(intf("eth0"), address(1), *message); });
  };
  for (U32 i = 0; i < n; ++i) note(i);
  EXPECT_EQ(last.byZone().size(), n);
  U64 worst = 0;
  for (U32 i = 0; i < n; ++i) worst = std::max(worst, note(i));
  return worst;
}

// The table -------------------------------------------------------------------------------------------------

struct Row {
  char const* structure;
  char const* operation;
  U64 (*visits)(U32 n);
  U32 few;
  U32 many;
};

constexpr Row rows[] = {
    {"OwnMessages", "an RP whose withdrawal is repeated", repeatedWithdrawal, 256, 4096},
    {"RangePlaces", "a newcomer to a full range", newcomerOfFullRange, 256, 4096},
    {"SenderLedger", "an RP that a sender adds", additionOfSender, 1024, 16384},
    {"RpSweep", "an RP that has expired", sweptRp, 256, 4096},
    {"RpSweep", "an RP whose range all zones hold", sweptRpOfManyZones, 16, 256},
    {"Advertisers", "an advertisement", renewalOfAdvertiser, 256, 4096},
    {"AddressBuckets", "a packet of a neighbor", chargeOfNeighbor, 256, 4096},
    {"AddressBuckets", "a neighbor that leaves and comes back", returnOfNeighbor, 256, 4096},
    {"LastMessages", "a message of a zone", messageOfZone, 16, 256},
};

class BoundsCostTest : public ModelTest, public testing::WithParamInterface<Row> {};

/// A walk over what is kept, or over what a message names for each of it, would cost 16 times as much.
TEST_P(BoundsCostTest, SixteenTimesAsManyCostAFewLevelsMore) {
  Row const& row = GetParam();
  constexpr U64 levels = 4, visitsOfLevel = 24;
  U64 const few = row.visits(row.few), many = row.visits(row.many);
  std::printf("%-15s %-40s n %6u: %4llu visits, n %6u: %4llu visits\n", row.structure, row.operation, row.few,
              static_cast<unsigned long long>(few), row.many, static_cast<unsigned long long>(many));
  EXPECT_GT(few, 0u);
  EXPECT_LE(many, few + levels * visitsOfLevel);
  EXPECT_LE(many, visitsOfLevel * static_cast<U64>(std::bit_width(row.many)));
}

INSTANTIATE_TEST_SUITE_P(Structures, BoundsCostTest, testing::ValuesIn(rows));

}  // namespace
}  // namespace test
