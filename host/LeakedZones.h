#pragma once

#include "host/Borders.h"
#include "host/Corrections.h"
#include "host/HoldOver.h"
#include "host/LastMessages.h"
#include "host/MemberWatchers.h"
#include "pim/Timer.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Forgets what was learned of a zone over an interface that becomes its border (RFC 5059 section 3.1.3):
/// its BSR, its RP set and the message kept for new neighbors. A candidate of the zone takes part in a new
/// election.
class PIMBSR_INTERNAL LeakedZones : public Routing::Pim::Bsr::Status::NotifieeConst {
 public:
  /// All are used until it is stopped.
  LeakedZones(Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> const& root, Borders const& borders,
              LastMessages& lastMessages, HoldOver& holdOver, CorrectionSwitch& correction);
  /// Ends it. To be called before the machines end.
  void stop();

  void onBsBorder(Lanet::IpGenPrefix const& zone) override;

 private:
  class Watcher;

  void check();
  void forget(Lanet::IpGenPrefix const& zone);

  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  Borders const& borders_;
  LastMessages& lastMessages_;
  HoldOver& holdOver_;
  CorrectionSwitch& correction_;
  Zet::Ptr<pim::Timer> timer_;
  MemberWatchers<Lanet::IpGenPrefix, Watcher> watchers_;  ///< by zone of the border
};

}  // namespace pimbsr::host
