#pragma once

#include <span>
#include <string_view>

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace pimbsr::host {

using Zet::U8;

/// Why a well-formed packet isn't let into the engine.
enum class Refusal : U8 {
  none,
  // What would break the engine; refused always.
  ownAddress,              ///< sent from one of this router's own addresses
  hashMaskLength,          ///< hash mask length above 32
  holdtime,                ///< a holdtime above 40958
  fragmentOverflow,        ///< more RPs for one range under one fragment tag than were announced
  multicastAdvertisement,  ///< an advertisement sent to a multicast address
  // What a router on a real network doesn't believe; refused as far as its Screening says.
  ttl,               ///< sent to 224.0.0.13 with another TTL than 1
  foreignSubnet,     ///< of a kind that stays on its link, from an address that isn't on the link
  notNeighbor,       ///< a Bootstrap Message from an address that no Hello has told
  ownBsr,            ///< a Bootstrap Message of this router itself, sent back
  helloDestination,  ///< a Hello sent to another address than 224.0.0.13
  // What would cost more than the Screening grants.
  rateLimit,               ///< more packets in a second than those who are no neighbors are granted
  neighborRateLimit,       ///< more packets in a second than a neighbor is granted
  helloRateLimit,          ///< more Hellos in a second than addresses without a neighbor are granted
  advertisementRateLimit,  ///< more unicast packets in a second than unknown senders are granted
  neighborQuota,           ///< a Hello with addresses beyond those kept of one interface
  zoneQuota,               ///< a Bootstrap Message of one zone too many
  fragmentQuota,           ///< RPs in fragments beyond those that may wait for their rest
  rpQuota,                 ///< RPs beyond those that the RP sets may hold
  zoneRanges,              ///< group ranges beyond those of one zone
  rangeFull,               ///< an RP for a group range that has its full number of RPs
  displacedRp,             ///< an RP that a better one displaced, before it has left the RP set
  senderRps,               ///< an advertisement with more RP addresses than one sender may add
  senderRanges,            ///< an advertisement with more group ranges than one sender may add
};

/// The stable name of a refusal: "own-address" and so on; empty for none.
PIMBSR_API std::string_view refusalName(Refusal refusal);
/// The refusal in words for people; empty for none.
PIMBSR_API std::string_view refusalSentence(Refusal refusal);
/// All refusals but none, in the order of their numbers.
PIMBSR_API std::span<Refusal const> refusals();

}  // namespace pimbsr::host
