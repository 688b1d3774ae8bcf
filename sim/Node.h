#pragma once

#include <array>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/Candidacy.h"
#include "host/ConfigTree.h"
#include "host/Observer.h"
#include "host/Router.h"
#include "pim/Port.h"
#include "runtime/Context.h"
#include "sim/Link.h"
#include "sim/Listener.h"
#include "sim/Random.h"
#include "sim/Route.h"

namespace pimbsr::sim {

class Medium;
class Network;

/// What a router of a network is given when it is made.
struct NodeOptions {
  std::string name;
  U32 bsTimeout = host::Timeouts().bsTimeout;  ///< seconds until a silent BSR is given up
  U32 szTimeout = host::Timeouts().szTimeout;  ///< seconds until a scope zone without a BSR is forgotten
  Lanet::IpGenAddr loopback;                   ///< an address that lies on no link; unset for none
  double skew = 0;                             ///< seconds by which its clock is ahead
  double drift = 0;                            ///< seconds that its clock gains in each second
};

struct InterfaceOptions {
  std::string name;
  Lanet::IpAddr address;
  U32 drPriority = 1;
};

/// What a packet is, as far as packets are counted.
enum class PacketKind : U8 { hello, bootstrap, crpAdv, other };
inline constexpr std::size_t packetKinds = 4;
using PacketCounts = std::array<U64, packetKinds>;

/// Kind of an IPv4 packet, by its header and the type of the PIM message.
PacketKind kindOf(Bytes packet);

/// One interface of a router.
struct NodeInterface {
  Lanet::IntfId intfId;
  U32 link = 0;
  Lanet::IpGenAddr address;
  U32 drPriority = 1;
  PacketCounts sent{};  ///< packets sent and passed on
};

/// A candidate RP's range and address.
using RpKey = std::pair<Lanet::IpGenPrefix, Lanet::IpGenAddr>;

/// An access list in use by an interface, by the names of both.
using ListUse = std::pair<std::string, std::string>;

/// What a router is configured to do; it survives a stop and a crash.
struct NodeConfig {
  U64 bsTimeout = host::Timeouts().bsTimeout;  ///< seconds until a silent BSR is given up
  U64 szTimeout = host::Timeouts().szTimeout;  ///< seconds until a scope zone without a BSR is forgotten
  std::map<Lanet::IpGenPrefix, host::BsrCandidacy> candidateBsrs;  ///< by zone
  std::map<RpKey, host::RpCandidacy> candidateRps;
  std::set<std::pair<Lanet::IpGenPrefix, U32>> borders;  ///< zone and number of the interface
  std::set<Lanet::IpGenPrefix> permits;
  std::map<std::string, host::AccessList> accessLists;
  std::map<ListUse, host::BsrTerms> bsrLists;
  std::map<ListUse, host::RpCandidacy> rpLists;
  std::set<ListUse> borderLists;
  std::set<std::string> senderLists;
  std::map<Lanet::Prefix, Lanet::IpAddr> routes;  ///< static routes: next hop by prefix
};

/// What a router that starts again has of the former one: nothing, all of its state, or its zones alone. Of
/// those it makes the RP set that PIM reads anew.
enum class Kept : U8 { nothing, state, zones };

/// The rule of an access list that permits a prefix.
Acl::IpRuleConfig permitting(Lanet::Prefix const& prefix);

/// Thrown for a configuration that host::check() rejects, with all errors.
class InvalidConfig : public std::runtime_error {
 public:
  explicit InvalidConfig(std::vector<host::ConfigError> const& errors);
};

/// One router of a network: its configuration, its clock and RNG, its addresses, and, while it runs, the
/// router itself. It starts running; what is configured while it does not counts from its next start on.
class Node final : public pim::Port, private host::OwnDropSink {
 public:
  /// `medium` is the network as its routers use it. Both outlive the router.
  Node(Medium& medium, Network const& network, U32 id, NodeOptions const& options);
  ~Node() override;

  Network const& network() const { return network_; }
  U32 id() const { return id_; }
  std::string const& name() const { return options_.name; }
  NodeOptions const& options() const { return options_; }
  NodeConfig const& config() const { return config_; }
  /// The corrections that it uses, now or from its next start on.
  host::CorrectionSettings const& corrections() const { return corrections_; }
  std::vector<NodeInterface> const& interfaces() const { return interfaces_; }
  /// The number of an interface by its name; the number of interfaces if there is none.
  U32 interfaceNumber(Lanet::IntfId const& intfId) const;
  /// How often messages were dropped, by the reason's name.
  std::map<std::string_view, host::DropCount> const& drops() const { return drops_; }

  /// The router; null while it doesn't run.
  host::Router const* router() const { return router_.get(); }
  bool isRunning() const { return router_ != nullptr; }
  Zet::Context const& context() const { return context_; }
  /// A time of the network on this router's clock, which is what expiry times are for, and back.
  double localTime(double time) const {
    return Zet::Context::firstTime + options_.skew + time * (1 + options_.drift);
  }
  double networkTime(double local) const {
    return (local - Zet::Context::firstTime - options_.skew) / (1 + options_.drift);
  }

