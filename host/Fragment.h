#pragma once

#include "model/Packet.h"

namespace pimbsr::host {

/// Whether a record of a Bootstrap Message enters the fragment store: it names RPs, and not all of its range
/// (RFC 5059 section 4.1: Frag RP Cnt and RP Count differ).
inline bool isFragment(Routing::Pim::Packet::BootstrapGroupData const& group) {
  return group.fragRpCount() != 0 && group.rpCount() != group.fragRpCount();
}

}  // namespace pimbsr::host
