#pragma once

#include "crp/CrpMessageSm.h"
#include "host/Advertisements.h"
#include "host/Borders.h"
#include "host/BsmEgress.h"
#include "host/BsmIngress.h"
#include "host/BsmPieces.h"
#include "host/CandidacyChanges.h"
#include "host/Corrections.h"
#include "host/HoldOver.h"
#include "host/LastMessages.h"
#include "host/LeakedZones.h"
#include "host/MessageFit.h"
#include "host/Mtus.h"
#include "host/RangeWithdrawal.h"
#include "protocol/StoreRules.h"

namespace pimbsr::host {

/// All corrections of one router, around its machines.
class PIMBSR_INTERNAL Correctors {
 public:
  /// What the machines are made of, which is used until the end of this object.
  struct Machines {
    Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root;
    Zet::Ptr<Routing::Pim::Bsr::BootstrapMessageSm> gate;
    Zet::Ptr<Routing::Pim::Bsr::CrpMessageSm> crpGate;
    pim::IoManager& io;
    pim::Port const& port;
    Mtus& mtus;
    CorrectionSwitches& switches;
    IngressSettings const& ingress;
    LastMessages& lastMessages;
    BsmPolicy const& policy;
  };

  /// To be made after the gates and the root machine.
  explicit Correctors(Machines const& machines);
  /// To be ended before them.
  ~Correctors();
  Correctors(Correctors const&) = delete;
  Correctors& operator=(Correctors const&) = delete;

  /// To be called after the switches have changed.
  void handleSwitches();
  Borders& borders() { return borders_; }
  BsmIngress& ingress() { return ingress_; }
  MessageFit& fit() { return fit_; }
  HoldOver& holdOver() { return holdOver_; }
  HoldOver const& holdOver() const { return holdOver_; }
  /// What the gate is to get in place of a message that was read last.
  MessageFit::Verdict fit(Routing::Pim::Packet::BootstrapMessage& message);
  /// To be called before the gate gets a Bootstrap Message.
  void prepare(Routing::Pim::Packet::BootstrapMessage const& message);
  /// To be called for a Bootstrap Message that the gate has accepted.
  void handleAccepted(Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> const& message);
  /// To be called for an advertisement that the gate has accepted.
  void handleAccepted(Routing::Pim::Packet::CrpAdvMessage const& message);
  /// To be called when the message that a zone's machine keeps is forgotten.
  void handleForgotten(Lanet::IpGenPrefix const& zone) { pieces_.forget(zone); }

 private:
  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  pim::IoManager& io_;
  Mtus& mtus_;
  CorrectionSwitch const& cutBySize_;
  Borders borders_;
  HoldOver holdOver_;
  MessageFit fit_;
  BsmPieces pieces_;
  BsmIngress ingress_;
  BsmEgress egress_;
  Zet::Ptr<Advertisements> advertisements_;
  Zet::Ptr<RangeWithdrawal> withdrawal_;
  Zet::Ptr<LeakedZones> leaked_;
  Zet::Ptr<CandidacyChanges> candidacies_;
};

/// Has the RPs of a kept status tree age: their timers are armed, and what PIM reads is written from them.
/// To be called once the machines run.
PIMBSR_INTERNAL void resumeKept(Routing::Pim::Bsr::Status const& status, CorrectionSwitch& correction);

}  // namespace pimbsr::host
