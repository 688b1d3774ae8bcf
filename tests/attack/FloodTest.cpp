#include <gmock/gmock.h>

#include <set>

#include "runtime/Bits.h"
#include "tests/attack/ChosenKeys.h"
#include "tests/attack/Frames.h"
#include "tests/attack/Sender.h"
#include "wire/Wire.h"

namespace attack {
namespace {

namespace Packet = Routing::Pim::Packet;
namespace wire = pimbsr::wire;
using Zet::Ptr;

/// A frame as a router reads it.
wire::Outcome<wire::DecodedMessage> decoded(Frame const& frame) {
  auto ip = wire::parseIpv4(std::span(frame).subspan(14));
  if (!ip) return ip.reason();
  return wire::decodeMessage(ip->payload, ip->source, ip->destination);
}

Plan somePlan() {
  Plan plan;
  plan.source = IpAddr::parse("10.0.1.20");
  plan.sources = 3;
  plan.count = 300;
  plan.bits = 8;
  return plan;
}

TEST(ChosenKeys, ShareTheLeadingBitsOfTheHashAndDiffer) {
  constexpr U32 bits = 12;
  std::set<U32> buckets;
  std::set<IpAddr> addresses;
  for (IpAddr address : chosenAddresses(500, bits)) {
    buckets.insert(Lanet::rhash(Lanet::IpGenAddr(address)) >> (32 - bits));
    addresses.insert(address);
  }
  EXPECT_EQ(buckets.size(), 1u);
  EXPECT_EQ(addresses.size(), 500u);
  buckets.clear();
  std::set<Prefix> ranges;
  for (Prefix const& range : chosenRanges(500, bits)) {
    buckets.insert(Lanet::rhash(Lanet::IpGenPrefix(range)) >> (32 - bits));
    ranges.insert(range);
  }
  EXPECT_EQ(buckets.size(), 1u);
  EXPECT_EQ(ranges.size(), 500u);
}

TEST(Frames, OfEachKindFitALinkAndAreReadUnlessTheyAreNoMessages) {
  for (std::string_view kind : kinds()) {
    SCOPED_TRACE(kind);
    bool const isNoMessage = kind == "garbage" || kind == "mutations";
    std::vector<Frame> const frames = framesOf(kind, somePlan());
    ASSERT_FALSE(frames.empty());
    std::size_t rejected = 0;
    for (Frame const& frame : frames) {
      EXPECT_LE(frame.size(), 1514u);
      if (!decoded(frame)) ++rejected;
    }
    EXPECT_EQ(rejected != 0, isNoMessage);
  }
}

/// RPs and ranges that the Bootstrap Messages among some frames name.
std::pair<U32, U32> namedBy(std::vector<Frame> const& frames) {
  U32 rps = 0;
  U32 ranges = 0;
  for (Frame const& frame : frames) {
    auto message = decoded(frame);
    auto const* bsm = message ? std::get_if<Ptr<Packet::BootstrapMessage>>(&*message) : nullptr;
    if (bsm == nullptr) continue;
    for (auto group = (*bsm)->groupRpData()->groupDataIterator(); group; ++group) {
      ranges += group->rpListCount() != 0 ? 1 : 0;
      rps += group->rpListCount();
    }
  }
  return {rps, ranges};
}

TEST(Frames, NameAsManyRpsAndRangesAsThePlanAsksFor) {
  EXPECT_EQ(namedBy(framesOf("chosen-rps", somePlan())), (std::pair<U32, U32>{300, 3}));
  EXPECT_EQ(namedBy(framesOf("ordinary-rps", somePlan())), (std::pair<U32, U32>{300, 3}));
  EXPECT_EQ(namedBy(framesOf("chosen-ranges", somePlan())), (std::pair<U32, U32>{300, 300}));
  EXPECT_EQ(namedBy(framesOf("zones", somePlan())), (std::pair<U32, U32>{300, 300}));
  EXPECT_EQ(namedBy(framesOf("fragments", somePlan())), (std::pair<U32, U32>{30000, 300}));
  EXPECT_EQ(namedBy(framesOf("pieces", somePlan())), (std::pair<U32, U32>{300, 300}));
  EXPECT_EQ(namedBy(framesOf("repeats", somePlan())), (std::pair<U32, U32>{3 * 84 + 65 * 297, 3 + 65 * 297}));
}

TEST(Frames, UseTheSourcesInTurn) {
  std::set<IpAddr> sources;
  for (Frame const& frame : framesOf("bootstraps", somePlan()))
    sources.insert(wire::parseIpv4(std::span(frame).subspan(14))->source);
  EXPECT_EQ(sources, (std::set<IpAddr>{IpAddr::parse("10.0.1.20"), IpAddr::parse("10.0.1.21"),
                                       IpAddr::parse("10.0.1.22")}));
}

TEST(Frames, AreTheSameForTheSameSeed) {
  for (std::string_view kind : {"garbage", "mutations"}) {
    Plan plan = somePlan();
    auto const first = framesOf(kind, plan);
    EXPECT_EQ(first, framesOf(kind, plan));
    plan.seed = 2;
    EXPECT_NE(first, framesOf(kind, plan));
  }
}

TEST(Frames, OfAnUnknownKindAreRejected) {
  EXPECT_THROW(framesOf("no-such-kind", somePlan()), std::invalid_argument);
}

TEST(Pacer, GrantsAsManyPacketsAsTheRateSays) {
  Pacer pacer(1000, 64);
  EXPECT_EQ(pacer.take(0), 1u);
  EXPECT_EQ(pacer.take(0.0005), 0u);
  EXPECT_EQ(pacer.take(0.01), 10u);
  EXPECT_DOUBLE_EQ(pacer.next(), 0.011);
}

TEST(Pacer, MakesUpForADelayBatchByBatch) {
  Pacer pacer(1000, 64);
  U64 total = 0;
  for (int i = 0; i < 100; ++i) {
    U64 const now = pacer.take(1);
    EXPECT_LE(now, 64u);
    total += now;
  }
  EXPECT_EQ(total, 1001u);
}

TEST(Pacer, HasNoLimitWithoutARate) {
  Pacer pacer(0, 64);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(pacer.take(0), 64u);
  EXPECT_EQ(pacer.next(), 0);
}

}  // namespace
}  // namespace attack
