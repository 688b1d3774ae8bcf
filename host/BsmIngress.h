#pragma once

#include <map>
#include <optional>
#include <utility>

#include "crp/CrpMessageSm.h"
#include "host/Borders.h"
#include "host/Corrections.h"
#include "model/DropReason.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/PimBsrSm.h"
#include "runtime/MeteredLess.h"

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
  /// To be called before the gate gets a Bootstrap Message: a candidate whose BSR is lost or lowered follows
  /// what outweighs it, and further fragments of the zone's first No-Forward message pass as the first one
  /// did.
  void prepare(Routing::Pim::Packet::BootstrapMessage const& message);
  /// To be called for a Bootstrap Message that the gate has dropped: the candidate compares as before.
  void handleDropped();
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
  /// A BSR that lowered its priority to 0; at a candidate also one that lowered it below the candidate's own,
  /// of which nothing but its address counts.
  struct Ended {
    Lanet::IpGenAddr bsr;
    MessageId last;        ///< the message that said so
    double lastUntil = 0;  ///< when no fragment of that message comes any more
    double expiry = 0;     ///< of the BSR, before that message
  };
  /// What a candidate compared with, before the message in hand.
  struct Former {
    Lanet::IpGenPrefix zone;
    Lanet::IpGenAddr bsr;
    Zet::U32 priority = 0;
    Zet::U32 hashMaskLen = 0;
    CorrectionSwitch* correction = nullptr;
  };

  bool isFromOtherBsr(Routing::Pim::Packet::BootstrapMessage const& message) const;
  void compareWithOwn(Routing::Pim::Packet::BootstrapMessage const& message);
  CorrectionSwitch* correctionOfLost(Routing::Pim::Bsr::ElectedBsrStatus const& elected) const;
  bool hasEnded(Routing::Pim::Bsr::ElectedBsrStatus const& elected) const;
  void admitFragment(Routing::Pim::Packet::BootstrapMessage const& message);
  void handleLowered(Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);
  void followLowered(Routing::Pim::Bsr::BsrNonCandidateSm& follower,
                     Routing::Pim::Bsr::ElectedBsrStatus& elected,
                     Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);
  void expireAsBefore(Routing::Pim::Bsr::BsrNonCandidateSm& follower,
                      Routing::Pim::Bsr::ElectedBsrStatus& elected,
                      Routing::Pim::Packet::BootstrapMessage const& message);
  void refreshFromIgnored(Routing::Pim::Bsr::ElectedBsrStatus& elected,
                          Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);
  void noteEnded(Routing::Pim::Bsr::ElectedBsrStatus const& elected,
                 Routing::Pim::Packet::BootstrapMessage const& last);
  void noteNoForward(Routing::Pim::Packet::BootstrapMessage const& message);
  void removeEmpty(Routing::Pim::Packet::BootstrapMessage const& message);
  void changeMode(Routing::Pim::Packet::CrpAdvMessage const& message, Lanet::IpGenPrefix const& range);

  Routing::Pim::Bsr::PimBsrSm const& root_;
  Routing::Pim::Bsr::BootstrapMessageSm& gate_;
  Routing::Pim::Bsr::CrpMessageSm const& crpGate_;
  Borders const& borders_;
  std::map<Lanet::IpGenPrefix, MessageId> firstNoForward_;       ///< by zone, soon after the start
  std::map<Lanet::IpGenPrefix, Ended, Zet::Meter::Less> ended_;  ///< by zone
  std::optional<Former> former_;
  CorrectionSwitch& cutBySize_;
  CorrectionSwitch& electedOnly_;
  CorrectionSwitch& loweredBsr_;
  CorrectionSwitch& coveringBorder_;
  CorrectionSwitch& withdrawalsLast_;
  CorrectionSwitch& repeatWithdrawal_;
};

}  // namespace pimbsr::host
