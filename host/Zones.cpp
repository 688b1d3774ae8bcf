#include "host/Zones.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenPrefix;
using Zet::Ptr;

IpGenPrefix zoneOf(Packet::BootstrapMessage const& message) {
  Ptr<Packet::BootstrapGroupData> first = message.groupRpData()->groupDataFirst();
  return first && first->groupFlags().scoped() ? first->prefix() : Lanet::allGroups();
}

Ptr<Routing::Pim::RpCandidateStatus> rpSetsOf(Bsr::Status const& status, IpGenPrefix const& zone) {
  Ptr<Bsr::PimBsrRpCandidateStatus> zoneStatus = status.crpStatus(zone);
  return zoneStatus ? zoneStatus->status() : nullptr;
}

bool isElectedAt(Bsr::Status const& status, IpGenPrefix const& zone, Lanet::IpGenAddr const& address) {
  Ptr<Bsr::ElectedBsrStatus> elected = status.bootstrapRouter(zone);
  if (!elected || elected->ipAddr() != address) return false;
  Ptr<Bsr::BsrCandidate> candidate = status.cbsr(zone);
  return candidate && candidate->address() == address;
}

}  // namespace pimbsr::host
