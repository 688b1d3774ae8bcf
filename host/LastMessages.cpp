#include "host/LastMessages.h"

#include "host/Zones.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "runtime/Context.h"

namespace pimbsr::host {

using Lanet::IpGenPrefix;

void LastMessages::note(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& sender,
                        Routing::Pim::Packet::BootstrapMessage const& message) {
  IpGenPrefix zone = zoneOf(message);
  auto elected = root_.bsrStatus()->bootstrapRouter(zone);
  if (!elected || elected->ipAddr() != message.bsrAddress()) return;
  if (byZone_.size() > root_.candidateSmCount() + root_.nonCandidateSmCount()) dropEnded();
  byZone_[zone] = {.intfId = intfId,
                   .sender = sender,
                   .fragmentTag = message.fragmentTag(),
                   .forward = message.forward(),
                   .time = Zet::now()};
}

/// More zones than machines show that a zone has ended.
void LastMessages::dropEnded() {
  std::erase_if(byZone_, [&](auto const& entry) {
    Zet::Meter::visit();
    return !root_.candidateSm(entry.first) && !root_.nonCandidateSm(entry.first);
  });
}

LastMessage const* LastMessages::find(IpGenPrefix const& zone) const {
  auto at = byZone_.find(zone);
  return at == byZone_.end() ? nullptr : &at->second;
}

}  // namespace pimbsr::host
