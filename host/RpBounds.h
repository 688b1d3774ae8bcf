#pragma once

#include "crp/CrpMessageSm.h"
#include "host/RangePlaces.h"
#include "host/SenderLedger.h"
#include "model/MsgStatus.h"

namespace pimbsr::host {

/// Bounds what Candidate-RP-Advertisements add to the RP sets of the zones whose elected BSR this router is:
/// group ranges of a zone, RPs of a group range, and both for each sender.
///
/// A renewal of an RP that its range holds always passes, except for an RP that was displaced. Of an
/// advertisement the group ranges that fit pass. While there are preferred RPs, the others add no more than
/// half of IngressSettings::rangesPerZone, so that forged ranges of others keep no preferred RP out; a
/// preferred RP doesn't pass the whole bound either, since followers drop a Bootstrap Message beyond their
/// own.
///
/// This router's own advertisements take no part in it, except that in a full range they wait for a place.
class PIMBSR_INTERNAL RpBounds : public Routing::Pim::Bsr::PimCrpMsgStatus::NotifieeConst {
 public:
  /// What becomes of an advertisement.
  struct Verdict {
    /// The message to hand on: the one received, or a copy with the ranges that fit; null if none does.
    Zet::Ptr<Routing::Pim::Packet::CrpAdvMessage> passed;
    DropReason reason = DropReason::none;  ///< why the first of the dropped ranges was dropped
    U32 dropped = 0;                       ///< number of ranges dropped
  };

  /// The machines and the settings are read for as long as this object is not stopped.
  RpBounds(Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> const& root,
           Zet::Ptr<Routing::Pim::Bsr::CrpMessageSm> const& gate, IngressSettings const& settings);
  /// Ends it. To be called before the machines end.
  void stop();

  /// Replaces the RPs that are never displaced.
  void preferredIs(PreferredRps const& preferred) { places_.preferredIs(preferred); }

  /// Checks an advertisement that was sent to this router. One that the engine drops by itself passes.
  /// Displaces RPs and records what passes, so that no later check may drop the message.
  Verdict check(Routing::Pim::Packet::CrpAdvMessage& message);

  RangePlaces const& places() const { return places_; }

  /// This router's own advertisement is about to be handled.
  void onTxCrpMsg() override;

 private:
  bool isPermitted(Lanet::IpGenAddr const& sender) const;
  bool isElected(Lanet::IpGenPrefix const& zone, Lanet::IpGenAddr const& bsr) const;
  DropReason checkRange(Routing::Pim::Packet::CrpAdvMessage const& message, Lanet::IpGenPrefix const& range);
  bool isZoneFull(U32 held, bool isPreferred) const;
  DropReason admit(Routing::Pim::Packet::CrpAdvMessage const& message, RangePlaces::Request const& request);
  bool mayEnter(Routing::Pim::Packet::CrpAdvMessage const& message, Lanet::IpGenPrefix const& range);

  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  Zet::Ptr<Routing::Pim::Bsr::CrpMessageSm> gate_;
  IngressSettings const& settings_;
  RangePlaces places_;
  SenderLedger ledger_;
  U32 newRanges_ = 0;        ///< new ranges that passed, of the message being checked
  bool isPrepared_ = false;  ///< the ledger is, for the message being checked
};

}  // namespace pimbsr::host
