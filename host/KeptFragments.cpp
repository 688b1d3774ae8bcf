#include "host/KeptFragments.h"

#include "host/Fragment.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Meter.h"

namespace pimbsr::host {

namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenPrefix;
using Packet::BootstrapMessage;
using Zet::Ptr;

KeptRecords::KeptRecords(Ptr<BootstrapMessage> const& message) : message_(message) {
  Ptr<Packet::BootstrapOptionalData> groups = message->groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    Zet::Meter::visit();
    if (isFragment(*group)) records_.emplace(group->prefix(), &*group);
  }
}

std::vector<KeptRecords const*> KeptFragments::tagged(Zet::U16 tag) {
  removeGoneZones();
  std::vector<KeptRecords const*> found;
  addTagged(tag, root_.nonCandidateSmIterator(), found);
  addTagged(tag, root_.candidateSmIterator(), found);
  return found;
}

template <class MachineWalk>
void KeptFragments::addTagged(Zet::U16 tag, MachineWalk machines, std::vector<KeptRecords const*>& found) {
  for (; machines; ++machines) {
    Zet::Meter::visit();
    Ptr<BootstrapMessage> kept = machines->lastBsm();
    if (kept && kept->fragmentTag() == tag) found.push_back(&recordsOf(machines->zone(), kept));
  }
}

KeptRecords const& KeptFragments::recordsOf(IpGenPrefix const& zone, Ptr<BootstrapMessage> const& message) {
  auto [at, isNew] = byZone_.try_emplace(zone, message);
  if (!isNew && at->second.message() != message) at->second = KeptRecords(message);
  return at->second;
}

/// An index keeps its message, so those of gone zones are removed before they are many.
void KeptFragments::removeGoneZones() {
  if (byZone_.size() <= root_.candidateSmCount() + root_.nonCandidateSmCount()) return;
  std::erase_if(byZone_, [&](auto const& entry) {
    return !root_.candidateSm(entry.first) && !root_.nonCandidateSm(entry.first);
  });
}

}  // namespace pimbsr::host
