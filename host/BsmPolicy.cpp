#include "host/BsmPolicy.h"

namespace pimbsr::host {

DropReason BsmPolicy::validate(Lanet::IntfId const& intfId,
                               Routing::Pim::Packet::BootstrapMessage const& message) const {
  if (closed.contains(intfId)) return DropReason::bsmOff;
  bool isPermitted = bsrs.isEmpty() || bsrs.contains(message.bsrAddress());
  return isPermitted ? DropReason::none : DropReason::bsrFilter;
}

}  // namespace pimbsr::host
