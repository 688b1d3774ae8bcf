#pragma once

#include <map>
#include <optional>
#include <set>
#include <utility>

#include "host/Corrections.h"
#include "host/KeptRps.h"
#include "host/RpView.h"
#include "pim/Timer.h"
#include "protocol/PimBsrSm.h"

namespace pimbsr::host {

using Zet::U64;

/// Keeps RPs in the set that PIM reads which an election takes out of a zone's RP set: the elected BSR
/// changes, and the RPs live on (RFC 5059 section 3.1.1). The RPs of a group range are kept until the new
/// BSR's message names the range with an RP, so that all routers switch by the same message, or until their
/// holdtime ends.
///
/// An RP that its BSR, an operator or a border removes is not kept. Kept RPs are few: they count in the bound
/// of RPs, and make room for RPs of the new BSR. Each change of one costs O(log n) of the kept RPs and a look
/// into each zone.
class PIMBSR_INTERNAL HoldOver final : public KeptRps {
 public:
  using Message = Routing::Pim::Packet::BootstrapMessage;

  /// Both are used until it is stopped. To be made after the root machine.
  HoldOver(Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> const& root, CorrectionSwitch& correction);
  /// Keeps what a former run left in the set that PIM reads, and no zone has.
  void takeUp();
  /// Ends it; what is kept stays where it is. To be called before the machines end.
  void stop();

  // Events. RPs that were not kept by then stay as they are.

  /// To be called before an election clears a zone's RP set.
  void handleElection(Lanet::IpGenPrefix const& zone);
  /// To be called once an RP of a zone's set is written to the set that PIM reads: it is kept no longer.
  void handleMirrored(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp);
  /// To be called before the gate gets a Bootstrap Message.
  void prepare(Message const& message);
  /// To be called once the gate has accepted it.
  void handleAccepted(Message const& message);
  /// To be called once this router has sent a message as the BSR of a zone.
  void handleOriginated(Lanet::IpGenPrefix const& zone, Message const& message);
  /// Removes a kept RP of a zone, since it is withdrawn; false if there is none.
  bool withdraw(Lanet::IpGenPrefix const& zone, Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp);
  /// Removes all kept RPs of a zone.
  void drop(Lanet::IpGenPrefix const& zone);
  /// To be called after the switch has changed: turned off, nothing is kept.
  void handleSwitch();
  /// Removes kept RPs, those first that expire first, until `count` are gone or none is left; returns how
  /// many.
  U64 makeRoom(U64 count);

  /// Whether RPs of a group range are kept, or one of them.
  bool keeps(Lanet::IpGenPrefix const& range) const { return ranges_.contains(range); }
  bool keeps(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) const override;
  U64 count() const { return byExpiry_.size(); }
  /// Calls `found(view)` for each kept RP of a zone, by range and address.
  template <class Found>
  void forEach(Lanet::IpGenPrefix const& zone, Found const& found) const {
    for (auto const& [range, kept] : ranges_) {
      if (kept.zone != zone) continue;
      for (auto const& [rp, view] : kept.rps) found(view);
    }
  }
  /// The zone of which RPs of a group range are kept, if any are.
  std::optional<Lanet::IpGenPrefix> keptZone(Lanet::IpGenPrefix const& range) const;
  /// The zones of which RPs are kept.
  std::set<Lanet::IpGenPrefix> zones() const;
  void sinkIs(KeptRpSink* sink) override { sink_ = sink; }

 private:
  using Key = std::pair<Lanet::IpGenPrefix, Lanet::IpGenAddr>;  ///< group range and RP
  struct Range {
    Lanet::IpGenPrefix zone;  ///< whose set they were in
    std::map<Lanet::IpGenAddr, RpView> rps;
  };
  using Ranges = std::map<Lanet::IpGenPrefix, Range>;
  enum class End { named, expired, removed };

  Zet::Ptr<Routing::Pim::RpCandidateSet> mirror(Lanet::IpGenPrefix const& range) const;
  std::optional<RpView> viewOf(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& rp) const;
  bool isHeldByNarrower(Lanet::IpGenPrefix const& zone, Key const& key) const;
  Zet::Ptr<Routing::Pim::RpCandidateSet> setOfBestZone(Lanet::IpGenPrefix const& range) const;
  bool isKept(Lanet::IpGenPrefix const& zone, Key const& key) const;
  bool keep(Lanet::IpGenPrefix const& zone, Key const& key);
  void forget(Ranges::iterator range, Lanet::IpGenAddr const& rp);
  void remove(Key const& key, End end);
  void release(Lanet::IpGenPrefix const& zone, Lanet::IpGenPrefix const& range, End end);
  Lanet::IpGenPrefix narrowestZone(Lanet::IpGenPrefix const& range) const;
  void noteHeard(Lanet::IpGenPrefix const& zone);
  double endOf(Lanet::IpGenPrefix const& zone, RpView const& view) const;
  void keepFormer(Lanet::IpGenPrefix const& zone, Message const& message);
  void handleExpiry();
  void arm();

  Zet::Ptr<Routing::Pim::Bsr::PimBsrSm> root_;
  CorrectionSwitch& correction_;
  KeptRpSink* sink_ = nullptr;
  Zet::Ptr<pim::Timer> timer_;
  Ranges ranges_;
  std::set<std::pair<double, Key>> byExpiry_;
  std::map<Lanet::IpGenPrefix, double> heard_;  ///< when the BSR of a zone was heard last
  Lanet::IpGenAddr bsrBefore_;  ///< of the message in hand: the zone's BSR before the gate got it
};

}  // namespace pimbsr::host
