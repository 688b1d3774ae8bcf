#include "agent/Daemon.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "agent/account/HistoryJson.h"
#include "agent/base/Log.h"
#include "agent/base/TraceLevel.h"
#include "agent/base/Version.h"
#include "agent/config/ConfigChanges.h"
#include "agent/config/ConfigFile.h"
#include "agent/process/Privileges.h"
#include "agent/process/Sandbox.h"
#include "agent/process/ServiceNotify.h"
#include "agent/views/Metrics.h"
#include "agent/views/Views.h"
#include "runtime/Assert.h"
#include "view/Json.h"

namespace pimbsr::agent {

using view::Json;

/// Seconds after which an interface that couldn't be opened is tried again.
static constexpr double interfaceRetry = 10;
/// Seconds from one check for suppressed lines of the log to the next.
static constexpr double logDelay = 2;

std::vector<std::string> claimInterfaces(InterfaceClaims& claims, Settings const& settings) {
  std::set<std::string> names;
  for (auto const& [name, intf] : settings.interfaces) names.insert(name);
  std::vector<std::string> conflicts;
  for (InterfaceClaims::Conflict const& conflict : claims.claim(names)) conflicts.push_back(textOf(conflict));
  return conflicts;
}

// Start and end -----------------------------------------------------------------------------------------

/// A router may have more interfaces, with some sockets each, than the soft limit allows.
static void raiseFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) < 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

Daemon::Daemon(RunOptions const& options, Settings const& settings, Helpers const& helpers,
               InterfaceClaims& claims)
    : options_(options),
      clock_(options.clockRate),
      claims_(claims),
      platform_(loop_, traffic_, *this),
      agent_(clock_, platform_, traffic_, *this),
      timer_(loop_, [this] { handleTimer(); }),
      historyKeeper_(loop_, clock_, agent_.history(), helpers.state.get(), helpers.stateError),
      changeRunner_(loop_, helpers.changeCommand.get(),
                    [this] { return show(agent_.observed(), "rp-set").dump(); }),
      interfaceTimer_(loop_, [this] { onKernelChange(); }),
      logTimer_(loop_, [this] {
        flushLog();
        armTimer();
      }) {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGHUP, SIG_IGN);  // until run() follows it
  raiseFileLimit();
  options_.file = std::filesystem::absolute(options.file);
  // A privilege check may be asked for beside an agent that runs.
  if (!options_.privilegeCheck) historyKeeper_.load();
  agent_.kernelChanged();
  follow(settings);
  if (!options_.privilegeCheck) {
    Settings const& opened = agent_.settings();
    openControl({.path = opened.controlSocket});
    openControl({.path = opened.readOnlySocket,
                 .group = opened.readOnlyGroup,
                 .readOnly = true,
                 .fullPath = opened.controlSocket});
  }
  dropRights();
  checkFiles();
}

/// Each socket has limits of its own, so that the clients of one can't lock out those of the other.
void Daemon::openControl(ControlEndpoint const& endpoint) {
  if (endpoint.path.empty()) return;
  RequestHandler& handler = *this;
  Settings const& settings = agent_.settings();
  ControlLimits const limits = limitsFor(settings.controlClients, settings.userWatches);
  controls_.push_back(std::make_unique<ControlServer>(loop_.handle(), endpoint, handler, limits));
}

void Daemon::dropRights() {
  dropPrivileges();
  if (options_.sandbox) enterSandbox();
}

void Daemon::run() {
  serve();
  std::signal(SIGHUP, SIG_IGN);
  controls_.clear();
  changeRunner_.finish();
  endLog();
}

/// The handlers end with the loop, so that a second signal ends the process at once.
void Daemon::serve() {
  LoopSignal terminate(loop_, SIGTERM, [this] { loop_.stop(); });
  LoopSignal interrupt(loop_, SIGINT, [this] { loop_.stop(); });
  LoopSignal hangup(loop_, SIGHUP, [this] { handleHangup(); });
  armTimer();
  notifyService("READY=1");
  logEvent(logEvents::started,
           fmt::format("version {} runs with {}; {}", version, options_.file, interfacesText()));
  loop_.run();
  notifyService("STOPPING=1");
  changeRunner_.handOver();  // before the goodbyes: what was learned stays in use until the next start
  agent_.sendGoodbyes();
  historyKeeper_.stop();
  logEvent(logEvents::stopped, "has ended all candidacies and sent goodbye Hellos");
}

