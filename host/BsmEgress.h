#pragma once

#include <vector>

#include "host/Borders.h"
#include "host/BsmPieces.h"
#include "host/BsmPolicy.h"
#include "host/Corrections.h"
#include "host/Mtus.h"
#include "host/OwnMessages.h"
#include "model/Status.h"
#include "pim/IoManager.h"
#include "pim/Port.h"

namespace pimbsr::host {

/// Corrects the Bootstrap Messages that leave, and keeps those back that are not to leave.
class PIMBSR_INTERNAL BsmEgress final : public pim::BsmRewriter {
 public:
  /// All are used for as long as this object is.
  BsmEgress(Routing::Pim::Bsr::Status const& status, pim::Port const& port, Mtus const& mtus,
            Borders const& borders, BsmPieces const& pieces, BsmPolicy const& policy,
            CorrectionSwitches& switches);

  /// Has this router's next messages as BSR of the zone name an RP that is withdrawn.
  void repeatWithdrawal(Lanet::IpGenPrefix const& zone, Lanet::IpGenPrefix const& range,
                        Lanet::IpGenAddr const& rp) {
    own_.repeatWithdrawal(zone, range, rp);
  }
  /// Has them name none that was withdrawn before now.
  void forgetWithdrawals(Lanet::IpGenPrefix const& zone) { own_.forgetWithdrawals(zone); }
  std::span<Message const> messagesFor(Lanet::IntfId const& intfId, Message const& message) override;

 private:
  bool isKeptBack(Lanet::IntfId const& intfId, Message const& message);
  void add(Message const& message, U32 mtu);

  Routing::Pim::Bsr::Status const& status_;
  pim::Port const& port_;
  Mtus const& mtus_;
  Borders const& borders_;
  BsmPieces const& pieces_;
  BsmPolicy const& policy_;
  OwnMessages own_;
  CorrectionSwitch& coveringBorder_;
  CorrectionSwitch& cutBySize_;
  CorrectionSwitch& expiredBsr_;
  std::vector<Message> messages_;  ///< of the last call
};

}  // namespace pimbsr::host