  /// Replaces the configuration; the router follows what differs. Throws InvalidConfig, and then nothing is
  /// changed.
  void configIs(NodeConfig const& wanted);
  /// Gives an interface another address, or none; its candidates take it over.
  void addressIs(U32 intf, Lanet::IpGenAddr const& address);
  /// One piece of the configuration; these throw too.
  void candidateBsrIs(Lanet::IpGenPrefix const& zone, host::BsrCandidacy const& candidacy);
  void candidateBsrDel(Lanet::IpGenPrefix const& zone);
  void candidateRpIs(Lanet::IpGenPrefix const& range, host::RpCandidacy const& candidacy);
  void candidateRpDel(Lanet::IpGenPrefix const& range, Lanet::IpGenAddr const& address);
  void borderIs(Lanet::IpGenPrefix const& zone, U32 intf, bool border);
  void permitIs(Lanet::IpGenPrefix const& senders);
  void permitDel(Lanet::IpGenPrefix const& senders);
  /// Adds or replaces a static route, or removes one. It wins over a found route to the same prefix.
  void routeIs(Lanet::Prefix const& prefix, Lanet::IpAddr nextHop);
  void routeDel(Lanet::Prefix const& prefix);

  /// Uses other checks and bounds of packets, or other corrections; they survive a stop and a crash.
  void ingressIs(host::IngressSettings const& ingress);
  /// Replaces the checks alone.
  void checksAre(host::IngressSettings const& checks);
  /// Sets one bound alone; 0 for none.
  void limitIs(U32 host::IngressSettings::*limit, U32 value);
  void correctionsAre(host::CorrectionSettings const& settings);

  /// Starts afresh with what is configured; nothing if it runs already.
  void start();
  /// Ends in order: with goodbye Hellos, and without its candidacies.
  void stop();
  /// Ends at once, without a word.
  void crash();
  /// Ends at once and starts again, with what is kept of the former router.
  void restart(Kept kept);

  bool send(Lanet::IntfId const& intfId, Bytes packet) override;
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const& intfId) const override;
  bool isOwnAddress(Lanet::IpGenAddr const& address) const override;
  bool isOnSubnet(Lanet::IntfId const& intfId, Lanet::IpGenAddr const& address) const override;

  /// Resets the packet counts.
  void packetCountsClear();

 private:
  friend class Network;
  friend class Routes;
  class RouterContext final : public Zet::Context {
   public:
    RouterContext(Node& node, U64 seed) : node_(node), rng_(seed, node.id()) {}
    int rand() override { return rng_.next(); }
    void srand(unsigned seed) override { rng_.seed(seed); }
    void trace(Zet::TraceLine const& line) override;
    void log(Zet::LogHandle const& handle, std::string const& text) override;

   private:
    Node& node_;
    RouterRng rng_;
  };
  /// Collects the changes of one event.
  class Recorder final : public host::ChangeSink {
   public:
    void onChange(host::Change const& change) override { changes.push_back(change); }
    std::vector<host::Change> changes;
  };
  class IntfWatcher;

  // For the network.
  U32 addInterface(U32 link, InterfaceOptions const& options);
  void linkUpIs(U32 intf, bool up);
  void receive(U32 intf, Bytes packet);
  void advance();
  void observe();
  // For the routes.
  void writeRoutes(std::span<FoundRoute const> changed);

  template <class Act>
  void call(Act const& act);
  void report();
  void reportStates();
  void reportSent(U32 intf, Bytes packet);
  void reportReception(U32 intf, host::Reception const& reception);
  void onOwnDrop(host::Reception const& reception) override { countDrop(reception); }
  void countDrop(host::Reception const& reception);
  void bringUp(U32 intf);
  void takeDown(U32 intf);
  void build();
  void startWith(Zet::Ptr<Routing::Pim::Bsr::Status> const& status,
                 Zet::Ptr<Routing::Pim::RpCandidateStatus> const& rpSet);
  host::Configuration configurationOf(NodeConfig const& config) const;
  void end();
  void writeLocalRoute(Lanet::IpGenAddr const& address);
  void writeStaticRoutes();

  Medium& medium_;
  Network const& network_;
  U32 id_;
  NodeOptions options_;
  NodeConfig config_;
  host::IngressSettings ingress_;
  host::CorrectionSettings corrections_;
  std::vector<NodeInterface> interfaces_;
  std::map<std::string_view, host::DropCount> drops_;
  RouterContext context_;
  Recorder recorder_;
  std::unique_ptr<host::ConfigTree> tree_;  ///< null while it doesn't run
  std::unique_ptr<host::Router> router_;
  std::unique_ptr<host::Observer> observer_;
  std::vector<Zet::Ptr<IntfWatcher>> watchers_;  ///< by interface; null for one that is down
  std::map<Lanet::IpGenPrefix, Routing::Pim::Bsr::BsrCandidateState> states_;
  // Packets sent while a message is handled are reported after the message.
  bool receiving_ = false;
  std::vector<std::pair<U32, std::vector<U8>>> sent_;
};

}  // namespace pimbsr::sim
