#pragma once

#include <map>
#include <set>
#include <utility>

#include "host/Borders.h"
#include "host/Corrections.h"
#include "pim/Timer.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Forgets what was learned of a zone over an interface that becomes its border (RFC 5059 section 3.1.3):
/// its BSR, its RP set and the message kept for new neighbors. A candidate of the zone takes part in a new
/// election.
class PIMBSR_API LeakedZones : public Routing::Pim::Bsr::Status::NotifieeConst {
 public:
  /// All are used until it is stopped.
  LeakedZones(Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> const& root, Borders const& borders,
              CorrectionSwitch& correction);
  /// Ends it. To be called before the machines end.
  void stop();

  /// To be called for a Bootstrap Message that the gate has accepted.
  void handleAccepted(Lanet::IntfId const& intfId, Routing::Pim::Packet::BootstrapMessage const& message);

  void onBsBorder(Lanet::IpGenPrefix const& zone) override;

 private:
  class Watcher;

  void check();
  void forget(Lanet::IpGenPrefix const& zone);
  void dropEnded();

  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  Borders const& borders_;
  CorrectionSwitch& correction_;
  Zet::Ptr<pim::Timer> timer_;
  std::map<Lanet::IpGenPrefix, Zet::Ptr<Watcher>> watchers_;  ///< by zone of the border
  std::map<Lanet::IpGenPrefix, Lanet::IntfId> learnedOn_;     ///< interface of the last message, by zone
};

}  // namespace pimbsr::host
