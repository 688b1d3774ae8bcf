#pragma once

#include <utility>
#include <vector>

#include "model/RpSet.h"
#include "model/Status.h"
#include "pim/Timer.h"

namespace pimbsr::host {

/// Takes out of the RP set that PIM reads what nothing else removes: an RP whose time is over and that no
/// zone's set holds any more. Such an RP is left where the zone was given up together with its own set.
///
/// It looks once a minute while the set holds anything, at a cost linear in the set, and rests otherwise.
class PIMBSR_INTERNAL RpSweep : public Routing::Pim::RpCandidateStatus::Notifiee {
 public:
  /// Seconds between two looks.
  static constexpr double period = 60.0;

  RpSweep(Zet::Ptr<Routing::Pim::RpCandidateStatus> const& rpSet,
          Zet::Ptr<Routing::Pim::Bsr::Status const> const& status,
          Zet::Ptr<Kiv::TimerWheel const> const& wheel);
  /// Ends it; nothing is swept any more.
  void stop();

  /// Takes out what was of one zone's set and is held by no zone's any more.
  void removeUnheld(std::vector<std::pair<Lanet::IpGenPrefix, Lanet::IpGenAddr>> const& cleared);
  /// Takes out all that no zone's set holds.
  void removeUnheld();

  void onCrpSet(Lanet::IpGenPrefix const& range) override;

 private:
  class Held;

  void sweep();
  void sweepSet(Routing::Pim::RpCandidateSet& set, Held& held);

  Zet::Ptr<Routing::Pim::Bsr::Status const> status_;
  Zet::Ptr<pim::Timer> timer_;
};

}  // namespace pimbsr::host