std::string Daemon::interfacesText() const {
  std::vector<std::string> names;
  for (auto const& [name, settings] : agent_.settings().interfaces) names.push_back(name);
  if (names.empty()) return "no interface is to speak PIM";
  return fmt::format("PIM on {}", fmt::join(names, ", "));
}

// Events ------------------------------------------------------------------------------------------------

bool Daemon::onPacket(std::string const& intf, std::span<U8 const> packet) {
  bool goesOn = agent_.receive(intf, packet);
  endEvent();
  return goesOn;
}

void Daemon::onDuplicateAddress(std::string const& intf, OwnAddressUse const& use) {
  agent_.duplicateAddress(intf, use.address, use.hardwareAddress, use.packets);
}

void Daemon::onKernelChange() {
  agent_.kernelChanged();
  if (agent_.hasProblem() && !interfaceTimer_.isRunning()) interfaceTimer_.startIn(interfaceRetry);
  endEvent();
}

std::vector<Lanet::IpAddr> Daemon::neighborsOf(std::string const& intf) const {
  return agent_.neighborsOf(intf);
}

std::vector<Lanet::IpAddr> Daemon::advertisers() const { return agent_.advertisers(maxFilterAddresses); }

void Daemon::handleTimer() {
  armedFor_ = 0;
  if (agent_.nextExpiry() <= clock_.now()) agent_.advance();
  endEvent();
}

void Daemon::endEvent() {
  armTimer();
  for (auto const& control : controls_) control->modelChanged();
}

void Daemon::armTimer() {
  if (logHoldsBack() && !logTimer_.isRunning()) logTimer_.startIn(logDelay);
  double next = agent_.nextExpiry();
  if (next == armedFor_) return;
  armedFor_ = next;
  timer_.startIn(clock_.realSpan(next - clock_.now()));
}

static bool changesRpSet(HistoryEntry const& change) { return change.isOfRpSet(); }

void Daemon::onChanges(std::vector<HistoryEntry> const& changes) {
  historyKeeper_.save();
  eventLog_.onChanges(changes);
  publish(changes);
  if (std::any_of(changes.begin(), changes.end(), changesRpSet)) changeRunner_.changed();
}

/// The name of an interface, which is in some lines, may have bytes that are no UTF-8.
void Daemon::publish(std::vector<HistoryEntry> const& changes) {
  auto hasWatchers = [](auto const& control) { return control->hasWatchers(); };
  if (std::none_of(controls_.begin(), controls_.end(), hasWatchers)) return;
  for (HistoryEntry const& change : changes) {
    std::string line = jsonOf(change).dump(-1, ' ', false, Json::error_handler_t::replace);
    for (auto const& control : controls_) control->publish(line);
  }
}

// Requests ----------------------------------------------------------------------------------------------

Observed Daemon::observed() {
  Observed observed = agent_.observed();
  for (auto const& control : controls_) observed.controls.push_back(control->status());
  observed.historyFile = historyKeeper_.state();
  observed.changeRuns = changeRunner_.state();
  observed.log = logCounts();
  return observed;
}

Json Daemon::answer(Request const& request) {
  switch (request.command) {
    case Command::show:
      if (request.what == "tree") return showTree(agent_.router(), request.path, request.tree);
      return show(observed(), request.what, request.group, request.zone);
    case Command::get:
      return get(agent_.router(), request.path);
    case Command::metrics:
      return jsonOf(view::Metrics{.text = metricsText(observed())});
    case Command::reload:
      return jsonOf(reload());
    case Command::trace:
      changeTrace(request);
      return Json::object();
    case Command::clear:
      clear(request);
      return Json::object();
    case Command::version:
      return jsonOf(view::Version{.version = version});
    case Command::watch:
      if (!request.path.empty()) get(agent_.router(), request.path);  // throws for a wrong one
      break;
  }
  return Json::object();
}

