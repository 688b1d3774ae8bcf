#pragma once

#include <span>

#include "host/Observer.h"
#include "host/Reception.h"
#include "model/Values.h"
#include "runtime/Context.h"
#include "sim/Link.h"
#include "sim/PacketPool.h"

namespace pimbsr::sim {

class Network;
class Node;
struct NodeInterface;

/// The kinds of events that can be heard of, as bits of a set.
enum Kind : U32 {
  elections = 1,   ///< who is the BSR of a zone
  rps = 2,         ///< RPs that come, change and go
  drops = 4,       ///< messages dropped
  repeats = 8,     ///< drops of which the same router, reason and source were reported before
  received = 16,   ///< messages accepted
  sent = 32,       ///< packets sent
  neighbors = 64,  ///< neighbors, and who is the Designated Router
  states = 128,    ///< states of the election at a candidate
  losses = 256,    ///< packets that did not arrive
  commands = 512,  ///< statements that change the network once it runs
  /// routers that start and end, links that go up and down
  availability = 1024
};
using Kinds = U32;

/// Receives the events of a network, at the time that Network::now() gives. It must not change the network.
class Listener {
 public:
  virtual ~Listener() = default;
  /// The changes of a router's learned state by one event.
  virtual void onChanges(Node const&, std::span<host::Change const>) {}
  /// A message that a router received, before the changes that it caused.
  virtual void onReception(Node const&, NodeInterface const&, host::Reception const&) {}
  /// A packet that a router sends or passes on along a link.
  virtual void onSent(Node const&, NodeInterface const&, Bytes) {}
  /// A neighbor that came, or went.
  virtual void onNeighbor(Node const&, NodeInterface const&, Lanet::IpGenAddr const&, bool /*up*/) {}
  /// Another Designated Router of an interface.
  virtual void onDr(Node const&, NodeInterface const&, Lanet::IpGenAddr const& /*dr*/) {}
  /// The candidate machine of a zone is in another state than after the event before.
  virtual void onState(Node const&, Lanet::IpGenPrefix const& /*zone*/,
                       Routing::Pim::Bsr::BsrCandidateState) {}
  /// The candidate machine of a zone was removed while its router runs on.
  virtual void onStateEnd(Node const&, Lanet::IpGenPrefix const& /*zone*/) {}
  /// A router starts, is made without a start, or has ended: then it has lost all that it had learned.
  virtual void onRunning(Node const&, bool /*running*/) {}
  /// A link is made, which is up then, goes down or comes up.
  virtual void onLink(Network const&, U32 /*link*/, bool /*up*/) {}
  /// A packet that did not get along a link, or that a router could not put on one; null where it was not
  /// lost there.
  virtual void onLoss(Network const&, Link const*, Node const*, Loss, Bytes) {}
  /// Trace and log of the engine; these don't depend on the kinds.
  virtual void onTrace(Node const&, Zet::TraceLine const&) {}
  virtual void onLog(Node const&, Zet::LogHandle const&, std::string const&) {}
};

/// Receives every packet that is put on a link, once, whether or not it is delivered.
class Tap {
 public:
  virtual ~Tap() = default;
  virtual void onPacket(U32 link, double time, Bytes packet) = 0;
};

}  // namespace pimbsr::sim
