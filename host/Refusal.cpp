#include "host/Refusal.h"

#include <array>
#include <cstddef>
#include <iterator>

#include "runtime/Assert.h"

namespace pimbsr::host {

namespace {

struct Row {
  Refusal refusal;
  std::string_view name;
  std::string_view sentence;
};

constexpr Row rows[] = {
    {Refusal::none, "", ""},
    {Refusal::ownAddress, "own-address", "The message was sent from one of this router's own addresses."},
    {Refusal::hashMaskLength, "hash-mask-length", "The hash mask length is above 32."},
    {Refusal::holdtime, "holdtime", "A holdtime is above 40958 seconds."},
    {Refusal::fragmentOverflow, "fragment-overflow",
     "More RPs were named for one range under one fragment tag than were announced."},
    {Refusal::multicastAdvertisement, "multicast-advertisement",
     "The advertisement was sent to a multicast address instead of to the BSR."},
    {Refusal::ttl, "ttl", "The packet was sent to 224.0.0.13 with another TTL than 1."},
    {Refusal::foreignSubnet, "foreign-subnet",
     "The message must stay on its link, but its sender is in no subnet of the interface."},
    {Refusal::notNeighbor, "not-neighbor",
     "The Bootstrap Message comes from an address of which no Hello was heard on the interface."},
    {Refusal::ownBsr, "own-bsr", "The Bootstrap Message names this router itself as its BSR."},
    {Refusal::helloDestination, "hello-destination",
     "The Hello was sent to another address than 224.0.0.13."},
    {Refusal::rateLimit, "rate-limit",
     "Senders that are no neighbors sent more packets in a second than they are granted on the interface."},
    {Refusal::neighborRateLimit, "neighbor-rate-limit",
     "The neighbor sent more packets in a second than it is granted."},
    {Refusal::helloRateLimit, "hello-rate-limit",
     "More Hellos of unknown neighbors came in on the interface in a second than are granted."},
    {Refusal::advertisementRateLimit, "advertisement-rate-limit",
     "More unicast packets of senders without an accepted advertisement came in a second than are granted."},
    {Refusal::neighborQuota, "neighbor-quota",
     "The Hello adds addresses beyond limits.neighbors-per-interface, and too few neighbors are silent."},
    {Refusal::zoneQuota, "zone-quota",
     "The message is of a scope zone not yet known, and no more zones are learned."},
    {Refusal::fragmentQuota, "fragment-quota",
     "Too many RPs wait already for the other fragments of their messages."},
    {Refusal::rpQuota, "rp-quota", "The message names new RPs, and the RP sets hold as many as they may."},
    {Refusal::zoneRanges, "zone-ranges",
     "The message adds group ranges to a zone that has reached limits.ranges-per-zone."},
    {Refusal::rangeFull, "range-full",
     "The group range has reached limits.rps-per-range, and the RP is not better than the worst in it, or "
     "has to wait until that has left."},
    {Refusal::displacedRp, "displaced-rp",
     "A better RP displaced this one from a full group range; it leaves with the next Bootstrap Message."},
    {Refusal::senderRps, "sender-rps",
     "The sender has added as many RP addresses as limits.rps-per-sender allows."},
    {Refusal::senderRanges, "sender-ranges",
     "The sender has added as many group ranges as limits.ranges-per-sender allows."},
};

constexpr auto all = [] {
  std::array<Refusal, std::size(rows) - 1> found{};
  for (std::size_t i = 0; i < found.size(); ++i) found[i] = rows[i + 1].refusal;
  return found;
}();

static_assert(
    [] {
      for (std::size_t i = 0; i < std::size(rows); ++i) {
        if (static_cast<std::size_t>(rows[i].refusal) != i) return false;
      }
      return true;
    }(),
    "a refusal's number is the index of its row");

Row const& row(Refusal refusal) {
  auto index = static_cast<std::size_t>(refusal);
  ZET_ASSERT(index < std::size(rows), "refusal has a row");
  return rows[index];
}

}  // namespace

std::string_view refusalName(Refusal refusal) { return row(refusal).name; }

std::string_view refusalSentence(Refusal refusal) { return row(refusal).sentence; }

std::span<Refusal const> refusals() { return all; }

}  // namespace pimbsr::host
