#pragma once

#include <map>

#include "host/IngressSettings.h"
#include "host/RateLimit.h"
#include "model/DropReason.h"
#include "pim/NeighborTable.h"
#include "wire/Wire.h"

namespace pimbsr::host {

/// Whose budget a packet is charged to. The classes are kept apart so that forged packets of one don't
/// displace honest ones of another.
enum class SenderClass : U8 {
  neighbor,      ///< link-local packets of one neighbor, by any of its addresses
  unknownHello,  ///< Hellos of all other addresses of one interface
  advertiser,    ///< packets to a unicast address, as advertisements are, of all interfaces
  rest           ///< all other packets of one interface
};

/// The buckets of the neighbors of one interface, which follow its status, whoever writes that.
class PIMBSR_INTERNAL NeighborBuckets : public Routing::Pim::Intf::NotifieeConst {
 public:
  explicit NeighborBuckets(Zet::Ptr<Routing::Pim::Intf const> const& intf) { notifierIs(intf); }

  TokenBucket& bucket(Lanet::IpGenAddr const& address, double now) { return buckets_.bucket(address, now); }
  void onNeighbor(Lanet::IpGenAddr const& address) override;

 private:
  AddressBuckets buckets_;
};

/// The packets per second that are read of each class of senders, as far as a IngressSettings bounds them.
///
/// A packet is charged once its IP header is read and before anything else of it is. Each charge costs
/// O(log n) of the interfaces, neighbors and senders known.
class PIMBSR_INTERNAL Budgets {
 public:
  /// Both are used for as long as this object is.
  Budgets(pim::NeighborTable const& neighbors, IngressSettings const& settings)
      : neighbors_(neighbors), settings_(settings) {}

  /// The class of a packet that has passed the checks of its IP header. One to a unicast address could have
  /// been routed here, so that its source proves no neighbor.
  SenderClass classOf(Lanet::IntfId const& intfId, wire::Ipv4Packet const& packet) const;
  /// What a packet of so many bytes after its IP header costs: as many packets as it needs on Ethernet, so
  /// that one put together from IP fragments gains nothing.
  static U32 costOf(std::size_t bytes) { return static_cast<U32>(1 + bytes / 1500); }
  /// Charges a packet to its class. Returns none, or the reason of the budget that is used up. The source is
  /// used for neighbors and advertisers alone.
  DropReason charge(Lanet::IntfId const& intfId, SenderClass senderClass, Lanet::IpAddr source, U32 cost = 1);
  /// To be called for a charged packet that turned out malformed: damaged Hellos leave the budget of Hellos
  /// alone as long as the rest can pay for them.
  void handleMalformed(Lanet::IntfId const& intfId, SenderClass senderClass);
  /// To be called for each advertisement that was accepted; holdtime in seconds, 0 withdraws.
  void noteAdvertiser(Lanet::IpGenAddr const& sender, U16 holdtime);
  /// The senders of advertisements, as of Advertisers.
  std::vector<Lanet::IpGenAddr> steadyAdvertisers(std::size_t max) const { return advertisers_.steady(max); }
  bool takeAdvertisersChanged();
  /// To be called when an interface has gone.
  void forget(Lanet::IntfId const& intfId) { links_.erase(intfId); }

 private:
  struct Link {
    explicit Link(double now) : rest(now), unknownHello(now) {}
    TokenBucket rest;
    TokenBucket unknownHello;
    Zet::Ptr<NeighborBuckets> neighbors;  ///< null before the first packet of a neighbor
  };

  Link& link(Lanet::IntfId const& intfId);
  static NeighborBuckets& neighborBuckets(Link& link, Zet::Ptr<Routing::Pim::Intf const> const& intf);
  DropReason chargeRest(Link& link, U32 cost);
  DropReason chargeNeighbor(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& source, U32 cost);
  DropReason chargeAdvertiser(Lanet::IpGenAddr const& source, U32 cost);

  pim::NeighborTable const& neighbors_;
  IngressSettings const& settings_;
  std::map<Lanet::IntfId, Link> links_;  ///< made with an interface's first packet
  TokenBucket advertisements_{0};
  Advertisers advertisers_;
};

}  // namespace pimbsr::host
