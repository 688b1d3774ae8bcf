#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "host/RouterParts.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Trace.h"
#include "tests/host/IngressSupport.h"

namespace test {
namespace {

using pimbsr::host::IngressSettings;

/// Random packets: from no message at all to ones that every check lets pass.
class Flood {
 public:
  std::vector<U8> next() {
    PacketPath path{.source = numbered("192.0.2.", below(40)),
                    .ttl = static_cast<U8>(below(8) == 0 ? 64 : 1)};
    switch (below(8)) {
      case 0:
        return noise();
      case 1:
      case 2:
        return packetOf(hello(), path);
      case 3:
        path.destination = below(6) == 0 ? "224.0.0.13" : "192.0.2.9";
        return packetOf(advertisement(), path);
      default:
        return spoilt(packetOf(bootstrap(), path));
    }
  }

 private:
  int below(int bound) { return static_cast<int>(random_() >> 8) % bound; }
  std::string address(int most) { return numbered("203.0.113.", 1 + below(most)); }
  std::string range() { return numbered("239.", below(200)) + numbered(".", below(4)) + ".0/24"; }

  std::vector<U8> noise() {
    std::vector<U8> bytes(static_cast<std::size_t>(below(80)));
    for (U8& byte : bytes) byte = static_cast<U8>(below(256));
    return bytes;
  }
  std::vector<U8> spoilt(std::vector<U8> packet) {
    if (below(10) == 0) packet[static_cast<std::size_t>(below(static_cast<int>(packet.size())))] ^= 1;
    return packet;
  }
  std::vector<U8> hello() {
    HelloMessage message{.holdtime = static_cast<U16>(below(4) == 0 ? 0 : 105),
                         .generationId = static_cast<U32>(below(3))};
    for (int i = below(6); i > 0; --i)
      message.addressList.push_back(addr(numbered("192.0.2.", 50 + below(200))));
    return bytesOf(message);
  }
  std::vector<U8> advertisement() {
    Adv message{.groups = {}, .rp = address(200), .holdtime = static_cast<U16>(below(3) * 60)};
    for (int i = below(4); i > 0; --i) message.groups.push_back({range()});
    return bytesOf(message);
  }
  std::vector<U8> bootstrap() {
    Bsm message{.bsr = numbered("192.0.2.", below(5)),
                .priority = static_cast<U8>(below(3)),
                .tag = static_cast<U16>(below(30)),
                .forward = below(9) != 0,
                .hashMaskLen = static_cast<U8>(below(35))};
    if (below(3) != 0) message.groups.push_back({numbered("239.", below(20)) + ".0.0/16", {}, scopedFlag});
    for (int i = below(4); i > 0; --i) {
      std::vector<Rp> rps;
      for (int first = 1 + below(200), rp = below(5); rp > 0; --rp) {
        rps.push_back({numbered("203.0.113.", first + rp), static_cast<U16>(below(3) * 100)});
      }
      int named = static_cast<int>(rps.size());
      message.groups.push_back({range(), rps, 0, named + (below(2) == 0 ? below(5) : 0), named});
    }
    return bytesOf(message);
  }

  std::minstd_rand random_{1};
};

/// A router of which five senders are the RPF neighbors towards five BSRs; with all corrections, and without.
class FloodedRouter : public FilteredRouterTest, public testing::WithParamInterface<bool> {
 protected:
  static constexpr IngressSettings bounds = {.linkLocalTtl = true,
                                             .onSubnet = true,
                                             .fromNeighbors = true,
                                             .neighborsPerInterface = 30,
                                             .learnedZones = 7,
                                             .fragmentRps = 8,
                                             .rps = 300};

  FloodedRouter() {
    if (GetParam()) router.correctionsAre(pimbsr::host::allCorrections);
    for (Zet::TraceHandle* handle : Zet::TraceHandle::handles()) handle->enabledIs(false);
    for (int i = 0; i < 5; ++i) {
      rpf->neighbors[addr(numbered("192.0.2.", i))] = addr(numbered("192.0.2.", i + 1));
    }
  }

  U32 addresses() const {
    U32 count = 0;
    for (auto at = router.pimStatus()->pimIntf(intf("eth0"))->neighborIterator(); at; ++at) {
      count += 1 + at->secondaryCount();
    }
    return count;
  }
  U32 waiting() const {
    U32 count = 0;
    for (auto tag = pimbsr::host::partsOf(router).root->bsmRxFragmentsIterator(); tag; ++tag) {
      for (auto group = tag->groupRpDataIterator(); group; ++group) count += group->rps();
    }
    return count;
  }
  U32 rps() const {
    U32 count = 0;
    for (auto zone = router.status()->crpStatusIterator(); zone; ++zone) {
      for (auto set = zone->status()->crpSetIterator(); set; ++set) count += std::max(1u, set->rpCount());
    }
    return count;
  }
  U32 zones() const {
    bool global = pimbsr::host::partsOf(router).root->nonCandidateSm(prefix("224.0.0.0/4")) != nullptr;
    return pimbsr::host::partsOf(router).root->nonCandidateSmCount() - (global ? 1 : 0);
  }
  /// More RPs may wait where Bootstrap Timers have read the kept fragment of each zone again.
  void expectWithinBounds() const {
    ASSERT_LE(addresses(), bounds.neighborsPerInterface);
    ASSERT_LE(zones(), bounds.learnedZones);
    ASSERT_LE(waiting(), bounds.fragmentRps * (1 + bounds.learnedZones));
    ASSERT_LE(rps(), bounds.rps);
  }

  std::map<std::string, int> reasons;
};

TEST_P(FloodedRouter, KeepsItsBoundsThroughAHundredThousandRandomPackets) {
  router.ingressSettingsIs(bounds);
  lead();
  Flood flood;
  for (int i = 0; i < 100000; ++i) {
    if (i % 500 == 0) run(2);
    ++reasons[std::string(router.receive(intf("eth0"), flood.next()).reason)];
    if (i % 50 == 0) expectWithinBounds();
  }
  for (char const* reason : {"", "ttl", "multicast-advertisement", "not-neighbor", "hash-mask-length",
                             "neighbor-quota", "zone-quota", "fragment-quota", "rp-quota", "checksum"}) {
    EXPECT_GT(reasons[reason], 0) << reason;
  }
  run(3000);
  EXPECT_EQ(zones(), 0u);
  EXPECT_EQ(waiting(), 0u);
}

TEST_P(FloodedRouter, WithoutBoundsTheSameFloodGoesFarBeyondThem) {
  router.ingressSettingsIs({.linkLocalTtl = true, .onSubnet = true, .fromNeighbors = true});
  lead();
  Flood flood;
  for (int i = 0; i < 20000; ++i) router.receive(intf("eth0"), flood.next());
  EXPECT_GT(addresses(), bounds.neighborsPerInterface);
  EXPECT_GT(zones(), bounds.learnedZones);
  EXPECT_GT(waiting(), bounds.fragmentRps);
  EXPECT_GT(rps(), bounds.rps);
}

INSTANTIATE_TEST_SUITE_P(Corrections, FloodedRouter, testing::Bool(),
                         [](auto const& test) { return test.param ? "all" : "none"; });

}  // namespace
}  // namespace test
