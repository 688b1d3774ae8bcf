#pragma once

#include <array>
#include <cstdlib>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "host/Router.h"
#include "model/Packet.h"
#include "model/RpSet.h"
#include "runtime/Assert.h"
#include "runtime/Meter.h"
#include "wire/Wire.h"

namespace fuzz {

/// Work that no packet and no timer may cost. A test adds it to what a router does, and so sees that a target
/// which bounds the work finds it. The environment variable FUZZ_PLANTED names the kind; there is none unless
/// it is set.
class PlantedWork {
 public:
  using Router = pimbsr::host::Router;
  using Bytes = std::span<Zet::U8 const>;

  /// Asserts that the name is that of a kind.
  static PlantedWork fromEnvironment() {
    char const* name = std::getenv("FUZZ_PLANTED");
    if (name == nullptr) return PlantedWork(kinds.front());
    for (Kind const& kind : kinds) {
      if (name == kind.name) return PlantedWork(kind);
    }
    ZET_ASSERT(false, "FUZZ_PLANTED names a kind of work");
  }

  /// To be called when a router has accepted an IPv4 packet.
  void afterPacket(Router const& router, Bytes packet) const { kind_.afterPacket(router, packet); }
  /// To be called when a router has run the timers that are due at one time.
  void afterTimers(Router const& router) const { kind_.afterTimers(router); }

 private:
  struct Kind {
    std::string_view name;
    void (*afterPacket)(Router const&, Bytes);
    void (*afterTimers)(Router const&);
  };
  using Named = std::vector<std::pair<Lanet::IpGenPrefix, Lanet::IpGenAddr>>;

  explicit PlantedWork(Kind const& kind) : kind_(kind) {}

  static void walkAll(Router const& router) {
    for (auto set = router.rpCandidateStatus()->crpSetIterator(); set; ++set) {
      for (auto rp = set->rpIterator(); rp;) ++rp;
    }
  }

  /// The ranges and RPs that a packet's Bootstrap Message names; none of other messages. It is read a second
  /// time here, which is not counted as work.
  static Named named(Bytes packet) {
    Zet::U64 const before = Zet::Meter::visited;
    Named found;
    auto const ip = pimbsr::wire::parseIpv4(packet);
    pimbsr::wire::LeftOutRps leftOut;
    auto const read = pimbsr::wire::decodeBootstrap(ip->payload, ip->source, ip->destination, &leftOut);
    if (read) {
      for (auto group = (*read)->groupRpData()->groupDataIterator(); group; ++group) {
        for (auto rp = group->rpListIterator(); rp; ++rp)
          found.emplace_back(group->prefix(), rp->rpAddress());
      }
    }
    Zet::Meter::visited = before;
    return found;
  }

  /// Visits each pair of them.
  static void visitPairs(Router const&, Bytes packet) {
    std::size_t const count = named(packet).size();
    Zet::Meter::visit(count * count);
  }

  /// Looks for each of them as if the RPs of a range were a list.
  static void searchLists(Router const& router, Bytes packet) {
    for (auto const& [range, address] : named(packet)) {
      auto const set = router.rpCandidateStatus()->crpSet(range);
      if (!set) continue;
      for (auto rp = set->rpIterator(); rp && rp->address() != address;) ++rp;
    }
  }

  static constexpr auto noPacket = [](Router const&, Bytes) {};
  static constexpr auto noTimers = [](Router const&) {};
  static constexpr auto walkAfterPacket = [](Router const& router, Bytes) { walkAll(router); };

  static std::array<Kind, 5> const kinds;

  Kind kind_;
};

inline constexpr std::array<PlantedWork::Kind, 5> PlantedWork::kinds{{
    {"none", noPacket, noTimers},
    {"walk-per-packet", walkAfterPacket, noTimers},
    {"pairs-per-packet", visitPairs, noTimers},
    {"list-per-record", searchLists, noTimers},
    {"walk-per-expiry", noPacket, walkAll},
}};

}  // namespace fuzz
