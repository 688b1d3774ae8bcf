#pragma once

#include <vector>

#include "agent/account/ChangeRuns.h"
#include "agent/account/Drops.h"
#include "agent/account/History.h"
#include "agent/account/HistoryFile.h"
#include "agent/account/TimerLatency.h"
#include "agent/account/Traffic.h"
#include "agent/base/Log.h"
#include "agent/config/Settings.h"
#include "agent/control/ControlCounts.h"
#include "agent/kernel/KernelView.h"
#include "agent/kernel/Platform.h"
#include "host/Router.h"

namespace pimbsr::agent {

/// The state of a running agent that its views show, without changing it.
struct Observed {
  host::Router const& router;
  Settings const& settings;
  KernelView const& kernel;
  Traffic const& traffic;
  Drops const& drops;
  History const& history;
  TimerLatency const& timerLatency;
  LinkReports links;
  double startTime = 0;  ///< when the agent started, on its clock

  std::vector<ControlStatus> controls = {};  ///< of each control socket that is open
  HistoryFile historyFile = {};
  ChangeRuns changeRuns = {};
  LogCounts log = {};

  /// The time from which remaining times are computed; the owner sets the router's clock before each view.
  double now() const { return router.context().now(); }
};

}  // namespace pimbsr::agent
