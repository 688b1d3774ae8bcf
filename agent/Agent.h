#pragma once

#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "agent/NeighborWatch.h"
#include "agent/account/Drops.h"
#include "agent/account/History.h"
#include "agent/account/Traffic.h"
#include "agent/base/Clock.h"
#include "agent/config/Settings.h"
#include "agent/kernel/Platform.h"
#include "agent/views/Observed.h"
#include "host/ConfigTree.h"
#include "host/Observer.h"
#include "host/Router.h"

namespace pimbsr::agent {

/// Receives the changes of an agent, at the end of each event that made any.
class AgentListener {
 public:
  virtual ~AgentListener() = default;
  /// Changes of the router's learned state and of its own candidacies.
  virtual void onChanges(std::vector<HistoryEntry> const& changes) = 0;
};

/// One router on a platform: applies its settings, follows its kernel, receives its packets, and counts.
///
/// It starts without interfaces and candidacies; settings add them. Each call sets the router's clock, does
/// its work, and publishes the changes. The owner calls advance() at nextExpiry().
class Agent : private host::OwnDropSink {
 public:
  /// All outlive the agent.
  Agent(Clock const& clock, Platform& platform, Traffic& traffic, AgentListener& listener);
  ~Agent();
  Agent(Agent const&) = delete;
  Agent& operator=(Agent const&) = delete;

  /// Applies new settings: removes, then changes, then adds. With errors, returns them and changes nothing.
  std::vector<host::ConfigError> settingsIs(Settings const& wanted);
  Settings const& settings() const { return settings_; }

  /// To be called after a change of the kernel's interfaces and addresses: compares them with the applied
  /// ones. Routes are looked up by the platform when they are needed.
  void kernelChanged();
  /// Whether an interface that is to speak PIM couldn't be opened; each kernelChanged() tries again.
  bool hasProblem() const;
  /// Receives one packet, from its IP header on. Returns whether the budget of its sender allows more at
  /// once.
  bool receive(std::string const& intf, std::span<U8 const> packet);
  /// Another system on an interface has sent so many packets from an address that the interface has here:
  /// counts them, and logs it, once in a minute for an interface. `sender` is its hardware address, or empty.
  void duplicateAddress(std::string const& intf, Lanet::IpAddr address, std::string const& sender,
                        Zet::U64 packets);
  /// The IPv4 addresses of an interface's neighbors, the most important first (NeighborWatch::addressesOf()).
  /// This walks all of them: Platform::neighborsChanged() reports when a new walk is needed.
  std::vector<Lanet::IpAddr> neighborsOf(std::string const& intf) const;
  /// Up to `max` senders of accepted advertisements, the most important first (host::Router::advertisers()):
  /// Platform::advertisersChanged() reports when they are others.
  std::vector<Lanet::IpAddr> advertisers(std::size_t max) const { return router_->advertisers(max); }
  /// Ends all candidacies and sends goodbye Hellos; the last call before destruction.
  void sendGoodbyes();

  /// When the next timer is due on the agent's clock; Kiv::never if none is.
  double nextExpiry() const { return router_->nextExpiry(); }
  /// Runs the timers that are due.
  void advance();

  /// The state for views, at the present time.
  Observed observed();
  void clearCounters();
  void clearDrops() { drops_.clear(); }
  void clearHistory() { history_.clear(); }
  /// Forgets, on an operator's command, what was learned of a zone, or of all for the empty prefix. Throws
  /// RequestError, and changes nothing, for an unknown zone, and for the BSR of one that elected this router.
  void clearBsr(Lanet::IpGenPrefix const& zone);
  void clearRpSet(Lanet::IpGenPrefix const& zone);
  /// The same for the neighbors of an interface, or of all for the empty name. Throws RequestError for one
  /// that speaks no PIM.
  void clearNeighbors(std::string const& intf);
  History& history() { return history_; }
  host::Router& router() { return *router_; }

 private:
  void onOwnDrop(host::Reception const& reception) override;
  /// The router's context: it writes trace and log to the standard error stream, and has its own RNG. The
  /// engine seeds an RNG with the second of its start; another router, or this one before a crash, may have
  /// started in the same second, and would draw the same delays and Generation IDs.
  class AgentContext final : public Zet::Context {
   public:
    int rand() override { return draw_(rng_); }
    void srand(unsigned) override {}
    void trace(Zet::TraceLine const& line) override;
    void log(Zet::LogHandle const& handle, std::string const& text) override;
    /// The interface whose packet is served, and the packet; empty for none.
    void receivingIs(std::string_view intf, std::span<Zet::U8 const> packet) {
      receiving_ = intf;
      packet_ = packet;
    }

   private:
    std::string_view receiving_;
    std::span<Zet::U8 const> packet_;
    std::mt19937 rng_{std::random_device{}()};
    std::uniform_int_distribution<int> draw_{0, RAND_MAX};
  };
  /// Seconds between two lines about a duplicate address.
  static constexpr double duplicateInterval = 60;
  /// An interface as the router has it.
  struct Applied {
    Lanet::IpGenAddr primary;
    bool speaksPim = false;
    int index = 0;
    std::string problem;  ///< why it couldn't be opened; empty without an error
    double duplicateLogged = -duplicateInterval;
    Zet::U64 duplicates = 0;  ///< that were not logged
  };

  template <class Act>
  void call(Cause const& cause, Act const& act);
  void callFor(Cause const& cause, std::function<void()> const& act);
  void publishChanges();
  void followLinks();
  void takeDown(std::string const& name, Applied& applied, bool sendsGoodbye);
  std::string whyDown(std::string const& name) const;
  void bringUp(KernelLink const& link, Applied& applied);
  bool open(KernelLink const& link, Applied& applied);
  void applyAddress(KernelLink const& link, Applied& applied);
  void followSenders();
  void followOwnAddresses();
  bool speaksPim(std::string const& name) const;
  std::vector<Lanet::IpGenPrefix> zonesFor(Lanet::IpGenPrefix const& zone) const;
  void applyTraces(std::map<std::string, int> const& wanted);

  Clock const& clock_;
  Platform& platform_;
  Traffic& traffic_;
  AgentListener& listener_;
  AgentContext context_;
  Settings settings_;
  double startTime_;
  Drops drops_;
  History history_;
  TimerLatency timerLatency_;
  host::ConfigTree tree_;
  std::unique_ptr<host::Router> router_;
  std::unique_ptr<host::Observer> observer_;
  std::unique_ptr<NeighborWatch> neighbors_;
  std::map<std::string, Applied> applied_;  ///< by name
  std::set<Lanet::IpAddr> own_;             ///< the addresses for which the router has a local route
};

}  // namespace pimbsr::agent
