#pragma once

#include <map>
#include <set>

#include "crp/RpCandidateSm.h"
#include "host/Advertisements.h"
#include "host/Corrections.h"
#include "host/MemberWatchers.h"
#include "pim/Timer.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Withdraws a group range that is taken from one of this router's candidate RPs while the RP keeps others
/// (RFC 5059 section 3.2): it takes the range out of what the RP's machines advertise, and sends an
/// advertisement of it with holdtime 0 to the BSR that was sent it before.
///
/// It acts once the event that changed the candidacy is over, so that a range that only changes its priority,
/// or comes back at once, isn't withdrawn. A range that was withdrawn and comes back later is advertised
/// again, at once: a BSR that hasn't announced the withdrawal yet never announces it. An RP that loses all
/// ranges of a priority is left to its machine.
class PIMBSR_INTERNAL RangeWithdrawal : public Routing::Pim::Bsr::Status::Notifiee {
 public:
  /// All are used until it is stopped.
  RangeWithdrawal(Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> const& root, Advertisements& advertisements,
                  CorrectionSwitch& correction);
  /// Ends it. To be called before the machines end.
  void stop();

  void onCrp(Lanet::IpGenAddr const& address) override;

 private:
  class Candidate;

  void note(Lanet::IpGenAddr const& address, Lanet::IpGenPrefix const& range);
  void handleNoted();
  void handle(Routing::Pim::Bsr::RpCandidate const& candidate, std::set<Lanet::IpGenPrefix> const& ranges);
  void restore(Routing::Pim::Bsr::RpCandidateSm& machine, std::set<Lanet::IpGenPrefix> const& ranges);
  bool takeReturned(Lanet::IpGenAddr const& address, std::set<Lanet::IpGenPrefix> const& ranges);
  void withdraw(Routing::Pim::Bsr::RpCandidateSm& machine, std::set<Lanet::IpGenPrefix> const& ranges);

  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  Advertisements& advertisements_;
  CorrectionSwitch& correction_;
  Zet::Ptr<pim::Timer> timer_;
  MemberWatchers<Lanet::IpGenAddr, Candidate> candidates_;
  std::map<Lanet::IpGenAddr, std::set<Lanet::IpGenPrefix>> noted_;      ///< that came or went in this event
  std::map<Lanet::IpGenAddr, std::set<Lanet::IpGenPrefix>> withdrawn_;  ///< by its last event, and not back
};

}  // namespace pimbsr::host
