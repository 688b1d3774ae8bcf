#pragma once

#include <memory>

#include "model/DropReason.h"
#include "pim/Port.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

class KeptFragments;

/// Drops what a peer could send to raise an exception or break an invariant inside the engine. It reads the
/// root machine and changes nothing.
class PIMBSR_API Admission {
 public:
  /// Both are read for as long as this object is used.
  Admission(Routing::Pim::Bsr::PimBsrSm const& root, pim::Port const& port);
  ~Admission();

  /// Validates a Bootstrap Message. A range that comes in fragments is dropped when the RPs named for it
  /// under its fragment tag, in this message, in the fragment store and in the kept message of any zone, are
  /// more than the least RP Count announced there: two routers may draw the same tag, and a timer may read a
  /// kept message again.
  DropReason validate(Routing::Pim::Packet::BootstrapMessage const& message);
  /// Validates a Candidate-RP-Advertisement: it is for one BSR, and so for a unicast address (RFC 5059
  /// section 3.2).
  DropReason validate(Routing::Pim::Packet::CrpAdvMessage const& message) const;

 private:
  Routing::Pim::Bsr::PimBsrSm const& root_;
  pim::Port const& port_;
  std::unique_ptr<KeptFragments> kept_;
};

}  // namespace pimbsr::host
