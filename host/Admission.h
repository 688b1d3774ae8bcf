#pragma once

#include <string_view>

#include "pim/Port.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Why a well-formed message isn't let into the engine.
enum class Refusal : U8 {
  none,
  ownAddress,        ///< sent from one of this router's own addresses
  hashMaskLength,    ///< hash mask length above 32
  holdtime,          ///< a holdtime above 40958
  fragmentOverflow,  ///< more RPs for one range under one fragment tag than were announced
};

/// The stable name of a refusal: "own-address" and so on; empty for none.
PIMBSR_API std::string_view refusalName(Refusal refusal);
/// The refusal in words for people.
PIMBSR_API std::string_view refusalSentence(Refusal refusal);

/// Refuses what a peer could send to raise an exception or break an invariant inside the engine. It reads the
/// root machine and changes nothing.
class PIMBSR_API Admission {
 public:
  /// Both are read for as long as this object is used.
  Admission(Routing::Pim::Bsr::PimBsrSm const& root, pim::Port const& port) : root_(root), port_(port) {}

  /// Judges a Bootstrap Message. A range that comes in fragments is refused when the RPs named for it under
  /// its fragment tag, in this message, in the fragment store and in the kept message of any zone, are more
  /// than the least RP Count announced there: two routers may draw the same tag, and a timer may read a kept
  /// message again.
  Refusal judge(Routing::Pim::Packet::BootstrapMessage const& message) const;
  /// Judges a Candidate-RP-Advertisement.
  Refusal judge(Routing::Pim::Packet::CrpAdvMessage const& message) const;

 private:
  bool overflows(Routing::Pim::Packet::BootstrapMessage const& message,
                 Lanet::IpGenPrefix const& prefix) const;

  Routing::Pim::Bsr::PimBsrSm const& root_;
  pim::Port const& port_;
};

}  // namespace pimbsr::host
