#pragma once

#include "runtime/Types.h"

namespace pimbsr::host {

using Zet::U32;

/// What a router on a real network checks in a packet before the engine hears of it, and how much it lets
/// peers make it keep. A bound of 0 is none, so that the default lets pass whatever the engine itself takes:
/// a replay or a simulation sees the protocol and nothing else.
struct Screening {
  /// Packets to 224.0.0.13 must have a TTL of 1: with another they were routed here (RFC 7761 section 4.9).
  /// And Hellos must have been sent there: to another address they could have been routed here.
  bool linkLocalTtl = false;
  /// Hellos, Bootstrap Messages and all that is sent to a multicast address must come from an address of the
  /// interface's subnets.
  bool onSubnet = false;
  /// Bootstrap Messages must come from a neighbour whose Hello was heard (RFC 5059 section 3.1.3).
  bool fromNeighbors = false;
  /// Bootstrap Messages must not name this router itself as their BSR. Each neighbour that forwards one sends
  /// it back, and one that greets a router which has just started tells it what it said itself before: taken
  /// as the word of another, that would depose it.
  bool notOwnBsr = false;

  /// Packets that are read in a second, in the mean: of each neighbor, and of all other senders of one
  /// interface together.
  U32 packetsPerSecond = 0;
  /// Hellos of one interface, from addresses that are no neighbor's, that are read in a second, in the mean.
  U32 hellosPerSecond = 0;
  /// Packets to unicast addresses, as advertisements are, that are read in a second, in the mean; what the
  /// sender of an accepted one is granted comes on top.
  U32 advertisementsPerSecond = 0;
  /// Addresses of neighbors that are kept of one interface. In a full table the neighbor that is silent for
  /// longest, and for more than 105 seconds, is displaced by a new one, whatever its holdtime.
  U32 neighborsPerInterface = 0;
  U32 learnedZones = 0;  ///< scope zones that are followed and are no candidacy of this router
  U32 fragmentRps = 0;   ///< RPs that wait in the fragment stores of all zones together
  /// RPs in the RP sets of all zones together; an empty range counts as one. While there are preferred RPs,
  /// advertisements of other RPs fill half of it at most.
  U32 rps = 0;
  /// Group ranges in the RP set of one zone. At the elected BSR half of it is kept for preferred RPs if there
  /// are any.
  U32 rangesPerZone = 0;
  /// RPs of one group range at the elected BSR; at most 255, since RP Count has 8 bits (RFC 5059
  /// section 4.1).
  U32 rpsPerRange = 0;
  /// RP addresses other than its own that one sender of advertisements adds to the RP sets, preferred RPs
  /// apart.
  U32 rpsPerSender = 0;
  /// Group ranges that one sender adds, counted for each of these RPs; and as many of each RP that is its own
  /// sender or preferred.
  U32 rangesPerSender = 0;

  bool operator==(Screening const&) const = default;
};

/// The bounds that every program uses unless its operator sets others, far above honest use. No checks.
inline constexpr Screening standardLimits = {.packetsPerSecond = 1000,
                                             .hellosPerSecond = 200,
                                             .advertisementsPerSecond = 1000,
                                             .neighborsPerInterface = 256,
                                             .learnedZones = 64,
                                             .fragmentRps = 4096,
                                             .rps = 20000,
                                             .rangesPerZone = 4096,
                                             .rpsPerRange = 255,
                                             .rpsPerSender = 64,
                                             .rangesPerSender = 1024};

}  // namespace pimbsr::host
