#pragma once

#include <map>
#include <utility>

#include "host/Corrections.h"
#include "model/Packet.h"
#include "protocol/PimBsrSm.h"
#include "runtime/MeteredLess.h"

namespace pimbsr::host {

/// Corrects what a router says as BSR: at most wire::maxRpCount RPs of a range are announced, and a
/// withdrawn RP is named in two further messages, since one may be lost.
class PIMBSR_INTERNAL OwnMessages {
 public:
  using Message = Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>;

  static constexpr U32 repetitions = 2;  ///< of a withdrawal

  /// Both outlive this object.
  OwnMessages(CorrectionSwitch& rangeFull, CorrectionSwitch& repeatWithdrawal)
      : rangeFull_(rangeFull), repeatWithdrawal_(repeatWithdrawal) {}

  /// What is sent in place of a message of this router as BSR, which may be sent several times; itself where
  /// nothing is to be corrected.
  Message correct(Message const& own);
  /// Has the next messages of a zone name a withdrawn RP that its set doesn't have, unless it is back.
  void repeatWithdrawal(Lanet::IpGenPrefix const& zone, Lanet::IpGenPrefix const& range,
                        Lanet::IpGenAddr const& rp);
  /// Repeats no withdrawal of a zone that was named before now: the RP may be back under another BSR.
  void forgetWithdrawals(Lanet::IpGenPrefix const& zone);

 private:
  using RpKey = std::pair<Lanet::IpGenPrefix, Lanet::IpGenAddr>;  ///< group range and RP
  /// What is known of one zone's messages.
  struct Zone {
    Message last;                                      ///< the machine's last message
    Message corrected;                                 ///< what is sent in its place; null for itself
    std::map<RpKey, U32, Zet::Meter::Less> withdrawn;  ///< how often each is to be named again
  };

  Message announceFewer(Message const& message);
  Message repeat(Zone& zone, Message const& message);
  void noteWithdrawals(Zone& zone, Routing::Pim::Packet::BootstrapMessage const& message) const;

  CorrectionSwitch& rangeFull_;
  CorrectionSwitch& repeatWithdrawal_;
  std::map<Lanet::IpGenPrefix, Zone> zones_;  ///< zones of which this router was BSR
};

}  // namespace pimbsr::host
