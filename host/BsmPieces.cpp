#include "host/BsmPieces.h"

#include <algorithm>

#include "host/Zones.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Context.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace Packet = Routing::Pim::Packet;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Zet::Ptr;

static bool isSame(BootstrapGroupData const& a, BootstrapGroupData const& b) {
  if (a.prefix() != b.prefix() || a.fragRpCount() != b.fragRpCount() || a.rpCount() != b.rpCount())
    return false;
  for (auto rp = a.rpListIterator(); rp; ++rp) {
    if (!b.rpList(rp->rpAddress())) return false;
  }
  return true;
}

/// Whether two fragments of a message name the same RPs, as one that was sent twice does.
static bool isSame(BootstrapMessage const& a, BootstrapMessage const& b) {
  auto one = a.groupRpData()->groupDataIterator();
  auto other = b.groupRpData()->groupDataIterator();
  for (; one && other; ++one, ++other) {
    if (!isSame(*one, *other)) return false;
  }
  return !one && !other;
}

static U32 recordsOf(BootstrapMessage const& message) {
  U32 records = 0;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group)
    records += 1 + group->rpListCount();
  return records;
}

BsmPieces::Message BsmPieces::lastOf(Lanet::IpGenPrefix const& zone) const {
  if (auto machine = root_.candidateSm(zone)) return machine->lastBsm();
  auto machine = root_.nonCandidateSm(zone);
  return machine ? machine->lastBsm() : nullptr;
}

bool BsmPieces::continues(Kept const& kept, Message const& message) {
  if (kept.fragments.empty()) return false;
  BootstrapMessage const& last = *kept.fragments.back();
  return last.fragmentTag() == message->fragmentTag() && last.bsrAddress() == message->bsrAddress() &&
         Zet::now() < kept.lastAt + Bsr::BsrCandidateSm::bsMinInterval();
}

/// A message that no machine keeps was not followed, or is not to be forwarded.
void BsmPieces::handleAccepted(Message const& message) {
  Lanet::IpGenPrefix zone = zoneOf(*message);
  if (lastOf(zone) != message) return;
  if (kept_.size() > root_.candidateSmCount() + root_.nonCandidateSmCount()) dropEnded();
  Kept& kept = kept_[zone];
  if (!continues(kept, message)) {
    kept.fragments.clear();
    kept.records = 0;
  }
  kept.lastAt = Zet::now();
  std::erase_if(kept.fragments, [&](Message const& other) { return isSame(*other, *message); });
  U32 records = recordsOf(*message);
  bool hasRoom = settings_.rps == 0 || kept.records + records <= settings_.rps;
  if (!hasRoom) kept.fragments.clear();
  kept.records = hasRoom ? kept.records + records : records;
  kept.fragments.push_back(message);
}

/// More zones than machines show that a zone has ended.
void BsmPieces::dropEnded() {
  std::erase_if(kept_, [&](auto const& entry) {
    return !root_.candidateSm(entry.first) && !root_.nonCandidateSm(entry.first);
  });
}

std::span<BsmPieces::Message const> BsmPieces::fragmentsOf(Message const& kept) const {
  auto at = kept_.find(zoneOf(*kept));
  if (at == kept_.end() || at->second.fragments.back() != kept) return {};
  return at->second.fragments;
}

}  // namespace pimbsr::host
