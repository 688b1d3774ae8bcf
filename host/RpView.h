#pragma once

#include "model/Lanet.h"
#include "model/Status.h"
#include "model/Values.h"

namespace pimbsr::host {

/// One RP of a zone, as a value that outlives its entry.
struct RpView {
  Lanet::IpGenPrefix range;                              ///< the groups that it serves
  Lanet::IpGenAddr address;                              ///< of the RP
  U32 priority = 0;                                      ///< lower wins
  U16 holdTime = 0;                                      ///< seconds
  Routing::Pim::Mode mode = Routing::Pim::Mode::sparse;  ///< sparse, or bidirectional (RFC 5015)
  double expires = 0;    ///< when it leaves the set unless it is named again, on the clock of Zet::now()
  double setupTime = 0;  ///< when it came into the set
  /// It is a former BSR's and stays in use until the present one names its range; its zone's set lacks it.
  bool kept = false;

  /// Whether both say the same; a renewal, which only moves the expiry, changes nothing.
  bool sameRp(RpView const& other) const {
    return priority == other.priority && holdTime == other.holdTime && mode == other.mode;
  }
};

/// The values of an RP of a range as they are now.
inline RpView viewOf(Lanet::IpGenPrefix const& range, Routing::Pim::RpCandidate const& rp) {
  return {.range = range,
          .address = rp.address(),
          .priority = rp.priority().value(),
          .holdTime = rp.holdTime().value(),
          .mode = rp.pimMode(),
          .expires = rp.expires(),
          .setupTime = rp.setupTime()};
}

}  // namespace pimbsr::host
