#include "host/BsmEgress.h"

#include "host/BsmCutter.h"
#include "host/Zones.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;

BsmEgress::BsmEgress(Bsr::Status const& status, pim::Port const& port, Mtus const& mtus,
                     Borders const& borders, BsmPieces const& pieces, BsmPolicy const& policy,
                     CorrectionSwitches& switches)
    : status_(status),
      port_(port),
      mtus_(mtus),
      borders_(borders),
      pieces_(pieces),
      policy_(policy),
      own_(switches.of(&CorrectionSettings::rangeFull), switches.of(&CorrectionSettings::repeatWithdrawal)),
      coveringBorder_(switches.of(&CorrectionSettings::coveringBorder)),
      cutBySize_(switches.of(&CorrectionSettings::cutBySize)),
      expiredBsr_(switches.of(&CorrectionSettings::expiredBsr)) {}

/// The machine of a zone keeps its last message when BS_Timeout ends (RFC 5059 section 3.1.2), until another
/// BSR's message comes or SZ_Timeout ends.
bool BsmEgress::isKeptBack(Lanet::IntfId const& intfId, Message const& message) {
  Lanet::IpGenPrefix zone = zoneOf(*message);
  if (borders_.isCovered(zone, intfId)) {
    coveringBorder_.noteAct();
    return true;
  }
  if (!expiredBsr_.isOn() || message->forward() || status_.bootstrapRouter(zone)) return false;
  expiredBsr_.noteAct();
  return true;
}

/// Only whole messages are corrected, and without cut-by-size the machines cut them before. A No-Forward
/// message is what a new neighbor gets of a zone, whose fragments it needs all.
std::span<BsmEgress::Message const> BsmEgress::messagesFor(Lanet::IntfId const& intfId,
                                                           Message const& message) {
  messages_.clear();
  if (policy_.closed.contains(intfId) || isKeptBack(intfId, message)) return {};
  U32 mtu = mtus_.of(intfId);
  if (cutBySize_.isOn() && port_.isOwnAddress(message->bsrAddress())) {
    add(own_.correct(message), mtu);
    return messages_;
  }
  std::span<Message const> pieces;
  if (cutBySize_.isOn() && !message->forward()) pieces = pieces_.fragmentsOf(message);
  if (pieces.size() > 1) cutBySize_.noteAct();
  for (Message const& piece : pieces) {
    piece->forwardIs(false);
    add(piece, mtu);
  }
  if (pieces.empty()) add(message, mtu);
  return messages_;
}

void BsmEgress::add(Message const& message, U32 mtu) {
  bool fits = !cutBySize_.isOn() || encodedSize(*message) + ipHeaderSize <= mtu;
  if (fits) return messages_.push_back(message);
  cutBySize_.noteAct();
  for (Message const& fragment : cut(*message, mtu - ipHeaderSize)) messages_.push_back(fragment);
}

}  // namespace pimbsr::host
