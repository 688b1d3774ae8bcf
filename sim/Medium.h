#pragma once

#include <deque>

#include "host/Corrections.h"
#include "host/IngressSettings.h"
#include "model/Lanet.h"
#include "sim/Link.h"
#include "sim/Listener.h"

namespace pimbsr::sim {

/// A network as its routers use it: its clock and links, which they read, and the calls by which they send
/// and report changes. It outlives them.
class Medium {
 public:
  Medium(Medium const&) = delete;
  Medium& operator=(Medium const&) = delete;

  U64 seed() const { return seed_; }
  /// Seconds since the start.
  double now() const { return now_; }
  Link const& link(U32 number) const { return links_[number]; }
  /// The bounds and checks of every router that is made from now on; at first the standard bounds and no
  /// check.
  host::IngressSettings const& ingress() const { return ingress_; }
  /// The corrections of every router that is made from now on; at first none.
  host::CorrectionSettings const& corrections() const { return corrections_; }
  Listener* listener() const { return listener_; }
  /// The listener if it is registered for any of these kinds; else null.
  Listener* listenerFor(Kinds kinds) const { return (kinds_ & kinds) != 0 ? listener_ : nullptr; }

 protected:
  explicit Medium(U64 seed) : seed_(seed) {}
  ~Medium() = default;

  U64 seed_;
  double now_ = 0;
  std::deque<Link> links_;
  host::IngressSettings ingress_ = host::standardLimits;
  host::CorrectionSettings corrections_;
  Listener* listener_ = nullptr;
  Kinds kinds_ = 0;

 private:
  friend class Node;

  /// Sends a packet of a router: a multicast one along an interface, any other along its route. False if it
  /// can't be put on a link.
  virtual bool transmit(Node& node, Lanet::IntfId const& intfId, Bytes packet) = 0;
  /// Sets the time at which the router's timers run next; Kiv::never for none.
  virtual void wakeupIs(Node const& node, double time) = 0;
  /// A router has started or ended.
  virtual void topologyChanged() = 0;
  /// Routes must lead to an address of a router.
  virtual void destinationIs(Lanet::IpGenAddr const& address, U32 owner) = 0;
  /// A router's static routes have changed.
  virtual void staticRoutesChanged() = 0;
  /// A router has ended, and with it its routes.
  virtual void routesForget(U32 node) = 0;
};

}  // namespace pimbsr::sim
