#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/Agent.h"
#include "agent/ChangeRunner.h"
#include "agent/EventLog.h"
#include "agent/Helpers.h"
#include "agent/HistoryKeeper.h"
#include "agent/RunOptions.h"
#include "agent/account/Traffic.h"
#include "agent/base/Clock.h"
#include "agent/base/Loop.h"
#include "agent/control/ControlServer.h"
#include "agent/kernel/LinuxPlatform.h"
#include "agent/process/InterfaceClaims.h"
#include "view/Answers.h"

namespace pimbsr::agent {

/// Claims the interfaces of settings, and gives up all others. Returns the conflicts with other agents, as
/// sentences; what was claimed before stays then.
std::vector<std::string> claimInterfaces(InterfaceClaims& claims, Settings const& settings);

/// The process of an agent: one event loop for packets, timers, the kernel's notices, signals and the control
/// socket.
///
/// It opens its sockets, drops all privileges but that to open raw sockets, and runs until SIGTERM or SIGINT.
/// SIGHUP reloads the file.
class Daemon final : private PlatformListener, private AgentListener, private RequestHandler {
 public:
  /// Opens sockets and files and applies the settings. `claims` has those of its interfaces, and gets those
  /// of later settings. The helpers and the claims outlive it. Throws ControlError and std::system_error.
  Daemon(RunOptions const& options, Settings const& settings, Helpers const& helpers,
         InterfaceClaims& claims);
  Daemon(Daemon const&) = delete;
  Daemon& operator=(Daemon const&) = delete;

  /// Serves until a signal ends it; then ends all candidacies, sends goodbye Hellos and waits for the change
  /// command if a run is due.
  void run();

 private:
  void serve();
  bool onPacket(std::string const& intf, std::span<U8 const> packet) override;
  void onDuplicateAddress(std::string const& intf, OwnAddressUse const& use) override;
  void onKernelChange() override;
  std::vector<Lanet::IpAddr> neighborsOf(std::string const& intf) const override;
  std::vector<Lanet::IpAddr> advertisers() const override;
  void onChanges(std::vector<HistoryEntry> const& changes) override;
  nlohmann::ordered_json answer(Request const& request) override;
  PathValue valueAt(std::string const& path) override;
  std::string lineOf(std::string const& path, PathValue const& value) override;

  std::string interfacesText() const;
  void openControl(ControlEndpoint const& endpoint);
  Observed observed();
  void publish(std::vector<HistoryEntry> const& changes);
  void dropRights();
  void endEvent();
  void armTimer();
  void handleTimer();
  void handleHangup();
  view::Reload reload();
  void logReload(view::Reload const& result, std::string const& changes);
  void follow(Settings const& settings);
  Settings withFormerPlaces(Settings wanted) const;
  void changeTrace(Request const& request);
  void clear(Request const& request);
  void checkFiles();

  RunOptions options_;
  Clock clock_;
  Loop loop_;
  InterfaceClaims& claims_;
  Traffic traffic_;
  LinuxPlatform platform_;
  Agent agent_;
  LoopTimer timer_;
  HistoryKeeper historyKeeper_;
  ChangeRunner changeRunner_;
  LoopTimer interfaceTimer_;
  LoopTimer logTimer_;
  EventLog eventLog_;
  double armedFor_ = 0;                                   ///< expiry that timer_ waits for
  std::vector<std::unique_ptr<ControlServer>> controls_;  ///< one for each control socket
};

}  // namespace pimbsr::agent