PathValue Daemon::valueAt(std::string const& path) { return agent::valueAt(agent_.router(), path); }

std::string Daemon::lineOf(std::string const& path, PathValue const& value) {
  return agent::lineOf(path, value, clock_.now());
}

/// Settings that were read without errors are applied whole.
void Daemon::follow(Settings const& settings) {
  bool isFollowed = agent_.settingsIs(settings).empty();
  ZET_ASSERT(isFollowed, "sound settings are followed");
  onKernelChange();
}

/// Keeps the settings that only a restart applies.
view::Reload Daemon::reload() {
  ConfigReading reading = readConfigFile(options_.file);
  view::Reload result = reloadOf(reading, agent_.settings());
  if (result.applied) result.errors = claimInterfaces(claims_, reading.settings);
  result.applied = result.errors.empty();
  Settings const before = agent_.settings();
  if (result.applied) follow(withFormerPlaces(reading.settings));
  logReload(result, changesOf(before, agent_.settings()));
  return result;
}

/// The settings of a file that was read, but for those that only a restart changes.
Settings Daemon::withFormerPlaces(Settings wanted) const {
  wanted.controlSocket = agent_.settings().controlSocket;
  wanted.readOnlySocket = agent_.settings().readOnlySocket;
  wanted.readOnlyGroup = agent_.settings().readOnlyGroup;
  wanted.controlClients = agent_.settings().controlClients;
  wanted.userWatches = agent_.settings().userWatches;
  wanted.stateDirectory = agent_.settings().stateDirectory;
  return wanted;
}

void Daemon::clear(Request const& request) {
  std::string const& what = request.what;
  if (what == "bsr") agent_.clearBsr(request.zone);
  if (what == "rp-set") agent_.clearRpSet(request.zone);
  if (what == "neighbors") agent_.clearNeighbors(request.interface);
  if (what == "counters") agent_.clearCounters();
  if (what == "drops") agent_.clearDrops();
  if (what == "history") {
    agent_.clearHistory();
    historyKeeper_.saveAll();
  }
  endEvent();
}

void Daemon::changeTrace(Request const& request) {
  std::vector<std::string> handles = traceHandles();
  if (std::find(handles.begin(), handles.end(), request.handle) == handles.end())
    throw RequestError(
        fmt::format("there is no trace handle '{}'; valid are {}", request.handle, fmt::join(handles, ", ")));
  traceLevelIs(request.handle, request.level.value_or(traceOff));
}

/// An error of the reload is logged and doesn't end the process.
void Daemon::handleHangup() {
  notifyService("RELOADING=1");
  try {
    reload();
  } catch (std::exception const& error) {
    logLine(fmt::format("{}: {}", options_.file, error.what()));
  }
  notifyService("READY=1");
}

void Daemon::logReload(view::Reload const& result, std::string const& changes) {
  for (std::string const& text : result.errors) logEvent(logEvents::reloadRejected, text);
  for (std::string const& text : result.warnings) logLine(text);
  for (std::string const& key : result.needsRestart)
    logLine(fmt::format("{} takes effect at the next start", key));
  if (!result.applied)
    return logEvent(logEvents::reloadRejected, options_.file + ": rejected; the running configuration stays");
  logEvent(logEvents::reloaded,
           fmt::format("{}: applied; {}", options_.file, changes.empty() ? "nothing changed" : changes));
}

// Files -------------------------------------------------------------------------------------------------

/// Without capabilities even root can't read files of others: logged at the start, before a reload fails.
void Daemon::checkFiles() {
  if (access(options_.file.c_str(), R_OK) < 0)
    logLine(fmt::format("{} can't be read any more, so it can't be reloaded: {}", options_.file,
                        std::generic_category().message(errno)));
}

}  // namespace pimbsr::agent
