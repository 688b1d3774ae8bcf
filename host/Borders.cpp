#include "host/Borders.h"

namespace pimbsr::host {

using Lanet::IntfId;
using Lanet::IpGenPrefix;
using Zet::Ptr;

bool Borders::isBorder(IpGenPrefix const& zone, IntfId const& intfId) const {
  Ptr<Routing::Pim::Bsr::PimBsrBorder const> border = status_->bsBorder(zone);
  return border && border->intfId(intfId);
}

bool Borders::isCovered(IpGenPrefix const& zone, IntfId const& intfId) const {
  if (!covering_.isOn() || status_->bsBorderCount() == 0 || exact_.contains(intfId)) return false;
  Lanet::IpGenAddr address(zone.v4Prefix().address());
  for (U32 length = zone.length(); length-- > 0;) {
    if (isBorder(IpGenPrefix(address, length), intfId)) return true;
  }
  return false;
}

}  // namespace pimbsr::host
