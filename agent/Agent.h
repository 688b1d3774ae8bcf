#pragma once

#include <cstdlib>
#include <map>
#include <memory>
#include <random>
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

/// What an agent tells the process around it, at the end of each event that changed something.
class AgentListener {
 public:
  virtual ~AgentListener() = default;
  /// Changes of what the router believes, and of its own candidacies.
  virtual void onChanges(std::vector<HistoryEntry> const& changes) = 0;
};

/// One router on a platform: applies its settings, follows its kernel, receives its packets, and counts.
///
/// It is made without any interface or candidacy; settings bring them. Each call sets the router's clock,
/// does its work, and tells what changed. Whoever drives it calls advance() when nextExpiry() has come.
class Agent : private host::OwnDropSink {
 public:
  /// All outlive the agent.
  Agent(Clock const& clock, Platform& platform, Traffic& traffic, AgentListener& listener);
  ~Agent();
  Agent(Agent const&) = delete;
  Agent& operator=(Agent const&) = delete;

  /// Follows other settings: what is gone first, then what changed, then what is new. With faults nothing is
  /// changed and they are returned.
  std::vector<host::ConfigError> settingsIs(Settings const& wanted);
  Settings const& settings() const { return settings_; }

  /// To be called when what the kernel says has changed: interfaces and addresses are compared with what was
  /// told before, and the best routes of the prefixes given are read again.
  void kernelChanged(std::vector<Lanet::Prefix> const& routes);
  /// Whether an interface that is to speak PIM couldn't be opened; each kernelChanged() tries again.
  bool hasProblem() const;
  /// Takes one packet, from its IP header on. Returns whether its sender may go on at once; with false it has
  /// used up what it is granted.
  bool receive(std::string const& intf, std::span<U8 const> packet);
  /// The IPv4 addresses of an interface's neighbors, the most important first (NeighborWatch::addressesOf()).
  /// This walks all of them: Platform::neighborsChanged() reports when a new walk is needed.
  std::vector<Lanet::IpAddr> neighborsOf(std::string const& intf) const;
  /// Up to `max` senders of accepted advertisements, the most important first (host::Router::advertisers()):
  /// Platform::advertisersChanged() reports when they are others.
  std::vector<Lanet::IpAddr> advertisers(std::size_t max) const { return router_->advertisers(max); }
  /// Ends all candidacies and sends goodbye Hellos; the agent is done then.
  void sendGoodbyes();

  /// When the next timer is due on the agent's clock; Kiv::never if none is.
  double nextExpiry() const { return router_->nextExpiry(); }
  /// Runs the timers that are due.
  void advance();

  /// All that may be shown, as of now.
  Observed observed();
  void clearCounters();
  void clearDrops() { drops_.clear(); }
  void clearHistory() { history_.clear(); }
  History& history() { return history_; }
  host::Router& router() { return *router_; }

 private:
  void onOwnDrop(host::Reception const& reception) override;
  /// The router's context: its trace and log go to the standard error stream, and its chance is its own. The
  /// engine seeds chance with the second of its start, in which other routers, or this one before a crash,
  /// may have started too: they would draw the same delays and Generation IDs.
  class AgentContext final : public Zet::Context {
   public:
    int rand() override { return draw_(chance_); }
    void srand(unsigned) override {}
    void trace(Zet::TraceLine const& line) override;
    void log(Zet::LogHandle const& handle, std::string const& text) override;

   private:
    std::mt19937 chance_{std::random_device{}()};
    std::uniform_int_distribution<int> draw_{0, RAND_MAX};
  };
  /// An interface as the router has it.
  struct Applied {
    Lanet::IpGenAddr primary;
    bool speaksPim = false;
    int index = 0;
    std::string problem;  ///< why it can't be opened; empty if it could or needn't
  };

  template <class Act>
  void call(Cause const& cause, Act const& act);
  void publishChanges();
  void followLinks();
  void takeDown(std::string const& name, Applied& applied, bool sendsGoodbye);
  void bringUp(KernelLink const& link, Applied& applied);
  bool open(KernelLink const& link, Applied& applied);
  void applyAddress(KernelLink const& link, Applied& applied);
  void followSenders();
  void followRoutes(std::vector<Lanet::Prefix> const& routes);
  bool speaksPim(std::string const& name) const;
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
};

}  // namespace pimbsr::agent
