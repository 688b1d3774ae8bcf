#pragma once

#include <utility>
#include <vector>

#include "host/Correctors.h"
#include "host/LastMessages.h"
#include "host/RpSweep.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Forgets what was learned of zones, on an operator's command: afterwards nothing of it is used, announced
/// to a new neighbor, or joined with what is received next.
class PIMBSR_INTERNAL Clearing {
 public:
  /// All are used for as long as this object is.
  Clearing(Routing::Pim::Bsr::PimBsrSm& root, Correctors& correctors, LastMessages& lastMessages,
           RpSweep& sweep)
      : root_(root), correctors_(correctors), lastMessages_(lastMessages), sweep_(sweep) {}

  /// Forgets the BSR of a zone with the machine that follows it, the RP set and the kept message. A candidate
  /// of the zone takes part in a new election. False, with nothing changed, where this router is the elected
  /// BSR. An unknown zone has no effect.
  bool clearBsr(Lanet::IpGenPrefix const& zone);
  /// Forgets the RP set of a zone and the kept message, which names its RPs; the BSR stays.
  void clearRpSet(Lanet::IpGenPrefix const& zone);
  /// Forgets, after all zones were cleared, the RPs that zones forgotten before have left to PIM.
  void clearLeftovers() { sweep_.removeUnheld(); }

 private:
  void forgetKept(Lanet::IpGenPrefix const& zone);
  void removeRps(Lanet::IpGenPrefix const& zone);

  Routing::Pim::Bsr::PimBsrSm& root_;
  Correctors& correctors_;
  LastMessages& lastMessages_;
  RpSweep& sweep_;
};

}  // namespace pimbsr::host
