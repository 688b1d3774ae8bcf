#include "host/BsmPieces.h"

#include <algorithm>

#include "host/Zones.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Context.h"
#include "runtime/Meter.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace Packet = Routing::Pim::Packet;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;

/// Below 0, 0 and above 0 as the content of the first record comes before that of the second, is the same and
/// comes after it. The RPs of a record are walked in an order that depends on them alone.
static int compare(BootstrapGroupData const& a, BootstrapGroupData const& b) {
  if (a.prefix() != b.prefix()) return a.prefix() < b.prefix() ? -1 : 1;
  if (a.rpCount() != b.rpCount()) return a.rpCount() < b.rpCount() ? -1 : 1;
  auto one = a.rpListIterator();
  auto other = b.rpListIterator();
  for (; one && other; ++one, ++other) {
    Zet::Meter::visit();
    if (one->rpAddress() != other->rpAddress()) return one->rpAddress() < other->rpAddress() ? -1 : 1;
  }
  return int(bool(one)) - int(bool(other));
}

/// A fragment that is sent twice names the same RPs.
bool BsmPieces::ByContent::operator()(Message const& a, Message const& b) const {
  auto one = a->groupRpData()->groupDataIterator();
  auto other = b->groupRpData()->groupDataIterator();
  for (; one && other; ++one, ++other) {
    Zet::Meter::visit();
    if (int order = compare(*one, *other)) return order < 0;
  }
  return !one && other;
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
  if (!continues(kept, message)) removeAll(kept);
  kept.lastAt = Zet::now();
  if (auto same = kept.byContent.find(message); same != kept.byContent.end()) remove(kept, Message(*same));
  bool hasRoom = settings_.rps == 0 || records_ + recordsOf(*message) <= settings_.rps;
  if (!hasRoom || pieces_ >= maxPieces) removeAll(kept);
  add(kept, message);
}

void BsmPieces::add(Kept& kept, Message const& piece) {
  kept.fragments.push_back(piece);
  if (spare_.empty()) {
    kept.byContent.insert(piece);
  } else {
    spare_.back().value() = piece;
    kept.byContent.insert(std::move(spare_.back()));
    spare_.pop_back();
  }
  records_ += recordsOf(*piece);
  ++pieces_;
}

/// There are no more nodes than pieces were kept at once, so that maxPieces bounds the spare ones too.
void BsmPieces::recycle(Pieces::node_type node) {
  node.value() = nullptr;
  spare_.push_back(std::move(node));
}

void BsmPieces::remove(Kept& kept, Message const& piece) {
  records_ -= recordsOf(*piece);
  --pieces_;
  recycle(kept.byContent.extract(piece));
  std::erase(kept.fragments, piece);
}

void BsmPieces::removeAll(Kept& kept) {
  for (Message const& piece : kept.fragments) records_ -= recordsOf(*piece);
  pieces_ -= kept.fragments.size();
  while (!kept.byContent.empty()) recycle(kept.byContent.extract(kept.byContent.begin()));
  kept.fragments.clear();
}

void BsmPieces::forget(Lanet::IpGenPrefix const& zone) {
  auto at = kept_.find(zone);
  if (at == kept_.end()) return;
  removeAll(at->second);
  kept_.erase(at);
}

void BsmPieces::clear() {
  kept_.clear();
  spare_.clear();
  records_ = 0;
  pieces_ = 0;
}

/// More zones than machines show that a zone has ended.
void BsmPieces::dropEnded() {
  for (auto& [zone, kept] : kept_) {
    if (!root_.candidateSm(zone) && !root_.nonCandidateSm(zone)) removeAll(kept);
  }
  std::erase_if(kept_, [](auto const& entry) { return entry.second.fragments.empty(); });
}

std::span<BsmPieces::Message const> BsmPieces::fragmentsOf(Message const& kept) const {
  auto at = kept_.find(zoneOf(*kept));
  if (at == kept_.end() || at->second.fragments.back() != kept) return {};
  return at->second.fragments;
}

}  // namespace pimbsr::host
