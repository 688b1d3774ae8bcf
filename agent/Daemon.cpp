#include "agent/Daemon.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "agent/ConfigFile.h"
#include "agent/ConfigLint.h"
#include "agent/Files.h"
#include "agent/HistoryJson.h"
#include "agent/Metrics.h"
#include "agent/Privileges.h"
#include "agent/Sandbox.h"
#include "agent/ServiceNotify.h"
#include "agent/TraceLevel.h"
#include "agent/Version.h"
#include "agent/Views.h"

namespace pimbsr::agent {

using Json = nlohmann::ordered_json;

/// Seconds after a change within which the history is kept in its file.
static constexpr double historyDelay = 5;
/// Seconds without a change after which the change command is told, and the longest that it waits.
static constexpr double changeQuiet = 1;
static constexpr double changeLatest = 5;
static constexpr std::size_t longestHistory = std::size_t{1} << 20;

static void logLine(std::string const& text) {
  if (!text.empty()) fmt::print(stderr, "pimbsr: {}\n", text);
}

// Start and end -----------------------------------------------------------------------------------------

Daemon::Daemon(RunOptions const& options, Settings const& settings, ChangeCommand* changeCommand)
    : options_(options),
      clock_(options.clockRate),
      changeCommand_(changeCommand),
      machine_(loop_, traffic_, *this),
      agent_(clock_, machine_, traffic_, *this),
      timer_(loop_, [this] { handleTimer(); }),
      historyTimer_(loop_, [this] { saveHistory(); }),
      changeTimer_(loop_, [this] { tellChangeCommand(); }) {
  options_.file = std::filesystem::absolute(options.file);
  agent_.kernelChanged(machine_.takeChangedRoutes());
  agent_.settingsIs(settings);
  loadHistory();
  if (changeCommand_ != nullptr) followChangeCommand();
  openControl();
  dropRights();
}

void Daemon::openControl() {
  std::string path = agent_.settings().controlSocket;
  if (path.empty()) return;
  RequestHandler& handler = *this;
  control_ = std::make_unique<ControlServer>(loop_.handle(), path, handler);
}

void Daemon::dropRights() {
  dropPrivileges();
  if (options_.sandbox) enterSandbox();
}

void Daemon::run() {
  LoopSignal terminate(loop_, SIGTERM, [this] { loop_.stop(); });
  LoopSignal interrupt(loop_, SIGINT, [this] { loop_.stop(); });
  LoopSignal hangup(loop_, SIGHUP, [this] { handleHangup(); });
  std::signal(SIGPIPE, SIG_IGN);
  armTimer();
  notifyService("READY=1");
  loop_.run();
  notifyService("STOPPING=1");
  agent_.sayFarewell();
  saveHistory();
}

// Events ------------------------------------------------------------------------------------------------

void Daemon::onPacket(std::string const& intf, std::span<U8 const> packet) {
  agent_.receive(intf, packet);
  armTimer();
}

void Daemon::onKernelChange(std::vector<Lanet::Prefix> const& routes) {
  agent_.kernelChanged(routes);
  armTimer();
}

void Daemon::handleTimer() {
  armedFor_ = 0;
  if (agent_.nextExpiry() <= clock_.now()) agent_.advance();
  armTimer();
}

void Daemon::armTimer() {
  double next = agent_.nextExpiry();
  if (next == armedFor_) return;
  armedFor_ = next;
  timer_.startIn(clock_.realSpan(next - clock_.now()));
}

static bool changesRpSet(HistoryEntry const& change) { return change.isOfRpSet(); }

/// What is published holds text of the kernel's, such as names of interfaces, which may be any bytes.
void Daemon::onChanges(std::vector<HistoryEntry> const& changes) {
  if (!historyTimer_.isRunning()) historyTimer_.startIn(historyDelay);
  if (control_ && control_->hasWatchers()) {
    for (HistoryEntry const& change : changes)
      control_->publish(jsonOf(change).dump(-1, ' ', false, Json::error_handler_t::replace));
  }
  if (changeCommand_ == nullptr || std::none_of(changes.begin(), changes.end(), changesRpSet)) return;
  if (!changeTimer_.isRunning()) changeDeadline_ = clock_.now() + changeLatest * clock_.rate();
  changeTimer_.startIn(std::min(changeQuiet, clock_.realSpan(changeDeadline_ - clock_.now())));
}

void Daemon::tellChangeCommand() {
  logLine(changeCommand_->tell(show(agent_.observed(), "rp-set").dump()));
  followChangeCommand();
}

/// The helper's descriptor goes when the helper does.
void Daemon::followChangeCommand() {
  if (changeCommand_->fd() < 0) {
    changeReader_ = nullptr;
  } else if (!changeReader_) {
    changeReader_ = std::make_unique<LoopReader>(loop_, changeCommand_->fd(), [this] {
      logLine(changeCommand_->handleReport());
      followChangeCommand();
    });
  }
}

// Requests ----------------------------------------------------------------------------------------------

Json Daemon::answer(Request const& request) {
  switch (request.command) {
    case Command::show:
      return show(agent_.observed(), request.what, request.group);
    case Command::metrics:
      return {{"text", metricsText(agent_.observed())}};
    case Command::reload:
      return reload();
    case Command::trace:
      changeTrace(request);
      return Json::object();
    case Command::clear:
      clear(request.what);
      return Json::object();
    case Command::version:
      return {{"version", version}};
    case Command::watch:
      break;
  }
  return Json::object();
}

static Json textsOf(std::string const& file, std::vector<ConfigFinding> const& findings) {
  Json texts = Json::array();
  for (ConfigFinding const& finding : findings)
    texts.push_back(fmt::format("{}: {}", textOf(file, finding.at), finding.text));
  return texts;
}

/// What only a restart applies stays as it is.
Json Daemon::reload() {
  ConfigReading reading = readConfigFile(options_.file);
  Json result = {{"applied", reading.isSound()},
                 {"faults", textsOf(reading.file, reading.faults)},
                 {"warnings", textsOf(reading.file, lint(reading))},
                 {"needsRestart", needRestart(agent_.settings(), reading.settings)}};
  if (!reading.isSound()) return result;
  Settings wanted = reading.settings;
  wanted.controlSocket = agent_.settings().controlSocket;
  wanted.stateDirectory = agent_.settings().stateDirectory;
  agent_.settingsIs(wanted);
  armTimer();
  return result;
}

void Daemon::clear(std::string const& what) {
  if (what == "counters") agent_.clearCounters();
  if (what == "drops") agent_.clearDrops();
  if (what == "history") agent_.clearHistory();
  armTimer();
}

void Daemon::changeTrace(Request const& request) {
  std::vector<std::string> handles = traceHandles();
  if (std::find(handles.begin(), handles.end(), request.handle) == handles.end())
    throw RequestError(
        fmt::format("there is no trace handle '{}'; valid are {}", request.handle, fmt::join(handles, ", ")));
  traceLevelIs(request.handle, request.level.value_or(traceOff));
}

void Daemon::handleHangup() {
  notifyService("RELOADING=1");
  Json result = reload();
  for (Json const& fault : result["faults"]) logLine(fault.get<std::string>());
  logLine(fmt::format("{}: {}", options_.file,
                      result["applied"] ? "read again and followed" : "refused; what ran before runs on"));
  notifyService("READY=1");
}

// Files -------------------------------------------------------------------------------------------------

void Daemon::loadHistory() {
  std::filesystem::path folder = agent_.settings().stateDirectory;
  if (folder.empty()) return;
  try {
    std::filesystem::create_directories(folder);
    if (std::filesystem::exists(folder / "history.jsonl"))
      agent_.history().load(readFile(folder / "history.jsonl", longestHistory));
  } catch (std::system_error const& fault) {
    logLine(fmt::format("the history can't be kept: {}", fault.what()));
  }
}

void Daemon::saveHistory() {
  std::filesystem::path folder = agent_.settings().stateDirectory;
  if (folder.empty()) return;
  try {
    replaceFile(folder / "history.jsonl", agent_.history().text());
  } catch (std::system_error const& fault) {
    logLine(fmt::format("the history can't be kept: {}", fault.what()));
  }
}

}  // namespace pimbsr::agent
