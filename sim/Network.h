#pragma once

#include <deque>
#include <memory>
#include <set>
#include <vector>

#include "sim/EventQueue.h"
#include "sim/Link.h"
#include "sim/Listener.h"
#include "sim/Medium.h"
#include "sim/Node.h"
#include "sim/PacketPool.h"
#include "sim/Random.h"
#include "sim/Routes.h"
#include "sim/Wakeups.h"

namespace pimbsr::sim {

/// Many routers on links, in virtual time.
///
/// Routers exchange bytes and nothing else. A packet for a multicast group goes to all others on its link,
/// and one for a single address is passed on hop by hop along the routes of each router, its time to live
/// counted down. Time jumps from event to event: what is due at one time comes in the order packets, then
/// timers, the timers in the order of the routers' numbers. All random numbers come from the seed, so that
/// the same seed and the same calls give the same course, byte for byte.
///
/// Routers and links are known by their numbers, which count from 0 in the order in which they were added.
/// None is ever removed.
class Network final : public Medium {
 public:
  explicit Network(U64 seed);
  ~Network();

  U32 addLink(LinkOptions const& options);
  /// Adds a router, which starts at once unless `started` is false.
  U32 addNode(NodeOptions const& options, bool started = true);
  /// Attaches a router to a link; gives the number of the interface.
  U32 attach(U32 node, U32 link, InterfaceOptions const& options);

  U32 nodeCount() const { return static_cast<U32>(nodes_.size()); }
  Node& node(U32 number) { return nodes_[number]; }
  Node const& node(U32 number) const { return nodes_[number]; }
  U32 linkCount() const { return static_cast<U32>(links_.size()); }
  /// Sets the bounds and checks of all routers, those to come included.
  void ingressIs(host::IngressSettings const& ingress);
  /// Sets the checks of all routers, and leaves the bounds.
  void checksAre(host::IngressSettings const& checks);
  /// Sets one bound of all routers, those to come included; 0 for none.
  void limitIs(U32 host::IngressSettings::*limit, U32 value);
  /// Sets the corrections of all routers, those to come included.
  void correctionsAre(host::CorrectionSettings const& settings);

  /// Takes a link down for all that are attached, or up again: their interfaces come and go with it.
  void linkUpIs(U32 number, bool up);
  void faultsIs(U32 link, Faults const& faults) { links_[link].options.faults = faults; }
  /// Takes down every link that joins a router of the set to one that is not in it.
  void partition(std::set<U32> const& nodes);
  /// Takes all links up.
  void heal();

  /// Puts a packet on a link, as a host does that is no router of this network. A packet for a single
  /// address goes to its owner on the link, else to the first running router there.
  void inject(U32 number, Bytes packet);

  /// Bounds the packets that may be put on one link within a second; 0, as at first, for no bound.
  void stormLimitIs(U32 packets) { stormLimit_ = packets; }
  /// Which link has had more than that, and when; empty for none. Time doesn't advance from then on.
  std::string const& storm() const { return storm_; }

  /// Seconds until unicast routing notices that a link or a router came or went; 1 at first. Links and
  /// routers that are made before the clock runs are noticed at once.
  void convergenceIs(double seconds) { convergence_ = seconds; }

  /// When the next event is due; Kiv::never if nothing will ever happen again.
  double nextEvent() const;
  /// Runs one event if one is due not after `time`; false if none is.
  bool step(double time);
  /// Runs what is due up to and including `time`, and moves the clock there.
  void runTo(double time);
  /// Number of events run so far.
  U64 events() const { return events_; }

  /// Sets the listener and the kinds of events that it receives; null for none. The listener outlives the
  /// network or is removed before.
  void listenerIs(Listener* listener, Kinds kinds);
  /// Adds a tap, which receives packets after those added before. It is used while the network runs,
  /// and not by its end.
  void tapAdd(Tap* tap) { taps_.push_back(tap); }

  /// Resets the packet counts of routers; of all if none is given.
  void packetCountsClear(std::span<U32 const> nodes);

  /// Exceptions caught inside the engine, of all routers; 0 unless the engine has an error.
  U64 exceptions() const;

 private:
  /// A packet that arrives at an interface.
  struct Arrival {
    PacketPool::Handle packet;
    Attachment at;
  };

  // For the routers.
  bool transmit(Node& node, Lanet::IntfId const& intfId, Bytes packet) override;
  void wakeupIs(Node const& node, double time) override;
  void topologyChanged() override;
  void destinationIs(Lanet::IpGenAddr const& address, U32 owner) override;
  void staticRoutesChanged() override { newDestinations_ = true; }
  void routesForget(U32 node) override { routes_.forget(node); }

  bool route(Node& node, Bytes packet);
  bool putOnLink(Node& node, U32 intf, Bytes packet, Lanet::IpAddr nextHop);
  void countForStorm(Link& link);
  void deliver(U32 number, Bytes packet, Lanet::IpAddr nextHop, U32 sender);
  void handOver(U32 number, U32 place, PacketPool::Handle packet);
  void schedule(Link& link, U32 place, PacketPool::Handle packet);
  PacketPool::Handle damagedCopy(PacketPool::Handle packet);
  void arrive(Arrival const& arrival);
  void forward(Node& node, Bytes packet);
  void lost(Link const* link, Node const* node, Loss loss, Bytes packet);

  Rng rng_;
  U64 events_ = 0;
  std::deque<Node> nodes_;
  EventQueue<Arrival> arrivals_;
  Wakeups wakeups_;
  PacketPool packets_;
  Routes routes_;
  double convergence_ = 1;
  double convergesAt_ = Kiv::never;
  bool newDestinations_ = false;
  std::vector<U8> forwarded_;
  std::vector<U8> damaged_;
  U32 stormLimit_ = 0;
  std::string storm_;
  std::vector<Tap*> taps_;
};

}  // namespace pimbsr::sim
