#pragma once

#include "runtime/Meter.h"

namespace Zet::Meter {

/// Orders keys as < does, and counts each comparison as a visit: for ordered maps and sets whose keys a peer
/// chooses.
struct Less {
  template <class Key>
  bool operator()(Key const& a, Key const& b) const {
    visit();
    return a < b;
  }
};

}  // namespace Zet::Meter
