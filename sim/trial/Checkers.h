#pragma once

#include <map>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "sim/Network.h"
#include "sim/Simulation.h"
#include "sim/trial/Configured.h"
#include "sim/trial/Findings.h"

/// Checks of the state of a network. The expected state follows from the configuration and from what is up,
/// not from the state machines.
namespace pimbsr::sim {

/// An RP of a zone as all routers of a part must know it: range, address, priority, holdtime in seconds.
using KnownRp = std::tuple<Lanet::IpGenPrefix, Lanet::IpGenAddr, U32, U32>;

/// An RP of a group range.
using RangeRp = std::pair<Lanet::IpGenPrefix, Lanet::IpGenAddr>;

/// The running routers of a network that flood one zone's messages to each other, over links that are up and
/// interfaces that are no border of exactly that zone (RFC 5059 section 1.3).
class ZoneParts {
 public:
  /// What the routers are configured to do, by number, outlives it.
  ZoneParts(Network const& network, std::vector<Configured> const& configured,
            Lanet::IpGenPrefix const& zone);

  Lanet::IpGenPrefix const& zone() const { return zone_; }
  /// The parts, each as the ascending numbers of its routers.
  std::vector<std::vector<U32>> const& parts() const { return parts_; }
  /// The candidate that must be BSR of the part of a router, by priority and then address (RFC 5059 section
  /// 3.1.2); null if the part has none, or the router doesn't run.
  host::BsrCandidacy const* bsrOf(U32 node) const;
  /// The number of the router whose candidacy bsrOf() is.
  U32 bsrNodeOf(U32 node) const;

 private:
  static constexpr U32 none = ~U32{0};
  struct Leader {
    U32 node = none;
    host::BsrCandidacy const* candidacy = nullptr;
  };

  void join(Network const& network, std::vector<Configured> const& configured);
  void elect(std::vector<Configured> const& configured);

  Lanet::IpGenPrefix zone_;
  std::vector<U32> partOf_;  ///< by router
  std::vector<std::vector<U32>> parts_;
  std::vector<Leader> leaders_;  ///< by part
};

/// The BSR and the RP set that every router must have learned once nothing has changed for BS_Timeout and
/// three holdtimes of RPs.
class Expectation {
 public:
  explicit Expectation(Network const& network);
  Expectation(Expectation const&) = delete;
  Expectation& operator=(Expectation const&) = delete;

  /// Compares every running router with it: in each part one elected BSR, the best candidate, and the same RP
  /// set everywhere, that of the candidate RPs that run, with the BSR's hash mask length; and PIM reads of
  /// each group range what its longest zone with a BSR has.
  Findings check() const;
  /// Compares the RP that every running router uses for these groups with the one that the hash of the
  /// expected RPs gives (RFC 7761 section 4.7).
  Findings checkServed(std::span<Lanet::IpAddr const> groups) const;
  /// Group ranges that a running router holds without an RP. Where all routers are corrected there are none
  /// (docs/corrections.md: withdrawals-last, repeat-withdrawal).
  Findings checkRanges() const;
  /// Whether one running router has the BSR of some zones, and all RPs that the zones must have. It may have
  /// more: one that starts advertises its ranges to the BSR of a wider zone until it knows theirs.
  Findings checkLearned(U32 node, std::span<Lanet::IpGenPrefix const> zones) const;
  std::vector<ZoneParts> const& zones() const { return zones_; }
  /// The parts of a zone; null if none is configured or learned.
  ZoneParts const* partsOf(Lanet::IpGenPrefix const& zone) const;
  Configured const& configured(U32 node) const { return configured_[node]; }
  /// Whether a router must have a BSR of a zone.
  bool hasBsr(U32 node, Lanet::IpGenPrefix const& zone) const;
  /// The RP that a router must use for a group; empty for none.
  Lanet::IpGenAddr rpOf(U32 node, Lanet::IpAddr group) const;
  /// The RPs that a router must know of the ranges that cover a group.
  std::set<RangeRp> rpsFor(U32 node, Lanet::IpAddr group) const;

 private:
  void findZones();
  void findRps();
  ZoneParts const* zoneFor(U32 node, Lanet::IpGenPrefix const& range) const;
  bool checkBsr(ZoneParts const& zone, U32 number, Findings& findings) const;
  /// RPs that a router has and must not have.
  enum class Extra : U8 { found, leftOut };
  std::set<KnownRp> const& rpsOf(ZoneParts const& zone, U32 node) const;
  void checkRps(ZoneParts const& zone, U32 number, Extra extra, Findings& findings) const;
  void checkHash(ZoneParts const& zone, U32 number, Findings& findings) const;
  void checkExpiry(ZoneParts const& zone, U32 number, Findings& findings) const;
  void checkBsrTerms(ZoneParts const& zone, U32 number, Findings& findings) const;
  void checkStatus(U32 number, Findings& findings) const;
  void checkRead(U32 number, Findings& findings) const;
  void checkElected(ZoneParts const& zone, Findings& findings) const;

  Network const& network_;
  std::vector<Configured> configured_;  ///< by router
  std::vector<ZoneParts> zones_;
  /// The RPs that a BSR must announce, by zone and the BSR's router.
  std::map<std::pair<Lanet::IpGenPrefix, U32>, std::set<KnownRp>> rps_;
};

/// The RP that a running router uses for a group, and its range; empty for none.
RangeRp usedRp(Network const& network, Node const& node, Lanet::IpAddr group);
/// The RP alone.
Lanet::IpGenAddr servingRp(Network const& network, Node const& node, Lanet::IpAddr group);

/// Zones of which a router must know the BSR right after its restart: those of which a neighbor that is DR
/// of a shared link holds a message, where no border lies between them (RFC 5059 section 3.5). Zones for
/// which it is a candidate itself are left out. To be asked before the restart.
std::vector<Lanet::IpGenPrefix> zonesToLearn(Expectation const& expectation, Network const& network,
                                             U32 node);

/// Watches that no router sends a packet of its own that is longer than its link's MTU.
class SizeWatch {
 public:
  void onLoss(Network const& network, Node const* node, Loss loss, Bytes packet);
  Findings const& findings() const { return findings_; }

 private:
  Findings findings_;
};

/// Watches that no message is sent over an interface that is closed for its zone, nor accepted there.
class BorderWatch {
 public:
  void onSent(Network const& network, Node const& node, NodeInterface const& intf,
              Routing::Pim::Packet::BootstrapMessage const& message);
  void onReception(Network const& network, Node const& node, NodeInterface const& intf,
                   host::Reception const& reception);
  Findings const& findings() const { return findings_; }

 private:
  void validate(Network const& network, Node const& node, NodeInterface const& intf,
                Routing::Pim::Packet::BootstrapMessage const& message, char const* verb);

  Findings findings_;
};

}  // namespace pimbsr::sim
