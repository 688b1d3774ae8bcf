#pragma once

#include <map>
#include <utility>

#include "crp/CrpMessageSm.h"
#include "host/Borders.h"
#include "host/Corrections.h"
#include "model/DropReason.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Corrects what goes into the gates.
class PIMBSR_INTERNAL BsmIngress {
 public:
  /// All are used for as long as this object is.
  BsmIngress(Routing::Pim::Bsr::PimBsrSm const& root, Routing::Pim::Bsr::BootstrapMessageSm& gate,
             Routing::Pim::Bsr::CrpMessageSm const& crpGate, Borders const& borders,
             CorrectionSwitches& switches);

  /// Why a Bootstrap Message must not reach the gate.
  DropReason validate(Lanet::IntfId const& intfId, Routing::Pim::Packet::BootstrapMessage const& message);
  /// Whether the gate takes a message by its sender.
  bool isFromRpfNeighbor(Routing::Pim::Packet::BootstrapMessage const& message) const;
  /// To be called before the gate gets a Bootstrap Message: a pending candidate that has lost its BSR takes a
  /// message that outweighs itself, and further fragments of the zone's first No-Forward message pass as the
  /// first one did.
  void prepare(Routing::Pim::Packet::BootstrapMessage const& message);
  /// To be called for a Bootstrap Message that the gate has accepted: a follower takes the one of its BSR
  /// that has lowered its priority, and the empty ranges are taken out that withdrawals of RPs leave which
  /// were not there.
  void handleAccepted(Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);
  /// To be called before the gate gets an advertisement: a sparse RP that becomes bidirectional keeps its
  /// place.
  void prepare(Routing::Pim::Packet::CrpAdvMessage const& message);

 private:
  /// What fragments of one message have in common.
  using MessageId = std::pair<Zet::U16, Lanet::IpGenAddr>;  ///< fragment tag and BSR

  bool isFromOtherBsr(Routing::Pim::Packet::BootstrapMessage const& message) const;
  void forgetLost(Routing::Pim::Packet::BootstrapMessage const& message);
  CorrectionSwitch* howLost(Routing::Pim::Bsr::ElectedBsrStatus const& elected,
                            Routing::Pim::Packet::BootstrapMessage const& message) const;
  void admitFragment(Routing::Pim::Packet::BootstrapMessage const& message);
  void followLowered(Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);
  void refreshFromLowered(Routing::Pim::Bsr::ElectedBsrStatus const& elected,
                          Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);
  void noteEnded(Lanet::IpGenPrefix const& zone, Lanet::IpGenAddr const& bsr);
  void noteNoForward(Routing::Pim::Packet::BootstrapMessage const& message);
  void removeEmpty(Routing::Pim::Packet::BootstrapMessage const& message);
  void changeMode(Routing::Pim::Packet::CrpAdvMessage const& message, Lanet::IpGenPrefix const& range);

  Routing::Pim::Bsr::PimBsrSm const& root_;
  Routing::Pim::Bsr::BootstrapMessageSm& gate_;
  Routing::Pim::Bsr::CrpMessageSm const& crpGate_;
  Borders const& borders_;
  std::map<Lanet::IpGenPrefix, MessageId> firstNoForward_;  ///< by zone, soon after the start
  /// By zone, the BSR that lowered its priority to 0, or at a candidate below the candidate's own.
  std::map<Lanet::IpGenPrefix, Lanet::IpGenAddr> ended_;
  CorrectionSwitch& cutBySize_;
  CorrectionSwitch& electedOnly_;
  CorrectionSwitch& loweredBsr_;
  CorrectionSwitch& coveringBorder_;
  CorrectionSwitch& withdrawalsLast_;
  CorrectionSwitch& repeatWithdrawal_;
};

}  // namespace pimbsr::host
