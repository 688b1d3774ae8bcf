#pragma once

#include <set>

#include "host/Corrections.h"
#include "host/MemberWatchers.h"
#include "pim/Timer.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Has changes of this router's candidacies as BSR take effect where the machines ignore them (RFC 5059
/// sections 2 and 3.1.4): a candidate that knows no BSR compares messages with its present priority and
/// address, and where a candidacy ends, a follower's machine times the BSR that was followed.
///
/// It acts once the event that changed the candidacy is over.
class PIMBSR_INTERNAL CandidacyChanges : public Routing::Pim::Bsr::Status::NotifieeConst {
 public:
  /// Both are used until it is stopped.
  CandidacyChanges(Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> const& root, CorrectionSwitch& correction);
  /// Ends it. To be called before the machines end.
  void stop();

  void onCbsr(Lanet::IpGenPrefix const& zone) override;

 private:
  class Watcher;

  void note(Lanet::IpGenPrefix const& zone);
  void check();
  void compareWithPresent(Routing::Pim::Bsr::BsrCandidateSm& machine);
  void followOn(Lanet::IpGenPrefix const& zone);

  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  CorrectionSwitch& correction_;
  Zet::Ptr<pim::Timer> timer_;
  MemberWatchers<Lanet::IpGenPrefix, Watcher> watchers_;  ///< by zone of the candidacy
  std::set<Lanet::IpGenPrefix> noted_;                    ///< zones whose candidacy changed in this event
};

}  // namespace pimbsr::host
