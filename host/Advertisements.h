#pragma once

#include <span>
#include <vector>

#include "crp/RpCandidateSm.h"
#include "host/Corrections.h"
#include "host/Mtus.h"
#include "model/MsgStatus.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

/// Sends what the candidate RPs' machines leave out: they put up to wire::maxPrefixCount group ranges of a
/// zone into one advertisement and no more.
///
/// An advertisement of a machine is cut to what its message may hold, and the machine's other ranges of the
/// zone follow in messages of their own, whether it advertises or withdraws.
class PIMBSR_INTERNAL Advertisements : public Routing::Pim::Bsr::PimCrpMsgStatus::Notifiee {
 public:
  /// To be made after the gate, which sends a message before what follows it. All are used until it is
  /// stopped.
  Advertisements(Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> const& root, Mtus const& mtus,
                 CorrectionSwitch& allRanges);
  /// Ends it. To be called before the machines end.
  void stop();

  /// Sends an advertisement with holdtime 0 for some ranges of a zone, to its BSR if there is one.
  void withdraw(Routing::Pim::Bsr::RpCandidateSm const& machine, Lanet::IpGenPrefix const& zone,
                std::span<Lanet::IpGenPrefix const> ranges);

  void onTxCrpMsg() override;
  void onWriteCount() override;

 private:
  using Message = Routing::Pim::Packet::CrpAdvMessage;

  Zet::Ptr<Routing::Pim::Bsr::RpCandidatePrefixSet> advertised(Message const& message) const;
  U32 maxRanges() const;
  void send(Message const& like, std::span<Lanet::IpGenPrefix const> ranges);

  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  Mtus const& mtus_;
  CorrectionSwitch& allRanges_;
  std::vector<Lanet::IpGenPrefix> following_;  ///< ranges that the message about to be sent leaves out
  bool isSending_ = false;                     ///< the message about to be sent is of this object
};

}  // namespace pimbsr::host
