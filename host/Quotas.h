#pragma once

#include "host/Refusal.h"
#include "host/Screening.h"
#include "model/Status.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

using Zet::U64;

/// Refuses messages that would make the router keep more than its Screening grants: scope zones, RPs in the
/// fragment stores, RPs in the RP sets.
///
/// What is known may always be told again, whatever the bounds. A message beyond a bound is refused whole,
/// since the part that fits would look like a full set. This router's own candidate RPs are no peer's and may
/// stand on top of the bound for RPs.
class PIMBSR_API Quotas {
 public:
  /// All are used for as long as this object is.
  Quotas(Routing::Pim::Bsr::PimBsrSm const& root, Routing::Pim::Bsr::BootstrapMessageSm& gate,
         Screening const& settings)
      : root_(root), gate_(gate), settings_(settings) {}

  /// Judges a Bootstrap Message that the gate is to see next.
  Refusal judge(Routing::Pim::Packet::BootstrapMessage const& message);
  /// Judges a Candidate-RP-Advertisement that was sent to this router.
  Refusal judge(Routing::Pim::Packet::CrpAdvMessage const& message);
  /// To be called after the settings have changed.
  void handleSettings() { estimate_ = unknown; }

 private:
  static constexpr U64 unknown = ~U64{0} / 2;

  bool isZoneTooMany(Lanet::IpGenPrefix const& zone);
  bool areRangesTooMany(Lanet::IpGenPrefix const& zone,
                        Routing::Pim::Packet::BootstrapMessage const& message) const;
  void forgetZones();
  bool areFragmentsTooMany(Routing::Pim::Packet::BootstrapMessage const& message) const;
  U64 waitingRps() const;
  Zet::Ptr<Routing::Pim::Bsr::PimBsrRxFragment> waiting(
      Routing::Pim::Packet::BootstrapMessage const& message,
      Routing::Pim::Packet::BootstrapGroupData const& group) const;
  U64 namedRps(Routing::Pim::Packet::BootstrapMessage const& message) const;
  U64 newRps(Lanet::IpGenPrefix const& zone, Routing::Pim::Packet::BootstrapMessage const& message) const;
  U64 newRps(Routing::Pim::Packet::CrpAdvMessage const& message) const;
  Zet::Ptr<Routing::Pim::RpCandidateSet> known(Lanet::IpGenPrefix const& zone,
                                               Lanet::IpGenPrefix const& range) const;
  bool takes(U64 rps);
  void count();

  Routing::Pim::Bsr::PimBsrSm const& root_;
  Routing::Pim::Bsr::BootstrapMessageSm& gate_;
  Screening const& settings_;
  /// At least the RPs that are in the sets. Each message adds what it names, known or not, until counting
  /// them anew is due; unknown before the first count.
  U64 estimate_ = unknown;
  U64 sinceCount_ = 0;  ///< RPs added since the last count
  U64 walked_ = 0;      ///< sets walked by the last count
  double countedAt_ = 0;
};

}  // namespace pimbsr::host
