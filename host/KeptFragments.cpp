#include "host/KeptFragments.h"

#include "host/Fragment.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Meter.h"

namespace pimbsr::host {

namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Zet::U16;

/// Takes one from the count of a key, and the key away with the last.
template <class Counts, class Key>
static void removeOne(Counts& counts, Key const& key) {
  auto at = counts.find(key);
  if (--at->second == 0) counts.erase(at);
}

void KeptRange::add(KeptRecord const& record) {
  ++announced_[record.announced];
  for (IpGenAddr const& rp : record.rps) {
    Zet::Meter::visit();
    ++rps_[rp];
  }
}

void KeptRange::remove(KeptRecord const& record) {
  removeOne(announced_, record.announced);
  for (IpGenAddr const& rp : record.rps) {
    Zet::Meter::visit();
    removeOne(rps_, rp);
  }
}

void KeptFragments::update() {
  removeGoneZones();
  updateFrom(root_.nonCandidateSmIterator());
  updateFrom(root_.candidateSmIterator());
}

template <class MachineWalk>
void KeptFragments::updateFrom(MachineWalk machines) {
  for (; machines; ++machines) {
    Zet::Meter::visit();
    replace(byZone_[machines->zone()], machines->lastBsm());
  }
}

void KeptFragments::replace(Kept& kept, Message const& message) {
  if (kept.message == message) return;
  remove(kept);
  kept.message = message;
  if (message) add(kept);
}

static KeptRecord recordOf(Packet::BootstrapGroupData const& group) {
  KeptRecord record{.range = group.prefix(), .announced = group.rpCount()};
  for (auto rp = group.rpListIterator(); rp; ++rp) record.rps.push_back(rp->rpAddress());
  return record;
}

void KeptFragments::add(Kept& kept) {
  kept.tag = kept.message->fragmentTag();
  for (auto group = kept.message->groupRpData()->groupDataIterator(); group; ++group) {
    Zet::Meter::visit();
    if (!isFragment(*group)) continue;
    kept.records.push_back(recordOf(*group));
    ranges_[{kept.tag, group->prefix()}].add(kept.records.back());
  }
}

void KeptFragments::remove(Kept& kept) {
  for (KeptRecord const& record : kept.records) {
    auto at = ranges_.find({kept.tag, record.range});
    at->second.remove(record);
    if (at->second.isEmpty()) ranges_.erase(at);
  }
  kept.records.clear();
}

KeptRange const* KeptFragments::find(U16 tag, IpGenPrefix const& range) const {
  auto at = ranges_.find({tag, range});
  return at == ranges_.end() ? nullptr : &at->second;
}

/// A zone keeps its message, so those of gone zones are removed before they are many.
void KeptFragments::removeGoneZones() {
  if (byZone_.size() <= root_.candidateSmCount() + root_.nonCandidateSmCount()) return;
  for (auto& [zone, kept] : byZone_) {
    if (!root_.candidateSm(zone) && !root_.nonCandidateSm(zone)) replace(kept, nullptr);
  }
  std::erase_if(byZone_, [](auto const& entry) { return !entry.second.message; });
}

}  // namespace pimbsr::host
