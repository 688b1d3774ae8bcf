#include "host/Limits.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::host::hasLimits;
using pimbsr::host::IngressSettings;
using pimbsr::host::Limit;
using pimbsr::host::limits;

struct OfferedPacket {
  std::vector<U8> pim;
  PacketPath path = {};
};

/// A key of [limits], and packets of which the last is beyond the bound while it is 1.
struct LimitCase {
  std::string key;
  std::string reason;  ///< why the last packet, or a part of it, is dropped
  std::vector<OfferedPacket> packets;
  bool isBsr = false;          ///< whether the router is the elected BSR before
  IngressSettings other = {};  ///< bounds that the key says something about
};

std::ostream& operator<<(std::ostream& out, LimitCase const& c) { return out << c.key; }

OfferedPacket helloPacket(std::string const& source, U16 holdtime = 105) {
  return {bytesOf(HelloMessage{.holdtime = holdtime, .generationId = 1}), {source}};
}

OfferedPacket bsmPacket(Bsm const& message) { return {bytesOf(message)}; }

OfferedPacket advPacket(std::string const& rp, std::string const& sender, std::vector<Range> const& ranges) {
  return {bytesOf(Adv{.groups = ranges, .rp = rp}), {sender, "192.0.2.9", 60}};
}

/// An advertisement of an RP by itself.
OfferedPacket ownAdvPacket(std::string const& rp) { return advPacket(rp, rp, {{"239.1.0.0/16"}}); }

LimitCase const limitCases[] = {
    {"packets-per-second", "rate-limit", {bsmPacket(ordinary), bsmPacket(ordinary)}},
    {"hellos-per-second", "hello-rate-limit", {helloPacket("192.0.2.7", 0), helloPacket("192.0.2.7", 0)}},
    {"advertisements-per-second",
     "advertisement-rate-limit",
     {ownAdvPacket("203.0.113.1"), ownAdvPacket("203.0.113.1")}},
    {"advertisement-senders",
     "advertisement-rate-limit",
     {ownAdvPacket("203.0.113.1"), ownAdvPacket("203.0.113.2"), ownAdvPacket("203.0.113.2")},
     true,
     {.advertisementsPerSecond = 2}},
    {"neighbors-per-interface", "neighbor-quota", {helloPacket("192.0.2.7"), helloPacket("192.0.2.8")}},
    {"learned-zones", "zone-quota", {bsmPacket(scoped("239.1.0.0/16")), bsmPacket(scoped("239.2.0.0/16"))}},
    {"fragment-rps", "fragment-quota", {bsmPacket({.groups = {{"224.0.0.0/4", someRps(1, 2), 0, 5, 2}}})}},
    {"bsm-bytes", "bsm-too-long", {bsmPacket(ordinary)}},
    {"rps", "rp-quota", {bsmPacket({.groups = {{"224.0.0.0/4", someRps(1, 2)}}})}},
    {"ranges-per-zone",
     "zone-ranges",
     {bsmPacket({.groups = {{"239.1.0.0/16", someRps(1, 1)}, {"239.2.0.0/16", someRps(1, 1)}}})}},
    {"rps-per-range", "range-full", {ownAdvPacket("203.0.113.1"), ownAdvPacket("203.0.113.2")}, true},
    {"rps-per-sender",
     "sender-rps",
     {advPacket("203.0.113.1", "203.0.113.7", {{"239.1.0.0/16"}}),
      advPacket("203.0.113.2", "203.0.113.7", {{"239.1.0.0/16"}})},
     true},
    {"ranges-per-sender",
     "sender-ranges",
     {advPacket("203.0.113.7", "203.0.113.7", {{"239.1.0.0/16"}, {"239.2.0.0/16"}})},
     true},
};

TEST(LimitsTest, EachKeyHasACase) {
  for (Limit const& limit : limits()) {
    bool hasCase = std::ranges::count(limitCases, limit.name, &LimitCase::key) == 1;
    EXPECT_TRUE(hasCase) << limit.name << ": name what is beyond it in the table above";
  }
}

TEST(LimitsTest, NoneIsSetUntilAnyIs) {
  EXPECT_FALSE(hasLimits({.linkLocalTtl = true}));
  for (Limit const& limit : limits()) {
    IngressSettings settings;
    settings.*limit.value = 1;
    EXPECT_TRUE(hasLimits(settings)) << limit.name;
  }
}

class EachLimit : public FilteredRouterTest, public testing::WithParamInterface<LimitCase> {
 protected:
  /// Why the last packet is dropped.
  std::string lastReason(IngressSettings const& settings) {
    if (GetParam().isBsr) lead();
    router.ingressSettingsIs(settings);
    std::string reason;
    for (OfferedPacket const& packet : GetParam().packets)
      reason = router.receive(intf("eth0"), packetOf(packet.pim, packet.path)).reason;
    return reason;
  }
};

TEST_P(EachLimit, HoldsWhileItAloneIsSet) {
  auto limit = std::ranges::find(limits(), GetParam().key, &Limit::name);
  ASSERT_NE(limit, limits().end()) << GetParam().key << " is no key of [limits]";
  IngressSettings settings = GetParam().other;
  settings.*limit->value = 1;
  EXPECT_EQ(lastReason(settings), GetParam().reason);
}

TEST_P(EachLimit, DropsNothingWhileItIsNotSet) { EXPECT_NE(lastReason(GetParam().other), GetParam().reason); }

INSTANTIATE_TEST_SUITE_P(Keys, EachLimit, testing::ValuesIn(limitCases), [](auto const& made) {
  std::string name = made.param.key;
  std::ranges::replace(name, '-', '_');
  return name;
});

}  // namespace
}  // namespace test
