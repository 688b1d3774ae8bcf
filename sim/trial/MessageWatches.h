#pragma once

#include <map>
#include <set>
#include <tuple>

#include "sim/trial/Checkers.h"

namespace pimbsr::sim {

using Routing::Pim::Packet::BootstrapMessage;

/// One fragment of a Bootstrap Message, or a whole one, as a packet.
struct BsmPacket {
  BootstrapMessage const& message;
  std::size_t size = 0;  ///< bytes, the IPv4 header included
  Bytes bytes = {};      ///< of a packet that was sent
};

/// Watches that routers pass Bootstrap Messages on once (RFC 5059 section 3.4): for each packet that a router
/// accepts it sends one on each link, or as many as a link of a smaller MTU needs; and a BSR sends each of
/// its own messages at one time, no packet of it twice. Messages to new neighbors are left out.
class FloodWatch {
 public:
  void onSent(Network const& network, Node const& node, NodeInterface const& intf, BsmPacket const& packet);
  void onAccepted(Network const& network, Node const& node, BsmPacket const& packet);
  /// To be called for a router that starts or ends: it knows of no message.
  void onRunning(Node const& node);
  Findings const& findings() const { return findings_; }
  /// Number of messages that are watched, each counted for each router.
  std::size_t count() const { return flooded_.size(); }

 private:
  /// Router, zone, BSR and fragment tag.
  using Key = std::tuple<U32, Lanet::IpGenPrefix, Lanet::IpGenAddr, U16>;
  struct Flooded {
    double at = 0;                    ///< when its last packet came, or its first was sent by the BSR
    std::vector<std::size_t> sizes;   ///< of the packets that came
    std::map<U32, std::size_t> sent;  ///< packets by link
    std::set<std::pair<U32, std::vector<U8>>> own;  ///< link and bytes of those that the BSR sent
    bool isReported = false;
  };

  bool isOwn(Node const& node, BootstrapMessage const& message);
  static char const* ownFault(Flooded& flooded, double now, U32 link, Bytes packet);
  void prune(double now);

  std::map<Key, Flooded> flooded_;
  std::set<std::pair<U32, Lanet::IpGenAddr>> bsrs_;  ///< router and address of those that have sent their own
  std::size_t pruneAt_ = 1024;                       ///< entries
  Findings findings_;
};

/// Watches that a BSR sends no two messages of a zone within BS_Min_Interval (RFC 5059 section 5), by its own
/// clock. The answer to a weaker candidate is left out (section 3.1.1), and a message that an operator
/// causes. A router without the check not-own-bsr answers its own message of before its priority was
/// raised too. A candidacy ends with a message; one that begins after it sends its first at any time.
class PaceWatch {
 public:
  void onSent(Network const& network, Node const& node, BootstrapMessage const& message);
  /// To be called for each message that a router receives, before what it sends for that.
  void onReceived(Network const& network, Node const& node, BootstrapMessage const& message);
  /// To be called when an operator changes something.
  void onCommand(Network const& network) { commandAt_ = network.now(); }
  /// To be called for a router that starts or ends.
  void onRunning(Node const& node);
  Findings const& findings() const { return findings_; }

 private:
  struct Sent {
    U16 tag = 0;
    double at = 0;           ///< by the router's clock
    double answeredAt = -1;  ///< when a message came last that it may answer, by that of the network
  };

  std::map<std::pair<U32, Lanet::IpGenPrefix>, Sent> sent_;  ///< by router and zone
  double commandAt_ = -1;
  Findings findings_;
};

/// Watches that a router with quick-relearn sends new neighbors on a link what it knows at one time, and not
/// again within Triggered_Hello_Delay (RFC 7761 section 4.11), by its own clock.
class AnswerWatch {
 public:
  void onSent(Network const& network, Node const& node, NodeInterface const& intf,
              BootstrapMessage const& message);
  /// To be called for a router that starts or ends: its interfaces begin anew.
  void onRunning(Node const& node);
  /// To be called for a link that goes down or comes up: the interfaces on it begin anew.
  void onLink(U32 link);
  Findings const& findings() const { return findings_; }

 private:
  std::map<std::pair<U32, U32>, double> sent_;  ///< when a router sent last on a link, by its clock
  Findings findings_;
};

}  // namespace pimbsr::sim
