#include "agent/Agent.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "agent/EventLog.h"
#include "agent/base/Log.h"
#include "agent/base/TraceLevel.h"
#include "host/LogFlags.h"
#include "host/Mtus.h"
#include "host/PreferredRps.h"
#include "runtime/Log.h"
#include "wire/Wire.h"

namespace pimbsr::agent {

using host::Reception;
using Lanet::IntfId;
using Lanet::IpGenAddr;
using ::Slosh::Fib::RouteType;

// Trace and log -----------------------------------------------------------------------------------------

void Agent::AgentContext::trace(Zet::TraceLine const& line) {
  logTrace(fmt::format("trace {} {} {}: {}", line.handle, line.level, line.function, line.text));
}

/// The group range at the begin of the argument of a line.
static std::string rangeOf(Zet::LogHandle const& handle, std::string const& text) {
  std::size_t begin = std::string_view(handle.format()).find("%s");
  return text.substr(begin, text.find_first_of(" ,", begin) - begin);
}

static std::string senderOf(std::span<Zet::U8 const> packet) {
  auto ip = wire::parseIpv4(packet);
  return ip ? std::string(Lanet::IpGenAddr(ip->source).stringValue().view()) : std::string();
}

/// A line is about a range or else about the sender, who may name any number of RPs: with a limit by RP, one
/// sender could write as much as all of them may.
void Agent::AgentContext::log(Zet::LogHandle const& handle, std::string const& text) {
  LogRecord record{
      .event = {handle.name(), static_cast<LogPriority>(handle.severity()), logEvents::engineMessageId},
      .subject = {{"INTERFACE", std::string(receiving_)}},
      .text = text};
  if (handle.rateFlags() == host::limitedByRange) {
    record.subject.emplace_back("RANGE", rangeOf(handle, text));
  } else {
    record.subject.emplace_back("SENDER", senderOf(packet_));
  }
  agent::log(record);
}

// Construction ------------------------------------------------------------------------------------------

Agent::Agent(Clock const& clock, Platform& platform, Traffic& traffic, AgentListener& listener)
    : clock_(clock), platform_(platform), traffic_(traffic), listener_(listener), startTime_(clock.now()) {
  context_.nowIs(startTime_);
  host::RouterOptions options{.config = tree_.config(),
                              .clearConfig = tree_.clearConfig(),
                              .accessLists = tree_.accessLists(),
                              .ownDrops = this};
  router_ = std::make_unique<host::Router>(context_, platform_, options);
  observer_ = std::make_unique<host::Observer>(*router_, history_);
  neighbors_ = std::make_unique<NeighborWatch>(router_->pimStatus());
}

Agent::~Agent() {
  for (auto const& [handle, level] : settings_.traces) traceLevelIs(handle, traceOff);
}

/// A neighbor that a command removed was cleared.
static void logNeighbors(std::vector<NeighborChange> changes, CauseKind cause) {
  for (NeighborChange& change : changes) {
    change.isCleared = !change.isThere && cause == CauseKind::command;
    logNeighbor(change);
  }
}

/// Makes a call at the present time; then publishes its changes.
template <class Act>
void Agent::call(Cause const& cause, Act const& act) {
  Zet::Context::Scope scope(context_);
  DropListener::Scope drops(router_->dropListener());
  context_.nowIs(clock_.now());
  history_.causeIs(cause, context_.now());
  act();
  publishChanges();
  logNeighbors(neighbors_->takeNeighborChanges(), cause.kind);
  followSenders();
}

void Agent::callFor(Cause const& cause, std::function<void()> const& act) { call(cause, act); }

/// The platform receives packets of known senders in queues of their own.
void Agent::followSenders() {
  for (IntfId const& intfId : neighbors_->takeChanged())
    platform_.neighborsChanged(std::string(intfId.stringValue().view()));
  if (router_->takeAdvertisersChanged()) platform_.advertisersChanged();
}

std::vector<Lanet::IpAddr> Agent::neighborsOf(std::string const& intf) const {
  return neighbors_->addressesOf(IntfId(intf.c_str()));
}

void Agent::publishChanges() {
  observer_->flush();
  history_.noteStates(*router_);
  std::vector<HistoryEntry> changes = history_.takeNew();
  if (!changes.empty()) listener_.onChanges(changes);
}

// Events ------------------------------------------------------------------------------------------------

bool Agent::receive(std::string const& intf, std::span<Zet::U8 const> packet) {
  bool goesOn = true;
  context_.receivingIs(intf, packet);
  call({.kind = CauseKind::message, .intf = intf}, [&] {
    observer_->messageInHand();
    Reception reception = router_->receive(IntfId(intf.c_str()), packet);
    history_.senderIs(reception);
    traffic_.noteReceived(intf, reception);
    if (!reception.accepted()) drops_.note(intf, reception, context_.now());
    goesOn = !reception.overBudget();
  });
  context_.receivingIs("", {});
  return goesOn;
}

void Agent::duplicateAddress(std::string const& intf, Lanet::IpAddr address, std::string const& sender,
                             Zet::U64 packets) {
  auto at = applied_.find(intf);
  if (at == applied_.end()) return;
  traffic_.noteDuplicates(intf, packets);
  Applied& applied = at->second;
  applied.duplicates += packets;
  if (clock_.now() - applied.duplicateLogged < duplicateInterval) return;
  applied.duplicateLogged = clock_.now();
  logDuplicateAddress(intf, address, sender, std::exchange(applied.duplicates, 0));
}

void Agent::onOwnDrop(Reception const& reception) { drops_.note("", reception, context_.now()); }

void Agent::advance() {
  double late = clock_.now() - router_->nextExpiry();
  timerLatency_.note(clock_.realSpan(late));
  call({.kind = CauseKind::timer}, [&] { router_->advance(); });
}

void Agent::sendGoodbyes() {
  call({.kind = CauseKind::stop}, [&] { router_->sendGoodbyes(); });
}

// Settings ----------------------------------------------------------------------------------------------

static std::set<Lanet::IntfId> exactBordersOf(host::Configuration const& router) {
  std::set<Lanet::IntfId> interfaces;
  for (std::string const& name : router.exactBorders) interfaces.insert(Lanet::IntfId(name.c_str()));
  return interfaces;
}

static host::BsmPolicy bsmPolicyOf(Settings const& settings) {
  host::BsmPolicy policy{.bsrs = host::AddressLists(settings.router, settings.router.bsrLists)};
  for (auto const& [name, intf] : settings.interfaces) {
    if (!intf.bsm) policy.closed.insert(Lanet::IntfId(name.c_str()));
  }
  return policy;
}

/// Candidacies end before the interfaces that announce their end are closed.
std::vector<host::ConfigError> Agent::settingsIs(Settings const& wanted) {
  std::vector<host::ConfigError> errors = host::check(wanted.router);
  if (!errors.empty()) return errors;
  applyTraces(wanted.traces);
  settings_ = wanted;
  for (auto const& [name, settings] : settings_.interfaces) {
    if (!platform_.kernel().links.contains(name))
      logInterface(logEvents::interfaceMissing, name, "there is none of that name yet");
  }
  call({.kind = CauseKind::configuration}, [&] {
    router_->ingressSettingsIs(settings_.ingress);
    router_->correctionsAre(settings_.corrections);
    router_->exactBordersAre(exactBordersOf(settings_.router));
    router_->bsmPolicyIs(bsmPolicyOf(settings_));
    router_->preferredRpsIs(host::PreferredRps(settings_.router, settings_.router.rpLists));
    tree_.apply(context_, settings_.router);
    for (auto& [name, applied] : applied_) {
      if (applied.speaksPim && !speaksPim(name)) takeDown(name, applied, true);
    }
    followLinks();
  });
  return {};
}

void Agent::applyTraces(std::map<std::string, int> const& wanted) {
  for (auto const& [handle, level] : settings_.traces) traceLevelIs(handle, traceOff);
  for (auto const& [handle, level] : wanted) traceLevelIs(handle, level);
}

void Agent::clearCounters() {
  call({.kind = CauseKind::configuration}, [&] {
    tree_.clearConfig()->countersCountIs(tree_.clearConfig()->countersCount() + 1);
    router_->clearCounters();
  });
  traffic_.clear();
  platform_.clearReports();
  timerLatency_.clear();
}

// The kernel --------------------------------------------------------------------------------------------

/// Removed links first: no RPF lookup may use a route over a link that is down.
void Agent::kernelChanged() {
  call({.kind = CauseKind::kernel}, [&] {
    for (auto& [name, applied] : applied_) {
      auto link = platform_.kernel().links.find(name);
      bool stays =
          link != platform_.kernel().links.end() && link->second.up && link->second.index == applied.index;
      if (applied.speaksPim && !stays) takeDown(name, applied, false);
    }
    followOwnAddresses();
    followLinks();
  });
}

/// An elected BSR finds by these routes that its own candidate RPs advertise to itself. All other routes are
/// the platform's.
void Agent::followOwnAddresses() {
  std::set<Lanet::IpAddr> own;
  for (auto const& [name, link] : platform_.kernel().links) {
    for (KernelAddress const& one : link.addresses) own.insert(one.address);
  }
  for (Lanet::IpAddr address : own_) {
    if (!own.contains(address)) router_->routeDel({address, 32});
  }
  for (Lanet::IpAddr address : own) {
    if (!own_.contains(address)) router_->routeIs({address, 32}, {.type = RouteType::local});
  }
  own_ = std::move(own);
}

bool Agent::speaksPim(std::string const& name) const { return settings_.interfaces.contains(name); }

/// Removes the addresses of deleted links; then updates the others.
void Agent::followLinks() {
  auto const& links = platform_.kernel().links;
  for (auto at = applied_.begin(); at != applied_.end();) {
    if (links.contains(at->first)) {
      ++at;
      continue;
    }
    if (!at->second.primary.isEmpty()) router_->handleAddressChange(IntfId(at->first.c_str()));
    traffic_.forget(at->first);
    at = applied_.erase(at);
  }
  for (auto const& [name, link] : links) {
    Applied& applied = applied_[name];
    applied.index = link.index;
    applyAddress(link, applied);
    if (link.up && speaksPim(name)) {
      bringUp(link, applied);
    } else {
      applied.problem.clear();
    }
  }
}

void Agent::applyAddress(KernelLink const& link, Applied& applied) {
  IntfId intfId(link.name.c_str());
  IpGenAddr primary = platform_.primaryAddress(intfId);
  if (primary == applied.primary) return;
  applied.primary = primary;
  router_->handleAddressChange(intfId);
}

static pim::HelloOptions helloOptions(InterfaceSettings const& settings) {
  double period = settings.helloInterval;
  return {.period = period,
          .triggeredDelay = std::min(5.0, period),
          .holdtime = static_cast<U16>(settings.helloInterval * 7 / 2),
          .drPriority = settings.drPriority,
          .silent = !settings.hello};
}

/// Also for an interface that is up: its MTU or settings may have changed.
void Agent::bringUp(KernelLink const& link, Applied& applied) {
  pim::HelloOptions hello = helloOptions(settings_.interfaces.at(link.name));
  if (!applied.speaksPim && !open(link, applied)) return;
  if (!std::exchange(applied.speaksPim, true)) logInterfaceUp(link.name, applied.primary);
  router_->interfaceIs(IntfId(link.name.c_str()), std::max(link.mtu, host::Mtus::minimum), hello);
}

/// A reason is logged once, however often it is tried.
bool Agent::open(KernelLink const& link, Applied& applied) {
  try {
    platform_.open(link);
    applied.problem.clear();
  } catch (std::system_error const& error) {
    if (std::exchange(applied.problem, error.what()) != error.what())
      logInterface(logEvents::interfaceError, link.name, fmt::format("it speaks no PIM: {}", error.what()));
  }
  return applied.problem.empty();
}

bool Agent::hasProblem() const {
  return std::any_of(applied_.begin(), applied_.end(),
                     [](auto& entry) { return !entry.second.problem.empty(); });
}

void Agent::takeDown(std::string const& name, Applied& applied, bool sendsGoodbye) {
  IntfId intfId(name.c_str());
  if (sendsGoodbye) router_->sendGoodbye(intfId);
  router_->interfaceDel(intfId);
  platform_.close(name);
  applied.speaksPim = false;
  logInterfaceDown(name, whyDown(name));
}

/// Why an interface speaks PIM no more.
std::string Agent::whyDown(std::string const& name) const {
  if (!speaksPim(name)) return "it is not configured any more";
  auto link = platform_.kernel().links.find(name);
  if (link == platform_.kernel().links.end()) return "it was removed";
  return link->second.up ? "another of its name took its place" : "the link is down";
}

// Views -------------------------------------------------------------------------------------------------

Observed Agent::observed() {
  context_.nowIs(clock_.now());
  return {.router = *router_,
          .settings = settings_,
          .kernel = platform_.kernel(),
          .traffic = traffic_,
          .drops = drops_,
          .history = history_,
          .timerLatency = timerLatency_,
          .links = platform_.linkReports(),
          .startTime = startTime_};
}

}  // namespace pimbsr::agent
